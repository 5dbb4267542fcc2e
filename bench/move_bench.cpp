#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "actions/tv_move_to_action.h"
#include "bench/support.h"
#include "bench/topics.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "prefs/tv_user_defaults.h"

namespace tervano::bench {

namespace {

namespace fs = std::filesystem;

constexpr double kLongestRun = 300;
constexpr std::size_t kFileSize = 4096;

struct Case {
  std::string name;
  int count;
  std::string from;
  std::string to;
  // Nothing but names changes.
  bool isRenamed = false;
  std::size_t fileSize = kFileSize;
};

std::vector<std::string> namesOf(const Case& which) {
  std::vector<std::string> names;
  for (int i = 0; i < which.count; ++i) names.push_back("Picture " + std::to_string(i) + ".jpg");
  return names;
}

std::vector<std::string> pathsIn(const std::string& folder, const Case& which) {
  std::vector<std::string> paths;
  for (const auto& name : namesOf(which)) paths.push_back(folder + "/" + name);
  return paths;
}

void fill(const Case& which) {
  for (const auto& folder : {which.from, which.to}) {
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  const std::string content(which.fileSize, 'x');
  for (const auto& path : pathsIn(which.from, which)) {
    std::ofstream(path, std::ios::binary) << content;
  }
}

// The source filled and the target empty, with no write of an earlier run under way.
void prepare(const Case& which) {
  const std::string filled = which.to + "/" + namesOf(which).front();
  if (which.isRenamed && fs::exists(filled)) {
    fs::remove(which.from);
    fs::rename(which.to, which.from);
    fs::create_directory(which.to);
    return;
  }
  fill(which);
  if (!which.isRenamed) sync();
}

void requireMoved(const Case& which) {
  const auto count = [](const std::string& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
  };
  if (count(which.from) != 0 || count(which.to) != which.count) {
    throw SetupError("not every file was moved");
  }
}

template <typename Move>
void measure(benchmark::State& state, const Case& which, Move&& move) {
  const auto sources = pathsIn(which.from, which);
  for (auto _ : state) {
    prepare(which);
    const auto begin = monotonicNanoseconds();
    move(sources);
    state.SetIterationTime(static_cast<double>(monotonicNanoseconds() - begin) / 1e9);
    requireMoved(which);
  }
}

void moveByAction(const std::string& target, const std::vector<std::string>& sources) {
  const auto move = action<TVMoveToAction>();
  move->setDestinationURL(Url::fileURLWithPath(target, true));
  std::optional<bool> outcome;
  move->runWithFilePaths(
      sources, [&outcome](bool success, const std::optional<Error>&) { outcome = success; });
  platform().runLoop->runMainLoopUntil([&outcome] { return outcome.has_value(); }, kLongestRun);
  if (outcome != true) throw SetupError("the action failed");
}

void moveByProgram(std::vector<std::string> arguments, const std::vector<std::string>& sources,
                   const std::vector<std::string>& last) {
  arguments.insert(arguments.end(), sources.begin(), sources.end());
  arguments.insert(arguments.end(), last.begin(), last.end());
  waitForSuccess(start(arguments), arguments[0]);
}

void renameAll(const std::string& target, const std::vector<std::string>& sources) {
  for (const auto& source : sources) {
    const std::string path = target + source.substr(source.rfind('/'));
    if (renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0) {
      throw SetupError("renameat2 failed");
    }
  }
}

void copyAll(const std::string& target, const std::vector<std::string>& sources, bool flushes) {
  for (const auto& source : sources) {
    const std::string path = target + source.substr(source.rfind('/'));
    const int in = open(source.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const bool copied = sendfile(out, in, nullptr, kFileSize) == kFileSize;
    const bool flushed = !flushes || fsync(out) == 0;
    close(in);
    close(out);
    if (!copied || !flushed || unlink(source.c_str()) != 0) throw SetupError("the copy failed");
  }
}

template <typename Move>
void addRole(const Case& which, const std::string& role, Move move) {
  add("move/" + which.name + "/" + role,
      [which, move](benchmark::State& state) {
        measure(state, which,
                [&](const std::vector<std::string>& sources) { move(which.to, sources); });
      })
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

void addPrograms(const Case& which) {
  addRole(which, "tervano", moveByAction);
  addRole(which, "peer mv", [](const std::string& target, const auto& sources) {
    moveByProgram({"mv", "-n", "-t", target}, sources, {});
  });
  addRole(which, "peer gio move", [](const std::string& target, const auto& sources) {
    moveByProgram({"gio", "move"}, sources, {target});
  });
}

void addCopying(const Case& which) {
  addPrograms(which);
  addRole(which, "floor sendfile and unlink",
          [](const std::string& target, const auto& sources) { copyAll(target, sources, false); });
  addRole(which, "floor sendfile, fsync and unlink",
          [](const std::string& target, const auto& sources) { copyAll(target, sources, true); });
}

// A file system of this process's own; false when it may not mount.
bool mountMemory(const std::string& folder) {
  fs::create_directories(folder);
  return unshare(CLONE_NEWNS) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tervano-bench", folder.c_str(), "tmpfs", 0, "size=256m") == 0;
}

}  // namespace

void addMoveBenchmarks() {
  // The desktop of whoever runs this is left alone.
  const auto defaults = TVUserDefaults::create();
  defaults->setDisableActionNotifications(true);
  defaults->setShowFileOnMoveCopyComplete(false);

  const std::string home = std::getenv("HOME");
  const Case renamed{"10000 files, same file system", 10000, home + "/from", home + "/to", true, 0};
  addPrograms(renamed);
  addRole(renamed, "floor renameat2", renameAll);
  const std::string memory = home + "/memory";
  if (!mountMemory(memory)) return;
  addCopying({"1000 files, from disk to memory", 1000, home + "/source", memory + "/to"});
  addCopying({"1000 files, from memory to disk", 1000, memory + "/from", home + "/target"});
}

}  // namespace tervano::bench
