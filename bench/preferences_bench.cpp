// What the settings library calls the interface for keeping its values in a file of one's own.
#define G_SETTINGS_ENABLE_BACKEND
#include <fcntl.h>
#include <gio/gio.h>
#include <gio/gsettingsbackend.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "bench/listener.h"
#include "bench/support.h"
#include "bench/topics.h"
#include "platform/file_manager.h"
#include "platform/linux/plist_defaults_stores.h"
#include "platform/platform.h"
#include "prefs/tv_user_defaults.h"

namespace tervano::bench {

namespace {

constexpr char kSuite[] = "com.vessok.tervano.preferences";
constexpr char kSchema[] =
    "<schemalist><schema id='com.vessok.Bench' path='/com/vessok/Bench/'>"
    "<key name='play-alert' type='b'><default>false</default></key>"
    "</schema></schemalist>";

std::string homePath(const std::string& name) {
  return std::string(std::getenv("HOME")) + "/" + name;
}

// The platform's settings library on a file.
class Settings {
 public:
  Settings() {
    const std::string folder = homePath("schemas");
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/bench.gschema.xml") << kSchema;
    outputOf({"glib-compile-schemas", folder});
    source_ = g_settings_schema_source_new_from_directory(folder.c_str(), nullptr, TRUE, nullptr);
    if (source_ == nullptr) throw SetupError("no settings schema");
    schema_ = g_settings_schema_source_lookup(source_, "com.vessok.Bench", FALSE);
    backend_ = g_keyfile_settings_backend_new(homePath("settings.ini").c_str(), "/", nullptr);
  }
  Settings(const Settings&) = delete;
  Settings& operator=(const Settings&) = delete;
  ~Settings() {
    g_object_unref(backend_);
    g_settings_schema_unref(schema_);
    g_settings_schema_source_unref(source_);
  }

  void set(bool value) {
    GSettings* const settings = fresh();
    g_settings_set_boolean(settings, "play-alert", static_cast<gboolean>(value));
    g_settings_sync();
    g_object_unref(settings);
  }
  bool get() {
    GSettings* const settings = fresh();
    const bool value = g_settings_get_boolean(settings, "play-alert") != FALSE;
    g_object_unref(settings);
    return value;
  }

 private:
  GSettings* fresh() { return g_settings_new_full(schema_, backend_, nullptr); }

  GSettingsSchemaSource* source_ = nullptr;
  GSettingsSchema* schema_ = nullptr;
  GSettingsBackend* backend_ = nullptr;
};

void set(bool value) {
  TVUserDefaults::create()->setPlayAlertOnCompletion(value);
}

bool get() {
  return TVUserDefaults::create()->playAlertOnCompletion();
}

// The bytes of the preferences file, which the floors write.
Data preferencesFile() {
  set(true);
  return platform()
      .fileManager->contentsAtPath(PlistDefaultsStores::pathForSuiteName(kSuite))
      .value();
}

void replaceFile(const std::string& path, const Data& bytes) {
  const std::string temporary = path + ".tmp";
  const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const bool written =
      write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  close(file);
  if (!written || std::rename(temporary.c_str(), path.c_str()) != 0) {
    throw SetupError("could not write " + path);
  }
}

void addSetting() {
  const std::string name = "preferences/set one, then a fresh reader here/";
  add(name + "tervano", [](benchmark::State& state) {
    bool value = get();
    for (auto _ : state) {
      value = !value;
      set(value);
      if (get() != value) throw SetupError("the set value was not read");
    }
  })->UseRealTime();
  add(name + "peer GSettings with sync", [](benchmark::State& state) {
    Settings settings;
    bool value = settings.get();
    for (auto _ : state) {
      value = !value;
      settings.set(value);
      if (settings.get() != value) throw SetupError("the set value was not read");
    }
  })->UseRealTime();
  add(name + "floor rename over a file", [](benchmark::State& state) {
    const Data bytes = preferencesFile();
    for (auto _ : state) replaceFile(homePath("floor"), bytes);
  })->UseRealTime();
}

void addReading() {
  const std::string name = "preferences/read one with a fresh reader/";
  add(name + "tervano", [](benchmark::State& state) {
    set(true);
    for (auto _ : state) benchmark::DoNotOptimize(get());
  });
  add(name + "peer GSettings", [](benchmark::State& state) {
    Settings settings;
    settings.set(true);
    for (auto _ : state) benchmark::DoNotOptimize(settings.get());
  });
  add(name + "floor stat", [](benchmark::State& state) {
    const std::string path = PlistDefaultsStores::pathForSuiteName(kSuite);
    for (auto _ : state) {
      struct stat status {};
      benchmark::DoNotOptimize(stat(path.c_str(), &status));
    }
  });
}

void addSeenElsewhere() {
  const std::string name = "preferences/set one, until another process has read it/";
  constexpr int kSets = 500;
  add(name + "tervano",
      [](benchmark::State& state) {
        Audience audience(Way::preferences, 1);
        bool value = get();
        for (auto _ : state) {
          const auto begin = monotonicNanoseconds();
          value = !value;
          set(value);
          const auto end = audience.waitForAll(&Board::Listener::ping, begin);
          state.SetIterationTime(static_cast<double>(end - begin) / 1e9);
        }
      })
      ->UseManualTime()
      ->Iterations(kSets)
      ->Unit(benchmark::kMicrosecond);
  add(name + "floor rename over a file, eventfd",
      [](benchmark::State& state) {
        Audience audience(Way::eventfd, 1);
        const Data bytes = preferencesFile();
        for (auto _ : state) {
          const auto begin = monotonicNanoseconds();
          replaceFile(homePath("floor"), bytes);
          audience.count(&Board::Listener::pingDescriptor);
          const auto end = audience.waitForAll(&Board::Listener::ping, begin);
          state.SetIterationTime(static_cast<double>(end - begin) / 1e9);
        }
      })
      ->UseManualTime()
      ->Iterations(kSets)
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace

void addPreferencesBenchmarks() {
  addSetting();
  addReading();
  addSeenElsewhere();
}

}  // namespace tervano::bench
