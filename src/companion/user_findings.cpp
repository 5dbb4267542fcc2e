#include "companion/action_store.h"
#include "companion/finding.h"
#include "messaging/message_identifiers.h"
#include "platform/file_manager.h"
#include "platform/notify_channel.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

constexpr char kEchoName[] = "TVDoctorDidCall";
constexpr double kEchoSeconds = 5;
constexpr char kFirstAction[] = "Nothing need be done: the first \"tervano add\" makes it.";

std::string parentOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

// The folder in which the first missing folder above `path` would be made.
std::string nearestFolder(std::string path) {
  while (path != "/" && !platform().fileManager->itemExistsAtPath(path)) path = parentOf(path);
  return path;
}

Finding containerFinding(const std::string& path) {
  const std::string what = "shared container";
  const auto& files = *platform().fileManager;
  if (!files.itemExistsAtPath(path)) {
    const std::string above = nearestFolder(path);
    if (files.isDirectoryAtPath(above) && files.isWritableFileAtPath(above)) {
      return {what, Health::missing, path + " has not been made yet.", kFirstAction, false};
    }
    return {what, Health::broken, path + " cannot be made: " + above + " is no folder to write to.",
            "Make " + above + " a folder that you own and may write to."};
  }
  if (!files.isDirectoryAtPath(path)) {
    return {what, Health::broken, path + " is no folder.", "Move it away; it is made anew."};
  }
  if (!files.isWritableFileAtPath(path)) {
    return {what, Health::broken, path + " cannot be written to.",
            "Make it yours with \"chown\" and \"chmod 700\"."};
  }
  return {what, Health::ok, path + " can be written to.", ""};
}

Finding listFinding(const std::string& container) {
  const std::string what = "action list";
  const std::string path = container + "/" + kActionsFileName;
  // Loading would make a container that is not there.
  if (!platform().fileManager->itemExistsAtPath(path)) {
    return {what, Health::missing, "There is no " + path + " yet.", kFirstAction, false};
  }
  try {
    const std::size_t count = loadActions()->actions().size();
    return {what, Health::ok,
            path + " holds " + std::to_string(count) + (count == 1 ? " entry." : " entries."), ""};
  } catch (const CommandError& error) {
    return {what, Health::broken, error.what(),
            "Bring " + path + " back from a backup, or move it away to begin a new list."};
  }
}

Finding channelFinding() {
  const std::string what = "message channel";
  const int observer = 0;
  bool heard = false;
  platform().notifyChannel->addObserver(&observer, kEchoName,
                                        [&heard](const std::string&) { heard = true; });
  platform().notifyChannel->post(kEchoName);
  platform().runLoop->runMainLoopUntil([&heard] { return heard; }, kEchoSeconds);
  platform().notifyChannel->removeEveryObserver(&observer);
  if (heard) return {what, Health::ok, "A message came back.", ""};
  return {what, Health::broken, "A message did not come back.",
          "See that $XDG_RUNTIME_DIR is a folder of yours with mode 0700, and that the limit "
          "fs.inotify.max_user_instances is not reached."};
}

}  // namespace

std::vector<Finding> userFindings() {
  std::vector<Finding> findings;
  const auto container = platform().fileManager->containerURLForSecurityApplicationGroupIdentifier(
      kApplicationGroupIdentifier);
  if (container) {
    findings.push_back(containerFinding(container->path()));
    findings.push_back(listFinding(container->path()));
  } else {
    findings.push_back({"shared container", Health::missing, "This system has none.",
                        "See that HOME is an absolute path."});
  }
  findings.push_back(channelFinding());
  return findings;
}

}  // namespace tervano
