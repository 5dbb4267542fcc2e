#include "companion/file_work.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <exception>

#include "archive/url.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/tree_walk.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

constexpr std::chrono::milliseconds kProgressInterval(100);

class SizeCounter : public TreeVisitor {
 public:
  explicit SizeCounter(const CancelToken& cancel) : cancel_(cancel) {}

  bool visitItem(const TreeItem& item) override {
    struct stat status {};
    if (fstatat(item.folder(), item.name().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(status.st_mode)) {
      size_ += static_cast<std::uint64_t>(status.st_size);
    }
    return !cancel_.isCancelled();
  }
  bool leaveFolder(const TreeItem& /*item*/) override { return !cancel_.isCancelled(); }
  bool visitMount(const TreeItem& /*item*/) override { return true; }
  bool fail(const TreeItem& /*item*/, int /*code*/) override { return true; }

  std::uint64_t size() const { return size_; }

 private:
  const CancelToken& cancel_;
  std::uint64_t size_ = 0;
};

}  // namespace

std::uint64_t contentSizeOf(const std::vector<std::string>& paths, const CancelToken& cancel) {
  SizeCounter counter(cancel);
  for (const auto& path : paths) {
    const std::string folder = deletingLastPathComponent(path);
    const Descriptor parent(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (parent) walkTree(parent.get(), lastPathComponent(path), path, counter);
  }
  return counter.size();
}

WorkFollower::WorkFollower(const WorkMonitor& monitor, const std::vector<std::string>& paths)
    : monitor_(monitor) {
  if (!monitor_.progress) return;
  progress_.bytesTotal = contentSizeOf(paths, monitor_.cancel);
  tell();
}

void WorkFollower::didProcess(std::uint64_t bytes) {
  if (!monitor_.progress) return;
  // A file that grows, or is read again because it changed, does not make more than everything.
  progress_.bytesDone = std::min(progress_.bytesDone + bytes, progress_.bytesTotal);
  if (std::chrono::steady_clock::now() - told_ >= kProgressInterval) tell();
}

void WorkFollower::finish() {
  if (!monitor_.progress) return;
  progress_.bytesDone = progress_.bytesTotal;
  tell();
}

void WorkFollower::tell() {
  told_ = std::chrono::steady_clock::now();
  platform().runLoop->dispatchAsyncOnMainQueue(
      [progress = monitor_.progress, state = progress_] { progress(state); });
}

void runFileWork(const std::string& label, std::function<FileWorkOutcome()> work,
                 FileWorkEnd finished) {
  const auto queue = platform().runLoop->createSerialQueue(label);
  queue->dispatchAsync([work = std::move(work), finished = std::move(finished)]() mutable {
    FileWorkOutcome outcome;
    try {
      outcome = work();
    } catch (const std::exception& exception) {
      outcome = {false, false, Error{"FileWork", 1, exception.what()}};
    }
    // Let go of here, not on the main thread: it may hold a password.
    work = nullptr;
    platform().runLoop->dispatchAsyncOnMainQueue(
        [finished = std::move(finished), outcome = std::move(outcome)] { finished(outcome); });
  });
}

void removeUnfinishedItems() {
  for (const auto& path : UnfinishedItem::removeLeftOvers()) {
    log("Removed what an interrupted run had left: " + path);
  }
}

}  // namespace tervano
