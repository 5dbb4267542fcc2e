#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "archive/url.h"
#include "platform/apple_event.h"
#include "platform/error.h"

namespace tervano {

// A user's script file that has been found fit to run. Any thread.
class UserScriptTask {
 public:
  // `result` is nil when the handler gave none that can be carried; `error` is nil for success.
  using CompletionHandler = std::function<void(const std::optional<AppleEventDescriptor>& result,
                                               const std::optional<Error>& error)>;

  virtual ~UserScriptTask() = default;
  // Runs the script outside this process and calls the handler that the event's parameter 'snam'
  // names with the items of its direct object as arguments. Returns at once; `handler` is called
  // exactly once, later, on a thread of the service's choosing. The task may be dropped meanwhile.
  virtual void executeWithAppleEvent(const AppleEvent& event, CompletionHandler handler) = 0;
};

// Runs scripts of the user's own.
class UserScripts {
 public:
  virtual ~UserScripts() = default;
  // Null, with the reason in `error`, when the URL is nil or no file, when the file cannot be read,
  // or when no interpreter for it is known or installed.
  virtual std::shared_ptr<UserScriptTask> taskWithURL(const std::optional<Url>& url,
                                                      std::optional<Error>* error) = 0;
};

class ForwardingUserScripts : public UserScripts {
 public:
  explicit ForwardingUserScripts(UserScripts& real) : real_(real) {}
  std::shared_ptr<UserScriptTask> taskWithURL(const std::optional<Url>& url,
                                              std::optional<Error>* error) override {
    return real_.taskWithURL(url, error);
  }

 private:
  UserScripts& real_;
};

}  // namespace tervano
