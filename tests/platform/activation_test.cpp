#include "platform/linux/activation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/linux/glib_handles.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

ActivationToken tokenOf(const char* platformData) {
  const GVariantPtr data(
      g_variant_parse(G_VARIANT_TYPE("a{sv}"), platformData, nullptr, nullptr, nullptr));
  return ActivationToken::fromPlatformData(data.get());
}

std::shared_ptr<Activation> request(const std::string& token) {
  return std::make_shared<Activation>(ActivationToken{token, ""});
}

// The token that the calling code finds, which stays where it is.
std::string nameOfRequest() {
  const auto activation = currentActivation();
  return activation == nullptr ? "none" : activation->take().token;
}

class ActivationTest : public testing::Test {
 protected:
  ActivationTest() {
    platform_.home().setVariable("XDG_ACTIVATION_TOKEN", "of the session");
    platform_.home().setVariable("DESKTOP_STARTUP_ID", std::nullopt);
  }

  // What a child of the request finds in its environment.
  std::string tokenOfChild(const std::string& launchPath = "/bin/sh") {
    const auto process = platform_.processes().createProcess();
    const auto output = platform_.processes().createPipe();
    process->setStandardOutput(output);
    process->setLaunchPath(launchPath);
    process->setArguments({"-c", "echo \"[$XDG_ACTIVATION_TOKEN$DESKTOP_STARTUP_ID]\""});
    process->launch();
    EXPECT_TRUE(waitUntil([&] { return !process->isRunning(); }));
    const Data data = output->fileHandleForReading()->availableData();
    return {data.begin(), data.end()};
  }

  ScopedPlatform platform_;
};

}  // namespace

TEST_F(ActivationTest, PlatformDataHasTheTokenAndTheIdentifierAndIsMadeOfThem) {
  const char* const text = "{'activation-token': <'t'>, 'desktop-startup-id': <'i'>}";
  EXPECT_EQ(tokenOf(text), (ActivationToken{"t", "i"}));
  const GVariantPtr data(g_variant_ref_sink(tokenOf(text).platformData()));
  const GCharPtr printed(g_variant_print(data.get(), FALSE));
  EXPECT_STREQ(printed.get(), text);
  EXPECT_EQ(tokenOf("{'desktop-startup-id': <'i'>}"), (ActivationToken{"", "i"}));
}

TEST_F(ActivationTest, PlatformDataOfAnotherFormHasNoToken) {
  EXPECT_TRUE(tokenOf("@a{sv} {}").isEmpty());
  EXPECT_TRUE(tokenOf("{'activation-token': <5>, 'desktop-startup-id': <@as []>}").isEmpty());
  EXPECT_TRUE(tokenOf("{'other': <'t'>}").isEmpty());
  EXPECT_TRUE(
      tokenOf(("{'activation-token': <'" + std::string(1025, 't') + "'>}").c_str()).isEmpty());
  EXPECT_EQ(tokenOf(("{'activation-token': <'" + std::string(1024, 't') + "'>}").c_str()).token,
            std::string(1024, 't'));
  EXPECT_TRUE(ActivationToken::fromTexts("\xff", std::string("a\0b", 3)).isEmpty());
}

TEST_F(ActivationTest, ATokenIsTakenOnce) {
  const ActivationScope scope(request("t"));
  EXPECT_EQ(takeActivationToken().token, "t");
  EXPECT_TRUE(takeActivationToken().isEmpty());
}

TEST_F(ActivationTest, TheTokenOfTheSessionIsForThatWhichIsNoRequestAndTakenOnce) {
  {
    const ActivationScope scope(request(""));
    EXPECT_TRUE(takeActivationToken().isEmpty());
  }
  EXPECT_EQ(takeActivationToken().token, "of the session");
  EXPECT_TRUE(takeActivationToken().isEmpty());
}

TEST_F(ActivationTest, ScopesLieInEachOther) {
  const ActivationScope outer(request("outer"));
  {
    const ActivationScope inner(request("inner"));
    EXPECT_EQ(nameOfRequest(), "inner");
    const ActivationScope nobody(nullptr);
    EXPECT_EQ(nameOfRequest(), "none");
  }
  EXPECT_EQ(nameOfRequest(), "outer");
}

TEST_F(ActivationTest, AnotherThreadWorksForNobody) {
  const ActivationScope scope(request("t"));
  std::string found;
  std::thread([&] { found = nameOfRequest(); }).join();
  EXPECT_EQ(found, "none");
}

TEST_F(ActivationTest, WhatIsPostedBelongsToTheRequestThatPostedIt) {
  std::vector<std::string> found;
  auto& runLoop = platform_.runLoop();
  // From the main queue to a queue, back, and through a timer.
  const auto travel = [&] {
    runLoop.dispatchAsyncOnMainQueue([&] {
      const auto queue = runLoop.createSerialQueue("test");
      queue->dispatchAsync([&] {
        runLoop.dispatchAsyncOnMainQueue(
            [&] { runLoop.scheduleTimer(0, false, [&] { found.push_back(nameOfRequest()); }); });
      });
    });
  };
  for (const char* name : {"one", "two"}) {
    const ActivationScope scope(request(name));
    travel();
  }
  travel();
  EXPECT_TRUE(waitUntil([&] { return found.size() == 3; }));
  EXPECT_THAT(found, testing::UnorderedElementsAre("one", "two", "none"));
}

TEST_F(ActivationTest, WhatRunsInsideALoopOfARequestKeepsItsOwn) {
  auto& runLoop = platform_.runLoop();
  std::string found;
  runLoop.dispatchAsyncOnMainQueue([&] { found = nameOfRequest(); });
  const ActivationScope scope(request("of the loop"));
  EXPECT_TRUE(runLoop.runMainLoopUntil([&] { return !found.empty(); }, 10));
  EXPECT_EQ(found, "none");
}

TEST_F(ActivationTest, TheFirstChildOfARequestGetsTheToken) {
  {
    const ActivationScope scope(request("t"));
    EXPECT_EQ(tokenOfChild(), "[t]\n");
    EXPECT_EQ(tokenOfChild(), "[]\n");
  }
  const ActivationScope scope(request(""));
  EXPECT_EQ(tokenOfChild(), "[]\n");
}

TEST_F(ActivationTest, AToolOfOurOwnGetsNoTokenAndLeavesIt) {
  platform_.processes().setToolTable({{"/usr/bin/sips", "/bin/sh"}});
  const ActivationScope scope(request("t"));
  EXPECT_EQ(tokenOfChild("/usr/bin/sips"), "[]\n");
  EXPECT_EQ(tokenOfChild(), "[t]\n");
}

TEST_F(ActivationTest, WhatAChildWritesAndItsEndBelongToItsRequest) {
  auto& runLoop = platform_.runLoop();
  const auto process = platform_.processes().createProcess();
  const auto output = platform_.processes().createPipe();
  std::vector<std::string> found;
  const auto subscription = platform_.notificationCenter().addObserver(
      kTaskDidTerminateNotification, process.get(),
      [&](const Notification&) { found.push_back("end of " + nameOfRequest()); });
  const auto activation = request("t");
  {
    const ActivationScope scope(activation);
    process->setStandardOutput(output);
    output->fileHandleForReading()->setReadabilityHandler([&](FileHandle& handle) {
      if (handle.availableData().empty()) return;
      runLoop.dispatchAsyncOnMainQueue([&] {
        found.emplace_back(currentActivation() == activation ? "line of t" : "line of others");
      });
    });
    process->setLaunchPath("/bin/echo");
    process->setArguments({"line"});
    process->setEnvironment(std::map<std::string, std::string>{});
    process->launch();
  }
  EXPECT_TRUE(waitUntil([&] { return found.size() == 2; }));
  EXPECT_THAT(found, ElementsAre("line of t", "end of t"));
}

TEST_F(ActivationTest, TheEnvironmentOfAProgramHasTheGivenTokenOnly) {
  platform_.home().setVariable("DESKTOP_STARTUP_ID", "of the session");
  EXPECT_THAT(environmentWithToken({}), Not(Contains(HasSubstr("of the session"))));
  EXPECT_THAT(environmentWithToken({}), Contains(StartsWith("HOME=")));
  const auto variables = environmentWithToken({"t", "i"});
  EXPECT_THAT(variables, Contains("XDG_ACTIVATION_TOKEN=t"));
  EXPECT_THAT(variables, Contains("DESKTOP_STARTUP_ID=i"));
  EXPECT_THAT(variables, Not(Contains(HasSubstr("of the session"))));
}

}  // namespace tervano::test
