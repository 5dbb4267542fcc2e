#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "messaging/vx_wormhole.h"
#include "model/tv_action.h"
#include "store/vx_timer.h"

namespace tervano {

// The name of the action list's file in the application group's container.
inline constexpr char kActionsFileName[] = "Actions.plist";

// The user's ordered list of actions and its file, "Actions.plist" in the application group's
// container: one keyed archive whose root is the array of actions. Loaded when the manager is made,
// then kept in memory; written back a moment after `save`, whole and atomically, and announced to
// the other processes. One thread.
class TVActionsManager : public std::enable_shared_from_this<TVActionsManager> {
 public:
  // A manager of class T with the list loaded. Null when the file is there but cannot be read or
  // holds no list of actions: that is logged, the file stays as it is, and `reasonForFailure`, when
  // given, receives a sentence for a person. A missing or empty file is an empty list.
  template <typename T = TVActionsManager>
  static std::shared_ptr<T> create(std::string* reasonForFailure = nullptr) {
    auto manager = std::make_shared<T>();
    if (manager->configure()) return manager;
    if (reasonForFailure != nullptr) *reasonForFailure = manager->loadFailure_;
    return nullptr;
  }
  // The one manager of this process, made by the first call with that call's T; null for ever when
  // that failed. Any thread may call; lives as long as the process.
  template <typename T = TVActionsManager>
  static std::shared_ptr<TVActionsManager> sharedInstance() {
    return sharedInstance([]() -> std::shared_ptr<TVActionsManager> { return create<T>(); });
  }

  // Not loaded; made by `create`.
  TVActionsManager() = default;
  // Drops a pending save.
  virtual ~TVActionsManager();
  TVActionsManager(const TVActionsManager&) = delete;
  TVActionsManager& operator=(const TVActionsManager&) = delete;

  // Loads the list and makes the messenger; false when the list cannot be loaded.
  virtual bool configure();

  // A snapshot of the list.
  ActionList actions() const { return workingActionsArray_; }
  // These three change the list in memory only. Nulls are ignored; removing takes out every entry
  // that is this very object.
  void addAction(std::shared_ptr<TVAction> action);
  void removeAction(const std::shared_ptr<TVAction>& action);
  void updateActions(ActionList actions);

  // Schedules a write on the run loop of the calling thread, 0.1 seconds from now, in place of one
  // that is pending. A manager that is gone by then writes nothing.
  void save();
  // Clears `isNew` of the list's own actions, writes, and announces the change, also when the write
  // failed.
  virtual void actuallySave();
  // Writes the list atomically; a failure is not reported.
  void saveToFile();
  // The file's place; creates the container when missing. Nil without group containers.
  std::optional<Url> saveURL() const;

  const ActionList& workingActionsArray() const { return workingActionsArray_; }
  void setWorkingActionsArray(ActionList actions);
  // The pending or spent delayed save, null before the first.
  const std::shared_ptr<VXTimer>& saveDelayTimer() const { return saveDelayTimer_; }
  void setSaveDelayTimer(std::shared_ptr<VXTimer> timer) { saveDelayTimer_ = std::move(timer); }
  // Null on a system without group containers: changes are written and announced to nobody.
  const std::shared_ptr<VXWormhole>& wormHole() const { return wormHole_; }
  void setWormHole(std::shared_ptr<VXWormhole> wormHole) { wormHole_ = std::move(wormHole); }

 private:
  static std::shared_ptr<TVActionsManager> sharedInstance(
      const std::function<std::shared_ptr<TVActionsManager>()>& make);

  ActionList workingActionsArray_;
  std::shared_ptr<VXTimer> saveDelayTimer_;
  std::shared_ptr<VXWormhole> wormHole_;
  std::string loadFailure_;
};

}  // namespace tervano
