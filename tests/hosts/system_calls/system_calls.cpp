#include "tests/hosts/system_calls/system_calls.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <vector>

#include "tests/support/run_program.h"

namespace tervano::test {

namespace {

constexpr char kMark[] = "/menu-request";

// The names of the system calls that the program's first thread made between two marks, memory and
// locks aside, each in a line; one text for each request.
std::vector<std::string> requestsIn(const std::string& trace) {
  const std::set<std::string> notCounted = {"brk",     "mmap",     "munmap", "mremap",
                                            "madvise", "mprotect", "futex"};
  std::vector<std::string> requests;
  std::istringstream lines(trace);
  std::string process;
  bool isInside = false;
  for (std::string line; std::getline(lines, line);) {
    const std::string id = line.substr(0, line.find(' '));
    if (process.empty()) process = id;
    const auto name = line.find_first_not_of(' ', id.size());
    // Of other threads; the ends of interrupted calls; signals.
    if (id != process || name == std::string::npos ||
        std::string("<+-").find(line[name]) != std::string::npos) {
      continue;
    }
    if (line.find('"' + std::string(kMark) + '"') != std::string::npos) {
      isInside = !isInside;
      if (isInside) requests.emplace_back();
      continue;
    }
    const std::string call = line.substr(name, line.find('(') - name);
    if (isInside && !notCounted.contains(call)) requests.back() += call + "\n";
  }
  return requests;
}

std::vector<std::string> requestsFor(int items, const std::string& program,
                                     const std::string& folder) {
  const std::string trace = folder + "/trace";
  ProgramStart start;
  start.path = "/usr/bin/strace";
  start.arguments = {"-f", "-o", trace, "--", program, std::to_string(items)};
  start.seconds = 60;
  const auto outcome = runProgram(start);
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_NE(outcome.output.find("Tervano"), std::string::npos) << outcome.output;
  return requestsIn(contentsOf(trace));
}

}  // namespace

void markMenuRequest() {
  static_cast<void>(access(kMark, F_OK));
}

void expectHarmlessSystemCalls(const std::string& program, const std::string& folder) {
  const std::set<std::string> refused = {
      "fork",      "vfork",           "clone",   "clone3",    "execve",     "execveat",
      "connect",   "sendto",          "sendmsg", "recv",      "recvmsg",    "recvfrom",
      "sendmmsg",  "recvmmsg",        "sync",    "msync",     "link",       "linkat",
      "poll",      "ppoll",           "select",  "pselect6",  "epoll_wait", "epoll_pwait",
      "nanosleep", "clock_nanosleep", "fsync",   "fdatasync", "syncfs",     "flock",
      "wait4",     "waitid",          "rename",  "renameat",  "renameat2",  "unlink",
      "unlinkat"};
  const auto forOne = requestsFor(1, program, folder);
  ASSERT_EQ(forOne.size(), 2U);
  for (const auto& calls : forOne) {
    std::istringstream lines(calls);
    for (std::string call; std::getline(lines, call);) EXPECT_FALSE(refused.contains(call)) << call;
  }
  EXPECT_EQ(requestsFor(10'000, program, folder), forOne);
}

}  // namespace tervano::test
