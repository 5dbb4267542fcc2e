#include "companion/request_receiver.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/completion_alert.h"
#include "companion/recent_folders.h"
#include "platform/clock.h"
#include "platform/linux/unfinished_items.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/user_notifications.h"
#include "platform/workspace.h"

namespace tervano {

namespace {

constexpr std::int64_t kStaleAfterSeconds = 86'400;  // A day.

void tellUser(const std::string& message) {
  UserNotification notification;
  notification.title = "Tervano";
  notification.informativeText = message;
  platform().userNotifications->deliverNotification(notification);
}

}  // namespace

void RequestReceiver::openURL(const std::string& url, Finished finished) {
  std::optional<Error> error;
  const auto handOff = parseHandOffURL(url, &error);
  Sentence refusal;
  if (!handOff) {
    refusal = tr("Could not open the URL {1}: {2}", printable(url), error->message);
  } else if (running_.contains(handOff->file)) {
    refusal = tr("The request {1} is being carried out already.", handOff->file);
  }
  if (!refusal.empty()) {
    log(refusal.english());
    platform().runLoop->dispatchAsyncOnMainQueue([finished = std::move(finished), refusal] {
      if (finished) finished(Result::refused, refusal);
    });
    return;
  }

  running_.insert(handOff->file);
  auto ended = [self = shared_from_this(), handOff = *handOff, finished = std::move(finished)](
                   const RunOutcome& outcome) { self->end(handOff, outcome, finished); };
  const auto fail = [&](const Sentence& message) {
    platform().runLoop->dispatchAsyncOnMainQueue([ended, message] { ended({false, message}); });
  };
  const auto paths = readHandOffFile(handOff->file, &error);
  if (!paths) return fail(tr("The chosen files could not be read: {1}", error->message));
  try {
    const auto manager = loadActions();
    const auto place = findAction(manager->actions(), handOff->action);
    if (!place)
      return fail(tr("The chosen action is no longer in the list ({1}).", handOff->action));
    runner_->run(*place->action, *paths, askers_,
                 [ended, action = place->action](const auto& outcome) {
                   if (outcome.success) {
                     alertOfCompletion(*action);
                     noteRecentFolder(*action);
                   }
                   ended(outcome);
                 });
  } catch (const CommandError& unreadable) {
    fail(unreadable.sentence());
  }
}

void RequestReceiver::end(const HandOff& handOff, const RunOutcome& outcome,
                          const Finished& finished) {
  running_.erase(handOff.file);
  // A file that is missing, or is none of ours, stays as it is.
  removeHandOffFile(handOff.file);
  if (!outcome.success && !outcome.toldByAction) {
    log("Could not run the action " + handOff.action + ": " + outcome.message.english());
    tellUser(outcome.message);
  }
  if (finished) finished(outcome.success ? Result::success : Result::failure, outcome.message);
}

void RequestReceiver::showFilesOfNotification(const Value::Dictionary& userInfo) {
  std::vector<Url> urls;
  const auto add = [&](const Value& value) {
    if (const auto* path = value.getIf<std::string>()) urls.push_back(Url::fileURLWithPath(*path));
  };
  if (const auto path = userInfo.find("path"); path != userInfo.end()) add(path->second);
  if (const auto paths = userInfo.find("paths"); paths != userInfo.end()) {
    if (const auto* list = paths->second.getIf<Value::Array>()) {
      std::for_each(list->begin(), list->end(), add);
    }
  }
  platform().workspace->activateFileViewerSelectingURLs(urls);
}

void RequestReceiver::removeStaleHandOffFiles() {
  const auto folder = handOffFolder();
  if (!folder) return;
  DIR* directory = opendir(folder->c_str());
  if (directory == nullptr) return;
  const std::int64_t now = platform().clock->now();
  while (const dirent* entry = readdir(directory)) {
    struct stat status {};
    const std::string name = entry->d_name;
    if (!isHandOffFileName(name) && !name.starts_with(UnfinishedItem::kPrefix)) continue;
    if (fstatat(dirfd(directory), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) continue;
    if (now - status.st_mtim.tv_sec <= kStaleAfterSeconds) continue;
    unlinkat(dirfd(directory), entry->d_name, 0);
  }
  closedir(directory);
}

}  // namespace tervano
