#include "hosts/common/icon_files.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>

#include <set>
#include <vector>

#include "model/tv_action_group.h"
#include "platform/bundle.h"
#include "platform/clock.h"
#include "platform/file_manager.h"
#include "platform/image_codec.h"
#include "platform/linux/directory_cursor.h"
#include "platform/linux/glib_handles.h"
#include "platform/linux/user_folders.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr char kFolder[] = "icons";
constexpr char kExtension[] = ".png";
// Twice the 16 points of a menu, for dense screens.
constexpr int kPixels = 32;
constexpr std::int64_t kKeptForSeconds = 86'400;  // A day.

std::vector<ImagePtr> iconsOf(const ActionList& actions) {
  std::vector<ImagePtr> icons;
  for (const auto& action : actions) {
    if (action->icon() != nullptr) icons.push_back(action->icon());
    const auto* group = dynamic_cast<const TVActionGroup*>(action.get());
    if (group == nullptr || !group->workingActionsArray()) continue;
    for (const auto& member : *group->workingActionsArray()) {
      if (member->icon() != nullptr) icons.push_back(member->icon());
    }
  }
  return icons;
}

std::string fileNameOf(const Data& content) {
  const GCharPtr digest(
      g_compute_checksum_for_data(G_CHECKSUM_SHA256, content.data(), content.size()));
  return std::string(digest.get()) + kExtension;
}

// The folder of the pictures, made when it is missing. Any thread.
class PictureFolder {
 public:
  PictureFolder() {
    for (const auto& candidate : RuntimeFolders::usable()) {
      folder_ = RuntimeFolders::open(candidate, kFolder, true);
      path_ = candidate.path() + "/" + kFolder + "/";
      if (folder_) return;
    }
  }

  // The file's path; empty when it could not be drawn or written.
  std::string add(const Image& image) {
    if (!folder_) return {};
    const DataPtr content = image.TIFFRepresentation();
    if (content == nullptr || content->empty()) return {};
    const std::string name = fileNameOf(*content);
    needed_.insert(name);
    // A file that is there is whole; a fresh date keeps it.
    if (utimensat(folder_.get(), name.c_str(), nullptr, AT_SYMLINK_NOFOLLOW) == 0) {
      return path_ + name;
    }
    const Data picture = platform().imageCodec->PNGRepresentation(image.draw(kPixels, kPixels));
    if (picture.empty()) return {};
    if (platform().fileManager->writeDataToFile(picture, path_ + name, true)) return {};
    return path_ + name;
  }

  void removeOld() const {
    if (!folder_) return;
    const std::int64_t now = platform().clock->now();
    for (const auto& name : platform().fileManager->contentsOfDirectoryAtPath(path_)) {
      struct stat status {};
      if (needed_.contains(name) ||
          fstatat(folder_.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
          !S_ISREG(status.st_mode) || now - status.st_mtim.tv_sec <= kKeptForSeconds) {
        continue;
      }
      unlinkat(folder_.get(), name.c_str(), 0);
    }
  }

 private:
  Descriptor folder_;
  std::string path_;
  std::set<std::string> needed_;
};

}  // namespace

void IconFiles::prepare(const std::optional<ActionList>& actions) {
  const std::uint64_t generation = ++generation_;
  paths_.clear();
  std::vector<ImagePtr> drawn;
  for (auto& icon : iconsOf(actions.value_or(ActionList()))) {
    if (icon->name().empty()) drawn.push_back(std::move(icon));
  }
  if (queue_ == nullptr) queue_ = platform().runLoop->createSerialQueue("icons");
  queue_->dispatchAsync([weak = weak_from_this(), generation, drawn = std::move(drawn)] {
    PictureFolder folder;
    Paths paths;
    for (const auto& icon : drawn) {
      if (paths.contains(icon)) continue;
      std::string path = folder.add(*icon);
      if (!path.empty()) paths.emplace(icon, std::move(path));
    }
    folder.removeOld();
    if (drawn.empty()) return;
    platform().runLoop->dispatchAsyncOnMainQueue([weak, generation, paths = std::move(paths)] {
      const auto self = weak.lock();
      if (self == nullptr || self->generation_ != generation) return;
      self->paths_ = paths;
      self->changed_();
    });
  });
}

std::string IconFiles::pathOf(const ImagePtr& image) const {
  if (image == nullptr) return {};
  if (const auto found = paths_.find(image); found != paths_.end()) return found->second;
  if (image->name().empty()) return {};
  const auto [drawing, isNew] = drawings_.try_emplace(image->name());
  if (isNew) {
    drawing->second = platform().bundle->pathForImageNamed(image->name()).value_or("");
  }
  return drawing->second;
}

}  // namespace tervano
