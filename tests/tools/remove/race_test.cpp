#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <filesystem>
#include <functional>
#include <mutex>
#include <thread>

#include "tests/tools/remove/remove_test.h"
#include "tools/remove/removal.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;

// Somebody who changes the tree while it is removed, as fast as possible.
class Rival {
 public:
  explicit Rival(std::function<bool()> turn) : turn_(std::move(turn)) {}
  Rival(const Rival&) = delete;
  Rival& operator=(const Rival&) = delete;
  ~Rival() {
    ends_ = true;
    thread_.join();
  }

  // Holds the rival still.
  std::unique_lock<std::mutex> pause() { return std::unique_lock(mutex_); }
  // How often a change succeeded.
  int changes() const { return changes_; }

 private:
  const std::function<bool()> turn_;
  std::mutex mutex_;
  std::atomic<bool> ends_ = false;
  std::atomic<int> changes_ = 0;
  std::thread thread_{[this] {
    while (!ends_) {
      {
        const std::scoped_lock lock(mutex_);
        if (turn_()) ++changes_;
      }
      std::this_thread::yield();
    }
  }};
};

// The tool removes "tree" over and over while a rival exchanges something in it for something that
// leads to "victim".
class RaceTest : public MemoryRemoveTest {
 protected:
  void SetUp() override {
    file("victim/inside", marker());
    file("victim/folder/inside", marker());
    file("victim/file", marker());
  }

  bool exchange(const std::string& one, const std::string& other) const {
    return renameat2(AT_FDCWD, at(one).c_str(), AT_FDCWD, at(other).c_str(), RENAME_EXCHANGE) == 0;
  }
  bool rename(const std::string& from, const std::string& to) const {
    return renameat2(AT_FDCWD, at(from).c_str(), AT_FDCWD, at(to).c_str(), RENAME_NOREPLACE) == 0;
  }

  void contest(
      int rounds, const std::function<void()>& prepare, const std::function<bool()>& turn,
      const std::function<void()>& check = [] {}) const {
    const Descriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    constexpr int kChanges = 100;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    Rival rival(turn);
    for (int round = 0; round < rounds || rival.changes() < kChanges; ++round) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the rival hardly had a turn";
      {
        const auto pause = rival.pause();
        fs::remove_all(at("tree"));
        fs::remove_all(at("bait"));
        prepare();
      }
      // What fails because of the rival is of no interest here.
      Report report(true, nowhere.get(), nowhere.get());
      Removal({true, true, round % 2 == 0}, report).remove(at("tree"));
      const auto pause = rival.pause();
      ASSERT_EQ(contentsOf(at("victim/inside")), marker()) << round;
      ASSERT_EQ(contentsOf(at("victim/folder/inside")), marker()) << round;
      ASSERT_EQ(contentsOf(at("victim/file")), marker()) << round;
      check();
    }
  }
};

TEST_F(RaceTest, AFolderThatBecomesALinkLeadsNowhere) {
  contest(
      1000,
      [&] {
        file("tree/sub/inside", "x");
        file("tree/sub/folder/inside", "x");
        fs::create_directory_symlink(at("victim"), at("bait"));
      },
      [&] { return exchange("tree/sub", "bait"); });
}

TEST_F(RaceTest, ATreeThatBecomesALinkLeadsNowhere) {
  contest(
      1000,
      [&] {
        file("tree/inside", "x");
        file("tree/folder/inside", "x");
        fs::create_directory_symlink(at("victim"), at("bait"));
      },
      [&] { return exchange("tree", "bait"); });
}

TEST_F(RaceTest, AFolderThatTakesThePlaceOfTheTreeKeepsItsFolders) {
  contest(
      1000,
      [&] {
        for (const char* const name : {"0", "1", "2", "3"})
          file("tree/a/" + std::string(name), "x");
        file("bait/contents");
        folder("bait/empty");
      },
      [&] { return exchange("tree", "bait"); },
      [&] {
        // Whoever's contents were not removed has its folders as well.
        for (const char* const place : {"tree", "bait"}) {
          EXPECT_TRUE(!exists(at(place) + "/contents") || exists(at(place) + "/empty"));
        }
      });
}

TEST_F(RaceTest, AFileThatBecomesALinkLeadsNowhere) {
  contest(
      1000,
      [&] {
        for (const char* const name : {"tree/0", "tree/1", "tree/file"}) file(name, "x");
        fs::create_symlink(at("victim/file"), at("bait"));
      },
      [&] { return exchange("tree/file", "bait"); });
}

TEST_F(RaceTest, AFileThatBecomesAnotherNameOfTheVictimDoesNoHarm) {
  contest(
      1000,
      [&] {
        for (const char* const name : {"tree/0", "tree/1", "tree/file"}) file(name, "x");
        fs::create_hard_link(at("victim/file"), at("bait"));
      },
      [&] { return exchange("tree/file", "bait"); });
}

TEST_F(RaceTest, AFileThatBecomesAPipeHoldsNobodyUp) {
  contest(
      1000,
      [&] {
        file("tree/file", "x");
        ASSERT_EQ(mkfifo(at("bait").c_str(), 0600), 0);
      },
      [&] { return exchange("tree/file", "bait"); });
}

TEST_F(RaceTest, AFileThatBecomesAFolderDoesNoHarm) {
  contest(
      1000,
      [&] {
        file("tree/file", "x");
        file("bait/inside", "x");
      },
      [&] { return exchange("tree/file", "bait"); });
}

TEST_F(RaceTest, AFolderThatIsMovedAwayLeadsNowhere) {
  // Deeper than the folders that the walk keeps open.
  std::string deep = "tree/sub";
  for (int level = 0; level < 20; ++level) deep += "/d";
  contest(
      300,
      [&] {
        fs::remove_all(at("victim/sub"));
        file(deep + "/inside", "x");
      },
      [&] { return rename("tree/sub", "victim/sub") || rename("victim/sub", "tree/sub"); });
}

// Two names of one file are removed at the same moment.
class LastNameTest : public MemoryRemoveTest {
 protected:
  // Removes "one" and "two" with one thread each, as two processes do or as two threads of one.
  void removeBoth(ItemRemoval& first, ItemRemoval& second) {
    const auto folder = RemovalFolder::open(folder_.get());
    ASSERT_TRUE(folder);
    std::atomic<int> ready = 0;
    const auto removeName = [&](ItemRemoval& removal, const std::string& name) {
      RandomBytes random;
      ++ready;
      while (ready < 2) std::this_thread::yield();
      removal.overwriteAndUnlink(*folder, name, name, random);
    };
    std::thread other(removeName, std::ref(second), "two");
    removeName(first, "one");
    other.join();
  }

  const std::string path_ = folder("tree");
  const Descriptor folder_{open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  const Descriptor nowhere_{open("/dev/null", O_WRONLY | O_CLOEXEC)};
  Report report_{false, nowhere_.get(), nowhere_.get()};
  IncompleteFolders incomplete_;
};

TEST_F(LastNameTest, TwoProcessesOverwriteTheContents) {
  for (int round = 0; round < 2000; ++round) {
    const Witness witness(file("tree/one", marker()));
    fs::create_hard_link(at("tree/one"), at("tree/two"));
    ItemRemoval first(report_, incomplete_);
    ItemRemoval second(report_, incomplete_);
    removeBoth(first, second);
    ASSERT_EQ(witness.status().st_nlink, 0u) << round;
    ASSERT_EQ(countOf(witness.contents(), "nobody"), 0u) << round;
  }
}

TEST_F(LastNameTest, WithinOneProcessOneNameStaysWhenTheContentsCannotBeOverwritten) {
  inChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    for (int round = 0; round < 2000; ++round) {
      file("tree/one", marker());
      fs::create_hard_link(at("tree/one"), at("tree/two"));
      const rlimit nothing{0, RLIM_INFINITY};
      ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &nothing), 0);
      ItemRemoval removal(report_, incomplete_);
      removeBoth(removal, removal);
      const rlimit everything{RLIM_INFINITY, RLIM_INFINITY};
      ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &everything), 0);
      ASSERT_NE(exists(at("tree/one")), exists(at("tree/two"))) << round;
      fs::remove(at("tree/one"));
      fs::remove(at("tree/two"));
    }
  });
}

TEST_F(RemoveTest, AFileThatTakesThePlaceOfOneBeingOverwrittenStays) {
  const std::string path = file("tree/file");
  const std::string newer = file("newer", marker());
  const Descriptor large(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(posix_fallocate(large.get(), 0, off_t{256} << 20), 0);
  const Descriptor events(inotify_init1(IN_CLOEXEC));
  ASSERT_GE(inotify_add_watch(events.get(), path.c_str(), IN_MODIFY), 0);
  std::thread rival([&] {
    char event[sizeof(inotify_event) + NAME_MAX + 1];
    ASSERT_GT(read(events.get(), event, sizeof event), 0);
    ASSERT_EQ(renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, newer.c_str(), RENAME_EXCHANGE), 0);
  });
  const auto outcome = removeSecurely(path);
  rival.join();
  expectFailures(outcome, {sentence(path, "another item took its place meanwhile")});
  EXPECT_EQ(contentsOf(path), marker());
}

}  // namespace
}  // namespace tervano::test
