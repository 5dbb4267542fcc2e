#include "history/history_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "history/job_history.h"
#include "platform/run_loop.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::chrono::milliseconds kSoon(10'000);

class HistoryWriterTest : public testing::Test {
 protected:
  HistoryWriterTest() : log_(*platform_.services().log) { platform_.services().log = &log_; }

  std::string at(const std::string& name) const { return platform_.home().path() + "/" + name; }
  std::string make(const std::string& name) const {
    std::ofstream(at(name)) << name;
    return at(name);
  }
  static std::shared_ptr<Job> job(std::vector<std::string> paths = {}) {
    return std::make_shared<Job>(JobSubject{"UID", "Title", "TVMoveToAction", std::move(paths)});
  }
  std::unique_ptr<HistoryWriter> writer() {
    return std::make_unique<HistoryWriter>(
        path_, [this](const std::shared_ptr<Job>& numbered) { numbered_.push_back(numbered); });
  }
  // Writes one job from its beginning to its end.
  void write(HistoryWriter& writer, const std::shared_ptr<Job>& job, JobState end,
             const std::string& message = "") {
    job->setState(JobState::running);
    writer.add(job);
    job->setState(end);
    writer.end(job, message);
    EXPECT_TRUE(writer.waitUntilWritten(kSoon));
  }
  std::unique_ptr<JobHistory> history() const { return JobHistory::open(path_); }
  mode_t modeOf(const std::string& path) const {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }
  void execute(const std::string& statement) const {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path_.c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, statement.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
  }

  // What is still told when the platform ends is told to it.
  std::vector<std::shared_ptr<Job>> numbered_;
  ScopedPlatform platform_;
  RecordingLog log_;
  std::string path_ = at("state/tervano/history.sqlite");
};

}  // namespace

TEST_F(HistoryWriterTest, AJobIsThereFromItsBeginningToItsEnd) {
  const auto writing = writer();
  const auto running = job({make("a"), at("caf\xE9")});
  running->setState(JobState::running);
  writing->add(running);
  EXPECT_TRUE(waitUntil([&] { return !numbered_.empty(); }));
  EXPECT_EQ(running->number(), 1);
  auto recorded = history()->job(1);
  ASSERT_TRUE(recorded);
  EXPECT_EQ(recorded->state, RecordedState::running);
  EXPECT_EQ(recorded->ended, 0);
  EXPECT_EQ(recorded->process, ProcessIdentity::ofThisProcess());
  EXPECT_EQ(history()->paths(1), (std::vector<std::string>{at("a"), at("caf\xE9")}));

  running->addOutput("printed");
  running->complain("One.");
  running->complain("Two\nlines.");
  running->setState(JobState::failed);
  writing->end(running, "It failed.");
  EXPECT_TRUE(writing->waitUntilWritten(kSoon));
  recorded = history()->job(1);
  ASSERT_TRUE(recorded);
  EXPECT_EQ(recorded->state, RecordedState::failed);
  EXPECT_EQ(recorded->message, "It failed.");
  EXPECT_EQ(recorded->output, "printed");
  EXPECT_EQ(recorded->complaints, (std::vector<std::string>{"One.", "Two\nlines."}));
  EXPECT_GE(recorded->ended, recorded->began);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(HistoryWriterTest, ChangesAreWrittenWhileTheJobRuns) {
  const auto writing = writer();
  const auto running = job();
  running->setState(JobState::running);
  writing->add(running);
  running->addChange({JobChange::Kind::moved, at("was"), make("is")});
  EXPECT_TRUE(waitUntil(
      [&] { return running->number() != 0 && !history()->changes(running->number()).empty(); }));
  const auto changes = history()->changes(running->number());
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0].change, (JobChange{JobChange::Kind::moved, at("was"), at("is")}));
  EXPECT_EQ(changes[0].state, itemStateAt(at("is"), ItemDepth::itself));
  writing->end(running, "");
}

TEST_F(HistoryWriterTest, AnItemThatGetsAttributesAfterItWasMadeIsKnownAsItIs) {
  const auto writing = writer();
  const auto running = job();
  writing->add(running);
  running->addChange({JobChange::Kind::made, "", make("new")});
  fs::last_write_time(at("new"), fs::file_time_type::clock::now() - std::chrono::hours(1));
  running->itemDidChange(at("new"));
  writing->end(running, "");
  EXPECT_TRUE(writing->waitUntilWritten(kSoon));
  const auto changes = history()->changes(1);
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0].state, itemStateAt(at("new"), ItemDepth::withContents));
}

TEST_F(HistoryWriterTest, NobodyElseCanReadIt) {
  const auto writing = writer();
  const auto running = job();
  writing->add(running);
  EXPECT_TRUE(waitUntil([&] { return running->number() != 0; }));
  EXPECT_EQ(modeOf(at("state/tervano")), 0700U);
  for (const std::string suffix : {"", "-wal", "-shm"}) EXPECT_EQ(modeOf(path_ + suffix), 0600U);
  writing->end(running, "");
}

TEST_F(HistoryWriterTest, AFileThatOthersMayReadIsClosedToThem) {
  write(*writer(), job(), JobState::succeeded);
  fs::permissions(path_, fs::perms::all);
  history();
  EXPECT_EQ(modeOf(path_), 0600U);
}

TEST_F(HistoryWriterTest, SeveralWritersAtOnceLoseNothing) {
  constexpr int kWriters = 4;
  constexpr int kJobsOfEach = 10;
  std::vector<std::unique_ptr<HistoryWriter>> writers;
  std::vector<std::shared_ptr<Job>> jobs;
  for (int at = 0; at < kWriters; ++at) writers.push_back(writer());
  for (int round = 0; round < kJobsOfEach; ++round) {
    for (const auto& writing : writers) {
      jobs.push_back(job());
      writing->add(jobs.back());
      jobs.back()->addChange({JobChange::Kind::moved, "/a", "/b"});
      jobs.back()->setState(JobState::succeeded);
      writing->end(jobs.back(), "");
    }
  }
  for (const auto& writing : writers) EXPECT_TRUE(writing->waitUntilWritten(kSoon));
  const auto recorded = history()->jobs(1000);
  EXPECT_EQ(recorded.size(), std::size_t{kWriters} * kJobsOfEach);
  for (const auto& each : recorded) {
    EXPECT_EQ(each.state, RecordedState::succeeded);
    EXPECT_EQ(each.changes, 1U);
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(HistoryWriterTest, ADamagedHistoryIsOneLogLineAndHoldsNobodyUp) {
  fs::create_directories(at("state/tervano"));
  std::ofstream(path_) << std::string(8192, 'x');
  write(*writer(), job(), JobState::succeeded);
  ASSERT_EQ(log_.lines().size(), 1U);
  EXPECT_THAT(log_.lines()[0], HasSubstr("Nothing more is written to the history: The history " +
                                         path_ + " cannot be used: "));
}

TEST_F(HistoryWriterTest, AHistoryOfANewerVersionStaysAsItIs) {
  write(*writer(), job(), JobState::succeeded);
  execute("PRAGMA user_version = 2");
  write(*writer(), job(), JobState::succeeded);
  ASSERT_EQ(log_.lines().size(), 1U);
  EXPECT_THAT(log_.lines()[0], HasSubstr("is of a newer version of Tervano and is left as it is."));
  execute("PRAGMA user_version = 1");
  EXPECT_EQ(history()->jobs(10).size(), 1U);
}

TEST_F(HistoryWriterTest, AFolderThatCannotBeMadeIsOneLogLine) {
  std::ofstream(at("state")) << "a file";
  write(*writer(), job(), JobState::succeeded);
  ASSERT_EQ(log_.lines().size(), 1U);
  EXPECT_THAT(log_.lines()[0], HasSubstr("cannot be made"));
}

TEST_F(HistoryWriterTest, ALockedHistoryHoldsTheMainThreadUpForAMomentOnly) {
  write(*writer(), job(), JobState::succeeded);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  const auto writing = writer();
  const auto late = job();
  const auto begun = steady_clock::now();
  writing->add(late);
  late->addChange({JobChange::Kind::moved, "/a", "/b"});
  late->setState(JobState::succeeded);
  writing->end(late, "");
  EXPECT_LT(steady_clock::now() - begun, std::chrono::milliseconds(1000));
  EXPECT_FALSE(writing->waitUntilWritten(std::chrono::milliseconds(300)));
  ASSERT_EQ(sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(other);
  EXPECT_TRUE(writing->waitUntilWritten(kSoon));
  EXPECT_EQ(history()->jobs(10).size(), 2U);
  EXPECT_EQ(history()->changes(2).size(), 1U);
}

TEST_F(HistoryWriterTest, AHistoryThatStaysLockedIsGivenUpInABoundedTime) {
  write(*writer(), job(), JobState::succeeded);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  const auto begun = steady_clock::now();
  {
    const auto writing = writer();
    const auto late = job();
    writing->add(late);
    writing->end(late, "");
  }
  EXPECT_LT(steady_clock::now() - begun, std::chrono::seconds(5));
  EXPECT_EQ(log_.lines().size(), 1U);
  sqlite3_close(other);
}

TEST_F(HistoryWriterTest, OnlyTheLastJobsAreKept) {
  const auto recorded = history();
  {
    const auto transaction = recorded->begin();
    for (std::size_t at = 0; at < JobHistory::kKeptJobs + 20; ++at) {
      const auto each = job({"/a"});
      const auto number = recorded->add(*each, 1);
      each->setState(JobState::succeeded);
      recorded->end(number, *each, "", 2);
    }
    transaction->commit();
  }
  const auto jobs = recorded->jobs(10'000);
  EXPECT_LE(jobs.size(), JobHistory::kKeptJobs + 1);
  EXPECT_GE(jobs.size(), JobHistory::kKeptJobs);
  EXPECT_EQ(jobs.front().number, static_cast<std::int64_t>(JobHistory::kKeptJobs + 20));
  EXPECT_THAT(recorded->paths(1), IsEmpty());
}

TEST_F(HistoryWriterTest, AHundredThousandFilesAreWrittenQuicklyAndBounded) {
  const auto writing = writer();
  const auto large = job(std::vector<std::string>(JobHistory::kKeptChanges + 10, at("chosen")));
  large->setState(JobState::running);
  const auto begun = steady_clock::now();
  writing->add(large);
  for (std::size_t index = 0; index < JobHistory::kKeptChanges + 10; ++index) {
    large->addChange({JobChange::Kind::moved, at("a/quite/long/name/of/a/file"), at("none")});
  }
  large->setState(JobState::succeeded);
  writing->end(large, "");
  EXPECT_TRUE(writing->waitUntilWritten(std::chrono::seconds(60)));
  RecordProperty("milliseconds", static_cast<int>((steady_clock::now() - begun).count() / 1000000));
  const auto recorded = history()->job(1);
  ASSERT_TRUE(recorded);
  EXPECT_EQ(recorded->changes, JobHistory::kKeptChanges);
  EXPECT_FALSE(recorded->isComplete);
  EXPECT_EQ(recorded->itemsTotal, JobHistory::kKeptChanges + 10);
  EXPECT_EQ(history()->paths(1).size(), JobHistory::kKeptPaths);
  EXPECT_LT(fs::file_size(path_), 50U << 20);
}

TEST_F(HistoryWriterTest, ChangesOfTheOldestJobsGoFirst) {
  const auto recorded = history();
  std::vector<RecordedChange> changes;
  for (std::size_t at = 0; at < JobHistory::kKeptChanges; ++at) {
    changes.push_back({at, {JobChange::Kind::moved, "/a", "/b"}, std::nullopt, false});
  }
  for (int round = 0; round < 4; ++round) {
    const auto transaction = recorded->begin();
    const auto each = job();
    const auto number = recorded->add(*each, 1);
    recorded->addChanges(number, changes);
    transaction->commit();
  }
  EXPECT_FALSE(recorded->job(1)->isComplete);
  EXPECT_EQ(recorded->job(1)->changes, 0U);
  EXPECT_TRUE(recorded->job(4)->isComplete);
  EXPECT_EQ(recorded->job(4)->changes, JobHistory::kKeptChanges);
}

TEST_F(HistoryWriterTest, AJobOfADeadProcessIsInterruptedAndToldOnce) {
  {
    const auto writing = writer();
    const auto running = job();
    running->setState(JobState::running);
    writing->add(running);
    EXPECT_TRUE(waitUntil([&] { return running->number() != 0; }));
    auto recorded = history();
    recorded->findInterruptedJobs();
    EXPECT_EQ(recorded->job(1)->state, RecordedState::running);
  }
  execute("UPDATE job SET process = 'another start'");
  auto recorded = history();
  recorded->findInterruptedJobs();
  EXPECT_EQ(recorded->job(1)->state, RecordedState::interrupted);
  EXPECT_THAT(recorded->openJobs(), IsEmpty());
  EXPECT_EQ(recorded->takeUntoldInterruptedJobs().size(), 1U);
  EXPECT_THAT(recorded->takeUntoldInterruptedJobs(), IsEmpty());
}

TEST_F(HistoryWriterTest, WithoutAFileThereIsNoHistoryAndNoneIsMade) {
  EXPECT_EQ(JobHistory::openExisting(path_), nullptr);
  EXPECT_FALSE(fs::exists(path_));
}

}  // namespace tervano::test
