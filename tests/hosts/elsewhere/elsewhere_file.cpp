#include "tests/hosts/elsewhere/elsewhere_file.h"

#include "platform/linux/glib_handles.h"

namespace tervano::test {

namespace {

struct Elsewhere {
  GObject parent;
  char* uri;
  char* path;
};
struct ElsewhereClass {
  GObjectClass parent;
};

int questions = 0;

Elsewhere* elsewhereOf(gpointer file) {
  return static_cast<Elsewhere*>(file);
}

void finalizeElsewhere(GObject* object) {
  g_free(elsewhereOf(object)->uri);
  g_free(elsewhereOf(object)->path);
  static_cast<GObjectClass*>(g_type_class_peek(G_TYPE_OBJECT))->finalize(object);
}

void initElsewhere(gpointer data, gpointer /*data*/) {
  auto* const interface = static_cast<GFileIface*>(data);
  interface->get_path = [](GFile* file) {
    ++questions;
    return g_strdup(elsewhereOf(file)->path);
  };
  interface->get_uri = [](GFile* file) { return g_strdup(elsewhereOf(file)->uri); };
  interface->get_uri_scheme = [](GFile* file) {
    return g_uri_parse_scheme(elsewhereOf(file)->uri);
  };
  interface->has_uri_scheme = [](GFile* file, const char* scheme) {
    const GCharPtr own(g_uri_parse_scheme(elsewhereOf(file)->uri));
    return static_cast<gboolean>(g_strcmp0(scheme, own.get()) == 0);
  };
  interface->is_native = [](GFile*) -> gboolean { return FALSE; };
}

GType elsewhereType() {
  static const GType type = [] {
    const GType made = g_type_register_static_simple(
        G_TYPE_OBJECT, "TervanoTestElsewhere", sizeof(ElsewhereClass),
        [](gpointer type, gpointer) {
          static_cast<GObjectClass*>(type)->finalize = finalizeElsewhere;
        },
        sizeof(Elsewhere), nullptr, static_cast<GTypeFlags>(0));
    const GInterfaceInfo interface { initElsewhere, nullptr, nullptr };
    g_type_add_interface_static(made, G_TYPE_FILE, &interface);
    return made;
  }();
  return type;
}

}  // namespace

GFile* newElsewhereFile(const std::string& uri, const std::string& path) {
  auto* const file = static_cast<Elsewhere*>(g_object_new(elsewhereType(), nullptr));
  file->uri = g_strdup(uri.c_str());
  file->path = g_strdup(path.c_str());
  return reinterpret_cast<GFile*>(file);
}

int pathQuestions() {
  return questions;
}

}  // namespace tervano::test
