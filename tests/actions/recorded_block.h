#pragma once

#include <memory>
#include <optional>
#include <thread>

#include "model/tv_action.h"

namespace tervano::test {

// The end of a run as its completion block heard of it. The blocks may outlive this.
class RecordedBlock {
 public:
  TVAction::CompletionBlock block() const {
    return [record = record_](bool success, const std::optional<Error>& error) {
      record->success = success;
      record->error = error;
      record->thread = std::this_thread::get_id();
      ++record->calls;
    };
  }

  int calls() const { return record_->calls; }
  // Of the last call.
  bool success() const { return record_->success; }
  const std::optional<Error>& error() const { return record_->error; }
  std::thread::id thread() const { return record_->thread; }

 private:
  struct Record {
    int calls = 0;
    bool success = false;
    std::optional<Error> error;
    std::thread::id thread;
  };
  std::shared_ptr<Record> record_ = std::make_shared<Record>();
};

}  // namespace tervano::test
