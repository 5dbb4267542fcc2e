#include "companion/asker.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "archive/printable.h"
#include "companion/ask_window.h"
#include "companion/hidden_input.h"
#include "platform/linux/descriptor.h"
#include "platform/platform.h"

namespace tervano {

namespace {

Sentence nobodyToAsk() {
  return tr("Nothing was done: there is neither a display nor a terminal to ask on.");
}

using Answer = std::function<void(bool consents, const Sentence& reason)>;
using PasswordAnswer = std::function<void(std::optional<Secret> password, const Sentence& reason)>;

bool hasTerminal() {
  return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1;
}

void showItems(const Question& question) {
  for (const auto& item : shownPaths(question)) std::cerr << "  " << item << "\n";
}

// English is understood in every language.
bool isYes(const std::string& line) {
  // TRANSLATORS: what a person types for yes, each word between blanks.
  const std::string words = tr(" y Y yes ").shown() + tr(" y Y yes ").english();
  return !line.empty() && line.find(' ') == std::string::npos &&
         words.find(" " + line + " ") != std::string::npos;
}

void askOnTerminal(const Question& question, const Answer& answer) {
  showItems(question);
  if (!question.detail.empty()) std::cerr << question.detail << "\n";
  std::cerr << printable(question.text)
            << " "
            // TRANSLATORS: the letters of yes and of no; no is what an empty line means.
            << tr("[y/N]") << " " << std::flush;
  // Reading goes on after a signal that cancels, waiting does not.
  pollfd input{STDIN_FILENO, POLLIN, 0};
  if (poll(&input, 1, -1) < 0) {
    std::cerr << "\n";
    return answer(false, "");
  }
  std::string line;
  std::getline(std::cin, line);
  answer(isYes(line), "");
}

void askForConsentInWindow(Processes& processes, const Question& question, const Answer& answer) {
  askInWindow(processes, question, [question, answer](std::optional<bool> consents) {
    if (consents) {
      answer(*consents, "");
    } else if (hasTerminal()) {
      askOnTerminal(question, answer);
    } else {
      answer(false, nobodyToAsk());
    }
  });
}

// Asks twice, until both are the same; an empty line or the end of input is the no.
void askForPasswordOnTerminal(const Question& question, const PasswordAnswer& answer) {
  showItems(question);
  std::cerr << printable(question.text) << ".\n" << question.detail << "\n";
  while (true) {
    auto password = readHidden(tr("Password: ").shown().c_str());
    if (!password || password->empty()) return answer(std::nullopt, "");
    const auto again = readHidden(tr("Again: ").shown().c_str());
    if (!again) return answer(std::nullopt, "");
    if (*again == *password) return answer(std::move(password), "");
    std::cerr << tr("The passwords are not the same.") << "\n";
  }
}

void askForPasswordInWindow(Processes& processes, const Question& question,
                            const PasswordAnswer& answer) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    return answer(std::nullopt,
                  tr("The password cannot be asked for: {1}.", strerrordesc_np(errno)));
  }
  // The window ends before it is read: what it writes is shorter than what a pipe holds.
  const auto readingEnd = std::make_shared<Descriptor>(ends[0]);
  const Descriptor writingEnd(ends[1]);
  askInWindow(
      processes, question,
      [question, answer, readingEnd](std::optional<bool> consents) {
        if (!consents && hasTerminal()) return askForPasswordOnTerminal(question, answer);
        if (!consents) return answer(std::nullopt, nobodyToAsk());
        if (!*consents) return answer(std::nullopt, "");
        Secret password;
        if (password.readFrom(readingEnd->get(), false) && !password.empty()) {
          return answer(std::move(password), "");
        }
        answer(std::nullopt, tr("The window gave no password."));
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
      answer(std::nullopt, tr("The password could not be read: {1}.", strerrordesc_np(code)));
    } else if (password.empty()) {
      answer(std::nullopt, tr("The password is empty."));
    } else {
      answer(std::move(password), "");
    }
  };
}

}  // namespace tervano
