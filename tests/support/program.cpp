#include "tests/support/program.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <iostream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano::test {

ChildProcess startProgram(const std::string& path, const std::vector<std::string>& arguments) {
  int toChild[2];
  int toParent[2];
  if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(toParent, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipes");
  }
  std::vector<char*> argv{const_cast<char*>(path.c_str())};
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, toParent[1], STDOUT_FILENO);
  pid_t pid = -1;
  const int failure = posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(toChild[0]);
  close(toParent[1]);
  if (failure != 0) {
    close(toChild[1]);
    close(toParent[0]);
    throw std::runtime_error("cannot start " + path);
  }
  return ChildProcess(pid, toParent[0], toChild[1]);
}

int serveLines(const std::function<void(const std::vector<std::string>& words)>& handle) {
  bool ended = false;
  std::thread reader([&ended, &handle] {
    std::string line;
    while (std::getline(std::cin, line)) {
      std::istringstream stream(line);
      std::vector<std::string> words;
      for (std::string word; stream >> word;) words.push_back(word);
      platform().runLoop->dispatchAsyncOnMainQueue([&handle, words] { handle(words); });
    }
    platform().runLoop->dispatchAsyncOnMainQueue([&ended] { ended = true; });
  });
  platform().runLoop->runMainLoopUntil([&ended] { return ended; }, -1);
  reader.join();
  return 0;
}

void sayLine(const std::string& line) {
  std::cout << line + "\n" << std::flush;
}

std::string asWord(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  if (bytes.empty()) return "-";
  std::string word;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    word += kDigits[value >> 4U];
    word += kDigits[value & 15U];
  }
  return word;
}

std::string fromWord(const std::string& word) {
  std::string bytes;
  for (std::size_t at = 0; at + 1 < word.size(); at += 2) {
    bytes += static_cast<char>(std::stoi(word.substr(at, 2), nullptr, 16));
  }
  return bytes;
}

}  // namespace tervano::test
