#include "jobs/content_size.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "archive/url.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/tree_walk.h"

namespace tervano {

namespace {

// The unit of stat's st_blocks.
constexpr std::uint64_t kBlockUnit = 512;

std::uint64_t lengthOf(const struct stat& status) {
  return static_cast<std::uint64_t>(status.st_size);
}

std::uint64_t roomOf(const struct stat& status) {
  return static_cast<std::uint64_t>(status.st_blocks) * kBlockUnit;
}

class SizeCounter : public TreeVisitor {
 public:
  using Measure = std::uint64_t (*)(const struct stat& status);

  SizeCounter(Measure measure, const CancelToken& cancel) : measure_(measure), cancel_(cancel) {}

  bool visitItem(const TreeItem& item) override {
    struct stat status {};
    if (fstatat(item.folder(), item.name().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(status.st_mode)) {
      size_ += measure_(status);
    }
    return !cancel_.isCancelled();
  }
  bool leaveFolder(const TreeItem& /*item*/) override { return !cancel_.isCancelled(); }
  bool visitMount(const TreeItem& /*item*/) override { return true; }
  bool fail(const TreeItem& /*item*/, int /*code*/) override { return true; }

  std::uint64_t size() const { return size_; }

 private:
  const Measure measure_;
  const CancelToken& cancel_;
  std::uint64_t size_ = 0;
};

std::uint64_t sizeOf(const std::vector<std::string>& paths, SizeCounter::Measure measure,
                     const CancelToken& cancel) {
  SizeCounter counter(measure, cancel);
  for (const auto& path : paths) {
    const std::string folder = deletingLastPathComponent(path);
    const Descriptor parent(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (parent) walkTree(parent.get(), lastPathComponent(path), path, counter);
  }
  return counter.size();
}

}  // namespace

std::uint64_t contentSizeOf(const std::vector<std::string>& paths, const CancelToken& cancel) {
  return sizeOf(paths, lengthOf, cancel);
}

std::uint64_t allocatedSizeOf(const std::vector<std::string>& paths, const CancelToken& cancel) {
  return sizeOf(paths, roomOf, cancel);
}

}  // namespace tervano
