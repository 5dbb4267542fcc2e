#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/companion/tervano_program.h"
#include "tests/support/child_process.h"
#include "tests/support/fake_bus_service.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/virtual_display.h"

namespace tervano::test {

// A whole desktop of the test's own: a private home, an X server, a session bus that finds services
// where a desktop does, a real notification daemon, and a file manager that keeps what it is asked
// to show. The bus and the handlers of URLs come from the build tree's share folder.
//
// Whatever is started in it, also by the bus, is ended with it, and the test fails when the
// companion does not leave by itself after the bus has gone. Main thread.
class Desktop {
 public:
  // With `idleSeconds` the companion that the bus starts leaves after so long; else it is started
  // as the build tree's own service file says.
  explicit Desktop(std::optional<int> idleSeconds = 1);
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;
  ~Desktop();

  ProgramHome& home() { return home_; }

  // Adds a move action to the folder "to" and answers its uid.
  std::string addMove();
  std::string target() const { return home_.path() + "/to"; }
  bool wasMoved(const std::string& name) const {
    return exists(target() + "/" + name) && !exists(home_.path() + "/" + name);
  }
  // The hand-off files in the container.
  std::vector<std::string> handOffFiles() const;

  // The process that owns the companion's name on the bus; nil when none does.
  std::optional<pid_t> companion() const;
  bool waitForNoCompanion(double seconds = 20);

  // The texts of all notifications of the companion, the newest first; those on the screen are
  // closed by this.
  std::vector<std::string> notificationTexts();
  // Waits until a notification with that text was shown.
  bool waitForNotification(const std::string& text);
  // Waits until so many notifications are on the screen.
  bool waitForDisplayed(int count);
  // Presses the button of the notification on the screen.
  void pressButton();

  // The URIs of every ShowItems call of the file manager, as GVariant text.
  std::vector<std::string> revealed() const;
  // The same of every ShowFolders call.
  std::vector<std::string> opened() const;

  // Lets the bus read the files of its services again.
  void reloadServices();
  // Ends the bus as the end of a session does.
  void endSession();

 private:
  // The process that owns a name on the bus.
  std::optional<pid_t> ownerOf(const std::string& name) const;
  std::vector<std::string> askedOf(const std::string& method) const;

  ScopedPlatform platform_;
  ProgramHome home_;
  VirtualDisplay display_;
  std::unique_ptr<ChildProcess> bus_;
  std::string address_;
  GObjectPtr<GDBusConnection> connection_;
  std::unique_ptr<ChildProcess> notificationDaemon_;
  std::unique_ptr<FakeBusService> fileManager_;
};

// From now on a process that is left behind below this one becomes its child, and so is seen.
void adoptOrphans();
// Waits for the end of every child, also an adopted one, unless its command line has `except` in
// it. Ends those that stay, which fails the test.
void expectEveryChildToLeave(const std::string& except = "");

// Whether a process of that number runs; one that ended and was not waited for does not.
bool isRunning(pid_t pid);

// Calls a method of org.freedesktop.Application of the companion as the desktop does, with
// arguments as GVariant text, and waits for the answer.
ProgramOutcome callApplication(const std::string& method,
                               const std::vector<std::string>& arguments);

}  // namespace tervano::test
