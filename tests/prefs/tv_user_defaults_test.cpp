#include "prefs/tv_user_defaults.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "messaging/message_identifiers.h"
#include "platform/file_manager.h"
#include "platform/notify_channel.h"
#include "platform/platform.h"
#include "tests/support/program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano {
namespace {

using test::ChildProcess;
using test::ScopedPlatform;
using test::waitUntil;

constexpr char kPreferencesSuite[] = "com.vessok.tervano.preferences";
const std::vector<std::string> kNames = {"suppressActionDeletionAlert",
                                         "didCreateDefaultTemplates",
                                         "didCreateDefaultActions",
                                         "didCreateDefaultActions2",
                                         "showIconInToolbar",
                                         "useBlackAndWhiteIcon",
                                         "useSubmenu",
                                         "playAlertOnCompletion",
                                         "showFileOnMoveCopyComplete",
                                         "disableActionNotifications",
                                         "overwriteDestinationFile"};

bool isOnByDefault(const std::string& name) {
  return name == "showIconInToolbar" || name == "useSubmenu" ||
         name == "showFileOnMoveCopyComplete";
}

class RecordingChannel : public ForwardingNotifyChannel {
 public:
  using ForwardingNotifyChannel::ForwardingNotifyChannel;
  void post(const std::string& name) override {
    posts.push_back(name);
    ForwardingNotifyChannel::post(name);
  }
  std::vector<std::string> posts;
};

class NoGroupContainers : public ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;
  bool supportsGroupContainers() const override { return false; }
};

class PreferencesTest : public testing::Test {
 protected:
  ClassRegistry registry_;
  ScopedPlatform platform_{&registry_};
  RecordingChannel channel_{platform_.notifyChannel()};

  void SetUp() override { platform_.services().notifyChannel = &channel_; }
  Value stored(const std::string& name) {
    return platform_.defaultsStores()
        .initWithSuiteName(kPreferencesSuite)
        ->objectForKey(std::string(kPreferencesSuite) + "." + name);
  }
};

TEST_F(PreferencesTest, TheElevenPreferencesAreListedInOrder) {
  EXPECT_EQ(TVUserDefaults::preferenceNames(), kNames);
}

TEST_F(PreferencesTest, AFreshStoreReadsTheDefaults) {
  const auto defaults = TVUserDefaults::create();
  ASSERT_NE(defaults, nullptr);
  EXPECT_TRUE(defaults->showIconInToolbar());
  EXPECT_TRUE(defaults->useSubmenu());
  EXPECT_TRUE(defaults->showFileOnMoveCopyComplete());
  EXPECT_FALSE(defaults->overwriteDestinationFile());
  EXPECT_FALSE(defaults->suppressActionDeletionAlert());
  EXPECT_FALSE(defaults->didCreateDefaultTemplates());
  EXPECT_FALSE(defaults->didCreateDefaultActions());
  EXPECT_FALSE(defaults->didCreateDefaultActions2());
  EXPECT_FALSE(defaults->useBlackAndWhiteIcon());
  EXPECT_FALSE(defaults->playAlertOnCompletion());
  EXPECT_FALSE(defaults->disableActionNotifications());
}

TEST_F(PreferencesTest, FourDefaultsAreRegisteredByBareNames) {
  EXPECT_EQ(TVUserDefaults::create()->setupDefaults(),
            (Value::Dictionary{{"showIconInToolbar", true},
                               {"useSubmenu", true},
                               {"showFileOnMoveCopyComplete", true},
                               {"overwriteDestinationFile", false}}));
}

TEST_F(PreferencesTest, TheSuiteAndItsNameInEveryKey) {
  const auto defaults = TVUserDefaults::create();
  EXPECT_EQ(defaults->suiteName(), kPreferencesSuite);
  EXPECT_EQ(defaults->prefix(), kPreferencesSuite);
  EXPECT_EQ(defaults->defaultsKeyForSelector("useSubmenu"),
            "com.vessok.tervano.preferences.useSubmenu");
  EXPECT_EQ(defaults->defaultsKeyForSelector("setUseSubmenu:"),
            "com.vessok.tervano.preferences.useSubmenu");
  EXPECT_EQ(defaults->typesOfAccessor("useSubmenu"), "c@:");
}

TEST_F(PreferencesTest, TheMessengerIsMappedAndNeverStored) {
  const auto defaults = TVUserDefaults::create();
  EXPECT_EQ(defaults->defaultsKeyForSelector("wormhole"),
            "com.vessok.tervano.preferences.wormhole");
  EXPECT_EQ(defaults->defaultsKeyForSelector("setWormhole:"),
            "com.vessok.tervano.preferences.wormhole");
  EXPECT_NE(defaults->wormhole(), nullptr);
  defaults->setWormhole(nullptr);
  EXPECT_EQ(defaults->wormhole(), nullptr);
  EXPECT_TRUE(stored("wormhole").isNull());
}

TEST_F(PreferencesTest, EverySetterWritesItsOwnPreferenceAndNoOther) {
  using Getter = bool (TVUserDefaults::*)() const;
  using Setter = void (TVUserDefaults::*)(bool);
  const std::vector<std::pair<Getter, Setter>> accessors = {
      {&TVUserDefaults::suppressActionDeletionAlert,
       &TVUserDefaults::setSuppressActionDeletionAlert},
      {&TVUserDefaults::didCreateDefaultTemplates, &TVUserDefaults::setDidCreateDefaultTemplates},
      {&TVUserDefaults::didCreateDefaultActions, &TVUserDefaults::setDidCreateDefaultActions},
      {&TVUserDefaults::didCreateDefaultActions2, &TVUserDefaults::setDidCreateDefaultActions2},
      {&TVUserDefaults::showIconInToolbar, &TVUserDefaults::setShowIconInToolbar},
      {&TVUserDefaults::useBlackAndWhiteIcon, &TVUserDefaults::setUseBlackAndWhiteIcon},
      {&TVUserDefaults::useSubmenu, &TVUserDefaults::setUseSubmenu},
      {&TVUserDefaults::playAlertOnCompletion, &TVUserDefaults::setPlayAlertOnCompletion},
      {&TVUserDefaults::showFileOnMoveCopyComplete, &TVUserDefaults::setShowFileOnMoveCopyComplete},
      {&TVUserDefaults::disableActionNotifications, &TVUserDefaults::setDisableActionNotifications},
      {&TVUserDefaults::overwriteDestinationFile, &TVUserDefaults::setOverwriteDestinationFile}};
  ASSERT_EQ(accessors.size(), kNames.size());
  const auto defaults = TVUserDefaults::create();
  for (std::size_t at = 0; at < kNames.size(); ++at) {
    const auto& [getter, setter] = accessors[at];
    const bool byDefault = isOnByDefault(kNames[at]);
    EXPECT_EQ((*defaults.*getter)(), byDefault) << kNames[at];
    EXPECT_TRUE(stored(kNames[at]).isNull()) << kNames[at];
    (*defaults.*setter)(!byDefault);
    EXPECT_EQ((*defaults.*getter)(), !byDefault) << kNames[at];
    EXPECT_EQ(stored(kNames[at]), Value(!byDefault)) << kNames[at];
  }
}

TEST_F(PreferencesTest, PreferencesAreReadAndSetByName) {
  const auto defaults = TVUserDefaults::create();
  for (const auto& name : kNames) {
    EXPECT_EQ(defaults->preferenceNamed(name), isOnByDefault(name)) << name;
    EXPECT_TRUE(defaults->setPreferenceNamed(name, !isOnByDefault(name))) << name;
    EXPECT_EQ(defaults->preferenceNamed(name), !isOnByDefault(name)) << name;
  }
  EXPECT_EQ(channel_.posts.size(), kNames.size());
}

TEST_F(PreferencesTest, ANameThatIsNoPreferenceIsRefused) {
  const auto defaults = TVUserDefaults::create();
  for (const char* name : {"wormhole", "", "UseSubmenu",
                           "setUseSubmenu:", "com.vessok.tervano.preferences.useSubmenu"}) {
    EXPECT_EQ(defaults->preferenceNamed(name), std::nullopt) << name;
    EXPECT_FALSE(defaults->setPreferenceNamed(name, true)) << name;
  }
  EXPECT_TRUE(channel_.posts.empty());
}

TEST_F(PreferencesTest, SettingWritesNoUnderTheDerivedKeyAndSendsOneMessageWithoutObject) {
  const auto listener = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                                       kWormholeDirectory);
  std::vector<Value> heard;
  listener->listenForMessageWithIdentifier("NSUserDefaultsDidChangeNotification",
                                           [&](const Value& object) { heard.push_back(object); });
  TVUserDefaults::create()->setUseSubmenu(false);
  EXPECT_EQ(stored("useSubmenu"), Value(false));
  EXPECT_EQ(channel_.posts, std::vector<std::string>{"NSUserDefaultsDidChangeNotification"});
  ASSERT_TRUE(waitUntil([&] { return !heard.empty(); }));
  EXPECT_EQ(heard, std::vector<Value>{nullptr});
  EXPECT_FALSE(std::filesystem::exists(platform_.home().dataHome() + "/" +
                                       kApplicationGroupIdentifier +
                                       "/wormhole/NSUserDefaultsDidChangeNotification.archive"));
}

TEST_F(PreferencesTest, SettingTheSameValueStillSendsTheMessage) {
  const auto defaults = TVUserDefaults::create();
  defaults->setUseSubmenu(true);
  defaults->setUseSubmenu(true);
  EXPECT_EQ(channel_.posts.size(), 2U);
}

TEST_F(PreferencesTest, MakingAndReadingSendsNothingAndWritesNothing) {
  const auto defaults = TVUserDefaults::create();
  for (const auto& name : kNames) defaults->preferenceNamed(name);
  EXPECT_TRUE(channel_.posts.empty());
  for (const auto& name : kNames) EXPECT_TRUE(stored(name).isNull()) << name;
}

TEST_F(PreferencesTest, AKeyValueObserverHearsNothing) {
  const auto defaults = TVUserDefaults::create();
  int calls = 0;
  std::vector<Subscription> observations;
  for (const auto& name : kNames) {
    for (const auto& key : {name, std::string(kPreferencesSuite) + "." + name}) {
      observations.push_back(defaults->addObserver(
          key, [&](const std::string&, VXUserDefaults::ValueChange) { ++calls; }));
    }
  }
  for (const auto& name : kNames) defaults->setPreferenceNamed(name, true);
  EXPECT_EQ(calls, 0);
}

TEST_F(PreferencesTest, TheKeyOfAChangeDoesNotMatter) {
  const auto defaults = TVUserDefaults::create();
  defaults->didChangeValueForKey("");
  defaults->didChangeValueForKey("anything");
  EXPECT_EQ(channel_.posts, (std::vector<std::string>{"NSUserDefaultsDidChangeNotification",
                                                      "NSUserDefaultsDidChangeNotification"}));
}

TEST_F(PreferencesTest, AReplacedMessengerIsUsed) {
  const auto defaults = TVUserDefaults::create();
  const auto other = VXWormhole::initWithApplicationGroupIdentifier("no.such.group", std::nullopt);
  defaults->setWormhole(other);
  EXPECT_EQ(defaults->wormhole(), other);
  other->setWormholeMessenger(nullptr);
  defaults->setUseSubmenu(false);
  EXPECT_TRUE(channel_.posts.empty());
}

TEST_F(PreferencesTest, EachInstanceHasItsOwnStoreAndMessenger) {
  const auto first = TVUserDefaults::create();
  const auto second = TVUserDefaults::create();
  EXPECT_NE(first->userDefaults(), second->userDefaults());
  EXPECT_NE(first->wormhole(), second->wormhole());
  first->setUseSubmenu(false);
  EXPECT_FALSE(second->useSubmenu());
}

TEST_F(PreferencesTest, WithoutGroupContainersPreferencesWorkAndNobodyIsTold) {
  NoGroupContainers without(platform_.fileManager());
  platform_.services().fileManager = &without;
  const auto defaults = TVUserDefaults::create();
  ASSERT_NE(defaults, nullptr);
  EXPECT_EQ(defaults->wormhole(), nullptr);
  EXPECT_TRUE(defaults->useSubmenu());
  defaults->setUseSubmenu(false);
  EXPECT_FALSE(defaults->useSubmenu());
  EXPECT_EQ(stored("useSubmenu"), Value(false));
  EXPECT_TRUE(channel_.posts.empty());
}

TEST_F(PreferencesTest, ADamagedStoreReadsTheDefaults) {
  TVUserDefaults::create()->setUseSubmenu(false);
  int damaged = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(platform_.home().path())) {
    if (!entry.is_regular_file() ||
        entry.path().filename().string().find(kPreferencesSuite) == std::string::npos) {
      continue;
    }
    std::ofstream(entry.path()) << "not a property list";
    ++damaged;
  }
  ASSERT_GE(damaged, 1);
  const auto defaults = TVUserDefaults::create();
  for (const auto& name : kNames) {
    EXPECT_EQ(defaults->preferenceNamed(name), isOnByDefault(name)) << name;
  }
}

// The same with another process.
class PreferencesOfTwoProcessesTest : public PreferencesTest {
 protected:
  std::string ask(ChildProcess& peer, const std::string& line) {
    peer.say(line);
    return peer.hear().value_or("silence");
  }
};

TEST_F(PreferencesOfTwoProcessesTest, EachSeesWhatTheOtherSetAtTheNextRead) {
  auto peer = test::startProgram(PREFS_PEER);
  const auto defaults = TVUserDefaults::create();
  for (const bool value : {false, true, false}) {
    defaults->setUseSubmenu(value);
    EXPECT_EQ(ask(peer, "get useSubmenu"), value ? "yes" : "no");
    EXPECT_EQ(ask(peer, "kept useSubmenu"), value ? "yes" : "no");
    EXPECT_EQ(ask(peer, std::string("set useBlackAndWhiteIcon ") + (value ? "yes" : "no")), "set");
    EXPECT_EQ(defaults->useBlackAndWhiteIcon(), value);
  }
}

TEST_F(PreferencesOfTwoProcessesTest, DefaultsOfTheOtherProcessAreTheSame) {
  auto peer = test::startProgram(PREFS_PEER);
  for (const auto& name : kNames) {
    EXPECT_EQ(ask(peer, "get " + name), isOnByDefault(name) ? "yes" : "no") << name;
  }
}

TEST_F(PreferencesOfTwoProcessesTest, EverySetGivesTheOtherProcessExactlyOneMessage) {
  auto peer = test::startProgram(PREFS_PEER);
  ASSERT_EQ(ask(peer, "listen"), "listening");
  const auto defaults = TVUserDefaults::create();
  for (const auto& name : kNames) {
    defaults->setPreferenceNamed(name, true);
    EXPECT_EQ(peer.hear(), "changed nil") << name;
    // One more line would stand in front of this answer.
    EXPECT_EQ(ask(peer, "get " + name), "yes") << name;
  }
}

TEST_F(PreferencesOfTwoProcessesTest, ASetOfTheOtherProcessIsToldHereOnce) {
  auto peer = test::startProgram(PREFS_PEER);
  const auto listener = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                                       kWormholeDirectory);
  std::vector<bool> seen;
  listener->listenForMessageWithIdentifier(kUserDefaultsDidChangeNotification, [&](const Value&) {
    seen.push_back(TVUserDefaults::create()->useSubmenu());
  });
  for (std::size_t turn = 1; turn <= 4; ++turn) {
    ASSERT_EQ(ask(peer, turn % 2 == 0 ? "set useSubmenu yes" : "set useSubmenu no"), "set");
    ASSERT_TRUE(waitUntil([&] { return seen.size() >= turn; }));
  }
  EXPECT_EQ(seen, (std::vector<bool>{false, true, false, true}));
}

TEST_F(PreferencesOfTwoProcessesTest, ReactingToAChangeWithAFreshObjectNeverAnswersForEver) {
  auto peer = test::startProgram(PREFS_PEER);
  ASSERT_EQ(ask(peer, "listen"), "listening");
  const auto listener = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                                       kWormholeDirectory);
  auto current = TVUserDefaults::create();
  int renewals = 0;
  listener->listenForMessageWithIdentifier(kUserDefaultsDidChangeNotification, [&](const Value&) {
    current = TVUserDefaults::create();
    ++renewals;
  });
  current->setUseSubmenu(false);
  ASSERT_TRUE(waitUntil([&] { return renewals > 0; }));
  EXPECT_EQ(peer.hear(), "changed nil");
  EXPECT_EQ(ask(peer, "get useSubmenu"), "no");
  test::runPendingMainItems();
  EXPECT_EQ(renewals, 1);
  EXPECT_FALSE(current->useSubmenu());
}

TEST_F(PreferencesOfTwoProcessesTest, TwoProcessesThatSetAtOnceLoseNoneOfTheirKeys) {
  auto first = test::startProgram(PREFS_PEER);
  auto second = test::startProgram(PREFS_PEER);
  first.say("flood useSubmenu 101");
  second.say("flood useBlackAndWhiteIcon 101");
  const auto defaults = TVUserDefaults::create();
  for (int turn = 0; turn < 101; ++turn) defaults->setPlayAlertOnCompletion(turn % 2 == 0);
  EXPECT_EQ(first.hear(60), "set");
  EXPECT_EQ(second.hear(60), "set");
  EXPECT_EQ(stored("useSubmenu"), Value(true));
  EXPECT_EQ(stored("useBlackAndWhiteIcon"), Value(true));
  EXPECT_EQ(stored("playAlertOnCompletion"), Value(true));
}

TEST_F(PreferencesOfTwoProcessesTest, AProcessKilledWhileItSetsLeavesAReadableStore) {
  const auto defaults = TVUserDefaults::create();
  defaults->setDisableActionNotifications(true);
  for (int round = 0; round < 5; ++round) {
    auto peer = test::startProgram(PREFS_PEER);
    ASSERT_EQ(ask(peer, "set useSubmenu no"), "set");
    peer.say("flood useSubmenu 100000");
    ASSERT_TRUE(waitUntil([&] { return defaults->useSubmenu(); }));
    peer.kill(SIGKILL);
    ASSERT_EQ(peer.waitForExit(), -SIGKILL);
    EXPECT_TRUE(defaults->disableActionNotifications());
    defaults->setUseSubmenu(false);
    EXPECT_FALSE(TVUserDefaults::create()->useSubmenu());
  }
}

}  // namespace
}  // namespace tervano
