#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/activation.h"
#include "platform/linux/session_bus.h"

namespace tervano {

// Starts programs that outlive this process, in sessions of their own, without its standard input
// and output; those that end before it are reaped on the bus thread. Any thread.
class ProgramLauncher {
 public:
  struct Options {
    // Nil: here.
    std::optional<std::string> folder = std::nullopt;
    // What it finds in XDG_ACTIVATION_TOKEN and DESKTOP_STARTUP_ID, never what this process has
    // there.
    ActivationToken activationToken = {};
  };

  explicit ProgramLauncher(SessionBus& bus) : bus_(bus) {}
  ProgramLauncher(const ProgramLauncher&) = delete;
  ProgramLauncher& operator=(const ProgramLauncher&) = delete;
  // After the bus thread has ended.
  ~ProgramLauncher();

  // Starts the program that the first argument names, by its path or in PATH. Answers 0 once it
  // runs, else errno.
  int start(const std::vector<std::string>& arguments, const Options& options);

 private:
  void reapLater(pid_t pid);
  void poll();

  SessionBus& bus_;
  // Of the bus thread: programs watched through descriptors, and those beyond that number.
  int watched_ = 0;
  std::vector<pid_t> polled_;
  GSource* pollTimer_ = nullptr;
};

// The words that open a terminal in which the following words run: that of the desktop, else a
// common one. Empty when none is installed.
std::vector<std::string> terminalWords();

}  // namespace tervano
