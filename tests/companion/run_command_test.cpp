#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>

#include "tests/companion/terminal.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/program.h"

namespace tervano::test {

namespace {

using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// "tervano run" without a bus, a display and applications.
class RunCommandTest : public testing::Test {
 protected:
  RunCommandTest() { home_.home().setVariable("XDG_DATA_DIRS", home_.folder("none")); }

  std::string addScript(const std::string& text) {
    return home_.succeed({"add", "script", "--file", home_.file("script.sh", text)});
  }
  ProgramOutcome run(const std::string& uid, const std::vector<std::string>& paths = {}) const {
    std::vector<std::string> words{"run", "--yes", uid};
    words.insert(words.end(), paths.begin(), paths.end());
    return home_.tervano(words);
  }
  // A failure whose last line is that sentence; log lines may stand before it.
  static void expectFailureWith(const ProgramOutcome& outcome, const std::string& sentence) {
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT("\n" + outcome.errors, EndsWith("\ntervano: " + sentence + "\n"));
  }
  // The lines that are no log lines.
  static std::vector<std::string> sentencesOf(const ProgramOutcome& outcome) {
    std::vector<std::string> sentences;
    for (std::size_t at = 0; at < outcome.errors.size();) {
      const auto end = std::min(outcome.errors.find('\n', at), outcome.errors.size());
      const std::string line = outcome.errors.substr(at, end - at);
      if (!line.starts_with("tervano[")) sentences.push_back(line);
      at = end + 1;
    }
    return sentences;
  }
  std::vector<std::string> files(int count) const {
    std::vector<std::string> paths;
    for (int i = 0; i < count; ++i) paths.push_back(home_.file("many/" + std::to_string(i)));
    return paths;
  }

  ProgramHome home_;
};

// Names that an ordinary programmer does not think of, each of them legal.
std::vector<std::string> hostileNames() {
  return {"two\nlines.txt",
          "it's \"quoted\"",
          "$(touch pwned) `touch pwned` ; & | > x",
          "-rf",
          "--out",
          "caf\xE9 \xFF\xFE",
          " blank ",
          "%@ %s %n",
          "tab\tand\x01"
          "control",
          "*",
          "\\",
          std::string(255, 'n')};
}

}  // namespace

TEST_F(RunCommandTest, AScriptThatSucceedsIsASuccessWhateverItPrints) {
  const auto outcome = run(addScript("echo printed\n"), {home_.file("a.txt")});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(sentencesOf(outcome), testing::IsEmpty());
}

TEST_F(RunCommandTest, AToolThatWroteAnErrorIsAFailureThoughItsStatusIsZero) {
  expectFailureWith(run(addScript("echo bad >&2\n")), "/bin/bash wrote an error: bad.");
}

TEST_F(RunCommandTest, AToolThatEndedWithAStatusIsAFailure) {
  expectFailureWith(run(addScript("exit 3\n")), "/bin/bash ended with status 3.");
}

TEST_F(RunCommandTest, AToolThatASignalEndedIsAFailure) {
  expectFailureWith(run(addScript("kill -9 $$\n")), "/bin/bash was ended by signal 9.");
}

TEST_F(RunCommandTest, WithNobodyToAskNothingIsRemoved) {
  const auto uid = home_.succeed({"add", "secure-delete"});
  const std::string path = home_.file("precious.txt");
  expectFailureWith(home_.tervano({"run", uid, path}),
                    "Nothing was done: there is neither a display nor a terminal to ask on.");
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(RunCommandTest, AToolThatCannotBeStartedIsAFailure) {
  const auto uid = home_.succeed({"add", "secure-delete"});
  ProgramStart start;
  start.arguments = {"run", "--yes", uid};
  const auto paths = files(100);
  start.arguments.insert(start.arguments.end(), paths.begin(), paths.end());
  start.prepare = [] {
    const rlimit few{64, 64};
    return setrlimit(RLIMIT_NOFILE, &few) == 0;
  };
  const auto outcome = home_.start(start);
  EXPECT_EQ(outcome.status, 1);
  ASSERT_EQ(sentencesOf(outcome).size(), 1U) << outcome.errors;
  EXPECT_THAT(sentencesOf(outcome)[0],
              testing::StartsWith("tervano: \"Secure Delete\" could not be run: "));
  EXPECT_THAT(sentencesOf(outcome)[0], EndsWith("Too many open files."));
}

TEST_F(RunCommandTest, EachToolThatFailedHasItsSentence) {
  const auto uid = home_.succeed({"add", "secure-delete"});
  const auto gone = home_.file("gone.txt");
  // Nobody can remove these.
  const auto outcome = run(uid, {"/proc/version", gone, "/proc/uptime"});
  EXPECT_EQ(outcome.status, 1);
  const auto sentences = sentencesOf(outcome);
  ASSERT_EQ(sentences.size(), 2U) << outcome.errors;
  for (const auto& sentence : sentences) {
    EXPECT_THAT(sentence, testing::StartsWith("tervano: /bin/rm ended with status 1: "));
    EXPECT_THAT(sentence, EndsWith("."));
  }
  EXPECT_THAT(outcome.errors,
              testing::AllOf(HasSubstr("/proc/version"), HasSubstr("/proc/uptime")));
  EXPECT_FALSE(exists(gone));
}

TEST_F(RunCommandTest, WhatAToolWroteCannotBreakTheLine) {
  const auto outcome =
      run(addScript("printf '%s\\ntervano: all is well\\n' \"$1\" >&2\n"), {home_.file("a\nb")});
  EXPECT_EQ(outcome.status, 1);
  ASSERT_EQ(sentencesOf(outcome).size(), 1U) << outcome.errors;
  EXPECT_THAT(sentencesOf(outcome)[0], EndsWith("a\\nb\\ntervano: all is well."));
}

TEST_F(RunCommandTest, AnUnfinishedBackgroundProcessOfAScriptIsNotWaitedFor) {
  const auto outcome = run(addScript("sleep 300 & echo $! > \"$1\"\n"), {home_.path() + "/pid"});
  EXPECT_EQ(outcome.status, 0);
  const int left = std::stoi(contentsOf(home_.path() + "/pid"));
  EXPECT_EQ(kill(left, SIGKILL), 0);
}

TEST_F(RunCommandTest, EveryKindEndsOnHostileNames) {
  const std::string script = home_.file("handler.py", "def runWithPaths(paths):\n    pass\n");
  const std::map<std::string, std::vector<std::string>> options = {
      {"move", {"--to", home_.folder("moved")}},
      {"copy", {"--to", home_.folder("copied")}},
      {"open-with", {"--app", "/bin/true"}},
      {"new-file", {"--template", home_.file("template.txt")}},
      {"convert", {"--format", "png"}},
      {"script",
       {"--file", home_.file("ok.sh", "for path; do [ -e \"$path\" ] || exit 1; done\n")}},
      {"bundled", {"Make Executable"}},
      {"user-script", {"--file", script}},
      {"open-folder", {"--to", home_.folder("favourite")}},
  };
  const std::map<std::string, int> statuses = {
      {"copy", 0},
      {"compress", 1},
      {"move", 0},
      {"open-with", 0},
      {"mail", 1},
      {"new-file", 0},
      {"convert", 1},
      {"script", 0},
      {"bundled", 0},
      {"user-script", 0},
      {"reset-app", 1},
      {"open-folder", 0},
      {"secure-delete", 0},
      {"group-move", 1},
      {"group-copy", 1},
      {"group-open-with", 1},
      {"group-new-file", 1},
      {"group-convert", 1},
      {"group-open-folder", 1},
  };
  int run = 0;
  for (const auto& kind : home_.json({"kinds", "--json"})) {
    const std::string name = kind["kind"];
    SCOPED_TRACE(name);
    std::vector<std::string> words{"add", name};
    if (const auto more = options.find(name); more != options.end()) {
      words.insert(words.end(), more->second.begin(), more->second.end());
    }
    ProgramStart start;
    start.arguments = {"run", "--yes", home_.succeed(words), "--"};
    start.folder = home_.folder("selection");
    for (const auto& hostile : hostileNames()) {
      home_.file("selection/" + hostile, "no picture");
      start.arguments.push_back(hostile);
    }
    const auto outcome = home_.start(start);
    EXPECT_EQ(outcome.output, "");
    const auto status = statuses.find(name);
    if (status == statuses.end()) {
      EXPECT_THAT(outcome.status, AnyOf(0, 1));
    } else {
      EXPECT_EQ(outcome.status, status->second) << outcome.errors;
    }
    const auto sentences = sentencesOf(outcome);
    EXPECT_EQ(sentences.empty(), outcome.status == 0) << outcome.errors;
    for (const auto& sentence : sentences) {
      EXPECT_THAT(sentence, testing::StartsWith("tervano: "));
      EXPECT_THAT(sentence, EndsWith("."));
    }
    EXPECT_FALSE(exists(home_.path() + "/selection/pwned"));
    const bool takesThemAway = name == "move" || name == "secure-delete";
    for (const auto& hostile : hostileNames()) {
      EXPECT_EQ(exists(home_.path() + "/selection/" + hostile), !takesThemAway) << hostile;
    }
    ++run;
  }
  EXPECT_EQ(run, 19);
  for (const auto& hostile : hostileNames()) {
    EXPECT_EQ(contentsOf(home_.path() + "/moved/" + hostile), "no picture");
    EXPECT_EQ(contentsOf(home_.path() + "/copied/" + hostile), "no picture");
  }
}

TEST_F(RunCommandTest, FiveThousandFilesAreASelectionLikeAnyOther) {
  const auto paths = files(5000);
  const auto count = home_.path() + "/count";
  EXPECT_EQ(run(addScript("echo $# > '" + count + "'\n"), paths).status, 0);
  EXPECT_EQ(contentsOf(count), "5000\n");
  const auto handler = home_.file("handler.py",
                                  "def runWithPaths(paths):\n"
                                  "    open('" +
                                      count + "', 'w').write(str(len(set(paths))))\n");
  EXPECT_EQ(run(home_.succeed({"add", "user-script", "--file", handler}), paths).status, 0);
  EXPECT_EQ(contentsOf(count), "5000");
  const auto newFile =
      home_.succeed({"add", "new-file", "--template", home_.file("t.txt"), "--name", "new"});
  EXPECT_EQ(run(newFile, paths).status, 0);
  EXPECT_TRUE(exists(home_.path() + "/many/new.txt"));
  EXPECT_FALSE(exists(home_.path() + "/many/new 2.txt"));
  EXPECT_EQ(run(home_.succeed({"add", "move", "--to", home_.folder("to")}), paths).status, 0);
  EXPECT_TRUE(exists(home_.path() + "/to/4999"));
  EXPECT_FALSE(exists(home_.path() + "/many/4999"));
}

namespace {

// "tervano run" of a secure delete on a terminal.
class RunOnATerminalTest : public RunCommandTest {
 protected:
  RunOnATerminalTest() : uid_(home_.succeed({"add", "secure-delete"})) {}

  // The person's answer to the question about one file; answers the exit status.
  int answer(const std::string& keys) {
    file_ = home_.file("secret\nfile.txt", "secret");
    Terminal terminal(becomingTervano({"run", uid_, file_}));
    const auto asked = terminal.readUntil("[y/N] ");
    EXPECT_THAT(asked, HasSubstr("  " + home_.path() + "/secret\\nfile.txt\r\n"));
    EXPECT_THAT(asked, HasSubstr("Overwrite and delete \"secret\\nfile.txt\" for good? [y/N] "));
    terminal.type(keys);
    const int status = terminal.waitForExit();
    said_ = terminal.rest();
    return status;
  }

  std::string uid_;
  std::string file_;
  // What followed the question.
  std::string said_;
};

}  // namespace

TEST_F(RunOnATerminalTest, AnInterruptAtTheQuestionIsTheNo) {
  EXPECT_EQ(answer("\x03"), 1);
  EXPECT_THAT(said_, HasSubstr("was cancelled."));
  EXPECT_TRUE(std::filesystem::exists(file_));
}

TEST_F(RunOnATerminalTest, ConsentRemoves) {
  for (const char* const yes : {"y\n", "Y\n", "yes\n"}) {
    EXPECT_EQ(answer(yes), 0) << yes;
    EXPECT_FALSE(exists(file_)) << yes;
  }
}

TEST_F(RunOnATerminalTest, AnythingElseIsARefusalAndRemovesNothing) {
  constexpr char kEndOfInput[] = "\x04";
  for (const char* const no : {"n\n", "\n", "no\n", "yy\n", " y\n", "delete\n", kEndOfInput}) {
    EXPECT_EQ(answer(no), 1) << no;
    EXPECT_EQ(contentsOf(file_), "secret") << no;
    EXPECT_THAT(said_, HasSubstr("tervano: \"Secure Delete\" was cancelled.\r\n"));
  }
}

TEST_F(RunOnATerminalTest, OfManyItemsTheFirstHundredAreNamed) {
  std::vector<std::string> words{"run", uid_};
  const auto paths = files(103);
  words.insert(words.end(), paths.begin(), paths.end());
  Terminal terminal(becomingTervano(words));
  const auto asked = terminal.readUntil("[y/N] ");
  EXPECT_THAT(asked, HasSubstr("/many/99\r\n  and 3 more\r\n"));
  EXPECT_THAT(asked, Not(HasSubstr("/many/100")));
  EXPECT_THAT(asked, HasSubstr("Overwrite and delete 103 items for good?"));
  terminal.type("n\n");
  EXPECT_EQ(terminal.waitForExit(), 1);
  EXPECT_TRUE(exists(paths.front()));
}

TEST_F(RunOnATerminalTest, YesAsksNothing) {
  const auto file = home_.file("secret.txt");
  Terminal terminal(becomingTervano({"run", "--yes", uid_, file}));
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_THAT(terminal.rest(), Not(HasSubstr("[y/N]")));
  EXPECT_FALSE(exists(file));
}

TEST_F(RunOnATerminalTest, WhatRemovesNothingIsNotAskedAbout) {
  const auto move = home_.succeed({"add", "move", "--to", home_.folder("to")});
  Terminal terminal(becomingTervano({"run", move, home_.file("a.txt")}));
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_THAT(terminal.rest(), Not(HasSubstr("[y/N]")));
}

namespace {

// "tervano run" of what compresses.
class CompressCommandTest : public RunCommandTest {
 protected:
  CompressCommandTest()
      : uid_(home_.succeed({"add", "compress"})), file_(home_.file("docs/plain.txt", "plain")) {}

  bool opensWith(const std::string& password) const {
    return runProgram({"/usr/bin/7z", {"t", "-p" + password, file_ + ".zip"}}).status == 0;
  }
  // Starts the program with descriptor 5 reading a file with that text.
  ChildProcess startWithPassword(const std::string& text, std::vector<std::string> words) {
    home_.home().setVariable("PASSWORD_FILE", home_.file("password", text));
    words.insert(words.begin(), {"-c", "exec \"$0\" \"$@\" 5< \"$PASSWORD_FILE\"", TERVANO_PROGRAM,
                                 "run", "--password-fd", "5", uid_});
    return startProgram("/bin/sh", words);
  }
  std::vector<std::string> leftOvers() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(home_.path() + "/docs")) {
      const std::string name = entry.path().filename();
      if (name.starts_with(".tervano-")) names.push_back(name);
    }
    return names;
  }
  // Begins to compress so much that it does not end by itself.
  ChildProcess startLongWork() {
    const std::string big = home_.file("docs/big", "");
    std::filesystem::resize_file(big, std::uintmax_t{1} << 40);
    auto child = startWithPassword("word", {big});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (leftOvers().empty() && std::chrono::steady_clock::now() < deadline) poll(nullptr, 0, 5);
    EXPECT_EQ(leftOvers().size(), 1U);
    return child;
  }

  std::string uid_;
  std::string file_;
};

}  // namespace

TEST_F(CompressCommandTest, ThePasswordCanComeByADescriptor) {
  auto child = startWithPassword("pass word\nmore\n", {file_});
  EXPECT_EQ(child.waitForExit(30), 0);
  EXPECT_TRUE(opensWith("pass word"));
  EXPECT_FALSE(opensWith("other"));
}

TEST_F(CompressCommandTest, TheNameOfTheArchiveReachesTheDiskToo) {
  home_.home().setVariable("PASSWORD_FILE", home_.file("password", "word"));
  // Leaks cannot be looked for in a traced process.
  home_.home().setVariable("ASAN_OPTIONS", "detect_leaks=0");
  const std::string trace = home_.path() + "/trace";
  auto child =
      startProgram("/bin/sh", {"-c", "exec \"$0\" \"$@\" 5< \"$PASSWORD_FILE\"", "/usr/bin/strace",
                               "-f", "-y", "-e", "trace=fsync,renameat2", "-o", trace,
                               TERVANO_PROGRAM, "run", "--password-fd", "5", uid_, file_});
  ASSERT_EQ(child.waitForExit(60), 0);
  const std::string calls = contentsOf(trace);
  const auto name = calls.find("/docs/plain.txt.zip\", RENAME_NOREPLACE) = 0");
  ASSERT_NE(name, std::string::npos) << calls;
  EXPECT_NE(calls.find("<" + home_.path() + "/docs>) = 0", name), std::string::npos) << calls;
}

TEST_F(CompressCommandTest, AnEmptyPasswordIsRefused) {
  auto child = startWithPassword("\n", {file_});
  EXPECT_EQ(child.waitForExit(30), 1);
  EXPECT_FALSE(exists(file_ + ".zip"));
}

TEST_F(CompressCommandTest, WhatIsNoOpenDescriptorIsAUsageError) {
  for (const std::string number : {"77", "x", "", "-1", "99999999999"}) {
    SCOPED_TRACE(number);
    expectUsageError(home_.tervano({"run", "--password-fd", number, uid_, file_}));
  }
}

TEST_F(CompressCommandTest, WithoutATerminalAndADisplayItSaysSo) {
  expectFailureWith(run(uid_, {file_}),
                    "Nothing was done: there is neither a display nor a terminal to ask on.");
  EXPECT_FALSE(exists(file_ + ".zip"));
}

TEST_F(CompressCommandTest, AnInterruptLeavesNothing) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    auto child = startLongWork();
    child.kill(number);
    EXPECT_EQ(child.waitForExit(30), 1);
    EXPECT_TRUE(leftOvers().empty());
    EXPECT_FALSE(exists(home_.path() + "/docs/big.zip"));
  }
}

TEST_F(CompressCommandTest, WhatAKilledRunLeftIsRemovedByTheNextOne) {
  auto child = startLongWork();
  child.kill(SIGKILL);
  EXPECT_EQ(child.waitForExit(30), -SIGKILL);
  EXPECT_EQ(leftOvers().size(), 1U);
  const auto copy = home_.succeed({"add", "copy", "--to", home_.folder("to")});
  const auto outcome = home_.tervano({"run", copy, file_});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("Removed what an interrupted run had left: "));
  EXPECT_TRUE(leftOvers().empty());
}

TEST_F(CompressCommandTest, WhatAKilledRunLeftIsRemovedWhenTheCompanionStarts) {
  auto child = startLongWork();
  child.kill(SIGKILL);
  EXPECT_EQ(child.waitForExit(30), -SIGKILL);
  EXPECT_EQ(home_.tervano({"service", "--idle-seconds", "0"}).status, 0);
  EXPECT_TRUE(leftOvers().empty());
}

TEST_F(CompressCommandTest, OnATerminalItIsTypedTwiceAndNeverShown) {
  Terminal terminal(becomingTervano({"run", uid_, file_}));
  std::string seen = terminal.readUntil("Password: ");
  EXPECT_THAT(seen, HasSubstr("  " + file_ + "\r\nCompress \"plain.txt\" with a password.\r\n"));
  terminal.type("geheim\n");
  seen += terminal.readUntil("Again: ");
  terminal.type("geheim\n");
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_THAT(seen + terminal.rest(), Not(HasSubstr("geheim")));
  EXPECT_TRUE(opensWith("geheim"));
}

TEST_F(CompressCommandTest, DifferentPasswordsAreAskedForAgain) {
  Terminal terminal(becomingTervano({"run", uid_, file_}));
  for (const std::string again : {"two\n", "one\n"}) {
    terminal.readUntil("Password: ");
    terminal.type("one\n");
    terminal.readUntil("Again: ");
    terminal.type(again);
    if (again == "two\n") terminal.readUntil("The passwords are not the same.\r\n");
  }
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_TRUE(opensWith("one"));
}

TEST_F(CompressCommandTest, AnEmptyLineTheEndOfInputAndAnInterruptAreARefusal) {
  for (const std::string keys : {"\n", "\x04", "\x03"}) {
    Terminal terminal(becomingTervano({"run", uid_, file_}));
    terminal.readUntil("Password: ");
    terminal.type(keys);
    EXPECT_EQ(terminal.waitForExit(), 1);
    EXPECT_THAT(terminal.rest(), HasSubstr("was cancelled.\r\n"));
    EXPECT_FALSE(exists(file_ + ".zip"));
  }
}

TEST_F(CompressCommandTest, TheTerminalShowsWhatIsTypedAgainAfterAnInterrupt) {
  Terminal terminal([this]() -> int {
    execl("/bin/sh", "sh", "-c", "trap : INT; \"$0\" run \"$1\" \"$2\"; stty -a", TERVANO_PROGRAM,
          uid_.c_str(), file_.c_str(), nullptr);
    return 99;
  });
  terminal.readUntil("Password: ");
  terminal.type("\x03");
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_THAT(terminal.rest(), HasSubstr(" echo "));
  EXPECT_THAT(terminal.rest(), Not(HasSubstr("-echo ")));
}

}  // namespace tervano::test
