// Reads one file in a fresh process, so that its memory and time can be measured.
//
//   archive_read_probe list|archive|inspect FILE CPU_SECONDS
//
// Prints its peak of resident memory in KiB. Exits with 0 when the file was read, with 7 when it
// was refused by a PlatformException.

#include <sys/resource.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <limits>
#include <string>
#include <string_view>

#include "archive/inspection.h"
#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "tests/archive/sample_classes.h"

namespace {

tervano::Data contentsOf(const char* path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  tervano::Data bytes(static_cast<std::size_t>(file.tellg()));
  file.seekg(0);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!file) std::abort();
  return bytes;
}

bool refuses(std::string_view way, const tervano::Data& bytes) {
  try {
    if (way == "list") {
      tervano::propertyListWithData(bytes);
    } else if (way == "archive") {
      tervano::testing::unarchived(bytes);
    } else if (way == "inspect") {
      tervano::plainValueOfKeyedArchive(bytes);
    } else {
      std::abort();
    }
  } catch (const tervano::PlatformException&) {
    return true;
  }
  return false;
}

// Of this program alone; what the system reports to a parent begins with the parent's own peak.
std::string peakKiB() {
  std::ifstream status("/proc/self/status");
  std::string name;
  std::string value;
  while (status >> name) {
    if (name == "VmHWM:" && status >> value) return value;
    status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  std::abort();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const auto seconds = static_cast<rlim_t>(std::atoi(argv[3]));
  const rlimit limit{seconds, seconds};
  setrlimit(RLIMIT_CPU, &limit);
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  const bool refused = refuses(argv[1], contentsOf(argv[2]));
  std::cout << peakKiB() << '\n';
  return refused ? 7 : 0;
}
