#include "companion/hidden_input.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <iostream>

#include "platform/linux/descriptor.h"

namespace tervano {

namespace {

// The signals that end or stop a process from its terminal.
constexpr std::array<int, 6> kTerminalSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGTTIN};
std::atomic<int> caughtTerminalSignal{0};
// Readable once one was caught, at whatever moment and on whatever thread.
std::atomic<int> terminalSignalEvent{-1};

void catchTerminalSignal(int number) {
  const int code = errno;
  caughtTerminalSignal = number;
  const std::uint64_t one = 1;
  // Nothing can be done about a failure here.
  if (write(terminalSignalEvent, &one, sizeof one) < 0) errno = 0;
  errno = code;
}

// Turns the terminal's echo off, and catches signals, for as long as it lives.
class HiddenTerminal {
 public:
  HiddenTerminal() {
    caughtTerminalSignal = 0;
    terminalSignalEvent = event_.get();
    struct sigaction action {};
    action.sa_handler = catchTerminalSignal;
    for (std::size_t at = 0; at < kTerminalSignals.size(); ++at) {
      sigaction(kTerminalSignals[at], &action, &actions_[at]);
    }
    if (!event_ || tcgetattr(STDIN_FILENO, &settings_) != 0) return;
    termios hidden = settings_;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    hidden.c_lflag |= ICANON | ISIG | ECHONL;
    isHidden_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden) == 0;
  }
  HiddenTerminal(const HiddenTerminal&) = delete;
  HiddenTerminal& operator=(const HiddenTerminal&) = delete;
  ~HiddenTerminal() {
    if (isHidden_) tcsetattr(STDIN_FILENO, TCSAFLUSH, &settings_);
    for (std::size_t at = 0; at < kTerminalSignals.size(); ++at) {
      sigaction(kTerminalSignals[at], &actions_[at], nullptr);
    }
  }
  bool isHidden() const { return isHidden_; }
  // Waits for a line or the end of the input; false when a signal was caught first.
  bool waitForLine() const {
    pollfd ready[] = {{STDIN_FILENO, POLLIN, 0}, {event_.get(), POLLIN, 0}};
    while (poll(ready, 2, -1) < 0) {
      if (errno != EINTR) return false;
    }
    return ready[1].revents == 0;
  }

 private:
  const Descriptor event_{eventfd(0, EFD_CLOEXEC)};
  std::array<struct sigaction, kTerminalSignals.size()> actions_{};
  termios settings_{};
  bool isHidden_ = false;
};

}  // namespace

std::optional<Secret> readHidden(const char* prompt) {
  while (true) {
    Secret secret;
    bool isRead = false;
    {
      const HiddenTerminal terminal;
      // What cannot be hidden is not asked for.
      if (!terminal.isHidden()) return std::nullopt;
      std::cerr << prompt << std::flush;
      isRead = terminal.waitForLine() && secret.readFrom(STDIN_FILENO, true);
    }
    if (const int number = caughtTerminalSignal.exchange(0); number != 0) {
      std::cerr << "\n";
      raise(number);
      if (number == SIGTSTP || number == SIGTTIN) continue;
      // Somebody keeps the process from ending by it.
      return std::nullopt;
    }
    if (!isRead) return std::nullopt;
    return secret;
  }
}

}  // namespace tervano
