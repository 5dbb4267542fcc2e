#include "tests/tools/images/images_test.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

#include "tools/images/image_slots.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;

constexpr int kNotStarted = 127;

std::string fileContent(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

}  // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& arguments,
                               const std::string& outputs, const std::function<void()>& before)
    : pid_(fork()), outputs_(outputs) {
  if (pid_ != 0) return;
  for (const auto& [number, suffix] : {std::pair(1, ".out"), std::pair(2, ".err")}) {
    const int file = open((outputs + suffix).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, number);
    close(file);
  }
  std::vector<char*> argv;
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  if (before) before();
  execvp(argv[0], argv.data());
  _exit(kNotStarted);
}

RunningProgram::RunningProgram(RunningProgram&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), outputs_(std::move(other.outputs_)) {}

RunningProgram::~RunningProgram() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void RunningProgram::kill(int signal) const {
  ::kill(pid_, signal);
}

std::optional<Ending> RunningProgram::wait(double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  int status = 0;
  while (waitpid(pid_, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  pid_ = -1;
  return Ending{WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status),
                fileContent(outputs_ + ".out"), fileContent(outputs_ + ".err")};
}

std::string procFile(pid_t process, const std::string& name) {
  return fileContent("/proc/" + std::to_string(process) + "/" + name);
}

bool hasLoadedCodecs(pid_t process) {
  // Before it becomes the image tool, it is a copy of the test program, which has some of its own.
  std::error_code gone;
  const auto program = fs::read_symlink("/proc/" + std::to_string(process) + "/exe", gone);
  if (program.filename() != fs::path(TERVANO_IMAGES).filename()) return false;
  const std::string maps = procFile(process, "maps");
  return maps.find("images-quick.so") != std::string::npos ||
         maps.find("libjpeg") != std::string::npos || maps.find("libvips") != std::string::npos;
}

bool waitsForSlot(pid_t process) {
  const std::string status = procFile(process, "stat");
  // After the program's name in brackets.
  const auto end = status.rfind(") ");
  if (end == std::string::npos || status[end + 2] != 'S') return false;
  bool queues = false;
  std::error_code error;
  for (const auto& entry :
       fs::directory_iterator("/proc/" + std::to_string(process) + "/fd", error)) {
    std::error_code gone;
    queues = queues || fs::read_symlink(entry, gone).filename() == "queue";
  }
  return queues;
}

double likeness(const Pixels& left, const Pixels& right) {
  if (left.width != right.width || left.height != right.height ||
      left.bytes.size() != right.bytes.size() || left.bytes.empty()) {
    return 0;
  }
  double sum = 0;
  for (std::size_t index = 0; index < left.bytes.size(); ++index) {
    if (index % 4 == 3) continue;
    const double difference = double{left.bytes[index] * 1.0} - right.bytes[index];
    sum += difference * difference;
  }
  constexpr double kSame = 100;
  constexpr double kPeak = 255.0 * 255.0;
  const double count = static_cast<double>(left.bytes.size()) * 3 / 4;
  return sum == 0 ? kSame : 10 * std::log10(kPeak * count / sum);
}

std::string ImagesTest::sample(const std::string& name) {
  std::string content = "P6 " + std::to_string(kWidth) + " " + std::to_string(kHeight) + " 255\n";
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const int across = x * 255 / (kWidth - 1);
      const int down = y * 255 / (kHeight - 1);
      content += static_cast<char>(across);
      content += static_cast<char>(down);
      content += static_cast<char>(255 - (across + down) / 2);
    }
  }
  write(at(name), content);
  return at(name);
}

std::string ImagesTest::outputOf(const std::vector<std::string>& arguments) {
  const Ending ending = run(arguments);
  EXPECT_EQ(ending.status, 0) << arguments[0] << ": " << ending.err;
  return ending.out;
}

void ImagesTest::magick(const std::vector<std::string>& arguments) {
  std::vector<std::string> all{"/usr/bin/convert", "-quiet"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  outputOf(all);
}

std::string ImagesTest::sampleAs(const std::string& name, const std::vector<std::string>& options) {
  if (!fs::exists(at("sample.ppm"))) sample();
  std::vector<std::string> arguments{at("sample.ppm")};
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.push_back(at(name));
  magick(arguments);
  return at(name);
}

std::vector<Pixels> ImagesTest::readAll(const std::vector<std::string>& paths, int width,
                                        int height) {
  std::vector<std::string> arguments;
  for (const auto& path : paths) arguments.push_back(path + "[0]");
  const std::string raw = at(".pixels");
  for (const char* argument : {"-alpha", "on", "-colorspace", "sRGB", "-depth", "8"}) {
    arguments.emplace_back(argument);
  }
  arguments.push_back("RGBA:" + raw);
  magick(arguments);
  const std::string bytes = contentOf(raw);
  fs::remove(raw);
  const auto size = static_cast<std::size_t>(width * height * 4);
  EXPECT_EQ(bytes.size(), size * paths.size()) << "pictures of another size";
  std::vector<Pixels> pictures;
  for (std::size_t index = 0; index < paths.size(); ++index) {
    Pixels pixels{width, height, {}};
    if ((index + 1) * size <= bytes.size()) {
      const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(index * size);
      pixels.bytes.assign(begin, begin + static_cast<std::ptrdiff_t>(size));
    } else {
      pixels.bytes.assign(size, 0);
    }
    pictures.push_back(std::move(pixels));
  }
  return pictures;
}

Pixels ImagesTest::read(const std::string& path, int width, int height) {
  return readAll({path}, width, height).front();
}

RunningProgram ImagesTest::start(const std::vector<std::string>& arguments,
                                 const std::function<void()>& before) {
  fs::create_directory(at(".outputs"));
  return {arguments, at(".outputs/" + std::to_string(runs_++)), before};
}

Ending ImagesTest::run(const std::vector<std::string>& arguments,
                       const std::function<void()>& before) {
  auto program = start(arguments, before);
  const auto ending = program.wait();
  EXPECT_TRUE(ending) << arguments[0] << " does not end";
  return ending.value_or(Ending{kNotStarted, "", ""});
}

std::vector<std::string> ImagesTest::toolArguments(const std::string& format,
                                                   const std::string& input,
                                                   const std::string& output) {
  return {TERVANO_IMAGES, "-s", "format", format, input, "--out", output};
}

Ending ImagesTest::convert(const std::string& format, const std::string& input,
                           const std::string& output, const std::function<void()>& before) {
  return run(toolArguments(format, input, output), before);
}

void ImagesTest::expectConverted(const std::string& format, const std::string& input,
                                 const std::string& output) {
  const Ending ending = convert(format, input, output);
  EXPECT_EQ(ending.status, 0) << input << " to " << format;
  EXPECT_EQ(ending.err, "") << input << " to " << format;
  EXPECT_EQ(ending.out, "") << input << " to " << format;
}

void ImagesTest::expectRefused(const std::string& format, const std::string& input,
                               const std::string& output, const std::string& reason,
                               const std::function<void()>& before) {
  const std::string folder = fs::path(output).parent_path().string();
  const auto names = namesIn(folder);
  const Ending ending = convert(format, input, output, before);
  EXPECT_EQ(ending.status, 1) << ending.err;
  EXPECT_EQ(ending.out, "");
  EXPECT_THAT(ending.err, testing::StartsWith("tervano-images: Could not convert "));
  EXPECT_THAT(ending.err, testing::HasSubstr(reason));
  EXPECT_EQ(std::count(ending.err.begin(), ending.err.end(), '\n'), 1) << ending.err;
  EXPECT_THAT(ending.err, testing::EndsWith("\n"));
  EXPECT_EQ(namesIn(folder), names);
}

ChildProcess ImagesTest::slotHolder(int count) {
  auto child = forkChild([count](ParentLink& parent) {
    std::string reason;
    const bool slot = takeImageSlot(count, reason);
    parent.say(slot ? "taken" : reason);
    parent.hear();
    return 0;
  });
  EXPECT_EQ(child.hear(30), "taken");
  return child;
}

std::vector<std::string> ImagesTest::namesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    if (entry.path().filename() != ".outputs") names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string ImagesTest::contentOf(const std::string& path) {
  return fileContent(path);
}

void ImagesTest::write(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace tervano::test
