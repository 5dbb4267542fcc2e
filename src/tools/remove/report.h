#pragma once

#include <cstddef>
#include <mutex>
#include <string>

#include "tools/remove/steady_output.h"

namespace tervano {

// What the remove tool tells: removed paths on one descriptor, failures on another. Any thread.
class Report {
 public:
  // After that many sentences the other failures are only counted.
  static constexpr std::size_t kMostSentences = 100;

  Report(bool isVerbose, int output, int errors)
      : isVerbose_(isVerbose), output_(output), errors_(errors) {}

  // Whether removed paths are listed at all.
  bool isVerbose() const { return isVerbose_; }
  // The path is written as it is.
  void removed(const std::string& path);
  // The path in quotes for a sentence, with nothing that would break the line.
  static std::string quoted(const std::string& path);
  // A whole sentence, without the final full stop.
  void failed(const std::string& sentence);
  // "Could not remove ...", with the system's reason for an errno or one of our own.
  void couldNotRemove(const std::string& path, int code);
  void couldNotRemove(const std::string& path, const std::string& reason);

  // Says how many failures were only counted, and waits for readers that still read. Answers
  // whether there was no failure.
  bool finish();

 private:
  const bool isVerbose_;
  std::mutex mutex_;
  SteadyOutput output_;
  SteadyOutput errors_;
  std::size_t failures_ = 0;
};

}  // namespace tervano
