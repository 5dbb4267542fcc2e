#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/descriptor.h"
#include "tests/support/temporary_home.h"

namespace tervano::test {

// How the remove tool ended and what it wrote.
struct RemoveOutcome {
  // The exit status, or minus the number of the signal that ended it.
  int status = 0;
  std::string output;
  std::string errors;
};

// Runs the tool to its end. `prepare` is called in the forked child before the program is loaded;
// a false answer ends the child with status 98. A tool that does not end within a minute is killed,
// which fails the test.
RemoveOutcome runRemove(const std::vector<std::string>& words,
                        const std::function<bool()>& prepare = nullptr);
// With the arguments of the secure delete action.
RemoveOutcome removeSecurely(const std::string& path,
                             const std::function<bool()>& prepare = nullptr);

// Everything is gone and nobody complained.
void expectSuccess(const RemoveOutcome& outcome);
// Status 1, and these lines on standard error, in any order.
void expectFailures(const RemoveOutcome& outcome, std::vector<std::string> lines);

// Runs `body` in a child process; its failed expectations become the test's own.
void inChild(const std::function<void()>& body);

inline constexpr uid_t kNobody = 65534;
// For the child only: become that user; get mounts of its own that end with it.
bool becomeNobody();
bool isolateMounts();

void limitDescriptors(std::uint64_t count);
// Gives a folder and all in it to that user.
void giveToNobody(const std::string& folder);

void makeFile(const std::string& path, const std::string& content = "content");
std::string contentsOf(const std::string& path);
bool exists(const std::string& path);
std::size_t countOf(const std::string& text, const std::string& part);

// A file that is watched over its removal by an open descriptor: what is read is what the blocks of
// the file hold.
class Witness {
 public:
  explicit Witness(const std::string& path);
  std::string contents() const;
  struct stat status() const;

 private:
  Descriptor file_;
};

class RemoveTest : public testing::Test {
 protected:
  std::string at(const std::string& name) const { return home_.path() + "/" + name; }
  // A file below the home, with its folders; answers its path.
  std::string file(const std::string& name, const std::string& content = "content") const;
  std::string folder(const std::string& name) const;

  TemporaryHome home_;
};

// Temporary folders lie in memory, where flushing costs nothing, for as long as it lives.
class MemoryTemporaryFolder {
 public:
  MemoryTemporaryFolder();
  MemoryTemporaryFolder(const MemoryTemporaryFolder&) = delete;
  MemoryTemporaryFolder& operator=(const MemoryTemporaryFolder&) = delete;
  ~MemoryTemporaryFolder();

 private:
  std::optional<std::string> previous_;
};

class MemoryRemoveTest : private MemoryTemporaryFolder, public RemoveTest {};

// Text that no other data contains, `times` times.
std::string marker(std::size_t times = 1);

// One sentence of the tool, as a line.
std::string sentence(const std::string& path, const std::string& reason);

}  // namespace tervano::test
