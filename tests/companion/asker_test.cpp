#include "companion/asker.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "platform/bundle.h"
#include "platform/linux/descriptor.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::StartsWith;

// A program of the test in the place of the window's.
class OtherWindow : public ForwardingBundle {
 public:
  using ForwardingBundle::ForwardingBundle;
  std::string pathForAuxiliaryExecutable(const std::string& name) const override {
    asked.push_back(name);
    return path;
  }
  std::string path;
  mutable std::vector<std::string> asked;
};

// Asking in a window, by a process without a terminal.
class AskerOfDesktopTest : public testing::Test {
 protected:
  AskerOfDesktopTest() : bundle_(*platform_.services().bundle), standardInput_(dup(STDIN_FILENO)) {
    platform_.services().bundle = &bundle_;
    const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_GE(dup2(nothing.get(), STDIN_FILENO), 0);
  }
  ~AskerOfDesktopTest() override { dup2(standardInput_.get(), STDIN_FILENO); }

  void setWindow(const std::string& script) {
    bundle_.path = platform_.home().path() + "/window";
    std::ofstream(bundle_.path) << "#!/bin/sh\n" << script;
    std::filesystem::permissions(bundle_.path, std::filesystem::perms::owner_all);
  }
  struct Answer {
    bool consents = false;
    std::string reason;
  };
  Answer answerTo(const Question& question) {
    std::vector<Answer> answers;
    askerOfDesktop()(question, [&](bool consents, const std::string& reason) {
      answers.push_back({consents, reason});
    });
    EXPECT_TRUE(waitUntil([&] { return !answers.empty(); }, 30));
    runPendingMainItems();
    EXPECT_EQ(answers.size(), 1U);
    return answers.empty() ? Answer() : answers.front();
  }
  Answer answer() { return answerTo({"Remove it?", {"/a"}, "Delete", ""}); }
  // What the window reads for a question: each of its texts.
  std::vector<std::string> textsFor(const Question& question) {
    const std::string seen = platform_.home().path() + "/seen";
    setWindow("cat > '" + seen + "'\nexit 1\n");
    answerTo(question);
    const std::string text = contentsOf(seen);
    std::vector<std::string> texts;
    for (std::size_t at = 0; at < text.size();) {
      const auto end = text.find('\0', at);
      texts.push_back(text.substr(at, end - at));
      at = end + 1;
    }
    return texts;
  }

  ScopedPlatform platform_;
  OtherWindow bundle_;
  Descriptor standardInput_;
};

constexpr char kNobodyToAsk[] =
    "Nothing was done: there is neither a display nor a terminal to ask on.";

}  // namespace

TEST_F(AskerOfDesktopTest, TheWindowsStatusZeroIsConsent) {
  setWindow("exit 0\n");
  EXPECT_TRUE(answer().consents);
  EXPECT_THAT(bundle_.asked, ElementsAre("tervano-ask"));
}

TEST_F(AskerOfDesktopTest, TheWindowsStatusOneIsARefusalWithoutAReason) {
  setWindow("exit 1\n");
  const auto given = answer();
  EXPECT_FALSE(given.consents);
  EXPECT_EQ(given.reason, "");
}

TEST_F(AskerOfDesktopTest, EveryOtherEndOfTheWindowIsNoConsent) {
  for (const char* const script : {"exit 2\n", "exit 3\n", "exit 127\n", "kill -9 $$\n"}) {
    SCOPED_TRACE(script);
    setWindow(script);
    const auto given = answer();
    EXPECT_FALSE(given.consents);
    EXPECT_EQ(given.reason, kNobodyToAsk);
  }
}

TEST_F(AskerOfDesktopTest, AWindowThatCannotBeOpenedIsNoConsentAndLeavesNothingBehind) {
  bundle_.path = "/no/such/program";
  const auto given = answer();
  EXPECT_FALSE(given.consents);
  EXPECT_EQ(given.reason, kNobodyToAsk);
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 0U);
}

TEST_F(AskerOfDesktopTest, WhatTheWindowWritesIsNoAnswer) {
  setWindow("echo yes; echo yes >&2; exit 1\n");
  EXPECT_FALSE(answer().consents);
}

TEST_F(AskerOfDesktopTest, TheWindowGetsQuestionButtonAndItems) {
  EXPECT_THAT(textsFor({"Remove 2 items?", {"/a b", "/-c"}, "Delete", "For good."}),
              ElementsAre("Remove 2 items?", "For good.", "Delete", "/a b", "/-c"));
}

TEST_F(AskerOfDesktopTest, NothingOfTheQuestionIsAnArgumentThatOtherUsersSee) {
  const std::string seen = platform_.home().path() + "/seen";
  setWindow("tr '\\0' '\\n' < /proc/$$/cmdline > '" + seen + "'\nexit 1\n");
  answerTo({"Remove \"secret\"?", {"/secret"}, "Delete", "For good."});
  EXPECT_EQ(contentsOf(seen), "/bin/sh\n" + bundle_.path + "\n");
}

TEST_F(AskerOfDesktopTest, OfManyItemsTheFirstHundredAreNamed) {
  Question question{"Remove them?", {}, "Delete", ""};
  for (int i = 0; i < 5000; ++i) question.paths.push_back("/" + std::to_string(i));
  const auto texts = textsFor(question);
  ASSERT_EQ(texts.size(), 3U + 101U);
  EXPECT_EQ(texts[texts.size() - 2], "/99");
  EXPECT_EQ(texts.back(), "and 4900 more");
  question.paths.resize(100);
  EXPECT_EQ(textsFor(question).back(), "/99");
}

TEST_F(AskerOfDesktopTest, ANameCannotLookLikeSeveralItems) {
  const auto texts =
      textsFor({"Remove \"a\n\xE2\x80\xAE"
                "b\"?",
                {"/a\n/b", "/\xFF", "/\x1b[31m"},
                "Delete",
                ""});
  ASSERT_EQ(texts.size(), 3U + 3U);
  for (const auto& text : texts) {
    EXPECT_EQ(text.find('\n'), std::string::npos) << text;
    EXPECT_EQ(text.find('\x1b'), std::string::npos) << text;
  }
  EXPECT_THAT(texts[0], StartsWith("Remove \"a\\n"));
  EXPECT_EQ(texts[3], "/a\\n/b");
}

// The same for a password.
class PasswordAskerTest : public AskerOfDesktopTest {
 protected:
  struct PasswordAnswer {
    std::optional<Secret> password;
    std::string reason;
    std::string text() const { return password ? std::string(password->text()) : "(nil)"; }
  };
  PasswordAnswer answerFrom(const PasswordAsker& asker) {
    std::vector<PasswordAnswer> answers;
    asker({"Compress it", {"/a"}, "Compress", "Detail."},
          [&](std::optional<Secret> password, const std::string& reason) {
            answers.push_back({std::move(password), reason});
          });
    EXPECT_TRUE(waitUntil([&] { return !answers.empty(); }, 30));
    runPendingMainItems();
    EXPECT_EQ(answers.size(), 1U);
    return answers.empty() ? PasswordAnswer() : std::move(answers.front());
  }
  PasswordAnswer passwordOf(const std::string& script) {
    setWindow(script);
    return answerFrom(passwordAskerOfDesktop());
  }
};

TEST_F(PasswordAskerTest, TheWindowsPasswordComesByItsOwnDescriptor) {
  const auto given = passwordOf("echo no; echo no >&2; printf 'pass word' >&3\nexit 0\n");
  EXPECT_EQ(given.text(), "pass word");
  EXPECT_EQ(given.reason, "");
}

TEST_F(PasswordAskerTest, TheWindowIsToldToAskForOneAndNotWhatItIs) {
  const std::string seen = platform_.home().path() + "/seen";
  passwordOf("printf '%s\\n' \"$@\" > '" + seen + "'\ncat | tr '\\0' '\\n' >> '" + seen +
             "'\nprintf word >&3\n");
  EXPECT_EQ(contentsOf(seen), "--password\nCompress it\nDetail.\nCompress\n/a\n");
}

TEST_F(PasswordAskerTest, ARefusalTakesNoPasswordThoughOneWasWritten) {
  const auto given = passwordOf("printf word >&3\nexit 1\n");
  EXPECT_FALSE(given.password);
  EXPECT_EQ(given.reason, "");
}

TEST_F(PasswordAskerTest, AWindowThatWritesNoneOrTooMuchIsAFailure) {
  for (const char* const script :
       {"exit 0\n", "head -c 1024 /dev/zero | tr '\\0' x >&3\n", "printf 'a\\0b' >&3\n"}) {
    SCOPED_TRACE(script);
    const auto given = passwordOf(script);
    EXPECT_FALSE(given.password);
    EXPECT_EQ(given.reason, "The window gave no password.");
  }
}

TEST_F(PasswordAskerTest, AProcessThatKeepsTheDescriptorOpenHoldsNobodyUp) {
  const auto given = passwordOf("sleep 60 & echo $! > \"$0.pid\"\nprintf word >&3\n");
  EXPECT_EQ(given.reason, "The window gave no password.");
  EXPECT_EQ(kill(std::stoi(contentsOf(bundle_.path + ".pid")), SIGKILL), 0);
}

TEST_F(PasswordAskerTest, WithoutAWindowAndATerminalThereIsNone) {
  const auto given = passwordOf("exit 3\n");
  EXPECT_FALSE(given.password);
  EXPECT_EQ(given.reason, kNobodyToAsk);
}

TEST_F(PasswordAskerTest, ADescriptorGivesItsFirstLine) {
  const std::string file = platform_.home().path() + "/password";
  std::ofstream(file) << "first\nsecond\n";
  const Descriptor open_(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(answerFrom(passwordAskerOfDescriptor(open_.get())).text(), "first");
}

TEST_F(PasswordAskerTest, ALineOfADescriptorMayEndAsOnOtherSystems) {
  const std::string file = platform_.home().path() + "/password";
  std::ofstream(file) << "first\r\nsecond\r\n";
  const Descriptor open_(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(answerFrom(passwordAskerOfDescriptor(open_.get())).text(), "first");
}

TEST_F(PasswordAskerTest, AnEmptyLineOrABrokenDescriptorIsAFailure) {
  const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(answerFrom(passwordAskerOfDescriptor(nothing.get())).reason, "The password is empty.");
  EXPECT_EQ(answerFrom(passwordAskerOfDescriptor(-1)).reason,
            "The password could not be read: Bad file descriptor.");
}

}  // namespace tervano::test
