#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "archive/coding.h"
#include "archive/value.h"
#include "platform/error.h"
#include "platform/image.h"

namespace tervano {

// One entry that the user can put into the file manager's menu: identity, title, icon, a filter of
// file types and a switch. Concrete actions and groups derive from it; they are compared by
// identity.
//
// An action has three births: blank (the constructor: every field nil or false, no uid), which
// copying and decoding need; `action<T>()`, which is blank and then `init`; and decoding, which is
// blank and then `initWithCoder`. One object belongs to one thread at a time.
class TVAction : public Coding, public std::enable_shared_from_this<TVAction> {
 public:
  // The end of a run. `error` may be nil whatever `success` says.
  using CompletionBlock = std::function<void(bool success, const std::optional<Error>& error)>;
  using BeforeRunBlock = std::function<void(const Value& object)>;
  using FilePaths = std::vector<std::string>;

  // A blank action.
  TVAction() = default;
  TVAction(const TVAction&) = delete;
  TVAction& operator=(const TVAction&) = delete;

  // Fills in what a new action of the class has: a fresh uid, `title` from `defaultTitle`, enabled
  // and new. An override calls its base first, then sets its own title, icon and so on.
  virtual void init();

  // A new object of this very class with the same uid, not new, and with an icon of its own: it
  // stands for the same menu entry.
  std::shared_ptr<TVAction> copy() const;

  // "<CLASS: ADDRESS title=TITLE>".
  virtual std::string description() const;

  // Runs before the action, to ask the user or to look something up, then calls the block, here at
  // once with nil. An action that cannot go on does not call it.
  virtual void beforeRunWithFilePaths(const FilePaths& filePaths,
                                      const BeforeRunBlock& completionBlock);
  // Performs the action on the paths. Each class says on which queue it calls the block, and
  // whether at all; this one only logs that it should have been overridden.
  virtual void runWithFilePaths(const FilePaths& filePaths, const CompletionBlock& completionBlock);

  // Replaces the uid by a fresh one.
  virtual void generateUID();
  // 32 upper-case hexadecimal characters; nil for a blank action only.
  const std::optional<std::string>& uid() const { return uid_; }
  // Whether the action is shown in menus.
  bool enabled() const { return enabled_; }
  void setEnabled(bool enabled) { enabled_ = enabled; }
  // 16 by 16 points; nil until the first setIcon.
  const ImagePtr& icon() const { return icon_; }
  // Keeps a new image drawn from the given one, blank for null: never nil after this.
  virtual void setIcon(const ImagePtr& icon);
  // The text of the menu item.
  const std::optional<std::string>& title() const { return title_; }
  void setTitle(std::optional<std::string> title) { title_ = std::move(title); }
  // One line that explains the action to the user.
  const std::optional<std::string>& actionDescription() const { return actionDescription_; }
  void setActionDescription(std::optional<std::string> text) {
    actionDescription_ = std::move(text);
  }
  // Uniform type identifiers: a selection matches when every item of it conforms to EVERY listed
  // type. Nil: any selection matches.
  const std::optional<std::vector<std::string>>& fileTypes() const { return fileTypes_; }
  void setFileTypes(std::optional<std::vector<std::string>> types) {
    fileTypes_ = std::move(types);
  }
  // Created by `init` and never saved. Not archived.
  bool isNew() const { return isNew_; }
  void setIsNew(bool isNew) { isNew_ = isNew; }
  // Marks the kinds that the application offers as built-in defaults.
  bool isDefault() const { return isDefault_; }
  void setIsDefault(bool isDefault) { isDefault_ = isDefault; }
  // The title that a new action of this class receives. Not archived.
  virtual std::optional<std::string> defaultTitle() const { return defaultTitle_; }
  void setDefaultTitle(std::optional<std::string> title) { defaultTitle_ = std::move(title); }
  // The name of the application's editor for this kind of action.
  virtual std::optional<std::string> editorClassName() const { return std::nullopt; }

  std::string_view className() const override { return "TVAction"; }
  // Takes everything from the archive: what is absent there is nil or false, except that the icon
  // is blank and the uid fresh.
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

 protected:
  // A blank object of the receiver's own class.
  virtual std::shared_ptr<TVAction> makeBlank() const;
  // Fills a blank object of the same class. An override calls its base first, then copies its own
  // fields through the setters.
  virtual void copyFieldsTo(TVAction& copy) const;

 private:
  bool enabled_ = false;
  bool isNew_ = false;
  bool isDefault_ = false;
  std::optional<std::string> uid_;
  ImagePtr icon_;
  std::optional<std::string> title_;
  std::optional<std::string> actionDescription_;
  std::optional<std::vector<std::string>> fileTypes_;
  std::optional<std::string> defaultTitle_;
};

using ActionList = std::vector<std::shared_ptr<TVAction>>;

// A new, initialised action of class T.
template <typename T>
std::shared_ptr<T> action() {
  auto blank = std::make_shared<T>();
  blank->init();
  return blank;
}

}  // namespace tervano
