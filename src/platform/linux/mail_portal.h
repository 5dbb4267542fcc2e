#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/activation.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/session_bus.h"

namespace tervano {

// New e-mail messages through the desktop's portal: org.freedesktop.portal.Email, version 1 and
// later, as its interface description in xdg-desktop-portal 1.16 and that of
// org.freedesktop.portal.Request have it. Files go as descriptors, so no name is ever quoted. The
// portal's success says that it opened a message, not that the mail program took the files.
class MailPortal {
 public:
  // No bus takes more descriptors in a message (SCM_MAX_FD of the kernel). One that takes fewer
  // ends the connection.
  static constexpr std::size_t kMaximumFiles = 253;
  // How long an accepted request, such as one with a dialog, is listened to.
  static constexpr int kDialogMilliseconds = 120'000;

  struct Timeouts {
    // Until the request is accepted.
    int accepted;
    // From then on, until the caller goes on without the answer.
    int answered;
  };
  struct Answer {
    // Whether the portal has the files; also when the user then closed its dialog.
    bool taken = false;
    // Otherwise why; empty when there is no such portal.
    std::string reason;
  };

  // `pendingRequests` counts what has not been answered yet.
  MailPortal(SessionBus& bus, std::atomic<int>& pendingRequests, Timeouts timeouts);
  MailPortal(const MailPortal&) = delete;
  MailPortal& operator=(const MailPortal&) = delete;
  // After the bus thread has ended.
  ~MailPortal();

  // Asks for one new message with these files, at most kMaximumFiles descriptors made with O_PATH.
  // A request that was accepted and fails after the wait is logged and told to the user. Any thread
  // but the bus thread; needs no main loop.
  Answer compose(std::vector<Descriptor> files, ActivationToken token);

 private:
  class Exchange;

  SessionBus& bus_;
  std::atomic<int>& pendingRequests_;
  Timeouts timeouts_;
  // Of the bus thread.
  std::vector<std::shared_ptr<Exchange>> exchanges_;
};

}  // namespace tervano
