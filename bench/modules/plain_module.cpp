#include <gio/gio.h>

// The least that a module on the file manager's own base library does.
extern "C" __attribute__((visibility("default"))) void bench_module_initialize() {
  GFile* const file = g_file_new_for_path("/");
  g_object_unref(file);
  g_main_context_default();
}
