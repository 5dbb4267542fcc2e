#include <benchmark/benchmark.h>

#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>

#include "actions/register_action_classes.h"
#include "bench/listener.h"
#include "bench/support.h"
#include "bench/topics.h"
#include "platform/linux/linux_platform.h"
#include "tests/support/temporary_home.h"

namespace tervano::bench {

namespace {

// A session's runtime folder is in memory.
class MemoryFolder {
 public:
  MemoryFolder() {
    if (mkdtemp(path_.data()) == nullptr) throw SetupError("no folder in memory");
  }
  MemoryFolder(const MemoryFolder&) = delete;
  MemoryFolder& operator=(const MemoryFolder&) = delete;
  ~MemoryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_ = "/dev/shm/tervano-bench-XXXXXX";
};

void install() {
  static ClassRegistry registry;
  registerActionClasses(registry);
  LinuxPlatformOptions options;
  options.classRegistry = &registry;
  installPlatform(linuxPlatform(options));
}

int run(int argc, char** argv) {
  test::TemporaryHome home;
  const MemoryFolder runtime;
  home.setVariable("XDG_RUNTIME_DIR", runtime.path());
  // No peer may look for a bus or a remote file system of whoever runs this.
  home.setVariable("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
  home.setVariable("GIO_USE_VFS", "local");
  install();
  for (const auto addTopic :
       {addArchiveBenchmarks, addMenuBenchmarks, addModuleBenchmarks, addMoveBenchmarks,
        addPreferencesBenchmarks, addSignalBenchmarks, addTypeBenchmarks}) {
    addTopic();
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace

}  // namespace tervano::bench

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  try {
    if (argc > 1 && std::string(argv[1]) == tervano::bench::kListenerArgument) {
      tervano::bench::install();
      return tervano::bench::listen({argv + 2, argv + argc});
    }
    return tervano::bench::run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "tervano_bench: " << error.what() << "\n";
    return 1;
  }
}
