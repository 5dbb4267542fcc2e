#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/linux/descriptor.h"
#include "tests/support/run_program.h"
#include "tests/support/temporary_home.h"

namespace tervano::test {

using RemoveOutcome = ProgramOutcome;

// Runs the tool to its end. `prepare` is called in the forked child before the program is loaded;
// a false answer ends the child with status 98. A tool that does not end within a minute is killed,
// which fails the test.
RemoveOutcome runRemove(const std::vector<std::string>& words,
                        const std::function<bool()>& prepare = nullptr);
// With the arguments of the secure delete action.
RemoveOutcome removeSecurely(const std::string& path,
                             const std::function<bool()>& prepare = nullptr);

std::vector<std::string> linesOf(const std::string& text);

// Everything is gone and nobody complained.
void expectSuccess(const RemoveOutcome& outcome);
// Status 1, and these lines on standard error, in any order.
void expectFailures(const RemoveOutcome& outcome, std::vector<std::string> lines);

// Runs `body` in a child process; its failed expectations become the test's own.
void inChild(const std::function<void()>& body);

// For the child only: mounts of its own that end with it.
bool isolateMounts();

void limitDescriptors(std::uint64_t count);

void makeFile(const std::string& path, const std::string& content = "content");
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

class MemoryRemoveTest : private MemoryTemporaryFolder, public RemoveTest {};

// Text that no other data contains, `times` times.
std::string marker(std::size_t times = 1);

// One sentence of the tool, as a line.
std::string sentence(const std::string& path, const std::string& reason);

}  // namespace tervano::test
