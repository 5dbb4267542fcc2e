#include "tests/hosts/modules/module.h"

#include <gmodule.h>

#include <fstream>
#include <set>
#include <stdexcept>

#include TERVANO_MANAGER

namespace tervano::test {

namespace {

struct TypeModule {
  GTypeModule parent;
  GModule* library;
};
struct TypeModuleClass {
  GTypeModuleClass parent;
};

template <typename Function>
Function entry(GModule* library, const char* name) {
  gpointer found = nullptr;
  if (g_module_symbol(library, (std::string(Manager::kEntries) + name).c_str(), &found) == FALSE) {
    throw std::runtime_error(g_module_error());
  }
  return reinterpret_cast<Function>(found);
}

gboolean load(GTypeModule* module) {
  GModule*& library = reinterpret_cast<TypeModule*>(module)->library;
  library = g_module_open(Module::path().c_str(), G_MODULE_BIND_LAZY);
  if (library == nullptr) throw std::runtime_error(g_module_error());
  entry<void (*)(GTypeModule*)>(library, "initialize")(module);
  return TRUE;
}

void unload(GTypeModule* module) {
  GModule* const library = reinterpret_cast<TypeModule*>(module)->library;
  entry<void (*)()>(library, "shutdown")();
  g_module_close(library);
}

#ifdef THUNARX_TYPE_PROVIDER_PLUGIN
GType registerType(ThunarxProviderPlugin* plugin, GType parent, const gchar* name,
                   const GTypeInfo* information, GTypeFlags flags) {
  return g_type_module_register_type(G_TYPE_MODULE(plugin), parent, name, information, flags);
}

void addInterface(ThunarxProviderPlugin* plugin, GType type, GType interfaceType,
                  const GInterfaceInfo* information) {
  g_type_module_add_interface(G_TYPE_MODULE(plugin), type, interfaceType, information);
}

void initPlugin(gpointer interface, gpointer /*data*/) {
  static_cast<ThunarxProviderPluginIface*>(interface)->register_type = registerType;
  static_cast<ThunarxProviderPluginIface*>(interface)->add_interface = addInterface;
}

// The interface wants a property, which nobody asks for.
void ignoreProperty(GObject* /*object*/, guint /*id*/, GValue* /*value*/, GParamSpec* /*spec*/) {}
#endif

void initClass(gpointer type, gpointer /*data*/) {
  static_cast<GTypeModuleClass*>(type)->load = load;
  static_cast<GTypeModuleClass*>(type)->unload = unload;
#ifdef THUNARX_TYPE_PROVIDER_PLUGIN
  auto* const object = static_cast<GObjectClass*>(type);
  object->get_property = ignoreProperty;
  object->set_property = [](GObject*, guint, const GValue*, GParamSpec*) {};
  g_object_class_override_property(object, 1, "resident");
#endif
}

GType typeModuleType() {
  static const GType type = [] {
    const GType made = g_type_register_static_simple(
        G_TYPE_TYPE_MODULE, "TervanoTestModule", sizeof(TypeModuleClass),
        reinterpret_cast<GClassInitFunc>(initClass), sizeof(TypeModule), nullptr,
        static_cast<GTypeFlags>(0));
#ifdef THUNARX_TYPE_PROVIDER_PLUGIN
    const GInterfaceInfo plugin{initPlugin, nullptr, nullptr};
    g_type_add_interface_static(made, THUNARX_TYPE_PROVIDER_PLUGIN, &plugin);
#endif
    return made;
  }();
  return type;
}

// A type module lives for ever.
GTypeModule* typeModule() {
  static auto* const module = static_cast<GTypeModule*>(g_object_new(typeModuleType(), nullptr));
  return module;
}

}  // namespace

Module::Module() : module_(typeModule()) {
  if (g_type_module_use(module_) == FALSE) throw std::runtime_error("the module is not loaded");
}

Module::~Module() {
  g_type_module_unuse(module_);
}

GObject* Module::newProvider() const {
  const GType* types = nullptr;
  int count = 0;
  GModule* const library = reinterpret_cast<TypeModule*>(module_)->library;
  entry<void (*)(const GType**, int*)>(library, "list_types")(&types, &count);
  if (count == 0) return nullptr;
  if (count != 1) throw std::runtime_error("the module lists several types");
  return static_cast<GObject*>(g_object_new(types[0], nullptr));
}

std::string Module::path() {
  return TERVANO_MODULE;
}

std::string Module::loadedLibraries() {
  std::set<std::string> paths;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    const auto path = line.find('/');
    if (path != std::string::npos && line.find(".so", path) != std::string::npos) {
      paths.insert(line.substr(path));
    }
  }
  std::string lines;
  for (const auto& path : paths) lines += path + "\n";
  return lines;
}

}  // namespace tervano::test
