#pragma once

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>
#include <map>

#include "platform/applications.h"
#include "platform/linux/tool_table.h"
#include "prefs/tv_user_defaults.h"
#include "tests/actions/action_test.h"
#include "tests/actions/recorded_block.h"

namespace tervano::test {

// The applications of a test.
class ListedApplications : public ForwardingApplications {
 public:
  using ForwardingApplications::ForwardingApplications;
  std::optional<std::string> bundleIdentifierAtPath(const std::string& path) const override {
    asked.push_back(path);
    const auto found = identifiers.find(path);
    return found == identifiers.end() ? std::nullopt : std::optional(found->second);
  }

  std::map<std::string, std::string> identifiers;
  mutable std::vector<std::string> asked;
};

// Actions that run tools. The children are real; a shell script of the test takes the place of each
// tool.
class ToolActionTest : public ActionTest {
 protected:
  ToolActionTest()
      : processes_(*platform_.services().processes),
        applications_(*platform_.services().applications) {
    platform_.services().processes = &processes_;
    platform_.services().applications = &applications_;
    platform_.home().setVariable("LC_ALL", "C");
  }
  ~ToolActionTest() override {
    if (HasFailure()) {
      for (const auto& process : processes_.made()) process->terminate();
    }
    platform_.processes().setToolTable(toolTable(*platform_.services().bundle));
  }

  // From now on this script is started for the tool.
  void setTool(const std::string& launchPath, const std::string& script) {
    const std::string path = makeFile("tools/" + std::to_string(++tools_), "#!/bin/sh\n" + script);
    chmod(path.c_str(), 0700);
    table_[launchPath] = path;
    platform_.processes().setToolTable(table_);
  }
  // From now on the tool cannot be started.
  void removeTool(const std::string& launchPath) {
    table_[launchPath] = home() + "/no such tool";
    platform_.processes().setToolTable(table_);
  }

  static void waitForCall(const RecordedBlock& end) {
    EXPECT_TRUE(waitUntil([&] { return end.calls() > 0; }, 30));
    runPendingMainItems();
    EXPECT_EQ(end.calls(), 1);
  }
  // Runs the action to the end that its block tells.
  static RecordedBlock runToEnd(TVAction& action, const TVAction::FilePaths& paths) {
    RecordedBlock end;
    action.runWithFilePaths(paths, end.block());
    EXPECT_EQ(end.calls(), 0) << "the block was called before the run returned";
    waitForCall(end);
    return end;
  }
  // Until every child has ended and what that brought about is done.
  void waitForAllTools() {
    EXPECT_TRUE(waitUntil([&] { return platform_.processes().runningProcesses() == 0; }, 30));
    runPendingMainItems();
  }
  void expectTerminated(std::size_t process) {
    ASSERT_LT(process, processes_.made().size());
    const auto& ended = processes_.made()[process];
    EXPECT_TRUE(waitUntil([&] { return !ended->isRunning(); }));
    EXPECT_EQ(ended->terminationReason(), TerminationReason::uncaughtSignal);
    EXPECT_EQ(ended->terminationStatus(), SIGTERM);
  }
  // What the process was started with, its path first.
  std::vector<std::string> commandOf(std::size_t process) const {
    const auto& made = processes_.made().at(process);
    std::vector<std::string> command = {made->launchPath()};
    command.insert(command.end(), made->arguments().begin(), made->arguments().end());
    return command;
  }
  std::vector<std::string> informativeTexts() const {
    std::vector<std::string> texts;
    for (const auto& notification : notifications_.delivered()) {
      texts.push_back(notification.informativeText.value_or("(nil)"));
    }
    return texts;
  }
  static void switchNotificationsOff() {
    TVUserDefaults::create()->setDisableActionNotifications(true);
  }

  KeepingProcesses processes_;
  ListedApplications applications_;

 private:
  std::map<std::string, std::string> table_;
  int tools_ = 0;
};

// Names that an ordinary programmer does not think of, each of them legal.
inline std::vector<std::string> hostileNames() {
  return {"two\nlines",
          "it's \"quoted\"",
          "$(touch pwned) `id` ; & | > x",
          "-rf",
          "--out",
          "caf\xE9 \xFF\xFE",
          " blank ",
          "%@ %s %n",
          "tab\tand\x01"
          "control",
          std::string(255, 'n')};
}

}  // namespace tervano::test
