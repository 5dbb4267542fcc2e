#pragma once

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <utility>

namespace tervano {

// The companion's own sentences in the language of the user. The titles, menu texts, notifications
// and log lines of the actions themselves are English in every locale and do not come by here.
//
// Any thread, once the language is chosen.

// Text for a person, in English and in the user's language. English goes into logs and into what
// programs read.
class Sentence {
 public:
  Sentence() = default;
  // Text that is the same in every language: a name, a path, what another program said.
  // NOLINTNEXTLINE(google-explicit-constructor)
  Sentence(std::string text) : english_(std::move(text)), shown_(english_) {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  Sentence(const char* text) : Sentence(std::string(text)) {}
  Sentence(std::string english, std::string shown)
      : english_(std::move(english)), shown_(std::move(shown)) {}

  const std::string& english() const { return english_; }
  const std::string& shown() const { return shown_; }
  // NOLINTNEXTLINE(google-explicit-constructor)
  operator const std::string&() const { return shown_; }
  bool empty() const { return english_.empty(); }
  bool operator==(const Sentence& other) const = default;

  // Appends in both languages.
  Sentence& operator+=(const Sentence& more);

 private:
  std::string english_;
  std::string shown_;
};

// What is shown.
std::ostream& operator<<(std::ostream& out, const Sentence& sentence);

// English text with the places {1}, {2}, ... for arguments, so that a translation can put them in
// another order. A place without its argument does not compile, nor, unless `mayLack`, an argument
// without its place.
template <std::size_t kCount, bool mayLack = false>
class Pattern {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor)
  consteval Pattern(const char* text) : text_(text) {
    static_assert(kCount <= 9);
    bool used[kCount + 1] = {};
    for (const char* at = text; *at != '\0'; ++at) {
      if (at[0] != '{' || at[1] < '0' || at[1] > '9' || at[2] != '}') continue;
      const auto place = static_cast<std::size_t>(at[1] - '0');
      if (place == 0 || place > kCount) throw "a place without its argument";
      used[place] = true;
    }
    for (std::size_t place = 1; place <= kCount; ++place) {
      if (!used[place] && !mayLack) throw "an argument without its place";
    }
  }
  const char* text() const { return text_; }

 private:
  const char* text_;
};

Sentence sentenceOfPattern(const char* pattern, std::initializer_list<Sentence> arguments);
Sentence sentenceOfPatterns(const char* singular, const char* plural, std::size_t count,
                            std::initializer_list<Sentence> arguments);

inline const Sentence& sentenceOfArgument(const Sentence& sentence) {
  return sentence;
}
// Numbers are without locale, as everywhere.
template <std::integral T>
Sentence sentenceOfArgument(T number) {
  return Sentence(std::to_string(number));
}

// The sentence of that pattern: tr("The option {1} is given twice.", spelled). Whatever a catalogue
// holds, every argument appears in what is shown.
template <typename... Arguments>
Sentence tr(Pattern<sizeof...(Arguments)> pattern, const Arguments&... arguments) {
  return sentenceOfPattern(pattern.text(), {sentenceOfArgument(arguments)...});
}

// The sentence for a count, which is {1}, and which the singular need not name; the arguments
// behind it are {2} and so on.
template <std::unsigned_integral Count, typename... Arguments>
Sentence trn(Pattern<1 + sizeof...(Arguments), true> singular,
             Pattern<1 + sizeof...(Arguments)> plural, Count count, const Arguments&... arguments) {
  return sentenceOfPatterns(singular.text(), plural.text(), count,
                            {sentenceOfArgument(count), sentenceOfArgument(arguments)...});
}

// Marks text of a table that `translated` is to find.
constexpr const char* trMark(const char* text) {
  return text;
}
// The sentence of text without places that was marked.
Sentence translated(const std::string& text);

// Chooses the language of the user's locale for messages, and the locale's characters; numbers,
// times and the order of text stay as they are. The catalogues are in folders of this one:
// "de/LC_MESSAGES/tervano.mo". English where there is none. Once, before there are threads.
void useLanguageOfUser(const std::string& localeFolder);

}  // namespace tervano
