#include <array>
#include <random>
#include <unordered_set>

#include "bench/support.h"
#include "bench/topics.h"
#include "extension/finder_sync.h"

namespace tervano::bench {

namespace {

constexpr std::array kExtensions = {"jpg", "png", "gif", "tiff", "heic"};
constexpr unsigned kSeed = 20;

// Pictures of mixed kinds in one folder, no two neighbours alike but by chance.
std::vector<std::string> selectedPaths(int count) {
  std::mt19937 random(kSeed);
  std::vector<std::string> paths;
  for (int i = 0; i < count; ++i) {
    paths.push_back("/home/somebody/Pictures/Summer holiday " + std::to_string(i) + "." +
                    kExtensions[random() % kExtensions.size()]);
  }
  return paths;
}

// A file manager with a selection, which knows what is a folder.
class Controller : public FIFinderSyncController {
 public:
  explicit Controller(const std::vector<std::string>& paths) {
    auto items = std::make_shared<SelectedItems>();
    for (const auto& path : paths) items->push_back({Url::fileURLWithPath(path), false});
    items_ = std::move(items);
  }
  SelectedItemsPtr selectedItemURLs() const override { return items_; }
  std::optional<SelectedItem> targetedURL() const override { return std::nullopt; }
  void setDirectoryURLs(const UrlSet& /*urls*/) override {}

 private:
  SelectedItemsPtr items_;
};

// A quarter without a filter, a half whose filter fits pictures, a quarter whose filter does not.
ActionList filteredActions(int count) {
  ActionList actions = moveActions(count, false);
  for (int i = 0; i < count; ++i) {
    std::optional<std::vector<std::string>> types;
    if (i % 4 == 1) types = {"public.image"};
    if (i % 4 == 2) types = {"public.data", "public.content"};
    if (i % 4 == 3) types = {"public.text"};
    actions[static_cast<std::size_t>(i)]->setFileTypes(types);
  }
  return actions;
}

std::shared_ptr<FinderSync> extensionFor(int files, int actions) {
  auto extension = FinderSync::create(std::make_shared<Controller>(selectedPaths(files)));
  extension->setActionsArray(filteredActions(actions));
  return extension;
}

void addCase(int files, int actions) {
  const std::string name =
      "menu/" + std::to_string(files) + " files, " + std::to_string(actions) + " actions/";
  add(name + "tervano", [files, actions](benchmark::State& state) {
    const auto extension = extensionFor(files, actions);
    for (auto _ : state) {
      benchmark::DoNotOptimize(extension->menuForMenuKind(MenuKind::contextualMenuForItems));
    }
  });
  add(name + "floor hash of the extensions", [files](benchmark::State& state) {
    const auto paths = selectedPaths(files);
    for (auto _ : state) {
      std::unordered_set<std::string_view> extensions;
      for (const std::string_view path : paths) {
        extensions.insert(path.substr(path.rfind('.') + 1));
      }
      benchmark::DoNotOptimize(extensions);
    }
  });
  add(name + "floor copy of the made menu", [files, actions](benchmark::State& state) {
    const Menu made =
        extensionFor(files, actions)->menuForMenuKind(MenuKind::contextualMenuForItems);
    const Menu& items = made.items[0].submenu == nullptr ? made : *made.items[0].submenu;
    for (auto _ : state) {
      Menu copy = items;
      benchmark::DoNotOptimize(copy);
    }
  });
}

}  // namespace

void addMenuBenchmarks() {
  for (const int files : {1, 100, 10000}) {
    for (const int actions : {10, 100, 1000}) addCase(files, actions);
  }
}

}  // namespace tervano::bench
