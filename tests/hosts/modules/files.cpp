#include "tests/hosts/modules/files.h"

#include TERVANO_MANAGER

namespace tervano::test {

namespace {

struct File {
  GObject parent;
  GFile* location;
  gboolean isDirectory;
  char* targetURI;
};
struct FileClass {
  GObjectClass parent;
};

File* of(gpointer object) {
  return static_cast<File*>(object);
}

char* uriOf(const File* file) {
  return file->location == nullptr ? g_strdup("") : g_file_get_uri(file->location);
}

void finalizeFile(GObject* object) {
  g_clear_object(&of(object)->location);
  g_free(of(object)->targetURI);
  static_cast<GObjectClass*>(g_type_class_peek(G_TYPE_OBJECT))->finalize(object);
}

void initFileInfo(gpointer data, gpointer /*data*/) {
  auto* const interface = static_cast<Manager::FileInfoInterface*>(data);
  interface->get_location = [](Manager::FileInfo* file) -> GFile* {
    GFile* const location = of(file)->location;
    return location == nullptr ? nullptr : G_FILE(g_object_ref(location));
  };
  interface->is_directory = [](Manager::FileInfo* file) { return of(file)->isDirectory; };
  interface->get_uri = [](Manager::FileInfo* file) { return uriOf(of(file)); };
#ifdef THUNARX_TYPE_FILE_INFO
  interface->get_file_info = [](Manager::FileInfo* file) -> GFileInfo* {
    if (of(file)->targetURI == nullptr) return nullptr;
    GFileInfo* const information = g_file_info_new();
    g_file_info_set_attribute_string(information, G_FILE_ATTRIBUTE_STANDARD_TARGET_URI,
                                     of(file)->targetURI);
    return information;
  };
#else
  interface->get_string_attribute = [](Manager::FileInfo* file, const char* name) -> char* {
    return g_strcmp0(name, "name") == 0 ? g_file_get_basename(of(file)->location) : nullptr;
  };
  interface->get_activation_uri = [](Manager::FileInfo* file) {
    return of(file)->targetURI == nullptr ? uriOf(of(file)) : g_strdup(of(file)->targetURI);
  };
#endif
}

GType fileType() {
  static const GType type = [] {
    const GType made = g_type_register_static_simple(
        G_TYPE_OBJECT, "TervanoTestFile", sizeof(FileClass),
        [](gpointer type, gpointer) { static_cast<GObjectClass*>(type)->finalize = finalizeFile; },
        sizeof(File), nullptr, static_cast<GTypeFlags>(0));
    const GInterfaceInfo interface { initFileInfo, nullptr, nullptr };
    g_type_add_interface_static(made, Manager::fileInfoType(), &interface);
    return made;
  }();
  return type;
}

}  // namespace

GType typeOfFiles() {
  return fileType();
}

GObject* newFile(GFile* location, bool isDirectory) {
  auto* const file = static_cast<GObject*>(g_object_new(fileType(), nullptr));
  of(file)->location = location;
  of(file)->isDirectory = isDirectory ? TRUE : FALSE;
  return file;
}

GObject* newRecentFile(const std::string& targetURI) {
  GObject* const file = newFile(g_file_new_for_uri("recent:///one"), false);
  of(file)->targetURI = g_strdup(targetURI.c_str());
  return file;
}

Files& Files::addMany(const std::string& folder, int count) {
  for (int i = 0; i < count; ++i) {
    const std::string name = folder + "/" + std::to_string(i) + (i % 3 == 0 ? ".txt" : "");
    list_ = g_list_prepend(list_, newLocalFile(name, i % 3 == 1));
  }
  return *this;
}

}  // namespace tervano::test
