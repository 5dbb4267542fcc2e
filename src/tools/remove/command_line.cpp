#include "tools/remove/command_line.h"

#include "archive/printable.h"

namespace tervano {

namespace {

void takeLetters(const std::string& word, RemoveCommandLine& line) {
  for (const char letter : word.substr(1)) {
    switch (letter) {
      case 'v':
        line.isVerbose = true;
        break;
      case 'f':
        line.isForced = true;
        break;
      case 'r':
        line.isRecursive = true;
        break;
      case 'P':
        line.overwrites = true;
        break;
      default:
        throw RemoveUsageError("There is no option " + printable(word) +
                               "; a path that begins with a hyphen goes behind \"--\".");
    }
  }
}

}  // namespace

RemoveCommandLine parseRemoveCommandLine(const std::vector<std::string>& words) {
  RemoveCommandLine line;
  bool optionsEnded = false;
  bool removes = false;
  for (const std::string& word : words) {
    if (optionsEnded || !word.starts_with("-") || word == "-") {
      line.paths.push_back(word);
    } else if (word == "--") {
      optionsEnded = true;
    } else if (word == "--help") {
      line.wantsHelp = true;
    } else if (word == "--explain") {
      line.wantsExplanation = true;
    } else {
      takeLetters(word, line);
      removes = true;
    }
  }
  if (line.wantsHelp) return line;
  if (line.wantsExplanation && removes) {
    throw RemoveUsageError("--explain removes nothing and takes no other option.");
  }
  if (line.paths.empty()) throw RemoveUsageError("A path is missing.");
  return line;
}

std::string removeHelpText() {
  return "tervano-remove [-v] [-f] [-r] [-P] [--] PATH...\n"
         "tervano-remove --explain [--] PATH...\n"
         "\n"
         "Removes files and folders for good.\n"
         "\n"
         "  -P         overwrite the contents of files with random data, flush them to the disk,\n"
         "             then remove them; what cannot be overwritten is not removed\n"
         "  -r         remove folders with all that lies in them\n"
         "  -f         say nothing of paths that do not exist\n"
         "  -v         list what was removed, one path a line\n"
         "  --explain  remove nothing; one line for each file system that the paths lie on, four\n"
         "             columns with tabs between them: its type; whether overwriting reaches the\n"
         "             old blocks (yes, no, unknown); the disk (rotational, solid-state, "
         "unknown);\n"
         "             where it is mounted\n"
         "\n"
         "Symbolic links are removed, never followed. A file that has further names elsewhere is\n"
         "not overwritten. What is mounted inside a folder is left alone.\n"
         "\n"
         "Overwriting cannot promise everything. Solid-state disks write to other cells and keep\n"
         "the old ones for a while. Btrfs, ZFS and other file systems that copy on write keep the\n"
         "old blocks, and so do snapshots, backups, network and cloud storage, and a journal of\n"
         "contents (ext4 with data=journal). Memory that was swapped out stays in the swap space.\n"
         "Names of files can survive in the file system's journal.\n"
         "\n"
         "Exit status: 0 when everything is removed, 1 when something is left, 2 for wrong "
         "usage.\n";
}

}  // namespace tervano
