#include <iostream>
#include <set>

#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "messaging/message_identifiers.h"
#include "messaging/vx_wormhole.h"
#include "platform/notify_channel.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

int watch(const std::vector<std::string>& words) {
  const Arguments arguments(words, {});
  const std::set<std::string> wanted(arguments.positional().begin(), arguments.positional().end());
  bool broken = false;
  platform().notifyChannel->addObserverOfEveryName(&wanted, [&](const std::string& name) {
    if (!wanted.empty() && !wanted.contains(name)) return;
    std::cout << printable(name) << std::endl;
    broken = !std::cout;
  });
  platform().runLoop->runMainLoopUntil([&] { return broken; }, -1);
  platform().notifyChannel->removeEveryObserver(&wanted);
  return kExitFailure;
}

int post(const std::vector<std::string>& words) {
  const Arguments arguments(words, {});
  arguments.requirePositional(1, 1, tr("The identifier"));
  const auto& identifier = arguments.positional().front();
  if (identifier.empty()) throw UsageError(tr("An empty identifier names no message."));
  const auto wormhole = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                                       kWormholeDirectory);
  if (wormhole == nullptr) throw CommandError(tr("There is no messenger on this system."));
  wormhole->passMessageObject(nullptr, identifier);
  return kExitSuccess;
}

}  // namespace

std::vector<Command> messageCommands() {
  return {
      {{"watch",
        trMark("print the identifier of each message between Tervano's processes as it arrives"),
        {"[IDENTIFIER...]"},
        {trMark("One line a message, until interrupted. Messages that arrive faster than they are "
                "read may be shown as one. With identifiers, only these.")},
        {}},
       watch},
      {{"post",
        trMark("send a message without content to every listening process"),
        {"IDENTIFIER"},
        {trMark("For example TVDidChangeNotification, upon which the file managers read the action "
                "list again.")},
        {}},
       post},
  };
}

}  // namespace tervano
