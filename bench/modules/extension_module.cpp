#include <memory>

#include "actions/register_action_classes.h"
#include "extension/finder_sync.h"
#include "platform/linux/linux_platform.h"

namespace {

class Controller : public tervano::FIFinderSyncController {
 public:
  tervano::SelectedItemsPtr selectedItemURLs() const override { return nullptr; }
  std::optional<tervano::SelectedItem> targetedURL() const override { return std::nullopt; }
  void setDirectoryURLs(const tervano::UrlSet& /*urls*/) override {}
};

}  // namespace

// What a file manager's module does when it is loaded.
extern "C" __attribute__((visibility("default"))) void bench_module_initialize() {
  static auto& registry = *new tervano::ClassRegistry;
  tervano::registerActionClasses(registry);
  tervano::LinuxPlatformOptions options;
  options.classRegistry = &registry;
  tervano::installPlatform(tervano::linuxPlatform(options));
  static auto& extension = *new std::shared_ptr<tervano::FinderSync>(
      tervano::FinderSync::create(std::make_shared<Controller>()));
  static_cast<void>(extension);
}
