#include <fcntl.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstring>
#include <string_view>

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

int complain(const Sentence& sentence) {
  std::fprintf(stderr, "tervano-ask: %s\n", sentence.shown().c_str());
  return kUsage;
}

int run(int argc, char** argv) {
  DialogQuestion question;
  int index = 1;
  for (; index < argc && std::strcmp(argv[index], "--") != 0; index += 2) {
    const std::string_view option = argv[index];
    if (option == "--password") {
      question.passwordDescriptor = kPasswordDescriptor;
      --index;
      continue;
    }
    if (index + 1 >= argc) return complain(tr("An option lacks its value."));
    if (option == "--question") {
      question.text = argv[index + 1];
    } else if (option == "--detail") {
      question.detail = argv[index + 1];
    } else if (option == "--consent") {
      question.consent = argv[index + 1];
    } else {
      return complain(
          tr("The options are --question, --detail, --consent and --password, then -- and "
             "items."));
    }
  }
  for (++index; index < argc; ++index) question.items.emplace_back(argv[index]);
  if (question.text.empty() || question.consent.empty()) {
    return complain(tr("--question and --consent are needed."));
  }
  if (question.passwordDescriptor >= 0) {
    if (fcntl(question.passwordDescriptor, F_GETFD) < 0) {
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

// Asks one question in a window, and for a new password when it is to: 0 for consent, 1 for a
// refusal, 2 for wrong arguments, 3 without a display.
int main(int argc, char** argv) {
  tervano::useLanguageOfUser(
      tervano::deletingLastPathComponent(tervano::InstalledBundle().resourcePath()) + "/locale");
  return tervano::run(argc, argv);
}
