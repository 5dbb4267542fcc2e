#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "messaging/vx_wormhole.h"
#include "prefs/vx_user_defaults.h"

namespace tervano {

// The product's preferences. Made fresh by every reader, read, and dropped. Each set is flushed and
// then told to the other processes by one message without object under
// "NSUserDefaultsDidChangeNotification", also when the value was the same; key-value observers of
// this object are never called.
//
// Kept in the suite "com.vessok.tervano.preferences" under the suite's name, a dot and the
// property's name.
class TVUserDefaults : public VXUserDefaults {
 public:
  using VXUserDefaults::VXUserDefaults;
  // A fresh, initialised instance.
  static std::shared_ptr<TVUserDefaults> create() { return make<TVUserDefaults>(); }

  bool init() override;
  static std::span<const Property> properties();
  std::optional<std::string> suiteName() const;
  Value::Dictionary setupDefaults() const;
  // Tells nobody: half a notification would say nothing to an observer.
  void willChangeValueForKey(const std::string& key) override;
  // Passes the message; the key is not told.
  void didChangeValueForKey(const std::string& key) override;

  // Null on a system without group containers: changes are stored and told to nobody.
  const std::shared_ptr<VXWormhole>& wormhole() const { return wormhole_; }
  void setWormhole(std::shared_ptr<VXWormhole> wormhole) { wormhole_ = std::move(wormhole); }

  // Do not ask for confirmation when an action is deleted.
  bool suppressActionDeletionAlert() const { return read<bool>("suppressActionDeletionAlert"); }
  void setSuppressActionDeletionAlert(bool value) {
    write("setSuppressActionDeletionAlert:", value);
  }
  // One-time flags: the templates and the action list of a first start were made.
  bool didCreateDefaultTemplates() const { return read<bool>("didCreateDefaultTemplates"); }
  void setDidCreateDefaultTemplates(bool value) { write("setDidCreateDefaultTemplates:", value); }
  bool didCreateDefaultActions() const { return read<bool>("didCreateDefaultActions"); }
  void setDidCreateDefaultActions(bool value) { write("setDidCreateDefaultActions:", value); }
  bool didCreateDefaultActions2() const { return read<bool>("didCreateDefaultActions2"); }
  void setDidCreateDefaultActions2(bool value) { write("setDidCreateDefaultActions2:", value); }
  // On unless set.
  bool showIconInToolbar() const { return read<bool>("showIconInToolbar"); }
  void setShowIconInToolbar(bool value) { write("setShowIconInToolbar:", value); }
  bool useBlackAndWhiteIcon() const { return read<bool>("useBlackAndWhiteIcon"); }
  void setUseBlackAndWhiteIcon(bool value) { write("setUseBlackAndWhiteIcon:", value); }
  // The actions go into a submenu instead of the menu's top level. On unless set.
  bool useSubmenu() const { return read<bool>("useSubmenu"); }
  void setUseSubmenu(bool value) { write("setUseSubmenu:", value); }
  bool playAlertOnCompletion() const { return read<bool>("playAlertOnCompletion"); }
  void setPlayAlertOnCompletion(bool value) { write("setPlayAlertOnCompletion:", value); }
  // Reveal a moved or copied file. On unless set.
  bool showFileOnMoveCopyComplete() const { return read<bool>("showFileOnMoveCopyComplete"); }
  void setShowFileOnMoveCopyComplete(bool value) { write("setShowFileOnMoveCopyComplete:", value); }
  // No user notification at the end of an action.
  bool disableActionNotifications() const { return read<bool>("disableActionNotifications"); }
  void setDisableActionNotifications(bool value) { write("setDisableActionNotifications:", value); }
  // Replace an existing file at the destination of a move.
  bool overwriteDestinationFile() const { return read<bool>("overwriteDestinationFile"); }
  void setOverwriteDestinationFile(bool value) { write("setOverwriteDestinationFile:", value); }

  // The eleven stored preferences by name, in the order of their declaration.
  static const std::vector<std::string>& preferenceNames();
  // Nil for a name that is not a preference.
  std::optional<bool> preferenceNamed(std::string_view name) const;
  // As the preference's own setter; false, and nothing done, for a name that is not a preference.
  bool setPreferenceNamed(std::string_view name, bool value);

 private:
  std::shared_ptr<VXWormhole> wormhole_;
};

}  // namespace tervano
