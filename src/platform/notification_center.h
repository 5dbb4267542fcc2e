#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "archive/value.h"
#include "platform/subscription.h"

namespace tervano {

// What a notification centre hands to its observers.
struct Notification {
  std::string name;
  // Who posted it; compared by identity, never dereferenced by the centre.
  const void* sender = nullptr;
  Value::Dictionary userInfo;
};

// In-process broadcast. Delivery is synchronous, on the posting thread, to the observers registered
// when the post began and not removed since. Any thread.
class NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;

  // Observes `name`, from `sender` alone or, when it is null, from anybody.
  Subscription addObserver(std::string name, const void* sender, Handler handler);
  void post(const Notification& notification);
  // Registered observers, for finding forgotten ones.
  std::size_t observerCount() const;

 private:
  struct Observer {
    std::string name;
    const void* sender;
    Handler handler;
    bool removed = false;
  };
  struct State {
    std::mutex mutex;
    std::vector<std::shared_ptr<Observer>> observers;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace tervano
