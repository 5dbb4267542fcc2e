#include "platform/linux/posix_processes.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

#include "archive/platform_exception.h"
#include "platform/log.h"
#include "platform/run_loop.h"
#include "tests/support/child_process.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano {
namespace {

namespace fs = std::filesystem;
using test::runPendingMainItems;
using test::ScopedPlatform;
using test::waitUntil;

class ProcessesLog : public Log {
 public:
  void write(std::string_view line) override {
    const std::lock_guard lock(mutex);
    lines.emplace_back(line);
  }
  std::mutex mutex;
  std::vector<std::string> lines;
};

// A process whose two outputs are gathered on the main queue, as a task helper does it.
struct ToolRun {
  explicit ToolRun(ScopedPlatform& platform) : platform(platform) {
    process = platform.processes().createProcess();
    const auto state = events;
    observation = platform.notificationCenter().addObserver(
        kTaskDidTerminateNotification, process.get(),
        [state](const Notification&) { state->push_back("end"); });
  }

  void capture() {
    process->setStandardOutput(platform.processes().createPipe());
    process->setStandardError(platform.processes().createPipe());
    for (const bool isOutput : {true, false}) {
      const auto& pipe = isOutput ? process->standardOutput() : process->standardError();
      pipe->fileHandleForReading()->setReadabilityHandler(
          // A call under way outlives this object: it holds what it uses.
          [&runLoop = platform.runLoop(), isOutput, state = events](FileHandle& handle) {
            const Data data = handle.availableData();
            if (data.empty()) return;
            runLoop.dispatchAsyncOnMainQueue(
                [state, line = std::string(isOutput ? "out:" : "err:") +
                               std::string(data.begin(), data.end())] { state->push_back(line); });
          });
    }
  }
  void launch(const std::string& path, std::vector<std::string> arguments = {}) {
    process->setLaunchPath(path);
    process->setArguments(std::move(arguments));
    process->launch();
  }
  void shell(const std::string& script) { launch("/bin/sh", {"-c", script}); }
  [[nodiscard]] bool waitForEnd() {
    return waitUntil([this] { return !process->isRunning(); });
  }

  ScopedPlatform& platform;
  std::shared_ptr<Process> process;
  std::shared_ptr<std::vector<std::string>> events = std::make_shared<std::vector<std::string>>();
  Subscription observation;
};

class PosixProcessesTest : public testing::Test {
 protected:
  std::string at(const std::string& name) { return platform.home().path() + "/" + name; }
  // The one thing that the test's program wrote.
  static std::string output(const ToolRun& run) {
    std::string all;
    for (const std::string& event : *run.events) {
      if (event.starts_with("out:")) all += event.substr(4);
    }
    return all;
  }

  ScopedPlatform platform;
};

TEST_F(PosixProcessesTest, OutputComesBeforeTheEnd) {
  ToolRun run(platform);
  run.capture();
  run.launch("/bin/echo", {"hello"});
  EXPECT_TRUE(run.process->isRunning());
  EXPECT_GT(run.process->processIdentifier(), 0);
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_THAT(*run.events, testing::ElementsAre("out:hello\n", "end"));
  EXPECT_EQ(run.process->terminationReason(), TerminationReason::exit);
  EXPECT_EQ(run.process->terminationStatus(), 0);
}

TEST_F(PosixProcessesTest, WhatIsInThePipesAtTheEndIsDeliveredBeforeTheEndEveryTime) {
  for (int round = 0; round < 100; ++round) {
    ToolRun run(platform);
    run.capture();
    run.shell("printf out; printf err >&2");
    ASSERT_TRUE(run.waitForEnd());
    ASSERT_EQ(run.events->size(), 3u);
    EXPECT_EQ(run.events->back(), "end");
    EXPECT_THAT(*run.events, testing::UnorderedElementsAre("out:out", "err:err", "end"));
  }
}

TEST_F(PosixProcessesTest, MuchOutputArrivesWholeAndInOrder) {
  ToolRun run(platform);
  run.capture();
  run.shell("i=0; while [ $i -lt 20000 ]; do echo line $i; i=$((i+1)); done");
  EXPECT_TRUE(run.waitForEnd());
  std::string expected;
  for (int line = 0; line < 20000; ++line) expected += "line " + std::to_string(line) + "\n";
  EXPECT_EQ(output(run), expected);
  EXPECT_EQ(run.events->back(), "end");
}

TEST_F(PosixProcessesTest, AnExitStatusIsNoSignal) {
  ToolRun run(platform);
  run.shell("exit 3");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(run.process->terminationReason(), TerminationReason::exit);
  EXPECT_EQ(run.process->terminationStatus(), 3);
}

TEST_F(PosixProcessesTest, AnUncaughtSignalIsTheReasonAndItsNumberTheStatus) {
  ToolRun run(platform);
  run.shell("kill -KILL $$");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(run.process->terminationReason(), TerminationReason::uncaughtSignal);
  EXPECT_EQ(run.process->terminationStatus(), SIGKILL);
}

TEST_F(PosixProcessesTest, AMissingProgramThrowsAtOnceWithItsPath) {
  ToolRun run(platform);
  try {
    run.launch("/nonexistent/tool");
    FAIL() << "launched";
  } catch (const PlatformException& exception) {
    EXPECT_EQ(exception.name(), kInvalidArgumentException);
    EXPECT_THAT(exception.reason(), testing::AllOf(testing::HasSubstr("/nonexistent/tool"),
                                                   testing::HasSubstr("No such file")));
  }
  EXPECT_FALSE(run.process->isRunning());
}

TEST_F(PosixProcessesTest, AFileThatIsNoProgramThrows) {
  std::ofstream(at("plain")) << "x";
  for (const std::string& path : {at("plain"), platform.home().path(), std::string()}) {
    ToolRun run(platform);
    EXPECT_THROW(run.launch(path), PlatformException) << path;
  }
}

TEST_F(PosixProcessesTest, AProgramThatCouldNotBeLaunchedCanBeLaunchedLater) {
  ToolRun run(platform);
  run.capture();
  EXPECT_THROW(run.launch(at("tool")), PlatformException);
  std::ofstream(at("tool")) << "#!/bin/sh\necho here\n";
  ASSERT_EQ(chmod(at("tool").c_str(), 0700), 0);
  run.launch(at("tool"));
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(output(run), "here\n");
}

TEST_F(PosixProcessesTest, ASecondLaunchThrows) {
  ToolRun run(platform);
  run.launch("/bin/true");
  EXPECT_THROW(run.process->launch(), PlatformException);
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_THROW(run.process->launch(), PlatformException);
}

TEST_F(PosixProcessesTest, ANulInAnArgumentOrTheEnvironmentThrowsRatherThanCuttingItShort) {
  ToolRun run(platform);
  EXPECT_THROW(run.launch("/bin/echo", {std::string("a\0b", 3)}), PlatformException);
  run.process->setEnvironment(std::map<std::string, std::string>{{"A", std::string("a\0b", 3)}});
  EXPECT_THROW(run.launch("/bin/echo"), PlatformException);
  run.process->setEnvironment(std::map<std::string, std::string>{{"A=B", "c"}});
  EXPECT_THROW(run.launch("/bin/echo"), PlatformException);
}

TEST_F(PosixProcessesTest, NoShellReadsTheArguments) {
  ToolRun run(platform);
  run.capture();
  run.launch("/bin/echo", {"$(touch x)", "`id`", "a b", "*", "\xFF", "; exit 1", ""});
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(output(run), "$(touch x) `id` a b * \xFF ; exit 1 \n");
}

TEST_F(PosixProcessesTest, TheEnvironmentIsInheritedOrJustWhatWasSet) {
  platform.home().setVariable("TERVANO_TEST", "inherited");
  ToolRun inherited(platform);
  inherited.capture();
  inherited.shell("echo $TERVANO_TEST");
  EXPECT_TRUE(inherited.waitForEnd());
  EXPECT_EQ(output(inherited), "inherited\n");
  ToolRun own(platform);
  own.capture();
  own.process->setEnvironment(std::map<std::string, std::string>{{"OWN", "value"}});
  own.launch("/usr/bin/env");
  EXPECT_TRUE(own.waitForEnd());
  EXPECT_EQ(output(own), "OWN=value\n");
}

TEST_F(PosixProcessesTest, TheProgramRunsInTheGivenFolder) {
  ToolRun run(platform);
  run.capture();
  run.process->setCurrentDirectoryPath(at("tmp"));
  run.launch("/bin/pwd");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(output(run), fs::canonical(at("tmp")).string() + "\n");
}

TEST_F(PosixProcessesTest, AMissingFolderThrowsAndIsNamed) {
  ToolRun run(platform);
  run.process->setCurrentDirectoryPath(at("missing"));
  try {
    run.launch("/bin/pwd");
    FAIL() << "launched";
  } catch (const PlatformException& exception) {
    EXPECT_THAT(exception.reason(), testing::HasSubstr(at("missing")));
  }
}

TEST_F(PosixProcessesTest, TheToolTablePutsAnotherProgramInAPathsPlace) {
  std::ofstream(at("ours")) << "#!/bin/sh\necho ours \"$@\"\n";
  ASSERT_EQ(chmod(at("ours").c_str(), 0700), 0);
  platform.processes().setToolTable({{"/usr/bin/defaults", at("ours")}});
  ToolRun run(platform);
  run.capture();
  run.launch("/usr/bin/defaults", {"delete", "x"});
  EXPECT_EQ(run.process->launchPath(), "/usr/bin/defaults");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(output(run), "ours delete x\n");
  platform.processes().setToolTable({});
}

TEST_F(PosixProcessesTest, AChildHasOnlyTheThreeStandardDescriptors) {
  const int inherited = open("/dev/null", O_RDONLY);
  ToolRun other(platform);
  other.capture();
  other.launch("/bin/sleep", {"100"});
  ToolRun run(platform);
  run.capture();
  run.launch("/bin/ls", {"/proc/self/fd"});
  EXPECT_TRUE(run.waitForEnd());
  // 3 is the listing itself.
  EXPECT_EQ(output(run), "0\n1\n2\n3\n");
  other.process->terminate();
  EXPECT_TRUE(other.waitForEnd());
  close(inherited);
}

TEST_F(PosixProcessesTest, AGivenDescriptorIsTheChildsStandardInput) {
  std::ofstream(at("input")) << "one\ntwo\n";
  ToolRun run(platform);
  run.capture();
  const int input = open(at("input").c_str(), O_RDONLY | O_CLOEXEC);
  run.process->setStandardInput(input);
  close(input);
  run.launch("/bin/cat");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(output(run), "one\ntwo\n");
}

TEST_F(PosixProcessesTest, AnExtraDescriptorIsTheChildsNumberThreeAndItAloneIsAdded) {
  const int inherited = open("/dev/null", O_RDONLY);
  const int shared = open(at("shared").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ToolRun run(platform);
  run.capture();
  run.process->setExtraDescriptor(shared);
  run.shell("echo written >&3; exec /bin/ls /proc/self/fd");
  EXPECT_TRUE(run.waitForEnd());
  // 4 is the listing itself.
  EXPECT_EQ(output(run), "0\n1\n2\n3\n4\n");
  std::string line;
  std::getline(std::ifstream(at("shared")), line);
  EXPECT_EQ(line, "written");
  close(shared);
  close(inherited);
}

TEST_F(PosixProcessesTest, GivenDescriptorsThatAreTakenBackAreNotHandedOver) {
  const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ToolRun run(platform);
  run.capture();
  run.process->setStandardInput(null);
  run.process->setExtraDescriptor(null);
  run.process->setStandardInput(-1);
  run.process->setExtraDescriptor(-1);
  close(null);
  const auto inherited = fs::read_symlink("/proc/self/fd/0");
  run.shell("readlink /proc/self/fd/0; exec /bin/ls /proc/self/fd");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(output(run), inherited.string() + "\n0\n1\n2\n3\n");
}

TEST_F(PosixProcessesTest, ADescriptorThatIsNotOpenThrows) {
  const auto process = platform.processes().createProcess();
  EXPECT_THROW(process->setStandardInput(99999), PlatformException);
  EXPECT_THROW(process->setExtraDescriptor(99999), PlatformException);
}

TEST_F(PosixProcessesTest, InAHostWithoutStandardStreamsEachDescriptorKeepsItsPlace) {
  ToolRun run(platform);
  int kept[3];
  for (const int stream : {0, 1, 2}) {
    kept[stream] = fcntl(stream, F_DUPFD_CLOEXEC, 100);
    close(stream);
  }
  const int input = open(at("input").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  const int extra = open(at("extra").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  // Nothing of the service's may lie where the test puts its own streams back.
  const int filler = open("/dev/null", O_RDWR | O_CLOEXEC);
  run.process->setStandardInput(input);
  run.process->setExtraDescriptor(extra);
  run.capture();
  run.shell("readlink /proc/self/fd/0 /proc/self/fd/3");
  for (const int stream : {0, 1, 2}) {
    dup2(kept[stream], stream);
    close(kept[stream]);
  }
  EXPECT_EQ(input, 0);
  EXPECT_EQ(extra, 1);
  EXPECT_EQ(filler, 2);
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(output(run), at("input") + "\n" + at("extra") + "\n");
}

TEST_F(PosixProcessesTest, AChildHasDefaultSignalsAndBlocksNone) {
  struct sigaction before {};
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignore, &before);
  sigset_t blocked;
  sigset_t previous;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &previous);
  ToolRun run(platform);
  run.capture();
  run.launch("/bin/grep", {"-E", "^Sig(Blk|Ign)", "/proc/self/status"});
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  sigaction(SIGPIPE, &before, nullptr);
  EXPECT_TRUE(run.waitForEnd());
  // Signals 32 and 33 are the C library's own, which it ignores in every child.
  EXPECT_THAT(output(run), testing::MatchesRegex(
                               "SigBlk:\t0000000000000000\nSigIgn:\t0000000[01][08]0000000\n"));
}

TEST_F(PosixProcessesTest, TheHostsChildSignalHandlerStaysAsItWas) {
  struct sigaction before {};
  sigaction(SIGCHLD, nullptr, &before);
  ToolRun run(platform);
  run.launch("/bin/true");
  struct sigaction during {};
  sigaction(SIGCHLD, nullptr, &during);
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(during.sa_handler, before.sa_handler);
}

TEST_F(PosixProcessesTest, AHostThatReapsEveryChildOnlyCostsTheStatus) {
  ProcessesLog log;
  platform.services().log = &log;
  struct sigaction before {};
  struct sigaction reap {};
  reap.sa_handler = SIG_IGN;
  sigaction(SIGCHLD, &reap, &before);
  for (int round = 0; round < 20; ++round) {
    ToolRun run(platform);
    run.capture();
    run.launch("/bin/echo", {"x"});
    EXPECT_TRUE(run.waitForEnd());
    EXPECT_THAT(*run.events, testing::ElementsAre("out:x\n", "end"));
    EXPECT_EQ(run.process->terminationStatus(), -1);
  }
  sigaction(SIGCHLD, &before, nullptr);
  EXPECT_EQ(log.lines.size(), 20u);
}

TEST_F(PosixProcessesTest, TerminatingEndsAProcessBySignal) {
  ToolRun run(platform);
  run.launch("/bin/sleep", {"100"});
  run.process->terminate();
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(run.process->terminationReason(), TerminationReason::uncaughtSignal);
  EXPECT_EQ(run.process->terminationStatus(), SIGTERM);
}

TEST_F(PosixProcessesTest, TerminatingAStoppedProcessEndsItToo) {
  ToolRun run(platform);
  run.launch("/bin/sleep", {"100"});
  EXPECT_TRUE(run.process->suspend());
  run.process->terminate();
  EXPECT_TRUE(run.waitForEnd());
}

TEST_F(PosixProcessesTest, ASuspendedProcessSaysNothingUntilItIsResumed) {
  ToolRun run(platform);
  run.capture();
  run.shell("echo ready; while :; do echo x; sleep 0.01; done");
  EXPECT_TRUE(waitUntil([&] { return !run.events->empty(); }));
  EXPECT_TRUE(run.process->suspend());
  const std::string stat = "/proc/" + std::to_string(run.process->processIdentifier()) + "/stat";
  EXPECT_TRUE(waitUntil([&] {
    std::string line;
    std::ifstream file(stat);
    std::getline(file, line);
    return line.find(") T ") != std::string::npos;
  }));
  EXPECT_TRUE(run.process->resume());
  run.events->clear();
  EXPECT_TRUE(waitUntil([&] { return run.events->size() > 2; }));
  run.process->terminate();
  EXPECT_TRUE(run.waitForEnd());
}

TEST_F(PosixProcessesTest, AProcessThatDoesNotRunCannotBeSignalled) {
  ToolRun run(platform);
  EXPECT_FALSE(run.process->suspend());
  EXPECT_FALSE(run.process->resume());
  run.process->terminate();
  run.launch("/bin/true");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_FALSE(run.process->suspend());
  EXPECT_FALSE(run.process->resume());
  run.process->terminate();
}

TEST_F(PosixProcessesTest, AProcessThatEverybodyDroppedIsStillReapedAndReported) {
  pid_t pid = 0;
  bool ended = false;
  Subscription observation = platform.notificationCenter().addObserver(
      kTaskDidTerminateNotification, nullptr, [&](const Notification&) { ended = true; });
  {
    const auto process = platform.processes().createProcess();
    process->setLaunchPath("/bin/sh");
    process->setArguments({"-c", "exit 0"});
    process->launch();
    pid = static_cast<pid_t>(process->processIdentifier());
  }
  EXPECT_TRUE(waitUntil([&] { return ended; }));
  EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(PosixProcessesTest, AGrandchildThatHoldsThePipesDoesNotDelayTheEnd) {
  ToolRun run(platform);
  run.capture();
  run.shell("sleep 100 & echo $!");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(run.events->back(), "end");
  const int grandchild = std::stoi(output(run));
  EXPECT_GT(grandchild, 0);
  EXPECT_EQ(kill(grandchild, SIGKILL), 0);
}

TEST_F(PosixProcessesTest, AGrandchildThatKeepsWritingDoesNotDelayTheEnd) {
  ToolRun run(platform);
  run.capture();
  run.shell("yes & echo $! > \"$HOME/pid\"");
  EXPECT_TRUE(run.waitForEnd());
  int grandchild = 0;
  std::ifstream(at("pid")) >> grandchild;
  ASSERT_GT(grandchild, 0);
  EXPECT_EQ(kill(grandchild, SIGKILL), 0);
  run.process->standardOutput()->fileHandleForReading()->setReadabilityHandler(nullptr);
}

TEST_F(PosixProcessesTest, HandlersRunOffTheMainThreadOneAtATime) {
  ToolRun run(platform);
  run.process->setStandardOutput(platform.processes().createPipe());
  run.process->setStandardError(platform.processes().createPipe());
  const auto mainThread = std::this_thread::get_id();
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  std::atomic<bool> onMain{false};
  for (const auto& pipe : {run.process->standardOutput(), run.process->standardError()}) {
    pipe->fileHandleForReading()->setReadabilityHandler([&](FileHandle& handle) {
      if (++inside > 1) overlapped = true;
      if (std::this_thread::get_id() == mainThread) onMain = true;
      handle.availableData();
      --inside;
    });
  }
  run.shell("for i in 1 2 3 4 5 6 7 8 9; do echo out; echo err >&2; done");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_FALSE(overlapped);
  EXPECT_FALSE(onMain);
}

TEST_F(PosixProcessesTest, AfterTheEndOfAPipeItsHandlerIsNotCalledAgain) {
  ToolRun run(platform);
  run.process->setStandardOutput(platform.processes().createPipe());
  std::atomic<int> ends{0};
  run.process->standardOutput()->fileHandleForReading()->setReadabilityHandler(
      [&](FileHandle& handle) {
        if (handle.availableData().empty()) ++ends;
      });
  run.shell("exec >&-; read line; exit 0");
  EXPECT_TRUE(waitUntil([&] { return ends == 1; }));
  run.process->terminate();
  EXPECT_TRUE(run.waitForEnd());
  ToolRun other(platform);
  other.launch("/bin/sleep", {"0.05"});
  EXPECT_TRUE(other.waitForEnd());
  EXPECT_EQ(ends, 1);
}

TEST_F(PosixProcessesTest, AHandlerThatThrowsIsLoggedOnceAndRemoved) {
  ProcessesLog log;
  platform.services().log = &log;
  ToolRun run(platform);
  run.process->setStandardOutput(platform.processes().createPipe());
  run.process->standardOutput()->fileHandleForReading()->setReadabilityHandler(
      [](FileHandle&) { throw std::runtime_error("broken"); });
  run.shell("echo x; sleep 0.05; echo y");
  EXPECT_TRUE(run.waitForEnd());
  const std::lock_guard lock(log.mutex);
  EXPECT_THAT(log.lines, testing::ElementsAre(testing::HasSubstr("broken")));
}

TEST_F(PosixProcessesTest, AHandlerMayRemoveItselfAndLetItsHolderGo) {
  ToolRun run(platform);
  run.process->setStandardOutput(platform.processes().createPipe());
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  run.process->standardOutput()->fileHandleForReading()->setReadabilityHandler(
      [held = std::move(held)](FileHandle& handle) {
        handle.availableData();
        handle.setReadabilityHandler(nullptr);
      });
  run.shell("echo x");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_TRUE(waitUntil([&] { return watched.expired(); }));
}

TEST_F(PosixProcessesTest, OnePipeMayTakeBothOutputs) {
  ToolRun run(platform);
  run.capture();
  run.process->setStandardError(run.process->standardOutput());
  run.shell("echo out; echo err >&2");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(output(run), "out\nerr\n");
}

TEST_F(PosixProcessesTest, WithoutPipesTheStandardStreamsAreInherited) {
  ToolRun run(platform);
  run.shell("[ /proc/self/fd/2 -ef /proc/$PPID/fd/2 ]");
  EXPECT_TRUE(run.waitForEnd());
  EXPECT_EQ(run.process->terminationStatus(), 0);
}

TEST_F(PosixProcessesTest, AThousandChildrenWithTwoPipesRunUnderALowLimitAndGetItThemselves) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit low = before;
  low.rlim_cur = 1024;
  ASSERT_GE(before.rlim_max, 8192u);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
  constexpr int kChildren = 1000;
  {
    std::vector<std::unique_ptr<ToolRun>> runs;
    for (int child = 0; child < kChildren; ++child) {
      runs.push_back(std::make_unique<ToolRun>(platform));
      runs.back()->capture();
      // All live at once: each waits for the end of its standard input's owner.
      runs.back()->launch("/bin/sh", {"-c", "ulimit -n; kill -STOP $$; echo end >&2"});
    }
    EXPECT_EQ(platform.processes().runningProcesses(), kChildren);
    for (const auto& run : runs) {
      ASSERT_TRUE(waitUntil([&] { return !run->events->empty(); }, 60));
      EXPECT_EQ(run->events->front(), "out:1024\n");
    }
    for (const auto& run : runs) {
      const std::string stat =
          "/proc/" + std::to_string(run->process->processIdentifier()) + "/stat";
      ASSERT_TRUE(waitUntil([&] {
        std::string line;
        std::ifstream file(stat);
        std::getline(file, line);
        return line.find(") T ") != std::string::npos;
      }));
      run->process->resume();
    }
    for (const auto& run : runs) {
      ASSERT_TRUE(waitUntil([&] { return !run->process->isRunning(); }, 60));
      EXPECT_THAT(*run->events, testing::ElementsAre("out:1024\n", "err:end\n", "end"));
    }
  }
  ToolRun last(platform);
  last.launch("/bin/true");
  EXPECT_TRUE(last.waitForEnd());
  rlimit after{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &after), 0);
  EXPECT_EQ(after.rlim_cur, 1024u);
  setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(PosixProcessesTest, WithoutDescriptorsAPipeThrows) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  // As many as are open now; the hard limit stands in the way of more.
  auto child = test::forkChild([&](test::ParentLink&) {
    // Like the platform's own, never destroyed.
    auto& own = *new PosixProcesses;
    const rlimit limit{3, 3};
    setrlimit(RLIMIT_NOFILE, &limit);
    try {
      own.createPipe();
    } catch (const PlatformException&) {
      return 0;
    }
    return 1;
  });
  EXPECT_EQ(child.waitForExit(), 0);
}

}  // namespace
}  // namespace tervano
