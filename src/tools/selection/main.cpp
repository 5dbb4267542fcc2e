#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include "archive/url.h"
#include "platform/linux/installed_bundle.h"
#include "tools/selection/selection_session.h"
#include "translation/translation.h"

namespace tervano {

namespace {

constexpr int kWrongArguments = 2;

// One record: what it is, and its text up to a NUL.
void writeRecord(char kind, const std::string& text) {
  std::string record = kind + text + '\0';
  for (std::string_view left = record; !left.empty();) {
    const ssize_t written = write(STDOUT_FILENO, left.data(), left.size());
    if (written < 0 && errno == EINTR) continue;
    // Nobody listens any more.
    if (written < 0) std::_Exit(EXIT_FAILURE);
    left.remove_prefix(static_cast<std::size_t>(written));
  }
}

// Uids and titles in turn, each ended by a NUL.
std::vector<SelectionChoice> readChoices() {
  std::string input;
  char chunk[4096];
  while (true) {
    const ssize_t count = read(STDIN_FILENO, chunk, sizeof chunk);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    input.append(chunk, static_cast<std::size_t>(count));
  }
  std::vector<SelectionChoice> choices;
  std::string_view left = input;
  const auto next = [&left] {
    const auto end = std::min(left.find('\0'), left.size());
    std::string text(left.substr(0, end));
    left.remove_prefix(std::min(end + 1, left.size()));
    return text;
  };
  while (!left.empty()) {
    SelectionChoice choice;
    choice.uid = next();
    choice.title = next();
    choices.push_back(std::move(choice));
  }
  return choices;
}

// As the process was started: the toolkit takes variables out while it is loaded.
std::string initialVariable(const std::string& name) {
  std::ifstream environment("/proc/self/environ", std::ios::binary);
  for (std::string entry; std::getline(environment, entry, '\0');) {
    if (entry.starts_with(name + "=")) return entry.substr(name.size() + 1);
  }
  return "";
}

// Nil for no words that can be understood.
bool parse(int argc, char** argv, SessionRequest& request) {
  for (int index = 1; index < argc; ++index) {
    const std::string_view option = argv[index];
    if (option == "--primary") {
      request.isPrimary = true;
    } else if (option == "--choose") {
      request.chooses = true;
    } else if (option == "--timeout" && index + 1 < argc && std::atoi(argv[index + 1]) > 0) {
      request.timeoutMilliseconds = std::atoi(argv[++index]);
    } else {
      return false;
    }
  }
  return true;
}

int run(int argc, char** argv) {
  SessionRequest request;
  if (!parse(argc, argv, request)) {
    std::fprintf(stderr, "tervano-selection: %s\n",
                 tr("The options are --primary, --choose and --timeout MS.").shown().c_str());
    return kWrongArguments;
  }
  request.didRead = [](const std::vector<std::string>& files) {
    for (const auto& file : files) writeRecord('F', file);
    writeRecord('E', "");
  };
  request.choices = readChoices;
  const auto answer = runSelectionSession(request);
  switch (answer.outcome) {
    case SelectionOutcome::done:
      break;
    case SelectionOutcome::noFiles:
      return 1;
    case SelectionOutcome::noDisplay:
      return 3;
    case SelectionOutcome::refused:
      return 4;
    case SelectionOutcome::timedOut:
      return 5;
  }
  if (request.chooses) writeRecord('U', answer.uid);
  // What no window has used is still good.
  const auto orInitial = [&answer](const std::string& text, const char* name) {
    return answer.hadWindow ? text : initialVariable(name);
  };
  writeRecord('T', orInitial(answer.activationToken, "XDG_ACTIVATION_TOKEN"));
  writeRecord('I', orInitial(answer.startupIdentifier, "DESKTOP_STARTUP_ID"));
  return 0;
}

}  // namespace

}  // namespace tervano

// Tells which files are on the clipboard, or named by the marked text, and what the user chooses to
// do with them. Writes records, each a letter and a text up to a NUL: F a file, E the end of the
// files, then U the uid of the choice, T and I the activation token and the startup identifier for
// what comes next. With --choose, uids and titles of the choices are read from standard input after
// E, in turn and each ended by a NUL. 0 for success, 1 when there are no files, 2 for wrong
// arguments, 3 without a display, 4 when the user closed the window, 5 when nobody answered in
// time.
int main(int argc, char** argv) {
  tervano::useLanguageOfUser(
      tervano::deletingLastPathComponent(tervano::InstalledBundle().resourcePath()) + "/locale");
  return tervano::run(argc, argv);
}
