#include <csignal>
#include <exception>
#include <string>
#include <vector>

#include "tools/defaults/commands.h"

namespace tervano {

namespace {

constexpr char kHelp[] =
    "Use: tervano-defaults delete DOMAIN\n"
    "     tervano-defaults restore BACKUP\n"
    "\n"
    "delete   Resets what the user has set in the application DOMAIN, such as\n"
    "         org.gnome.gedit: its settings schemas and everything in the settings\n"
    "         database that belongs to them, and its own preferences file. What was\n"
    "         set is backed up first, and the backup's folder is told. An application\n"
    "         that runs may write its settings again.\n"
    "restore  Puts back what is in a backup. What has been set elsewhere in the\n"
    "         domain since then stays.\n"
    "\n"
    "The exit status is 0 for success, 1 when something could not be done, 2 for wrong\n"
    "usage. Every failure is told in a sentence on standard error.\n";

int run(const std::vector<std::string>& words) {
  if (words.size() == 1 && (words[0] == "--help" || words[0] == "-h")) {
    return print(kHelp) ? kExitSuccess : kExitFailure;
  }
  if (words.size() == 2 && words[0] == "delete") return deleteDomain(words[1]);
  if (words.size() == 2 && words[0] == "restore") return restoreBackup(words[1]);
  complain("Use \"tervano-defaults delete DOMAIN\" or \"tervano-defaults restore BACKUP\".");
  return kExitUsage;
}

}  // namespace

}  // namespace tervano

// Stands for the defaults tool of the operating system, of which the actions use "delete DOMAIN".
int main(int argc, char** argv) {
  // Whoever has started this may be gone before the end.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return tervano::run({argv + 1, argv + argc});
  } catch (const std::exception& exception) {
    tervano::complain(exception.what());
    return tervano::kExitFailure;
  }
}
