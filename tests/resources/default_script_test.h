#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/companion/tervano_program.h"
#include "tests/support/child_process.h"

namespace tervano::test {

// Names that a file may have and a script may stumble over. None of them is another's in lower
// case, and each is unlike itself in upper case or has no case at all.
const std::vector<std::string>& hostileNames();

// The titles of all default scripts: their file names without ".sh", sorted.
std::vector<std::string> scriptTitles();
std::string scriptPath(const std::string& title);

// A home in which the default scripts are run as an action runs them: "/bin/bash SCRIPT PATH...".
// There is no session bus and no display; programs of the test's own come before the machine's, and
// the one that shows notifications keeps them instead.
class DefaultScriptTest : public testing::Test {
 protected:
  DefaultScriptTest();

  std::string at(const std::string& name) const { return files_ + "/" + name; }
  // The folder of the files that the scripts get.
  const std::string& files() const { return files_; }
  // A file there; returns its path. A folder in the name is made.
  std::string make(const std::string& name, const std::string& content = "content") const;
  std::string makeFolder(const std::string& name) const;
  // One file of each hostile name; its content is its name.
  std::vector<std::string> makeHostile() const;

  ProgramOutcome run(const std::string& title, const std::vector<std::string>& paths) const;
  // The same as a user who is not the superuser and, unless told otherwise, is given the home.
  ProgramOutcome runAsNobody(const std::string& title, const std::vector<std::string>& paths,
                             bool give = true) const;
  // The same on a disk of so many kibibytes, which is mounted at the folder "disk" of the files and
  // holds copies of `kept` at first. Answers the names on it in the end. Needs root.
  std::vector<std::string> runOnSmallDisk(const std::string& title, int kibibytes,
                                          const std::vector<std::string>& kept,
                                          const std::vector<std::string>& names,
                                          ProgramOutcome* outcome) const;
  // Runs another program and expects that it succeeds; returns its output.
  std::string output(const std::string& program, const std::vector<std::string>& words,
                     const std::string& folder = "/") const;

  // A program of the test's own: a bash script, which comes before the machine's of that name.
  void install(const std::string& name, const std::string& script) const;
  // From now on only the tools of a bare system are found, and these.
  void leaveOnly(const std::vector<std::string>& programs);
  TemporaryHome& home() { return home_.home(); }
  const std::string& homePath() const { return home_.path(); }

  // The text of each notification, in order.
  std::vector<std::string> notifications() const;
  // Everything below the folder of the files, as sorted paths from there; folders end in "/".
  std::vector<std::string> tree() const;
  // The script succeeded and had nothing to say.
  void expectSilent(const ProgramOutcome& outcome) const;
  // The script failed with that one sentence, which is also the only notification.
  void expectProblem(const ProgramOutcome& outcome, const std::string& title,
                     const std::string& sentence) const;

 private:
  ProgramHome home_;
  std::string files_;
  std::string programs_;
};

}  // namespace tervano::test
