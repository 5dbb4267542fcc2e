#include "messaging/vx_wormhole.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "messaging/message_identifiers.h"
#include "messaging/vx_wormhole_coordinated_file_transiting.h"
#include "messaging/vx_wormhole_file_transiting.h"
#include "platform/run_loop.h"
#include "tests/messaging/message_samples.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano {
namespace {

using test::runPendingMainItems;
using test::ScopedPlatform;
using test::waitUntil;

constexpr char kMessageIdentifier[] = "TVTestMessage";
constexpr char kAfterwards[] = "TVTestAfterwards";

class NoGroupContainers : public ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;
  bool supportsGroupContainers() const override { return false; }
};

// The real channel, which also writes down what is posted.
class RecordingChannel : public ForwardingNotifyChannel {
 public:
  using ForwardingNotifyChannel::ForwardingNotifyChannel;
  void post(const std::string& name) override {
    posts.push_back(name);
    ForwardingNotifyChannel::post(name);
  }
  void addObserver(const void* observer, const std::string& name, Callback callback) override {
    changes.push_back("add " + name);
    ForwardingNotifyChannel::addObserver(observer, name, std::move(callback));
  }
  void removeObserver(const void* observer, const std::string& name) override {
    changes.push_back("remove " + name);
    ForwardingNotifyChannel::removeObserver(observer, name);
  }
  std::vector<std::string> posts;
  std::vector<std::string> changes;
};

// A transport that answers what it is told to.
class ScriptedTransport : public VXWormholeTransiting {
 public:
  bool writeMessageObject(const Value&, const std::optional<std::string>&) override {
    calls.emplace_back("write");
    return succeeds;
  }
  Value messageObjectForIdentifier(const std::optional<std::string>& identifier) override {
    calls.push_back("read " + identifier.value_or("nil"));
    readThread = std::this_thread::get_id();
    return object;
  }
  void deleteContentForIdentifier(const std::optional<std::string>& identifier) override {
    calls.push_back("delete " + identifier.value_or("nil"));
  }
  void deleteContentForAllMessages() override { calls.emplace_back("delete all"); }

  bool succeeds = true;
  Value object;
  std::vector<std::string> calls;
  std::thread::id readThread;
};

class WormholeTest : public testing::Test {
 protected:
  ScopedPlatform platform_{&test::noteRegistry()};
  RecordingChannel channel_{platform_.notifyChannel()};
  std::string folder_ =
      platform_.home().dataHome() + "/" + std::string(kApplicationGroupIdentifier) + "/wormhole";
  std::shared_ptr<VXWormhole> wormhole_;

  void SetUp() override {
    platform_.services().notifyChannel = &channel_;
    wormhole_ = make();
  }
  static std::shared_ptr<VXWormhole> make() {
    return VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                          kWormholeDirectory);
  }
  static VXWormhole::Listener appendTo(std::vector<Value>& heard) {
    return [&heard](const Value& object) { heard.push_back(object); };
  }
  // Waits until a message posted now has been delivered, hence everything that was posted before.
  void settle() {
    auto later = make();
    bool heard = false;
    later->listenForMessageWithIdentifier(kAfterwards, [&heard](const Value&) { heard = true; });
    later->passMessageObject(nullptr, kAfterwards);
    ASSERT_TRUE(waitUntil([&heard] { return heard; }));
    runPendingMainItems();
  }
};

TEST_F(WormholeTest, PlainInitIsNotUsable) {
  EXPECT_EQ(VXWormhole::init(), nullptr);
}

TEST_F(WormholeTest, WithoutGroupContainersEveryMessengerIsNil) {
  NoGroupContainers without(platform_.fileManager());
  platform_.services().fileManager = &without;
  EXPECT_EQ(make(), nullptr);
  for (const std::uint64_t type : {0, 1, 2}) {
    EXPECT_EQ(VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                             kWormholeDirectory, type),
              nullptr);
  }
}

TEST_F(WormholeTest, AMessengerStartsWithThePlainTransportAndNoListeners) {
  EXPECT_TRUE(wormhole_->listenerBlocks().empty());
  const auto transport =
      std::dynamic_pointer_cast<VXWormholeFileTransiting>(wormhole_->wormholeMessenger());
  ASSERT_NE(transport, nullptr);
  EXPECT_EQ(std::dynamic_pointer_cast<VXWormholeCoordinatedFileTransiting>(transport), nullptr);
  EXPECT_EQ(transport->applicationGroupIdentifier(), kApplicationGroupIdentifier);
  EXPECT_EQ(transport->directory(), kWormholeDirectory);
}

TEST_F(WormholeTest, TransitingTypeOneSelectsTheCoordinatedTransport) {
  const auto wormhole = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                                       kWormholeDirectory, 1);
  const auto transport =
      std::dynamic_pointer_cast<VXWormholeCoordinatedFileTransiting>(wormhole->wormholeMessenger());
  ASSERT_NE(transport, nullptr);
  EXPECT_EQ(transport->applicationGroupIdentifier(), kApplicationGroupIdentifier);
  EXPECT_EQ(transport->directory(), kWormholeDirectory);
}

TEST_F(WormholeTest, EveryOtherTransitingTypeLeavesThePlainTransport) {
  for (const std::uint64_t type : {std::uint64_t{0}, std::uint64_t{2}, ~std::uint64_t{0}}) {
    const auto wormhole = VXWormhole::initWithApplicationGroupIdentifier(
        kApplicationGroupIdentifier, std::nullopt, type);
    EXPECT_EQ(std::dynamic_pointer_cast<VXWormholeCoordinatedFileTransiting>(
                  wormhole->wormholeMessenger()),
              nullptr);
  }
}

TEST_F(WormholeTest, AMessengerCreatesNothingBeforeTheFirstMessage) {
  EXPECT_FALSE(std::filesystem::exists(folder_));
}

TEST_F(WormholeTest, PassingAnObjectPostsItsIdentifierAndStoresIt) {
  wormhole_->passMessageObject("hello", kMessageIdentifier);
  EXPECT_EQ(channel_.posts, std::vector<std::string>{kMessageIdentifier});
  EXPECT_TRUE(std::filesystem::exists(folder_ + "/TVTestMessage.archive"));
}

TEST_F(WormholeTest, TheListenerGetsAnEqualObject) {
  for (const auto& [name, object] : test::messageSamples()) {
    std::vector<Value> heard;
    wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
    wormhole_->passMessageObject(object, kMessageIdentifier);
    ASSERT_TRUE(waitUntil([&] { return !heard.empty(); })) << name;
    EXPECT_TRUE(heard[0] == object) << name;
  }
}

TEST_F(WormholeTest, AMessageIsReadAgainUntilItIsCleared) {
  wormhole_->passMessageObject("hello", kMessageIdentifier);
  EXPECT_EQ(wormhole_->messageWithIdentifier(kMessageIdentifier), Value("hello"));
  EXPECT_EQ(wormhole_->messageWithIdentifier(kMessageIdentifier), Value("hello"));
  wormhole_->clearMessageContentsForIdentifier(kMessageIdentifier);
  EXPECT_TRUE(wormhole_->messageWithIdentifier(kMessageIdentifier).isNull());
}

TEST_F(WormholeTest, PassingNilPostsTheNotificationAndWritesNoFile) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier("TVDidChangeNotification", appendTo(heard));
  wormhole_->passMessageObject(nullptr, "TVDidChangeNotification");
  EXPECT_EQ(channel_.posts, std::vector<std::string>{"TVDidChangeNotification"});
  ASSERT_TRUE(waitUntil([&] { return !heard.empty(); }));
  settle();
  EXPECT_EQ(heard, std::vector<Value>{nullptr});
  EXPECT_FALSE(std::filesystem::exists(folder_ + "/TVDidChangeNotification.archive"));
}

TEST_F(WormholeTest, PassingNilDeliversWhatWasStoredBefore) {
  wormhole_->passMessageObject("stored", kMessageIdentifier);
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
  wormhole_->passMessageObject(nullptr, kMessageIdentifier);
  ASSERT_TRUE(waitUntil([&] { return !heard.empty(); }));
  EXPECT_EQ(heard[0], Value("stored"));
}

TEST_F(WormholeTest, AFailedWriteAnnouncesNothing) {
  wormhole_->passMessageObject("object", "");
  wormhole_->passMessageObject("object", "no/such/folder");
  wormhole_->passMessageObject(std::make_shared<test::Stranger>(), kMessageIdentifier);
  EXPECT_TRUE(channel_.posts.empty());
}

TEST_F(WormholeTest, TheTransportDecidesWhetherToAnnounce) {
  const auto transport = std::make_shared<ScriptedTransport>();
  wormhole_->setWormholeMessenger(transport);
  EXPECT_EQ(wormhole_->wormholeMessenger(), transport);
  wormhole_->passMessageObject("object", kMessageIdentifier);
  EXPECT_EQ(channel_.posts.size(), 1U);
  transport->succeeds = false;
  wormhole_->passMessageObject("object", kMessageIdentifier);
  wormhole_->passMessageObject(nullptr, kMessageIdentifier);
  EXPECT_EQ(channel_.posts.size(), 1U);
}

TEST_F(WormholeTest, ReadingAndClearingGoToTheTransport) {
  const auto transport = std::make_shared<ScriptedTransport>();
  transport->object = 5;
  wormhole_->setWormholeMessenger(transport);
  EXPECT_EQ(wormhole_->messageWithIdentifier("a"), Value(5));
  wormhole_->clearMessageContentsForIdentifier("b");
  wormhole_->clearAllMessageContents();
  EXPECT_EQ(transport->calls, (std::vector<std::string>{"read a", "delete b", "delete all"}));
}

TEST_F(WormholeTest, AMessengerWithoutTransportDoesNothing) {
  wormhole_->setWormholeMessenger(nullptr);
  wormhole_->passMessageObject(nullptr, kMessageIdentifier);
  EXPECT_TRUE(wormhole_->messageWithIdentifier(kMessageIdentifier).isNull());
  wormhole_->clearMessageContentsForIdentifier(kMessageIdentifier);
  wormhole_->clearAllMessageContents();
  EXPECT_TRUE(channel_.posts.empty());
}

TEST_F(WormholeTest, ANilIdentifierDoesNothing) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(std::nullopt, appendTo(heard));
  EXPECT_TRUE(wormhole_->listenerBlocks().empty());
  EXPECT_EQ(platform_.notifyChannel().observationCount(), 0U);
  wormhole_->passMessageObject(nullptr, std::nullopt);
  wormhole_->passMessageObject("object", std::nullopt);
  wormhole_->sendNotificationForMessageWithIdentifier(std::nullopt);
  wormhole_->clearMessageContentsForIdentifier(std::nullopt);
  wormhole_->stopListeningForMessageWithIdentifier(std::nullopt);
  EXPECT_TRUE(wormhole_->messageWithIdentifier(std::nullopt).isNull());
  EXPECT_TRUE(channel_.posts.empty());
}

TEST_F(WormholeTest, AnEmptyIdentifierCarriesSignals) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier("", appendTo(heard));
  wormhole_->passMessageObject(nullptr, "");
  ASSERT_TRUE(waitUntil([&] { return !heard.empty(); }));
  EXPECT_EQ(heard, std::vector<Value>{nullptr});
}

TEST_F(WormholeTest, OddAndLongIdentifiersCarrySignals) {
  for (const std::string& identifier :
       {std::string("a/b/../c"), std::string(".."), std::string("new\nline"), std::string("\xff"),
        std::string("nul\0byte", 8), std::string(5000, 'n'), std::string(" ")}) {
    std::vector<Value> heard;
    wormhole_->listenForMessageWithIdentifier(identifier, appendTo(heard));
    wormhole_->passMessageObject(nullptr, identifier);
    ASSERT_TRUE(waitUntil([&] { return !heard.empty(); })) << identifier.size();
    EXPECT_EQ(heard, std::vector<Value>{nullptr});
    wormhole_->stopListeningForMessageWithIdentifier(identifier);
  }
}

TEST_F(WormholeTest, ListeningTwiceLeavesTheSecondListenerAndOneObservation) {
  std::vector<Value> first;
  std::vector<Value> second;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(first));
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(second));
  EXPECT_EQ(wormhole_->listenerBlocks().size(), 1U);
  EXPECT_EQ(platform_.notifyChannel().observationCount(), 1U);
  wormhole_->passMessageObject("once", kMessageIdentifier);
  ASSERT_TRUE(waitUntil([&] { return !second.empty(); }));
  settle();
  EXPECT_TRUE(first.empty());
  EXPECT_EQ(second, std::vector<Value>{"once"});
}

TEST_F(WormholeTest, RegisteringRemovesAnEarlierObservationFirst) {
  wormhole_->registerForNotificationsWithIdentifier("name");
  wormhole_->unregisterForNotificationsWithIdentifier("name");
  EXPECT_EQ(channel_.changes, (std::vector<std::string>{"remove name", "add name", "remove name"}));
  EXPECT_EQ(platform_.notifyChannel().observationCount(), 0U);
}

TEST_F(WormholeTest, AnEmptyListenerRemovesTheEntryAndKeepsTheObservation) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, nullptr);
  EXPECT_TRUE(wormhole_->listenerBlocks().empty());
  EXPECT_EQ(platform_.notifyChannel().observationCount(), 1U);
  wormhole_->passMessageObject("unheard", kMessageIdentifier);
  settle();
  EXPECT_TRUE(heard.empty());
}

TEST_F(WormholeTest, AfterStoppingANotificationCallsNothing) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
  wormhole_->stopListeningForMessageWithIdentifier(kMessageIdentifier);
  EXPECT_TRUE(wormhole_->listenerBlocks().empty());
  EXPECT_EQ(platform_.notifyChannel().observationCount(), 0U);
  wormhole_->passMessageObject("unheard", kMessageIdentifier);
  settle();
  EXPECT_TRUE(heard.empty());
}

TEST_F(WormholeTest, StoppingOneIdentifierLeavesTheOthers) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier("one", appendTo(heard));
  wormhole_->listenForMessageWithIdentifier("two", appendTo(heard));
  wormhole_->stopListeningForMessageWithIdentifier("one");
  wormhole_->passMessageObject(1, "one");
  wormhole_->passMessageObject(2, "two");
  ASSERT_TRUE(waitUntil([&] { return !heard.empty(); }));
  settle();
  EXPECT_EQ(heard, std::vector<Value>{2});
}

TEST_F(WormholeTest, StoppingWhatWasNeverListenedToDoesNothing) {
  wormhole_->stopListeningForMessageWithIdentifier(kMessageIdentifier);
  EXPECT_TRUE(wormhole_->listenerBlocks().empty());
}

TEST_F(WormholeTest, ACallScheduledBeforeStoppingStillComes) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
  wormhole_->notifyListenerForMessageWithIdentifier(kMessageIdentifier, "scheduled");
  wormhole_->stopListeningForMessageWithIdentifier(kMessageIdentifier);
  runPendingMainItems();
  EXPECT_EQ(heard, std::vector<Value>{"scheduled"});
}

TEST_F(WormholeTest, ACallScheduledBeforeTheMessengerIsGoneStillComes) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
  wormhole_->notifyListenerForMessageWithIdentifier(kMessageIdentifier, "scheduled");
  wormhole_ = nullptr;
  runPendingMainItems();
  EXPECT_EQ(heard, std::vector<Value>{"scheduled"});
}

TEST_F(WormholeTest, AMessengerThatIsGoneHearsNothing) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
  wormhole_->passMessageObject("unheard", kMessageIdentifier);
  wormhole_ = nullptr;
  EXPECT_EQ(platform_.notifyChannel().observationCount(), 0U);
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 0U);
  settle();
  EXPECT_TRUE(heard.empty());
}

TEST_F(WormholeTest, AListenerAndWhatItHoldsLiveUntilReplacedOrRemoved) {
  auto first = std::make_shared<int>(1);
  auto second = std::make_shared<int>(2);
  const std::weak_ptr<int> firstAlive = first;
  const std::weak_ptr<int> secondAlive = second;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier,
                                            [held = std::move(first)](const Value&) {});
  EXPECT_FALSE(firstAlive.expired());
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier,
                                            [held = std::move(second)](const Value&) {});
  EXPECT_TRUE(firstAlive.expired());
  EXPECT_FALSE(secondAlive.expired());
  wormhole_->stopListeningForMessageWithIdentifier(kMessageIdentifier);
  EXPECT_TRUE(secondAlive.expired());
}

TEST_F(WormholeTest, TheListenerOfAnIdentifierIsAnswered) {
  int calls = 0;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier,
                                            [&calls](const Value&) { ++calls; });
  ASSERT_TRUE(wormhole_->listenerBlockForIdentifier(kMessageIdentifier));
  wormhole_->listenerBlockForIdentifier(kMessageIdentifier)(nullptr);
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(wormhole_->listenerBlockForIdentifier("other"));
}

TEST_F(WormholeTest, TheListenersCanBeSetAsAWhole) {
  std::vector<Value> heard;
  wormhole_->setListenerBlocks({{kMessageIdentifier, appendTo(heard)}, {"empty", nullptr}});
  EXPECT_EQ(wormhole_->listenerBlocks().size(), 2U);
  wormhole_->notifyListenerForMessageWithIdentifier(kMessageIdentifier, 1);
  wormhole_->notifyListenerForMessageWithIdentifier("empty", 2);
  runPendingMainItems();
  EXPECT_EQ(heard, std::vector<Value>{1});
}

TEST_F(WormholeTest, AListenerNeverRunsInsideTheDelivery) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
  wormholeNotificationCallback(wormhole_.get(), kMessageIdentifier);
  EXPECT_TRUE(heard.empty());
  runPendingMainItems();
  EXPECT_EQ(heard.size(), 1U);
}

TEST_F(WormholeTest, ReceivingReadsTheMessageAtOnceAndDropsItWithoutAListener) {
  const auto transport = std::make_shared<ScriptedTransport>();
  wormhole_->setWormholeMessenger(transport);
  wormholeNotificationCallback(wormhole_.get(), kMessageIdentifier);
  EXPECT_EQ(transport->calls, std::vector<std::string>{"read TVTestMessage"});
  EXPECT_EQ(transport->readThread, std::this_thread::get_id());
  runPendingMainItems();
}

TEST_F(WormholeTest, TheCallbackPostsTheLocalNotificationWithTheMessengerAsSender) {
  std::vector<Notification> posted;
  const auto observation = platform_.notificationCenter().addObserver(
      "VXWormholeNotificationName", nullptr,
      [&](const Notification& notification) { posted.push_back(notification); });
  wormholeNotificationCallback(wormhole_.get(), kMessageIdentifier);
  ASSERT_EQ(posted.size(), 1U);
  EXPECT_EQ(posted[0].sender, wormhole_.get());
  EXPECT_EQ(posted[0].userInfo, (Value::Dictionary{{"identifier", kMessageIdentifier}}));
}

TEST_F(WormholeTest, ALocalNotificationOfAnotherSenderIsIgnored) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
  platform_.notificationCenter().post(
      {kWormholeNotificationName, &heard, {{"identifier", kMessageIdentifier}}});
  platform_.notificationCenter().post(
      {kWormholeNotificationName, nullptr, {{"identifier", kMessageIdentifier}}});
  runPendingMainItems();
  EXPECT_TRUE(heard.empty());
}

TEST_F(WormholeTest, ALocalNotificationWithoutIdentifierIsIgnored) {
  const auto transport = std::make_shared<ScriptedTransport>();
  wormhole_->setWormholeMessenger(transport);
  wormhole_->didReceiveMessageNotification({kWormholeNotificationName, wormhole_.get(), {}});
  wormhole_->didReceiveMessageNotification(
      {kWormholeNotificationName, wormhole_.get(), {{"identifier", nullptr}}});
  wormhole_->didReceiveMessageNotification(
      {kWormholeNotificationName, wormhole_.get(), {{"identifier", 5}}});
  EXPECT_TRUE(transport->calls.empty());
}

TEST_F(WormholeTest, EachReceivedNotificationMakesOneCallInOrder) {
  const auto transport = std::make_shared<ScriptedTransport>();
  wormhole_->setWormholeMessenger(transport);
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
  for (int number = 0; number < 5; ++number) {
    transport->object = number;
    wormholeNotificationCallback(wormhole_.get(), kMessageIdentifier);
  }
  runPendingMainItems();
  EXPECT_EQ(heard, (std::vector<Value>{0, 1, 2, 3, 4}));
}

TEST_F(WormholeTest, TwoMessengersOfOneProcessEachReadAndCallTheirOwnListener) {
  const auto other = make();
  const auto transport = std::make_shared<ScriptedTransport>();
  const auto otherTransport = std::make_shared<ScriptedTransport>();
  transport->object = "mine";
  otherTransport->object = "yours";
  wormhole_->setWormholeMessenger(transport);
  other->setWormholeMessenger(otherTransport);
  std::vector<Value> mine;
  std::vector<Value> yours;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(mine));
  other->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(yours));
  wormhole_->passMessageObject(nullptr, kMessageIdentifier);
  ASSERT_TRUE(waitUntil([&] { return !mine.empty() && !yours.empty(); }));
  settle();
  EXPECT_EQ(mine, std::vector<Value>{"mine"});
  EXPECT_EQ(yours, std::vector<Value>{"yours"});
  EXPECT_EQ(transport->calls, (std::vector<std::string>{"write", "read TVTestMessage"}));
  EXPECT_EQ(otherTransport->calls, std::vector<std::string>{"read TVTestMessage"});
}

TEST_F(WormholeTest, AListenerGetsNilWhenTheStoredMessageCannotBeRead) {
  std::vector<Value> heard;
  wormhole_->passMessageObject("good", kMessageIdentifier);
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, appendTo(heard));
  const Data damaged{'n', 'o'};
  platform_.fileManager().writeDataToFile(damaged, folder_ + "/TVTestMessage.archive", false);
  wormhole_->sendNotificationForMessageWithIdentifier(kMessageIdentifier);
  ASSERT_TRUE(waitUntil([&] { return !heard.empty(); }));
  EXPECT_EQ(heard, std::vector<Value>{nullptr});
}

TEST_F(WormholeTest, AListenerMayStopItself) {
  int calls = 0;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, [&](const Value&) {
    ++calls;
    wormhole_->stopListeningForMessageWithIdentifier(kMessageIdentifier);
  });
  wormhole_->passMessageObject(nullptr, kMessageIdentifier);
  ASSERT_TRUE(waitUntil([&] { return calls > 0; }));
  wormhole_->passMessageObject(nullptr, kMessageIdentifier);
  settle();
  EXPECT_EQ(calls, 1);
}

TEST_F(WormholeTest, AListenerMayDropTheMessenger) {
  bool called = false;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, [&](const Value&) {
    wormhole_ = nullptr;
    called = true;
  });
  wormhole_->passMessageObject(nullptr, kMessageIdentifier);
  ASSERT_TRUE(waitUntil([&] { return called; }));
  EXPECT_EQ(wormhole_, nullptr);
}

TEST_F(WormholeTest, AListenerMayPassAMessageOfTheSameIdentifier) {
  std::vector<Value> heard;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, [&](const Value& object) {
    heard.push_back(object);
    if (heard.size() == 1) wormhole_->passMessageObject("answer", kMessageIdentifier);
  });
  wormhole_->passMessageObject("question", kMessageIdentifier);
  ASSERT_TRUE(waitUntil([&] { return heard.size() == 2; }));
  EXPECT_EQ(heard, (std::vector<Value>{"question", "answer"}));
}

TEST_F(WormholeTest, AnyThreadMaySend) {
  std::vector<Value> heard;
  std::thread::id listenerThread;
  wormhole_->listenForMessageWithIdentifier(kMessageIdentifier, [&](const Value& object) {
    heard.push_back(object);
    listenerThread = std::this_thread::get_id();
  });
  platform_.services().notifyChannel = &platform_.notifyChannel();
  std::vector<std::thread> senders;
  for (int number = 0; number < 4; ++number) {
    senders.emplace_back([] {
      const auto sender = make();
      for (int sent = 0; sent < 50; ++sent) sender->passMessageObject(sent, kMessageIdentifier);
    });
  }
  for (auto& sender : senders) sender.join();
  ASSERT_TRUE(waitUntil([&] { return !heard.empty() && heard.back() == Value(49); }));
  settle();
  EXPECT_EQ(listenerThread, std::this_thread::get_id());
}

TEST_F(WormholeTest, ClearingAllEmptiesTheMessageDirectory) {
  wormhole_->passMessageObject(1, "one");
  wormhole_->passMessageObject(2, "two");
  wormhole_->clearAllMessageContents();
  EXPECT_TRUE(wormhole_->messageWithIdentifier("one").isNull());
  EXPECT_TRUE(wormhole_->messageWithIdentifier("two").isNull());
  EXPECT_TRUE(std::filesystem::is_empty(folder_));
}

TEST_F(WormholeTest, ClearingAllWithAnEmptyDirectoryNameKeepsTheContainer) {
  const auto wormhole =
      VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier, "");
  wormhole->passMessageObject("kept", kMessageIdentifier);
  wormhole->clearAllMessageContents();
  EXPECT_EQ(wormhole->messageWithIdentifier(kMessageIdentifier), Value("kept"));
}

TEST_F(WormholeTest, AnUnknownGroupStoresNothingAndStillCarriesSignals) {
  const auto unknown = VXWormhole::initWithApplicationGroupIdentifier("no.such.group", "wormhole");
  ASSERT_NE(unknown, nullptr);
  unknown->passMessageObject("object", kMessageIdentifier);
  EXPECT_TRUE(channel_.posts.empty());
  unknown->passMessageObject(nullptr, kMessageIdentifier);
  EXPECT_EQ(channel_.posts, std::vector<std::string>{kMessageIdentifier});
}

}  // namespace
}  // namespace tervano
