#include "tools/progress/progress_line.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace tervano {

namespace {

constexpr std::size_t kLongestLine = 8192;
constexpr int kWhole = 1000;
constexpr std::size_t kShowFields = 5;

std::vector<std::string> fieldsOf(const std::string& line) {
  std::vector<std::string> fields;
  std::size_t begin = 0;
  while (true) {
    const auto end = line.find('\t', begin);
    fields.push_back(line.substr(begin, end - begin));
    if (end == std::string::npos) return fields;
    begin = end + 1;
  }
}

template <typename Number>
bool readNumber(const std::string& text, Number& number) {
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  return result.ec == std::errc() && result.ptr == end;
}

}  // namespace

std::optional<ProgressLine> parseProgressLine(const std::string& line) {
  auto fields = fieldsOf(line);
  ProgressLine parsed;
  if (fields.size() < 2 || !readNumber(fields[1], parsed.number)) return std::nullopt;
  if (fields.front() == "hide" && fields.size() == 2) {
    parsed.hides = true;
    return parsed;
  }
  if (fields.front() != "show" || fields.size() != kShowFields) return std::nullopt;
  if (fields[2] != "-") {
    int part = 0;
    if (!readNumber(fields[2], part)) return std::nullopt;
    parsed.fraction = static_cast<double>(std::clamp(part, 0, kWhole)) / kWhole;
  }
  parsed.title = std::move(fields[3]);
  parsed.text = std::move(fields[4]);
  return parsed;
}

std::vector<std::string> LineCutter::add(const char* bytes, std::size_t count) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < count; ++at) {
    if (bytes[at] == '\n') {
      if (!isTooLong_) lines.push_back(begun_);
      begun_.clear();
      isTooLong_ = false;
    } else if (begun_.size() == kLongestLine) {
      isTooLong_ = true;
    } else {
      begun_ += bytes[at];
    }
  }
  return lines;
}

}  // namespace tervano
