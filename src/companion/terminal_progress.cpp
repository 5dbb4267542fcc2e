#include "companion/terminal_progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cwchar>
#include <string_view>

#include "platform/linux/descriptor.h"

namespace tervano {

namespace {

constexpr std::size_t kUsualColumns = 80;
constexpr std::size_t kBarColumns = 20;
constexpr std::size_t kWholePercent = 100;
// Below that there is a number and no bar.
constexpr std::size_t kLeastColumnsWithBar = 50;
constexpr char kEraseLine[] = "\r\033[K";

std::size_t columnsOfTerminal() {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

// As much of a text as fits.
std::string fitting(const std::string& text, std::size_t columns) {
  std::size_t used = 0;
  std::mbstate_t state{};
  for (std::size_t at = 0; at < text.size();) {
    wchar_t character = 0;
    const std::size_t length = std::mbrtowc(&character, text.data() + at, text.size() - at, &state);
    // A character that the terminal's own encoding does not know may take any room.
    if (length == 0 || length > text.size() - at) return text.substr(0, at);
    const int width = wcwidth(character);
    if (width < 0 || used + static_cast<std::size_t>(width) > columns) return text.substr(0, at);
    used += static_cast<std::size_t>(width);
    at += length;
  }
  return text;
}

}  // namespace

std::string progressLine(const ShownProgress& progress, std::size_t columns) {
  std::string line;
  if (progress.fraction) {
    const double part = std::clamp(*progress.fraction, 0.0, 1.0);
    if (columns >= kLeastColumnsWithBar) {
      const auto full = static_cast<std::size_t>(part * kBarColumns);
      line += "[" + std::string(full, '#') + std::string(kBarColumns - full, '.') + "] ";
    }
    line += std::to_string(static_cast<std::size_t>(part * kWholePercent)) + "%  ";
  }
  line += progress.title;
  if (!progress.text.empty()) line += ": " + progress.text;
  // The last column would let some terminals go on in the next line.
  return fitting(line, columns > 0 ? columns - 1 : 0);
}

bool TerminalProgress::isPossible() {
  const char* const terminal = std::getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && terminal != nullptr && *terminal != '\0' &&
         std::string_view(terminal) != "dumb" && tcgetpgrp(STDERR_FILENO) == getpgrp();
}

void TerminalProgress::show(std::uint64_t /*number*/, const ShownProgress& progress) {
  const std::string line = progressLine(progress, columnsOfTerminal());
  const std::lock_guard lock(mutex_);
  if (line == drawn_) return;
  // At its beginning again, so that what else is written does not go on behind it.
  const std::string text = kEraseLine + line + "\r";
  writeFully(STDERR_FILENO, text.data(), text.size());
  drawn_ = line;
}

void TerminalProgress::hide(std::uint64_t /*number*/) {
  erase();
}

void TerminalProgress::erase() {
  const std::lock_guard lock(mutex_);
  if (drawn_.empty()) return;
  writeFully(STDERR_FILENO, kEraseLine, sizeof kEraseLine - 1);
  drawn_.clear();
}

}  // namespace tervano
