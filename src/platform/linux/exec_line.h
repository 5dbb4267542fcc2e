#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "archive/url.h"

namespace tervano {

// What "%i", "%c" and "%k" stand for.
struct DesktopEntryNames {
  std::string icon;
  std::string name;
  std::string path;
};

// The Exec line of a desktop entry (Desktop Entry Specification 1.5, "The Exec key"), its quoting
// undone. It becomes an argument vector, never a shell's string.
class ExecLine {
 public:
  // Nil for a broken or empty line.
  static std::optional<ExecLine> parse(const std::string& exec, const DesktopEntryNames& names);

  // Whether one process takes all files: "%F" or "%U" as words of their own, and no code for one
  // file.
  bool takesLists() const;
  // "%u" and "%U" become the URLs byte for byte, "%f" and "%F" the local paths, or the URLs that
  // have none. Without any of these codes the files come last. Where the line takes one file,
  // `urls` holds at most one.
  std::vector<std::string> arguments(std::span<const Url> urls) const;
  // The line with `words` where it names its files. An option out of `fileOptions` that stands
  // directly before that place is left out.
  std::vector<std::string> argumentsWith(const std::vector<std::string>& words,
                                         std::span<const std::string> fileOptions) const;

  // The last component of the program's path, that of the program behind "env NAME=VALUE...".
  std::string programName() const;
  // Whether there is nothing but the program and its files.
  bool isProgramAlone() const;

 private:
  struct Piece {
    // 'f', 'F', 'u' or 'U'; 0 for text.
    char code;
    std::string text;
  };
  using Word = std::vector<Piece>;

  static bool namesFiles(const Word& word);
  static bool isList(const Word& word);
  static std::string text(const Word& word);
  bool namesFiles() const;
  std::size_t programIndex() const;

  std::vector<Word> words_;
};

}  // namespace tervano
