#pragma once

#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "archive/printable.h"
#include "translation/translation.h"

namespace tervano {

// What a person typed cannot be understood: one clear sentence, shown on standard error, exit
// status 2. Never leaves the companion.
class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const Sentence& sentence) : std::runtime_error(sentence.shown()) {}
};

// The words of one command, parsed against the options it knows. "--name value" and "--name=value"
// are the same; "--" ends the options, so that paths may begin with a hyphen.
class Arguments {
 public:
  // Options that take a value and options that do not, without their hyphens.
  struct Known {
    std::set<std::string> valued;
    std::set<std::string> flags;
  };

  // Throws UsageError for an unknown or repeated option and for a missing or unwanted value.
  Arguments(const std::vector<std::string>& words, const Known& known);

  bool has(const std::string& flag) const { return flags_.contains(flag); }
  std::optional<std::string> value(const std::string& option) const;
  const std::vector<std::string>& positional() const { return positional_; }
  // Throws UsageError unless the number of positional words lies in the range; `what` names them.
  void requirePositional(std::size_t least, std::size_t most, const Sentence& what) const;

 private:
  std::map<std::string, std::string> values_;
  std::set<std::string> flags_;
  std::vector<std::string> positional_;
};

// A path from the command line made absolute: links on the way are resolved, the item itself is
// not, "." and ".." are. A path whose folder does not exist is joined to the current folder. Throws
// UsageError for an empty one.
std::string absolutePath(const std::string& argument);

}  // namespace tervano
