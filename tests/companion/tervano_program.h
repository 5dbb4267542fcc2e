#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/run_program.h"
#include "tests/support/temporary_home.h"

namespace tervano::test {

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

// For a child process: turns it into "tervano" with these words.
std::function<int()> becomingTervano(std::vector<std::string> words);

// One sentence: one line that begins with "tervano: " and ends with a full stop, and nothing else.
void expectOneSentence(const std::string& errors);
// A usage error: status 2, one sentence, nothing on standard output.
void expectUsageError(const ProgramOutcome& outcome);
// A failure: status 1, one sentence, nothing on standard output.
void expectFailure(const ProgramOutcome& outcome);

}  // namespace tervano::test
