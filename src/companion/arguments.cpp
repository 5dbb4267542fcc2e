#include "companion/arguments.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>

#include "archive/url.h"
#include "archive/utf.h"

namespace tervano {

namespace {

// The bytes of the first character; 1 for a byte that begins none.
std::size_t lengthOfCharacter(std::string_view text) {
  constexpr std::size_t kLongest = 4;
  for (std::size_t length = 1; length <= std::min(kLongest, text.size()); ++length) {
    if (isValidUtf8(text.substr(0, length))) return length;
  }
  return 1;
}

}  // namespace

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
        throw UsageError("The option " + spelled + " takes no value.");
      if (!flags_.insert(name).second) {
        throw UsageError("The option " + spelled + " is given twice.");
      }
    } else if (known.valued.contains(name)) {
      std::string value;
      if (equals != std::string::npos) {
        value = word->substr(equals + 1);
      } else if (std::next(word) == words.end()) {
        throw UsageError("The option " + spelled + " needs a value.");
      } else {
        value = *++word;
      }
      if (!values_.emplace(name, value).second) {
        throw UsageError("The option " + spelled + " is given twice.");
      }
    } else {
      throw UsageError("There is no option " + printable(spelled) +
                       " here; a path that begins with a hyphen goes behind \"--\".");
    }
  }
}

std::optional<std::string> Arguments::value(const std::string& option) const {
  const auto found = values_.find(option);
  if (found == values_.end()) return std::nullopt;
  return found->second;
}

void Arguments::requirePositional(std::size_t least, std::size_t most,
                                  const std::string& what) const {
  if (positional_.size() < least) throw UsageError(what + " is missing.");
  if (positional_.size() > most) {
    throw UsageError("\"" + printable(positional_[most]) + "\" is one word too many.");
  }
}

std::string absolutePath(const std::string& argument) {
  if (argument.empty()) throw UsageError("An empty path names nothing.");
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

std::string printable(std::string_view text) {
  constexpr char kHexadecimal[] = "0123456789abcdef";
  std::string shown;
  const auto escape = [&](char character) {
    const auto byte = static_cast<unsigned char>(character);
    shown += "\\x";
    shown += kHexadecimal[byte >> 4];
    shown += kHexadecimal[byte & 0xf];
  };
  while (!text.empty()) {
    const std::string_view character = text.substr(0, lengthOfCharacter(text));
    const auto first = static_cast<unsigned char>(character.front());
    // U+0080 to U+009F are control characters as well.
    const bool isControl = first < 0x20 || first == 0x7f ||
                           (first == 0xc2 && static_cast<unsigned char>(character.back()) < 0xa0);
    if (character == "\n") {
      shown += "\\n";
    } else if (isControl || !isValidUtf8(character)) {
      std::for_each(character.begin(), character.end(), escape);
    } else {
      shown += character;
    }
    text.remove_prefix(character.size());
  }
  return shown;
}

}  // namespace tervano
