#include "companion/arguments.h"

#include <climits>
#include <cstdlib>
#include <filesystem>

#include "archive/url.h"

namespace tervano {

Arguments::Arguments(const std::vector<std::string>& words, const Known& known) {
  bool optionsEnded = false;
  for (auto word = words.begin(); word != words.end(); ++word) {
    if (optionsEnded || !word->starts_with("-") || *word == "-") {
      positional_.push_back(*word);
      continue;
    }
    if (*word == "--") {
      optionsEnded = true;
      continue;
    }
    const auto equals = word->find('=');
    const std::string spelled = word->substr(0, equals);
    const std::string name = spelled.starts_with("--") ? spelled.substr(2) : spelled;
    if (known.flags.contains(name)) {
      if (equals != std::string::npos)
        throw UsageError(tr("The option {1} takes no value.", spelled));
      if (!flags_.insert(name).second) {
        throw UsageError(tr("The option {1} is given twice.", spelled));
      }
    } else if (known.valued.contains(name)) {
      std::string value;
      if (equals != std::string::npos) {
        value = word->substr(equals + 1);
      } else if (std::next(word) == words.end()) {
        throw UsageError(tr("The option {1} needs a value.", spelled));
      } else {
        value = *++word;
      }
      if (!values_.emplace(name, value).second) {
        throw UsageError(tr("The option {1} is given twice.", spelled));
      }
    } else {
      throw UsageError(
          tr("There is no option {1} here; a path that begins with a hyphen goes behind \"--\".",
             printable(spelled)));
    }
  }
}

std::optional<std::string> Arguments::value(const std::string& option) const {
  const auto found = values_.find(option);
  if (found == values_.end()) return std::nullopt;
  return found->second;
}

void Arguments::requirePositional(std::size_t least, std::size_t most, const Sentence& what) const {
  if (positional_.size() < least) throw UsageError(tr("{1} is missing.", what));
  if (positional_.size() > most) {
    throw UsageError(tr("\"{1}\" is one word too many.", printable(positional_[most])));
  }
}

std::string absolutePath(const std::string& argument) {
  if (argument.empty()) throw UsageError(tr("An empty path names nothing."));
  const auto resolve = [](const std::string& path) -> std::optional<std::string> {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr) return std::nullopt;
    return std::string(resolved);
  };
  std::error_code ignored;
  const std::string joined =
      (std::filesystem::current_path(ignored) / std::filesystem::path(argument)).string();
  const std::string name = lastPathComponent(joined);
  if (name == "." || name == ".." || name == "/") return resolve(joined).value_or(joined);
  if (const auto folder = resolve(deletingLastPathComponent(joined))) {
    return appendingPathComponent(*folder, name);
  }
  std::string normal = std::filesystem::path(joined).lexically_normal().string();
  while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
  return normal;
}

}  // namespace tervano
