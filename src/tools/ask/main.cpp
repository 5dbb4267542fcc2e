#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/url.h"
#include "platform/linux/installed_bundle.h"
#include "tools/ask/dialog.h"
#include "translation/translation.h"

namespace tervano {

namespace {

constexpr int kConsent = 0;
constexpr int kRefusal = 1;
constexpr int kUsage = 2;
constexpr int kNoDisplay = 3;
// Where a password is written to.
constexpr int kPasswordDescriptor = 3;
// A question names at most some hundred files.
constexpr std::size_t kLongestInput = std::size_t{16} << 20;

int complain(const Sentence& sentence) {
  std::fprintf(stderr, "tervano-ask: %s\n", sentence.shown().c_str());
  return kUsage;
}

// What standard input holds, up to its end; nil when it cannot be read or is far too long.
std::optional<std::string> readInput() {
  std::string input;
  while (input.size() <= kLongestInput) {
    char buffer[4096];
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) return input;
    input.append(buffer, static_cast<std::size_t>(count));
  }
  return std::nullopt;
}

// Fills the question from texts that each end in a NUL; false when some are missing. Nobody types
// them.
bool readQuestion(DialogQuestion& question) {
  const auto input = isatty(STDIN_FILENO) == 1 ? std::nullopt : readInput();
  if (!input || !input->ends_with('\0')) return false;
  std::vector<std::string> texts;
  for (std::size_t at = 0; at < input->size();) {
    const auto end = input->find('\0', at);
    texts.push_back(input->substr(at, end - at));
    at = end + 1;
  }
  if (texts.size() < 3) return false;
  question.text = std::move(texts[0]);
  question.detail = std::move(texts[1]);
  question.consent = std::move(texts[2]);
  question.items.assign(std::make_move_iterator(texts.begin() + 3),
                        std::make_move_iterator(texts.end()));
  return !question.text.empty() && !question.consent.empty();
}

int run(int argc, char** argv) {
  DialogQuestion question;
  if (argc == 2 && std::string_view(argv[1]) == "--password") {
    question.passwordDescriptor = kPasswordDescriptor;
  } else if (argc > 1) {
    return complain(tr("The only option is --password."));
  }
  if (!readQuestion(question)) {
    return complain(
        tr("Standard input must hold the question, what to know besides, the button that consents, "
           "and any items, each ended by a NUL."));
  }
  if (question.passwordDescriptor >= 0) {
    // What the toolkit starts does not get it.
    if (fcntl(question.passwordDescriptor, F_SETFD, FD_CLOEXEC) != 0) {
      return complain(tr("--password needs descriptor 3 to write the password to."));
    }
    // No memory dump has the password in it.
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
  }
  switch (askInWindow(question)) {
    case DialogAnswer::consent:
      return kConsent;
    case DialogAnswer::refusal:
      return kRefusal;
    case DialogAnswer::noDisplay:
      break;
  }
  complain(tr("There is no display to ask on."));
  return kNoDisplay;
}

}  // namespace

}  // namespace tervano

// Asks the question that standard input holds in a window, and for a new password when it is to: 0
// for consent, 1 for a refusal, 2 for a wrong argument or question, 3 without a display.
int main(int argc, char** argv) {
  tervano::useLanguageOfUser(
      tervano::deletingLastPathComponent(tervano::InstalledBundle().resourcePath()) + "/locale");
  return tervano::run(argc, argv);
}
