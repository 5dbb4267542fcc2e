#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/uniform_types.h"

namespace tervano {

class DesktopTypes;

// Uniform types from a compiled-in table of the published system types (uniform_type_data.h),
// extended by the desktop's shared MIME database (Shared MIME-info Database specification: the
// globs2, aliases and subclasses files below XDG_DATA_HOME and XDG_DATA_DIRS).
//
// Three kinds of identifiers:
// - those of the built-in table;
// - "org.freedesktop.mime." and a MIME type with "." for "/", for an extension that only the MIME
//   database knows and a type that the table has no name for: "org.freedesktop.mime.image.x-lwo";
// - dynamic ones for every other extension: "dyn.a" and the extension's bytes, ASCII letters in
// lower
//   case, in base32hex digits (RFC 4648, lower case, no padding). The same on every machine; the
//   empty extension is "dyn.a". They conform to public.data (and so to public.item) only.
//
// Reading takes no lock and touches no disk; until loadDesktopTypes() has ended, the built-in table
// answers alone.
class UniformTypeTable : public UniformTypes {
 public:
  UniformTypeTable();
  ~UniformTypeTable() override;

  // Reads the MIME database, once per object: a program calls it at its start, a module from a
  // background thread. Blocking; any thread. A missing or damaged database adds nothing.
  void loadDesktopTypes();

  std::string preferredIdentifierForExtension(std::string_view extension) const override;
  bool conformsTo(std::string_view identifier, std::string_view type) const override;
  std::vector<std::string> conformanceOf(std::string_view identifier) const override;
  bool isDeclared(std::string_view identifier) const override;

 private:
  std::once_flag loaded_;
  std::unique_ptr<const DesktopTypes> desktopTypesOwner_;
  // Null until they are loaded.
  std::atomic<const DesktopTypes*> desktopTypes_{nullptr};
};

// The dynamic identifier of an extension, see UniformTypeTable.
std::string dynamicIdentifierForExtension(std::string_view extension);

}  // namespace tervano
