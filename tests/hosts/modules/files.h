#pragma once

#include <gio/gio.h>

#include <string>

namespace tervano::test {

// A file as the file manager tells an extension about it: where it is, and whether it is a folder.
// A new object, a `FileInfo` of the manager's; takes the reference of `location`, which may be
// null.
GObject* newFile(GFile* location, bool isDirectory);
inline GObject* newLocalFile(const std::string& path, bool isDirectory = false) {
  return newFile(g_file_new_for_path(path.c_str()), isDirectory);
}
// An entry of the list of files that were used lately, which stands for that URL.
GObject* newRecentFile(const std::string& targetURI);

// The type of all of these.
GType typeOfFiles();

// Owns a list of such files.
class Files {
 public:
  Files() = default;
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;
  ~Files() { g_list_free_full(list_, g_object_unref); }

  Files& add(GObject* file) {
    list_ = g_list_append(list_, file);
    return *this;
  }
  // Files, folders and names without extension, a third each; none of them exists.
  Files& addMany(const std::string& folder, int count);
  GList* list() const { return list_; }

 private:
  GList* list_ = nullptr;
};

}  // namespace tervano::test
