#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

#include "tests/integration/desktop.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;

constexpr char kHandOffName[] = "01234567-89AB-CDEF-0123-456789ABCDE";

// Requests of the desktop that bring an activation token.
class ActivationRoadTest : public testing::Test {
 protected:
  // Opens the URL of a choice as the desktop does, with this platform data.
  void choose(const std::string& uid, const std::string& path, const std::string& platformData) {
    const std::string name = kHandOffName + std::to_string(++requests_);
    std::ofstream(desktop_.home().container() + "/" + name)
        << nlohmann::json({{"paths", {path}}}).dump();
    const auto outcome = callApplication(
        "Open", {"['tervano://runaction?action=" + uid + "&file=" + name + "']", platformData});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
  }

  // What the recorder noted.
  std::string noted() {
    const std::string log = desktop_.home().path() + "/recorder.log";
    return exists(log) ? contentsOf(log) : "";
  }

  // A program that notes its first argument and its environment's token.
  std::string recorder() {
    auto program =
        desktop_.home().file("recorder",
                             "#!/bin/sh\nprintf '%s %s\\n' \"$(basename \"$1\")\" "
                             "\"$XDG_ACTIVATION_TOKEN$DESKTOP_STARTUP_ID\" >> \"$0.log\"\n");
    chmod(program.c_str(), 0755);
    return program;
  }

  Desktop desktop_;
  int requests_ = 0;
};

}  // namespace

TEST_F(ActivationRoadTest, TheTokenOfAChoiceGoesToTheApplicationThatIsOpenedAndToNoOther) {
  const auto entry = desktop_.home().file(
      ".local/share/applications/recorder.desktop",
      "[Desktop Entry]\nType=Application\nName=Recorder\nExec=\"" + recorder() + "\" %F\n");
  const auto uid = desktop_.home().succeed({"add", "open-with", "--app", entry});
  choose(uid, desktop_.home().file("a"), "{'activation-token': <'one'>}");
  choose(uid, desktop_.home().file("b"), "{}");
  choose(uid, desktop_.home().file("c"), "{'desktop-startup-id': <'three'>}");
  EXPECT_TRUE(waitUntil([&] {
    const auto lines = noted();
    return std::count(lines.begin(), lines.end(), '\n') == 3;
  }));
  EXPECT_THAT(noted(), HasSubstr("a one\n"));
  EXPECT_THAT(noted(), HasSubstr("b \n"));
  EXPECT_THAT(noted(), HasSubstr("c three\n"));
}

TEST_F(ActivationRoadTest, AfterAMoveTheFileManagerGetsTheTokenOfItsOwnChoice) {
  const auto uid = desktop_.addMove();
  choose(uid, desktop_.home().file("a"), "{'activation-token': <'one'>}");
  choose(uid, desktop_.home().file("b"), "{'activation-token': <'two'>}");
  choose(uid, desktop_.home().file("c"), "{}");
  EXPECT_TRUE(waitUntil([&] { return desktop_.revealed().size() == 3; }));
  EXPECT_THAT(desktop_.revealed(),
              testing::UnorderedElementsAre(HasSubstr("/a'], 'one')"), HasSubstr("/b'], 'two')"),
                                            HasSubstr("/c'], '')")));
}

TEST_F(ActivationRoadTest, AScriptFindsTheTokenInItsEnvironment) {
  const auto uid = desktop_.home().succeed({"add", "script", "--file", recorder()});
  choose(uid, desktop_.home().file("a"), "{'activation-token': <'one'>}");
  EXPECT_TRUE(waitUntil([&] { return !noted().empty(); }));
  EXPECT_EQ(noted(), "a one\n");
}

}  // namespace tervano::test
