#include <plist/plist.h>

#include <cstring>
#include <map>

#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "bench/support.h"
#include "bench/topics.h"
#include "model/action_list.h"
#include "platform/file_manager.h"
#include "platform/platform.h"
#include "store/tv_actions_manager.h"

namespace tervano::bench {

namespace {

struct Case {
  int count;
  bool withOwnIcons;

  std::string name(const std::string& act) const {
    return "archive/" + act + " " + std::to_string(count) + " actions, " +
           (withOwnIcons ? "icons of their own" : "one icon") + "/";
  }
};

// The bytes of "Actions.plist" as the manager saves it.
const Data& savedList(const Case& which) {
  static std::map<std::pair<int, bool>, Data> saved;
  Data& data = saved[{which.count, which.withOwnIcons}];
  if (data.empty()) {
    const auto manager = TVActionsManager::create();
    manager->updateActions(moveActions(which.count, which.withOwnIcons));
    manager->saveToFile();
    const std::string path = manager->saveURL()->path();
    data = platform().fileManager->contentsAtPath(path).value();
    static_cast<void>(platform().fileManager->removeItemAtPath(path));
  }
  return data;
}

std::string listFile(const Case& which) {
  const std::string path = std::string(std::getenv("HOME")) + "/list-" +
                           std::to_string(which.count) + (which.withOwnIcons ? "-own" : "-one");
  if (!platform().fileManager->fileExistsAtPath(path)) {
    if (platform().fileManager->writeDataToFile(savedList(which), path, false)) {
      throw SetupError("could not write " + path);
    }
  }
  return path;
}

ActionList decode(const Data& data) {
  return actionsOfArray(
      *Unarchiver::unarchiveObjectWithData(data, *platform().classRegistry).getIf<Value::Array>());
}

void setBytes(benchmark::State& state, const Data& data) {
  state.counters["bytes"] = static_cast<double>(data.size());
}

void copyBytes(benchmark::State& state, const Data& data) {
  Data copy(data.size());
  for (auto _ : state) {
    std::memcpy(copy.data(), data.data(), data.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  setBytes(state, data);
}

plist_t parsed(const Data& data) {
  plist_t tree = nullptr;
  plist_from_bin(reinterpret_cast<const char*>(data.data()),
                 static_cast<std::uint32_t>(data.size()), &tree);
  if (tree == nullptr) throw SetupError("libplist could not read the list");
  return tree;
}

void addDecoding(const Case& which) {
  const std::string name = which.name("decode");
  add(name + "tervano", [which](benchmark::State& state) {
    const Data& data = savedList(which);
    for (auto _ : state) benchmark::DoNotOptimize(decode(data));
    setBytes(state, data);
  });
  // Makes the tree of plain values only: no objects, no references followed.
  add(name + "peer libplist parse", [which](benchmark::State& state) {
    const Data& data = savedList(which);
    for (auto _ : state) plist_free(parsed(data));
    setBytes(state, data);
  });
  add(name + "floor memcpy",
      [which](benchmark::State& state) { copyBytes(state, savedList(which)); });
  add(name + "floor read the file", [which](benchmark::State& state) {
    const std::string path = listFile(which);
    for (auto _ : state) benchmark::DoNotOptimize(platform().fileManager->contentsAtPath(path));
    setBytes(state, savedList(which));
  });
}

void addEncoding(const Case& which) {
  const std::string name = which.name("encode");
  // A list that was loaded, which is what a manager saves.
  add(name + "tervano", [which](benchmark::State& state) {
    const ActionList actions = decode(savedList(which));
    for (auto _ : state) {
      benchmark::DoNotOptimize(
          Archiver::archivedDataWithRootObject(arrayOfActions(actions), *platform().classRegistry));
    }
    setBytes(state, savedList(which));
  });
  add(name + "peer libplist write", [which](benchmark::State& state) {
    const plist_t tree = parsed(savedList(which));
    for (auto _ : state) {
      char* bytes = nullptr;
      std::uint32_t length = 0;
      plist_to_bin(tree, &bytes, &length);
      benchmark::DoNotOptimize(bytes);
      plist_to_bin_free(bytes);
    }
    plist_free(tree);
    setBytes(state, savedList(which));
  });
  add(name + "floor memcpy",
      [which](benchmark::State& state) { copyBytes(state, savedList(which)); });
}

}  // namespace

void addArchiveBenchmarks() {
  for (const Case& which : {Case{50, true}, Case{10000, true}, Case{10000, false}}) {
    addDecoding(which);
    addEncoding(which);
  }
}

}  // namespace tervano::bench
