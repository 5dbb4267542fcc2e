#include "platform/linux/mail_programs.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "archive/url.h"
#include "platform/linux/workspace_error.h"

namespace tervano {

namespace {

using Words = std::vector<std::string>;

// Percent-escaped, so that no comma, quote or ampersand is left.
std::string escapedURL(const std::string& path) {
  return Url::fileURLWithPath(path).absoluteString();
}

std::string escapedPath(const std::string& path) {
  return escapedURL(path).substr(std::string_view("file://").size());
}

Words thunderbirdWords(const Words& paths) {
  std::string attachments;
  for (const auto& path : paths) attachments += (attachments.empty() ? "" : ",") + escapedURL(path);
  return {"-compose", "attachment='" + attachments + "'"};
}

Words evolutionWords(const Words& paths) {
  std::string url = "mailto:";
  for (const auto& path : paths) {
    url += (url.back() == ':' ? "?attach=" : "&attach=") + escapedPath(path);
  }
  return {url};
}

Words kmailWords(const Words& paths) {
  Words words{"--composer"};
  for (const auto& path : paths) words.insert(words.end(), {"--attach", escapedURL(path)});
  return words;
}

// `before`, all files, `after`.
Words listWords(Words before, const Words& paths, const Words& after = {}) {
  before.insert(before.end(), paths.begin(), paths.end());
  before.insert(before.end(), after.begin(), after.end());
  return before;
}

Words attachWords(const Words& paths) {
  return listWords({"--attach"}, paths);
}

Words composeAndAttachWords(const Words& paths) {
  return listWords({"--compose", "--attach"}, paths);
}

Words muttWords(const Words& paths) {
  return listWords({"-a"}, paths, {"--"});
}

Words alpineWords(const Words& paths) {
  return listWords({"-attachlist"}, paths);
}

Words balsaWords(const Words& paths) {
  return {"--attach=" + paths.front()};
}

struct MailProgram {
  // Of its executable, or of its desktop entry.
  Words names;
  // Options that ask for a URL to be opened, and would take our words for it.
  Words urlOptions;
  Words (*words)(const Words& paths);
  bool inTerminal = false;
  // Whether the documentation knows more than one attachment.
  bool takesMany = true;
  // Whether files are told to a running instance as lines of text, so that a name with a line end
  // would attach another file.
  bool takesLines = false;
};

const MailProgram* mailProgram(const std::string& name) {
  static const auto* const programs = new std::vector<MailProgram>{
      {{"thunderbird", "thunderbird-bin", "thunderbird-esr", "icedove", "betterbird",
        "org.mozilla.Thunderbird", "net.thunderbird.Thunderbird", "eu.betterbird.Betterbird"},
       {"-compose", "--compose", "-mail", "-url", "--url"},
       thunderbirdWords},
      {{"evolution", "org.gnome.Evolution"}, {}, evolutionWords},
      {{"kmail", "org.kde.kmail2"}, {"--composer"}, kmailWords},
      {{"claws-mail"}, {"--compose"}, attachWords, false, true, true},
      {{"sylpheed"}, {"--compose"}, composeAndAttachWords, false, true, true},
      {{"balsa", "org.desktop.Balsa", "balsa-mailto-handler"},
       {"-m", "--compose"},
       balsaWords,
       false,
       false},
      {{"mutt", "neomutt"}, {}, muttWords, true},
      {{"alpine"}, {"-url"}, alpineWords, true},
  };
  const auto found = std::find_if(programs->begin(), programs->end(), [&](const auto& program) {
    return std::find(program.names.begin(), program.names.end(), name) != program.names.end();
  });
  return found == programs->end() ? nullptr : &*found;
}

const MailProgram* mailProgramOf(const ApplicationEntry& entry) {
  const auto line = entry.execLine();
  if (!line) return nullptr;
  if (const auto* program = mailProgram(line->programName())) return program;
  // What a wrapper does with more words than a program and its files is not known.
  return line->isProgramAlone() ? mailProgram(entry.identifier) : nullptr;
}

bool hasOddCharacter(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](char character) {
    return static_cast<unsigned char>(character) < ' ' || character == '\x7f';
  });
}

}  // namespace

std::optional<MailCommand> mailCommandAttaching(const std::vector<std::string>& paths,
                                                const ApplicationEntry& program, Error& error) {
  const std::string subject = "The mail program \"" + program.name + "\" cannot be given ";
  const MailProgram* known = mailProgramOf(program);
  if (known == nullptr) {
    error = workspaceError(subject + "attachments");
    return std::nullopt;
  }
  if (!known->takesMany && paths.size() > 1) {
    error = workspaceError(subject + "more than one attachment");
    return std::nullopt;
  }
  if (known->takesLines) {
    const auto odd = std::find_if(paths.begin(), paths.end(), hasOddCharacter);
    if (odd != paths.end()) {
      error = workspaceError(subject + "\"" + *odd + "\", whose name has a control character");
      return std::nullopt;
    }
  }
  return MailCommand{program.execLine()->argumentsWith(known->words(paths), known->urlOptions),
                     program.terminal || known->inTerminal};
}

bool isKnownMailProgram(const ApplicationEntry& program) {
  return mailProgramOf(program) != nullptr;
}

}  // namespace tervano
