#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <map>

#include "messaging/message_identifiers.h"
#include "messaging/vx_wormhole.h"
#include "messaging/vx_wormhole_coordinated_file_transiting.h"
#include "platform/file_coordinator.h"
#include "platform/platform.h"
#include "tests/messaging/message_samples.h"
#include "tests/support/program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano {
namespace {

using test::asWord;
using test::ChildProcess;
using test::ScopedPlatform;
using test::waitUntil;

constexpr char kSharedIdentifier[] = "TVTestMessage";
constexpr char kFinish[] = "TVTestFinish";

std::string asObject(const Value& object) {
  if (const auto* number = object.getIf<std::int64_t>()) return "int:" + std::to_string(*number);
  if (const auto* text = object.getIf<std::string>()) return "text:" + asWord(*text);
  return "nil";
}

// Another process with a messenger on the same group.
class Peer {
 public:
  explicit Peer(std::uint64_t transitingType)
      : process_(test::startProgram(MESSAGING_PEER,
                                    {std::to_string(transitingType), kWormholeDirectory})) {}

  void tell(const std::string& command, const std::string& identifier,
            const std::string& argument = "") {
    process_.say(command + " " + asWord(identifier) + " " + argument);
  }
  void listen(const std::string& identifier) {
    tell("listen", identifier);
    ASSERT_EQ(process_.hear(), "listening");
  }
  void pass(const Value& object, const std::string& identifier) {
    tell("pass", identifier, asObject(object));
    ASSERT_EQ(process_.hear(), "passed");
  }
  std::optional<std::string> hear() { return process_.hear(); }
  static std::string heard(const std::string& identifier, const Value& object) {
    return "heard " + asWord(identifier) + " " + asObject(object);
  }
  ChildProcess& process() { return process_; }

 private:
  ChildProcess process_;
};

// Every test runs with the plain and with the coordinated transport in both processes.
class TwoProcessesTest : public testing::TestWithParam<std::uint64_t> {
 protected:
  ScopedPlatform platform_{&test::noteRegistry()};
  std::shared_ptr<VXWormhole> wormhole_ = VXWormhole::initWithApplicationGroupIdentifier(
      kApplicationGroupIdentifier, kWormholeDirectory, GetParam());
  // Shared with the listeners, of which a scheduled call may come late.
  std::shared_ptr<std::vector<Value>> heard_ = std::make_shared<std::vector<Value>>();

  void listenHere(const std::string& identifier = kSharedIdentifier) {
    wormhole_->listenForMessageWithIdentifier(
        identifier, [heard = heard_](const Value& object) { heard->push_back(object); });
  }
  // Passes one more message and reads what the peer says up to it.
  std::vector<std::string> everythingHeardBy(Peer& peer) {
    wormhole_->passMessageObject(nullptr, kFinish);
    std::vector<std::string> lines;
    while (true) {
      const auto line = peer.hear();
      if (!line) {
        ADD_FAILURE() << "the peer fell silent";
        return lines;
      }
      if (*line == Peer::heard(kFinish, nullptr)) return lines;
      lines.push_back(*line);
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Transports, TwoProcessesTest, testing::Values(0, 1), [](const auto& info) {
  return info.param == 1 ? "Coordinated" : "Plain";
});

TEST_P(TwoProcessesTest, ANilMessageReachesTheOtherProcessOnce) {
  Peer peer(GetParam());
  peer.listen("TVDidChangeNotification");
  peer.listen(kFinish);
  wormhole_->passMessageObject(nullptr, "TVDidChangeNotification");
  EXPECT_EQ(peer.hear(), Peer::heard("TVDidChangeNotification", nullptr));
  EXPECT_TRUE(everythingHeardBy(peer).empty());
}

TEST_P(TwoProcessesTest, AnObjectReachesTheOtherProcess) {
  Peer peer(GetParam());
  peer.listen(kSharedIdentifier);
  wormhole_->passMessageObject("gr\xc3\xbc\xc3\x9f dich", kSharedIdentifier);
  EXPECT_EQ(peer.hear(), Peer::heard(kSharedIdentifier, "gr\xc3\xbc\xc3\x9f dich"));
}

TEST_P(TwoProcessesTest, MessagesGoBothWays) {
  Peer peer(GetParam());
  peer.listen("there");
  listenHere("back");
  wormhole_->passMessageObject(1, "there");
  EXPECT_EQ(peer.hear(), Peer::heard("there", 1));
  peer.pass(2, "back");
  ASSERT_TRUE(waitUntil([this] { return !heard_->empty(); }));
  EXPECT_EQ(*heard_, std::vector<Value>{2});
}

TEST_P(TwoProcessesTest, AMessageStaysForAProcessThatComesLater) {
  wormhole_->passMessageObject("waiting", kSharedIdentifier);
  Peer peer(GetParam());
  peer.tell("read", kSharedIdentifier);
  EXPECT_EQ(peer.hear(), "stored " + asObject("waiting"));
}

TEST_P(TwoProcessesTest, AMessageStaysAfterItsSenderEnded) {
  {
    Peer peer(GetParam());
    peer.pass("left behind", kSharedIdentifier);
  }
  EXPECT_EQ(wormhole_->messageWithIdentifier(kSharedIdentifier), Value("left behind"));
}

TEST_P(TwoProcessesTest, ClearingInTheOtherProcessClearsHere) {
  wormhole_->passMessageObject("gone", kSharedIdentifier);
  Peer peer(GetParam());
  peer.tell("clear", kSharedIdentifier);
  EXPECT_EQ(peer.hear(), "cleared");
  EXPECT_TRUE(wormhole_->messageWithIdentifier(kSharedIdentifier).isNull());
}

TEST_P(TwoProcessesTest, AfterStoppingTheOtherProcessHearsNothing) {
  Peer peer(GetParam());
  peer.listen(kSharedIdentifier);
  peer.listen(kFinish);
  peer.tell("stop", kSharedIdentifier);
  EXPECT_EQ(peer.hear(), "stopped");
  wormhole_->passMessageObject("unheard", kSharedIdentifier);
  EXPECT_TRUE(everythingHeardBy(peer).empty());
}

TEST_P(TwoProcessesTest, ListeningTwiceInTheOtherProcessMakesOneCall) {
  Peer peer(GetParam());
  peer.listen(kSharedIdentifier);
  peer.listen(kSharedIdentifier);
  peer.listen(kFinish);
  wormhole_->passMessageObject("once", kSharedIdentifier);
  EXPECT_EQ(everythingHeardBy(peer),
            std::vector<std::string>{Peer::heard(kSharedIdentifier, "once")});
}

TEST_P(TwoProcessesTest, ADroppedMessengerOfTheOtherProcessHearsNothingAndSendersGoOn) {
  Peer peer(GetParam());
  peer.listen(kSharedIdentifier);
  peer.tell("drop", kSharedIdentifier);
  EXPECT_EQ(peer.hear(), "dropped");
  wormhole_->passMessageObject("unheard", kSharedIdentifier);
  EXPECT_EQ(wormhole_->messageWithIdentifier(kSharedIdentifier), Value("unheard"));
  EXPECT_EQ(peer.process().hear(0.2), std::nullopt);
}

TEST_P(TwoProcessesTest, AKilledListenerDisturbsNeitherSenderNorOtherListeners) {
  Peer killed(GetParam());
  Peer living(GetParam());
  killed.listen(kSharedIdentifier);
  living.listen(kSharedIdentifier);
  killed.process().kill(SIGKILL);
  ASSERT_EQ(killed.process().waitForExit(), -SIGKILL);
  wormhole_->passMessageObject("still here", kSharedIdentifier);
  EXPECT_EQ(living.hear(), Peer::heard(kSharedIdentifier, "still here"));
}

TEST_P(TwoProcessesTest, ASenderKilledInTheMiddleLeavesAWholeMessageAndAWorkingChannel) {
  const Value::Array small{std::string(10, 'a'), std::string(10, 'a')};
  const Value::Array large{std::string(300'000, 'b'), std::string(300'000, 'b')};
  for (int round = 0; round < 5; ++round) {
    Peer sender(GetParam());
    sender.tell("hammer", kSharedIdentifier, "300000");
    ASSERT_EQ(sender.hear(), "hammering");
    sender.process().kill(SIGKILL);
    ASSERT_EQ(sender.process().waitForExit(), -SIGKILL);
    const auto stored = wormhole_->messageWithIdentifier(kSharedIdentifier);
    EXPECT_TRUE(stored == Value(small) || stored == Value(large));
  }
  Peer listener(GetParam());
  listener.listen(kSharedIdentifier);
  wormhole_->passMessageObject("after", kSharedIdentifier);
  EXPECT_EQ(listener.hear(), Peer::heard(kSharedIdentifier, "after"));
}

TEST_P(TwoProcessesTest, AReaderNeverSeesHalfAMessageWhileAnotherProcessWrites) {
  const Value small(Value::Array{std::string(10, 'a'), std::string(10, 'a')});
  const Value large(Value::Array{std::string(300'000, 'b'), std::string(300'000, 'b')});
  Peer writer(GetParam());
  writer.tell("hammer", kSharedIdentifier, "300000");
  ASSERT_EQ(writer.hear(), "hammering");
  bool sawSmall = false;
  bool sawLarge = false;
  for (int reading = 0; reading < 300 || (reading < 100'000 && !(sawSmall && sawLarge));
       ++reading) {
    const auto message = wormhole_->messageWithIdentifier(kSharedIdentifier);
    if (message == small) {
      sawSmall = true;
    } else {
      ASSERT_TRUE(message == large) << "reading " << reading;
      sawLarge = true;
    }
  }
  EXPECT_TRUE(sawSmall && sawLarge);
}

TEST_P(TwoProcessesTest, TwoWritingProcessesNeverMixTheirMessages) {
  const Value small(Value::Array{std::string(10, 'a'), std::string(10, 'a')});
  const Value large(Value::Array{std::string(50'000, 'b'), std::string(50'000, 'b')});
  Peer first(GetParam());
  Peer second(GetParam());
  for (Peer* writer : {&first, &second}) {
    writer->tell("hammer", kSharedIdentifier, "50000");
    ASSERT_EQ(writer->hear(), "hammering");
  }
  for (int reading = 0; reading < 200; ++reading) {
    const auto message = wormhole_->messageWithIdentifier(kSharedIdentifier);
    ASSERT_TRUE(message == small || message == large) << "reading " << reading;
  }
}

TEST_P(TwoProcessesTest, ABusyListenerLosesNothingButMergedSignalsAndGetsTheLastObject) {
  listenHere();
  Peer sender(GetParam());
  sender.tell("flood", kSharedIdentifier, "1000");
  // This process does not turn its main loop until all posts are out.
  ASSERT_EQ(sender.process().hear(60), "passed");
  ASSERT_TRUE(waitUntil([this] { return !heard_->empty() && heard_->back() == Value(1000); }));
  EXPECT_LE(heard_->size(), 1000U);
  EXPECT_TRUE(std::is_sorted(heard_->begin(), heard_->end(), [](const Value& a, const Value& b) {
    return longLongValue(a) < longLongValue(b);
  }));
}

TEST_P(TwoProcessesTest, AStoppedListenerNeverHoldsUpTheSender) {
  Peer listener(GetParam());
  listener.listen(kSharedIdentifier);
  listener.process().kill(SIGSTOP);
  for (int number = 1; number <= 1000; ++number) {
    wormhole_->passMessageObject(test::floodMessage(number, 1000), kSharedIdentifier);
  }
  listener.process().kill(SIGCONT);
  std::optional<std::string> last;
  do {
    last = listener.hear();
  } while (last && *last != Peer::heard(kSharedIdentifier, 1000));
  EXPECT_EQ(last, Peer::heard(kSharedIdentifier, 1000));
}

TEST_P(TwoProcessesTest, ASlowListenerGetsTheLastOfAThousandMessages) {
  Peer sender(GetParam());
  // Slow in terms of work, not of time.
  wormhole_->passMessageObject(std::string(100'000, 'x'), "work");
  wormhole_->listenForMessageWithIdentifier(
      kSharedIdentifier,
      [heard = heard_, wormhole = std::weak_ptr(wormhole_)](const Value& object) {
        heard->push_back(object);
        const auto reader = wormhole.lock();
        for (int again = 0; again < 20 && reader != nullptr; ++again) {
          reader->messageWithIdentifier("work");
        }
      });
  sender.tell("flood", kSharedIdentifier, "1000");
  ASSERT_TRUE(waitUntil([this] { return !heard_->empty() && heard_->back() == Value(1000); }, 60));
  EXPECT_EQ(sender.hear(), "passed");
}

TEST_P(TwoProcessesTest, TheLastMessageIsNeverLost) {
  listenHere();
  Peer sender(GetParam());
  for (int round = 1; round <= 50; ++round) {
    sender.tell("flood", kSharedIdentifier, std::to_string(round));
    ASSERT_TRUE(waitUntil([&] { return !heard_->empty() && heard_->back() == Value(round); }))
        << "round " << round;
    ASSERT_EQ(sender.hear(), "passed");
  }
}

TEST_P(TwoProcessesTest, TwentyListeningProcessesAllHearTheMessage) {
  std::vector<std::unique_ptr<Peer>> listeners;
  for (int number = 0; number < 20; ++number) {
    listeners.push_back(std::make_unique<Peer>(GetParam()));
    listeners.back()->listen(kSharedIdentifier);
  }
  wormhole_->passMessageObject("to all", kSharedIdentifier);
  for (const auto& listener : listeners) {
    EXPECT_EQ(listener->hear(), Peer::heard(kSharedIdentifier, "to all"));
  }
}

TEST_P(TwoProcessesTest, OddAndLongIdentifiersReachTheOtherProcess) {
  Peer peer(GetParam());
  for (const std::string& identifier :
       {std::string(" "), std::string("."), std::string(".."), std::string("-x"),
        std::string("a b\tc"), std::string("new\nline"), std::string("100%41"),
        std::string("\xff\xfe"), std::string("caf\xc3\xa9"), std::string(247, 'n')}) {
    peer.listen(identifier);
    wormhole_->passMessageObject("odd", identifier);
    EXPECT_EQ(peer.hear(), Peer::heard(identifier, "odd")) << asWord(identifier);
  }
}

TEST_P(TwoProcessesTest, IdentifiersThatNameNoFileStillCarrySignals) {
  Peer peer(GetParam());
  for (const std::string& identifier : {std::string(), std::string("no/such/folder"),
                                        std::string("nul\0byte", 8), std::string(3000, 'n')}) {
    peer.listen(identifier);
    wormhole_->passMessageObject(nullptr, identifier);
    EXPECT_EQ(peer.hear(), Peer::heard(identifier, nullptr)) << asWord(identifier);
  }
}

TEST_P(TwoProcessesTest, IdentifiersThatDifferInOneByteAreNotMixedUp) {
  Peer peer(GetParam());
  for (const char* identifier : {"name", "Name", "name ", "name.", "nam", kFinish}) {
    peer.listen(identifier);
  }
  wormhole_->passMessageObject(nullptr, "Name");
  EXPECT_EQ(everythingHeardBy(peer), std::vector<std::string>{Peer::heard("Name", nullptr)});
}

// The product's own arrangement: one side coordinated, the other not.
TEST(MixedTransportsTest, ACoordinatedAndAPlainProcessUnderstandEachOther) {
  const ScopedPlatform platform(&test::noteRegistry());
  const auto wormhole = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                                       kWormholeDirectory, 1);
  Peer peer(0);
  peer.listen("there");
  wormhole->passMessageObject("coordinated", "there");
  EXPECT_EQ(peer.hear(), Peer::heard("there", "coordinated"));
  peer.pass("plain", "back");
  EXPECT_EQ(wormhole->messageWithIdentifier("back"), Value("plain"));
}

TEST(MixedTransportsTest, AWriterWaitsForAReaderThatHoldsTheFile) {
  const ScopedPlatform platform(&test::noteRegistry());
  VXWormholeCoordinatedFileTransiting transport(kApplicationGroupIdentifier, kWormholeDirectory);
  ASSERT_TRUE(transport.writeMessageObject("before", kSharedIdentifier));
  const auto path = transport.filePathForIdentifier(kSharedIdentifier);
  auto writer = [&] {
    std::optional<ChildProcess> child;
    tervano::platform().fileCoordinator->coordinateReading(*path, [&](const std::string&) {
      child.emplace(test::startProgram(MESSAGING_PEER, {"1", kWormholeDirectory}));
      child->say("pass " + asWord(kSharedIdentifier) + " int:5");
      EXPECT_EQ(child->hear(0.3), std::nullopt) << "the writer did not wait";
      EXPECT_EQ(VXWormholeFileTransiting(kApplicationGroupIdentifier, kWormholeDirectory)
                    .messageObjectForIdentifier(kSharedIdentifier),
                Value("before"));
    });
    return std::move(*child);
  }();
  EXPECT_EQ(writer.hear(), "passed");
  EXPECT_EQ(transport.messageObjectForIdentifier(kSharedIdentifier), Value(5));
}

}  // namespace
}  // namespace tervano
