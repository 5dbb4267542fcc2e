#include "tools/remove/report.h"

#include <system_error>

#include "archive/printable.h"

namespace tervano {

namespace {

// How long a reader may take none of what is left to say.
constexpr double kPatience = 1;

std::string line(const std::string& sentence) {
  return "tervano-remove: " + sentence + ".\n";
}

}  // namespace

void Report::removed(const std::string& path) {
  if (!isVerbose_) return;
  const std::scoped_lock lock(mutex_);
  output_.add(path + "\n");
}

std::string Report::quoted(const std::string& path) {
  return "\"" + printable(path) + "\"";
}

void Report::failed(const std::string& sentence) {
  const std::scoped_lock lock(mutex_);
  if (++failures_ <= kMostSentences) errors_.add(line(sentence));
}

void Report::couldNotRemove(const std::string& path, int code) {
  couldNotRemove(path, std::generic_category().message(code));
}

void Report::couldNotRemove(const std::string& path, const std::string& reason) {
  failed("Could not remove " + quoted(path) + ": " + reason);
}

bool Report::finish() {
  const std::scoped_lock lock(mutex_);
  if (failures_ > kMostSentences) {
    const std::size_t more = failures_ - kMostSentences;
    errors_.add(line(more == 1 ? std::string("One more item could not be removed")
                               : std::to_string(more) + " more items could not be removed"));
  }
  errors_.finish(kPatience);
  output_.finish(kPatience);
  return failures_ == 0;
}

}  // namespace tervano
