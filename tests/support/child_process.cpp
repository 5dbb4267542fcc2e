#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <utility>

namespace tervano::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kExceptionStatus = 99;

void writeLine(int descriptor, std::string line) {
  line += '\n';
  const char* next = line.data();
  std::size_t left = line.size();
  while (left > 0) {
    const ssize_t written = write(descriptor, next, left);
    if (written < 0 && errno != EINTR) return;
    if (written > 0) {
      next += written;
      left -= static_cast<std::size_t>(written);
    }
  }
}

int milliseconds(Clock::time_point deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, 1000000));
}

Clock::time_point after(double seconds) {
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

void ParentLink::say(const std::string& line) {
  writeLine(writeEnd_, line);
}

std::optional<std::string> ParentLink::hear() {
  std::string line;
  char character = 0;
  while (true) {
    const ssize_t count = read(readEnd_, &character, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    if (character == '\n') return line;
    line += character;
  }
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      readEnd_(std::exchange(other.readEnd_, -1)),
      writeEnd_(std::exchange(other.writeEnd_, -1)),
      unread_(std::move(other.unread_)) {}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  if (readEnd_ >= 0) close(readEnd_);
  if (writeEnd_ >= 0) close(writeEnd_);
}

void ChildProcess::say(const std::string& line) {
  writeLine(writeEnd_, line);
}

std::optional<std::string> ChildProcess::hear(double seconds) {
  const auto deadline = after(seconds);
  while (true) {
    if (const auto end = unread_.find('\n'); end != std::string::npos) {
      std::string line = unread_.substr(0, end);
      unread_.erase(0, end + 1);
      return line;
    }
    pollfd readable{readEnd_, POLLIN, 0};
    const int ready = poll(&readable, 1, milliseconds(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return std::nullopt;
    char buffer[4096];
    const ssize_t count = read(readEnd_, buffer, sizeof buffer);
    if (count <= 0) return std::nullopt;
    unread_.append(buffer, static_cast<std::size_t>(count));
  }
}

void ChildProcess::kill(int signal) {
  if (pid_ > 0) ::kill(pid_, signal);
}

std::optional<int> ChildProcess::waitForExit(double seconds) {
  if (pid_ <= 0) return std::nullopt;
  const auto deadline = after(seconds);
  const int handle = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  if (handle < 0) throw std::runtime_error("pidfd_open failed");
  pollfd ended{handle, POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&ended, 1, milliseconds(deadline));
  } while (ready < 0 && errno == EINTR);
  close(handle);
  if (ready <= 0) return std::nullopt;
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

ChildProcess forkChild(const std::function<int(ParentLink&)>& body) {
  int toChild[2];
  int toParent[2];
  if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(toParent, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipes");
  }
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("no second process");
  if (pid == 0) {
    close(toChild[1]);
    close(toParent[0]);
    signal(SIGPIPE, SIG_IGN);
    int status = kExceptionStatus;
    try {
      ParentLink link(toChild[0], toParent[1]);
      status = body(link);
    } catch (const std::exception& exception) {
      std::fprintf(stderr, "child: %s\n", exception.what());
    }
    std::fflush(nullptr);
    // Not exit(): the parent's static objects and test reports are not the child's to end.
    _exit(status);
  }
  close(toChild[0]);
  close(toParent[1]);
  return ChildProcess(pid, toParent[0], toChild[1]);
}

}  // namespace tervano::test
