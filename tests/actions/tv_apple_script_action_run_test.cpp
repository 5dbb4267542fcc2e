#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "actions/tv_apple_script_action.h"
#include "tests/actions/action_test.h"
#include "tests/actions/recorded_block.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The action with scripts that are really run.
class TVAppleScriptActionRunTest : public ActionTest {
 protected:
  std::shared_ptr<TVAppleScriptAction> actionFor(const std::string& script) {
    auto made = action<TVAppleScriptAction>();
    made->setScriptURL(Url::fileURLWithPath(makeFile("script.py", script)));
    return made;
  }
  static RecordedBlock start(TVAppleScriptAction& action, const TVAction::FilePaths& paths) {
    RecordedBlock end;
    action.runWithFilePaths(paths, end.block());
    EXPECT_EQ(end.calls(), 0) << "the block was called before the run returned";
    return end;
  }
  static void waitForEnd(const RecordedBlock& end) {
    ASSERT_TRUE(waitUntil([&] { return end.calls() > 0; }, 60));
    runPendingMainItems();
    EXPECT_EQ(end.calls(), 1);
    EXPECT_EQ(end.thread(), std::this_thread::get_id());
  }
  // A script that cannot be loaded ends the run before it returns.
  void expectLoadFailure(const std::string& path, const std::string& why) {
    const auto action = tervano::action<TVAppleScriptAction>();
    action->setScriptURL(Url::fileURLWithPath(path));
    const RecordedBlock end;
    action->runWithFilePaths({"/a"}, end.block());
    EXPECT_EQ(end.calls(), 1);
    EXPECT_FALSE(end.success());
    EXPECT_EQ(end.error(), std::nullopt);
    EXPECT_EQ(action->task(), nullptr);
    EXPECT_THAT(log_.lines(), ElementsAre("Could not init task with error: " + why));
  }
};

}  // namespace

TEST_F(TVAppleScriptActionRunTest, TheScriptGetsTheSelectedPathsInTheirOrder) {
  const auto action = actionFor(
      "import os\n"
      "def runWithPaths(paths):\n"
      "    for count, path in enumerate(paths): os.rename(path, path + str(count))\n");
  const std::string first = makeFile("b \xff\n");
  const std::string second = makeFile("a");
  const auto end = start(*action, {first, second});
  waitForEnd(end);
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  EXPECT_TRUE(exists(first + "0"));
  EXPECT_TRUE(exists(second + "1"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVAppleScriptActionRunTest, AnEmptySelectionCallsTheHandlerWithOneEmptyList) {
  const auto action = actionFor(
      "def runWithPaths(*arguments):\n"
      "    open('" +
      home() + "/seen', 'w').write(repr(arguments))\n");
  const auto end = start(*action, {});
  waitForEnd(end);
  EXPECT_TRUE(end.success());
  EXPECT_EQ(contentsOf(home() + "/seen"), "([],)");
}

TEST_F(TVAppleScriptActionRunTest, WhatTheScriptRaisesIsTheErrorOfTheRun) {
  const auto action = actionFor("def runWithPaths(paths): raise ValueError(paths)\n");
  const auto end = start(*action, {});
  waitForEnd(end);
  EXPECT_FALSE(end.success());
  ASSERT_TRUE(end.error());
  EXPECT_EQ(end.error()->message,
            "The script " + home() + "/script.py failed in line 1: ValueError: []");
}

TEST_F(TVAppleScriptActionRunTest, AScriptWithoutTheHandlerFails) {
  // The name counts as it is written.
  for (const char* const name : {"run", "runwithpaths", "RunWithPaths"}) {
    const auto action = actionFor("def " + std::string(name) + "(paths): pass\n");
    const auto end = start(*action, {"/a"});
    waitForEnd(end);
    EXPECT_FALSE(end.success());
    ASSERT_TRUE(end.error());
    EXPECT_EQ(end.error()->message,
              "The script " + home() + "/script.py has no handler named runWithPaths.");
  }
}

TEST_F(TVAppleScriptActionRunTest, AMissingScriptEndsTheRunWithNoAndNilBeforeItReturns) {
  const std::string path = home() + "/missing.py";
  expectLoadFailure(path, "The script " + path + " cannot be read: No such file or directory");
}

TEST_F(TVAppleScriptActionRunTest, AFileThatIsNoScriptEndsTheRunWithNoAndNilBeforeItReturns) {
  const std::string path = makeFile("notes.txt", "no script");
  expectLoadFailure(path,
                    "The script " + path +
                        " is of no known kind: neither its extension (py, js, sh, bash, lua) nor a "
                        "first line with #! names Python, gjs, a shell or Lua.");
}

TEST_F(TVAppleScriptActionRunTest, ARunEndsThoughTheActionIsGone) {
  auto action = actionFor("def runWithPaths(paths): pass\n");
  const auto end = start(*action, {});
  action.reset();
  waitForEnd(end);
  EXPECT_TRUE(end.success());
}

}  // namespace tervano::test
