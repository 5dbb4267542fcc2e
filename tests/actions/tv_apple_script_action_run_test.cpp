#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "actions/tv_apple_script_action.h"
#include "tests/actions/action_test.h"

namespace tervano::test {

namespace {

// The action with scripts that are really run.
class TVAppleScriptActionRunTest : public ActionTest {
 protected:
  struct End {
    int calls = 0;
    bool success = false;
    std::optional<Error> error;
  };

  std::shared_ptr<TVAppleScriptAction> actionFor(const std::string& script) {
    auto made = action<TVAppleScriptAction>();
    made->setScriptURL(Url::fileURLWithPath(makeFile("script.py", script)));
    return made;
  }
  static std::shared_ptr<End> start(TVAppleScriptAction& action, const TVAction::FilePaths& paths) {
    auto end = std::make_shared<End>();
    action.runWithFilePaths(paths, [end](bool success, const std::optional<Error>& error) {
      ++end->calls;
      end->success = success;
      end->error = error;
    });
    return end;
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
  EXPECT_EQ(end->calls, 0);
  ASSERT_TRUE(waitUntil([&] { return end->calls > 0; }, 60));
  EXPECT_TRUE(end->success);
  EXPECT_EQ(end->error, std::nullopt);
  EXPECT_TRUE(exists(first + "0"));
  EXPECT_TRUE(exists(second + "1"));
}

TEST_F(TVAppleScriptActionRunTest, WhatTheScriptRaisesIsTheErrorOfTheRun) {
  const auto action = actionFor("def runWithPaths(paths): raise ValueError(paths)\n");
  const auto end = start(*action, {});
  ASSERT_TRUE(waitUntil([&] { return end->calls > 0; }, 60));
  EXPECT_FALSE(end->success);
  ASSERT_TRUE(end->error);
  EXPECT_EQ(end->error->message,
            "The script " + home() + "/script.py failed in line 1: ValueError: []");
}

TEST_F(TVAppleScriptActionRunTest, AScriptWithoutTheHandlerFails) {
  const auto action = actionFor("def run(paths): pass\n");
  const auto end = start(*action, {"/a"});
  ASSERT_TRUE(waitUntil([&] { return end->calls > 0; }, 60));
  EXPECT_FALSE(end->success);
  ASSERT_TRUE(end->error);
  EXPECT_EQ(end->error->message,
            "The script " + home() + "/script.py has no handler named runWithPaths.");
}

TEST_F(TVAppleScriptActionRunTest, ARunEndsThoughTheActionIsGone) {
  auto action = actionFor("def runWithPaths(paths): pass\n");
  const auto end = start(*action, {});
  action.reset();
  ASSERT_TRUE(waitUntil([&] { return end->calls > 0; }, 60));
  EXPECT_TRUE(end->success);
}

}  // namespace tervano::test
