#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <string>

namespace tervano::test {

// A child process on a terminal of its own, seen from the side of the person.
class Terminal {
  using SteadyClock = std::chrono::steady_clock;

 public:
  explicit Terminal(const std::function<int()>& body, unsigned short rows = 24) {
    winsize size{};
    size.ws_row = rows;
    size.ws_col = 80;
    pid_ = forkpty(&master_, nullptr, nullptr, &size);
    if (pid_ == 0) {
      int status = 99;
      try {
        status = body();
      } catch (const std::exception&) {
      }
      _exit(status);
    }
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(master_);
  }

  // What is written up to `end`; fails the test when that does not come.
  std::string readUntil(const std::string& end) {
    const auto deadline = SteadyClock::now() + std::chrono::seconds(10);
    while (true) {
      if (const auto at = unread_.find(end); at != std::string::npos) {
        const std::string text = unread_.substr(0, at + end.size());
        unread_.erase(0, at + end.size());
        return text;
      }
      if (!readMore(deadline)) {
        ADD_FAILURE() << "\"" << end << "\" did not come, but: " << unread_;
        return {};
      }
    }
  }
  void type(const std::string& keys) {
    EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  void resize(unsigned short rows) {
    winsize size{};
    size.ws_row = rows;
    size.ws_col = 80;
    ioctl(master_, TIOCSWINSZ, &size);
  }
  void hangUp() {
    close(master_);
    master_ = -1;
  }
  // Reads to the end of output and answers the exit status.
  int waitForExit() {
    const auto deadline = SteadyClock::now() + std::chrono::seconds(10);
    while (master_ >= 0 && readMore(deadline)) {
    }
    while (SteadyClock::now() < deadline) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
      }
      poll(nullptr, 0, 5);
    }
    ADD_FAILURE() << "the child did not end";
    return -1;
  }
  const std::string& rest() const { return unread_; }

 private:
  bool readMore(SteadyClock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now());
    pollfd input{master_, POLLIN, 0};
    if (left.count() <= 0 || poll(&input, 1, static_cast<int>(left.count())) <= 0) return false;
    char buffer[4096];
    const ssize_t count = read(master_, buffer, sizeof buffer);
    if (count <= 0) return false;
    unread_.append(buffer, static_cast<std::size_t>(count));
    return true;
  }

  int master_ = -1;
  pid_t pid_ = -1;
  std::string unread_;
};

}  // namespace tervano::test
