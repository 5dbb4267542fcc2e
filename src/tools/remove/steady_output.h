#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tervano {

// Text for a reader who must never hold the writer up. What the descriptor does not take at once
// waits in memory; whole texts are dropped when too much waits and when the reader is gone,
// quietly. SIGPIPE is ignored by whoever uses this. One thread at a time.
class SteadyOutput {
 public:
  explicit SteadyOutput(int descriptor) : descriptor_(descriptor) {}

  void add(std::string_view text);
  // Writes what waits, as long as the reader takes some of it every `seconds`.
  void finish(double seconds);

 private:
  bool isWaiting() const { return begin_ < text_.size(); }
  // Writes what the descriptor takes within that time; whether it took something.
  bool writeSome(int milliseconds);

  const int descriptor_;
  bool isClosed_ = false;
  // What waits begins at `begin_`.
  std::string text_;
  std::size_t begin_ = 0;
};

}  // namespace tervano
