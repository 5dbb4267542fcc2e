#include <sstream>

#include "bench/support.h"
#include "bench/topics.h"
#include "store/tv_actions_manager.h"

namespace tervano::bench {

namespace {

constexpr int kActions = 10;
constexpr int kRuns = 30;

// A list as a user has it, in the home that the loaded extension reads.
void saveList() {
  const auto manager = TVActionsManager::create();
  manager->updateActions(moveActions(kActions, false));
  manager->saveToFile();
}

// Loads the module in a fresh process for each run. The time is the processor's, for other work of
// the machine delays the threads of a process that has just begun.
void addModule(const std::string& role, const std::string& module, bool withGio) {
  const std::string host = withGio ? "process that has GIO already" : "bare process";
  add("module/load and start in a " + host + "/" + role,
      [=](benchmark::State& state) {
        saveList();
        double kibibytes = 0;
        double onTheClock = 0;
        for (auto _ : state) {
          std::istringstream answer(
              outputOf({BENCH_MODULE_LOADER, module, withGio ? "with-gio" : "bare"}));
          double work = 0;
          double elapsed = 0;
          double grown = 0;
          if (!(answer >> work >> elapsed >> grown)) throw SetupError("the loader gave no answer");
          state.SetIterationTime(work / 1e9);
          onTheClock += elapsed / 1e3;
          kibibytes += grown;
        }
        const auto runs = static_cast<double>(state.iterations());
        state.counters["elapsed_us"] = onTheClock / runs;
        state.counters["resident_KiB"] = kibibytes / runs;
      })
      ->UseManualTime()
      ->Iterations(kRuns)
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace

void addModuleBenchmarks() {
  for (const bool withGio : {false, true}) {
    addModule("tervano", BENCH_EXTENSION_MODULE, withGio);
    addModule("floor module with plain GLib", BENCH_PLAIN_MODULE, withGio);
  }
}

}  // namespace tervano::bench
