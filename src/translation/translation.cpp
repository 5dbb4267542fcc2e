#include "translation/translation.h"

#include <libintl.h>

#include <clocale>
#include <optional>
#include <ostream>
#include <vector>

namespace tervano {

namespace {

constexpr char kDomain[] = "tervano";

// The pattern with its arguments; nil when it lacks one of `needed` or names one that is not there.
std::optional<std::string> filled(const std::string& pattern,
                                  const std::vector<std::string>& arguments,
                                  const std::vector<bool>& needed) {
  std::string text;
  std::vector<bool> used(arguments.size());
  for (std::size_t at = 0; at < pattern.size(); ++at) {
    const bool isPlace = pattern[at] == '{' && at + 2 < pattern.size() && pattern[at + 1] >= '0' &&
                         pattern[at + 1] <= '9' && pattern[at + 2] == '}';
    if (!isPlace) {
      text += pattern[at];
      continue;
    }
    // Place 0 becomes a number that no argument has.
    const auto index = static_cast<std::size_t>(pattern[at + 1] - '0') - 1;
    if (index >= arguments.size()) return std::nullopt;
    text += arguments[index];
    used[index] = true;
    at += 2;
  }
  for (std::size_t index = 0; index < needed.size(); ++index) {
    if (needed[index] && !used[index]) return std::nullopt;
  }
  return text;
}

// `pattern` is the English one, `translation` what the catalogue has for it.
Sentence sentenceOf(const std::string& pattern, const std::string& translation,
                    std::initializer_list<Sentence> arguments, bool mayLackFirst) {
  std::vector<std::string> english;
  std::vector<std::string> shown;
  for (const auto& argument : arguments) {
    english.push_back(argument.english());
    shown.push_back(argument.shown());
  }
  std::vector<bool> needed(english.size(), true);
  const std::vector<bool> none(english.size());
  if (mayLackFirst && !needed.empty()) needed.front() = false;
  auto inEnglish = filled(pattern, english, none).value_or(pattern);
  auto inLanguage = filled(translation, shown, needed);
  if (!inLanguage) inLanguage = filled(pattern, shown, none).value_or(pattern);
  return {std::move(inEnglish), *std::move(inLanguage)};
}

}  // namespace

Sentence& Sentence::operator+=(const Sentence& more) {
  english_ += more.english_;
  shown_ += more.shown_;
  return *this;
}

std::ostream& operator<<(std::ostream& out, const Sentence& sentence) {
  return out << sentence.shown();
}

Sentence sentenceOfPattern(const char* pattern, std::initializer_list<Sentence> arguments) {
  // An empty text would be the catalogue's header.
  if (*pattern == '\0') return {};
  return sentenceOf(pattern, dgettext(kDomain, pattern), arguments, false);
}

Sentence sentenceOfPatterns(const char* singular, const char* plural, std::size_t count,
                            std::initializer_list<Sentence> arguments) {
  return sentenceOf(count == 1 ? singular : plural, dngettext(kDomain, singular, plural, count),
                    arguments, true);
}

Sentence translated(const std::string& text) {
  if (text.empty()) return {};
  return {text, dgettext(kDomain, text.c_str())};
}

void useLanguageOfUser(const std::string& localeFolder) {
  std::setlocale(LC_CTYPE, "");
  std::setlocale(LC_MESSAGES, "");
  bindtextdomain(kDomain, localeFolder.c_str());
  // Whatever the characters of the locale are: everything here is UTF-8.
  bind_textdomain_codeset(kDomain, "UTF-8");
}

}  // namespace tervano
