#include "tasks/vx_task_helper.h"

#include "platform/platform.h"
#include "platform/run_loop.h"
#include "tasks/text_chunk.h"

namespace tervano {

namespace {

void removeReader(const std::shared_ptr<Pipe>& pipe) {
  if (pipe != nullptr) pipe->fileHandleForReading()->setReadabilityHandler(nullptr);
}

}  // namespace

std::shared_ptr<VXTaskHelper> VXTaskHelper::taskHelperWithTask(std::shared_ptr<Process> task) {
  auto helper = std::make_shared<VXTaskHelper>(Birth());
  helper->setTask(std::move(task));
  return helper;
}

void VXTaskHelper::launch() {
  if (task_ == nullptr || task_->isRunning()) return;
  const auto output = platform().processes->createPipe();
  const auto error = platform().processes->createPipe();
  task_->setStandardOutput(output);
  task_->setStandardError(error);
  endObservation_ = platform().notificationCenter->addObserver(
      kTaskDidTerminateNotification, task_.get(),
      [weak = weak_from_this()](const Notification& notification) {
        if (const auto self = weak.lock()) self->taskCompleted(notification);
      });
  installReader(*output->fileHandleForReading(), &VXTaskHelperDelegate::taskHelperDidReceiveOutput);
  installReader(*error->fileHandleForReading(), &VXTaskHelperDelegate::taskHelperDidReceiveError);
  task_->launch();
}

void VXTaskHelper::installReader(FileHandle& readingEnd, DelegateCall delegateCall) {
  readingEnd.setReadabilityHandler([self = shared_from_this(), delegateCall](FileHandle& handle) {
    auto chunk = handle.availableData();
    if (!holdsText(chunk)) return;
    platform().runLoop->dispatchAsyncOnMainQueue(
        [self, delegateCall, chunk = std::make_shared<const Data>(std::move(chunk))] {
          if (const auto delegate = self->delegate()) ((*delegate).*delegateCall)(self, *chunk);
        });
  });
}

void VXTaskHelper::cancel() {
  if (task_ == nullptr || !task_->isRunning()) return;
  task_->terminate();
  cleanup();
}

bool VXTaskHelper::suspend() {
  return task_ != nullptr && task_->suspend();
}

bool VXTaskHelper::resume() {
  return task_ != nullptr && task_->resume();
}

void VXTaskHelper::taskCompleted(const Notification& notification) {
  const auto self = shared_from_this();
  const auto* process = static_cast<const Process*>(notification.sender);
  const auto reason =
      process == nullptr ? 0 : static_cast<std::int64_t>(process->terminationReason());
  if (const auto delegate = this->delegate()) delegate->taskHelperDidFinish(self, reason);
  cleanup();
}

void VXTaskHelper::cleanup() {
  const auto self = shared_from_this();
  endObservation_.cancel();
  removeReaders();
  task_ = nullptr;
}

void VXTaskHelper::removeReaders() {
  if (task_ == nullptr) return;
  removeReader(task_->standardOutput());
  removeReader(task_->standardError());
}

}  // namespace tervano
