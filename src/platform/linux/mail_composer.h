#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "archive/url.h"
#include "platform/error.h"
#include "platform/linux/application_entry.h"
#include "platform/linux/application_launcher.h"
#include "platform/linux/mail_portal.h"
#include "platform/linux/session_bus.h"

namespace tervano {

// New e-mail messages with files really attached: in the way that the mail program's own
// documentation offers, with an unknown program by the desktop's portal, else not at all.
class MailComposer {
 public:
  MailComposer(SessionBus& bus, ApplicationLauncher& launcher, std::atomic<int>& pendingRequests,
               MailPortal::Timeouts timeouts)
      : launcher_(launcher), portal_(bus, pendingRequests, timeouts) {}

  // Opens one new message with all files. Every one must be a regular file that can be read, else
  // nothing is opened. Nil once the portal or the program has them. Waits for the portal, as long
  // as its timeouts say. Any thread but the bus thread.
  std::optional<Error> compose(const ApplicationEntry& mailProgram, const std::vector<Url>& files);

 private:
  ApplicationLauncher& launcher_;
  MailPortal portal_;
};

// Whether the entry at that path is, or overrides, the desktop's handler of "mailto:".
bool isMailHandler(const std::string& entryPath);

}  // namespace tervano
