#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "jobs/job.h"

namespace tervano {

// A number of bytes for a person: "999 bytes", "1.2 GB".
std::string sizeText(std::uint64_t bytes);

// How long a job will still take, from how it has come along. Says nothing while that would be a
// guess: at the beginning, and when the work is much faster or slower now than all along.
class RemainingTime {
 public:
  using Clock = std::chrono::steady_clock;

  // The fraction that is done at that time, which never goes back.
  void add(double fraction, Clock::time_point now);
  // Nil when it cannot be told.
  std::optional<std::chrono::seconds> remaining() const;

 private:
  struct Sample {
    double fraction;
    Clock::time_point time;
  };
  std::optional<Sample> first_;
  // Of the last while.
  std::deque<Sample> recent_;
};

// Such as "about 20 seconds left".
std::string remainingText(std::chrono::seconds remaining);

// How far a job has come, in words: "3 of 10 items, 1.2 GB of 4.0 GB, about 20 seconds left". Empty
// when nothing is known.
std::string progressText(const Job& job, std::optional<std::chrono::seconds> remaining);

}  // namespace tervano
