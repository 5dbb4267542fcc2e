#include <csignal>
#include <iostream>

#include "actions/register_action_classes.h"
#include "archive/platform_exception.h"
#include "archive/url.h"
#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/complain.h"
#include "companion/silent_log.h"
#include "platform/linux/installed_bundle.h"
#include "platform/linux/linux_platform.h"
#include "translation/translation.h"

namespace tervano {

namespace {

const Command& requireCommand(const std::vector<Command>& commands, const std::string& name) {
  for (const auto& command : commands) {
    if (command.help.name == name) return command;
  }
  throw UsageError(
      tr("There is no command \"{1}\"; \"tervano help\" lists them.", printable(name)));
}

int help(const std::vector<Command>& commands, const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"man"}});
  arguments.requirePositional(0, 1, "");
  const bool asManualPage = arguments.has("man");
  if (arguments.positional().empty()) {
    const auto all = helpOfAllCommands();
    std::cout << (asManualPage ? overviewManualPage(all) : overviewText(all));
  } else {
    const auto& command = requireCommand(commands, arguments.positional().front()).help;
    std::cout << (asManualPage ? manualPage(command) : helpText(command));
  }
  return kExitSuccess;
}

void installLinuxPlatform(bool logs) {
  static ClassRegistry registry;
  registerActionClasses(registry);
  LinuxPlatformOptions options;
  options.classRegistry = &registry;
  static Platform services = linuxPlatform(options);
  static SilentLog silentLog;
  if (!logs) services.log = &silentLog;
  installPlatform(services);
}

int perform(std::vector<std::string> words) {
  const auto commands = allCommands();
  if (words.empty()) {
    std::cerr << overviewText(helpOfAllCommands());
    return kExitUsage;
  }
  const std::string name = words.front();
  words.erase(words.begin());
  if (name == "help" || name == "--help" || name == "-h") return help(commands, words);
  if (name == "--version") {
    std::cout << "tervano " TERVANO_VERSION "\n";
    return kExitSuccess;
  }
  const Command& command = requireCommand(commands, name);
  if (!words.empty() && (words.front() == "--help" || words.front() == "-h")) {
    return help(commands, {name});
  }
  installLinuxPlatform(command.logs);
  return command.run(words);
}

int performGuarded(int argc, char** argv) {
  try {
    const int status = perform({argv + 1, argv + argc});
    std::cout.flush();
    if (!std::cout) throw CommandError(tr("The output could not be written."));
    return status;
  } catch (const UsageError& error) {
    complain(error.what());
    return kExitUsage;
  } catch (const PlatformException& exception) {
    complain(exception.reason());
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return kExitFailure;
}

}  // namespace

}  // namespace tervano

int main(int argc, char** argv) {
  tervano::useLanguageOfUser(
      tervano::deletingLastPathComponent(tervano::InstalledBundle().resourcePath()) + "/locale");
  std::signal(SIGPIPE, SIG_IGN);
  return tervano::performGuarded(argc, argv);
}
