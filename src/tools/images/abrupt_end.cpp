#include "tools/images/abrupt_end.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace tervano {

namespace {

constexpr int kEnding[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGXCPU};
constexpr int kCrashing[] = {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL, SIGTRAP};

// Read by signal handlers: plain memory that is complete before `folder` is set.
std::atomic<int> folder = -1;
std::array<char, 256> name{};
int sentenceDescriptor = -1;
std::array<char, 16384> sentence{};
std::size_t sentenceLength = 0;

void removeFile() {
  const int place = folder.load();
  if (place >= 0) unlinkat(place, name.data(), 0);
}

void endBySignal(int signal) {
  removeFile();
  std::signal(signal, SIG_DFL);
  raise(signal);
}

void endByCrash(int /*signal*/) {
  // First of all: nobody may be there to read the sentence, or to read it soon.
  removeFile();
  if (write(sentenceDescriptor, sentence.data(), sentenceLength) < 0) _exit(EXIT_FAILURE);
  _exit(EXIT_FAILURE);
}

}  // namespace

void removeAtAbruptEnd(int folderDescriptor, const std::string& fileName) {
  folder = -1;
  const std::size_t length = std::min(fileName.size(), name.size() - 1);
  std::memcpy(name.data(), fileName.data(), length);
  name[length] = '\0';
  folder = folderDescriptor;
  for (const int signal : kEnding) {
    struct sigaction previous {};
    if (sigaction(signal, nullptr, &previous) != 0 || previous.sa_handler != SIG_DFL) continue;
    struct sigaction action {};
    action.sa_handler = endBySignal;
    sigaction(signal, &action, nullptr);
  }
}

void forgetAtAbruptEnd() {
  folder = -1;
}

void saySentenceAtCrash(int descriptor, const std::string& text) {
  sentenceDescriptor = descriptor;
  sentenceLength = std::min(text.size(), sentence.size());
  std::memcpy(sentence.data(), text.data(), sentenceLength);
  // A handler of a full stack needs another one.
  static std::array<char, 65536> stack;
  stack_t alternative{};
  alternative.ss_sp = stack.data();
  alternative.ss_size = stack.size();
  sigaltstack(&alternative, nullptr);
  for (const int signal : kCrashing) {
    struct sigaction action {};
    action.sa_handler = endByCrash;
    action.sa_flags = SA_ONSTACK | static_cast<int>(SA_RESETHAND);
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace tervano
