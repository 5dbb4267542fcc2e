// Loaded before a program's own libraries, this makes its file system one that does not tell upper
// and lower case apart, for what a script needs of it: asking for a name in any spelling finds the
// entry, and a rename that replaces nothing finds the name taken by the entry itself.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace {

template <typename Function>
Function* real(Function* /*like*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool isThere(const char* path) {
  struct stat status {};
  return real(&fstatat, "fstatat")(AT_FDCWD, path, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

// The path of the entry that is meant; the path itself when there is none.
std::string spelled(const char* path) {
  const std::string whole = path;
  const auto slash = whole.rfind('/');
  if (slash == std::string::npos || isThere(path)) return whole;
  const std::string name = whole.substr(slash + 1);
  DIR* const folder = opendir(whole.substr(0, slash + 1).c_str());
  if (folder == nullptr) return whole;
  std::string found = whole;
  while (const dirent* entry = readdir(folder)) {
    if (strcasecmp(entry->d_name, name.c_str()) == 0) {
      found = whole.substr(0, slash + 1) + entry->d_name;
      break;
    }
  }
  closedir(folder);
  return found;
}

}  // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED int stat(const char* path, struct stat* status) noexcept {
  return real(&stat, "stat")(spelled(path).c_str(), status);
}

EXPORTED int lstat(const char* path, struct stat* status) noexcept {
  return real(&lstat, "lstat")(spelled(path).c_str(), status);
}

EXPORTED int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
  return real(&fstatat, "fstatat")(folder, spelled(path).c_str(), status, flags);
}

EXPORTED int renameat2(int oldFolder, const char* oldPath, int newFolder, const char* newPath,
                       unsigned flags) noexcept {
  const std::string target = spelled(newPath);
  if ((flags & RENAME_NOREPLACE) != 0 && isThere(target.c_str())) {
    errno = EEXIST;
    return -1;
  }
  return real(&renameat2, "renameat2")(oldFolder, spelled(oldPath).c_str(), newFolder,
                                       target.c_str(), flags);
}
