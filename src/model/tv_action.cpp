#include "model/tv_action.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "platform/log.h"

namespace tervano {

void TVAction::init() {
  setIsNew(true);
  setTitle(defaultTitle());
  setEnabled(true);
  generateUID();
}

void TVAction::generateUID() {
  std::string uid = Uuid::random().UUIDString();
  std::erase(uid, '-');
  uid_ = std::move(uid);
}

void TVAction::setIcon(const ImagePtr& icon) {
  icon_ = Image::menuIconFrom(icon);
}

std::shared_ptr<TVAction> TVAction::copy() const {
  auto copy = makeBlank();
  copyFieldsTo(*copy);
  return copy;
}

std::shared_ptr<TVAction> TVAction::makeBlank() const {
  return std::make_shared<TVAction>();
}

void TVAction::copyFieldsTo(TVAction& copy) const {
  copy.uid_ = uid_;
  copy.setEnabled(enabled());
  copy.setIcon(icon());
  copy.setTitle(title());
  copy.setIsDefault(isDefault());
  copy.setFileTypes(fileTypes());
  copy.setActionDescription(actionDescription());
}

void TVAction::initWithCoder(Unarchiver& coder) {
  uid_ = coder.decodeString("uid");
  setEnabled(coder.decodeBool("enabled"));
  setTitle(coder.decodeString("title"));
  setIcon(coder.decodeObjectOfClass<Image>("icon"));
  setIsDefault(coder.decodeBool("isDefault"));
  setFileTypes(coder.decodeStringArray("fileTypes"));
  setActionDescription(coder.decodeString("actionDescription"));
  if (!uid_) generateUID();
}

void TVAction::encodeWithCoder(Archiver& coder) const {
  coder.encodeBool(enabled(), "enabled");
  coder.encodeObject(title(), "title");
  // A Value shares objects without const; an archiver only reads them.
  coder.encodeObject(std::const_pointer_cast<Image>(icon()), "icon");
  coder.encodeObject(uid(), "uid");
  coder.encodeBool(isDefault(), "isDefault");
  Value types;
  if (fileTypes()) types = Value::Array(fileTypes()->begin(), fileTypes()->end());
  coder.encodeObject(types, "fileTypes");
  coder.encodeObject(actionDescription(), "actionDescription");
}

std::string TVAction::description() const {
  std::array<char, 2 + 2 * sizeof(void*) + 1> address{};
  std::snprintf(address.data(), address.size(), "%p", static_cast<const void*>(this));
  return "<" + std::string(className()) + ": " + address.data() +
         " title=" + title().value_or("(null)") + ">";
}

void TVAction::beforeRunWithFilePaths(const FilePaths& /*filePaths*/,
                                      const BeforeRunBlock& completionBlock) {
  if (completionBlock) completionBlock(nullptr);
}

void TVAction::runWithFilePaths(const FilePaths& /*filePaths*/,
                                const CompletionBlock& /*completionBlock*/) {
  log("Subclasses should override this");
}

}  // namespace tervano
