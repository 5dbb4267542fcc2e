#include "tasks/vx_task_helper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "archive/platform_exception.h"
#include "platform/platform.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano {
namespace {

using test::runPendingMainItems;
using test::ScopedPlatform;
using test::waitUntil;

// Writes down what it is told.
class Recorder : public VXTaskHelperDelegate {
 public:
  void taskHelperDidReceiveOutput(const std::shared_ptr<VXTaskHelper>& helper,
                                  const Data& data) override {
    note(helper);
    output.emplace_back(data.begin(), data.end());
    events.emplace_back("output");
    if (onOutput) onOutput(helper);
  }
  void taskHelperDidReceiveError(const std::shared_ptr<VXTaskHelper>& helper,
                                 const Data& data) override {
    note(helper);
    error.emplace_back(data.begin(), data.end());
    events.emplace_back("error");
  }
  void taskHelperDidFinish(const std::shared_ptr<VXTaskHelper>& helper,
                           std::int64_t terminationReason) override {
    note(helper);
    reasons.push_back(terminationReason);
    events.emplace_back("finish");
    if (onFinish) onFinish(helper);
  }

  std::string allOutput() const { return joined(output); }
  std::string allError() const { return joined(error); }
  bool hasFinished() const { return !reasons.empty(); }

  std::vector<std::string> output;
  std::vector<std::string> error;
  std::vector<std::int64_t> reasons;
  std::vector<std::string> events;
  std::vector<std::optional<std::string>> tags;
  bool alwaysOnMainThread = true;
  std::function<void(const std::shared_ptr<VXTaskHelper>&)> onOutput;
  std::function<void(const std::shared_ptr<VXTaskHelper>&)> onFinish;

 private:
  void note(const std::shared_ptr<VXTaskHelper>& helper) {
    alwaysOnMainThread = alwaysOnMainThread && std::this_thread::get_id() == mainThread_;
    tags.push_back(helper->userInfo());
  }
  static std::string joined(const std::vector<std::string>& chunks) {
    std::string all;
    for (const auto& chunk : chunks) all += chunk;
    return all;
  }
  const std::thread::id mainThread_ = std::this_thread::get_id();
};

class TaskHelperTest : public testing::Test {
 protected:
  ScopedPlatform platform_;
  std::shared_ptr<Recorder> delegate_ = std::make_shared<Recorder>();

  std::shared_ptr<Process> process(const std::string& path, std::vector<std::string> arguments) {
    auto made = platform_.processes().createProcess();
    made->setLaunchPath(path);
    made->setArguments(std::move(arguments));
    return made;
  }
  std::shared_ptr<VXTaskHelper> helper(const std::string& path,
                                       std::vector<std::string> arguments) {
    auto made = VXTaskHelper::taskHelperWithTask(process(path, std::move(arguments)));
    made->setDelegate(delegate_);
    return made;
  }
  std::shared_ptr<VXTaskHelper> script(const std::string& text) {
    return helper("/bin/sh", {"-c", text});
  }
  void runToEnd(const std::shared_ptr<VXTaskHelper>& running) {
    running->launch();
    ASSERT_TRUE(waitUntil([this] { return delegate_->hasFinished(); }, 30));
  }
  static bool waitForEndOf(const std::shared_ptr<Process>& running) {
    return waitUntil([&] { return !running->isRunning(); });
  }
  // Bytes that wait in the pipe at a process's standard output.
  static int unreadOutputOf(std::int64_t pid) {
    const int pipe = open(("/proc/" + std::to_string(pid) + "/fd/1").c_str(), O_RDONLY);
    int count = -1;
    if (ioctl(pipe, FIONREAD, &count) != 0) count = -1;
    close(pipe);
    return count;
  }
  static char stateOf(std::int64_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    const auto end = line.rfind(')');
    return end == std::string::npos ? '?' : line[end + 2];
  }
};

TEST_F(TaskHelperTest, AHelperStartsWithItsProcessAndNothingElse) {
  const auto task = process("/bin/true", {});
  const auto made = VXTaskHelper::taskHelperWithTask(task);
  EXPECT_EQ(made->task(), task);
  EXPECT_EQ(made->delegate(), nullptr);
  EXPECT_EQ(made->userInfo(), std::nullopt);
  EXPECT_EQ(task->standardOutput(), nullptr);
}

TEST_F(TaskHelperTest, OneLineArrivesAsItsBytesAndThenTheEnd) {
  runToEnd(helper("/bin/echo", {"hello"}));
  EXPECT_EQ(delegate_->output, std::vector<std::string>{"hello\n"});
  EXPECT_EQ(delegate_->reasons, std::vector<std::int64_t>{1});
  EXPECT_EQ(delegate_->events, (std::vector<std::string>{"output", "finish"}));
}

TEST_F(TaskHelperTest, ErrorOutputArrivesAsError) {
  runToEnd(script("echo wrong >&2"));
  EXPECT_EQ(delegate_->error, std::vector<std::string>{"wrong\n"});
  EXPECT_TRUE(delegate_->output.empty());
}

TEST_F(TaskHelperTest, BothStreamsArriveApart) {
  runToEnd(script("echo one; echo two >&2; echo three; echo four >&2"));
  EXPECT_EQ(delegate_->allOutput(), "one\nthree\n");
  EXPECT_EQ(delegate_->allError(), "two\nfour\n");
}

TEST_F(TaskHelperTest, ChunksKeepTheirBlanks) {
  runToEnd(helper("/usr/bin/printf", {"\\n\\t  text  \\n\\n"}));
  EXPECT_EQ(delegate_->allOutput(), "\n\t  text  \n\n");
}

TEST_F(TaskHelperTest, OnlyLineFeedsAndBlanksNeverArrive) {
  runToEnd(helper("/usr/bin/printf", {"\\n \\n\\r\\t \\n"}));
  EXPECT_EQ(delegate_->events, std::vector<std::string>{"finish"});
}

TEST_F(TaskHelperTest, OnlyBlanksOnErrorOutputNeverArrive) {
  runToEnd(script("printf '\\n  \\n' >&2"));
  EXPECT_EQ(delegate_->events, std::vector<std::string>{"finish"});
}

TEST_F(TaskHelperTest, OnlyUnicodeWhiteSpaceNeverArrives) {
  runToEnd(helper("/usr/bin/printf", {"\\302\\240\\342\\200\\250\\343\\200\\200"}));
  EXPECT_EQ(delegate_->events, std::vector<std::string>{"finish"});
}

TEST_F(TaskHelperTest, ManyMegabytesOfBlanksNeverArrive) {
  runToEnd(script("head -c 3000000 /dev/zero | tr '\\0' ' '"));
  EXPECT_EQ(delegate_->events, std::vector<std::string>{"finish"});
}

TEST_F(TaskHelperTest, BytesThatAreNotUtf8NeverArrive) {
  runToEnd(helper("/usr/bin/printf", {"\\377\\376"}));
  EXPECT_EQ(delegate_->events, std::vector<std::string>{"finish"});
}

TEST_F(TaskHelperTest, AChunkWithOneBadByteIsDroppedAsAWhole) {
  runToEnd(helper("/usr/bin/printf", {"good text \\303( more text\\n"}));
  EXPECT_EQ(delegate_->events, std::vector<std::string>{"finish"});
}

TEST_F(TaskHelperTest, ADroppedChunkDoesNotStopLaterOnes) {
  const auto made = script("");
  const std::string fifo = platform_.home().path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  made->task()->setArguments({"-c", "printf '\\377'; read go < \"$0\"; echo later", fifo});
  made->launch();
  // Opening waits until the shell has written the first chunk; then nothing of it may be left in
  // the pipe, or it would make one chunk with the second.
  std::ofstream go(fifo);
  ASSERT_TRUE(waitUntil([&] { return unreadOutputOf(made->task()->processIdentifier()) == 0; }));
  go << "go\n" << std::flush;
  ASSERT_TRUE(waitUntil([this] { return delegate_->hasFinished(); }));
  EXPECT_EQ(delegate_->allOutput(), "later\n");
}

TEST_F(TaskHelperTest, TextBeyondAsciiArrives) {
  runToEnd(helper("/usr/bin/printf", {"gr\\303\\274\\303\\237 dich"}));
  EXPECT_EQ(delegate_->allOutput(), "gr\xc3\xbc\xc3\x9f dich");
}

TEST_F(TaskHelperTest, NulBytesArrive) {
  runToEnd(helper("/usr/bin/printf", {"a\\000b"}));
  EXPECT_EQ(delegate_->allOutput(), std::string("a\0b", 3));
}

TEST_F(TaskHelperTest, TenMegabytesArriveWholeAndInOrder) {
  std::string expected;
  for (int number = 1; number <= 1'500'000; ++number) expected += std::to_string(number) + "\n";
  ASSERT_GT(expected.size(), 10'000'000U);
  runToEnd(helper("/usr/bin/seq", {"1", "1500000"}));
  EXPECT_TRUE(delegate_->allOutput() == expected);
  EXPECT_EQ(delegate_->events.back(), "finish");
}

TEST_F(TaskHelperTest, MegabytesOnBothStreamsArriveWhole) {
  runToEnd(script("seq 1 300000; seq 1 300000 >&2"));
  EXPECT_TRUE(delegate_->allOutput() == delegate_->allError());
  EXPECT_TRUE(delegate_->allOutput().ends_with("\n300000\n"));
}

TEST_F(TaskHelperTest, AProcessThatSaysNothingOnlyFinishes) {
  runToEnd(helper("/bin/true", {}));
  EXPECT_EQ(delegate_->events, std::vector<std::string>{"finish"});
  EXPECT_EQ(delegate_->reasons, std::vector<std::int64_t>{1});
}

TEST_F(TaskHelperTest, AnExitWithStatusThreeReportsOne) {
  runToEnd(script("exit 3"));
  EXPECT_EQ(delegate_->reasons, std::vector<std::int64_t>{1});
}

TEST_F(TaskHelperTest, EverySignalThatKillsReportsTwo) {
  for (const char* signal : {"KILL", "TERM", "INT", "HUP", "USR1", "SEGV", "ABRT", "PIPE"}) {
    delegate_->reasons.clear();
    runToEnd(helper("/bin/sh", {"-c", "ulimit -c 0; kill -$0 $$", signal}));
    EXPECT_EQ(delegate_->reasons, std::vector<std::int64_t>{2}) << signal;
  }
}

TEST_F(TaskHelperTest, OutputBeforeADeathBySignalArrives) {
  runToEnd(script("echo last words; kill -KILL $$"));
  EXPECT_EQ(delegate_->allOutput(), "last words\n");
  EXPECT_EQ(delegate_->reasons, std::vector<std::int64_t>{2});
}

TEST_F(TaskHelperTest, EveryCallIsOnTheMainThread) {
  runToEnd(script("echo one; echo two >&2"));
  EXPECT_EQ(delegate_->events.size(), 3U);
  EXPECT_TRUE(delegate_->alwaysOnMainThread);
}

TEST_F(TaskHelperTest, NothingArrivesInsideLaunch) {
  const auto made = helper("/bin/echo", {"hello"});
  made->launch();
  EXPECT_TRUE(delegate_->events.empty());
  EXPECT_TRUE(made->task()->isRunning());
  ASSERT_TRUE(waitUntil([this] { return delegate_->hasFinished(); }));
}

TEST_F(TaskHelperTest, AfterTheEndTheTaskIsNilAndNothingIsObserved) {
  const auto made = helper("/bin/echo", {"hello"});
  made->setUserInfo("tag");
  runToEnd(made);
  EXPECT_EQ(made->task(), nullptr);
  EXPECT_EQ(made->userInfo(), "tag");
  EXPECT_EQ(made->delegate(), delegate_);
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 0U);
}

TEST_F(TaskHelperTest, TheTaskIsStillThereWhileTheDelegateHearsOfTheEnd) {
  std::shared_ptr<Process> seen;
  delegate_->onFinish = [&](const auto& finished) { seen = finished->task(); };
  const auto made = script("exit 7");
  const auto task = made->task();
  runToEnd(made);
  EXPECT_EQ(seen, task);
  EXPECT_EQ(task->terminationStatus(), 7);
}

TEST_F(TaskHelperTest, CancellingTerminatesTheProcessAndNoEndIsReported) {
  const auto made = helper("/bin/sleep", {"1000"});
  const auto task = made->task();
  made->launch();
  made->cancel();
  EXPECT_EQ(made->task(), nullptr);
  ASSERT_TRUE(waitForEndOf(task));
  runPendingMainItems();
  EXPECT_EQ(task->terminationReason(), TerminationReason::uncaughtSignal);
  EXPECT_EQ(task->terminationStatus(), SIGTERM);
  EXPECT_TRUE(delegate_->events.empty());
}

TEST_F(TaskHelperTest, CancellingTwiceDoesNothingMore) {
  const auto made = helper("/bin/sleep", {"1000"});
  const auto task = made->task();
  made->launch();
  made->cancel();
  made->cancel();
  ASSERT_TRUE(waitForEndOf(task));
  EXPECT_TRUE(delegate_->events.empty());
}

TEST_F(TaskHelperTest, CancellingWhatWasNeverLaunchedDoesNothing) {
  const auto made = helper("/bin/echo", {"hello"});
  const auto task = made->task();
  made->cancel();
  EXPECT_EQ(made->task(), task);
  runToEnd(made);
  EXPECT_EQ(delegate_->allOutput(), "hello\n");
}

TEST_F(TaskHelperTest, CancellingAfterTheEndDoesNothing) {
  const auto made = helper("/bin/true", {});
  runToEnd(made);
  made->cancel();
  EXPECT_EQ(delegate_->reasons.size(), 1U);
}

TEST_F(TaskHelperTest, CancellingEndsASuspendedProcess) {
  const auto made = helper("/bin/sleep", {"1000"});
  const auto task = made->task();
  made->launch();
  ASSERT_TRUE(made->suspend());
  made->cancel();
  ASSERT_TRUE(waitForEndOf(task));
  EXPECT_TRUE(delegate_->events.empty());
}

TEST_F(TaskHelperTest, CancellingAProcessThatIgnoresItReturnsAtOnce) {
  const auto made = script("trap '' TERM; echo ready; while :; do sleep 0.05; done");
  const auto task = made->task();
  made->launch();
  ASSERT_TRUE(waitUntil([this] { return !delegate_->output.empty(); }));
  made->cancel();
  EXPECT_EQ(made->task(), nullptr);
  EXPECT_TRUE(task->isRunning());
  kill(static_cast<pid_t>(task->processIdentifier()), SIGKILL);
  ASSERT_TRUE(waitForEndOf(task));
  EXPECT_FALSE(delegate_->hasFinished());
}

TEST_F(TaskHelperTest, OutputReadBeforeCancellingStillArrives) {
  const auto made = script("echo early; exec sleep 1000");
  const auto task = made->task();
  made->launch();
  // The main queue stands still, so the chunk waits in it.
  for (int turn = 0; turn < 5000 && platform_.runLoop().pendingMainItems() == 0; ++turn) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ASSERT_EQ(platform_.runLoop().pendingMainItems(), 1);
  made->cancel();
  EXPECT_TRUE(delegate_->output.empty());
  ASSERT_TRUE(waitForEndOf(task));
  EXPECT_EQ(delegate_->events, std::vector<std::string>{"output"});
  EXPECT_EQ(delegate_->allOutput(), "early\n");
}

TEST_F(TaskHelperTest, LaunchingARunningProcessDoesNothing) {
  const auto made = helper("/bin/sleep", {"1000"});
  made->launch();
  const auto output = made->task()->standardOutput();
  const auto error = made->task()->standardError();
  const auto pid = made->task()->processIdentifier();
  made->launch();
  EXPECT_EQ(made->task()->standardOutput(), output);
  EXPECT_EQ(made->task()->standardError(), error);
  EXPECT_EQ(made->task()->processIdentifier(), pid);
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 1U);
  const auto task = made->task();
  made->cancel();
  ASSERT_TRUE(waitForEndOf(task));
}

TEST_F(TaskHelperTest, LaunchingAgainAfterTheEndDoesNothing) {
  const auto made = helper("/bin/true", {});
  runToEnd(made);
  made->launch();
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 0U);
  EXPECT_EQ(delegate_->reasons.size(), 1U);
}

TEST_F(TaskHelperTest, AHelperWithoutProcessDoesNothing) {
  const auto made = VXTaskHelper::taskHelperWithTask(nullptr);
  made->setDelegate(delegate_);
  made->launch();
  made->cancel();
  made->cleanup();
  EXPECT_FALSE(made->suspend());
  EXPECT_FALSE(made->resume());
  EXPECT_EQ(made->task(), nullptr);
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 0U);
}

TEST_F(TaskHelperTest, TheEndOfAnotherProcessIsNotReported) {
  const auto sleeping = helper("/bin/sleep", {"1000"});
  const auto task = sleeping->task();
  sleeping->launch();
  const auto other = std::make_shared<Recorder>();
  const auto brief = helper("/bin/true", {});
  brief->setDelegate(other);
  brief->launch();
  ASSERT_TRUE(waitUntil([&] { return other->hasFinished(); }));
  EXPECT_FALSE(delegate_->hasFinished());
  sleeping->cancel();
  ASSERT_TRUE(waitForEndOf(task));
}

TEST_F(TaskHelperTest, SuspendingStopsTheProcessAndResumingLetsItGoOn) {
  const auto made = helper("/bin/sleep", {"1000"});
  EXPECT_FALSE(made->suspend()) << "not launched yet";
  EXPECT_FALSE(made->resume());
  const auto task = made->task();
  made->launch();
  const auto pid = task->processIdentifier();
  EXPECT_TRUE(made->suspend());
  EXPECT_TRUE(waitUntil([&] { return stateOf(pid) == 'T'; }));
  EXPECT_TRUE(task->isRunning());
  EXPECT_TRUE(made->resume());
  EXPECT_TRUE(waitUntil([&] { return stateOf(pid) == 'S'; }));
  made->cancel();
  EXPECT_FALSE(made->suspend());
  EXPECT_FALSE(made->resume());
  ASSERT_TRUE(waitForEndOf(task));
}

TEST_F(TaskHelperTest, ASuspendedProcessFinishesAfterResuming) {
  const auto made = script("read go; echo done");
  const std::string fifo = platform_.home().path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  made->task()->setArguments({"-c", "read go < \"$0\"; echo done", fifo});
  made->launch();
  std::thread([&] { std::ofstream(fifo) << "go\n"; }).join();
  made->suspend();
  made->resume();
  ASSERT_TRUE(waitUntil([this] { return delegate_->hasFinished(); }));
  EXPECT_EQ(delegate_->allOutput(), "done\n");
}

TEST_F(TaskHelperTest, AGrandchildThatKeepsThePipeOpenDoesNotDelayTheEnd) {
  runToEnd(script("sleep 1000 & echo $!"));
  EXPECT_EQ(delegate_->reasons, std::vector<std::int64_t>{1});
  const int grandchild = std::stoi(delegate_->allOutput());
  EXPECT_GT(grandchild, 1);
  EXPECT_EQ(kill(grandchild, 0), 0) << "the grandchild had ended already";
  kill(grandchild, SIGKILL);
}

TEST_F(TaskHelperTest, AHelperThatItsOwnerDropsRunsToItsEnd) {
  auto made = helper("/bin/echo", {"hello"});
  const std::weak_ptr<VXTaskHelper> alive = made;
  made->launch();
  made = nullptr;
  EXPECT_FALSE(alive.expired());
  ASSERT_TRUE(waitUntil([this] { return delegate_->hasFinished(); }));
  EXPECT_EQ(delegate_->allOutput(), "hello\n");
  EXPECT_TRUE(waitUntil([&] { return alive.expired(); }));
}

TEST_F(TaskHelperTest, ACancelledHelperIsLetGo) {
  auto made = helper("/bin/sleep", {"1000"});
  const std::weak_ptr<VXTaskHelper> alive = made;
  const auto task = made->task();
  made->launch();
  made->cancel();
  made = nullptr;
  EXPECT_TRUE(waitUntil([&] { return alive.expired(); }));
  ASSERT_TRUE(waitForEndOf(task));
}

TEST_F(TaskHelperTest, AHelperThatIsNeverLaunchedIsLetGo) {
  auto made = helper("/bin/true", {});
  const std::weak_ptr<VXTaskHelper> alive = made;
  made = nullptr;
  EXPECT_TRUE(alive.expired());
}

TEST_F(TaskHelperTest, ADelegateThatIsGoneMissesItsCalls) {
  const auto made = script("echo one; echo two >&2");
  const auto task = made->task();
  made->launch();
  delegate_ = nullptr;
  ASSERT_TRUE(waitForEndOf(task));
  EXPECT_EQ(made->delegate(), nullptr);
  EXPECT_TRUE(waitUntil([&] { return made->task() == nullptr; }));
}

TEST_F(TaskHelperTest, AHelperWithoutDelegateRunsToItsEnd) {
  const auto made = VXTaskHelper::taskHelperWithTask(process("/bin/echo", {"hello"}));
  made->launch();
  EXPECT_TRUE(waitUntil([&] { return made->task() == nullptr; }));
}

TEST_F(TaskHelperTest, TheDelegateOfTheMomentHearsTheOutput) {
  const auto second = std::make_shared<Recorder>();
  const auto made = script("echo one; exec sleep 1000");
  const auto task = made->task();
  made->launch();
  made->setDelegate(second);
  ASSERT_TRUE(waitUntil([&] { return !second->output.empty(); }));
  EXPECT_TRUE(delegate_->events.empty());
  made->cancel();
  ASSERT_TRUE(waitForEndOf(task));
}

TEST_F(TaskHelperTest, ADelegateMayCancelWhenItHearsOutput) {
  delegate_->onOutput = [](const auto& running) { running->cancel(); };
  const auto made = script("echo one; exec sleep 1000");
  const auto task = made->task();
  made->launch();
  ASSERT_TRUE(waitForEndOf(task));
  EXPECT_EQ(delegate_->events, std::vector<std::string>{"output"});
}

TEST_F(TaskHelperTest, ADelegateMayDropTheHelperWhenItHearsOfTheEnd) {
  auto made = helper("/bin/true", {});
  const std::weak_ptr<VXTaskHelper> alive = made;
  delegate_->onFinish = [&](const auto&) { made = nullptr; };
  made->launch();
  ASSERT_TRUE(waitUntil([this] { return delegate_->hasFinished(); }));
  EXPECT_TRUE(waitUntil([&] { return alive.expired(); }));
}

TEST_F(TaskHelperTest, ADelegateMayLaunchTheNextToolWhenItHearsOfTheEnd) {
  auto next = helper("/bin/echo", {"second"});
  delegate_->onFinish = [&](const auto&) {
    if (next == nullptr) return;
    next->launch();
    next = nullptr;
  };
  const auto first = helper("/bin/echo", {"first"});
  first->launch();
  ASSERT_TRUE(waitUntil([this] { return delegate_->reasons.size() == 2; }));
  EXPECT_EQ(delegate_->allOutput(), "first\nsecond\n");
}

TEST_F(TaskHelperTest, ManyHelpersAreToldApartByTheirUserInfo) {
  std::vector<std::shared_ptr<VXTaskHelper>> running;
  for (int number = 0; number < 50; ++number) {
    running.push_back(helper("/bin/echo", {std::to_string(number)}));
    running.back()->setUserInfo("/path/" + std::to_string(number));
  }
  for (const auto& made : running) made->launch();
  ASSERT_TRUE(waitUntil([this] { return delegate_->reasons.size() == 50; }, 60));
  for (int number = 0; number < 50; ++number) {
    EXPECT_EQ(std::count(delegate_->tags.begin(), delegate_->tags.end(),
                         "/path/" + std::to_string(number)),
              2)
        << number;
  }
}

TEST_F(TaskHelperTest, TheCreatorsSettingsAreLeftAlone) {
  const std::string folder = platform_.home().path();
  const auto made = helper("/bin/sh", {"-c", "pwd; echo $WORD"});
  made->task()->setCurrentDirectoryPath(folder);
  made->task()->setEnvironment(std::map<std::string, std::string>{{"WORD", "given"}});
  runToEnd(made);
  EXPECT_EQ(delegate_->allOutput(), folder + "\ngiven\n");
}

class LaunchFailureTest : public TaskHelperTest, public testing::WithParamInterface<const char*> {
 protected:
  std::string pathOf(const std::string& kind) {
    const std::string path = platform_.home().path() + "/" + kind;
    if (kind == "folder") std::filesystem::create_directory(path);
    if (kind == "text") std::ofstream(path) << "no program";
    return kind == "empty" ? "" : path;
  }
};

INSTANTIATE_TEST_SUITE_P(Paths, LaunchFailureTest,
                         testing::Values("missing", "folder", "text", "empty"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(LaunchFailureTest, TheExceptionReachesTheCaller) {
  const auto made = helper(pathOf(GetParam()), {});
  EXPECT_THROW(made->launch(), PlatformException);
  EXPECT_FALSE(made->task()->isRunning());
  made->cleanup();
}

TEST_P(LaunchFailureTest, TheObserverAndTheReadersStayUntilCleanup) {
  auto made = helper(pathOf(GetParam()), {});
  const std::weak_ptr<VXTaskHelper> alive = made;
  EXPECT_THROW(made->launch(), PlatformException);
  EXPECT_NE(made->task(), nullptr);
  EXPECT_NE(made->task()->standardOutput(), nullptr);
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 1U);
  made = nullptr;
  ASSERT_FALSE(alive.expired()) << "the readers no longer hold the helper";
  alive.lock()->cleanup();
  EXPECT_TRUE(waitUntil([&] { return alive.expired(); }));
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 0U);
  EXPECT_TRUE(delegate_->events.empty());
}

TEST_F(TaskHelperTest, AfterAFailedLaunchTheObserverStillReportsAnEnd) {
  const auto made = helper("/no/such/program", {});
  EXPECT_THROW(made->launch(), PlatformException);
  platform_.notificationCenter().post({kTaskDidTerminateNotification, made->task().get(), {}});
  EXPECT_EQ(delegate_->reasons.size(), 1U);
  EXPECT_EQ(made->task(), nullptr);
}

TEST_F(TaskHelperTest, CancellingAfterAFailedLaunchDoesNothing) {
  const auto made = helper("/no/such/program", {});
  EXPECT_THROW(made->launch(), PlatformException);
  made->cancel();
  EXPECT_NE(made->task(), nullptr);
  made->cleanup();
}

TEST_F(TaskHelperTest, ALaunchAfterAFailedOneRunsOnceAndIsLetGo) {
  const std::string path = platform_.home().path() + "/tool";
  auto made = helper(path, {"hello"});
  const std::weak_ptr<VXTaskHelper> alive = made;
  EXPECT_THROW(made->launch(), PlatformException);
  std::filesystem::create_symlink("/bin/echo", path);
  made->launch();
  ASSERT_TRUE(waitUntil([this] { return delegate_->hasFinished(); }));
  EXPECT_EQ(delegate_->events, (std::vector<std::string>{"output", "finish"}));
  made = nullptr;
  EXPECT_TRUE(waitUntil([&] { return alive.expired(); }));
}

// A process service that has no pipes left.
class NoPipes : public ForwardingProcesses {
 public:
  using ForwardingProcesses::ForwardingProcesses;
  std::shared_ptr<Pipe> createPipe() override {
    if (left == 0) throw PlatformException(kInvalidArgumentException, "no descriptors");
    --left;
    return ForwardingProcesses::createPipe();
  }
  int left = 0;
};

TEST_F(TaskHelperTest, WithoutPipesNothingIsInstalledAndNothingStarts) {
  for (const int left : {0, 1}) {
    NoPipes none(platform_.processes());
    none.left = left;
    platform_.services().processes = &none;
    auto made = helper("/bin/echo", {"hello"});
    const std::weak_ptr<VXTaskHelper> alive = made;
    EXPECT_THROW(made->launch(), PlatformException);
    EXPECT_FALSE(made->task()->isRunning());
    EXPECT_EQ(platform_.notificationCenter().observerCount(), 0U);
    made = nullptr;
    EXPECT_TRUE(alive.expired());
    platform_.services().processes = &platform_.processes();
  }
}

}  // namespace
}  // namespace tervano
