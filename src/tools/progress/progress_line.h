#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tervano {

// What one line of the program's input says. "show", a number, thousandths or "-", a title and a
// text, or "hide" and a number, with tabs between.
struct ProgressLine {
  std::uint64_t number = 0;
  // Whether the row goes away; then there is nothing else.
  bool hides = false;
  // From 0 to 1; nil when it is not known.
  std::optional<double> fraction;
  std::string title;
  std::string text;
};

// Nil for a line that says nothing of that.
std::optional<ProgressLine> parseProgressLine(const std::string& line);

// Cuts a stream into lines. What is longer than any line can be is dropped up to its end.
class LineCutter {
 public:
  // The lines that are whole now, without their ends.
  std::vector<std::string> add(const char* bytes, std::size_t count);

 private:
  std::string begun_;
  bool isTooLong_ = false;
};

}  // namespace tervano
