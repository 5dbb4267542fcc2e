// The second process of the messenger's tests: one VXWormhole on the product's group.
//
//   messaging_peer TRANSITING_TYPE DIRECTORY
//
//   listen ID        says "heard ID OBJECT" for every call of the listener; answers "listening"
//   stop ID          answers "stopped"
//   pass ID OBJECT   answers "passed"
//   flood ID COUNT   passes COUNT messages (see floodMessage); answers "passed"
//   hammer ID SIZE   says "hammering", then stores messages of two kinds in turn until it is killed
//   read ID          answers "stored OBJECT"
//   clear            clears all messages; answers "cleared"
//   drop             destroys the messenger; answers "dropped"
//
// ID is a word for any bytes; OBJECT is "nil", "int:N" or "text:" and such a word.

#include "archive/coding.h"
#include "messaging/message_identifiers.h"
#include "messaging/vx_wormhole.h"
#include "platform/linux/linux_platform.h"
#include "tests/messaging/message_samples.h"
#include "tests/support/program.h"

using namespace tervano;
using namespace tervano::test;

namespace {

Value objectFrom(const std::string& text) {
  if (text.starts_with("int:")) return static_cast<std::int64_t>(std::stoll(text.substr(4)));
  if (text.starts_with("text:")) return fromWord(text.substr(5));
  return nullptr;
}

std::string described(const Value& object) {
  if (const auto* number = object.getIf<std::int64_t>()) return "int:" + std::to_string(*number);
  if (const auto* text = object.getIf<std::string>()) return "text:" + asWord(*text);
  return object.isNull() ? "nil" : "other";
}

// A message whose halves agree: a reader that gets one of each kind has seen a torn file.
Value evenMessage(char kind, std::size_t size) {
  return Value::Array{std::string(size, kind), std::string(size, kind)};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  static const ClassRegistry registry;
  LinuxPlatformOptions options;
  options.classRegistry = &registry;
  installPlatform(linuxPlatform(options));
  auto wormhole = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                                 argv[2], std::stoull(argv[1]));

  return serveLines([&](const std::vector<std::string>& words) {
    const std::string identifier = words.size() > 1 ? fromWord(words[1]) : "";
    if (words[0] == "listen") {
      wormhole->listenForMessageWithIdentifier(identifier, [word = words[1]](const Value& object) {
        sayLine("heard " + word + " " + described(object));
      });
      sayLine("listening");
    } else if (words[0] == "stop") {
      wormhole->stopListeningForMessageWithIdentifier(identifier);
      sayLine("stopped");
    } else if (words[0] == "pass") {
      wormhole->passMessageObject(objectFrom(words[2]), identifier);
      sayLine("passed");
    } else if (words[0] == "flood") {
      for (std::int64_t number = 1; number <= std::stoll(words[2]); ++number) {
        wormhole->passMessageObject(floodMessage(number, std::stoll(words[2])), identifier);
      }
      sayLine("passed");
    } else if (words[0] == "hammer") {
      const auto small = evenMessage('a', 10);
      const auto large = evenMessage('b', std::stoul(words[2]));
      wormhole->passMessageObject(small, identifier);
      sayLine("hammering");
      while (true) {
        wormhole->passMessageObject(large, identifier);
        wormhole->passMessageObject(small, identifier);
      }
    } else if (words[0] == "read") {
      sayLine("stored " + described(wormhole->messageWithIdentifier(identifier)));
    } else if (words[0] == "clear") {
      wormhole->clearAllMessageContents();
      sayLine("cleared");
    } else if (words[0] == "drop") {
      wormhole = nullptr;
      sayLine("dropped");
    }
  });
}
