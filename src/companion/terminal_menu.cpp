#include "companion/terminal_menu.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <cwchar>
#include <string_view>

#include "companion/arguments.h"

namespace tervano {

namespace {

enum class Key { up, down, forward, back, quit, other };

constexpr std::string_view kHideCursor = "\x1b[?25l";
constexpr std::string_view kShowCursor = "\x1b[?25h";
constexpr std::array<int, 4> kEndingSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

// For the signal handler: the settings to go back to.
termios settingsBefore{};

// Leaves the terminal as it was, then lets the signal do what it does.
void restoreAndEnd(int signal) {
  tcsetattr(STDIN_FILENO, TCSANOW, &settingsBefore);
  static_cast<void>(!::write(STDOUT_FILENO, kShowCursor.data(), kShowCursor.size()));
  // The handler is gone by now (SA_RESETHAND).
  raise(signal);
}

// The terminal without echo and line editing, with a hidden cursor, for as long as it lives; one at
// a time.
class RawTerminal {
 public:
  RawTerminal() {
    tcgetattr(STDIN_FILENO, &settingsBefore);
    struct sigaction restore {};
    restore.sa_handler = restoreAndEnd;
    restore.sa_flags = static_cast<int>(SA_RESETHAND);
    for (std::size_t index = 0; index < kEndingSignals.size(); ++index) {
      sigaction(kEndingSignals[index], &restore, &actionsBefore_[index]);
    }
    termios raw = settingsBefore;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &raw);
    write(kHideCursor);
  }
  ~RawTerminal() {
    write(kShowCursor);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &settingsBefore);
    for (std::size_t index = 0; index < kEndingSignals.size(); ++index) {
      sigaction(kEndingSignals[index], &actionsBefore_[index], nullptr);
    }
  }
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

  static void write(std::string_view text) {
    for (std::size_t done = 0; done < text.size();) {
      const ssize_t count = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
      if (count <= 0) return;
      done += static_cast<std::size_t>(count);
    }
  }

  // The next key; `quit` at end of input.
  Key read() {
    char byte = 0;
    if (::read(STDIN_FILENO, &byte, 1) != 1) return Key::quit;
    switch (byte) {
      case '\r':
      case '\n':
      case 'l':
        return Key::forward;
      case 'k':
        return Key::up;
      case 'j':
        return Key::down;
      case 'h':
        return Key::back;
      case 'q':
      case 3:
      case 4:
        return Key::quit;
      case 0x1b:
        return readEscape();
      default:
        return Key::other;
    }
  }

 private:
  // An arrow key is Escape and two more bytes in one burst; Escape alone stays alone.
  Key readEscape() {
    constexpr int kBurstMilliseconds = 50;
    std::string sequence;
    while (sequence.size() < 2) {
      pollfd input{STDIN_FILENO, POLLIN, 0};
      if (poll(&input, 1, kBurstMilliseconds) <= 0) break;
      char byte = 0;
      if (::read(STDIN_FILENO, &byte, 1) != 1) break;
      sequence += byte;
    }
    if (sequence.empty()) return Key::back;
    if (sequence == "[A" || sequence == "OA") return Key::up;
    if (sequence == "[B" || sequence == "OB") return Key::down;
    if (sequence == "[C" || sequence == "OC") return Key::forward;
    if (sequence == "[D" || sequence == "OD") return Key::back;
    return Key::other;
  }

  std::array<struct sigaction, kEndingSignals.size()> actionsBefore_{};
};

struct Level {
  std::string heading;
  const std::vector<TerminalMenuEntry>* entries;
  std::size_t current = 0;
};

struct Size {
  std::size_t rows = 24;
  std::size_t columns = 80;
};

Size terminalSize() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
    return {};
  }
  return {size.ws_row, size.ws_col};
}

// The text as far as it fits into so many columns, an ellipsis for the rest.
std::string fitted(const std::string& text, std::size_t columns) {
  // Widths are those of Unicode whatever the user's locale.
  static const locale_t kUnicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t before = uselocale(kUnicode);
  std::size_t used = 0;
  std::size_t end = 0;
  // Where the text has to end so that the ellipsis fits behind it.
  std::size_t cut = 0;
  mbstate_t state{};
  while (end < text.size() && used <= columns) {
    wchar_t character = 0;
    const std::size_t length = mbrtowc(&character, &text[end], text.size() - end, &state);
    if (length == 0 || length > text.size()) break;
    used += static_cast<std::size_t>(std::max(wcwidth(character), 0));
    end += length;
    if (used < columns) cut = end;
  }
  uselocale(before);
  return used <= columns ? text : text.substr(0, cut) + "\u2026";
}

// Draws one level and answers how many lines it took.
std::size_t draw(const Level& level) {
  // Heading, hint, and the line of the cursor below.
  constexpr std::size_t kOtherLines = 3;
  // The mark before a title, the arrow and the blank behind it.
  constexpr std::size_t kOtherColumns = 7;
  const Size size = terminalSize();
  const std::size_t columns = size.columns > kOtherColumns ? size.columns - kOtherColumns : 1;
  const std::size_t room = size.rows > kOtherLines ? size.rows - kOtherLines : 1;
  const std::size_t visible = std::min(level.entries->size(), room);
  const std::size_t first = level.current < visible ? 0 : level.current - visible + 1;
  std::string text = "\x1b[1m" + fitted(printable(level.heading), columns) + "\x1b[0m\r\n";
  for (std::size_t index = first; index < first + visible; ++index) {
    const auto& entry = (*level.entries)[index];
    const bool current = index == level.current;
    text += current ? "\x1b[7m > " : "   ";
    if (!entry.enabled) text += "\x1b[2m";
    text += fitted(printable(entry.title), columns);
    if (entry.hasSubmenu) text += " \u25b8";
    text += " \x1b[0m\r\n";
  }
  if (level.entries->empty()) text += "   \x1b[2m" + tr("(nothing here)").shown() + "\x1b[0m\r\n";
  text += "   \x1b[2m" +
          fitted(tr("arrows move, Enter chooses, Esc goes back, q leaves"), columns) +
          "\x1b[0m\r\n";
  RawTerminal::write(text);
  return std::max<std::size_t>(visible, 1) + 2;
}

void erase(std::size_t lines) {
  RawTerminal::write("\x1b[" + std::to_string(lines) + "A\r\x1b[J");
}

}  // namespace

std::optional<std::string> runTerminalMenu(const std::string& heading,
                                           const std::vector<TerminalMenuEntry>& entries) {
  RawTerminal terminal;
  std::vector<Level> levels{{heading, &entries}};
  while (true) {
    const std::size_t lines = draw(levels.back());
    const Key key = terminal.read();
    erase(lines);
    Level& level = levels.back();
    const std::size_t count = level.entries->size();
    if (key == Key::quit) return std::nullopt;
    if (key == Key::back) {
      if (levels.size() == 1) return std::nullopt;
      levels.pop_back();
    } else if (count != 0 && key == Key::up) {
      level.current = (level.current + count - 1) % count;
    } else if (count != 0 && key == Key::down) {
      level.current = (level.current + 1) % count;
    } else if (count != 0 && key == Key::forward) {
      const auto& entry = (*level.entries)[level.current];
      if (entry.hasSubmenu) {
        levels.push_back({entry.title, &entry.submenu});
      } else if (entry.enabled && !entry.choice.empty()) {
        return entry.choice;
      }
    }
  }
}

}  // namespace tervano
