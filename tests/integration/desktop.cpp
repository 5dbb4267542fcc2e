#include "tests/integration/desktop.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/support/program.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;

constexpr char kFileManager[] = "org.freedesktop.FileManager1";
constexpr char kFileManagerInterface[] =
    "<node><interface name='org.freedesktop.FileManager1'>"
    "<method name='ShowItems'><arg type='as' direction='in'/><arg type='s' "
    "direction='in'/></method>"
    "<method name='ShowFolders'><arg type='as' direction='in'/><arg type='s' "
    "direction='in'/></method>"
    "</interface></node>";

// Processes whose parent is this one.
std::vector<pid_t> children() {
  std::vector<pid_t> found;
  for (const auto& task : fs::directory_iterator("/proc/self/task")) {
    std::ifstream list(task.path() / "children");
    for (pid_t pid = 0; list >> pid;) found.push_back(pid);
  }
  return found;
}

std::string commandLine(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline");
  std::string text{std::istreambuf_iterator<char>(file), {}};
  for (char& character : text) {
    if (character == '\0') character = ' ';
  }
  return text;
}

// The service file with its Exec line lengthened by an option.
std::string serviceFile(int idleSeconds) {
  std::istringstream lines(
      contentsOf(std::string(TERVANO_SHARE) + "/dbus-1/services/com.vessok.tervano.service"));
  std::string text;
  for (std::string line; std::getline(lines, line);) {
    text += line;
    if (line.starts_with("Exec=")) text += " --idle-seconds " + std::to_string(idleSeconds);
    text += "\n";
  }
  return text;
}

// Runs the tool that speaks to the notification daemon and answers its output.
std::string dunstctl(const std::vector<std::string>& words) {
  ProgramStart start;
  start.path = "/usr/bin/dunstctl";
  start.arguments = words;
  return runProgram(start).output;
}

}  // namespace

bool isRunning(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("State:")) return line.find('Z') == std::string::npos;
  }
  return false;
}

void adoptOrphans() {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
}

void expectEveryChildToLeave(const std::string& except) {
  const auto remaining = [&] {
    std::vector<pid_t> pids;
    for (const pid_t pid : children()) {
      if (except.empty() || commandLine(pid).find(except) == std::string::npos) pids.push_back(pid);
    }
    return pids;
  };
  const bool allLeft = waitUntil(
      [&] {
        for (const pid_t pid : remaining()) waitpid(pid, nullptr, WNOHANG);
        return remaining().empty();
      },
      20);
  if (allLeft) return;
  for (const pid_t pid : remaining()) {
    ADD_FAILURE() << "left behind: " << commandLine(pid);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
}

Desktop::Desktop(std::optional<int> idleSeconds) {
  adoptOrphans();
  home_.home().setVariable("XDG_DATA_DIRS", std::string(TERVANO_SHARE) + ":/usr/share");
  home_.home().setVariable("GIO_USE_VFS", "local");
  home_.home().setVariable("GSETTINGS_BACKEND", "memory");
  home_.home().setVariable("NO_AT_BRIDGE", "1");
  if (idleSeconds) {
    home_.file(".local/share/dbus-1/services/com.vessok.tervano.service",
               serviceFile(*idleSeconds));
  }
  home_.folder("to");

  const std::string configuration = home_.file(
      "bus.conf",
      "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
      "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
      "<busconfig><type>session</type><keep_umask/><listen>unix:path=" +
          home_.path() +
          "/bus</listen><standard_session_servicedirs/><policy context=\"default\">"
          "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
          "<allow own=\"*\"/></policy></busconfig>\n");
  bus_ = std::make_unique<ChildProcess>(startProgram(
      "/usr/bin/dbus-daemon",
      {"--config-file=" + configuration, "--nofork", "--nopidfile", "--print-address=1"}));
  const auto address = bus_->hear();
  if (!address) throw std::runtime_error("dbus-daemon does not start");
  address_ = *address;
  home_.home().setVariable("DBUS_SESSION_BUS_ADDRESS", address_);
  connection_.reset(g_dbus_connection_new_for_address_sync(
      address_.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr));
  if (connection_ == nullptr) throw std::runtime_error("no bus");
  fileManager_ = std::make_unique<FakeBusService>(
      address_, kFileManager, "/org/freedesktop/FileManager1", kFileManager, kFileManagerInterface,
      [](const FakeBusService::Call&) { return g_variant_new("()"); });

  const std::string settings =
      home_.file("dunstrc",
                 "[global]\nhistory_length = 200\nnotification_limit = 0\nidle_threshold = 0\n"
                 "[urgency_low]\ntimeout = 0\n[urgency_normal]\ntimeout = 0\n");
  notificationDaemon_ =
      std::make_unique<ChildProcess>(startProgram("/usr/bin/dunst", {"-conf", settings}));
  if (!waitUntil([this] { return ownerOf("org.freedesktop.Notifications").has_value(); })) {
    throw std::runtime_error("dunst does not start");
  }
}

Desktop::~Desktop() {
  endSession();
  notificationDaemon_.reset();
  // The X server stays until its own destructor.
  expectEveryChildToLeave("Xvfb");
}

void Desktop::endSession() {
  fileManager_.reset();
  connection_.reset();
  if (bus_ == nullptr) return;
  bus_->kill(SIGTERM);
  EXPECT_TRUE(bus_->waitForExit().has_value());
  bus_.reset();
}

void Desktop::reloadServices() {
  const GVariantPtr reply(g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "ReloadConfig", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  EXPECT_NE(reply, nullptr);
}

std::string Desktop::addMove() {
  return home_.succeed({"add", "move", "--title", "Move", "--to", target()});
}

std::vector<std::string> Desktop::handOffFiles() const {
  constexpr std::size_t kUuidLength = 36;
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(home_.container())) {
    const std::string name = entry.path().filename().string();
    if (name.size() == kUuidLength) names.push_back(name);
  }
  return names;
}

std::optional<pid_t> Desktop::ownerOf(const std::string& name) const {
  const GVariantPtr reply(g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "GetConnectionUnixProcessID", g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  if (reply == nullptr) return std::nullopt;
  guint32 pid = 0;
  g_variant_get(reply.get(), "(u)", &pid);
  return static_cast<pid_t>(pid);
}

std::optional<pid_t> Desktop::companion() const {
  return ownerOf("com.vessok.tervano");
}

bool Desktop::waitForNoCompanion(double seconds) {
  return waitUntil([this] { return !companion(); }, seconds);
}

std::vector<std::string> Desktop::notificationTexts() {
  dunstctl({"close-all"});
  const auto history = nlohmann::json::parse(dunstctl({"history"}), nullptr, false);
  std::vector<std::string> texts;
  if (!history.is_object()) return texts;
  for (const auto& entry : history["data"][0]) {
    if (entry["appname"]["data"] == "Tervano") texts.push_back(entry["body"]["data"]);
  }
  return texts;
}

bool Desktop::waitForNotification(const std::string& text) {
  return waitUntil([&] {
    const auto texts = notificationTexts();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  });
}

bool Desktop::waitForDisplayed(int count) {
  const std::string wanted = std::to_string(count) + "\n";
  return waitUntil([&] { return dunstctl({"count", "displayed"}) == wanted; });
}

void Desktop::pressButton() {
  dunstctl({"action", "0"});
}

std::vector<std::string> Desktop::revealed() const {
  return askedOf("ShowItems");
}

std::vector<std::string> Desktop::opened() const {
  return askedOf("ShowFolders");
}

std::vector<std::string> Desktop::askedOf(const std::string& method) const {
  std::vector<std::string> all;
  for (const auto& call : fileManager_->callsOf(method)) all.push_back(call.arguments);
  return all;
}

ProgramOutcome callApplication(const std::string& method,
                               const std::vector<std::string>& arguments) {
  ProgramStart start;
  start.path = "/usr/bin/gdbus";
  start.arguments = {
      "call",          "--session",           "--dest",   "com.vessok.tervano",
      "--object-path", "/com/vessok/tervano", "--method", "org.freedesktop.Application." + method};
  start.arguments.insert(start.arguments.end(), arguments.begin(), arguments.end());
  return runProgram(start);
}

}  // namespace tervano::test
