#pragma once

#include "model/tv_action_group.h"

namespace tervano {

// The six kinds of groups: each fixes a title, an icon and the editor of its members.

// Actions that open files with an application.
class TVOpenWithActionGroup : public TVActionGroup {
 public:
  void init() override;
  std::optional<std::string> defaultTitle() const override;
  std::optional<std::string> editorClassName() const override;
  std::string_view className() const override { return "TVOpenWithActionGroup"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
};

// Actions that copy to a folder.
class TVCopyActionGroup : public TVActionGroup {
 public:
  void init() override;
  std::optional<std::string> defaultTitle() const override;
  std::optional<std::string> editorClassName() const override;
  std::string_view className() const override { return "TVCopyActionGroup"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
};

// Actions that create a file from a template.
class TVNewFileActionGroup : public TVActionGroup {
 public:
  void init() override;
  std::optional<std::string> defaultTitle() const override;
  std::optional<std::string> editorClassName() const override;
  std::string_view className() const override { return "TVNewFileActionGroup"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
};

// Actions that move to a folder.
class TVMoveActionGroup : public TVActionGroup {
 public:
  void init() override;
  std::optional<std::string> defaultTitle() const override;
  std::optional<std::string> editorClassName() const override;
  std::string_view className() const override { return "TVMoveActionGroup"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
};

// Actions that open a favourite folder; offered as a built-in default.
class TVOpenFavesActionGroup : public TVActionGroup {
 public:
  void init() override;
  std::optional<std::string> editorClassName() const override;
  std::string_view className() const override { return "TVOpenFavesActionGroup"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
};

// Actions that convert images; offered as a built-in default, for images only.
class TVConvertImageActionGroup : public TVActionGroup {
 public:
  void init() override;
  std::optional<std::string> editorClassName() const override;
  std::string_view className() const override { return "TVConvertImageActionGroup"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
};

}  // namespace tervano
