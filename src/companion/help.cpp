#include "companion/help.h"

#include <algorithm>
#include <sstream>

#include "translation/translation.h"

namespace tervano {

namespace {

constexpr std::size_t kColumns = 80;

constexpr const char* kPurpose = trMark(
    "Your own actions in the context menu of your file manager: the list is shown, changed "
    "and tried here, and this program runs what was chosen.");

constexpr const char* kStatusText = trMark(
    "0 for success, 1 for a failure, 2 when the words of the command cannot be understood. "
    "Every failure is one sentence on standard error.");

// The characters of UTF-8 text.
std::size_t columnsOf(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

// Breaks a paragraph at blanks so that no line is longer than the width, if its words allow.
std::string wrapped(const std::string& paragraph, std::size_t indentation) {
  const std::string margin(indentation, ' ');
  std::istringstream words(paragraph);
  std::string text;
  std::string line = margin;
  for (std::string word; words >> word;) {
    if (line.size() > indentation && columnsOf(line) + 1 + columnsOf(word) > kColumns) {
      text += line + "\n";
      line = margin;
    }
    if (line.size() > indentation) line += ' ';
    line += word;
  }
  return text + line + "\n";
}

// Text safe for man(7): backslashes and hyphens escaped, no line begins with a control character.
std::string roff(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
    if (character == '\\') {
      escaped += "\\e";
    } else if (character == '-') {
      escaped += "\\-";
    } else {
      escaped += character;
    }
  }
  if (escaped.starts_with(".") || escaped.starts_with("'")) escaped.insert(0, "\\&");
  return escaped;
}

std::string heading(const std::string& name) {
  return ".TH \"" + name + "\" 1 \"\" \"Tervano\" \"User Commands\"\n";
}

}  // namespace

std::string overviewText(std::span<const CommandHelp> commands) {
  std::string text = wrapped(translated(kPurpose), 0) + "\n" + tr("usage: ").shown() +
                     "tervano COMMAND [WORD...]\n\n";
  for (const auto& command : commands) {
    std::string line = "  " + command.name;
    line.resize(std::max<std::size_t>(line.size() + 2, 14), ' ');
    text += line + translated(command.summary).shown() + "\n";
  }
  return text + "\n" + tr("\"tervano help COMMAND\" tells more of one.").shown() + "\n";
}

std::string helpText(const CommandHelp& command) {
  const std::string usage = tr("usage: ");
  const std::size_t margin = columnsOf(usage);
  std::string text;
  for (const auto& form : command.forms) {
    text += wrapped("tervano " + command.name + " " + form, margin);
  }
  text.replace(0, margin, usage);
  text += "\n" + wrapped(translated(command.summary).shown() + ".", 0);
  for (const auto& paragraph : command.paragraphs) {
    text += "\n" + wrapped(translated(paragraph), 0);
  }
  if (!command.options.empty()) text += "\n" + tr("Options:").shown() + "\n";
  for (const auto& [spelling, meaning] : command.options) {
    text += "  " + spelling + "\n" + wrapped(translated(meaning), 6);
  }
  return text + "\n" + tr("Exit status:").shown() + "\n" + wrapped(translated(kStatusText), 2);
}

std::string manualPage(const CommandHelp& command) {
  const std::string title = "tervano-" + command.name;
  std::string page = heading(title) + ".SH NAME\n" + roff(title) + " \\- " + roff(command.summary) +
                     "\n.SH SYNOPSIS\n";
  for (const auto& form : command.forms) {
    page += ".B tervano " + roff(command.name) + "\n" + roff(form) + "\n.br\n";
  }
  page += ".SH DESCRIPTION\n" + roff(command.summary + ".") + "\n";
  for (const auto& paragraph : command.paragraphs) page += ".PP\n" + roff(paragraph) + "\n";
  if (!command.options.empty()) page += ".SH OPTIONS\n";
  for (const auto& [spelling, meaning] : command.options) {
    page += ".TP\n.B " + roff(spelling) + "\n" + roff(meaning) + "\n";
  }
  return page + ".SH EXIT STATUS\n" + roff(kStatusText) + "\n.SH SEE ALSO\n.BR tervano (1)\n";
}

std::string overviewManualPage(std::span<const CommandHelp> commands) {
  std::string page = heading("tervano") +
                     ".SH NAME\ntervano \\- actions for the context menu of file managers\n"
                     ".SH SYNOPSIS\n.B tervano\n.I command\n.RI [ word ...]\n.SH DESCRIPTION\n" +
                     roff(kPurpose) + "\n.SH COMMANDS\n";
  for (const auto& command : commands) {
    page += ".TP\n.BR tervano\\-" + roff(command.name) + " (1)\n" + roff(command.summary) + "\n";
  }
  return page +
         ".SH FILES\n.TP\n.I $XDG_DATA_HOME/Q4T7N2XR8K.com.vessok.tervano/Actions.plist\n"
         "The list of actions.\n.TP\n"
         ".I $XDG_CONFIG_HOME/tervano/com.vessok.tervano.preferences.plist\nThe preferences.\n"
         ".SH EXIT STATUS\n" +
         roff(kStatusText) + "\n";
}

}  // namespace tervano
