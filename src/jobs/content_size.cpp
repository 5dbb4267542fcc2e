#include "jobs/content_size.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "archive/url.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/tree_walk.h"

namespace tervano {

namespace {

class SizeCounter : public TreeVisitor {
 public:
  explicit SizeCounter(const CancelToken& cancel) : cancel_(cancel) {}

  bool visitItem(const TreeItem& item) override {
    struct stat status {};
    if (fstatat(item.folder(), item.name().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(status.st_mode)) {
      size_ += static_cast<std::uint64_t>(status.st_size);
    }
    return !cancel_.isCancelled();
  }
  bool leaveFolder(const TreeItem& /*item*/) override { return !cancel_.isCancelled(); }
  bool visitMount(const TreeItem& /*item*/) override { return true; }
  bool fail(const TreeItem& /*item*/, int /*code*/) override { return true; }

  std::uint64_t size() const { return size_; }

 private:
  const CancelToken& cancel_;
  std::uint64_t size_ = 0;
};

}  // namespace

std::uint64_t contentSizeOf(const std::vector<std::string>& paths, const CancelToken& cancel) {
  SizeCounter counter(cancel);
  for (const auto& path : paths) {
    const std::string folder = deletingLastPathComponent(path);
    const Descriptor parent(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (parent) walkTree(parent.get(), lastPathComponent(path), path, counter);
  }
  return counter.size();
}

}  // namespace tervano
