#include "companion/request_receiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "actions/register_action_classes.h"
#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_secure_remove_action.h"
#include "archive/url.h"
#include "model/tv_action_group.h"
#include "store/tv_actions_manager.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Result = RequestReceiver::Result;

constexpr char kRequestedUid[] = "0123456789ABCDEF0123456789ABCDEF";
constexpr char kFile[] = "01234567-89AB-CDEF-0123-456789ABCDEF";

struct Answer {
  Result result;
  std::string message;
};

class RequestReceiverTest : public testing::Test {
 protected:
  RequestReceiverTest()
      : log_(*platform_.services().log),
        notifications_(*platform_.services().userNotifications),
        workspace_(*platform_.services().workspace) {
    platform_.services().log = &log_;
    platform_.services().userNotifications = &notifications_;
    platform_.services().workspace = &workspace_;
    std::filesystem::create_directories(container());
    std::filesystem::create_directory(target());
  }

  std::string home() { return platform_.home().path(); }
  std::string target() { return home() + "/to"; }
  std::string container() { return platform_.home().dataHome() + "/Q4T7N2XR8K.com.vessok.tervano"; }
  std::string handOffPath() { return container() + "/" + kFile; }

  std::string userFile(const std::string& name) {
    std::ofstream(home() + "/" + name) << name;
    return home() + "/" + name;
  }
  // Writes the hand-off file for these paths.
  void handOver(const std::vector<std::string>& paths) {
    nlohmann::json json;
    json["paths"] = paths;
    std::ofstream(handOffPath()) << json.dump();
  }
  void writeHandOff(const std::string& text) { std::ofstream(handOffPath()) << text; }

  // Saves a list of one action and answers its uid.
  std::string save(const std::shared_ptr<TVAction>& action) {
    const auto manager = TVActionsManager::create<TVActionsManager>();
    manager->addAction(action);
    manager->actuallySave();
    return *action->uid();
  }
  std::string saveMove() {
    const auto move = action<TVMoveToAction>();
    move->setTitle("Move");
    move->setDestinationURL(Url::fileURLWithPath(target(), true));
    return save(move);
  }

  static std::string url(const std::string& uid) {
    return "tervano://runaction?action=" + uid + "&file=" + kFile;
  }

  Answer open(const std::string& text) {
    std::vector<Answer> answers;
    receiver_->openURL(text, [&](Result result, const std::string& message) {
      answers.push_back({result, message});
    });
    EXPECT_TRUE(answers.empty()) << "the end must come later";
    EXPECT_TRUE(waitUntil([&] { return !answers.empty(); }));
    runPendingMainItems();
    EXPECT_EQ(answers.size(), 1U);
    EXPECT_EQ(receiver_->running(), 0U);
    return answers.empty() ? Answer{Result::refused, "no answer"} : answers.front();
  }

  // The request failed: one log line and one notification say so.
  void expectTold(const Answer& answer, const std::string& part) {
    EXPECT_EQ(answer.result, Result::failure);
    EXPECT_THAT(answer.message, HasSubstr(part));
    EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr(part)));
    ASSERT_EQ(notifications_.delivered().size(), 1U);
    EXPECT_EQ(notifications_.delivered().front().title, "Tervano");
    EXPECT_THAT(notifications_.delivered().front().informativeText.value_or(""), HasSubstr(part));
  }

  // The URL was refused: the log says so, the user is not bothered, nothing else happened.
  void expectRefused(const std::string& text) {
    const auto before = log_.lines().size();
    EXPECT_EQ(open(text).result, Result::refused) << text;
    EXPECT_EQ(log_.lines().size(), before + 1) << text;
    EXPECT_THAT(notifications_.delivered(), IsEmpty()) << text;
    EXPECT_TRUE(exists(handOffPath())) << text;
    EXPECT_TRUE(exists(home() + "/a.txt")) << text;
  }

  ClassRegistry registry_ = [] {
    ClassRegistry registry;
    registerActionClasses(registry);
    return registry;
  }();
  ScopedPlatform platform_{&registry_};
  RecordingLog log_;
  RecordingUserNotifications notifications_;
  RecordingWorkspace workspace_;
  std::shared_ptr<RequestReceiver> receiver_ = std::make_shared<RequestReceiver>();
};

}  // namespace

TEST_F(RequestReceiverTest, RequestMovesTheFilesAndRemovesTheHandOffFile) {
  const auto uid = saveMove();
  handOver({userFile("a.txt"), userFile("b.txt")});
  EXPECT_EQ(open(url(uid)).result, Result::success);
  EXPECT_TRUE(exists(target() + "/a.txt"));
  EXPECT_TRUE(exists(target() + "/b.txt"));
  EXPECT_FALSE(exists(handOffPath()));
  ASSERT_EQ(notifications_.delivered().size(), 1U);
  EXPECT_EQ(notifications_.delivered().front().informativeText, "Finished moving 2 files");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(RequestReceiverTest, EmptyListOfPathsIsARequestToo) {
  const auto uid = saveMove();
  handOver({});
  EXPECT_EQ(open(url(uid)).result, Result::success);
  EXPECT_EQ(notifications_.delivered().at(0).informativeText, "Finished moving 0 files");
  EXPECT_FALSE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, EveryOtherFormOfUrlIsRefusedWithoutANotification) {
  const auto uid = saveMove();
  handOver({userFile("a.txt")});
  const std::string good = url(uid);
  const std::string file = kFile;
  const std::string lowerUid = [&] {
    std::string text = uid;
    for (char& character : text) character = static_cast<char>(std::tolower(character));
    return text;
  }();
  for (const std::string& text : {
           std::string(),
           std::string("tervano:"),
           std::string("tervano://runaction"),
           std::string("tervano://runaction?action=" + uid),
           std::string("tervano://runaction?file=" + file),
           std::string("tervano://runaction?file=" + file + "&action=" + uid),
           std::string("tervano://runaction/?action=" + uid + "&file=" + file),
           std::string("tervano://RUNACTION?action=" + uid + "&file=" + file),
           std::string("tervano://removeaction?action=" + uid + "&file=" + file),
           std::string("http://runaction?action=" + uid + "&file=" + file),
           std::string("tervano://runaction?action=" + uid.substr(1) + "&file=" + file),
           std::string("tervano://runaction?action=" + uid + "0&file=" + file),
           std::string("tervano://runaction?action=" + lowerUid + "&file=" + file),
           std::string("tervano://runaction?action=" + uid + "&file=" + file.substr(1)),
           std::string("tervano://runaction?action=" + uid + "&file=" + file + "0"),
           std::string("tervano://runaction?action=" + uid + "&file=../" + file),
           std::string("tervano://runaction?action=" + uid + "&file=" + file + "/.."),
           std::string("tervano://runaction?action=" + uid +
                       "&file=01234567089AB-CDEF-0123-456789ABCDEF"),
           std::string("tervano://runaction?action=" + uid +
                       "&file=01234567-89ab-cdef-0123-456789abcdef"),
           std::string("tervano://runaction?action=" + uid + "&file=%30" + file.substr(1)),
           good + "&more=1",
           good + "#part",
           good + "\n",
           " " + good,
           good + std::string(1, '\0'),
           good + " ",
       }) {
    expectRefused(text);
  }
  EXPECT_EQ(open(good).result, Result::success);
}

TEST_F(RequestReceiverTest, RefusedUrlIsLoggedInOneLineWithoutItsControlCharacters) {
  open("tervano://\x1b[2J\nsecond");
  ASSERT_EQ(log_.lines().size(), 1U);
  EXPECT_THAT(log_.lines().front(), HasSubstr("tervano://\\x1b[2J\\nsecond"));
}

TEST_F(RequestReceiverTest, UnknownUidIsToldAndTheHandOffFileRemoved) {
  saveMove();
  handOver({userFile("a.txt")});
  expectTold(open(url(kRequestedUid)),
             "no longer in the list (" + std::string(kRequestedUid) + ")");
  EXPECT_TRUE(exists(home() + "/a.txt"));
  EXPECT_FALSE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, MissingHandOffFileIsTold) {
  expectTold(open(url(saveMove())), "The chosen files could not be read");
}

TEST_F(RequestReceiverTest, EmptyHandOffFileIsTold) {
  const auto uid = saveMove();
  writeHandOff("");
  expectTold(open(url(uid)), "no JSON text");
  EXPECT_FALSE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, ShortHandOffFileIsToldAndNothingOfItIsRun) {
  const auto uid = saveMove();
  const std::string text = nlohmann::json({{"paths", {userFile("a.txt")}}}).dump();
  writeHandOff(text.substr(0, text.size() - 2));
  expectTold(open(url(uid)), "no JSON text");
  EXPECT_TRUE(exists(home() + "/a.txt"));
}

TEST_F(RequestReceiverTest, TextBehindTheObjectIsTold) {
  const auto uid = saveMove();
  writeHandOff("{\"paths\": []} {}");
  expectTold(open(url(uid)), "no JSON text");
}

TEST_F(RequestReceiverTest, HandOffFileWithoutPathsIsTold) {
  const auto uid = saveMove();
  writeHandOff("{\"files\": []}");
  expectTold(open(url(uid)), "it has no \"paths\"");
}

TEST_F(RequestReceiverTest, HandOffFileThatIsNoObjectIsTold) {
  const auto uid = saveMove();
  writeHandOff("[\"/etc/hostname\"]");
  expectTold(open(url(uid)), "it is no JSON object");
}

TEST_F(RequestReceiverTest, PathThatIsNoTextIsTold) {
  const auto uid = saveMove();
  writeHandOff("{\"paths\": [1]}");
  expectTold(open(url(uid)), "one of the paths is no text");
}

TEST_F(RequestReceiverTest, RelativePathIsTold) {
  const auto uid = saveMove();
  writeHandOff("{\"paths\": [\"a.txt\"]}");
  expectTold(open(url(uid)), "no absolute path");
}

TEST_F(RequestReceiverTest, PathWithAParentInItIsTold) {
  const auto uid = saveMove();
  writeHandOff("{\"paths\": [\"/tmp/../etc/hostname\"]}");
  expectTold(open(url(uid)), "no absolute path");
}

TEST_F(RequestReceiverTest, SymbolicLinkInPlaceOfTheHandOffFileIsNotFollowed) {
  const auto uid = saveMove();
  const std::string elsewhere = home() + "/elsewhere";
  std::ofstream(elsewhere) << nlohmann::json({{"paths", {userFile("a.txt")}}}).dump();
  std::filesystem::create_symlink(elsewhere, handOffPath());
  expectTold(open(url(uid)), "could not be read");
  EXPECT_TRUE(exists(home() + "/a.txt"));
  EXPECT_TRUE(exists(elsewhere));
}

TEST_F(RequestReceiverTest, HandOffFileWithASecondNameIsNotRead) {
  const auto uid = saveMove();
  handOver({userFile("a.txt")});
  std::filesystem::create_hard_link(handOffPath(), home() + "/second");
  expectTold(open(url(uid)), "it has several names");
  EXPECT_TRUE(exists(home() + "/a.txt"));
  EXPECT_TRUE(exists(home() + "/second"));
}

TEST_F(RequestReceiverTest, FolderInPlaceOfTheHandOffFileStaysWhereItIs) {
  const auto uid = saveMove();
  std::filesystem::create_directory(handOffPath());
  expectTold(open(url(uid)), "it is no regular file");
  EXPECT_TRUE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, PipeInPlaceOfTheHandOffFileIsNotWaitedFor) {
  const auto uid = saveMove();
  ASSERT_EQ(mkfifo(handOffPath().c_str(), 0600), 0);
  expectTold(open(url(uid)), "it is no regular file");
}

TEST_F(RequestReceiverTest, HandOffFileOfAnotherUserIsNotRead) {
  const auto uid = saveMove();
  handOver({userFile("a.txt")});
  // As the superuser the file is given away; else one of root's is linked in by name.
  ASSERT_EQ(geteuid(), 0U) << "this test gives a file to another user";
  ASSERT_EQ(chown(handOffPath().c_str(), kNobody, kNobody), 0);
  expectTold(open(url(uid)), "it belongs to another user");
  EXPECT_TRUE(exists(home() + "/a.txt"));
}

TEST_F(RequestReceiverTest, HandOffFileOfAnotherUserStaysWhereItIs) {
  const auto uid = saveMove();
  handOver({});
  ASSERT_EQ(geteuid(), 0U) << "this test gives a file to another user";
  ASSERT_EQ(chown(handOffPath().c_str(), kNobody, kNobody), 0);
  open(url(uid));
  EXPECT_TRUE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, HandOffFileBeyondTheLimitIsNotRead) {
  const auto uid = saveMove();
  writeHandOff("");
  std::filesystem::resize_file(handOffPath(), kMaximumHandOffFileSize + 1);
  expectTold(open(url(uid)), "it is larger than");
}

TEST_F(RequestReceiverTest, DeeplyNestedHandOffFileIsRefusedWithoutHarm) {
  const auto uid = saveMove();
  writeHandOff(std::string(1000000, '['));
  expectTold(open(url(uid)), "cannot be used");
}

TEST_F(RequestReceiverTest, ListThatCannotBeReadIsToldAndStaysAsItIs) {
  const auto uid = saveMove();
  handOver({userFile("a.txt")});
  const std::string list = container() + "/Actions.plist";
  std::ofstream(list, std::ios::trunc) << "broken";
  const auto answer = open(url(uid));
  EXPECT_EQ(answer.result, Result::failure);
  EXPECT_EQ(notifications_.delivered().size(), 1U);
  EXPECT_EQ(contentsOf(list), "broken");
  EXPECT_TRUE(exists(home() + "/a.txt"));
}

TEST_F(RequestReceiverTest, ActionThatCannotBeginIsToldAndTheRequestEnds) {
  const auto copy = action<TVCopyToAction>();
  copy->setTitle("Copy");
  const auto uid = save(copy);
  handOver({userFile("a.txt")});
  expectTold(open(url(uid)), "\"Copy\" has no destination folder.");
  EXPECT_FALSE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, FailureToldByTheActionItselfIsNotToldTwice) {
  const auto uid = saveMove();
  handOver({home() + "/missing"});
  EXPECT_EQ(open(url(uid)).result, Result::failure);
  ASSERT_EQ(notifications_.delivered().size(), 1U);
  EXPECT_EQ(notifications_.delivered().front().informativeText,
            "An error occurred while moving these files.");
  EXPECT_FALSE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, WhatRemovesFilesForGoodIsAskedForAndARefusalIsNotTold) {
  const auto uid = save(action<TVSecureRemoveAction>());
  const auto path = userFile("secret.txt");
  std::vector<Question> questions;
  bool consents = false;
  Askers askers;
  askers.consent = [&](const Question& question, const auto& answer) {
    questions.push_back(question);
    answer(consents, "");
  };
  receiver_ = std::make_shared<RequestReceiver>(askers);
  handOver({path});
  EXPECT_EQ(open(url(uid)).result, Result::failure);
  ASSERT_EQ(questions.size(), 1U);
  EXPECT_EQ(questions[0].paths, std::vector<std::string>{path});
  EXPECT_EQ(contentsOf(path), "secret.txt");
  EXPECT_FALSE(exists(handOffPath()));
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
  consents = true;
  handOver({path});
  EXPECT_EQ(open(url(uid)).result, Result::success);
  EXPECT_FALSE(exists(path));
}

TEST_F(RequestReceiverTest, NobodyToAskIsToldAndNothingIsRemoved) {
  const auto uid = save(action<TVSecureRemoveAction>());
  const auto path = userFile("secret.txt");
  Askers askers;
  askers.consent = [](const Question&, const auto& answer) { answer(false, "Nobody there."); };
  receiver_ = std::make_shared<RequestReceiver>(askers);
  handOver({path});
  expectTold(open(url(uid)), "Nobody there.");
  EXPECT_EQ(contentsOf(path), "secret.txt");
}

TEST_F(RequestReceiverTest, MemberOfAGroupIsFound) {
  const auto move = action<TVMoveToAction>();
  move->setDestinationURL(Url::fileURLWithPath(target(), true));
  const auto group = action<TVActionGroup>();
  group->updateActions(ActionList{move});
  save(group);
  handOver({userFile("a.txt")});
  EXPECT_EQ(open(url(*move->uid())).result, Result::success);
  EXPECT_TRUE(exists(target() + "/a.txt"));
}

TEST_F(RequestReceiverTest, SameUrlWhileItsRequestRunsIsRefused) {
  const auto uid = saveMove();
  handOver({userFile("a.txt")});
  std::vector<Result> results;
  const auto note = [&](Result result, const std::string&) { results.push_back(result); };
  receiver_->openURL(url(uid), note);
  receiver_->openURL(url(uid), note);
  EXPECT_TRUE(waitUntil([&] { return results.size() == 2; }));
  EXPECT_THAT(results, testing::UnorderedElementsAre(Result::success, Result::refused));
  EXPECT_EQ(notifications_.delivered().size(), 1U);
}

TEST_F(RequestReceiverTest, SameUrlAfterItsRequestFindsNoFile) {
  const auto uid = saveMove();
  handOver({userFile("a.txt")});
  EXPECT_EQ(open(url(uid)).result, Result::success);
  const auto again = open(url(uid));
  EXPECT_EQ(again.result, Result::failure);
  EXPECT_THAT(again.message, HasSubstr("could not be read"));
}

TEST_F(RequestReceiverTest, TwoRequestsAtOnceBothEnd) {
  const auto uid = saveMove();
  handOver({userFile("a.txt")});
  const std::string other = "11111111-89AB-CDEF-0123-456789ABCDEF";
  std::ofstream(container() + "/" + other)
      << nlohmann::json({{"paths", {userFile("b.txt")}}}).dump();
  int ended = 0;
  receiver_->openURL(url(uid), [&](Result, const std::string&) { ++ended; });
  receiver_->openURL("tervano://runaction?action=" + uid + "&file=" + other,
                     [&](Result, const std::string&) { ++ended; });
  EXPECT_EQ(receiver_->running(), 2U);
  EXPECT_TRUE(waitUntil([&] { return ended == 2; }));
  EXPECT_TRUE(exists(target() + "/a.txt"));
  EXPECT_TRUE(exists(target() + "/b.txt"));
}

TEST_F(RequestReceiverTest, RequestEndsThoughItsReceiverIsDropped) {
  const auto uid = saveMove();
  handOver({userFile("a.txt")});
  bool ended = false;
  receiver_->openURL(url(uid), [&](Result, const std::string&) { ended = true; });
  receiver_.reset();
  EXPECT_TRUE(waitUntil([&] { return ended; }));
  EXPECT_FALSE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, ShowRevealsTheOnePath) {
  RequestReceiver::showFilesOfNotification({{"path", Value("/a b")}});
  ASSERT_EQ(workspace_.revealed().size(), 1U);
  EXPECT_THAT(workspace_.revealed().front(), ElementsAre(Url::fileURLWithPath("/a b")));
}

TEST_F(RequestReceiverTest, ShowRevealsAllPaths) {
  RequestReceiver::showFilesOfNotification(
      {{"paths", Value(Value::Array{Value("/a"), Value("/b")})}});
  ASSERT_EQ(workspace_.revealed().size(), 1U);
  EXPECT_THAT(workspace_.revealed().front(),
              ElementsAre(Url::fileURLWithPath("/a"), Url::fileURLWithPath("/b")));
}

TEST_F(RequestReceiverTest, ShowOfANotificationWithoutPathsRevealsNothing) {
  RequestReceiver::showFilesOfNotification({{"path", Value(std::int64_t{1})}});
  EXPECT_THAT(workspace_.revealed(), testing::Each(IsEmpty()));
}

namespace {

// Gives a file the age of so many hours.
void setAge(const std::string& path, int hours) {
  timeval now{};
  gettimeofday(&now, nullptr);
  now.tv_sec -= hours * 3600;
  const timeval times[2] = {now, now};
  ASSERT_EQ(lutimes(path.c_str(), times), 0) << path;
}

}  // namespace

TEST_F(RequestReceiverTest, HandOffFilesOlderThanADayAreRemoved) {
  handOver({});
  setAge(handOffPath(), 25);
  RequestReceiver::removeStaleHandOffFiles();
  EXPECT_FALSE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, HandOffFilesOfTodayStay) {
  handOver({});
  setAge(handOffPath(), 23);
  RequestReceiver::removeStaleHandOffFiles();
  EXPECT_TRUE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, OldFilesOfAnyOtherNameStay) {
  saveMove();
  const std::string list = container() + "/Actions.plist";
  const std::string lower = container() + "/01234567-89ab-cdef-0123-456789abcdef";
  const std::string longer = handOffPath() + ".txt";
  for (const auto& path : {list, lower, longer}) {
    std::ofstream(path, std::ios::app) << "";
    setAge(path, 1000);
  }
  RequestReceiver::removeStaleHandOffFiles();
  for (const auto& path : {list, lower, longer}) EXPECT_TRUE(exists(path)) << path;
}

TEST_F(RequestReceiverTest, OldFoldersAndLinksWithSuchANameStay) {
  const std::string link = container() + "/11111111-89AB-CDEF-0123-456789ABCDEF";
  std::filesystem::create_directory(handOffPath());
  std::filesystem::create_symlink("/etc/hostname", link);
  setAge(handOffPath(), 1000);
  setAge(link, 1000);
  RequestReceiver::removeStaleHandOffFiles();
  EXPECT_TRUE(exists(handOffPath()));
  EXPECT_TRUE(exists(link));
}

TEST_F(RequestReceiverTest, OldHandOffFilesOfAnotherUserStay) {
  handOver({});
  setAge(handOffPath(), 1000);
  ASSERT_EQ(geteuid(), 0U) << "this test gives a file to another user";
  ASSERT_EQ(chown(handOffPath().c_str(), kNobody, kNobody), 0);
  RequestReceiver::removeStaleHandOffFiles();
  EXPECT_TRUE(exists(handOffPath()));
}

TEST_F(RequestReceiverTest, RemovingStaleFilesWithoutAContainerDoesNothing) {
  std::filesystem::remove_all(container());
  RequestReceiver::removeStaleHandOffFiles();
  EXPECT_FALSE(exists(container()));
}

}  // namespace tervano::test
