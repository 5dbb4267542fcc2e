#include "companion/desktop_progress.h"

#include <utility>

#include "platform/platform.h"
#include "platform/user_notifications.h"
#include "prefs/tv_user_defaults.h"
#include "translation/translation.h"

namespace tervano {

namespace {

// So often it is said again, or else it would go away by itself.
constexpr std::chrono::seconds kRepeatInterval(5);

}  // namespace

DesktopProgress::DesktopProgress() {
  platform().userNotifications->setProgressHandler(
      [self = std::weak_ptr<DesktopProgress*>(self_)](std::uint64_t number, ProgressEvent event) {
        if (const auto alive = self.lock()) (*alive)->didHear(number, event);
      });
}

DesktopProgress::~DesktopProgress() {
  platform().userNotifications->setProgressHandler(nullptr);
  for (const auto& [number, notified] : notified_) {
    platform().userNotifications->endProgress(number);
  }
}

void DesktopProgress::setCancelHandler(CancelHandler handler) {
  cancelHandler_ = std::move(handler);
  window_.setCancelHandler(cancelHandler_);
}

void DesktopProgress::show(std::uint64_t number, const ShownProgress& progress) {
  if (silent_.contains(number)) return;
  if (inWindow_.contains(number)) return window_.show(number, progress);
  const auto now = Clock::now();
  const auto found = notified_.find(number);
  if (found == notified_.end()) {
    if (TVUserDefaults::create()->disableActionNotifications()) {
      silent_.insert(number);
      return;
    }
  } else if (found->second.progress == progress && now - found->second.time < kRepeatInterval) {
    return;
  }
  notified_[number] = {progress, now};
  platform().userNotifications->showProgress(
      number, {progress.title, progress.text, progress.fraction, tr("Cancel")});
}

void DesktopProgress::hide(std::uint64_t number) {
  silent_.erase(number);
  if (inWindow_.erase(number) > 0) window_.hide(number);
  if (notified_.erase(number) > 0) platform().userNotifications->endProgress(number);
}

void DesktopProgress::didHear(std::uint64_t number, ProgressEvent event) {
  const auto found = notified_.find(number);
  if (found == notified_.end()) return;
  if (event == ProgressEvent::cancelled) {
    if (cancelHandler_) cancelHandler_(number);
    return;
  }
  const ShownProgress progress = found->second.progress;
  notified_.erase(found);
  inWindow_.insert(number);
  window_.show(number, progress);
}

}  // namespace tervano
