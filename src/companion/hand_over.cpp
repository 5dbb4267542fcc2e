#include "companion/hand_over.h"

#include "companion/action_store.h"
#include "companion/command.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/workspace.h"

namespace tervano {

namespace {

constexpr double kHandOffTimeoutSeconds = 30;

// Notes whether the hand-off URL was opened and found a handler, which the extension ignores.
class NotingWorkspace : public ForwardingWorkspace {
 public:
  using ForwardingWorkspace::ForwardingWorkspace;
  bool openURL(const Url& url) override {
    opened_ = true;
    handled_ = ForwardingWorkspace::openURL(url);
    return handled_;
  }
  bool opened() const { return opened_; }
  bool handled() const { return handled_; }

 private:
  bool opened_ = false;
  bool handled_ = false;
};

}  // namespace

int handOver(FinderSync& finderSync, const std::string& selector) {
  NotingWorkspace workspace(*platform().workspace);
  const Platform& services = platform();
  Platform noting = services;
  noting.workspace = &workspace;
  installPlatform(noting);
  finderSync.invoke(selector);
  installPlatform(services);

  if (!workspace.opened()) throw CommandError(tr("The choice could not be handed over."));
  if (!workspace.handled()) {
    throw CommandError(
        tr("Nothing is registered for tervano: URLs, so the choice could not be handed over."));
  }
  const bool taken = platform().runLoop->runMainLoopUntil(
      [] { return platform().workspace->pendingRequests() == 0; }, kHandOffTimeoutSeconds);
  if (!taken) throw CommandError(tr("The program that runs actions did not answer."));
  return kExitSuccess;
}

}  // namespace tervano
