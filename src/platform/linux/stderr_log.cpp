#include "platform/linux/stderr_log.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

namespace tervano {

namespace {

constexpr int kFullPipePatienceMilliseconds = 1000;

// The length of the well-formed UTF-8 sequence at the start of `text`, 0 when there is none.
std::size_t sequenceLength(std::string_view text) {
  const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(text[at]); };
  const std::uint8_t lead = byte(0);
  std::size_t length = 0;
  std::uint32_t point = 0;
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    point = lead & 0x1Fu;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3;
    point = lead & 0x0Fu;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    point = lead & 0x07u;
  }
  if (length == 0 || text.size() < length) return 0;
  for (std::size_t at = 1; at < length; ++at) {
    if ((byte(at) & 0xC0) != 0x80) return 0;
    point = (point << 6) | (byte(at) & 0x3Fu);
  }
  const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
  const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
  return overlong || surrogate || point > 0x10FFFF ? 0 : length;
}

bool isControl(std::string_view sequence) {
  const auto lead = static_cast<std::uint8_t>(sequence[0]);
  if (sequence.size() == 1) return lead < 0x20 || lead == 0x7F;
  // U+0080 to U+009F, the second set of control characters.
  return lead == 0xC2 && static_cast<std::uint8_t>(sequence[1]) < 0xA0;
}

void appendEscaped(std::string& out, char character) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  switch (character) {
    case '\n':
      out += "\\n";
      return;
    case '\t':
      out += "\\t";
      return;
    case '\r':
      out += "\\r";
      return;
    default:
      break;
  }
  const auto byte = static_cast<std::uint8_t>(character);
  out += "\\x";
  out += kDigits[byte >> 4];
  out += kDigits[byte & 0xF];
}

// Writes what can be written; gives up silently, since there is nobody left to tell.
void writeBytes(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd ready{STDERR_FILENO, POLLOUT, 0};
      if (poll(&ready, 1, kFullPipePatienceMilliseconds) <= 0) return;
    } else if (errno != EINTR) {
      return;
    }
  }
}

}  // namespace

std::string StderrLog::escaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = sequenceLength(text);
    const std::string_view sequence = text.substr(0, length == 0 ? 1 : length);
    if (length == 0 || isControl(sequence)) {
      for (const char character : sequence) appendEscaped(out, character);
    } else {
      out += sequence;
    }
    text.remove_prefix(sequence.size());
  }
  return out;
}

void StderrLog::write(std::string_view line) {
  const int keep = errno;
  const std::string bytes = std::string(program_invocation_short_name) + "[" +
                            std::to_string(getpid()) + "] tervano: " + escaped(line) + "\n";
  // A closed pipe must not raise SIGPIPE in the host: it is blocked for this thread, and one that
  // this write caused is taken back.
  sigset_t pipeSignal;
  sigset_t previous;
  sigset_t pending;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  sigpending(&pending);
  pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
  writeBytes(bytes);
  if (sigismember(&pending, SIGPIPE) == 0) {
    constexpr timespec kAtOnce{0, 0};
    while (sigtimedwait(&pipeSignal, nullptr, &kAtOnce) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  errno = keep;
}

}  // namespace tervano
