#include "companion/file_work.h"

#include <algorithm>
#include <exception>

#include "jobs/content_size.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

constexpr std::chrono::milliseconds kProgressInterval(100);

}  // namespace

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
