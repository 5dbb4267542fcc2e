#include "tests/archive/child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

extern char** environ;

namespace tervano::testing {
namespace {

ChildResult waitFor(pid_t pid) {
  int status = 0;
  rusage usage{};
  while (wait4(pid, &status, 0, &usage) < 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "wait4");
  }
  ChildResult result;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  for (const timeval& time : {usage.ru_utime, usage.ru_stime}) {
    result.cpuSeconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  }
  return result;
}

}  // namespace

ChildResult runProgram(const std::vector<std::string>& arguments) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  const int error = posix_spawn(&pid, argv.front(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  if (error != 0) {
    close(ends[0]);
    throw std::system_error(error, std::generic_category(), arguments.front());
  }
  std::string output;
  std::array<char, 65536> block{};
  ssize_t got = 0;
  while ((got = ::read(ends[0], block.data(), block.size())) != 0) {
    if (got > 0) {
      output.append(block.data(), static_cast<std::size_t>(got));
    } else if (errno != EINTR) {
      break;
    }
  }
  close(ends[0]);
  ChildResult result = waitFor(pid);
  result.output = std::move(output);
  return result;
}

ChildResult runInChild(const std::function<int()>& body, unsigned cpuSeconds) {
  const pid_t pid = fork();
  if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid == 0) {
    const rlimit limit{cpuSeconds, cpuSeconds};
    setrlimit(RLIMIT_CPU, &limit);
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    _exit(body());
  }
  return waitFor(pid);
}

}  // namespace tervano::testing
