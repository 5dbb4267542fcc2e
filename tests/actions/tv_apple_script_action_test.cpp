#include "actions/tv_apple_script_action.h"

#include <gmock/gmock.h>

#include <cstring>

#include "tests/actions/action_test.h"
#include "tests/actions/recorded_block.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

// Keeps what it is to run; a test ends the runs itself.
class RecordingTask : public UserScriptTask {
 public:
  struct Run {
    AppleEvent event;
    CompletionHandler handler;
  };
  void executeWithAppleEvent(const AppleEvent& event, CompletionHandler handler) override {
    runs.push_back({event, std::move(handler)});
  }
  std::vector<Run> runs;
};

class RecordingUserScripts : public UserScripts {
 public:
  std::shared_ptr<UserScriptTask> taskWithURL(const std::optional<Url>& url,
                                              std::optional<Error>* error) override {
    urls.push_back(url);
    if (!isLoading) {
      if (error != nullptr) *error = loadError;
      return nullptr;
    }
    tasks.push_back(std::make_shared<RecordingTask>());
    return tasks.back();
  }

  bool isLoading = true;
  std::optional<Error> loadError;
  std::vector<std::optional<Url>> urls;
  std::vector<std::shared_ptr<RecordingTask>> tasks;
};

class TVAppleScriptActionTest : public ActionTest {
 protected:
  TVAppleScriptActionTest() : realScripts_(platform_.services().userScripts) {
    platform_.services().userScripts = &scripts_;
    action_ = action<TVAppleScriptAction>();
    action_->setScriptURL(Url::fileURLWithPath(home() + "/script"));
  }

  // The event that running on these paths gives.
  AppleEvent eventFor(const TVAction::FilePaths& paths) {
    action_->runWithFilePaths(paths, nullptr);
    return scripts_.tasks.back()->runs.back().event;
  }
  // The handler of the run so many tasks ago, 0 for the latest.
  const UserScriptTask::CompletionHandler& handler(std::size_t ago = 0) const {
    return scripts_.tasks[scripts_.tasks.size() - 1 - ago]->runs.front().handler;
  }
  static AppleEventDescriptor text(const std::string& string) {
    return AppleEventDescriptor::descriptorWithString(string);
  }
  static AppleEventDescriptor list(std::vector<AppleEventDescriptor> items) {
    auto list = AppleEventDescriptor::listDescriptor();
    for (auto& item : items) list.insertDescriptor(std::move(item), 0);
    return list;
  }
  static Error scriptError() { return {"UserScripts", 7, "the handler gave up"}; }

  UserScripts* realScripts_;
  RecordingUserScripts scripts_;
  std::shared_ptr<TVAppleScriptAction> action_;
};

TEST_F(TVAppleScriptActionTest, TheDirectObjectIsAListOfOneItemTheListOfThePaths) {
  const AppleEvent event = eventFor({"/a", "/b", "/c"});
  const auto* direct = event.paramDescriptor(kDirectObject);
  ASSERT_NE(direct, nullptr);
  EXPECT_EQ(*direct, list({list({text("/a"), text("/b"), text("/c")})}));
  ASSERT_NE(direct->list(), nullptr);
  EXPECT_THAT(*direct->list(), SizeIs(1));
}

TEST_F(TVAppleScriptActionTest, AnEmptySelectionIsOneArgumentThatIsAnEmptyList) {
  const AppleEvent event = eventFor({});
  const auto* direct = event.paramDescriptor(kDirectObject);
  ASSERT_NE(direct, nullptr);
  EXPECT_EQ(*direct, list({list({})}));
}

TEST_F(TVAppleScriptActionTest, TheEventIsASubroutineCall) {
  const AppleEvent event = eventFor({"/a"});
  EXPECT_EQ(event.eventClass, 0x61736372u) << "'ascr'";
  EXPECT_EQ(event.eventID, 0x70736272u) << "'psbr'";
  EXPECT_EQ(event.returnID, -1);
  EXPECT_EQ(event.transactionID, 0);
}

TEST_F(TVAppleScriptActionTest, TheTargetIsTheCurrentProcessAsTwoWordsOfTheMachine) {
  const AppleEvent event = eventFor({"/a"});
  const auto* target = event.targetDescriptor.bytes();
  ASSERT_NE(target, nullptr);
  EXPECT_EQ(target->type, 0x70736E20u) << "'psn '";
  ASSERT_THAT(target->bytes, SizeIs(8));
  std::uint32_t high = 99;
  std::uint32_t low = 99;
  std::memcpy(&high, target->bytes.data(), 4);
  std::memcpy(&low, target->bytes.data() + 4, 4);
  EXPECT_EQ(high, 0u);
  EXPECT_EQ(low, 2u);
}

TEST_F(TVAppleScriptActionTest, TheNameIsSetFirstThenTheDirectObjectAndNothingElse) {
  const AppleEvent event = eventFor({"/a"});
  ASSERT_THAT(event.parameters, SizeIs(2));
  EXPECT_EQ(event.parameters[0].first, 0x736E616Du) << "'snam'";
  EXPECT_EQ(event.parameters[1].first, 0x2D2D2D2Du) << "'----'";
}

TEST_F(TVAppleScriptActionTest, TheSubroutineIsExactlyRunWithPaths) {
  const AppleEvent event = eventFor({"/a"});
  ASSERT_NE(event.paramDescriptor(kASSubroutineName), nullptr);
  EXPECT_EQ(*event.paramDescriptor(kASSubroutineName), text("runWithPaths"));
}

TEST_F(TVAppleScriptActionTest, PathsOfAnyBytesAreGivenAsTheyAreAndInTheirOrder) {
  const TVAction::FilePaths paths = {"/z\nb",
                                     "/'single' \"double\"",
                                     "/$(touch x)",
                                     "-rf",
                                     "/\xFF\xFE",
                                     "/" + std::string(255, 'n'),
                                     "",
                                     "/a",
                                     "/a"};
  const AppleEvent event = eventFor(paths);
  const auto& given = *event.paramDescriptor(kDirectObject)->list()->front().list();
  ASSERT_THAT(given, SizeIs(paths.size()));
  for (std::size_t index = 0; index < paths.size(); ++index) {
    EXPECT_EQ(given[index], text(paths[index]));
  }
}

TEST_F(TVAppleScriptActionTest, TheScriptIsLoadedAndExecutedOnceForEachRun) {
  eventFor({"/a"});
  EXPECT_THAT(scripts_.urls, ElementsAre(action_->scriptURL()));
  ASSERT_THAT(scripts_.tasks, SizeIs(1));
  EXPECT_THAT(scripts_.tasks[0]->runs, SizeIs(1));
  EXPECT_EQ(action_->task(), scripts_.tasks[0]);
}

TEST_F(TVAppleScriptActionTest, AHandlerThatFinishesCompletesWithYesOnTheMainThread) {
  RecordedBlock end;
  action_->runWithFilePaths({"/a"}, end.block());
  EXPECT_EQ(end.calls(), 0);
  std::thread service([this] { handler()(std::nullopt, std::nullopt); });
  service.join();
  EXPECT_EQ(end.calls(), 0) << "the block was called on the service's thread";
  EXPECT_TRUE(waitUntil([&] { return end.calls() > 0; }));
  runPendingMainItems();
  EXPECT_EQ(end.calls(), 1);
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  EXPECT_EQ(end.thread(), std::this_thread::get_id());
}

TEST_F(TVAppleScriptActionTest, AHandlerThatFailsCompletesWithNoAndItsError) {
  RecordedBlock end;
  action_->runWithFilePaths({"/a"}, end.block());
  std::thread service([this] { handler()(std::nullopt, scriptError()); });
  service.join();
  EXPECT_TRUE(waitUntil([&] { return end.calls() > 0; }));
  EXPECT_FALSE(end.success());
  EXPECT_EQ(end.error(), scriptError());
  EXPECT_EQ(end.thread(), std::this_thread::get_id());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVAppleScriptActionTest, TheHandlersResultIsIgnored) {
  RecordedBlock end;
  action_->runWithFilePaths({"/a"}, end.block());
  handler()(text("false"), std::nullopt);
  EXPECT_TRUE(waitUntil([&] { return end.calls() > 0; }));
  EXPECT_TRUE(end.success());
  RecordedBlock failed;
  action_->runWithFilePaths({"/a"}, failed.block());
  handler()(text("true"), scriptError());
  EXPECT_TRUE(waitUntil([&] { return failed.calls() > 0; }));
  EXPECT_FALSE(failed.success());
  EXPECT_EQ(failed.error(), scriptError());
}

TEST_F(TVAppleScriptActionTest, AnEndOnTheMainThreadIsPostedAllTheSame) {
  RecordedBlock end;
  action_->runWithFilePaths({"/a"}, end.block());
  handler()(std::nullopt, std::nullopt);
  EXPECT_EQ(end.calls(), 0);
  EXPECT_TRUE(waitUntil([&] { return end.calls() == 1; }));
}

TEST_F(TVAppleScriptActionTest, AScriptThatCannotBeLoadedCompletesWithNoAndNilBeforeTheRunReturns) {
  scripts_.isLoading = false;
  scripts_.loadError = Error{"UserScripts", 1, "no interpreter for it"};
  RecordedBlock end;
  action_->runWithFilePaths({"/a"}, end.block());
  EXPECT_EQ(end.calls(), 1);
  EXPECT_FALSE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  EXPECT_EQ(end.thread(), std::this_thread::get_id());
  EXPECT_THAT(log_.lines(), ElementsAre("Could not init task with error: no interpreter for it"));
  runPendingMainItems();
  EXPECT_EQ(end.calls(), 1);
}

TEST_F(TVAppleScriptActionTest, ALoadThatFailsAwayFromTheMainThreadCompletesOnItsCallersThread) {
  scripts_.isLoading = false;
  std::thread caller([this] {
    RecordedBlock end;
    action_->runWithFilePaths({"/a"}, end.block());
    EXPECT_EQ(end.calls(), 1);
    EXPECT_EQ(end.thread(), std::this_thread::get_id());
  });
  caller.join();
}

TEST_F(TVAppleScriptActionTest, ALoadThatFailsWithoutErrorIsLoggedAsNull) {
  scripts_.isLoading = false;
  RecordedBlock end;
  action_->runWithFilePaths({"/a"}, end.block());
  EXPECT_EQ(end.calls(), 1);
  EXPECT_THAT(log_.lines(), ElementsAre("Could not init task with error: (null)"));
}

TEST_F(TVAppleScriptActionTest, WithoutBlockAFailedLoadIsOnlyLogged) {
  scripts_.isLoading = false;
  action_->runWithFilePaths({"/a"}, nullptr);
  EXPECT_THAT(log_.lines(), SizeIs(1));
}

TEST_F(TVAppleScriptActionTest, WithoutScriptTheRealServiceFailsAndTheRunCompletesWithNoAndNil) {
  platform_.services().userScripts = realScripts_;
  action_->setScriptURL(std::nullopt);
  RecordedBlock end;
  action_->runWithFilePaths({"/a"}, end.block());
  EXPECT_EQ(end.calls(), 1);
  EXPECT_FALSE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  EXPECT_EQ(action_->task(), nullptr);
  ASSERT_THAT(log_.lines(), SizeIs(1));
  EXPECT_THAT(log_.lines()[0], MatchesRegex("Could not init task with error: .+"));
}

TEST_F(TVAppleScriptActionTest, WithoutScriptTheServiceIsAskedWithNil) {
  action_->setScriptURL(std::nullopt);
  scripts_.isLoading = false;
  action_->runWithFilePaths({}, nullptr);
  EXPECT_THAT(scripts_.urls, ElementsAre(std::nullopt));
}

TEST_F(TVAppleScriptActionTest, AFailedLoadTakesThePlaceOfTheLastTask) {
  action_->runWithFilePaths({"/a"}, nullptr);
  ASSERT_NE(action_->task(), nullptr);
  scripts_.isLoading = false;
  action_->runWithFilePaths({"/a"}, nullptr);
  EXPECT_EQ(action_->task(), nullptr);
}

TEST_F(TVAppleScriptActionTest, OfTwoRunsEachCallsItsOwnBlock) {
  RecordedBlock first;
  RecordedBlock second;
  action_->runWithFilePaths({"/a"}, first.block());
  action_->runWithFilePaths({"/b"}, second.block());
  ASSERT_THAT(scripts_.tasks, SizeIs(2));
  EXPECT_EQ(action_->task(), scripts_.tasks[1]);
  handler(0)(std::nullopt, std::nullopt);
  EXPECT_TRUE(waitUntil([&] { return second.calls() == 1; }));
  EXPECT_EQ(first.calls(), 0);
  handler(1)(std::nullopt, scriptError());
  EXPECT_TRUE(waitUntil([&] { return first.calls() == 1; }));
  EXPECT_EQ(first.error(), scriptError());
  EXPECT_TRUE(second.success());
  EXPECT_EQ(second.calls(), 1);
}

TEST_F(TVAppleScriptActionTest, AnActionThatIsGoneStillHasItsBlockCalled) {
  RecordedBlock end;
  action_->runWithFilePaths({"/a"}, end.block());
  action_ = nullptr;
  handler()(std::nullopt, std::nullopt);
  EXPECT_TRUE(waitUntil([&] { return end.calls() == 1; }));
}

TEST_F(TVAppleScriptActionTest, ARunWithoutBlockEndsQuietly) {
  action_->runWithFilePaths({"/a"}, nullptr);
  handler()(std::nullopt, std::nullopt);
  runPendingMainItems();
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVAppleScriptActionTest, WhatTheBlockHoldsIsReleasedOnTheMainThread) {
  std::thread::id releasedOn;
  auto holder = std::shared_ptr<int>(new int(0), [&](const int* held) {
    delete held;
    releasedOn = std::this_thread::get_id();
  });
  action_->runWithFilePaths({"/a"}, [holder](bool, const std::optional<Error>&) {});
  holder = nullptr;
  std::thread service([this] { handler()(std::nullopt, std::nullopt); });
  service.join();
  EXPECT_TRUE(waitUntil([&] { return releasedOn != std::thread::id(); }));
  EXPECT_EQ(releasedOn, std::this_thread::get_id());
}

TEST_F(TVAppleScriptActionTest, NothingIsShownToTheUser) {
  RecordedBlock end;
  action_->runWithFilePaths({"/a"}, end.block());
  handler()(std::nullopt, scriptError());
  EXPECT_TRUE(waitUntil([&] { return end.calls() == 1; }));
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
  EXPECT_THAT(workspace_.opened(), IsEmpty());
}

TEST_F(TVAppleScriptActionTest, BeforeRunIsThatOfTheBase) {
  int calls = 0;
  action_->beforeRunWithFilePaths({"/a"}, [&](const Value& object) {
    EXPECT_TRUE(object.isNull());
    ++calls;
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(TVAppleScriptActionTest, ANewActionHasNoTitleNoIconAndNoScript) {
  const auto fresh = action<TVAppleScriptAction>();
  EXPECT_EQ(fresh->title(), std::nullopt);
  EXPECT_EQ(fresh->defaultTitle(), std::nullopt);
  EXPECT_EQ(fresh->icon(), nullptr);
  EXPECT_EQ(fresh->scriptURL(), std::nullopt);
  EXPECT_EQ(fresh->task(), nullptr);
  EXPECT_FALSE(fresh->isDefault());
  EXPECT_TRUE(fresh->isNew());
  EXPECT_EQ(fresh->editorClassName(), "TVAppleScriptModule");
}

TEST_F(TVAppleScriptActionTest, ItsChainIsThatOfADirectSubclass) {
  EXPECT_EQ(action_->className(), "TVAppleScriptAction");
  EXPECT_THAT(*registry_.chain("TVAppleScriptAction"),
              ElementsAre("TVAppleScriptAction", "TVAction", "NSObject"));
}

TEST_F(TVAppleScriptActionTest, ACopyHasTheScriptAndNoTask) {
  action_->runWithFilePaths({"/a"}, nullptr);
  const auto copy = std::dynamic_pointer_cast<TVAppleScriptAction>(action_->copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->scriptURL(), action_->scriptURL());
  EXPECT_EQ(copy->uid(), action_->uid());
  EXPECT_EQ(copy->task(), nullptr);
}

TEST_F(TVAppleScriptActionTest, TheScriptSurvivesTheArchiveAndTheTaskDoesNot) {
  action_->setScriptURL(Url::fileURLWithPath("/a\n\xFF b"));
  action_->runWithFilePaths({"/a"}, nullptr);
  const auto decoded = unarchived<TVAppleScriptAction>(archived(action_));
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(decoded->scriptURL(), action_->scriptURL());
  EXPECT_EQ(decoded->task(), nullptr);
}

TEST_F(TVAppleScriptActionTest, TheScriptIsEncodedAfterTheKeysOfTheBase) {
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "scriptURL", "$class"));
}

TEST_F(TVAppleScriptActionTest, DecodingWithoutScriptGivesNil) {
  const auto decoded = unarchived<TVAppleScriptAction>(withEditedObject(
      archived(action_), "enabled", [](auto& object) { object.erase("scriptURL"); }));
  EXPECT_EQ(decoded->scriptURL(), std::nullopt);
}

TEST_F(TVAppleScriptActionTest, ANilScriptIsEncodedAsNil) {
  action_->setScriptURL(std::nullopt);
  EXPECT_EQ(encodedObject(archived(action_), "enabled").at("scriptURL"), Value(Uid{0}));
}

}  // namespace
}  // namespace tervano::test
