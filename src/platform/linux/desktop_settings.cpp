#include "platform/linux/desktop_settings.h"

#include <gio/gio.h>

#include <memory>

#include "platform/linux/glib_handles.h"
#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

struct SchemaUnref {
  void operator()(GSettingsSchema* schema) const { g_settings_schema_unref(schema); }
};
using SchemaPtr = std::unique_ptr<GSettingsSchema, SchemaUnref>;

}  // namespace

std::vector<std::string> settingsList(const std::string& schema, const std::string& key) {
  GSettingsSchemaSource* source = g_settings_schema_source_get_default();
  if (source == nullptr) return {};
  const SchemaPtr found(g_settings_schema_source_lookup(source, schema.c_str(), TRUE));
  // Asking for what is not declared would end the process.
  if (!found || g_settings_schema_get_path(found.get()) == nullptr ||
      g_settings_schema_has_key(found.get(), key.c_str()) == FALSE) {
    return {};
  }
  const GObjectPtr<GSettings> settings(g_settings_new_full(found.get(), nullptr, nullptr));
  const GVariantPtr value(g_settings_get_value(settings.get(), key.c_str()));
  if (g_variant_is_of_type(value.get(), G_VARIANT_TYPE_STRING_ARRAY) == FALSE) return {};
  std::vector<std::string> texts;
  for (gsize i = 0; i < g_variant_n_children(value.get()); ++i) {
    const GVariantPtr text(g_variant_get_child_value(value.get(), i));
    texts.emplace_back(g_variant_get_string(text.get(), nullptr));
  }
  return texts;
}

std::optional<std::string> configFileValue(const std::string& name, const std::string& group,
                                           const std::string& key) {
  const GKeyFilePtr file(g_key_file_new());
  const std::string path = configHomeFolder() + "/" + name;
  if (g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_NONE, nullptr) == FALSE) {
    return std::nullopt;
  }
  const GCharPtr value(g_key_file_get_value(file.get(), group.c_str(), key.c_str(), nullptr));
  return value ? std::optional<std::string>(value.get()) : std::nullopt;
}

}  // namespace tervano
