// The second process of the preferences' tests.
//
//   get NAME          answers "yes" or "no" by a fresh TVUserDefaults
//   kept NAME         the same by one instance kept from the start
//   set NAME yes|no   sets through a fresh TVUserDefaults; answers "set"
//   flood NAME COUNT  sets yes and no in turn; answers "set"
//   listen            answers "listening", and says "changed OBJECT" for each message of a change

#include "archive/coding.h"
#include "messaging/message_identifiers.h"
#include "platform/linux/linux_platform.h"
#include "prefs/tv_user_defaults.h"
#include "tests/support/program.h"

using namespace tervano;
using namespace tervano::test;

namespace {

void answer(const TVUserDefaults& defaults, const std::string& name) {
  const auto value = defaults.preferenceNamed(name);
  sayLine(!value ? "unknown" : *value ? "yes" : "no");
}

}  // namespace

int main() {
  static const ClassRegistry registry;
  LinuxPlatformOptions options;
  options.classRegistry = &registry;
  installPlatform(linuxPlatform(options));
  const auto kept = TVUserDefaults::create();
  const auto wormhole = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                                       kWormholeDirectory);
  return serveLines([&](const std::vector<std::string>& words) {
    if (words[0] == "get") {
      answer(*TVUserDefaults::create(), words[1]);
    } else if (words[0] == "kept") {
      answer(*kept, words[1]);
    } else if (words[0] == "set") {
      TVUserDefaults::create()->setPreferenceNamed(words[1], words[2] == "yes");
      sayLine("set");
    } else if (words[0] == "flood") {
      const auto defaults = TVUserDefaults::create();
      for (int number = 0; number < std::stoi(words[2]); ++number) {
        defaults->setPreferenceNamed(words[1], number % 2 == 0);
      }
      sayLine("set");
    } else if (words[0] == "listen") {
      wormhole->listenForMessageWithIdentifier(
          kUserDefaultsDidChangeNotification,
          [](const Value& object) { sayLine(object.isNull() ? "changed nil" : "changed other"); });
      sayLine("listening");
    }
  });
}
