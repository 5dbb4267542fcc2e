#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "companion/job_progress.h"
#include "platform/log.h"

namespace tervano {

// A bar in the last line of the terminal that standard error is, rewritten in its place and gone at
// the end. Shows one job. What is logged meanwhile goes above it.
class TerminalProgress : public ProgressDisplay {
 public:
  // Whether standard error is a terminal on which a line can be rewritten, and ours now.
  static bool isPossible();

  void show(std::uint64_t number, const ShownProgress& progress) override;
  void hide(std::uint64_t number) override;
  // The terminal has a key for that: an interrupt.
  void setCancelHandler(CancelHandler /*handler*/) override {}
  // Leaves an empty line. Any thread.
  void erase();

 private:
  std::mutex mutex_;
  std::string drawn_;
};

// The line for a terminal of so many columns, which it never fills: text is cut, a bar shrinks.
std::string progressLine(const ShownProgress& progress, std::size_t columns);

// A log that has its lines above a bar.
class LogAboveProgress : public ForwardingLog {
 public:
  LogAboveProgress(Log& real, std::shared_ptr<TerminalProgress> progress)
      : ForwardingLog(real), progress_(std::move(progress)) {}
  void write(std::string_view line) override {
    progress_->erase();
    ForwardingLog::write(line);
  }

 private:
  const std::shared_ptr<TerminalProgress> progress_;
};

}  // namespace tervano
