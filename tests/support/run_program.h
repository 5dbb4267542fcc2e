#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

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

std::string contentsOf(const std::string& path);
bool exists(const std::string& path);

}  // namespace tervano::test
