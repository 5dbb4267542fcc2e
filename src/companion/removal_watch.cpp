#include "companion/removal_watch.h"

#include <fcntl.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <utility>

#include "archive/url.h"
#include "jobs/content_size.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/tool_table.h"
#include "platform/linux/tree_walk.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr double kLookSeconds = 0.25;

bool isBefore(const timespec& one, const timespec& other) {
  return one.tv_sec != other.tv_sec ? one.tv_sec < other.tv_sec : one.tv_nsec < other.tv_nsec;
}

// Looks for the first item of a tree that was changed since a time.
class ChangeSearch : public TreeVisitor {
 public:
  explicit ChangeSearch(const timespec& since) : since_(since) {}

  bool enterFolder(int folder, const std::string& /*path*/) override {
    struct stat status {};
    return look(fstat(folder, &status) == 0, status);
  }
  bool visitItem(const TreeItem& item) override {
    struct stat status {};
    return look(fstatat(item.folder(), item.name().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0,
                status);
  }
  bool leaveFolder(const TreeItem& /*item*/) override { return true; }
  bool visitMount(const TreeItem& /*item*/) override { return true; }
  bool fail(const TreeItem& /*item*/, int /*code*/) override { return true; }

  bool hasFound() const { return hasFound_; }

 private:
  bool look(bool isKnown, const struct stat& status) {
    hasFound_ = isKnown && !isBefore(status.st_ctim, since_);
    return !hasFound_;
  }

  const timespec since_;
  bool hasFound_ = false;
};

}  // namespace

std::uint64_t bytesWrittenBy(std::int64_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/io");
  std::string name;
  std::uint64_t value = 0;
  while (file >> name >> value) {
    if (name == "wchar:") return value;
  }
  return 0;
}

std::shared_ptr<RemovalWatch> RemovalWatch::begin(std::shared_ptr<Job> job) {
  auto watch = std::make_shared<RemovalWatch>(std::move(job));
  const auto queue = platform().runLoop->createSerialQueue("com.vessok.countqueue");
  queue->dispatchAsync([watch] { watch->count(); });
  watch->timer_ = platform().runLoop->scheduleTimer(kLookSeconds, true,
                                                    [weak = std::weak_ptr<RemovalWatch>(watch)] {
                                                      if (const auto alive = weak.lock())
                                                        alive->look();
                                                    });
  return watch;
}

RemovalWatch::RemovalWatch(std::shared_ptr<Job> job) : job_(std::move(job)) {
  clock_gettime(CLOCK_REALTIME_COARSE, &began_);
  for (const auto& path : job_->subject().paths) {
    Item item{path};
    item.wasThere = lstat(path.c_str(), &item.status) == 0;
    items_.push_back(std::move(item));
  }
}

void RemovalWatch::end() {
  timer_->invalidate();
}

void RemovalWatch::count() {
  std::vector<std::uint64_t> sizes;
  for (const auto& item : items_) {
    sizes.push_back(allocatedSizeOf({item.path}, job_->cancelToken()));
  }
  const std::lock_guard lock(mutex_);
  sizes_ = std::move(sizes);
}

void RemovalWatch::look() {
  std::map<std::string, std::uint64_t> written;
  for (const auto& process : job_->runningProcesses()) {
    if (!isRemoveTool(process->launchPath()) || process->arguments().empty()) continue;
    written[process->arguments().back()] = bytesWrittenBy(process->processIdentifier());
  }
  WorkProgress bytes;
  {
    const std::lock_guard lock(mutex_);
    for (std::size_t at = 0; at < sizes_.size(); ++at) {
      const auto running = written.find(items_[at].path);
      bytes.bytesTotal += sizes_[at];
      bytes.bytesDone +=
          running == written.end() ? sizes_[at] : std::min(running->second, sizes_[at]);
    }
  }
  if (bytes.bytesTotal > 0) job_->setBytesOfAllItems(bytes);
}

bool RemovalWatch::isTouched(const Item& item) const {
  struct stat now {};
  if (lstat(item.path.c_str(), &now) != 0) return false;
  if (isBefore(item.status.st_ctim, now.st_ctim)) return true;
  if (!S_ISDIR(now.st_mode)) return false;
  const std::string folder = deletingLastPathComponent(item.path);
  const Descriptor parent(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!parent) return false;
  ChangeSearch search(began_);
  walkTree(parent.get(), lastPathComponent(item.path), item.path, search);
  return search.hasFound();
}

CancelReport RemovalWatch::report() const {
  std::vector<std::string> gone;
  std::vector<std::string> lost;
  std::size_t untouched = 0;
  for (const auto& item : items_) {
    struct stat now {};
    if (!item.wasThere) continue;
    if (lstat(item.path.c_str(), &now) != 0) {
      gone.push_back(item.path);
    } else if (isTouched(item)) {
      lost.push_back(item.path);
    } else {
      ++untouched;
    }
  }
  CancelReport report;
  const std::size_t total = gone.size() + lost.size() + untouched;
  if (gone.empty() && lost.empty()) return report;
  report.text = trn("Of {2} {1} is gone", "Of {2} {1} are gone", gone.size(),
                    trn("{1} item", "{1} items", total));
  if (!gone.empty()) report.text = tr("{1}: {2}", report.text, itemNamesOf(gone));
  if (!lost.empty()) {
    report.text += "; ";
    report.text +=
        trn("{1} is overwritten or removed in part, and what was there is lost though "
            "the name is still there: {2}",
            "{1} are overwritten or removed in part, and what was there is lost though "
            "the name is still there: {2}",
            lost.size(), itemNamesOf(lost));
  }
  report.text += "; ";
  report.text += trn("{1} is untouched.", "{1} are untouched.", untouched);
  if (!gone.empty()) report.items.push_back({tr("Gone before the end"), std::move(gone)});
  if (!lost.empty()) {
    report.items.push_back({tr("Lost in part, though the name is still there"), std::move(lost)});
  }
  return report;
}

}  // namespace tervano
