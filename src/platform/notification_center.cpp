#include "platform/notification_center.h"

#include <algorithm>

namespace tervano {

Subscription NotificationCenter::addObserver(std::string name, const void* sender,
                                             Handler handler) {
  auto observer = std::make_shared<Observer>(Observer{std::move(name), sender, std::move(handler)});
  {
    const std::lock_guard lock(state_->mutex);
    state_->observers.push_back(observer);
  }
  return Subscription([state = std::weak_ptr(state_), observer] {
    const auto alive = state.lock();
    if (alive == nullptr) return;
    const std::lock_guard lock(alive->mutex);
    observer->removed = true;
    std::erase(alive->observers, observer);
  });
}

void NotificationCenter::post(const Notification& notification) {
  std::vector<std::shared_ptr<Observer>> matching;
  {
    const std::lock_guard lock(state_->mutex);
    std::copy_if(state_->observers.begin(), state_->observers.end(), std::back_inserter(matching),
                 [&](const auto& observer) {
                   return observer->name == notification.name &&
                          (observer->sender == nullptr || observer->sender == notification.sender);
                 });
  }
  for (const auto& observer : matching) {
    {
      const std::lock_guard lock(state_->mutex);
      if (observer->removed) continue;
    }
    observer->handler(notification);
  }
}

std::size_t NotificationCenter::observerCount() const {
  const std::lock_guard lock(state_->mutex);
  return state_->observers.size();
}

}  // namespace tervano
