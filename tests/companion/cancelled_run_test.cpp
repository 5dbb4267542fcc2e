#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "actions/register_action_classes.h"
#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_secure_remove_action.h"
#include "actions/tv_shell_script_action.h"
#include "companion/asker.h"
#include "companion/job_runner.h"
#include "companion/removal_watch.h"
#include "jobs/job_services.h"
#include "platform/bundle.h"
#include "tests/support/recording_services.h"
#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

// After so many items the job is cancelled, as a person might at that moment.
class CancellingFileManager : public ForwardingFileManager {
 public:
  CancellingFileManager(FileManager& real, int items)
      : ForwardingFileManager(real), items_(items) {}
  std::optional<Error> performCopy(const ItemCopy& copy) override {
    return counted(ForwardingFileManager::performCopy(copy));
  }
  std::optional<Error> performMove(const ItemMove& move) override {
    return counted(ForwardingFileManager::performMove(move));
  }

 private:
  std::optional<Error> counted(std::optional<Error> error) {
    if (--items_ == 0) currentJob()->cancelToken().cancel();
    return error;
  }

  int items_;
};

// Another program in the place of the asking window.
class HangingWindow : public ForwardingBundle {
 public:
  using ForwardingBundle::ForwardingBundle;
  std::string pathForAuxiliaryExecutable(const std::string& name) const override {
    return name == "tervano-ask" ? path : ForwardingBundle::pathForAuxiliaryExecutable(name);
  }
  std::string path;
};

// The process that wrote its number into the file; empty until it has.
std::string processIn(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  return std::getline(file, line) && !file.eof() ? line : "";
}

// Whether the process works: one that nobody has taken notice of is no more, too.
bool isAtWork(const std::string& process) {
  std::ifstream file("/proc/" + process + "/stat");
  std::string line;
  std::getline(file, line);
  return !line.empty() && line.find(") Z ") == std::string::npos;
}

class CancelledRunTest : public testing::Test {
 protected:
  CancelledRunTest()
      : bundle_(*platform_.services().bundle),
        notifications_(*platform_.services().userNotifications) {
    platform_.services().userNotifications = &notifications_;
    platform_.services().bundle = &bundle_;
    real_ = platform();
  }
  ~CancelledRunTest() override { platform_.services() = real_; }

  // Once, before the run.
  void installServices(FileManager* files = nullptr) {
    Platform under = real_;
    if (files != nullptr) under.fileManager = files;
    services_ = std::make_unique<JobServices>(under);
    platform_.services() = services_->services();
  }
  std::string at(const std::string& name) const { return platform_.home().path() + "/" + name; }
  std::string make(const std::string& name, const std::string& text = "text") const {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name), std::ios::binary) << text;
    return at(name);
  }
  std::shared_ptr<TVAction> script(const std::string& text,
                                   const std::string& name = "script.sh") const {
    TVShellScriptAction action;
    action.init();
    action.setTitle("Script");
    action.setScriptURL(Url::fileURLWithPath(make(name, "#!/bin/bash\n" + text)));
    fs::permissions(at(name), fs::perms::owner_all);
    return action.copy();
  }
  template <typename T>
  std::shared_ptr<TVAction> to(const std::string& folder) const {
    fs::create_directories(at(folder));
    T action;
    action.init();
    action.setTitle("Sort");
    action.setDestinationURL(Url::fileURLWithPath(at(folder), true));
    return action.copy();
  }
  static std::shared_ptr<TVAction> removal() {
    TVSecureRemoveAction action;
    action.init();
    return action.copy();
  }
  std::shared_ptr<Job> run(const TVAction& action, const std::vector<std::string>& paths,
                           const Askers& askers = {}) {
    return runner_->run(action, paths, askers,
                        [this](const RunOutcome& outcome) { ended_ = outcome; });
  }
  bool hasEnded() {
    return waitUntil([this] { return ended_.has_value(); }, 60);
  }

  ClassRegistry registry_ = [] {
    ClassRegistry registry;
    registerActionClasses(registry);
    return registry;
  }();
  ScopedPlatform platform_{&registry_};
  HangingWindow bundle_;
  RecordingUserNotifications notifications_;
  Platform real_;
  std::unique_ptr<JobServices> services_;
  std::shared_ptr<JobRunner> runner_ = std::make_shared<JobRunner>();
  std::optional<RunOutcome> ended_;
};

}  // namespace

TEST_F(CancelledRunTest, ThePrecedingItemsOfAMoveStayMovedAndAreListed) {
  CancellingFileManager files(*real_.fileManager, 2);
  installServices(&files);
  const auto job = run(*to<TVMoveToAction>("to"), {make("a\n1"), make("b"), make("c"), make("d")});
  ASSERT_TRUE(hasEnded());
  EXPECT_EQ(ended_->message, "\"Sort\" was cancelled. 2 of 4 items were moved: a\\n1, b.");
  ASSERT_EQ(ended_->done.size(), 1U);
  EXPECT_EQ(ended_->done[0].heading, "Moved before the end");
  EXPECT_THAT(ended_->done[0].paths, ElementsAre(at("to/a\n1"), at("to/b")));
  EXPECT_TRUE(ended_->cancelled);
  EXPECT_FALSE(ended_->toldByAction) << "somebody has to tell it";
  EXPECT_TRUE(exists(at("to/b")) && exists(at("c")) && exists(at("d")));
  EXPECT_FALSE(exists(at("b")) || exists(at("to/c")));
  EXPECT_THAT(notifications_.delivered(), IsEmpty()) << "not an error that occurred";
}

TEST_F(CancelledRunTest, AMoveThatWasDoneAlreadyIsASuccess) {
  CancellingFileManager files(*real_.fileManager, 2);
  installServices(&files);
  run(*to<TVMoveToAction>("to"), {make("a"), make("b")});
  ASSERT_TRUE(hasEnded());
  EXPECT_TRUE(ended_->success);
  EXPECT_EQ(notifications_.delivered().size(), 1U);
}

TEST_F(CancelledRunTest, ThePrecedingItemsOfACopyStayCopiedAndManyAreNotAllNamed) {
  CancellingFileManager files(*real_.fileManager, 7);
  installServices(&files);
  std::vector<std::string> paths;
  for (int item = 0; item < 9; ++item) paths.push_back(make("f" + std::to_string(item)));
  run(*to<TVCopyToAction>("to"), paths);
  ASSERT_TRUE(hasEnded());
  EXPECT_EQ(ended_->message,
            "\"Sort\" was cancelled. 7 of 9 items were copied: f0, f1, f2, f3, f4 and 2 more.");
  ASSERT_EQ(ended_->done.size(), 1U);
  EXPECT_EQ(ended_->done[0].paths.size(), 7U);
  EXPECT_EQ(std::distance(fs::directory_iterator(at("to")), fs::directory_iterator()), 7);
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
}

TEST_F(CancelledRunTest, WithNothingDoneThereIsNothingToTell) {
  installServices();
  const auto action = to<TVCopyToAction>("to");
  const auto job = run(*action, {make("a")});
  job->cancel();
  ASSERT_TRUE(hasEnded());
  if (ended_->cancelled) {
    EXPECT_EQ(ended_->message, "\"Sort\" was cancelled.");
    EXPECT_TRUE(ended_->toldByAction);
    EXPECT_FALSE(exists(at("to/a")));
  } else {
    ADD_FAILURE() << ended_->message;
  }
}

TEST_F(CancelledRunTest, TheProgramsOfAScriptEndWithIt) {
  installServices();
  const auto action = script("(bash -c 'echo $$ > " + at("grandchild") +
                             "; exec sleep 1000') &\nbash -c 'echo $$ > " + at("child") +
                             "; sleep 1000'\necho never > " + at("after") + "\n");
  const auto job = run(*action, {make("a")});
  ASSERT_TRUE(waitUntil(
      [&] { return !processIn(at("child")).empty() && !processIn(at("grandchild")).empty(); }, 60));
  const std::string child = processIn(at("child"));
  const std::string grandchild = processIn(at("grandchild"));
  ASSERT_TRUE(isAtWork(child) && isAtWork(grandchild));
  job->cancel();
  ASSERT_TRUE(hasEnded());
  EXPECT_TRUE(ended_->cancelled);
  EXPECT_FALSE(isAtWork(child));
  EXPECT_FALSE(isAtWork(grandchild));
  EXPECT_FALSE(exists(at("after")));
}

TEST_F(CancelledRunTest, AProgramOfAScriptThatDoesNotWantToEndIsKilled) {
  installServices();
  const auto job = run(*script("bash -c 'trap \"\" TERM; echo $$ > " + at("child") +
                               "; while :; do sleep 0.1; done'\n"),
                       {make("a")});
  ASSERT_TRUE(waitUntil([&] { return !processIn(at("child")).empty(); }, 60));
  const std::string child = processIn(at("child"));
  job->cancel();
  ASSERT_TRUE(hasEnded());
  EXPECT_TRUE(ended_->cancelled);
  EXPECT_TRUE(waitUntil([&] { return !isAtWork(child); }));
}

TEST_F(CancelledRunTest, WhatTheScriptsNeighboursStartedGoesOn) {
  installServices();
  const auto other =
      run(*script("echo $$ > " + at("other") + "; sleep 1000\n", "other.sh"), {make("a")});
  ASSERT_TRUE(waitUntil([&] { return !processIn(at("other")).empty(); }, 60));
  const std::string process = processIn(at("other"));
  const auto job = run(*script("sleep 1000\n"), {make("b")});
  job->cancel();
  ASSERT_TRUE(hasEnded());
  EXPECT_TRUE(isAtWork(process));
  ended_.reset();
  other->cancel();
  ASSERT_TRUE(hasEnded());
}

TEST_F(CancelledRunTest, ASecureDeleteSaysWhatIsLost) {
  installServices();
  const std::string megabyte(1 << 20, 'x');
  {
    std::ofstream film(at("film"), std::ios::binary);
    for (int count = 0; count < 256; ++count) film << megabyte;
  }
  const auto job = run(*removal(), {at("film"), make("note")});
  const auto film = job->runningProcesses().front();
  ASSERT_EQ(film->arguments().back(), at("film"));
  // Held while it has written a part.
  while (bytesWrittenBy(film->processIdentifier()) == 0 && film->isRunning()) {
  }
  ASSERT_TRUE(film->suspend());
  ASSERT_TRUE(waitUntil(
      [&] { return job->runningProcesses().size() == 1 && job->progress().bytes.bytesDone > 0; },
      60));
  const auto fraction = job->progress().fraction();
  ASSERT_TRUE(fraction);
  EXPECT_GT(*fraction, 0.0);
  EXPECT_LT(*fraction, 1.0);
  EXPECT_EQ(job->progress().itemsDone, 1U);
  job->cancel();
  ASSERT_TRUE(hasEnded());
  EXPECT_EQ(ended_->message,
            "\"Secure Delete\" was cancelled. Of 2 items 1 is gone: note; 1 is overwritten or "
            "removed in part, and what was there is lost though the name is still there: film; 0 "
            "are untouched.");
  ASSERT_EQ(ended_->done.size(), 2U);
  EXPECT_THAT(ended_->done[0].paths, ElementsAre(at("note")));
  EXPECT_THAT(ended_->done[1].paths, ElementsAre(at("film")));
  EXPECT_FALSE(ended_->toldByAction);
  EXPECT_TRUE(exists(at("film")));
  EXPECT_THAT(notifications_.delivered(), IsEmpty()) << "no success";
}

TEST_F(CancelledRunTest, ItemsOfASecureDeleteAreLookedAtWithAllThatLiesInThem) {
  const std::vector<std::string> paths{make("gone"), make("changed"), make("same"),
                                       at("folder"), at("other"),     at("never")};
  make("folder/deep/down/file");
  make("other/deep/file");
  // What the clock of the file system says must go on first.
  const auto made = std::chrono::steady_clock::now();
  ASSERT_TRUE(waitUntil(
      [&] { return std::chrono::steady_clock::now() - made > std::chrono::milliseconds(50); }));
  const RemovalWatch watch(std::make_shared<Job>(JobSubject{"", "", "", paths}));
  EXPECT_EQ(watch.report().text, "");
  fs::remove(at("gone"));
  make("changed", "other text");
  make("folder/deep/down/file", "other text");
  const auto report = watch.report();
  EXPECT_EQ(report.text,
            "Of 5 items 1 is gone: gone; 2 are overwritten or removed in part, and what was there "
            "is lost though the name is still there: changed, folder; 2 are untouched.");
}

TEST_F(CancelledRunTest, TheWindowThatAsksIsClosedAndNothingElseIsAsked) {
  installServices();
  bundle_.path = make("window", "#!/bin/sh\necho $$ > \"$0.pid\"\nexec sleep 1000\n");
  fs::permissions(bundle_.path, fs::perms::owner_all);
  const auto job = run(*removal(), {make("a")}, {askerOfDesktop(), passwordAskerOfDesktop()});
  ASSERT_TRUE(waitUntil([&] { return !processIn(bundle_.path + ".pid").empty(); }, 60));
  EXPECT_EQ(job->state(), JobState::waiting);
  const std::string window = processIn(bundle_.path + ".pid");
  ASSERT_TRUE(isAtWork(window));
  job->cancel();
  ASSERT_TRUE(hasEnded());
  EXPECT_EQ(ended_->message, "\"Secure Delete\" was cancelled.");
  EXPECT_TRUE(waitUntil([&] { return !isAtWork(window); }));
  EXPECT_TRUE(waitUntil([&] { return platform_.processes().runningProcesses() == 0; }));
  EXPECT_TRUE(exists(at("a")));
}

TEST_F(CancelledRunTest, AMoveAcrossFileSystemsTellsHowFarItIs) {
  installServices();
  const std::string megabyte(1 << 20, 'x');
  {
    std::ofstream film(at("film"), std::ios::binary);
    for (int count = 0; count < 64; ++count) film << megabyte;
  }
  const MemoryTemporaryFolder memory;
  const fs::path elsewhere =
      fs::temp_directory_path() / ("tervano-move-" + std::to_string(getpid()));
  fs::create_directory(elsewhere);
  struct stat here {};
  struct stat there {};
  ASSERT_EQ(stat(at("film").c_str(), &here), 0);
  ASSERT_EQ(stat(elsewhere.c_str(), &there), 0);
  ASSERT_NE(here.st_dev, there.st_dev) << "needs two file systems";
  TVMoveToAction action;
  action.init();
  action.setDestinationURL(Url::fileURLWithPath(elsewhere.string(), true));
  std::vector<double> fractions;
  const auto job = run(*action.copy(), {at("film"), make("note")});
  job->setProgressHandler([&] { fractions.push_back(job->progress().fraction().value_or(-1)); });
  ASSERT_TRUE(hasEnded());
  job->setProgressHandler(nullptr);
  EXPECT_TRUE(ended_->success) << ended_->message;
  EXPECT_FALSE(fractions.empty());
  for (const double fraction : fractions) {
    EXPECT_GE(fraction, 0.0);
    EXPECT_LE(fraction, 1.0);
  }
  EXPECT_EQ(job->progress().fraction(), 1.0);
  fs::remove_all(elsewhere);
}

}  // namespace tervano::test
