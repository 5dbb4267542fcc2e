#include "model/tv_action_groups.h"

#include "platform/uniform_types.h"

namespace tervano {

void TVOpenWithActionGroup::init() {
  TVActionGroup::init();
  setIcon(Image::imageNamed("icon-open-with"));
}

std::optional<std::string> TVOpenWithActionGroup::defaultTitle() const {
  return "Open With";
}

std::optional<std::string> TVOpenWithActionGroup::editorClassName() const {
  return "TVMoveToActionModule";
}

std::shared_ptr<TVAction> TVOpenWithActionGroup::makeBlank() const {
  return std::make_shared<TVOpenWithActionGroup>();
}

void TVCopyActionGroup::init() {
  TVActionGroup::init();
  setIcon(Image::imageNamed("icon-copy"));
}

std::optional<std::string> TVCopyActionGroup::defaultTitle() const {
  return "Copy to a folder";
}

std::optional<std::string> TVCopyActionGroup::editorClassName() const {
  return "TVMoveToActionModule";
}

std::shared_ptr<TVAction> TVCopyActionGroup::makeBlank() const {
  return std::make_shared<TVCopyActionGroup>();
}

void TVNewFileActionGroup::init() {
  TVActionGroup::init();
  setIcon(Image::imageNamed("icon-new-file"));
}

std::optional<std::string> TVNewFileActionGroup::defaultTitle() const {
  return "Create new file";
}

std::optional<std::string> TVNewFileActionGroup::editorClassName() const {
  return "TVNewFileActionModule";
}

std::shared_ptr<TVAction> TVNewFileActionGroup::makeBlank() const {
  return std::make_shared<TVNewFileActionGroup>();
}

void TVMoveActionGroup::init() {
  TVActionGroup::init();
  setIcon(Image::imageNamed("icon-move"));
}

std::optional<std::string> TVMoveActionGroup::defaultTitle() const {
  return "Move to a folder";
}

std::optional<std::string> TVMoveActionGroup::editorClassName() const {
  return "TVMoveToActionModule";
}

std::shared_ptr<TVAction> TVMoveActionGroup::makeBlank() const {
  return std::make_shared<TVMoveActionGroup>();
}

void TVOpenFavesActionGroup::init() {
  TVActionGroup::init();
  setTitle("Open new Finder window");
  setIcon(Image::imageNamed("icon-open-faves"));
  setIsDefault(true);
  setActionDescription("Opens a new Finder window/tab to the selected location");
}

std::optional<std::string> TVOpenFavesActionGroup::editorClassName() const {
  return "TVMoveToActionModule";
}

std::shared_ptr<TVAction> TVOpenFavesActionGroup::makeBlank() const {
  return std::make_shared<TVOpenFavesActionGroup>();
}

void TVConvertImageActionGroup::init() {
  TVActionGroup::init();
  setTitle("Convert Image");
  setIcon(Image::imageNamed("icon-convert-images"));
  setIsDefault(true);
  setActionDescription("Converts an image to the selected format");
  setFileTypes(std::vector<std::string>{kUTTypeImage});
}

std::optional<std::string> TVConvertImageActionGroup::editorClassName() const {
  return "TVResetAppModule";
}

std::shared_ptr<TVAction> TVConvertImageActionGroup::makeBlank() const {
  return std::make_shared<TVConvertImageActionGroup>();
}

}  // namespace tervano
