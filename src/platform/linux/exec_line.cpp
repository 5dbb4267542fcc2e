#include "platform/linux/exec_line.h"

#include <glib.h>

#include <algorithm>
#include <memory>

namespace tervano {

namespace {

std::string localPath(const Url& url) {
  const std::string path = url.path();
  return path.empty() ? url.absoluteString() : path;
}

std::string value(char code, const Url& url) {
  return code == 'f' || code == 'F' ? localPath(url) : url.absoluteString();
}

}  // namespace

std::optional<ExecLine> ExecLine::parse(const std::string& exec, const DesktopEntryNames& names) {
  gint count = 0;
  gchar** argv = nullptr;
  if (!g_shell_parse_argv(exec.c_str(), &count, &argv, nullptr)) return std::nullopt;
  const std::unique_ptr<gchar*, decltype(&g_strfreev)> owner(argv, g_strfreev);
  ExecLine line;
  for (gint i = 0; i < count; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "%i") {
      if (names.icon.empty()) continue;
      line.words_.push_back({{0, "--icon"}});
      line.words_.push_back({{0, names.icon}});
      continue;
    }
    Word word{{0, ""}};
    bool vanishes = false;
    for (std::size_t at = 0; at < argument.size(); ++at) {
      if (argument[at] != '%') {
        word.back().text += argument[at];
        continue;
      }
      if (++at == argument.size()) return std::nullopt;
      switch (argument[at]) {
        case '%':
          word.back().text += '%';
          break;
        case 'f':
        case 'F':
        case 'u':
        case 'U':
          word.push_back({argument[at], ""});
          word.push_back({0, ""});
          break;
        case 'c':
          word.back().text += names.name;
          break;
        case 'k':
          word.back().text += names.path;
          break;
        default:
          // Deprecated codes stand for nothing.
          vanishes = argument.size() == 2;
          break;
      }
    }
    if (!vanishes) line.words_.push_back(std::move(word));
  }
  if (line.words_.empty() || namesFiles(line.words_.front())) return std::nullopt;
  return line;
}

bool ExecLine::namesFiles(const Word& word) {
  return std::any_of(word.begin(), word.end(), [](const Piece& piece) { return piece.code != 0; });
}

bool ExecLine::isList(const Word& word) {
  constexpr std::size_t kOneCode = 3;
  return word.size() == kOneCode && word[0].text.empty() && word[2].text.empty() &&
         (word[1].code == 'F' || word[1].code == 'U');
}

std::string ExecLine::text(const Word& word) {
  std::string text;
  for (const auto& piece : word) text += piece.text;
  return text;
}

bool ExecLine::namesFiles() const {
  return std::any_of(words_.begin(), words_.end(),
                     [](const Word& word) { return namesFiles(word); });
}

bool ExecLine::takesLists() const {
  return namesFiles() && std::all_of(words_.begin(), words_.end(), [](const Word& word) {
           return isList(word) || !namesFiles(word);
         });
}

std::vector<std::string> ExecLine::arguments(std::span<const Url> urls) const {
  std::vector<std::string> arguments;
  arguments.reserve(words_.size() + urls.size());
  for (const auto& word : words_) {
    if (isList(word)) {
      for (const auto& url : urls) arguments.push_back(value(word[1].code, url));
      continue;
    }
    std::string argument;
    for (const auto& piece : word) {
      if (piece.code == 0) {
        argument += piece.text;
      } else if (!urls.empty()) {
        argument += value(piece.code, urls.front());
      }
    }
    // A word that is only there for a file goes with it.
    if (argument.empty() && namesFiles(word)) continue;
    arguments.push_back(std::move(argument));
  }
  if (!namesFiles()) {
    for (const auto& url : urls) arguments.push_back(localPath(url));
  }
  return arguments;
}

std::vector<std::string> ExecLine::argumentsWith(const std::vector<std::string>& words,
                                                 std::span<const std::string> fileOptions) const {
  std::vector<std::string> arguments;
  bool inserted = false;
  for (std::size_t at = 0; at < words_.size(); ++at) {
    if (!namesFiles(words_[at])) {
      arguments.push_back(text(words_[at]));
    } else if (!inserted) {
      inserted = true;
      if (at > programIndex() + 1 && std::find(fileOptions.begin(), fileOptions.end(),
                                               arguments.back()) != fileOptions.end()) {
        arguments.pop_back();
      }
      arguments.insert(arguments.end(), words.begin(), words.end());
    }
  }
  if (!inserted) arguments.insert(arguments.end(), words.begin(), words.end());
  return arguments;
}

std::size_t ExecLine::programIndex() const {
  if (lastPathComponent(text(words_.front())) != "env") return 0;
  for (std::size_t at = 1; at < words_.size(); ++at) {
    const std::string word = text(words_[at]);
    if (word.find('=') == std::string::npos) return word.starts_with('-') ? 0 : at;
  }
  return 0;
}

std::string ExecLine::programName() const {
  return lastPathComponent(text(words_[programIndex()]));
}

bool ExecLine::isProgramAlone() const {
  return std::none_of(words_.begin() + static_cast<std::ptrdiff_t>(programIndex()) + 1,
                      words_.end(), [](const Word& word) { return !namesFiles(word); });
}

}  // namespace tervano
