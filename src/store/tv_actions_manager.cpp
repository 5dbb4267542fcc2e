#include "store/tv_actions_manager.h"

#include <cerrno>
#include <mutex>

#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "messaging/message_identifiers.h"
#include "model/action_list.h"
#include "platform/file_manager.h"
#include "platform/log.h"
#include "platform/platform.h"

namespace tervano {
namespace {

// Seconds.
constexpr double kSaveDelay = 0.1F;

// Nil when there is no file, which differs from one that cannot be read: the next save would
// replace that one.
std::optional<Data> contentsOfListFile(const std::string& path) {
  std::optional<Error> error;
  auto data = platform().fileManager->contentsAtPath(path, &error);
  if (!data && error && error->code != ENOENT && error->code != ENOTDIR) {
    throw PlatformException(kInvalidUnarchiveException, error->message);
  }
  return data;
}

ActionList listOfArchive(const Data& data) {
  const Value root = Unarchiver::unarchiveObjectWithData(data, *platform().classRegistry);
  if (root.isNull()) return {};
  const auto* array = root.getIf<Value::Array>();
  if (array == nullptr) {
    throw PlatformException(kInvalidUnarchiveException, "the archive holds no list of actions");
  }
  return actionsOfArray(*array);
}

std::string joinedLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    if (!text.empty()) text += "\n";
    text += line;
  }
  return text;
}

}  // namespace

std::shared_ptr<TVActionsManager> TVActionsManager::sharedInstance(
    const std::function<std::shared_ptr<TVActionsManager>()>& make) {
  static std::once_flag once;
  static auto& instance = *new std::shared_ptr<TVActionsManager>;
  std::call_once(once, [&make] { instance = make(); });
  return instance;
}

TVActionsManager::~TVActionsManager() {
  if (saveDelayTimer_ != nullptr) saveDelayTimer_->invalidate();
}

bool TVActionsManager::configure() {
  try {
    const auto url = saveURL();
    const auto data = url ? contentsOfListFile(url->path()) : std::nullopt;
    workingActionsArray_ = data && !data->empty() ? listOfArchive(*data) : ActionList();
    wormHole_ = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                               kWormholeDirectory);
    return true;
  } catch (const PlatformException& exception) {
    log("Could not load actions because of error: " + joinedLines(exception.callStackSymbols()));
    loadFailure_ = exception.reason();
    return false;
  }
}

void TVActionsManager::addAction(std::shared_ptr<TVAction> action) {
  appendAction(workingActionsArray_, std::move(action));
}

void TVActionsManager::removeAction(const std::shared_ptr<TVAction>& action) {
  removeEveryAction(workingActionsArray_, action);
}

void TVActionsManager::updateActions(ActionList actions) {
  setWorkingActionsArray(std::move(actions));
}

void TVActionsManager::setWorkingActionsArray(ActionList actions) {
  workingActionsArray_ = withoutNull(std::move(actions));
}

void TVActionsManager::save() {
  if (saveDelayTimer_ != nullptr) saveDelayTimer_->invalidate();
  saveDelayTimer_ =
      VXTimer::timerWithInterval(kSaveDelay, false, [manager = weak_from_this()](VXTimer&) {
        if (const auto alive = manager.lock()) alive->actuallySave();
      });
}

void TVActionsManager::actuallySave() {
  for (const auto& action : workingActionsArray_) action->setIsNew(false);
  saveToFile();
  if (wormHole_ != nullptr) wormHole_->passMessageObject(nullptr, kActionsDidChangeNotification);
}

void TVActionsManager::saveToFile() {
  const Data data =
      Archiver::archivedDataWithRootObject(arrayOfActions(actions()), *platform().classRegistry);
  // A write that fails is not reported; the old file then stays whole.
  if (const auto url = saveURL()) {
    static_cast<void>(platform().fileManager->writeDataToFile(data, url->path(), true));
  }
}

std::optional<Url> TVActionsManager::saveURL() const {
  FileManager& files = *platform().fileManager;
  const auto container =
      files.containerURLForSecurityApplicationGroupIdentifier(kApplicationGroupIdentifier);
  if (!container) return std::nullopt;
  const std::string folder = container->path();
  if (!files.fileExistsAtPath(folder)) {
    static_cast<void>(files.createDirectoryAtPath(folder, true));
  }
  return container->URLByAppendingPathComponent(kActionsFileName);
}

}  // namespace tervano
