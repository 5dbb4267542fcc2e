#pragma once

#include <string>

namespace tervano {

// One item that a walk meets: a name in an open folder. Lives, and keeps the folder open, only
// during the call that it is handed to.
class TreeItem {
 public:
  // `path` is what messages call the item at the top of the walk; of all others it is the path of
  // their folder.
  TreeItem(int folder, const std::string& name, const std::string& path, bool isTop)
      : folder_(folder), name_(name), path_(path), isTop_(isTop) {}

  int folder() const { return folder_; }
  const std::string& name() const { return name_; }
  std::string path() const { return isTop_ ? path_ : path_ + "/" + name_; }
  // The item at which the walk began.
  bool isTop() const { return isTop_; }

 private:
  int folder_;
  const std::string& name_;
  const std::string& path_;
  bool isTop_;
};

// What is done on a walk. Each function answers whether the walk goes on.
class TreeVisitor {
 public:
  virtual ~TreeVisitor() = default;
  // A folder that is about to be opened, after it was found not to be mounted.
  virtual void willEnterFolder(const TreeItem& item) { static_cast<void>(item); }
  // Comes before everything that lies in the folder.
  virtual bool enterFolder(int folder, const std::string& path) {
    static_cast<void>(folder);
    static_cast<void>(path);
    return true;
  }
  // Anything but a folder.
  virtual bool visitItem(const TreeItem& item) = 0;
  // A folder, after all that lies in it. Not called for a folder that failed or is mounted.
  virtual bool leaveFolder(const TreeItem& item) = 0;
  // A folder on which something is mounted. The walk does not enter it.
  virtual bool visitMount(const TreeItem& item) = 0;
  // A folder that cannot be entered or read, or a top item that is not there; `code` is the errno.
  virtual bool fail(const TreeItem& item, int code) = 0;
};

// Walks the item `name` of the open folder `parent`, a folder with all that lies in it: in each
// folder first the items, then the subfolders. Never follows a symbolic link and never crosses into
// another mount. Trees of any depth, with a bounded number of descriptors and no recursion. What
// somebody else removes meanwhile is passed over. When a folder that the walk is in is moved
// elsewhere, the walk never goes on from there: it fails (ESTALE) and ends.
void walkTree(int parent, const std::string& name, const std::string& path, TreeVisitor& visitor);

}  // namespace tervano
