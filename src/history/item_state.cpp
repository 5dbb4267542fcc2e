#include "history/item_state.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <sstream>

#include "archive/url.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/tree_walk.h"

namespace tervano {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
// The magic numbers that <linux/magic.h> lacks.
constexpr std::int64_t kZfsMagic = 0x2FC12FC1;
constexpr std::int64_t kBcachefsMagic = 0xCA451A4E;
// Where an item keeps its number for as long as it lives.
constexpr std::array<std::int64_t, 8> kStableFileSystems{
    EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC,       BTRFS_SUPER_MAGIC, TMPFS_MAGIC,
    F2FS_SUPER_MAGIC, OVERLAYFS_SUPER_MAGIC, kZfsMagic,         kBcachefsMagic};

bool numbersAreStable(int folder) {
  struct statfs fileSystem {};
  return fstatfs(folder, &fileSystem) == 0 &&
         std::find(kStableFileSystems.begin(), kStableFileSystems.end(),
                   static_cast<std::int64_t>(fileSystem.f_type)) != kStableFileSystems.end();
}

std::int64_t modificationOf(const struct stat& status) {
  return status.st_mtim.tv_sec * kNanosecondsPerSecond + status.st_mtim.tv_nsec;
}

class ContentsSummary : public TreeVisitor {
 public:
  explicit ContentsSummary(ItemState& state) : state_(state) {}

  bool visitItem(const TreeItem& item) override {
    add(item);
    return true;
  }
  bool leaveFolder(const TreeItem& item) override {
    if (!item.isTop()) add(item);
    return true;
  }
  bool visitMount(const TreeItem& item) override { return fail(item, EXDEV); }
  bool fail(const TreeItem& /*item*/, int code) override {
    code_ = code;
    return false;
  }
  int code() const { return code_; }

 private:
  void add(const TreeItem& item) {
    struct stat status {};
    if (fstatat(item.folder(), item.name().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return;
    ++state_.count;
    if (S_ISREG(status.st_mode)) state_.size += static_cast<std::uint64_t>(status.st_size);
    state_.modified = std::max(state_.modified, modificationOf(status));
  }

  ItemState& state_;
  int code_ = 0;
};

}  // namespace

std::string ItemState::text() const {
  std::ostringstream text;
  text << type << ' ' << inode << ' ' << size << ' ' << modified << ' ' << count;
  return text.str();
}

std::optional<ItemState> ItemState::ofText(const std::string& text) {
  std::istringstream words(text);
  ItemState state;
  words >> state.type >> state.inode >> state.size >> state.modified >> state.count;
  if (!words) return std::nullopt;
  return state;
}

std::optional<ItemState> itemStateAt(const std::string& path, ItemDepth depth) {
  const std::string name = lastPathComponent(path);
  const Descriptor folder(
      open(deletingLastPathComponent(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat status {};
  if (!folder || fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return std::nullopt;
  }
  ItemState state;
  state.modified = modificationOf(status);
  if (numbersAreStable(folder.get())) state.inode = status.st_ino;
  if (S_ISREG(status.st_mode)) {
    state.type = '-';
    state.size = static_cast<std::uint64_t>(status.st_size);
  } else if (S_ISLNK(status.st_mode)) {
    state.type = 'l';
  } else if (S_ISDIR(status.st_mode)) {
    state.type = 'd';
    if (depth == ItemDepth::withContents) {
      ContentsSummary summary(state);
      walkTree(folder.get(), name, path, summary);
      if (summary.code() != 0) {
        errno = summary.code();
        return std::nullopt;
      }
    }
  }
  return state;
}

bool isSameItem(const ItemState& then, const ItemState& now, ItemDepth depth) {
  const bool numbersAreKnown = then.inode != 0 && now.inode != 0;
  if (numbersAreKnown && then.inode != now.inode) return false;
  if (numbersAreKnown && then.type == 'd' && now.type == 'd' && depth == ItemDepth::itself) {
    return true;
  }
  return isSameContent(then, now);
}

bool isSameContent(const ItemState& then, const ItemState& now) {
  return then.type == now.type && then.size == now.size && then.modified == now.modified &&
         then.count == now.count;
}

}  // namespace tervano
