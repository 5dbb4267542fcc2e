#include <filesystem>

#include "companion/finding.h"
#include "platform/file_manager.h"
#include "platform/linux/bus_question.h"
#include "platform/linux/default_handlers.h"
#include "platform/linux/desktop_entry.h"
#include "platform/linux/program_lookup.h"
#include "platform/linux/user_folders.h"
#include "platform/platform.h"

namespace tervano {

namespace {

namespace fs = std::filesystem;

constexpr char kIdentifier[] = "com.vessok.tervano";
constexpr char kEntryName[] = "com.vessok.tervano.desktop";
constexpr char kServicePath[] = "/com/vessok/tervano";
constexpr char kSchemeType[] = "x-scheme-handler/tervano";
constexpr char kNotifications[] = "org.freedesktop.Notifications";
constexpr char kNotificationsPath[] = "/org/freedesktop/Notifications";
// A service may have to be started first, on a busy machine.
constexpr int kAnswerMilliseconds = 5000;

// The program that the entry starts, when it is there.
std::optional<std::string> programOfEntry(const std::string& path) {
  const auto entry = DesktopEntry::atPath(path);
  if (!entry) return std::nullopt;
  const auto words = entry->words("Exec");
  if (words.empty()) return std::nullopt;
  if (!words.front().starts_with("/")) return programInPath(words.front());
  return platform().fileManager->fileExistsAtPath(words.front()) ? std::optional(words.front())
                                                                 : std::nullopt;
}

std::optional<std::string> ownEntry() {
  for (const auto& folder : dataFolders()) {
    const std::string path = folder + "/applications/" + kEntryName;
    if (platform().fileManager->fileExistsAtPath(path)) return path;
  }
  return std::nullopt;
}

// How the desktop can find what this installation has below its folder "share".
Sentence makeVisible(const std::string& nameBelowShare) {
  const std::string share = installationPrefix() + "/share";
  const bool isBuilt = platform().fileManager->fileExistsAtPath(share + "/" + nameBelowShare);
  if (installationPrefix() == "/usr" || !isBuilt) return installAgain("tervano");
  return tr("Start the session with {1} in XDG_DATA_DIRS, or install the package {2}.", share,
            "tervano");
}

Finding handlerFinding() {
  const Sentence what = tr("scheme handler");
  if (const auto entry = handlerEntryOfType(kSchemeType)) {
    if (fs::path(*entry).filename() != kEntryName) {
      return {what, Health::broken, tr("URLs of tervano are opened by {1}.", *entry),
              tr("Choose ours with \"{1}\".",
                 std::string("gio mime ") + kSchemeType + " " + kEntryName)};
    }
    const auto program = programOfEntry(*entry);
    if (program) return {what, Health::ok, tr("{1} starts {2}.", *entry, *program), ""};
    return {what, Health::broken, tr("{1} starts a program that is not there.", *entry),
            installAgain("tervano")};
  }
  const auto entry = ownEntry();
  if (!entry) {
    return {what, Health::missing, tr("No application opens the URLs of tervano."),
            makeVisible(std::string("applications/") + kEntryName)};
  }
  if (!programOfEntry(*entry)) {
    return {what, Health::broken,
            tr("{1} is no desktop entry, or starts a program that is not there.", *entry),
            tr("Remove that file, or install the program that it starts.")};
  }
  return {what, Health::broken, tr("{1} is there, but the desktop's table lacks it.", *entry),
          tr("Run \"{1}\".", "update-desktop-database " + fs::path(*entry).parent_path().string())};
}

Finding busFinding(const BusAnswer& answer) {
  const Sentence what = tr("session bus");
  const auto address = sessionBusAddress();
  if (!address) {
    return {
        what, Health::missing,
        tr("There is none: neither DBUS_SESSION_BUS_ADDRESS nor $XDG_RUNTIME_DIR/bus is there."),
        tr("Log in to a desktop session, or begin one with \"dbus-run-session\".")};
  }
  if (answer.outcome == BusAnswer::Outcome::answered) {
    return {what, Health::ok, tr("{1} answers.", *address), ""};
  }
  return {what, Health::broken, tr("{1} does not answer.", *address),
          tr("Log out and in again, so that the session gets a new bus.")};
}

// What an answer that is none tells about a service; nil when there was one.
std::optional<Finding> failureOf(const Sentence& what, const BusAnswer& answer,
                                 const Sentence& mendMissing, const Sentence& mendBroken) {
  switch (answer.outcome) {
    case BusAnswer::Outcome::answered:
      return std::nullopt;
    case BusAnswer::Outcome::noBus:
      return Finding{what, Health::missing, tr("There is no session bus to ask."),
                     tr("Mend the session bus first.")};
    case BusAnswer::Outcome::nobody:
      return Finding{what, Health::missing, tr("Nobody on the session bus is it."), mendMissing};
    case BusAnswer::Outcome::silent:
      return Finding{what, Health::broken, tr("It did not answer in time."), mendBroken};
    case BusAnswer::Outcome::failed:
      break;
  }
  return Finding{what, Health::broken, tr("The session bus says: {1}.", answer.reason), mendBroken};
}

Finding serviceFinding(const BusAnswer& answer) {
  const Sentence what = tr("D-Bus service");
  if (auto failure = failureOf(
          what, answer, makeVisible(std::string("dbus-1/services/") + kIdentifier + ".service"),
          tr("End the process \"tervano service\" if there is one, and run \"tervano service\" on "
             "a "
             "terminal to see what it says."))) {
    return *failure;
  }
  return {what, Health::ok, tr("{1} answers.", kIdentifier), ""};
}

Finding notificationFinding(const BusAnswer& answer) {
  const Sentence what = tr("notification daemon");
  if (auto failure =
          failureOf(what, answer, tr("Install and start one, such as the package {1}.", "dunst"),
                    tr("Start the notification daemon of the desktop again."))) {
    return *failure;
  }
  // Name, vendor, version, version of the protocol.
  constexpr std::size_t kVersionIndex = 2;
  if (answer.texts.empty()) return {what, Health::ok, tr("It answers."), ""};
  std::string name = answer.texts.front();
  if (answer.texts.size() > kVersionIndex) name += " " + answer.texts[kVersionIndex];
  return {what, Health::ok, tr("{1} answers.", name), ""};
}

}  // namespace

std::vector<Finding> desktopFindings() {
  SessionBus bus;
  const auto ask = [&bus](const char* name, const char* path, const char* interface,
                          const char* method) {
    return askOnBus(bus, name, path, interface, method, kAnswerMilliseconds);
  };
  std::vector<Finding> findings{handlerFinding()};
  const BusAnswer busAnswer =
      ask("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId");
  findings.push_back(busFinding(busAnswer));
  const bool isThere = busAnswer.outcome == BusAnswer::Outcome::answered;
  findings.push_back(serviceFinding(
      isThere ? ask(kIdentifier, kServicePath, "org.freedesktop.DBus.Peer", "Ping") : BusAnswer{}));
  findings.push_back(notificationFinding(
      isThere ? ask(kNotifications, kNotificationsPath, kNotifications, "GetServerInformation")
              : BusAnswer{}));
  return findings;
}

}  // namespace tervano
