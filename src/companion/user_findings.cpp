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
// What makes what is not there yet.
Sentence firstAction() {
  return tr("Nothing need be done: the first \"tervano add\" makes it.");
}

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
  const Sentence what = tr("shared container");
  const auto& files = *platform().fileManager;
  if (!files.itemExistsAtPath(path)) {
    const std::string above = nearestFolder(path);
    if (files.isDirectoryAtPath(above) && files.isWritableFileAtPath(above)) {
      return {what, Health::missing, tr("{1} has not been made yet.", path), firstAction(), false};
    }
    return {what, Health::broken,
            tr("{1} cannot be made: {2} is no folder to write to.", path, above),
            tr("Make {1} a folder that you own and may write to.", above)};
  }
  if (!files.isDirectoryAtPath(path)) {
    return {what, Health::broken, tr("{1} is no folder.", path),
            tr("Move it away; it is made anew.")};
  }
  if (!files.isWritableFileAtPath(path)) {
    return {what, Health::broken, tr("{1} cannot be written to.", path),
            tr("Make it yours with \"chown\" and \"chmod 700\".")};
  }
  return {what, Health::ok, tr("{1} can be written to.", path), ""};
}

Finding listFinding(const std::string& container) {
  const Sentence what = tr("action list");
  const std::string path = container + "/" + kActionsFileName;
  // Loading would make a container that is not there.
  if (!platform().fileManager->itemExistsAtPath(path)) {
    return {what, Health::missing, tr("There is no {1} yet.", path), firstAction(), false};
  }
  try {
    const std::size_t count = loadActions()->actions().size();
    return {what, Health::ok, trn("{2} holds {1} entry.", "{2} holds {1} entries.", count, path),
            ""};
  } catch (const CommandError& error) {
    return {what, Health::broken, error.sentence(),
            tr("Bring {1} back from a backup, or move it away to begin a new list.", path)};
  }
}

Finding channelFinding() {
  const Sentence what = tr("message channel");
  const int observer = 0;
  bool heard = false;
  platform().notifyChannel->addObserver(&observer, kEchoName,
                                        [&heard](const std::string&) { heard = true; });
  platform().notifyChannel->post(kEchoName);
  platform().runLoop->runMainLoopUntil([&heard] { return heard; }, kEchoSeconds);
  platform().notifyChannel->removeEveryObserver(&observer);
  if (heard) return {what, Health::ok, tr("A message came back."), ""};
  return {what, Health::broken, tr("A message did not come back."),
          tr("See that $XDG_RUNTIME_DIR is a folder of yours with mode 0700, and that the limit "
             "fs.inotify.max_user_instances is not reached.")};
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
    findings.push_back({tr("shared container"), Health::missing, tr("This system has none."),
                        tr("See that HOME is an absolute path.")});
  }
  findings.push_back(channelFinding());
  return findings;
}

}  // namespace tervano
