#include "packing/zip_packer.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <map>
#include <memory>
#include <set>

#include "archive/url.h"
#include "archive/utf.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/tree_walk.h"

namespace tervano {

namespace {

constexpr std::size_t kReadSize = std::size_t{256} * 1024;
// The format counts the bytes of a name in 16 bits.
constexpr std::size_t kLongestArchiveName = 0xffff;
constexpr mode_t kPermissions = 0777;

// The library writes names as the locale of the thread has them, and says so in the archive.
class Utf8Locale {
 public:
  Utf8Locale() : locale_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {
    if (locale_ != nullptr) previous_ = uselocale(locale_);
  }
  Utf8Locale(const Utf8Locale&) = delete;
  Utf8Locale& operator=(const Utf8Locale&) = delete;
  ~Utf8Locale() {
    if (locale_ == nullptr) return;
    uselocale(previous_);
    freelocale(locale_);
  }
  bool isThere() const { return locale_ != nullptr; }

 private:
  locale_t locale_;
  locale_t previous_ = nullptr;
};

// The name in ASCII, different for each name.
std::string respelled(const std::string& name) {
  constexpr char kHexadecimal[] = "0123456789ABCDEF";
  std::string spelled;
  for (const char character : name) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x80 && character != '%') {
      spelled += character;
    } else {
      spelled += {'%', kHexadecimal[byte >> 4], kHexadecimal[byte & 0xf]};
    }
  }
  return spelled;
}

class ZipPacker : public TreeVisitor {
 public:
  ZipPacker(const std::vector<PackedItem>& items, const ArchivePlace& place, WorkObserver& observer,
            PackReport& report)
      : place_(place),
        observer_(observer),
        report_(report),
        zip_(archive_write_new(), archive_write_free),
        entry_(archive_entry_new(), archive_entry_free),
        buffer_(kReadSize) {
    if (zip_ == nullptr || entry_ == nullptr) fail(posixError(ENOMEM, writePhrase()));
    for (const auto& item : items) names_.insert(item.name);
    struct stat status {};
    if (fstat(place.descriptor, &status) != 0) fail(posixError(errno, writePhrase()));
    device_ = status.st_dev;
    inode_ = status.st_ino;
  }

  bool open(const Secret& password) {
    if (error_) return false;
    archive* const zip = zip_.get();
    // The end of the file is not filled up to a block.
    const bool isReady =
        archive_write_set_format_zip(zip) == ARCHIVE_OK &&
        archive_write_set_format_option(zip, "zip", "compression", "deflate") == ARCHIVE_OK &&
        archive_write_set_format_option(zip, "zip", "encryption", "aes256") == ARCHIVE_OK &&
        archive_write_set_bytes_in_last_block(zip, 1) == ARCHIVE_OK &&
        archive_write_set_passphrase(zip, password.text().data()) == ARCHIVE_OK &&
        archive_write_open_fd(zip, place_.descriptor) == ARCHIVE_OK;
    return isReady || failToWrite();
  }

  bool pack(const PackedItem& item) {
    source_ = item.path;
    top_ = item.name;
    const std::string folder = deletingLastPathComponent(item.path);
    const Descriptor parent(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!parent) return fail(posixError(errno, readPhrase(item.path)));
    folders_.clear();
    const std::string name = lastPathComponent(item.path);
    // The walk spells what lies below with this name in front.
    walkTree(parent.get(), name, name, *this);
    return !error_;
  }

  bool close() { return archive_write_close(zip_.get()) == ARCHIVE_OK || failToWrite(); }

  const std::optional<Error>& error() const { return error_; }

  bool enterFolder(int folder, const std::string& path) override {
    if (isStopped()) return false;
    struct stat status {};
    if (fstat(folder, &status) != 0) return fail(posixError(errno, readPhrase(sourceOf(path))));
    const std::string name = nameOf(folder, "../", path);
    folders_[path] = name;
    archive_entry_clear(entry_.get());
    return writeHeader(name + "/", status, path);
  }
  bool visitItem(const TreeItem& item) override {
    if (isStopped()) return false;
    struct stat status {};
    const std::string path = item.path();
    if (fstatat(item.folder(), item.name().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return fail(posixError(errno, readPhrase(sourceOf(path))));
    }
    if (status.st_dev == device_ && status.st_ino == inode_) return true;
    archive_entry_clear(entry_.get());
    if (S_ISREG(status.st_mode)) return packFile(item, path);
    if (S_ISLNK(status.st_mode)) {
      if (item.isTop()) report_.links.push_back(source_);
      return packLink(item, path, status);
    }
    report_.leftOut.push_back(sourceOf(path));
    return true;
  }
  // The folder was written when it was entered.
  bool leaveFolder(const TreeItem& item) override {
    folders_.erase(item.path());
    return true;
  }
  bool visitMount(const TreeItem& item) override {
    Error error = posixError(EBUSY, readPhrase(sourceOf(item.path())));
    error.message = readPhrase(sourceOf(item.path())) + ": another disk is mounted there";
    return fail(std::move(error));
  }
  bool fail(const TreeItem& item, int code) override {
    return fail(posixError(code, readPhrase(sourceOf(item.path()))));
  }

 private:
  std::string writePhrase() const { return "Could not write " + place_.path; }
  static std::string readPhrase(const std::string& path) { return "Could not pack " + path; }

  // The path of an item on the disk, by what the walk calls it.
  std::string sourceOf(const std::string& path) const {
    const auto slash = path.find('/');
    return slash == std::string::npos ? source_ : source_ + path.substr(slash);
  }

  bool fail(Error error) {
    if (!error_) error_ = std::move(error);
    return false;
  }
  bool failToWrite() {
    const int code = archive_errno(zip_.get());
    Error error = posixError(code > 0 ? code : EIO, writePhrase());
    if (code <= 0) {
      const char* const text = archive_error_string(zip_.get());
      error.message = writePhrase() + ": " + (text == nullptr ? "unknown reason" : text);
    }
    return fail(std::move(error));
  }
  bool isStopped() {
    if (!observer_.isCancelled()) return false;
    fail(posixError(ECANCELED, writePhrase()));
    return true;
  }

  // The name in the archive of what the walk calls `path`, which lies in an open folder, reached
  // from it by `way`.
  std::string nameOf(int folder, const std::string& way, const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
      return spelledName(top_, path,
                         [this](const std::string& name) { return !names_.insert(name).second; });
    }
    return folders_[path.substr(0, slash)] + "/" +
           spelledName(path.substr(slash + 1), path, [&](const std::string& name) {
             struct stat status {};
             return fstatat(folder, (way + name).c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
           });
  }
  template <typename Predicate>
  std::string spelledName(const std::string& name, const std::string& path,
                          const Predicate& isTaken) {
    if (isValidUtf8(name)) return name;
    report_.respelled.push_back(sourceOf(path));
    std::string spelled = respelled(name);
    while (isTaken(spelled)) spelled += "_";
    return spelled;
  }

  // The rest of the entry, whose kind-specific parts are set, and its beginning in the archive.
  bool writeHeader(const std::string& name, const struct stat& status, const std::string& path) {
    if (name.size() > kLongestArchiveName) {
      return fail(posixError(ENAMETOOLONG, readPhrase(sourceOf(path))));
    }
    archive_entry* const entry = entry_.get();
    archive_entry_set_pathname(entry, name.c_str());
    archive_entry_set_mode(entry, status.st_mode & (S_IFMT | kPermissions));
    archive_entry_set_mtime(entry, status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
    return archive_write_header(zip_.get(), entry) == ARCHIVE_OK || failToWrite();
  }

  bool packLink(const TreeItem& item, const std::string& path, const struct stat& status) {
    std::string target(PATH_MAX, '\0');
    const ssize_t length =
        readlinkat(item.folder(), item.name().c_str(), target.data(), target.size());
    if (length < 0) return fail(posixError(errno, readPhrase(sourceOf(path))));
    target.resize(static_cast<std::size_t>(length));
    archive_entry_set_symlink(entry_.get(), target.c_str());
    return writeHeader(nameOf(item.folder(), "", path), status, path);
  }

  bool packFile(const TreeItem& item, const std::string& path) {
    const Descriptor file(openat(item.folder(), item.name().c_str(),
                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
      return fail(posixError(errno, readPhrase(sourceOf(path))));
    }
    if (!S_ISREG(status.st_mode)) return failAsChanged(path);
    archive_entry_set_size(entry_.get(), status.st_size);
    if (!writeHeader(nameOf(item.folder(), "", path), status, path)) return false;
    if (!packContents(file.get(), status, path)) return false;
    struct stat after {};
    if (fstat(file.get(), &after) != 0) {
      return fail(posixError(errno, readPhrase(sourceOf(path))));
    }
    const bool isSame = after.st_size == status.st_size &&
                        after.st_mtim.tv_sec == status.st_mtim.tv_sec &&
                        after.st_mtim.tv_nsec == status.st_mtim.tv_nsec;
    if (!isSame) return failAsChanged(path);
    return archive_write_finish_entry(zip_.get()) == ARCHIVE_OK || failToWrite();
  }

  bool packContents(int file, const struct stat& status, const std::string& path) {
    off_t left = status.st_size;
    while (left > 0) {
      if (isStopped()) return false;
      const auto wanted =
          static_cast<std::size_t>(std::min<off_t>(left, static_cast<off_t>(buffer_.size())));
      const ssize_t count = read(file, buffer_.data(), wanted);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return fail(posixError(errno, readPhrase(sourceOf(path))));
      if (count == 0) return failAsChanged(path);
      std::size_t written = 0;
      while (written < static_cast<std::size_t>(count)) {
        const la_ssize_t step = archive_write_data(zip_.get(), buffer_.data() + written,
                                                   static_cast<std::size_t>(count) - written);
        if (step <= 0) return failToWrite();
        written += static_cast<std::size_t>(step);
      }
      left -= count;
      observer_.didProcess(static_cast<std::uint64_t>(count));
    }
    return true;
  }

  bool failAsChanged(const std::string& path) {
    Error error = posixError(EBUSY, "");
    error.message = readPhrase(sourceOf(path)) + ": it changed while it was being read";
    return fail(std::move(error));
  }

  const ArchivePlace& place_;
  WorkObserver& observer_;
  PackReport& report_;
  std::unique_ptr<archive, decltype(&archive_write_free)> zip_;
  std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry_;
  std::vector<char> buffer_;
  // The archive's own file.
  dev_t device_ = 0;
  ino_t inode_ = 0;
  // Those of all items in the archive.
  std::set<std::string> names_;
  // Of the item that is being walked: its path, its name in the archive, and the names in the
  // archive of its folders by what the walk calls them.
  std::string source_;
  std::string top_;
  std::map<std::string, std::string> folders_;
  std::optional<Error> error_;
};

}  // namespace

std::optional<Error> packZip(const std::vector<PackedItem>& items, const ArchivePlace& archive,
                             const Secret& password, WorkObserver& observer, PackReport& report) {
  const Utf8Locale locale;
  if (!locale.isThere()) return posixError(errno, "There is no locale C.UTF-8");
  ZipPacker packer(items, archive, observer, report);
  if (packer.open(password) && std::all_of(items.begin(), items.end(), [&](const PackedItem& item) {
        return packer.pack(item);
      })) {
    packer.close();
  }
  return packer.error();
}

}  // namespace tervano
