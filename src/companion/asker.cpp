#include "companion/asker.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>

#include "archive/printable.h"
#include "companion/ask_window.h"
#include "companion/hidden_input.h"
#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr char kNobodyToAsk[] =
    "Nothing was done: there is neither a display nor a terminal to ask on.";

using Answer = std::function<void(bool consents, const std::string& reason)>;
using PasswordAnswer =
    std::function<void(std::optional<Secret> password, const std::string& reason)>;

bool hasTerminal() {
  return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1;
}

void showItems(const Question& question) {
  for (const auto& item : shownPaths(question)) std::cerr << "  " << item << "\n";
}

void askOnTerminal(const Question& question, const Answer& answer) {
  showItems(question);
  if (!question.detail.empty()) std::cerr << question.detail << "\n";
  std::cerr << printable(question.text) << " [y/N] " << std::flush;
  std::string line;
  std::getline(std::cin, line);
  answer(line == "y" || line == "Y" || line == "yes", "");
}

void askForConsentInWindow(Processes& processes, const Question& question, const Answer& answer) {
  askInWindow(processes, question, [question, answer](std::optional<bool> consents) {
    if (consents) {
      answer(*consents, "");
    } else if (hasTerminal()) {
      askOnTerminal(question, answer);
    } else {
      answer(false, kNobodyToAsk);
    }
  });
}

// Asks twice, until both are the same; an empty line or the end of input is the no.
void askForPasswordOnTerminal(const Question& question, const PasswordAnswer& answer) {
  showItems(question);
  std::cerr << printable(question.text) << ".\n" << question.detail << "\n";
  while (true) {
    auto password = readHidden("Password: ");
    if (!password || password->empty()) return answer(std::nullopt, "");
    const auto again = readHidden("Again: ");
    if (!again) return answer(std::nullopt, "");
    if (*again == *password) return answer(std::move(password), "");
    std::cerr << "The passwords are not the same.\n";
  }
}

void askForPasswordInWindow(Processes& processes, const Question& question,
                            const PasswordAnswer& answer) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    return answer(std::nullopt,
                  posixError(errno, "The password cannot be asked for").message + ".");
  }
  // The window ends before it is read: what it writes is shorter than what a pipe holds.
  const auto readingEnd = std::make_shared<Descriptor>(ends[0]);
  const Descriptor writingEnd(ends[1]);
  askInWindow(
      processes, question,
      [question, answer, readingEnd](std::optional<bool> consents) {
        if (!consents && hasTerminal()) return askForPasswordOnTerminal(question, answer);
        if (!consents) return answer(std::nullopt, kNobodyToAsk);
        if (!*consents) return answer(std::nullopt, "");
        Secret password;
        if (password.readFrom(readingEnd->get(), false) && !password.empty()) {
          return answer(std::move(password), "");
        }
        answer(std::nullopt, "The window gave no password.");
      },
      writingEnd.get());
}

}  // namespace

Asker askerOfTerminal() {
  return hasTerminal() ? Asker(askOnTerminal) : Asker();
}

Asker askerOfDesktop() {
  return [processes = platform().processes](const Question& question, const Answer& answer) {
    askForConsentInWindow(*processes, question, answer);
  };
}

PasswordAsker passwordAskerOfTerminal() {
  return hasTerminal() ? PasswordAsker(askForPasswordOnTerminal) : passwordAskerOfDesktop();
}

PasswordAsker passwordAskerOfDesktop() {
  return
      [processes = platform().processes](const Question& question, const PasswordAnswer& answer) {
        askForPasswordInWindow(*processes, question, answer);
      };
}

PasswordAsker passwordAskerOfDescriptor(int descriptor) {
  return [descriptor](const Question&, const PasswordAnswer& answer) {
    Secret password;
    if (!password.readFrom(descriptor, true)) {
      const int code = errno;
      answer(std::nullopt, posixError(code, "The password could not be read").message + ".");
    } else if (password.empty()) {
      answer(std::nullopt, "The password is empty.");
    } else {
      answer(std::move(password), "");
    }
  };
}

}  // namespace tervano
