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
constexpr char kMendTheBus[] = "Mend the session bus first.";

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
std::string makeVisible(const std::string& nameBelowShare) {
  const std::string share = installationPrefix() + "/share";
  const bool isBuilt = platform().fileManager->fileExistsAtPath(share + "/" + nameBelowShare);
  if (installationPrefix() == "/usr" || !isBuilt) return installAgain("tervano");
  return "Start the session with " + share + " in XDG_DATA_DIRS, or install the package tervano.";
}

Finding handlerFinding() {
  const std::string what = "scheme handler";
  if (const auto entry = handlerEntryOfType(kSchemeType)) {
    if (fs::path(*entry).filename() != kEntryName) {
      return {what, Health::broken, "URLs of tervano are opened by " + *entry + ".",
              std::string("Choose ours with \"gio mime ") + kSchemeType + " " + kEntryName + "\"."};
    }
    const auto program = programOfEntry(*entry);
    if (program) return {what, Health::ok, *entry + " starts " + *program + ".", ""};
    return {what, Health::broken, *entry + " starts a program that is not there.",
            installAgain("tervano")};
  }
  const auto entry = ownEntry();
  if (!entry) {
    return {what, Health::missing, "No application opens the URLs of tervano.",
            makeVisible(std::string("applications/") + kEntryName)};
  }
  if (!programOfEntry(*entry)) {
    return {what, Health::broken,
            *entry + " is no desktop entry, or starts a program that is not there.",
            "Remove that file, or install the program that it starts."};
  }
  return {what, Health::broken, *entry + " is there, but the desktop's table lacks it.",
          "Run \"update-desktop-database " + fs::path(*entry).parent_path().string() + "\"."};
}

Finding busFinding(const BusAnswer& answer) {
  const std::string what = "session bus";
  const auto address = sessionBusAddress();
  if (!address) {
    return {what, Health::missing,
            "There is none: neither DBUS_SESSION_BUS_ADDRESS nor $XDG_RUNTIME_DIR/bus is there.",
            "Log in to a desktop session, or begin one with \"dbus-run-session\"."};
  }
  if (answer.outcome == BusAnswer::Outcome::answered) {
    return {what, Health::ok, *address + " answers.", ""};
  }
  return {what, Health::broken, *address + " does not answer.",
          "Log out and in again, so that the session gets a new bus."};
}

// What an answer that is none tells about a service; nil when there was one.
std::optional<Finding> failureOf(const std::string& what, const BusAnswer& answer,
                                 const std::string& mendMissing, const std::string& mendBroken) {
  switch (answer.outcome) {
    case BusAnswer::Outcome::answered:
      return std::nullopt;
    case BusAnswer::Outcome::noBus:
      return Finding{what, Health::missing, "There is no session bus to ask.", kMendTheBus};
    case BusAnswer::Outcome::nobody:
      return Finding{what, Health::missing, "Nobody on the session bus is it.", mendMissing};
    case BusAnswer::Outcome::silent:
      return Finding{what, Health::broken, "It did not answer in time.", mendBroken};
    case BusAnswer::Outcome::failed:
      break;
  }
  return Finding{what, Health::broken, "The session bus says: " + answer.reason + ".", mendBroken};
}

Finding serviceFinding(const BusAnswer& answer) {
  const std::string what = "D-Bus service";
  if (auto failure = failureOf(
          what, answer, makeVisible(std::string("dbus-1/services/") + kIdentifier + ".service"),
          "End the process \"tervano service\" if there is one, and run \"tervano service\" on a "
          "terminal to see what it says.")) {
    return *failure;
  }
  return {what, Health::ok, std::string(kIdentifier) + " answers.", ""};
}

Finding notificationFinding(const BusAnswer& answer) {
  const std::string what = "notification daemon";
  if (auto failure = failureOf(what, answer, "Install and start one, such as the package dunst.",
                               "Start the notification daemon of the desktop again.")) {
    return *failure;
  }
  // Name, vendor, version, version of the specification.
  constexpr std::size_t kVersionIndex = 2;
  std::string name = answer.texts.empty() ? "It" : answer.texts.front();
  if (answer.texts.size() > kVersionIndex) name += " " + answer.texts[kVersionIndex];
  return {what, Health::ok, name + " answers.", ""};
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
