#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/linux/application_entry.h"

namespace tervano {

// How a mail program is started with a new message and its attachments.
struct MailCommand {
  std::vector<std::string> arguments;
  bool inTerminal = false;
};

// The command line by which a mail program's documentation tells to attach files, all to one new
// message. The program is known by the name that its entry starts, or by the entry's own name. Nil,
// with the reason in `error`, for an unknown program and for files that it cannot be given in that
// way. The sources:
//
//   Thunderbird and its kin   "Command line arguments (Thunderbird)", MozillaZine Knowledge Base
//   Evolution                 its user manual, "Command line parameters"
//   KMail                     kmail(1) of Debian 8
//   Claws Mail, Sylpheed, Balsa, Mutt, NeoMutt, Alpine    their manual pages in Debian 12
//
// `paths` are absolute.
std::optional<MailCommand> mailCommandAttaching(const std::vector<std::string>& paths,
                                                const ApplicationEntry& program, Error& error);

// Whether such a documentation is known, whatever the files.
bool isKnownMailProgram(const ApplicationEntry& program);

}  // namespace tervano
