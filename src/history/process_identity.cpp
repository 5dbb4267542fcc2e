#include "history/process_identity.h"

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>

namespace tervano {

namespace {

constexpr int kFieldsBetweenStateAndStart = 18;

// Where and when that process began; empty when there is none.
std::string startOf(std::int64_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  const std::string line{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  // The name, between brackets, may hold anything.
  const auto end = line.rfind(')');
  if (end == std::string::npos) return "";
  std::istringstream fields(line.substr(end + 1));
  std::string state;
  std::string field;
  fields >> state;
  for (int at = 0; at <= kFieldsBetweenStateAndStart; ++at) fields >> field;
  if (!fields || state == "Z" || state == "X") return "";
  std::ifstream boot("/proc/sys/kernel/random/boot_id");
  std::string system;
  boot >> system;
  return system + " " + field;
}

}  // namespace

ProcessIdentity ProcessIdentity::ofThisProcess() {
  return {getpid(), startOf(getpid())};
}

bool ProcessIdentity::isAlive() const {
  return pid > 0 && !start.empty() && startOf(pid) == start;
}

}  // namespace tervano
