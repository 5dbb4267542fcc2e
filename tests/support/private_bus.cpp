#include "tests/support/private_bus.h"

#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/support/program.h"

namespace tervano::test {

namespace {

constexpr char kVariable[] = "DBUS_SESSION_BUS_ADDRESS";

std::optional<std::string> variable() {
  const char* value = std::getenv(kVariable);
  return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

void setVariable(const std::optional<std::string>& value) {
  if (value) {
    setenv(kVariable, value->c_str(), 1);
  } else {
    unsetenv(kVariable);
  }
}

}  // namespace

PrivateBus::PrivateBus(const std::map<std::string, std::string>& services) : previous_(variable()) {
  char folder[] = "/tmp/tervano-bus-XXXXXX";
  if (mkdtemp(folder) == nullptr) throw std::runtime_error("no folder for the bus");
  folder_ = folder;
  std::filesystem::create_directory(folder_ + "/services");
  for (const auto& [name, program] : services) {
    std::ofstream(folder_ + "/services/" + name + ".service")
        << "[D-BUS Service]\nName=" << name << "\nExec=" << program << "\n";
  }
  std::ofstream(folder_ + "/bus.conf")
      << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
         "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
         "<busconfig><type>session</type><keep_umask/>"
         "<listen>unix:path="
      << folder_ << "/socket</listen><servicedir>" << folder_ << "/services</servicedir>"
      << "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
         "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";
  // It goes with the test, also with one that is killed.
  daemon_ = std::make_unique<ChildProcess>(startProgram(
      "/usr/bin/setpriv",
      {"--pdeathsig", "TERM", "/usr/bin/dbus-daemon", "--config-file=" + folder_ + "/bus.conf",
       "--nofork", "--nopidfile", "--print-address=1"}));
  const auto address = daemon_->hear();
  if (!address) throw std::runtime_error("dbus-daemon does not start");
  address_ = *address;
  setVariable(address_);
}

PrivateBus::~PrivateBus() {
  daemon_.reset();
  setVariable(previous_);
  std::filesystem::remove_all(folder_);
}

void PrivateBus::kill() {
  daemon_->kill(SIGKILL);
  daemon_->waitForExit();
}

void PrivateBus::stop() {
  daemon_->kill(SIGSTOP);
}

void PrivateBus::resume() {
  daemon_->kill(SIGCONT);
}

NoBus::NoBus() : previous_(variable()) {
  setVariable(std::nullopt);
}

NoBus::~NoBus() {
  setVariable(previous_);
}

}  // namespace tervano::test
