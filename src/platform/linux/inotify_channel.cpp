#include "platform/linux/inotify_channel.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/linux/guard.h"
#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

constexpr char kNotifyFolder[] = "notify";
constexpr guint kRetryMilliseconds = 1000;
// A session's runtime folder may appear while a sender runs.
constexpr std::int64_t kFoldersKnownForSeconds = 2;
constexpr std::size_t kBufferSize = std::size_t{64} * 1024;
// How many buffers one turn of the main loop may take, so that a flood of posts starves nobody.
constexpr int kBuffersPerTurn = 16;

timespec wallTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return now;
}

// Sets the time of a name's file in an existing notify folder, making the file when needed. The
// time is given rather than left to the kernel, whose own stamps stand still for milliseconds.
bool touch(int folder, const std::string& file) {
  const timespec now = wallTime();
  const timespec times[2] = {now, now};
  if (utimensat(folder, file.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0) return true;
  if (errno != ENOENT) return false;
  const Descriptor made(
      openat(folder, file.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  return made && futimens(made.get(), times) == 0;
}

// The same by path, for folders that nobody else can tamper with.
bool touchPath(const std::string& path) {
  const timespec now = wallTime();
  const timespec times[2] = {now, now};
  return utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0;
}

// Whether a folder among those of other users is there, is ours and closed to everybody else; then
// nobody can put another one in its place, since /tmp lets only owners remove.
bool isSafe(const std::string& folder) {
  struct stat status {};
  return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

// A folder to post in, with the paths that every post needs.
struct SenderFolder {
  RuntimeFolders::Candidate candidate;
  std::string own;
  std::string prefix;
};

// Changes with every post of a name; nil while its file does not exist.
using Generation = std::optional<std::pair<std::int64_t, std::int64_t>>;

struct Observation {
  const void* observer;
  std::string name;
  NotifyChannel::Callback callback;
  // An event of this generation was posted before the observation began.
  Generation since;
  bool removed = false;
};

}  // namespace

struct InotifyChannel::Listener : std::enable_shared_from_this<InotifyChannel::Listener> {
  struct Name {
    std::vector<std::shared_ptr<Observation>> observations;
    Generation generation;
  };

  mutable std::mutex mutex;
  // By file name.
  std::map<std::string, Name> names;
  // Observations of every name, and the generations that they know, by file name.
  std::vector<std::shared_ptr<Observation>> everyName;
  std::map<std::string, Generation> everyGeneration;
  Descriptor inotify;
  pid_t owner = 0;
  int watch = -1;
  std::string folderPath;
  GSource* source = nullptr;
  GSource* retry = nullptr;
  bool complained = false;
  // Events may have been missed: the generations are to be compared.
  bool compareDue = false;
  bool closed = false;
  // The sender's side: the folders, remembered for a moment.
  std::mutex senderMutex;
  std::string senderVariable;
  std::int64_t senderUntil = 0;
  std::shared_ptr<const std::vector<SenderFolder>> senderFolders;

  std::shared_ptr<const std::vector<SenderFolder>> foldersToPostIn();

  // Everything below is called with `mutex` held unless it says otherwise.

  static void drop(GSource*& which) {
    if (which == nullptr) return;
    g_source_destroy(which);
    g_source_unref(which);
    which = nullptr;
  }

  void close() {
    drop(source);
    inotify.reset();
    watch = -1;
  }

  GSource* attach(GSource* made, GSourceFunc callback) {
    g_source_set_callback(
        made, callback, new std::weak_ptr<Listener>(shared_from_this()),
        [](gpointer holder) { delete static_cast<std::weak_ptr<Listener>*>(holder); });
    g_source_attach(made, g_main_context_default());
    return made;
  }

  Generation generationOf(const std::string& file) const {
    struct stat status {};
    if (folderPath.empty() || lstat((folderPath + "/" + file).c_str(), &status) != 0) {
      return std::nullopt;
    }
    return std::pair<std::int64_t, std::int64_t>{status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  }

  bool nobodyListens() const { return names.empty() && everyName.empty(); }

  // The files of the folder with their generations.
  std::map<std::string, Generation> allGenerations() const {
    std::map<std::string, Generation> all;
    DIR* const folder = opendir(folderPath.c_str());
    if (folder == nullptr) return all;
    while (const dirent* entry = readdir(folder)) {
      const std::string file = entry->d_name;
      if (file != "." && file != "..") all[file] = generationOf(file);
    }
    closedir(folder);
    return all;
  }

  // Makes the inotify instance and the watch when they are missing.
  void open() {
    if (inotify && owner != getpid()) {
      // A fork: the events belong to the parent.
      close();
    }
    if (watch >= 0) return;
    const char* what = "A folder for notifications";
    for (const auto& candidate : RuntimeFolders::usable()) {
      // Not kept open: the kernel tells of the folder's end only when nobody holds it.
      if (!RuntimeFolders::open(candidate, kNotifyFolder, true)) continue;
      folderPath = candidate.path() + "/" + kNotifyFolder;
      what = "inotify";
      if (!inotify) {
        inotify.reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        owner = getpid();
      }
      if (!inotify) break;
      watch = inotify_add_watch(
          inotify.get(), folderPath.c_str(),
          IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW);
      if (watch >= 0) break;
    }
    if (watch < 0) {
      if (!complained) {
        log(posixError(errno, std::string(what) + ", needed to hear other processes").message);
      }
      complained = true;
      scheduleRetry(kRetryMilliseconds);
      return;
    }
    complained = false;
    compareDue = true;
    if (source == nullptr) {
      source = attach(g_unix_fd_source_new(inotify.get(), G_IO_IN), G_SOURCE_FUNC(onReadable));
    }
  }

  // Opens for one more observation; those that were there before miss nothing.
  void begin() {
    open();
    if (compareDue && !nobodyListens()) {
      drop(retry);
      scheduleRetry(0);
    } else {
      compareDue = false;
    }
  }

  void scheduleRetry(guint milliseconds) {
    if (retry == nullptr) retry = attach(g_timeout_source_new(milliseconds), onRetry);
  }

  static gboolean onRetry(gpointer holder) {
    if (const auto listener = static_cast<std::weak_ptr<Listener>*>(holder)->lock()) {
      guarded("the notification channel", [&] { listener->tryAgain(); });
    }
    return G_SOURCE_REMOVE;
  }

  static gboolean onReadable(gint, GIOCondition, gpointer holder) {
    if (const auto listener = static_cast<std::weak_ptr<Listener>*>(holder)->lock()) {
      guarded("the notification channel", [&] { listener->receive(); });
    }
    return G_SOURCE_CONTINUE;
  }

  // The files whose generation is not the known one, when events may have been missed.
  std::vector<std::string> changedFiles() {
    std::vector<std::string> changed;
    if (watch < 0 || !std::exchange(compareDue, false)) return changed;
    for (auto& [file, name] : names) {
      Generation now = generationOf(file);
      if (now && now != name.generation) changed.push_back(file);
      name.generation = now;
    }
    if (everyName.empty()) return changed;
    auto all = allGenerations();
    for (const auto& [file, generation] : all) {
      const auto known = everyGeneration.find(file);
      if (known != everyGeneration.end() && known->second == generation) continue;
      if (std::find(changed.begin(), changed.end(), file) == changed.end()) changed.push_back(file);
    }
    everyGeneration = std::move(all);
    return changed;
  }

  // Without `mutex`.
  void tryAgain() {
    std::vector<std::string> changed;
    {
      const std::lock_guard lock(mutex);
      drop(retry);
      if (closed || nobodyListens()) return;
      open();
      changed = changedFiles();
    }
    deliver(changed);
  }

  // Without `mutex`: reads the pending events and delivers them.
  void receive() {
    std::vector<std::string> files;
    {
      const std::lock_guard lock(mutex);
      if (!inotify) return;
      if (owner != getpid() || nobodyListens()) {
        close();
        if (nobodyListens()) return;
      }
      std::unordered_set<std::string> seen;
      readEvents(files, seen);
      open();
      for (std::string& file : changedFiles()) {
        if (seen.insert(file).second) files.push_back(std::move(file));
      }
    }
    deliver(files);
  }

  // Appends the files that were posted, each once, in order.
  void readEvents(std::vector<std::string>& files, std::unordered_set<std::string>& seen) {
    alignas(inotify_event) char buffer[kBufferSize];
    for (int turn = 0; turn < kBuffersPerTurn && inotify; ++turn) {
      const ssize_t length = read(inotify.get(), buffer, sizeof buffer);
      if (length < 0 && errno == EINTR) continue;
      if (length <= 0) break;
      for (const char* next = buffer; next < buffer + length;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(next);
        next += sizeof(inotify_event) + event->len;
        if ((event->mask & IN_Q_OVERFLOW) != 0) {
          compareDue = true;
        } else if (event->wd != watch) {
          continue;
        } else if ((event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) != 0) {
          if ((event->mask & IN_MOVE_SELF) != 0) inotify_rm_watch(inotify.get(), watch);
          watch = -1;
        } else if (event->len > 0 && seen.insert(event->name).second) {
          const auto found = names.find(event->name);
          if (found == names.end() && everyName.empty()) continue;
          const Generation now = generationOf(event->name);
          if (found != names.end()) found->second.generation = now;
          if (!everyName.empty()) everyGeneration[event->name] = now;
          files.emplace_back(event->name);
        }
      }
    }
  }

  // Without `mutex`.
  void deliver(const std::vector<std::string>& files) {
    for (const std::string& file : files) {
      std::vector<std::shared_ptr<Observation>> observations;
      {
        const std::lock_guard lock(mutex);
        if (const auto found = names.find(file); found != names.end()) {
          for (const auto& observation : found->second.observations) {
            if (!observation->since || observation->since != found->second.generation) {
              observations.push_back(observation);
            }
          }
        }
        observations.insert(observations.end(), everyName.begin(), everyName.end());
      }
      for (const auto& observation : observations) {
        {
          const std::lock_guard lock(mutex);
          if (observation->removed) continue;
        }
        const std::string name = unescapedFileName(file);
        guarded("a notification's callback", [&] {
          observation->callback(observation->name.empty() ? name : observation->name);
        });
      }
    }
  }

  template <typename Predicate>
  void removeIf(bool endsEveryName, Predicate matches) {
    // Callbacks are let go after the lock, since that may let go of anything.
    std::vector<std::shared_ptr<Observation>> removed;
    {
      const std::lock_guard lock(mutex);
      for (auto name = names.begin(); name != names.end();) {
        auto& observations = name->second.observations;
        for (auto at = observations.begin(); at != observations.end();) {
          if (matches(**at)) {
            (*at)->removed = true;
            removed.push_back(std::move(*at));
            at = observations.erase(at);
          } else {
            ++at;
          }
        }
        name = observations.empty() ? names.erase(name) : std::next(name);
      }
      for (auto at = everyName.begin(); at != everyName.end();) {
        if (endsEveryName && matches(**at)) {
          (*at)->removed = true;
          removed.push_back(std::move(*at));
          at = everyName.erase(at);
        } else {
          ++at;
        }
      }
    }
  }
};

InotifyChannel::InotifyChannel() : listener_(std::make_shared<Listener>()) {}

InotifyChannel::~InotifyChannel() {
  const std::lock_guard lock(listener_->mutex);
  listener_->closed = true;
  listener_->close();
  Listener::drop(listener_->retry);
}

std::shared_ptr<const std::vector<SenderFolder>> InotifyChannel::Listener::foldersToPostIn() {
  const std::lock_guard lock(senderMutex);
  const char* const variable = std::getenv("XDG_RUNTIME_DIR");
  const std::string_view deciding = variable == nullptr ? "" : variable;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  if (now.tv_sec >= senderUntil || senderVariable != deciding) {
    senderVariable = deciding;
    senderUntil = now.tv_sec + kFoldersKnownForSeconds;
    auto folders = std::make_shared<std::vector<SenderFolder>>();
    for (auto& candidate : RuntimeFolders::usable()) {
      std::string own = candidate.path();
      std::string prefix = own + "/" + kNotifyFolder + "/";
      folders->push_back({std::move(candidate), std::move(own), std::move(prefix)});
    }
    senderFolders = std::move(folders);
  }
  return senderFolders;
}

void InotifyChannel::post(const std::string& name) {
  const std::string file = escapedFileName(name);
  const auto folders = listener_->foldersToPostIn();
  for (const SenderFolder& folder : *folders) {
    const bool isFirst = &folder == &folders->front();
    const bool isTrusted = !folder.candidate.shared || isSafe(folder.own);
    if (!isTrusted && !isFirst) continue;
    if (isTrusted && touchPath(folder.prefix + file)) continue;
    // The name's first post, or the first one at all.
    const Descriptor opened = RuntimeFolders::open(folder.candidate, kNotifyFolder, isFirst);
    const bool posted = opened && touch(opened.get(), file);
    if (!posted && isFirst) {
      log(posixError(errno, "Could not announce " + name + " in " + folder.own).message);
    }
  }
}

void InotifyChannel::addObserver(const void* observer, const std::string& name, Callback callback) {
  // Let go of after the lock, since that may let go of anything.
  std::shared_ptr<Observation> replaced;
  const std::lock_guard lock(listener_->mutex);
  listener_->begin();
  const std::string file = escapedFileName(name);
  const auto [entry, isNew] = listener_->names.try_emplace(file);
  const Generation now = listener_->generationOf(file);
  if (isNew) entry->second.generation = now;
  auto added = std::make_shared<Observation>(Observation{observer, name, std::move(callback), now});
  for (auto& observation : entry->second.observations) {
    if (observation->observer != observer) continue;
    // A post that is on its way to the old one belongs to the new one.
    added->since = observation->since;
    observation->removed = true;
    replaced = std::exchange(observation, std::move(added));
    return;
  }
  entry->second.observations.push_back(std::move(added));
}

void InotifyChannel::addObserverOfEveryName(const void* observer, Callback callback) {
  const std::lock_guard lock(listener_->mutex);
  listener_->begin();
  if (listener_->everyName.empty()) listener_->everyGeneration = listener_->allGenerations();
  listener_->everyName.push_back(
      std::make_shared<Observation>(Observation{observer, "", std::move(callback), std::nullopt}));
}

void InotifyChannel::removeObserver(const void* observer, const std::string& name) {
  listener_->removeIf(false, [&](const Observation& observation) {
    return observation.observer == observer && observation.name == name;
  });
}

void InotifyChannel::removeEveryObserver(const void* observer) {
  listener_->removeIf(
      true, [&](const Observation& observation) { return observation.observer == observer; });
}

std::size_t InotifyChannel::observationCount() const {
  const std::lock_guard lock(listener_->mutex);
  std::size_t count = listener_->everyName.size();
  for (const auto& [file, name] : listener_->names) count += name.observations.size();
  return count;
}

}  // namespace tervano
