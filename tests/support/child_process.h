#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

namespace tervano::test {

// The child's side of a ChildProcess: lines to and from the test.
class ParentLink {
 public:
  ParentLink(int readEnd, int writeEnd) : readEnd_(readEnd), writeEnd_(writeEnd) {}
  // `line` holds no line feed.
  void say(const std::string& line);
  // Waits for the parent's next line; nil once the parent is gone.
  std::optional<std::string> hear();

 private:
  int readEnd_;
  int writeEnd_;
};

// A second process of the test. Its destructor kills it when it still runs.
class ChildProcess {
 public:
  ChildProcess(pid_t pid, int readEnd, int writeEnd)
      : pid_(pid), readEnd_(readEnd), writeEnd_(writeEnd) {}
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;
  ~ChildProcess();

  pid_t pid() const { return pid_; }
  void say(const std::string& line);
  // The child's next line; nil when it ends or says nothing for that long.
  std::optional<std::string> hear(double seconds = 10);
  void kill(int signal);
  // Waits for the end: the exit status, minus the number of the signal that killed it, or nil when
  // it still runs after that long.
  std::optional<int> waitForExit(double seconds = 10);

 private:
  pid_t pid_;
  int readEnd_;
  int writeEnd_;
  std::string unread_;
};

// Forks; `body` runs in the child, whose exit status is what it answers (99 for an exception). The
// child keeps the parent's environment and installed platform but none of its threads, so it must
// not use those of the parent's services that have started a thread.
[[nodiscard]] ChildProcess forkChild(const std::function<int(ParentLink&)>& body);

}  // namespace tervano::test
