#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/temporary_home.h"

namespace tervano::test {

// How the program ended and what it wrote.
struct ProgramOutcome {
  // The exit status, or minus the number of the signal that ended it.
  int status = 0;
  std::string output;
  std::string errors;
};

// Where and how a program is started.
struct ProgramStart {
  std::string path;
  std::vector<std::string> arguments;
  // Its current folder; nil: the test's.
  std::optional<std::string> folder = std::nullopt;
  // Called in the forked child before the program is loaded: to drop rights, to mount. A false
  // answer ends the child with status 98.
  std::function<bool()> prepare = nullptr;
  // A program that has not ended by then is killed, which fails the test.
  double seconds = 30;
};

// Runs a program to its end with an empty standard input.
ProgramOutcome runProgram(const ProgramStart& start);

// The user and group that a test becomes when it must not be the superuser.
inline constexpr unsigned kNobody = 65534;
// Becomes that user, for `ProgramStart::prepare`.
bool becomeNobody();
// Gives a folder and all in it to that user.
void giveToNobody(const std::string& folder);

// Temporary folders in memory for as long as it lives, where the system has such a place: the
// program flushes every file that it writes, and on a disk that is most of a test's time.
class MemoryTemporaryFolder {
 public:
  MemoryTemporaryFolder();
  MemoryTemporaryFolder(const MemoryTemporaryFolder&) = delete;
  MemoryTemporaryFolder& operator=(const MemoryTemporaryFolder&) = delete;
  ~MemoryTemporaryFolder();

 private:
  std::optional<std::string> previous_;
};

// A private home without a session bus and without a display, and the real program in it.
class ProgramHome {
 public:
  ProgramHome();

  const std::string& path() const { return home_.path(); }
  TemporaryHome& home() { return home_; }
  // The application group's container, which need not exist.
  std::string container() const;
  std::string listFile() const { return container() + "/Actions.plist"; }
  // A folder in the home, made when it is missing.
  std::string folder(const std::string& name) const;
  // A file in the home with that content.
  std::string file(const std::string& name, const std::string& content = "content") const;

  // Runs "tervano" with these words.
  ProgramOutcome tervano(std::vector<std::string> words) const;
  ProgramOutcome start(ProgramStart start) const;
  // The same for words that must succeed quietly; answers its output without the last line end.
  std::string succeed(std::vector<std::string> words) const;
  nlohmann::ordered_json json(std::vector<std::string> words) const;
  // Titles of the list in its order; members of groups in brackets behind their group.
  std::string titles() const;

 private:
  MemoryTemporaryFolder memory_;
  TemporaryHome home_;
};

std::string contentsOf(const std::string& path);
bool exists(const std::string& path);

// One sentence: one line that begins with "tervano: " and ends with a full stop, and nothing else.
void expectOneSentence(const std::string& errors);
// A usage error: status 2, one sentence, nothing on standard output.
void expectUsageError(const ProgramOutcome& outcome);
// A failure: status 1, one sentence, nothing on standard output.
void expectFailure(const ProgramOutcome& outcome);

}  // namespace tervano::test
