#include "tests/support/run_program.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using SteadyClock = std::chrono::steady_clock;

constexpr int kNotPrepared = 98;
constexpr int kNotLoaded = 97;

// In the child: never comes back.
[[noreturn]] void load(const ProgramStart& start, int output, int errors) {
  const int program = open(start.path.c_str(), O_RDONLY | O_CLOEXEC);
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  dup2(nothing, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
  if (start.prepare && !start.prepare()) _exit(kNotPrepared);
  if (start.folder && chdir(start.folder->c_str()) != 0) _exit(kNotPrepared);
  std::vector<char*> words{const_cast<char*>(start.path.c_str())};
  for (const auto& argument : start.arguments) words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  // By descriptor: another user may have no way to the build folder.
  fexecve(program, words.data(), environ);
  // A script's interpreter needs its path.
  execv(start.path.c_str(), words.data());
  _exit(kNotLoaded);
}

bool readSome(int descriptor, std::string& text) {
  char buffer[65536];
  const ssize_t count = read(descriptor, buffer, sizeof buffer);
  if (count > 0) text.append(buffer, static_cast<std::size_t>(count));
  return count > 0;
}

}  // namespace

ProgramOutcome runProgram(const ProgramStart& start) {
  int output[2];
  int errors[2];
  if (pipe2(output, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipes");
  }
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("no child");
  if (pid == 0) load(start, output[1], errors[1]);
  close(output[1]);
  close(errors[1]);

  // What the program itself wrote is there once it has ended; a process that it left behind may
  // hold the pipes open for much longer.
  ProgramOutcome outcome;
  const int ending = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  if (ending < 0) throw std::runtime_error("no pidfd");
  const auto deadline =
      SteadyClock::now() + std::chrono::milliseconds(static_cast<int>(start.seconds * 1000));
  pollfd waiting[3] = {{output[0], POLLIN, 0}, {errors[0], POLLIN, 0}, {ending, POLLIN, 0}};
  bool ended = false;
  while (true) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now());
    const int ready = poll(waiting, 3, ended ? 0 : static_cast<int>(std::max(left.count(), 0L)));
    if (ready == 0 && ended) break;
    if (ready == 0) {
      ADD_FAILURE() << start.path << " did not end in " << start.seconds << " seconds";
      kill(pid, SIGKILL);
      break;
    }
    if (waiting[0].revents != 0 && !readSome(output[0], outcome.output)) waiting[0].fd = -1;
    if (waiting[1].revents != 0 && !readSome(errors[0], outcome.errors)) waiting[1].fd = -1;
    if (waiting[2].revents != 0) {
      ended = true;
      waiting[2].fd = -1;
    }
    for (auto& one : waiting) one.revents = 0;
  }
  close(ending);
  close(output[0]);
  close(errors[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  outcome.status = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  return outcome;
}

bool becomeNobody() {
  if (geteuid() != 0) return true;
  return setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0;
}

void giveToNobody(const std::string& folder) {
  if (geteuid() != 0) return;
  const auto give = [](const std::string& path) {
    if (lchown(path.c_str(), kNobody, kNobody) != 0) throw std::runtime_error("chown " + path);
  };
  give(folder);
  for (const auto& entry : fs::recursive_directory_iterator(folder)) give(entry.path());
}

MemoryTemporaryFolder::MemoryTemporaryFolder() {
  constexpr char kFolder[] = "/dev/shm";
  if (const char* before = std::getenv("TMPDIR")) previous_ = before;
  if (access(kFolder, W_OK | X_OK) == 0) setenv("TMPDIR", kFolder, 1);
}

MemoryTemporaryFolder::~MemoryTemporaryFolder() {
  if (previous_) {
    setenv("TMPDIR", previous_->c_str(), 1);
  } else {
    unsetenv("TMPDIR");
  }
}

std::string contentsOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(stream), {}};
}

bool exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

}  // namespace tervano::test
