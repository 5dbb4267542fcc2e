#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <vector>

namespace tervano {

struct SettingsSchemaUnref {
  void operator()(GSettingsSchema* schema) const { g_settings_schema_unref(schema); }
};

// A schema that is installed in this session.
struct SettingsSchema {
  std::string identifier;
  // Begins and ends with "/"; empty for a relocatable schema.
  std::string path;
  std::unique_ptr<GSettingsSchema, SettingsSchemaUnref> schema;

  bool declares(const std::string& name) const {
    return g_settings_schema_has_key(schema.get(), name.c_str()) != FALSE;
  }
  std::vector<std::string> keys() const;
};

std::vector<SettingsSchema> installedSettingsSchemas();

}  // namespace tervano
