#pragma once

#include <glib-object.h>

#include <memory>

namespace tervano {

struct GObjectUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
// Owns one reference.
template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref>;

struct GFree {
  void operator()(gpointer memory) const { g_free(memory); }
};
using GCharPtr = std::unique_ptr<gchar, GFree>;

struct GErrorFree {
  void operator()(GError* error) const { g_error_free(error); }
};
using GErrorPtr = std::unique_ptr<GError, GErrorFree>;

struct GVariantUnref {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
using GVariantPtr = std::unique_ptr<GVariant, GVariantUnref>;

struct GKeyFileUnref {
  void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};
using GKeyFilePtr = std::unique_ptr<GKeyFile, GKeyFileUnref>;

}  // namespace tervano
