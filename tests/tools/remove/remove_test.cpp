#include "tests/tools/remove/remove_test.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "archive/printable.h"
#include "tests/support/child_process.h"

namespace tervano::test {

namespace fs = std::filesystem;

namespace {

constexpr double kSeconds = 60;

std::string wholeText(int file) {
  std::string text;
  char buffer[65536];
  off_t at = 0;
  ssize_t count = 0;
  while ((count = pread(file, buffer, sizeof buffer, at)) > 0) {
    text.append(buffer, static_cast<std::size_t>(count));
    at += count;
  }
  return text;
}

}  // namespace

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

RemoveOutcome runRemove(const std::vector<std::string>& words,
                        const std::function<bool()>& prepare) {
  return runProgram({TERVANO_REMOVE, words, std::nullopt, prepare, kSeconds});
}

RemoveOutcome removeSecurely(const std::string& path, const std::function<bool()>& prepare) {
  return runRemove({"-v", "-f", "-r", "-P", path}, prepare);
}

void expectSuccess(const RemoveOutcome& outcome) {
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
}

void expectFailures(const RemoveOutcome& outcome, std::vector<std::string> lines) {
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(linesOf(outcome.errors), testing::UnorderedElementsAreArray(lines));
}

void inChild(const std::function<void()>& body) {
  auto child = forkChild([&](ParentLink& parent) {
    body();
    const auto* const result = testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int part = 0; part < result->total_part_count(); ++part) {
      parent.say(std::to_string(result->GetTestPartResult(part).line_number()) + ": " +
                 printable(result->GetTestPartResult(part).summary()));
    }
    return result->Failed() ? 1 : 0;
  });
  while (const auto line = child.hear(kSeconds)) ADD_FAILURE() << *line;
  EXPECT_EQ(child.waitForExit(kSeconds), 0);
}

bool isolateMounts() {
  return unshare(CLONE_NEWNS) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

void limitDescriptors(std::uint64_t count) {
  const rlimit limit{count, count};
  setrlimit(RLIMIT_NOFILE, &limit);
}

void makeFile(const std::string& path, const std::string& content) {
  std::ofstream stream(path, std::ios::binary);
  stream << content;
  if (!stream.flush()) throw std::runtime_error("cannot write " + path);
}

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
    ++count;
  }
  return count;
}

Witness::Witness(const std::string& path) : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (!file_) throw std::runtime_error("cannot watch " + path);
}

std::string Witness::contents() const {
  return wholeText(file_.get());
}

struct stat Witness::status() const {
  struct stat status {};
  EXPECT_EQ(fstat(file_.get(), &status), 0);
  return status;
}

std::string RemoveTest::file(const std::string& name, const std::string& content) const {
  const std::string path = at(name);
  fs::create_directories(fs::path(path).parent_path());
  makeFile(path, content);
  return path;
}

std::string RemoveTest::folder(const std::string& name) const {
  fs::create_directories(at(name));
  return at(name);
}

std::string marker(std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) text += "What nobody is meant to read. ";
  return text;
}

std::string sentence(const std::string& path, const std::string& reason) {
  return "tervano-remove: Could not remove \"" + path + "\": " + reason + ".";
}

}  // namespace tervano::test
