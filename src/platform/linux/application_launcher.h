#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "archive/url.h"
#include "platform/error.h"
#include "platform/linux/activation.h"
#include "platform/linux/application_entry.h"
#include "platform/linux/program_launcher.h"
#include "platform/linux/session_bus.h"

namespace tervano {

// Opens files with applications: through the bus for those that the bus activates (Desktop Entry
// Specification 1.5, "D-Bus Activation"), else by starting their programs. Any thread but the bus
// thread, except where it says so. Whatever is opened first for a request gets its activation
// token.
class ApplicationLauncher {
 public:
  static constexpr int kReplyTimeoutMilliseconds = 25'000;

  // `pendingRequests` counts what has not been answered yet.
  ApplicationLauncher(SessionBus& bus, std::atomic<int>& pendingRequests,
                      int reachableTimeoutMilliseconds)
      : bus_(bus),
        pendingRequests_(pendingRequests),
        reachableTimeoutMilliseconds_(reachableTimeoutMilliseconds),
        programs_(bus) {}

  // Opens all URLs in one request; none just starts the application. Nil once it has been asked or
  // started. Where it takes one file at a time, the others follow on the bus thread. What fails
  // later is logged and told to the user.
  std::optional<Error> open(const ApplicationEntry& application, const std::vector<Url>& urls);
  // Starts the program at `path` with the local paths of all URLs.
  std::optional<Error> openWithProgram(const std::string& path, const std::vector<Url>& urls);
  // Starts the application's program once, with these words as its whole command line.
  std::optional<Error> start(const ApplicationEntry& application,
                             const std::vector<std::string>& arguments, bool inTerminal);
  // Opens the URL on the bus thread, with the application of the desktop entry at `entryPath`. A
  // failure is one line in the log. Any thread. Where no request is current, as on the bus thread,
  // the token is given.
  void openLater(const std::string& entryPath, const Url& url,
                 ActivationToken token = takeActivationToken());

 private:
  struct Request {
    ApplicationEntry application;
    std::vector<Url> urls;
    bool tellsUser = false;
    ActivationToken token = {};
  };
  struct Remaining;

  bool canGoThroughBus(const Request& request) const;
  void openThroughBus(const std::shared_ptr<const Request>& request);
  std::optional<Error> startProgram(const std::shared_ptr<const Request>& request);
  std::optional<Error> prepare(const ApplicationEntry& application, bool inTerminal,
                               std::vector<std::string>& prefix,
                               ProgramLauncher::Options& options) const;
  void startRemaining(const std::shared_ptr<Remaining>& remaining);
  static std::string whatFailed(const Request& request);
  static void reportFailure(const Request& request, const std::string& why);

  SessionBus& bus_;
  std::atomic<int>& pendingRequests_;
  int reachableTimeoutMilliseconds_;
  ProgramLauncher programs_;
};

}  // namespace tervano
