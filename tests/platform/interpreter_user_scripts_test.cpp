#include "platform/linux/interpreter_user_scripts.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/bundle.h"
#include "tests/support/child_process.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano {
namespace {

namespace fs = std::filesystem;
using test::runPendingMainItems;
using test::ScopedPlatform;
using test::waitUntil;
using testing::AllOf;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// What became of one run.
struct Outcome {
  int calls = 0;
  std::optional<AppleEventDescriptor> result;
  std::optional<Error> error;
};

AppleEventDescriptor listOf(const std::vector<std::string>& texts) {
  auto list = AppleEventDescriptor::listDescriptor();
  for (const std::string& text : texts) {
    list.insertDescriptor(AppleEventDescriptor::descriptorWithString(text), 0);
  }
  return list;
}

// The call of a handler with one argument, the list of paths.
AppleEvent callOf(const std::string& handler, const std::vector<std::string>& paths) {
  AppleEvent event;
  event.eventClass = kASAppleScriptSuite;
  event.eventID = kASSubroutineEvent;
  auto arguments = AppleEventDescriptor::listDescriptor();
  arguments.insertDescriptor(listOf(paths), 1);
  event.setParamDescriptor(AppleEventDescriptor::descriptorWithString(handler), kASSubroutineName);
  event.setParamDescriptor(arguments, kDirectObject);
  return event;
}

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class InterpreterUserScriptsTest : public testing::Test {
 protected:
  InterpreterUserScriptsTest() {
    platform.services().log = &log;
    // Where the scripts of these tests leave what they have seen.
    platform.home().setVariable("OUT", at("out"));
  }

  std::string at(const std::string& name) { return platform.home().path() + "/" + name; }
  std::string write(const std::string& name, const std::string& text) {
    std::ofstream(at(name), std::ios::binary) << text;
    return at(name);
  }
  std::string out() { return contents(at("out")); }

  std::shared_ptr<UserScriptTask> taskFor(const std::string& path) {
    std::optional<Error> error;
    auto task = scripts.taskWithURL(Url::fileURLWithPath(path), &error);
    EXPECT_EQ(task == nullptr, error.has_value());
    EXPECT_EQ(error ? error->message : "", "");
    return task;
  }
  // Why there is no task for the file.
  std::string refusal(const std::string& path) {
    std::optional<Error> error;
    EXPECT_EQ(scripts.taskWithURL(Url::fileURLWithPath(path), &error), nullptr);
    return error ? error->message : "";
  }

  static std::shared_ptr<Outcome> start(UserScriptTask& task, const AppleEvent& event) {
    auto outcome = std::make_shared<Outcome>();
    task.executeWithAppleEvent(event,
                               [outcome](const auto& result, const std::optional<Error>& error) {
                                 ++outcome->calls;
                                 outcome->result = result;
                                 outcome->error = error;
                               });
    EXPECT_EQ(outcome->calls, 0) << "called in-line";
    return outcome;
  }
  static void finish(const Outcome& outcome) {
    ASSERT_TRUE(waitUntil([&] { return outcome.calls > 0; }, 60));
    runPendingMainItems();
    EXPECT_EQ(outcome.calls, 1);
  }
  Outcome run(const std::string& path, const AppleEvent& event) {
    const auto task = taskFor(path);
    if (task == nullptr) return {};
    const auto outcome = start(*task, event);
    finish(*outcome);
    return *outcome;
  }
  Outcome run(const std::string& path, const std::vector<std::string>& paths = {"/a"}) {
    return run(path, callOf("runWithPaths", paths));
  }
  // The message of the error of a script of that name and text.
  std::string failureOf(const std::string& name, const std::string& text) {
    const Outcome outcome = run(write(name, text));
    EXPECT_TRUE(outcome.error) << "no error";
    return outcome.error ? outcome.error->message : "";
  }
  void expectSuccess(const std::string& name, const std::string& text) {
    const Outcome outcome = run(write(name, text));
    EXPECT_EQ(outcome.error ? outcome.error->message : "", "");
  }

  ScopedPlatform platform;
  test::RecordingLog log{*platform.services().log};
  InterpreterUserScripts scripts{platform.processes()};
};

// --- Which files are scripts.

TEST_F(InterpreterUserScriptsTest, NoUrlIsAnError) {
  std::optional<Error> error;
  EXPECT_EQ(scripts.taskWithURL(std::nullopt, &error), nullptr);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->message, "No script is set.");
}

TEST_F(InterpreterUserScriptsTest, TheErrorNeedNotBeAskedFor) {
  EXPECT_EQ(scripts.taskWithURL(std::nullopt, nullptr), nullptr);
}

TEST_F(InterpreterUserScriptsTest, AUrlOfNoFileIsAnError) {
  for (const char* text :
       {"https://example.org/x.py", "file://elsewhere/x.py", "file:///a%00.py"}) {
    std::optional<Error> error;
    EXPECT_EQ(scripts.taskWithURL(Url(text), &error), nullptr);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->message, std::string(text) + " is no file.");
  }
}

TEST_F(InterpreterUserScriptsTest, AMissingFileIsAnErrorThatNamesIt) {
  EXPECT_EQ(refusal(at("no.py")),
            "The script " + at("no.py") + " cannot be read: No such file or directory");
}

TEST_F(InterpreterUserScriptsTest, AFolderIsNoScript) {
  fs::create_directory(at("folder.py"));
  EXPECT_EQ(refusal(at("folder.py")), at("folder.py") + " is a folder, no script.");
}

TEST_F(InterpreterUserScriptsTest, AFifoOrADeviceIsNoScriptAndIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(at("fifo.py").c_str(), 0600), 0);
  EXPECT_EQ(refusal(at("fifo.py")), at("fifo.py") + " is no regular file.");
  fs::create_symlink("/dev/null", at("device.py"));
  EXPECT_EQ(refusal(at("device.py")), at("device.py") + " is no regular file.");
}

TEST_F(InterpreterUserScriptsTest, AFileThatTheUserMayNotReadIsAnError) {
  const std::string path = write("closed.py", "");
  chmod(path.c_str(), 0600);
  chmod(platform.home().path().c_str(), 0755);
  constexpr uid_t kNobody = 65534;
  auto child = test::forkChild([&](test::ParentLink& parent) {
    if (setgid(kNobody) != 0 || setuid(kNobody) != 0) return 98;
    std::optional<Error> error;
    if (scripts.taskWithURL(Url::fileURLWithPath(path), &error) != nullptr || !error) return 1;
    parent.say(error->message);
    return 0;
  });
  EXPECT_EQ(child.hear(), "The script " + path + " cannot be read: Permission denied");
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(InterpreterUserScriptsTest, TheExtensionInAnyLettersTellsTheLanguage) {
  for (const char* name : {"x.py", "x.js", "x.sh", "x.bash", "x.lua", "x.PY", "x.Lua"}) {
    EXPECT_NE(taskFor(write(name, "")), nullptr) << name;
  }
}

TEST_F(InterpreterUserScriptsTest, WithoutAKnownExtensionTheFirstLineTellsTheLanguage) {
  for (const char* line :
       {"#!/usr/bin/python3", "#! /usr/bin/env python3", "#!/usr/bin/env -S python3.11 -u",
        "#!/usr/bin/python", "#!/usr/bin/gjs", "#!/usr/bin/env -S gjs -m", "#!/bin/sh -e",
        "#!/bin/bash\r\n", "#!/usr/bin/env LC_ALL=C bash", "#!/bin/dash", "#!/usr/bin/lua",
        "#!/usr/bin/env lua5.4\n"}) {
    EXPECT_NE(taskFor(write("script.txt", line)), nullptr) << line;
  }
}

TEST_F(InterpreterUserScriptsTest, AFileOfUnknownKindIsAnError) {
  for (const char* text : {"", "#!", "#!/usr/bin/env", "#!/usr/bin/env node", "#!/usr/bin/perl",
                           "#!/usr/bin/python2", "#!/usr/bin/luajit", "echo", "\n#!/bin/sh"}) {
    EXPECT_THAT(refusal(write("script", text)),
                AllOf(HasSubstr(at("script")), HasSubstr("is of no known kind")))
        << text;
  }
}

TEST_F(InterpreterUserScriptsTest, TheExtensionCountsMoreThanTheFirstLine) {
  expectSuccess("x.sh", "#!/usr/bin/python3\nrunWithPaths() { :; }\n");
}

TEST_F(InterpreterUserScriptsTest, AMissingInterpreterIsNamedWithItsPackage) {
  platform.home().setVariable("PATH", at("empty"));
  EXPECT_EQ(refusal(write("x.py", "")),
            "The script " + at("x.py") +
                " needs python3, which is not installed (Debian package python3).");
  EXPECT_THAT(refusal(write("x.js", "")),
              EndsWith(" needs gjs, which is not installed (Debian package gjs)."));
  EXPECT_THAT(refusal(write("x.sh", "")),
              EndsWith(" needs bash, which is not installed (Debian package bash)."));
  EXPECT_THAT(refusal(write("x.lua", "")),
              EndsWith(" needs lua5.4, which is not installed (Debian package lua5.4)."));
}

TEST_F(InterpreterUserScriptsTest, WithoutASearchPathTheSystemsFoldersAreSearched) {
  platform.home().setVariable("PATH", std::nullopt);
  EXPECT_NE(taskFor(write("x.py", "")), nullptr);
}

TEST_F(InterpreterUserScriptsTest, TheFirstLuaThatIsInstalledIsTaken) {
  fs::create_directory(at("bin"));
  platform.home().setVariable("PATH", at("bin"));
  fs::create_symlink("/usr/bin/lua5.4", at("bin/lua"));
  expectSuccess("x.lua", "function runWithPaths() end");
  // A folder of that name, or a file that cannot be executed, is no program.
  fs::create_directory(at("bin/lua5.4"));
  write("bin/lua5.3", "");
  expectSuccess("x.lua", "function runWithPaths() end");
}

TEST_F(InterpreterUserScriptsTest, AnInterpreterThatIsGoneSinceIsAnErrorOfTheRun) {
  fs::create_directory(at("bin"));
  fs::create_symlink("/usr/bin/python3", at("bin/python3"));
  platform.home().setVariable("PATH", at("bin"));
  const auto task = taskFor(write("x.py", "def runWithPaths(paths): pass\n"));
  ASSERT_NE(task, nullptr);
  fs::remove(at("bin/python3"));
  const auto outcome = start(*task, callOf("runWithPaths", {}));
  finish(*outcome);
  ASSERT_TRUE(outcome->error);
  EXPECT_EQ(outcome->error->message, "The script " + at("x.py") +
                                         " cannot be run: Could not launch " + at("bin/python3") +
                                         ": No such file or directory");
}

TEST_F(InterpreterUserScriptsTest, AMissingLoaderIsAnErrorOfTheRun) {
  struct EmptyBundle : ForwardingBundle {
    using ForwardingBundle::ForwardingBundle;
    using ForwardingBundle::pathForResource;
    std::optional<std::string> pathForResource(const std::string&, const std::string&,
                                               const std::string&) const override {
      return std::nullopt;
    }
  } empty(*platform.services().bundle);
  platform.services().bundle = &empty;
  EXPECT_EQ(failureOf("x.py", ""), "The script " + at("x.py") +
                                       " cannot be run: the resource user-scripts/runner.py is "
                                       "missing.");
}

// --- What holds in every language.

// The same small scripts in one language.
struct Language {
  std::string extension;
  // Writes every path and a NUL to the file $OUT.
  std::string records;
  std::string raises;
  std::string raised;
  std::string hasSyntaxError;
  std::string syntaxError;
  std::string lacksHandler;
  std::string exitsOnLoad;
  std::string exitsInHandler;
  std::string killsItself;
  // Writes 10 MB to each output.
  std::string floods;
  // Leaves a process behind that holds the outputs, its number in $OUT.
  std::string leavesProcess;
  // Uses something of the file "helper" beside it.
  std::string usesHelper;
  std::string helper;
};

std::ostream& operator<<(std::ostream& stream, const Language& language) {
  return stream << language.extension;
}

Language python() {
  Language language;
  language.extension = "py";
  language.records =
      "import os\n"
      "def runWithPaths(paths):\n"
      "    assert type(paths) is list\n"
      "    with open(os.environ['OUT'], 'wb') as file:\n"
      "        file.write(b''.join(os.fsencode(path) + b'\\0' for path in paths))\n";
  language.raises = "def runWithPaths(paths):\n\n    raise ValueError('bad thing')\n";
  language.raised = " failed in line 3: ValueError: bad thing";
  language.hasSyntaxError = "def runWithPaths(paths):\n    return (\n";
  language.syntaxError = " failed in line 2: SyntaxError: '(' was never closed";
  language.lacksHandler = "def runwithpaths(paths): pass\nrunWithPaths = 5\n";
  language.exitsOnLoad = "import sys\nsys.exit(0)\ndef runWithPaths(paths): pass\n";
  language.exitsInHandler = "import os\ndef runWithPaths(paths): os._exit(0)\n";
  language.killsItself =
      "import os, signal\ndef runWithPaths(paths): os.kill(os.getpid(), signal.SIGKILL)\n";
  language.floods =
      "import sys\n"
      "def runWithPaths(paths):\n"
      "    for line in range(100000):\n"
      "        print('x' * 99)\n"
      "        print('y' * 99, file=sys.stderr)\n";
  language.leavesProcess =
      "import os, subprocess\n"
      "def runWithPaths(paths):\n"
      "    child = subprocess.Popen(['sleep', '1000'])\n"
      "    open(os.environ['OUT'], 'w').write(str(child.pid))\n"
      "    child.returncode = 0\n";
  language.usesHelper = "import helper\ndef runWithPaths(paths): return helper.word\n";
  language.helper = "word = 'found'\n";
  return language;
}

Language javaScript() {
  Language language;
  language.extension = "js";
  language.records =
      "import Gio from 'gi://Gio';\n"
      "import GLib from 'gi://GLib';\n"
      "export function runWithPaths(paths) {\n"
      "    if (!Array.isArray(paths)) throw new Error('no list');\n"
      "    const bytes = new TextEncoder().encode(paths.map(path => path + '\\0').join(''));\n"
      "    const stream = Gio.File.new_for_path(GLib.getenv('OUT')).replace(\n"
      "        null, false, Gio.FileCreateFlags.NONE, null);\n"
      "    if (paths.length) stream.write_all(bytes, null);\n"
      "    stream.close(null);\n"
      "}\n";
  language.raises = "function runWithPaths(paths) {\n\n    throw new Error('bad thing');\n}\n";
  language.raised = " failed in line 3: Error: bad thing";
  language.hasSyntaxError = "export function runWithPaths(paths) {\n    const x = ;\n}\n";
  language.syntaxError = " failed in line 2: SyntaxError: expected expression, got ';'";
  language.lacksHandler = "function runwithpaths(paths) {}\nvar runWithPaths = 5;\n";
  language.exitsOnLoad = "imports.system.exit(0);\nfunction runWithPaths(paths) {}\n";
  language.exitsInHandler =
      "import System from 'system';\n"
      "export function runWithPaths(paths) { System.exit(0); }\n";
  language.killsItself =
      "import GLib from 'gi://GLib';\n"
      "export async function runWithPaths(paths) {\n"
      "    const self = GLib.file_read_link('/proc/self').replace('/proc/', '');\n"
      "    GLib.spawn_command_line_sync(`kill -KILL ${self}`);\n"
      "    await new Promise(() => {});\n"
      "}\n";
  language.floods =
      "function runWithPaths(paths) {\n"
      "    for (let line = 0; line < 100000; line++) {\n"
      "        print('x'.repeat(99));\n"
      "        printerr('y'.repeat(99));\n"
      "    }\n"
      "}\n";
  language.leavesProcess =
      "import Gio from 'gi://Gio';\n"
      "import GLib from 'gi://GLib';\n"
      "export function runWithPaths(paths) {\n"
      "    const child = Gio.Subprocess.new(['sleep', '1000'], Gio.SubprocessFlags.NONE);\n"
      "    GLib.file_set_contents(GLib.getenv('OUT'), child.get_identifier());\n"
      "}\n";
  language.usesHelper =
      "import {word} from './helper.js';\nexport const runWithPaths = paths => word;\n";
  language.helper = "export const word = 'found';\n";
  return language;
}

Language shell() {
  Language language;
  language.extension = "sh";
  language.records =
      "runWithPaths() { : >\"$OUT\"; (($# == 0)) || printf '%s\\0' \"$@\" >\"$OUT\"; }\n";
  language.raises =
      "runWithPaths() {\n  echo one >&2; echo two >&2; echo >&2; echo three >&2\n"
      "  echo bad thing >&2\n  return 3\n}\n";
  language.raised = " ended with status 3: two\nthree\nbad thing";
  language.hasSyntaxError = "runWithPaths() {\n  if\n}\n";
  language.syntaxError = "line 3: syntax error near unexpected token `}'";
  language.lacksHandler = "runwithpaths() { :; }\nrunWithPaths=5\n";
  language.exitsOnLoad = "exit 0\nrunWithPaths() { :; }\n";
  language.exitsInHandler = "runWithPaths() { exit 0; }\n";
  language.killsItself = "runWithPaths() { kill -KILL $$; }\n";
  language.floods =
      "runWithPaths() {\n"
      "  head -c 10000000 /dev/zero | tr '\\0' x\n"
      "  yes yyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy | head -c 10000000 >&2\n"
      "}\n";
  language.leavesProcess = "runWithPaths() { sleep 1000 & echo $! >\"$OUT\"; }\n";
  language.usesHelper =
      "source \"$(dirname \"${BASH_SOURCE[0]}\")/helper.sh\"\n"
      "runWithPaths() { [ \"$word\" = found ]; }\n";
  language.helper = "word=found\n";
  return language;
}

Language lua() {
  Language language;
  language.extension = "lua";
  language.records =
      "function runWithPaths(paths)\n"
      "  local file = assert(io.open(os.getenv('OUT'), 'wb'))\n"
      "  for _, path in ipairs(paths) do file:write(path, '\\0') end\n"
      "  file:close()\n"
      "end\n";
  language.raises = "function runWithPaths(paths)\n\n  error('bad thing')\nend\n";
  language.raised = " failed in line 3: bad thing";
  language.hasSyntaxError = "function runWithPaths(paths)\n  local x = =\nend\n";
  language.syntaxError = " failed in line 2: unexpected symbol near '='";
  language.lacksHandler = "function runwithpaths(paths) end\nrunWithPaths = 5\n";
  language.exitsOnLoad = "os.exit(0)\n";
  language.exitsInHandler = "function runWithPaths(paths) os.exit(0) end\n";
  language.killsItself = "function runWithPaths(paths) os.execute('kill -KILL $PPID') end\n";
  language.floods =
      "function runWithPaths(paths)\n"
      "  for line = 1, 100000 do\n"
      "    print(('x'):rep(99))\n"
      "    io.stderr:write(('y'):rep(99), '\\n')\n"
      "  end\n"
      "end\n";
  language.leavesProcess =
      "function runWithPaths(paths) os.execute('sleep 1000 & echo $! >\"$OUT\"') end\n";
  language.usesHelper =
      "local helper = require('helper')\nfunction runWithPaths(paths) return helper.word end\n";
  language.helper = "return {word = 'found'}\n";
  return language;
}

class EveryLanguageTest : public InterpreterUserScriptsTest,
                          public testing::WithParamInterface<Language> {
 protected:
  const Language& language() const { return GetParam(); }
  std::string name() const { return "script." + language().extension; }
  std::string named() { return "The script " + at(name()); }
  bool isJavaScript() const { return language().extension == "js"; }

  void expectToArrive(const std::vector<std::string>& paths) {
    const Outcome outcome = run(write(name(), language().records), paths);
    EXPECT_EQ(outcome.error ? outcome.error->message : "", "");
    std::string expected;
    for (const std::string& path : paths) expected.append(path).push_back('\0');
    EXPECT_TRUE(out() == expected) << out().size() << " bytes instead of " << expected.size();
  }
};

INSTANTIATE_TEST_SUITE_P(, EveryLanguageTest,
                         testing::Values(python(), javaScript(), shell(), lua()),
                         [](const auto& info) { return info.param.extension; });

TEST_P(EveryLanguageTest, PathsArriveInOrder) {
  expectToArrive({"/a", "/b", "/c"});
}

TEST_P(EveryLanguageTest, AnEmptySelectionIsAnEmptyList) {
  std::ofstream(at("out")) << "untouched";
  expectToArrive({});
}

TEST_P(EveryLanguageTest, HostileNamesArriveByteByByte) {
  std::vector<std::string> paths{"/new\nline\n",
                                 "/quote's \"x\"",
                                 "/$(touch OUT)`id`",
                                 "/back\\slash\\n",
                                 "/* ?[a]{b,c}~",
                                 "-rf",
                                 "",
                                 "list",
                                 "string",
                                 "/\u00e4\u4e2d\U0001F600",
                                 "\ufeff/bom",
                                 "/\x01\x7f\t\r"};
  if (!isJavaScript()) paths.insert(paths.end(), {"/\xff\xfe", "/\xc3", "/\xed\xa0\x80"});
  expectToArrive(paths);
}

TEST_P(EveryLanguageTest, AHundredThousandPathsArrive) {
  std::vector<std::string> paths;
  for (int path = 0; path < 100000; ++path) {
    paths.push_back("/home/somebody/pictures/a folder/file number " + std::to_string(path));
  }
  expectToArrive(paths);
}

TEST_P(EveryLanguageTest, ASinglePathMayBeLongerThanAnyArgument) {
  expectToArrive({"/" + std::string(1000000, 'x')});
}

TEST_P(EveryLanguageTest, WhatTheHandlerRaisesIsTheError) {
  EXPECT_EQ(failureOf(name(), language().raises), named() + language().raised);
}

TEST_P(EveryLanguageTest, ASyntaxErrorIsTheError) {
  EXPECT_THAT(failureOf(name(), language().hasSyntaxError), HasSubstr(language().syntaxError));
}

TEST_P(EveryLanguageTest, AMissingHandlerIsAnError) {
  EXPECT_EQ(failureOf(name(), language().lacksHandler),
            named() + " has no handler named runWithPaths.");
  EXPECT_EQ(failureOf(name(), ""), named() + " has no handler named runWithPaths.");
}

TEST_P(EveryLanguageTest, AScriptThatEndsItselfWhenLoadedIsAnError) {
  EXPECT_EQ(failureOf(name(), language().exitsOnLoad),
            named() + " ended itself before its handler runWithPaths was finished.");
}

TEST_P(EveryLanguageTest, AScriptThatEndsItselfInItsHandlerIsAnError) {
  EXPECT_EQ(failureOf(name(), language().exitsInHandler),
            named() + " ended itself before its handler runWithPaths was finished.");
}

TEST_P(EveryLanguageTest, AScriptThatIsKilledIsAnError) {
  EXPECT_EQ(failureOf(name(), language().killsItself),
            named() + " was ended by signal 9 (Killed).");
}

TEST_P(EveryLanguageTest, MuchOutputNeitherBlocksNorFillsTheLog) {
  expectSuccess(name(), language().floods);
  std::size_t logged = 0;
  for (const std::string& line : log.lines()) logged += line.size();
  EXPECT_GT(logged, 60000u);
  EXPECT_LT(logged, 150000u);
  EXPECT_THAT(log.lines(), Contains(name() + ": Further output is not logged."));
}

TEST_P(EveryLanguageTest, AProcessThatIsLeftBehindIsNotWaitedFor) {
  expectSuccess(name(), language().leavesProcess);
  const pid_t left = std::atoi(out().c_str());
  ASSERT_GT(left, 1);
  EXPECT_EQ(kill(left, SIGKILL), 0) << "it did not outlive the script";
}

TEST_P(EveryLanguageTest, ADroppedTaskStillReports) {
  auto task = taskFor(write(name(), language().records));
  ASSERT_NE(task, nullptr);
  const auto outcome = start(*task, callOf("runWithPaths", {"/a"}));
  task.reset();
  finish(*outcome);
  EXPECT_FALSE(outcome->error);
  EXPECT_EQ(out(), std::string("/a\0", 3));
}

TEST_P(EveryLanguageTest, AScriptFindsWhatLiesBesideIt) {
  write("helper." + language().extension, language().helper);
  const Outcome outcome = run(write(name(), language().usesHelper));
  EXPECT_EQ(outcome.error ? outcome.error->message : "", "");
  if (language().extension == "sh") return;
  ASSERT_TRUE(outcome.result);
  EXPECT_EQ(*outcome.result, AppleEventDescriptor::descriptorWithString("found"));
}

TEST_P(EveryLanguageTest, AScriptsOwnNameAndFolderMayBeAnything) {
  const std::string folder = "folder \xff$(x);?%41/";
  fs::create_directory(at(folder));
  for (const std::string& stem :
       {std::string("-x"), std::string("it's \"$(id)\""), std::string("new\nline"),
        std::string("100%25 #?&;"), folder + "\xff\xfe",
        std::string("longer than the longest name that Lua has for a chunk, by some")}) {
    fs::remove(at("out"));
    expectSuccess(stem + "." + language().extension, language().records);
    EXPECT_EQ(out(), std::string("/a\0", 3)) << stem;
  }
}

TEST_P(EveryLanguageTest, WithoutAnExtensionTheFirstLineIsNoObstacle) {
  const std::string program = isJavaScript()                  ? "gjs -m"
                              : language().extension == "lua" ? "lua5.4"
                              : language().extension == "py"  ? "python3"
                                                              : "bash";
  expectSuccess("script", "#!/usr/bin/env -S " + program + "\n" + language().records);
  EXPECT_EQ(out(), std::string("/a\0", 3));
}

TEST_P(EveryLanguageTest, ALongErrorIsCutWhereACharacterEnds) {
  const std::string call =
      language().extension == "py"    ? "def runWithPaths(p): raise ValueError(p[0])"
      : isJavaScript()                ? "function runWithPaths(p) { throw new Error(p[0]); }"
      : language().extension == "lua" ? "function runWithPaths(p) error(p[1], 0) end"
                                      : "runWithPaths() { echo \"$1\" >&2; return 1; }";
  std::string text;
  for (int character = 0; character < 100000; ++character) text += "\u00e4";
  const Outcome outcome = run(write(name(), call), {text});
  ASSERT_TRUE(outcome.error);
  EXPECT_LT(outcome.error->message.size(), 2300u);
  EXPECT_THAT(outcome.error->message, HasSubstr("\u00e4\u00e4\u00e4"));
}

// --- The call.

TEST_F(InterpreterUserScriptsTest, TheHandlerOfTheEventIsCalledWithEachItemAsAnArgument) {
  AppleEvent event = callOf("other", {"/a", "/b"});
  auto arguments = *event.paramDescriptor(kDirectObject);
  arguments.insertDescriptor(AppleEventDescriptor::descriptorWithString("text"), 2);
  arguments.insertDescriptor(listOf({}), 3);
  event.setParamDescriptor(arguments, kDirectObject);
  const auto expected = AppleEventDescriptor::descriptorWithString("/a,/b text 0");
  EXPECT_EQ(run(write("x.py",
                      "def other(paths, text, none):\n"
                      "    return f\"{','.join(paths)} {text} {len(none)}\"\n"),
                event)
                .result,
            expected);
  EXPECT_EQ(run(write("x.js",
                      "function other(paths, text, none) {\n"
                      "    return `${paths.join(',')} ${text} ${none.length}`;\n}\n"),
                event)
                .result,
            expected);
  EXPECT_EQ(run(write("x.lua",
                      "function other(paths, text, none)\n"
                      "  return table.concat(paths, ',') .. ' ' .. text .. ' ' .. #none\nend\n"),
                event)
                .result,
            expected);
  EXPECT_FALSE(run(write("x.sh", "other() { echo \"$# $*\" >\"$OUT\"; }\n"), event).error);
  EXPECT_EQ(out(), "3 /a /b text\n");
}

TEST_F(InterpreterUserScriptsTest, AnEventWithoutArgumentsCallsTheHandlerWithoutAny) {
  AppleEvent event;
  event.setParamDescriptor(AppleEventDescriptor::descriptorWithString("go"), kASSubroutineName);
  EXPECT_FALSE(run(write("x.py", "def go(): pass\n"), event).error);
}

TEST_F(InterpreterUserScriptsTest, AnEventThatCannotBeCarriedIsAnErrorBeforeAnythingRuns) {
  const std::string path = write("x.py", "open('" + at("out") + "', 'w').close()\n");
  std::vector<AppleEvent> events(5, callOf("runWithPaths", {}));
  events[0].parameters.clear();
  events[1].setParamDescriptor(AppleEventDescriptor::descriptorWithString("x"), kDirectObject);
  auto arguments = AppleEventDescriptor::listDescriptor();
  arguments.insertDescriptor(AppleEventDescriptor::descriptorWithDescriptorType(1, {}), 1);
  events[2].setParamDescriptor(arguments, kDirectObject);
  auto nested = AppleEventDescriptor::listDescriptor();
  nested.insertDescriptor(AppleEventDescriptor::listDescriptor(), 1);
  arguments = AppleEventDescriptor::listDescriptor();
  arguments.insertDescriptor(nested, 1);
  events[3].setParamDescriptor(arguments, kDirectObject);
  events[4] = callOf("runWithPaths", {std::string("/a\0b", 4)});
  for (const AppleEvent& event : events) {
    const Outcome outcome = run(path, event);
    ASSERT_TRUE(outcome.error);
    EXPECT_THAT(outcome.error->message, EndsWith("."));
  }
  EXPECT_FALSE(fs::exists(at("out")));
}

TEST_F(InterpreterUserScriptsTest, ANameThatJavaScriptCannotHoldIsAnErrorBeforeAnythingRuns) {
  const std::string path = write("x.js", javaScript().records);
  const Outcome outcome = run(path, {"/a", "/b\xff"});
  ASSERT_TRUE(outcome.error);
  EXPECT_EQ(outcome.error->message, "The name /b\xff is no UTF-8 text and cannot be given to " +
                                        path + ", since JavaScript has no other texts.");
  EXPECT_FALSE(fs::exists(at("out")));
}

TEST_F(InterpreterUserScriptsTest, TextsAndListsOfTextsAreResults) {
  struct Case {
    const char* extension;
    const char* before;
    const char* after;
    std::vector<std::string> texts;
  };
  const auto text = AppleEventDescriptor::descriptorWithString("t\u00e4xt");
  const auto list = listOf({"one", "", "three"});
  const auto none = AppleEventDescriptor::listDescriptor();
  for (const auto& [extension, before, after, values] :
       {Case{"py",
             "def runWithPaths(paths): return ",
             "",
             {"'t\u00e4xt'", "['one', '', 'three']", "[]", "5", "'a\\0b'", "[1]"}},
        Case{"js",
             "function runWithPaths(paths) { return ",
             "; }",
             {"'t\u00e4xt'", "['one', '', 'three']", "[]", "5", "'a\\0b'", "[1]"}},
        Case{"lua",
             "function runWithPaths(paths) return ",
             " end",
             {"'t\u00e4xt'", "{'one', '', 'three'}", "{}", "5", "'a\\0b'", "{1}"}}}) {
    const std::vector<std::optional<AppleEventDescriptor>> results{
        text, list, none, std::nullopt, std::nullopt, std::nullopt};
    for (std::size_t at = 0; at < values.size(); ++at) {
      const Outcome outcome =
          run(write(std::string("x.") + extension, before + values[at] + after + "\n"));
      EXPECT_EQ(outcome.error ? outcome.error->message : "", "");
      EXPECT_EQ(outcome.result, results[at]) << extension << " " << values[at];
    }
  }
}

TEST_F(InterpreterUserScriptsTest, AResultMayBeAsLongAsTheSelection) {
  const std::vector<std::string> paths(100000, "/some/file/with/a/path/of/usual/length");
  const Outcome outcome = run(write("x.py", "def runWithPaths(paths): return paths\n"), paths);
  ASSERT_TRUE(outcome.result);
  EXPECT_TRUE(*outcome.result == listOf(paths));
}

TEST_F(InterpreterUserScriptsTest, TwoScriptsRunAtOnce) {
  ASSERT_EQ(mkfifo(at("fifo").c_str(), 0600), 0);
  // Each end of the FIFO waits for the other.
  const auto writer = taskFor(write("w.sh", "runWithPaths() { echo met >\"$1\"; }\n"));
  const auto reader = taskFor(write("r.sh", "runWithPaths() { read -r _ <\"$1\"; }\n"));
  ASSERT_NE(writer, nullptr);
  ASSERT_NE(reader, nullptr);
  const auto event = callOf("runWithPaths", {at("fifo")});
  const auto first = start(*writer, event);
  const auto second = start(*reader, event);
  finish(*first);
  finish(*second);
  EXPECT_FALSE(first->error);
  EXPECT_FALSE(second->error);
}

TEST_F(InterpreterUserScriptsTest, OneTaskRunsManyTimesAtOnce) {
  const auto task = taskFor(write("x.lua", "function runWithPaths(paths) return paths[1] end\n"));
  ASSERT_NE(task, nullptr);
  std::vector<std::shared_ptr<Outcome>> outcomes;
  for (int run = 0; run < 50; ++run) {
    outcomes.push_back(start(*task, callOf("runWithPaths", {std::to_string(run)})));
  }
  for (int run = 0; run < 50; ++run) {
    finish(*outcomes[run]);
    EXPECT_EQ(outcomes[run]->result,
              AppleEventDescriptor::descriptorWithString(std::to_string(run)));
  }
}

TEST_F(InterpreterUserScriptsTest, AScriptThatIsRemovedBeforeItsRunIsAnError) {
  for (const char* extension : {"py", "js", "sh", "lua"}) {
    const std::string path = write(std::string("x.") + extension, "");
    const auto task = taskFor(path);
    ASSERT_NE(task, nullptr);
    fs::remove(path);
    const auto outcome = start(*task, callOf("runWithPaths", {}));
    finish(*outcome);
    ASSERT_TRUE(outcome->error);
    EXPECT_THAT(outcome->error->message, HasSubstr("No such file or directory"));
  }
}

// --- The script's surroundings.

TEST_F(InterpreterUserScriptsTest, StandardInputIsEmptyAndTheEnvironmentIsOurs) {
  platform.home().setVariable("ODD", "a\nb\xff");
  expectSuccess("x.sh",
                "runWithPaths() {\n"
                "  readlink /proc/$$/fd/0 && cat && sort -z </proc/$$/environ >\"$OUT\"\n"
                "}\n");
  EXPECT_THAT(log.lines(), Contains("x.sh: /dev/null"));
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable)
    variables.emplace_back(*variable);
  std::sort(variables.begin(), variables.end());
  std::vector<std::string> seen;
  std::string variable;
  for (std::ifstream file(at("out")); std::getline(file, variable, '\0');) seen.push_back(variable);
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, variables);
}

TEST_F(InterpreterUserScriptsTest, OutputGoesToTheLogByLines) {
  expectSuccess("x.sh",
                "runWithPaths() { printf 'one\\n\\ntwo'; sleep 0.01; printf ' halves\\nrest'; }\n");
  EXPECT_THAT(log.lines(),
              testing::IsSupersetOf({"x.sh: one", "x.sh: ", "x.sh: two halves", "x.sh: rest"}));
}

TEST_F(InterpreterUserScriptsTest, AnEndlessLineIsLoggedInPieces) {
  expectSuccess("x.sh", "runWithPaths() { head -c 10000 /dev/zero | tr '\\0' x; }\n");
  EXPECT_THAT(log.lines(), testing::IsSupersetOf({"x.sh: " + std::string(4096, 'x'),
                                                  "x.sh: " + std::string(10000 - 2 * 4096, 'x')}));
}

TEST_F(InterpreterUserScriptsTest, WhatIsLeftBehindMayStillWrite) {
  ASSERT_EQ(mkfifo(at("fifo").c_str(), 0600), 0);
  const Outcome outcome =
      run(write("x.sh", "runWithPaths() { (read -r _ <\"$1\"; echo later; : >\"$OUT\") & }\n"),
          {at("fifo")});
  EXPECT_FALSE(outcome.error);
  std::ofstream(at("fifo")) << "go\n";
  EXPECT_TRUE(waitUntil([&] { return fs::exists(at("out")); }));
  EXPECT_TRUE(waitUntil([&] {
    const auto lines = log.lines();
    return std::find(lines.begin(), lines.end(), "x.sh: later") != lines.end();
  }));
}

// --- Python.

TEST_F(InterpreterUserScriptsTest, PathsInPythonOpenTheFilesThatTheyName) {
  platform.home().setVariable("PYTHONIOENCODING", "utf-8:strict");
  const std::string odd = write("odd\xff\n", "inside");
  const Outcome outcome = run(write("x.py",
                                    "def runWithPaths(paths):\n"
                                    "    print(paths[0])\n"
                                    "    return open(paths[0]).read() + paths[0]\n"),
                              {odd});
  EXPECT_EQ(outcome.error ? outcome.error->message : "", "");
  EXPECT_EQ(outcome.result, AppleEventDescriptor::descriptorWithString("inside" + odd));
}

TEST_F(InterpreterUserScriptsTest, APythonErrorDeeperThanTheScriptNamesTheScriptsLine) {
  EXPECT_EQ(failureOf("x.py", "import json\ndef runWithPaths(paths):\n    json.loads('[')\n"),
            "The script " + at("x.py") +
                " failed in line 3: json.decoder.JSONDecodeError: Expecting value: line 1 column 2 "
                "(char 1)");
}

TEST_F(InterpreterUserScriptsTest, OddPythonErrorsStillHaveATextInOnePiece) {
  EXPECT_EQ(failureOf("x.py",
                      "class Odd(BaseException):\n"
                      "    def __str__(self): raise KeyError\n"
                      "def runWithPaths(paths): raise Odd\n"),
            "The script " + at("x.py") + " failed in line 3: Odd");
  EXPECT_EQ(failureOf("x.py", "def runWithPaths(paths): raise ValueError('a\\0b\\ud800')\n"),
            "The script " + at("x.py") + " failed in line 1: ValueError: a\\0b\\ud800");
  EXPECT_THAT(failureOf("x.py", "def runWithPaths(paths): runWithPaths(paths)\n"),
              HasSubstr("failed in line 1: RecursionError: maximum recursion depth exceeded"));
}

TEST_F(InterpreterUserScriptsTest, APythonScriptThatExitsWithATextTellsIt) {
  EXPECT_EQ(failureOf("x.py", "import sys\ndef runWithPaths(paths): sys.exit('no printer')\n"),
            "The script " + at("x.py") + " ended with status 1: no printer");
}

TEST_F(InterpreterUserScriptsTest, APythonScriptIsNotTheMainModule) {
  expectSuccess(
      "x.py",
      "import sys\n"
      "if __name__ == '__main__': sys.exit(1)\n"
      "def runWithPaths(paths):\n"
      "    assert sys.argv == [__file__] and sys.modules[__name__].__file__ == __file__\n");
}

TEST_F(InterpreterUserScriptsTest, APythonCoroutineIsRunToItsEnd) {
  const Outcome outcome = run(write("x.py",
                                    "import asyncio\n"
                                    "async def runWithPaths(paths):\n"
                                    "    await asyncio.sleep(0.001)\n"
                                    "    return paths[0]\n"));
  EXPECT_EQ(outcome.result, AppleEventDescriptor::descriptorWithString("/a"));
}

TEST_F(InterpreterUserScriptsTest, AnotherFileInThePlaceOfTheResultsDescriptorStaysUntouched) {
  EXPECT_THAT(failureOf("x.py",
                        "import os\n"
                        "def runWithPaths(paths):\n"
                        "    os.closerange(3, 256)\n"
                        "    files = [os.open(os.environ['OUT'], os.O_RDWR | os.O_CREAT)\n"
                        "             for count in range(200)]\n"),
              HasSubstr("the script has closed the descriptor of its result"));
  EXPECT_EQ(out(), "");
  EXPECT_TRUE(fs::exists(at("out")));
}

TEST_F(InterpreterUserScriptsTest, AForkedPythonProcessDoesNotReportForTheScript) {
  const Outcome outcome = run(write("x.py",
                                    "import os\n"
                                    "def runWithPaths(paths):\n"
                                    "    child = os.fork()\n"
                                    "    if child == 0: return 'child'\n"
                                    "    os.waitpid(child, 0)\n"
                                    "    return 'parent'\n"));
  EXPECT_EQ(outcome.result, AppleEventDescriptor::descriptorWithString("parent"));
}

TEST_F(InterpreterUserScriptsTest, AScriptThatDiesAfterItsHandlerHasFailed) {
  EXPECT_EQ(failureOf("x.py",
                      "import atexit, os\n"
                      "def runWithPaths(paths): atexit.register(os.abort)\n"),
            "The script " + at("x.py") + " was ended by signal 6 (Aborted).");
}

// --- JavaScript.

TEST_F(InterpreterUserScriptsTest, JavaScriptHandlersMayBeConstantsFunctionsOrExports) {
  for (const char* text :
       {"const runWithPaths = paths => paths[0];", "var runWithPaths = paths => paths[0];",
        "'use strict'; function runWithPaths(paths) { return paths[0]; } // end",
        "export const runWithPaths = paths => paths[0];",
        "const value = await 5; const f = p => p[0]; export {f as runWithPaths};"}) {
    const Outcome outcome = run(write("x.js", text));
    EXPECT_EQ(outcome.error ? outcome.error->message : "", "") << text;
    EXPECT_EQ(outcome.result, AppleEventDescriptor::descriptorWithString("/a")) << text;
  }
}

TEST_F(InterpreterUserScriptsTest, APromiseIsAwaited) {
  const std::string begin =
      "imports.gi.versions;\nconst {GLib} = imports.gi;\n"
      "const later = call => GLib.timeout_add(0, 1, () => { call(); return false; });\n";
  const Outcome kept = run(
      write("x.js", begin + "function runWithPaths(paths) {\n"
                            "    return new Promise(keep => later(() => keep(paths[0])));\n}\n"));
  EXPECT_EQ(kept.result, AppleEventDescriptor::descriptorWithString("/a"));
  const Outcome broken = run(write(
      "x.js", begin + "function runWithPaths(paths) {\n"
                      "    return new Promise((_, fail) => later(() => fail(new Error('broken'"
                      "))));\n}\n"));
  ASSERT_TRUE(broken.error);
  EXPECT_EQ(broken.error->message, "The script " + at("x.js") + " failed in line 5: Error: broken");
}

TEST_F(InterpreterUserScriptsTest, AJavaScriptMayEndItselfFromAnywhere) {
  const std::string ended = "The script " + at("x.js") + " ended with status 5.";
  for (const char* text :
       {"imports.system.exit(5);", "import {exit} from 'system'; exit(5); export const a = 1;",
        "import System from 'system'; export async function runWithPaths() {\n"
        "    await null; try { System.exit(5); } finally { return 'no'; }\n}",
        "imports.gi.GLib.idle_add(0, () => imports.system.exit(5));\n"
        "function runWithPaths() { return new Promise(() => {}); }"}) {
    EXPECT_EQ(failureOf("x.js", text), ended) << text;
  }
}

TEST_F(InterpreterUserScriptsTest, WhateverAJavaScriptHandlerThrowsHasAText) {
  EXPECT_EQ(failureOf("x.js", "function runWithPaths() { throw 'text'; }"),
            "The script " + at("x.js") + " failed: text");
  EXPECT_EQ(failureOf("x.js", "function runWithPaths() { throw undefined; }"),
            "The script " + at("x.js") + " failed: undefined");
  EXPECT_EQ(failureOf("x.js", "function runWithPaths() { throw Object.create(null); }"),
            "The script " + at("x.js") + " failed: an error without a text");
  EXPECT_THAT(failureOf("x.js",
                        "import Gio from 'gi://Gio';\n"
                        "export function runWithPaths() {\n"
                        "    Gio.File.new_for_path('/no/such/file').read(null);\n}\n"),
              AllOf(HasSubstr("failed in line 3: "), HasSubstr("No such file or directory")));
}

TEST_F(InterpreterUserScriptsTest, AClassicJavaScriptFindsModulesBesideIt) {
  write("aside.js", "var word = 'found';\n");
  const Outcome outcome =
      run(write("x.js", "function runWithPaths() { return imports.aside.word; }"));
  EXPECT_EQ(outcome.error ? outcome.error->message : "", "");
  EXPECT_EQ(outcome.result, AppleEventDescriptor::descriptorWithString("found"));
}

TEST_F(InterpreterUserScriptsTest, AHandlersNameIsNotReadAsJavaScript) {
  const Outcome outcome = run(write("x.js", "function a() {}"), callOf("a()", {}));
  ASSERT_TRUE(outcome.error);
  EXPECT_EQ(outcome.error->message, "The script " + at("x.js") + " has no handler named a().");
}

// --- The shell.

TEST_F(InterpreterUserScriptsTest, UnderErrexitTheFirstFailureEndsTheHandler) {
  EXPECT_EQ(failureOf("x.sh",
                      "set -euo pipefail\n"
                      "runWithPaths() { ls /no/such/folder; touch \"$OUT\"; }\n"),
            "The script " + at("x.sh") +
                " ended with status 2: ls: cannot access '/no/such/folder': No such file or "
                "directory");
  EXPECT_FALSE(fs::exists(at("out")));
}

TEST_F(InterpreterUserScriptsTest, TheStatusOfTheLastLineOfAShellScriptIsNoFailure) {
  expectSuccess("x.sh", "runWithPaths() { :; }\n[ -e /no/such/file ] && echo there\n");
  expectSuccess("x.sh", "shopt -s extglob\nrunWithPaths() { : !(a); }\n! :\n");
}

TEST_F(InterpreterUserScriptsTest, AShellScriptMayHaveFunctionsAndSettingsOfAnyKind) {
  expectSuccess("x.sh",
                "set -uf; IFS=/; exec 3>&1 4>&2\n"
                "exit() { :; }; printf() { :; }; declare() { :; }; source() { :; }\n"
                "runWithPaths() { echo \"$0\" >\"$OUT\"; set --; }\n");
  EXPECT_EQ(out(), at("x.sh") + "\n");
}

TEST_F(InterpreterUserScriptsTest, AFailureInASilentShellScriptTellsTheStatus) {
  EXPECT_EQ(failureOf("x.sh", "runWithPaths() { exec 2>/dev/null; echo lost >&2; exit 7; }\n"),
            "The script " + at("x.sh") + " ended with status 7.");
}

// --- Lua.

TEST_F(InterpreterUserScriptsTest, ALuaErrorHasItsLineUnderALongNameToo) {
  const std::string name = std::string(100, 'x') + ".lua";
  EXPECT_EQ(failureOf(name, "function runWithPaths()\n  error('bad')\nend\n"),
            "The script " + at(name) + " failed in line 2: bad");
}

TEST_F(InterpreterUserScriptsTest, AFolderThatLuaWouldMisreadIsNotSearched) {
  fs::create_directory(at("odd;?"));
  const Outcome outcome = run(write(
      "odd;?/x.lua", "function runWithPaths() return tostring(package.path:find('odd;')) end\n"));
  EXPECT_EQ(outcome.result, AppleEventDescriptor::descriptorWithString("nil"));
}

TEST_F(InterpreterUserScriptsTest, WhateverALuaHandlerRaisesHasAText) {
  EXPECT_EQ(failureOf("x.lua", "function runWithPaths() error() end"),
            "The script " + at("x.lua") + " failed: nil");
  EXPECT_EQ(failureOf("x.lua",
                      "function runWithPaths()\n"
                      "  error(setmetatable({}, {__tostring = function() return 'table' end}))\n"
                      "end\n"),
            "The script " + at("x.lua") + " failed: table");
  EXPECT_EQ(failureOf("x.lua",
                      "function runWithPaths()\n"
                      "  error(setmetatable({}, {__tostring = function() error('x') end}))\n"
                      "end\n"),
            "The script " + at("x.lua") + " failed: an error without a text");
  EXPECT_THAT(failureOf("x.lua", "function runWithPaths()\n  local x = nil + 1\nend\n"),
              HasSubstr(" failed in line 2: attempt to perform arithmetic on a nil value"));
}

}  // namespace
}  // namespace tervano
