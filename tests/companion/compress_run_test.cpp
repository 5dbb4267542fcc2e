#include "companion/compress_run.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "prefs/tv_user_defaults.h"
#include "tests/companion/file_work_test.h"
#include "tests/support/child_process.h"
#include "tests/support/run_program.h"
#include "tests/support/secret_of.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kArchivePassword[] = "correct horse";

// Archives of what lies in the folder "docs".
class CompressRunTest : public FileWorkTest {
 protected:
  CompressRunTest() { fs::create_directory(at("docs")); }

  FileWorkOutcome compress(const std::vector<std::string>& paths) {
    return outcomeOf([&](FileWorkEnd finished) {
      compressFiles(paths, secretOf(kArchivePassword), monitor_, std::move(finished));
    });
  }
  std::string contentIn(const std::string& archive, const std::string& name) const {
    return runProgram({"/usr/bin/bsdtar",
                       {"-xO", "--passphrase", kArchivePassword, "-f", at(archive), name}})
        .output;
  }
};

}  // namespace

TEST_F(CompressRunTest, OneItemGivesTheArchiveItsName) {
  EXPECT_TRUE(compress({make("docs/photo.jpg", "picture")}).success);
  EXPECT_THAT(namesIn("docs"), ElementsAre("photo.jpg", "photo.jpg.zip"));
  EXPECT_EQ(contentIn("docs/photo.jpg.zip", "photo.jpg"), "picture");
  EXPECT_EQ(told(), "Finished compressing 'photo.jpg.zip'");
  const auto notification = notifications_.delivered().front();
  EXPECT_EQ(notification.userInfo.at("path"), Value(at("docs/photo.jpg.zip")));
  EXPECT_EQ(notification.actionButtonTitle, "Show");
}

TEST_F(CompressRunTest, SeveralItemsGiveItTheNameOfTheirFolder) {
  EXPECT_TRUE(compress({make("docs/a", "1"), make("docs/b", "2")}).success);
  EXPECT_THAT(namesIn("docs"), ElementsAre("a", "b", "docs.zip"));
  EXPECT_EQ(contentIn("docs/docs.zip", "a"), "1");
  EXPECT_EQ(contentIn("docs/docs.zip", "b"), "2");
}

TEST_F(CompressRunTest, TheNamesOfArchives) {
  EXPECT_EQ(archivePathFor({"/a/b"}), "/a/b.zip");
  EXPECT_EQ(archivePathFor({"/a/b/"}), "/a/b.zip");
  EXPECT_EQ(archivePathFor({"/a/.hidden"}), "/a/.hidden.zip");
  EXPECT_EQ(archivePathFor({"/a/b", "/a//b"}), "/a/b.zip") << "one item, spelled twice";
  EXPECT_EQ(archivePathFor({"/a/b/c", "/x/d"}), "/a/b/b.zip");
  EXPECT_EQ(archivePathFor({"/etc", "/usr"}), "/Archive.zip");
  EXPECT_EQ(archivePathFor({"/a/" + std::string(255, 'n')}),
            "/a/" + std::string(251, 'n') + ".zip");
}

TEST_F(CompressRunTest, AnArchiveIsNeverReplaced) {
  make("docs/a.zip", "something else");
  EXPECT_TRUE(compress({make("docs/a")}).success);
  EXPECT_TRUE(compress({at("docs/a")}).success);
  EXPECT_EQ(contentsOf(at("docs/a.zip")), "something else");
  EXPECT_THAT(namesIn("docs"), ElementsAre("a", "a 2.zip", "a 3.zip", "a.zip"));
}

TEST_F(CompressRunTest, TwoAtOnceGetTwoNames) {
  int ended = 0;
  const auto path = make("docs/a", std::string(500'000, 'x'));
  for (int i = 0; i < 3; ++i) {
    compressFiles({path}, secretOf(kArchivePassword), {}, [&](const auto& outcome) {
      EXPECT_TRUE(outcome.success);
      ++ended;
    });
  }
  ASSERT_TRUE(waitUntil([&] { return ended == 3; }, 60));
  EXPECT_THAT(namesIn("docs"), ElementsAre("a", "a 2.zip", "a 3.zip", "a.zip"));
}

TEST_F(CompressRunTest, ItemsOfOneNameFromTwoFoldersAreNumbered) {
  EXPECT_TRUE(compress({make("docs/a.txt", "1"), make("other/a.txt", "2")}).success);
  EXPECT_EQ(contentIn("docs/docs.zip", "a.txt"), "1");
  EXPECT_EQ(contentIn("docs/docs.zip", "a 2.txt"), "2");
}

TEST_F(CompressRunTest, TheArchiveHasTheModeOfANewFileAndTheHiddenOneIsPrivate) {
  mode_t during = 0;
  monitor_.progress = [&](const WorkProgress&) {
    for (const auto& entry : fs::directory_iterator(at("docs"))) {
      if (!entry.path().filename().string().starts_with(".tervano-")) continue;
      struct stat status {};
      if (stat(entry.path().c_str(), &status) == 0) during = status.st_mode & 07777;
    }
  };
  std::string text;
  for (int i = 0; i < 4'000'000; ++i) text += std::to_string(i);
  const auto path = make("docs/a", text);
  const mode_t mask = umask(027);
  EXPECT_TRUE(compress({path}).success);
  umask(mask);
  EXPECT_EQ(during, 0600u);
  struct stat status {};
  ASSERT_EQ(stat(at("docs/a.zip").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(CompressRunTest, AFailureLeavesNothing) {
  const auto outcome = compress({make("docs/a"), at("docs/gone")});
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.error->code, ENOENT);
  EXPECT_THAT(namesIn("docs"), ElementsAre("a"));
  EXPECT_TRUE(notifications_.delivered().empty()) << "whoever runs it tells";
  EXPECT_TRUE(fs::is_empty(at(".local/state/tervano/unfinished")));
}

TEST_F(CompressRunTest, AStopInTheMiddleLeavesNothing) {
  make("docs/big", std::string(200'000'000, 'x'));
  monitor_.progress = [&](const WorkProgress& progress) {
    if (progress.bytesDone > 0) monitor_.cancel.cancel();
  };
  const auto outcome = compress({at("docs/big")});
  EXPECT_TRUE(outcome.cancelled);
  EXPECT_FALSE(outcome.success);
  EXPECT_THAT(namesIn("docs"), ElementsAre("big"));
  EXPECT_TRUE(notifications_.delivered().empty());
}

TEST_F(CompressRunTest, TheMainLoopGoesOnMeanwhile) {
  make("docs/big", std::string(50'000'000, 'x'));
  bool ended = false;
  int turns = 0;
  compressFiles({at("docs/big")}, secretOf(kArchivePassword), {},
                [&](const auto&) { ended = true; });
  while (!ended && turns < 1000) {
    bool ran = false;
    platform().runLoop->dispatchAsyncOnMainQueue([&] { ran = true; });
    ASSERT_TRUE(waitUntil([&] { return ran; }));
    ++turns;
  }
  EXPECT_GT(turns, 1);
  EXPECT_TRUE(waitUntil([&] { return ended; }, 60));
}

TEST_F(CompressRunTest, OnlyPipesIsAFailureThatSaysSo) {
  ASSERT_EQ(mkfifo(at("docs/pipe").c_str(), 0600), 0);
  const auto outcome = compress({at("docs/pipe")});
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.error->message,
            "There is nothing to pack: sockets, pipes and devices have no content.");
  EXPECT_THAT(namesIn("docs"), ElementsAre("pipe"));
}

TEST_F(CompressRunTest, WhatIsLeftOutOrRespelledIsTold) {
  make("docs/tree/caf\xE9");
  ASSERT_EQ(mkfifo(at("docs/tree/pipe").c_str(), 0600), 0);
  EXPECT_TRUE(compress({at("docs/tree")}).success);
  EXPECT_EQ(told(),
            "Finished compressing 'tree.zip'. 1 socket, pipe or device was left out. 1 name that "
            "is not UTF-8 is spelled with %.");
  EXPECT_THAT(log_.lines(),
              testing::Contains("Not packed, since it has no content: " + at("docs/tree/pipe")));
}

TEST_F(CompressRunTest, AChosenLinkIsPackedAsALinkAndThatIsTold) {
  fs::create_symlink(make("docs/target"), at("docs/link"));
  EXPECT_TRUE(compress({at("docs/link")}).success);
  EXPECT_EQ(told(),
            "Finished compressing 'link.zip'. 1 item is a link and was packed as one, without what "
            "is behind.");
  EXPECT_THAT(log_.lines(), testing::Contains("Packed as a link: " + at("docs/link")));
}

TEST_F(CompressRunTest, ALinkInsideAChosenFolderIsNothingToTell) {
  make("docs/tree/a");
  fs::create_symlink("a", at("docs/tree/link"));
  EXPECT_TRUE(compress({at("docs/tree")}).success);
  EXPECT_EQ(told(), "Finished compressing 'tree.zip'");
}

TEST_F(CompressRunTest, ThePreferenceSwitchesTheNotificationOff) {
  TVUserDefaults::create()->setDisableActionNotifications(true);
  EXPECT_TRUE(compress({make("docs/a")}).success);
  EXPECT_TRUE(notifications_.delivered().empty());
}

TEST_F(CompressRunTest, WhatStandsInTheWayIsKnownBefore) {
  EXPECT_FALSE(reasonNotToCompress({make("docs/a")}));
  EXPECT_THAT(reasonNotToCompress({at("docs/gone")})->message, HasSubstr("No such file"));
  EXPECT_EQ(reasonNotToCompress({"/"})->message, "The whole file system cannot be packed.");
  ASSERT_EQ(chmod(at("docs").c_str(), 0555), 0);
  giveToNobody(platform_.home().path());
  auto child = forkChild([&](ParentLink& parent) {
    if (!becomeNobody()) return 98;
    const auto error = reasonNotToCompress({at("docs/a")});
    parent.say(error ? error->message : "none");
    return 0;
  });
  EXPECT_EQ(child.hear(), "The archive would lie in " + at("docs") +
                              ", which cannot be written to: Permission denied");
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(CompressRunTest, HostileNamesAreNamesLikeAnyOther) {
  for (const std::string name : {"-rf", "two\nlines", "*", "$(touch x)"}) {
    EXPECT_TRUE(compress({make("docs/" + name, name)}).success) << name;
    EXPECT_TRUE(fs::exists(at("docs/" + name + ".zip"))) << name;
  }
}

}  // namespace tervano::test
