#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/refused_calls.h"
#include "tests/support/scoped_platform.h"

namespace tervano::test {

// How a program ended. A signal that killed it is its negative number.
struct Ending {
  int status = 0;
  std::string out;
  std::string err;
};

// A program that runs; killed by the destructor when it still does.
class RunningProgram {
 public:
  // `before` runs in the child, before the program.
  RunningProgram(const std::vector<std::string>& arguments, const std::string& outputs,
                 const std::function<void()>& before = {});
  RunningProgram(RunningProgram&& other) noexcept;
  RunningProgram& operator=(RunningProgram&&) = delete;
  ~RunningProgram();

  pid_t pid() const { return pid_; }
  void kill(int signal) const;
  // Nil when it still runs after that long.
  std::optional<Ending> wait(double seconds = 60);

 private:
  pid_t pid_;
  std::string outputs_;
};

// A file of a process in /proc; empty when the process is gone.
std::string procFile(pid_t process, const std::string& name);
// Whether the image tool has loaded any picture library.
bool hasLoadedCodecs(pid_t process);
// Whether the image tool sleeps until it gets its turn.
bool waitsForSlot(pid_t process);

// Pixels as another reader gives them: RGBA, 8 bits.
struct Pixels {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> bytes;

  const std::uint8_t* at(int x, int y) const { return bytes.data() + (y * width + x) * 4; }
};

// Peak signal-to-noise ratio of the colours in decibels, 100 for no difference; 0 for pictures of
// different sizes.
double likeness(const Pixels& left, const Pixels& right);

// The image tool in a home of its own, with a sample picture and readers and writers that are not
// ours.
class ImagesTest : public testing::Test {
 protected:
  static constexpr int kWidth = 64;
  static constexpr int kHeight = 48;

  std::string at(const std::string& name) const { return home_.path() + "/" + name; }
  // A smooth picture with a different colour in each corner, as a PPM file of that name.
  std::string sample(const std::string& name = "sample.ppm");
  // Runs ImageMagick, which must succeed.
  void magick(const std::vector<std::string>& arguments);
  // The sample in another format, made by ImageMagick; `options` stand in front of the file.
  std::string sampleAs(const std::string& name, const std::vector<std::string>& options = {});
  // What ImageMagick reads in a file of the size of the sample, or of that size.
  Pixels read(const std::string& path, int width = kWidth, int height = kHeight);
  // The same of several files at once.
  std::vector<Pixels> readAll(const std::vector<std::string>& paths, int width = kWidth,
                              int height = kHeight);

  // Any other program: what it printed. It must succeed.
  std::string outputOf(const std::vector<std::string>& arguments);
  Ending run(const std::vector<std::string>& arguments, const std::function<void()>& before = {});
  RunningProgram start(const std::vector<std::string>& arguments,
                       const std::function<void()>& before = {});

  static std::vector<std::string> toolArguments(const std::string& format, const std::string& input,
                                                const std::string& output);
  Ending convert(const std::string& format, const std::string& input, const std::string& output,
                 const std::function<void()>& before = {});
  // Converts and expects silence and success.
  void expectConverted(const std::string& format, const std::string& input,
                       const std::string& output);
  // Converts, and expects one sentence that contains `reason`, and that nothing appeared in the
  // output's folder.
  void expectRefused(const std::string& format, const std::string& input, const std::string& output,
                     const std::string& reason, const std::function<void()>& before = {});

  // A process that holds a slot until it hears something.
  static ChildProcess slotHolder(int count);

  // The names in a folder, hidden ones too.
  static std::vector<std::string> namesIn(const std::string& folder);
  static std::string contentOf(const std::string& path);
  static void write(const std::string& path, const std::string& content);

  ScopedPlatform platform_;
  TemporaryHome& home_ = platform_.home();

 private:
  int runs_ = 0;
};

}  // namespace tervano::test
