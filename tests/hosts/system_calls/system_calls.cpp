#include "tests/hosts/system_calls/system_calls.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <vector>

#include "tests/support/run_program.h"

namespace tervano::test {

namespace {

constexpr char kRequestMark[] = "/menu-request";
constexpr char kStartMark[] = "/menu-start";

using Calls = std::vector<std::string>;

// The names of the system calls that the program made between two marks, memory and the end of
// locks aside, each in a line, those of threads other than the first one behind "thread "; one text
// for each pair of marks.
Calls callsBetween(const std::string& mark, const std::string& trace) {
  const std::set<std::string> notCounted = {"brk",     "mmap",     "munmap",   "mremap",
                                            "madvise", "mprotect", "getrandom"};
  Calls calls;
  std::istringstream lines(trace);
  std::string process;
  bool isInside = false;
  for (std::string line; std::getline(lines, line);) {
    const std::string id = line.substr(0, line.find(' '));
    if (process.empty()) process = id;
    const auto name = line.find_first_not_of(' ', id.size());
    // The ends of interrupted calls; signals.
    if (name == std::string::npos || std::string("<+-").find(line[name]) != std::string::npos) {
      continue;
    }
    if (line.find('"' + mark + '"') != std::string::npos) {
      isInside = !isInside;
      if (isInside) calls.emplace_back();
      continue;
    }
    if (!isInside) continue;
    std::string call = line.substr(name, line.find('(') - name);
    if (call == "futex" && line.find("FUTEX_WAIT") == std::string::npos) continue;
    if ((call == "clone" || call == "clone3") && line.find("CLONE_THREAD") != std::string::npos) {
      call = "new thread";
    }
    if (notCounted.contains(call)) continue;
    calls.back() += (id == process ? "" : "thread ") + call + "\n";
  }
  return calls;
}

struct Traced {
  Calls starts;
  Calls requests;
};

Traced tracedFor(int items, const std::string& program, const std::string& folder) {
  const std::string trace = folder + "/trace";
  ProgramStart start;
  start.path = "/usr/bin/strace";
  start.arguments = {"-f", "-o", trace, "--", program, std::to_string(items)};
  start.seconds = 60;
  const auto outcome = runProgram(start);
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_NE(outcome.output.find("Tervano"), std::string::npos) << outcome.output;
  const std::string text = contentsOf(trace);
  return {callsBetween(kStartMark, text), callsBetween(kRequestMark, text)};
}

void expectNone(const std::string& calls, const std::set<std::string>& refused) {
  std::istringstream lines(calls);
  for (std::string call; std::getline(lines, call);) {
    const bool isThreads = call.starts_with("thread ");
    EXPECT_FALSE(refused.contains(isThreads ? call.substr(7) : call)) << call;
  }
}

// Whether every thread but this one sleeps.
bool othersSleep() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (task.path().filename() == std::to_string(gettid())) continue;
    std::ifstream stream(task.path() / "stat");
    const std::string status{std::istreambuf_iterator<char>(stream), {}};
    const auto state = status.rfind(") ");
    // Empty when the thread has just ended.
    if (state == std::string::npos || status[state + 2] != 'S') return false;
  }
  return true;
}

// Seen asleep many times in a row: a thread that was traced sleeps now and then by that alone.
void waitForOthers() {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (int seen = 0; seen < 30 && std::chrono::steady_clock::now() < end;) {
    seen = othersSleep() ? seen + 1 : 0;
    poll(nullptr, 0, 5);
  }
}

}  // namespace

void markStart() {
  static_cast<void>(access(kStartMark, F_OK));
}

void markMenuRequest() {
  static bool isInside = false;
  if (!isInside) waitForOthers();
  isInside = !isInside;
  static_cast<void>(access(kRequestMark, F_OK));
}

void expectHarmlessSystemCalls(const std::string& program, const std::string& folder,
                               std::size_t lookingUp) {
  const std::set<std::string> harmful = {
      "fork",   "vfork",   "clone",     "clone3",    "execve",         "execveat", "connect",
      "sendto", "sendmsg", "sendmmsg",  "sync",      "msync",          "fsync",    "syncfs",
      "wait4",  "waitid",  "fdatasync", "nanosleep", "clock_nanosleep"};
  std::set<std::string> refused = {
      "recv",   "recvmsg",  "recvfrom", "recvmmsg",   "link",        "linkat",    "poll",
      "ppoll",  "select",   "pselect6", "flock",      "rename",      "renameat",  "renameat2",
      "unlink", "unlinkat", "futex",    "epoll_wait", "epoll_pwait", "new thread"};
  refused.insert(harmful.begin(), harmful.end());
  std::set<std::string> refusedLater = {"open",       "openat",     "openat2",   "stat",
                                        "lstat",      "statx",      "access",    "faccessat",
                                        "faccessat2", "readlink",   "read",      "pread64",
                                        "readlinkat", "getdents64", "newfstatat"};
  refusedLater.insert(refused.begin(), refused.end());
  const Traced one = tracedFor(1, program, folder);
  ASSERT_EQ(one.starts.size(), 1U);
  // It does do something.
  EXPECT_NE(one.starts[0].find("openat"), std::string::npos);
  expectNone(one.starts[0], harmful);
  ASSERT_GE(one.requests.size(), 2U);
  for (std::size_t i = 0; i < one.requests.size(); ++i) {
    expectNone(one.requests[i], i < lookingUp ? refused : refusedLater);
    EXPECT_EQ(one.requests[i].find("thread "), std::string::npos) << one.requests[i];
  }
  EXPECT_EQ(tracedFor(10'000, program, folder).requests, one.requests);
}

}  // namespace tervano::test
