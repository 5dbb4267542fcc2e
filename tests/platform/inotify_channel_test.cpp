#include "platform/linux/inotify_channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/user_folders.h"
#include "platform/log.h"
#include "tests/support/child_process.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano {
namespace {

namespace fs = std::filesystem;
using test::ChildProcess;
using test::forkChild;
using test::ParentLink;
using test::runPendingMainItems;
using test::ScopedPlatform;
using test::waitUntil;

class ChannelLog : public Log {
 public:
  void write(std::string_view line) override { lines.emplace_back(line); }
  std::vector<std::string> lines;
};

class InotifyChannelTest : public testing::Test {
 protected:
  void SetUp() override { folder = platform.home().runtimeFolder() + "/tervano/notify"; }
  void TearDown() override {
    channel.removeEveryObserver(this);
    channel.removeEveryObserver(&other);
  }

  NotifyChannel::Callback record() {
    return [this](const std::string& name) { heard.push_back(name); };
  }
  void observe(const std::string& name) { channel.addObserver(this, name, record()); }
  // Posts a last name and waits until it was heard: everything posted before it has been, too.
  void settle() {
    bool done = false;
    channel.addObserver(&done, "settled", [&done](const std::string&) { done = true; });
    channel.post("settled");
    EXPECT_TRUE(waitUntil([&] { return done; }));
    channel.removeEveryObserver(&done);
  }

  ScopedPlatform platform;
  InotifyChannel& channel = platform.notifyChannel();
  std::string folder;
  std::vector<std::string> heard;
  int other = 0;
};

int inotifyInstances() {
  int count = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    if (fs::read_symlink(entry.path(), ignored).string() == "anon_inode:inotify") ++count;
  }
  return count;
}

TEST_F(InotifyChannelTest, APostReachesAnObserverInTheSameProcessOnceAndNeverInLine) {
  observe("TVDidChangeNotification");
  channel.post("TVDidChangeNotification");
  EXPECT_TRUE(heard.empty());
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("TVDidChangeNotification"));
}

TEST_F(InotifyChannelTest, APostReachesAnotherProcess) {
  ChildProcess child = forkChild([](ParentLink& parent) {
    InotifyChannel own;
    bool called = false;
    own.addObserver(&called, "x", [&](const std::string& name) { called = name == "x"; });
    parent.say("listening");
    return waitUntil([&] { return called; }) ? 0 : 1;
  });
  ASSERT_EQ(child.hear(), "listening");
  channel.post("x");
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(InotifyChannelTest, APostOfAnotherProcessIsHeard) {
  observe("x");
  ChildProcess child = forkChild([](ParentLink&) {
    InotifyChannel().post("x");
    return 0;
  });
  EXPECT_TRUE(waitUntil([&] { return !heard.empty(); }));
  EXPECT_EQ(child.waitForExit(), 0);
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("x"));
}

TEST_F(InotifyChannelTest, ASecondObservationOfOneObserverAndNameReplacesTheFirst) {
  channel.addObserver(this, "x", [this](const std::string&) { heard.emplace_back("first"); });
  channel.addObserver(this, "x", [this](const std::string&) { heard.emplace_back("second"); });
  EXPECT_EQ(channel.observationCount(), 1u);
  channel.post("x");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("second"));
}

TEST_F(InotifyChannelTest, TwoObserversOfOneNameAreBothCalled) {
  channel.addObserver(this, "x", [this](const std::string&) { heard.emplace_back("one"); });
  channel.addObserver(&other, "x", [this](const std::string&) { heard.emplace_back("two"); });
  channel.post("x");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("one", "two"));
}

TEST_F(InotifyChannelTest, OtherNamesAreNotHeard) {
  observe("x");
  channel.post("y");
  channel.post("x.y");
  settle();
  EXPECT_TRUE(heard.empty());
}

TEST_F(InotifyChannelTest, APostBeforeTheObservationIsNotHeard) {
  observe("y");
  channel.post("x");
  observe("x");
  settle();
  EXPECT_TRUE(heard.empty());
}

TEST_F(InotifyChannelTest, APostBeforeASecondObservationReachesTheFirstOnly) {
  channel.addObserver(this, "x", [this](const std::string&) { heard.emplace_back("early"); });
  channel.post("x");
  channel.addObserver(&other, "x", [this](const std::string&) { heard.emplace_back("late"); });
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("early"));
}

TEST_F(InotifyChannelTest, ARemovedObserverIsNotCalledForAPendingPost) {
  observe("x");
  channel.post("x");
  channel.removeObserver(this, "x");
  settle();
  EXPECT_TRUE(heard.empty());
}

TEST_F(InotifyChannelTest, RemovingEveryObservationLeavesThoseOfOthers) {
  observe("x");
  observe("y");
  channel.addObserver(&other, "x", [this](const std::string&) { heard.emplace_back("other"); });
  channel.removeEveryObserver(this);
  channel.post("x");
  channel.post("y");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("other"));
}

TEST_F(InotifyChannelTest, ACallbackMayRemoveItself) {
  channel.addObserver(this, "x", [this](const std::string& name) {
    heard.push_back(name);
    channel.removeObserver(this, "x");
  });
  channel.post("x");
  settle();
  channel.post("x");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("x"));
}

TEST_F(InotifyChannelTest, ACallbackMayRemoveTheNextObserverBeforeItsTurn) {
  channel.addObserver(this, "x", [this](const std::string&) {
    heard.emplace_back("first");
    channel.removeEveryObserver(&other);
  });
  channel.addObserver(&other, "x", [this](const std::string&) { heard.emplace_back("second"); });
  channel.post("x");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("first"));
}

TEST_F(InotifyChannelTest, ACallbackMayObserveItsNameAnew) {
  channel.addObserver(this, "x", [this](const std::string& name) {
    heard.push_back(name);
    observe("x");
  });
  channel.post("x");
  settle();
  channel.post("x");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("x", "x"));
}

TEST_F(InotifyChannelTest, ACallbackThatThrowsIsLoggedAndTheNextOneIsCalled) {
  ChannelLog log;
  platform.services().log = &log;
  channel.addObserver(this, "x", [](const std::string&) { throw std::runtime_error("broken"); });
  channel.addObserver(&other, "x", record());
  channel.post("x");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("x"));
  EXPECT_THAT(log.lines, testing::ElementsAre(testing::HasSubstr("broken")));
}

TEST_F(InotifyChannelTest, NamesOfAnyBytesArrive) {
  const std::vector<std::string> names = {"a/b",  "..",       ".",           "",
                                          "a b%", "\xFF\n\t", "%2F",         std::string("a\0b", 3),
                                          "/",    ".hidden",  "../../escape"};
  for (const std::string& name : names) observe(name);
  for (const std::string& name : names) channel.post(name);
  settle();
  EXPECT_EQ(heard, names);
}

TEST_F(InotifyChannelTest, LongNamesThatDifferInTheirLastByteStayApart) {
  const std::string name(5000, 'n');
  observe(name + "1");
  observe(name + "2");
  channel.post(name + "2");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre(name + "2"));
}

TEST_F(InotifyChannelTest, TheLastPostIsNeverLostHoweverManyMerge) {
  int calls = 0;
  channel.addObserver(this, "x", [&](const std::string&) { ++calls; });
  for (int round = 0; round < 1000; ++round) channel.post("x");
  settle();
  EXPECT_GE(calls, 1);
  EXPECT_LE(calls, 1000);
  const int before = calls;
  channel.post("x");
  settle();
  EXPECT_EQ(calls, before + 1);
}

TEST_F(InotifyChannelTest, AfterAnOverflowTheNamesThatWerePostedAreHeardAndNoOthers) {
  std::ifstream limitFile("/proc/sys/fs/inotify/max_queued_events");
  int limit = 0;
  limitFile >> limit;
  ASSERT_GT(limit, 0);
  observe("posted last");
  observe("not posted");
  // Names that alternate do not merge.
  for (int round = 0; round <= limit / 2; ++round) {
    channel.post("a");
    channel.post("b");
  }
  channel.post("posted last");
  EXPECT_TRUE(waitUntil([&] { return !heard.empty(); }));
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("posted last"));
}

TEST_F(InotifyChannelTest, AFolderThatIsDeletedIsMadeAnewAndHeardAgain) {
  observe("x");
  settle();
  fs::remove_all(platform.home().runtimeFolder() + "/tervano");
  EXPECT_TRUE(waitUntil([&] { return fs::exists(folder); }));
  channel.post("x");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("x"));
}

TEST_F(InotifyChannelTest, APostBetweenTheFoldersEndAndItsReturnIsNotLost) {
  observe("x");
  channel.post("x");
  settle();
  fs::remove_all(platform.home().runtimeFolder() + "/tervano");
  channel.post("x");
  EXPECT_TRUE(waitUntil([&] { return heard.size() == 2; }));
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("x", "x"));
}

TEST_F(InotifyChannelTest, AFolderThatIsMovedAwayIsMadeAnew) {
  observe("x");
  fs::rename(folder, folder + ".old");
  EXPECT_TRUE(waitUntil([&] { return fs::exists(folder); }));
  channel.post("x");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("x"));
}

TEST_F(InotifyChannelTest, FilesThatAreDeletedInTheFolderHurtNobody) {
  observe("x");
  channel.post("x");
  settle();
  for (const auto& entry : fs::directory_iterator(folder)) fs::remove(entry);
  channel.post("x");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("x", "x"));
}

TEST_F(InotifyChannelTest, ASenderUsesNoInotifyInstance) {
  channel.post("x");
  EXPECT_EQ(inotifyInstances(), 0);
  observe("x");
  EXPECT_EQ(inotifyInstances(), 1);
}

TEST_F(InotifyChannelTest, ManyObservationsShareOneInstance) {
  for (int number = 0; number < 100; ++number) observe("name" + std::to_string(number));
  EXPECT_EQ(inotifyInstances(), 1);
}

TEST_F(InotifyChannelTest, AListenerThatIsKilledLeavesNothingThatHurtsTheOthers) {
  ChildProcess child = forkChild([](ParentLink& parent) {
    InotifyChannel own;
    own.addObserver(&own, "x", [](const std::string&) {});
    parent.say("listening");
    parent.hear();
    return 0;
  });
  ASSERT_EQ(child.hear(), "listening");
  observe("x");
  child.kill(SIGKILL);
  EXPECT_EQ(child.waitForExit(), -SIGKILL);
  channel.post("x");
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("x"));
}

TEST_F(InotifyChannelTest, AStoppedListenerDoesNotHoldASenderUp) {
  ChildProcess child = forkChild([](ParentLink& parent) {
    InotifyChannel own;
    int calls = 0;
    own.addObserver(&own, "x", [&](const std::string&) { ++calls; });
    parent.say("listening");
    return waitUntil([&] { return calls > 0; }) ? 0 : 1;
  });
  ASSERT_EQ(child.hear(), "listening");
  child.kill(SIGSTOP);
  for (int round = 0; round < 50000; ++round) channel.post(round % 2 == 0 ? "x" : "y");
  child.kill(SIGCONT);
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(InotifyChannelTest, AForkedChildListensForItselfAndTakesNothingFromItsParent) {
  observe("x");
  ChildProcess child = forkChild([this](ParentLink& parent) {
    bool called = false;
    channel.addObserver(&called, "x", [&](const std::string&) { called = true; });
    parent.say("listening");
    return waitUntil([&] { return called; }) ? 0 : 1;
  });
  ASSERT_EQ(child.hear(), "listening");
  channel.post("x");
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_TRUE(waitUntil([&] { return !heard.empty(); }));
  settle();
  EXPECT_THAT(heard, testing::ElementsAre("x"));
}

TEST_F(InotifyChannelTest, WithoutInstancesOneLineIsLoggedAndListeningBeginsLater) {
  ChildProcess child = forkChild([this](ParentLink&) {
    ChannelLog log;
    platform.services().log = &log;
    InotifyChannel own;
    int calls = 0;
    own.post("x");
    std::vector<int> instances;
    for (int instance = inotify_init1(0); instance >= 0; instance = inotify_init1(0)) {
      instances.push_back(instance);
      if (instances.size() > 100000) return 2;
    }
    own.addObserver(&own, "x", [&](const std::string&) { ++calls; });
    own.addObserver(&own, "y", [&](const std::string&) { calls += 100; });
    if (log.lines.size() != 1) return 3;
    own.post("x");
    if (waitUntil([&] { return calls > 0; }, 0.2)) return 4;
    for (const int instance : instances) close(instance);
    if (!waitUntil([&] { return calls > 0; })) return 5;
    return calls == 1 && log.lines.size() == 1 ? 0 : 6;
  });
  EXPECT_EQ(child.waitForExit(30), 0);
}

TEST_F(InotifyChannelTest, ObserversMayComeAndGoOnOtherThreadsWhilePostsArrive) {
  std::atomic<bool> stop{false};
  std::atomic<int> calls{0};
  std::thread churn([&] {
    while (!stop) {
      channel.addObserver(&other, "x", [&](const std::string&) { ++calls; });
      channel.removeEveryObserver(&other);
    }
  });
  std::thread sender([&] {
    while (!stop) channel.post("x");
  });
  int ours = 0;
  channel.addObserver(this, "x", [&](const std::string&) { ++ours; });
  EXPECT_TRUE(waitUntil([&] { return ours >= 50; }, 20));
  stop = true;
  churn.join();
  sender.join();
}

TEST_F(InotifyChannelTest, TheFoldersAreClosedToOthers) {
  observe("x");
  for (const std::string& path : {folder, platform.home().runtimeFolder() + "/tervano"}) {
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
  }
}

TEST_F(InotifyChannelTest, ANameCannotLeaveTheFolder) {
  channel.post("../../escape");
  channel.post("/tmp/escape");
  EXPECT_FALSE(fs::exists(platform.home().runtimeFolder() + "/escape"));
  for (const auto& entry : fs::directory_iterator(folder)) EXPECT_TRUE(entry.is_regular_file());
}

// Children run as another user, with a fallback folder of their own in /tmp.
class FallbackFolderTest : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
    fs::remove_all(fallback);
  }
  void TearDown() override { fs::remove_all(fallback); }

  bool becomeUser() const {
    return setgid(user) == 0 && setuid(user) == 0 && unsetenv("XDG_RUNTIME_DIR") == 0;
  }

  ScopedPlatform platform;
  // Not the same in two tests that run at once.
  const uid_t user = 40000 + static_cast<uid_t>(getpid()) % 20000;
  const std::string fallback = "/tmp/tervano-" + std::to_string(user);
};

TEST_F(FallbackFolderTest, WithoutARuntimeFolderListenersAndSendersMeetInTmp) {
  ChildProcess child = forkChild([this](ParentLink&) {
    if (!becomeUser()) return 2;
    InotifyChannel own;
    bool called = false;
    own.addObserver(&own, "x", [&](const std::string&) { called = true; });
    own.post("x");
    return waitUntil([&] { return called; }) ? 0 : 1;
  });
  EXPECT_EQ(child.waitForExit(), 0);
  struct stat status {};
  ASSERT_EQ(stat(fallback.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700u);
}

TEST_F(FallbackFolderTest, ASenderWithARuntimeFolderReachesAListenerWithout) {
  ChildProcess listener = forkChild([this](ParentLink& parent) {
    if (!becomeUser()) return 2;
    InotifyChannel own;
    bool called = false;
    own.addObserver(&own, "x", [&](const std::string&) { called = true; });
    parent.say("listening");
    return waitUntil([&] { return called; }) ? 0 : 1;
  });
  ASSERT_EQ(listener.hear(), "listening");
  ChildProcess sender = forkChild([this](ParentLink&) {
    const std::string own = "/tmp/tervano-test-run-" + std::to_string(user);
    if (!becomeUser() || mkdir(own.c_str(), 0700) != 0) return 2;
    platform.home().setVariable("XDG_RUNTIME_DIR", own);
    InotifyChannel().post("x");
    const bool posted = fs::exists(own + "/tervano/notify/x");
    fs::remove_all(own);
    return posted ? 0 : 1;
  });
  EXPECT_EQ(sender.waitForExit(), 0);
  EXPECT_EQ(listener.waitForExit(), 0);
}

TEST_F(FallbackFolderTest, AFolderInTmpThatBelongsToSomebodyElseIsNotUsed) {
  ASSERT_EQ(mkdir(fallback.c_str(), 0777), 0);
  ASSERT_EQ(chmod(fallback.c_str(), 0777), 0);
  ChildProcess child = forkChild([this](ParentLink&) {
    if (!becomeUser()) return 2;
    ChannelLog log;
    platform.services().log = &log;
    InotifyChannel().post("x");
    return fs::is_empty(fallback) && log.lines.size() == 1 ? 0 : 1;
  });
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(FallbackFolderTest, ASymbolicLinkInTmpIsNotFollowed) {
  const std::string target = platform.home().path() + "/target";
  fs::create_directory(target);
  ASSERT_EQ(chown(target.c_str(), user, user), 0);
  ASSERT_EQ(chmod(platform.home().path().c_str(), 0755), 0);
  fs::create_directory_symlink(target, fallback);
  ChildProcess child = forkChild([&, this](ParentLink&) {
    if (!becomeUser()) return 2;
    ChannelLog log;
    platform.services().log = &log;
    InotifyChannel().post("x");
    return fs::is_empty(target) && log.lines.size() == 1 ? 0 : 1;
  });
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(FallbackFolderTest, ARuntimeFolderThatOthersMayWriteToIsNotUsed) {
  const std::string open = platform.home().path() + "/open";
  ASSERT_EQ(mkdir(open.c_str(), 0777), 0);
  ASSERT_EQ(chmod(open.c_str(), 0777), 0);
  platform.home().setVariable("XDG_RUNTIME_DIR", open);
  for (const auto& candidate : RuntimeFolders::usable()) EXPECT_NE(candidate.base, open);
}

TEST_F(FallbackFolderTest, ARelativeRuntimeFolderIsNotUsed) {
  platform.home().setVariable("XDG_RUNTIME_DIR", "run");
  for (const auto& candidate : RuntimeFolders::usable()) EXPECT_EQ(candidate.base[0], '/');
}

TEST_F(InotifyChannelTest, APostOnItsWayReachesTheObservationThatReplacesTheOldOne) {
  observe("a");
  channel.post("a");
  std::vector<std::string> replacement;
  channel.addObserver(this, "a",
                      [&replacement](const std::string& name) { replacement.push_back(name); });
  settle();
  EXPECT_TRUE(heard.empty());
  EXPECT_EQ(replacement, std::vector<std::string>{"a"});
  channel.removeObserver(this, "a");
}

TEST_F(InotifyChannelTest, AnObserverOfEveryNameHearsWhatNobodyElseObserves) {
  std::vector<std::string> every;
  channel.addObserverOfEveryName(&every,
                                 [&every](const std::string& name) { every.push_back(name); });
  channel.post("a/b \xFF");
  channel.post("c");
  EXPECT_TRUE(waitUntil([&] { return every.size() == 2; }));
  EXPECT_EQ(every, (std::vector<std::string>{"a/b \xFF", "c"}));
  channel.removeEveryObserver(&every);
}

TEST_F(InotifyChannelTest, AnObserverOfEveryNameLeavesTheOthersTheirPosts) {
  observe("a");
  channel.post("a");
  int every = 0;
  channel.addObserverOfEveryName(&every, [&every](const std::string&) { ++every; });
  settle();
  EXPECT_EQ(heard, std::vector<std::string>{"a"});
  channel.removeEveryObserver(&every);
}

}  // namespace
}  // namespace tervano
