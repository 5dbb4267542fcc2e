#include "companion/terminal_menu.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>

#include "companion/arguments.h"

namespace tervano {

namespace {

enum class Key { up, down, forward, back, quit, other };

// The terminal without echo and line editing, with a hidden cursor, for as long as it lives.
class RawTerminal {
 public:
  RawTerminal() {
    tcgetattr(STDIN_FILENO, &saved_);
    termios raw = saved_;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &raw);
    write("\x1b[?25l");
  }
  ~RawTerminal() {
    write("\x1b[?25h");
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
  }
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

  static void write(const std::string& text) {
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

  termios saved_{};
};

struct Level {
  std::string heading;
  const std::vector<TerminalMenuEntry>* entries;
  std::size_t current = 0;
};

std::size_t terminalRows() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row < 6) return 24;
  return size.ws_row;
}

// Draws one level and answers how many lines it took.
std::size_t draw(const Level& level) {
  const std::size_t visible = std::min(level.entries->size(), terminalRows() - 4);
  const std::size_t first =
      level.current < visible ? 0 : std::min(level.current - visible + 1, level.entries->size());
  std::string text = "\x1b[1m" + printable(level.heading) + "\x1b[0m\r\n";
  for (std::size_t index = first; index < first + visible; ++index) {
    const auto& entry = (*level.entries)[index];
    const bool current = index == level.current;
    text += current ? "\x1b[7m > " : "   ";
    if (!entry.enabled) text += "\x1b[2m";
    text += printable(entry.title);
    if (entry.hasSubmenu) text += " \u25b8";
    text += " \x1b[0m\r\n";
  }
  if (level.entries->empty()) text += "   \x1b[2m(nothing here)\x1b[0m\r\n";
  text += "\x1b[2m   arrows move, Enter chooses, Esc goes back, q leaves\x1b[0m\r\n";
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
