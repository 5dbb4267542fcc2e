#include "jobs/job_file_manager.h"

#include <algorithm>
#include <cerrno>

#include "archive/url.h"
#include "jobs/content_size.h"
#include "jobs/job.h"
#include "platform/linux/unfinished_items.h"

namespace tervano {

namespace {

// Follows one move or copy of a job that nobody else follows.
class ItemFollower : public WorkObserver {
 public:
  enum class Stopping { allowed, notAnyMore };

  ItemFollower(Job& job, std::string source, Stopping stopping)
      : job_(job), source_(std::move(source)), stopping_(stopping) {}

  // Contents have to be copied only now, and then first of all.
  void willMakeTemporary(const std::string& path) override {
    note_ = UnfinishedItem(path);
    bytes_ = {0, contentSizeOf({source_}, job_.cancelToken())};
    job_.setBytesOfOneItem(bytes_);
  }
  void didProcess(std::uint64_t bytes) override {
    // A file that grows meanwhile does not make more than everything.
    bytes_.bytesDone = std::min(bytes_.bytesDone + bytes, bytes_.bytesTotal);
    job_.setBytesOfOneItem(bytes_);
  }
  bool isCancelled() const override {
    return stopping_ == Stopping::allowed && job_.cancelToken().isCancelled();
  }

 private:
  Job& job_;
  const std::string source_;
  const Stopping stopping_;
  WorkProgress bytes_;
  UnfinishedItem note_;
};

std::optional<Error> cancellation(Job& job, const std::string& phrase) {
  if (!job.cancelToken().isCancelled()) return std::nullopt;
  job.didStopWork();
  return posixError(ECANCELED, phrase);
}

// Tells the job when it was the cancelling that ended the work.
std::optional<Error> noted(std::optional<Error> error, Job& job) {
  if (error && error->code == ECANCELED) job.didStopWork();
  return error;
}

}  // namespace

std::optional<Error> JobFileManager::removeItemAtPath(const std::string& path) {
  const auto job = currentJob();
  if (job == nullptr) return ForwardingFileManager::removeItemAtPath(path);
  if (auto error = cancellation(*job, "Could not remove " + path)) return error;
  auto error = ForwardingFileManager::removeItemAtPath(path);
  if (!error) job->addChange({JobChange::Kind::removed, path, ""});
  return error;
}

std::optional<Error> JobFileManager::copyItemAtPath(const std::string& from,
                                                    const std::string& to) {
  const auto job = currentJob();
  if (job == nullptr) return ForwardingFileManager::copyItemAtPath(from, to);
  if (auto error = cancellation(*job, "Could not copy " + from + " to " + to)) return error;
  ItemFollower follower(*job, from, ItemFollower::Stopping::allowed);
  auto error = noted(ForwardingFileManager::performCopy({from, to, false, &follower}), *job);
  if (!error) job->addChange({JobChange::Kind::made, from, to});
  return error;
}

std::optional<Error> JobFileManager::performCopy(const ItemCopy& copy) {
  const auto job = currentJob();
  if (job == nullptr) return ForwardingFileManager::performCopy(copy);
  const bool replaces = copy.replaces && itemExistsAtPath(copy.to);
  auto error = noted(ForwardingFileManager::performCopy(copy), *job);
  if (error) return error;
  if (replaces) job->addChange({JobChange::Kind::removed, copy.to, ""});
  job->addChange({JobChange::Kind::copied, copy.from, copy.to});
  job->addDoneItem();
  return std::nullopt;
}

std::optional<Error> JobFileManager::setAttributesOfItemAtPath(const FileAttributes& attributes,
                                                               const std::string& path) {
  auto error = ForwardingFileManager::setAttributesOfItemAtPath(attributes, path);
  if (const auto job = currentJob(); job != nullptr && !error) job->itemDidChange(path);
  return error;
}

std::optional<Error> JobFileManager::moveItemAtPath(const std::string& from,
                                                    const std::string& to) {
  return performMove({from, to});
}

std::optional<Error> JobFileManager::performMove(const ItemMove& move) {
  const auto job = currentJob();
  if (job == nullptr) return ForwardingFileManager::performMove(move);
  // What was there is gone already: nothing is to have been lost for nothing.
  const bool canStop = !job->hasRemoved(move.to);
  if (canStop) {
    if (auto error = cancellation(*job, "Could not move " + move.from + " to " + move.to)) {
      return error;
    }
  }
  ItemFollower follower(
      *job, move.from,
      canStop ? ItemFollower::Stopping::allowed : ItemFollower::Stopping::notAnyMore);
  WorkObserver* const observer = move.observer == nullptr ? &follower : move.observer;
  auto error = noted(ForwardingFileManager::performMove({move.from, move.to, observer}), *job);
  if (error) return error;
  if (lastPathComponent(move.from).starts_with(UnfinishedItem::kPrefix)) {
    // What grew under a hidden name has its own now.
    job->addChange({JobChange::Kind::made, "", move.to});
  } else {
    job->addChange({JobChange::Kind::moved, move.from, move.to});
    job->addDoneItem();
  }
  return std::nullopt;
}

}  // namespace tervano
