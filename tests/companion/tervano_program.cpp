#include "tests/companion/tervano_program.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace tervano::test {

namespace fs = std::filesystem;

ProgramHome::ProgramHome() {
  home_.setVariable("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
  home_.setVariable("DISPLAY", std::nullopt);
  home_.setVariable("WAYLAND_DISPLAY", std::nullopt);
}

std::string ProgramHome::container() const {
  return home_.dataHome() + "/Q4T7N2XR8K.com.vessok.tervano";
}

std::string ProgramHome::folder(const std::string& name) const {
  const std::string path = home_.path() + "/" + name;
  fs::create_directories(path);
  return path;
}

std::string ProgramHome::file(const std::string& name, const std::string& content) const {
  const std::string path = home_.path() + "/" + name;
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

ProgramOutcome ProgramHome::tervano(std::vector<std::string> words) const {
  ProgramStart start;
  start.arguments = std::move(words);
  return this->start(std::move(start));
}

ProgramOutcome ProgramHome::start(ProgramStart start) const {
  start.path = TERVANO_PROGRAM;
  return runProgram(start);
}

std::string ProgramHome::succeed(std::vector<std::string> words) const {
  const auto outcome = tervano(std::move(words));
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.errors, "");
  std::string output = outcome.output;
  if (output.ends_with('\n')) output.pop_back();
  return output;
}

nlohmann::ordered_json ProgramHome::json(std::vector<std::string> words) const {
  return nlohmann::ordered_json::parse(succeed(std::move(words)));
}

std::string ProgramHome::titles() const {
  std::string text;
  for (const auto& entry : json({"list", "--json"})) {
    text += (text.empty() ? "" : " ") + entry["title"].get<std::string>();
    if (!entry["actions"].is_array()) continue;
    text += "[";
    for (const auto& member : entry["actions"]) {
      text += (text.ends_with('[') ? "" : " ") + member["title"].get<std::string>();
    }
    text += "]";
  }
  return text;
}

std::function<int()> becomingTervano(std::vector<std::string> words) {
  return [words = std::move(words)] {
    std::vector<char*> arguments{const_cast<char*>("tervano")};
    for (const auto& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(TERVANO_PROGRAM, arguments.data());
    return 98;
  };
}

void expectOneSentence(const std::string& errors) {
  EXPECT_TRUE(errors.starts_with("tervano: ")) << errors;
  EXPECT_TRUE(errors.ends_with(".\n")) << errors;
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
}

void expectUsageError(const ProgramOutcome& outcome) {
  EXPECT_EQ(outcome.status, 2) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
  expectOneSentence(outcome.errors);
}

void expectFailure(const ProgramOutcome& outcome) {
  EXPECT_EQ(outcome.status, 1) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
  expectOneSentence(outcome.errors);
}

}  // namespace tervano::test
