#include "tools/defaults/settings_schemas.h"

namespace tervano {

namespace {

std::vector<std::string> takeStrings(gchar** strings) {
  std::vector<std::string> result;
  for (gchar** string = strings; *string != nullptr; ++string) result.emplace_back(*string);
  g_strfreev(strings);
  return result;
}

}  // namespace

std::vector<std::string> SettingsSchema::keys() const {
  return takeStrings(g_settings_schema_list_keys(schema.get()));
}

std::vector<SettingsSchema> installedSettingsSchemas() {
  std::vector<SettingsSchema> schemas;
  GSettingsSchemaSource* const source = g_settings_schema_source_get_default();
  // Null when no folder of the system holds schemas.
  if (source == nullptr) return schemas;
  gchar** fixed = nullptr;
  gchar** relocatable = nullptr;
  g_settings_schema_source_list_schemas(source, TRUE, &fixed, &relocatable);
  for (gchar** names : {fixed, relocatable}) {
    for (auto& identifier : takeStrings(names)) {
      SettingsSchema found;
      found.schema.reset(g_settings_schema_source_lookup(source, identifier.c_str(), TRUE));
      if (found.schema == nullptr) continue;
      const gchar* const path = g_settings_schema_get_path(found.schema.get());
      found.path = path == nullptr ? "" : path;
      found.identifier = std::move(identifier);
      schemas.push_back(std::move(found));
    }
  }
  return schemas;
}

}  // namespace tervano
