#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/activation.h"

namespace tervano {

// The process as org.freedesktop.Application on the session bus (Desktop Entry Specification,
// "D-Bus Activation"), answered by hand so that every URI arrives byte for byte. Main thread.
class ApplicationService {
 public:
  struct Requests {
    // Each is called on the main loop, on behalf of a request of its own that has the token of the
    // platform data (activation.h), or none.
    std::function<void()> activate;
    std::function<void(const std::vector<std::string>& uris)> open;
    // Begins an application action, whose parameters are texts. Nil when it did, else the sentence
    // with which the sender is refused. An empty function: there are no such actions.
    std::function<std::optional<std::string>(const std::string& name,
                                             const std::vector<std::string>& parameters)>
        activateAction = nullptr;
  };
  enum class Ownership {
    // This process owns the name and receives the requests.
    owner,
    // Another process owns it.
    other,
    // There is no session bus.
    noBus,
  };

  // Tries to become the owner of the bus name `identifier`, without queueing for it. The object
  // path is the identifier with slashes for dots.
  ApplicationService(std::string identifier, Requests requests);
  ~ApplicationService();
  ApplicationService(const ApplicationService&) = delete;
  ApplicationService& operator=(const ApplicationService&) = delete;

  Ownership ownership() const;
  // Whether requests can still arrive: this process owns the name and the bus is there.
  bool isReachable() const;
  // Hands the URIs to the process that owns the name, with the token of their request; false when
  // it did not take them within ten seconds.
  bool forwardOpen(const std::vector<std::string>& uris, const ActivationToken& token = {});
  // Gives the name back and delivers the requests that had already arrived.
  void release();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tervano
