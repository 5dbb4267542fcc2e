#include "actions/tv_convert_image_action.h"

#include "actions/next_available_path.h"
#include "actions/path_names.h"
#include "archive/archiver.h"
#include "archive/platform_exception.h"
#include "archive/unarchiver.h"
#include "archive/url.h"
#include "platform/applications.h"
#include "platform/file_name.h"
#include "platform/platform.h"
#include "platform/user_notifications.h"
#include "platform/workspace.h"

namespace tervano {

void TVConvertImageAction::init() {
  TVAction::init();
  setIcon(Image::imageNamed("icon-image"));
  setFileTypes({{"public.image"}});
}

void TVConvertImageAction::initWithCoder(Unarchiver& coder) {
  TVAction::initWithCoder(coder);
  setOutputFormat(coder.decodeString("outputFormat"));
  setOutputExtension(coder.decodeString("outputExtension"));
}

void TVConvertImageAction::encodeWithCoder(Archiver& coder) const {
  TVAction::encodeWithCoder(coder);
  coder.encodeObject(outputFormat(), "outputFormat");
  coder.encodeObject(outputExtension(), "outputExtension");
}

std::shared_ptr<TVAction> TVConvertImageAction::makeBlank() const {
  return std::make_shared<TVConvertImageAction>();
}

void TVConvertImageAction::copyFieldsTo(TVAction& copy) const {
  TVAction::copyFieldsTo(copy);
  auto& conversion = static_cast<TVConvertImageAction&>(copy);
  conversion.setOutputFormat(outputFormat());
  conversion.setOutputExtension(outputExtension());
}

void TVConvertImageAction::runWithFilePaths(const FilePaths& filePaths,
                                            const CompletionBlock& completionBlock) {
  if (filePaths.empty()) return;
  beginRun(filePaths.size(), completionBlock);
  const std::string subject = filePaths.size() == 1
                                  ? "'" + lastPathComponent(filePaths.front()) + "'"
                                  : std::to_string(filePaths.size()) + " images";
  notifyUser("Started converting " + subject, std::nullopt);
  if (!outputFormat()) {
    throw PlatformException(kInvalidArgumentException, "a conversion without an output format");
  }
  for (const std::string& path : filePaths) {
    const std::string input = standardizingPath(path);
    const std::string output = outputPathFor(input);
    launchTool("/usr/bin/sips", {"-s", "format", *outputFormat(), input, "--out", output}, output);
  }
}

std::string TVConvertImageAction::outputPathFor(const std::string& input) const {
  if (!outputExtension()) {
    throw PlatformException(kInvalidArgumentException, "a conversion without an output extension");
  }
  const std::string name =
      appendingPathExtension(deletingPathExtension(lastPathComponent(input)), *outputExtension());
  if (!isFileName(name)) {
    throw PlatformException(kInvalidArgumentException,
                            "\"" + *outputExtension() + "\" is no file name extension");
  }
  return vx_nextAvailablePath(appendingPathComponent(deletingLastPathComponent(input), name));
}

std::optional<std::string> TVConvertImageAction::bundleIDForPath(const std::string& path) const {
  return platform().applications->bundleIdentifierAtPath(path);
}

std::shared_ptr<ToolRun> TVConvertImageAction::sharedToolRun() {
  return std::static_pointer_cast<TVConvertImageAction>(shared_from_this());
}

std::string_view TVConvertImageAction::errorLogPrefix() const {
  return "[DEBUG] Reset pref task got error: ";
}

void TVConvertImageAction::reportEnd(const VXTaskHelper& last) const {
  const std::string output = last.userInfo().value_or("");
  notifyUser("Finished converting '" + lastPathComponent(output) + "'",
             kUserNotificationDefaultSoundName);
  platform().workspace->activateFileViewerSelectingURLs({Url::fileURLWithPath(output)});
}

}  // namespace tervano
