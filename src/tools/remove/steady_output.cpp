#include "tools/remove/steady_output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace tervano {

namespace {

constexpr std::size_t kMostWaiting = std::size_t{8} << 20;

}  // namespace

void SteadyOutput::add(std::string_view text) {
  if (isClosed_ || text_.size() - begin_ + text.size() > kMostWaiting) return;
  // Moving what waits costs no more than writing what came before it.
  if (begin_ > text_.size() / 2) text_.erase(0, std::exchange(begin_, 0));
  text_ += text;
  while (isWaiting() && writeSome(0)) {
  }
}

void SteadyOutput::finish(double seconds) {
  while (isWaiting() && writeSome(static_cast<int>(seconds * 1000))) {
  }
}

bool SteadyOutput::writeSome(int milliseconds) {
  pollfd ready{descriptor_, POLLOUT, 0};
  int count = 0;
  do {
    count = poll(&ready, 1, milliseconds);
  } while (count < 0 && errno == EINTR);
  if (count <= 0) return false;
  // A pipe that can be written to takes that much without waiting.
  const ssize_t written = write(descriptor_, text_.data() + begin_,
                                std::min<std::size_t>(text_.size() - begin_, PIPE_BUF));
  if (written < 0) {
    if (errno == EINTR) return true;
    if (errno == EAGAIN) return false;
    isClosed_ = true;
    text_.clear();
    begin_ = 0;
    return false;
  }
  begin_ += static_cast<std::size_t>(written);
  return true;
}

}  // namespace tervano
