#include "platform/linux/event_sound.h"

#include <dlfcn.h>

#include <cstdint>
#include <memory>

namespace tervano {

namespace {

constexpr char kLibrary[] = "libcanberra.so.0";

// The part of the library's interface that is used here; results below 0 are errors.
struct SoundLibrary {
  using Context = void;
  using Properties = void;
  using Finished = void (*)(Context* context, std::uint32_t id, int error, void* userdata);

  int (*contextCreate)(Context** context) = nullptr;
  int (*contextPlayFull)(Context* context, std::uint32_t id, Properties* properties,
                         Finished finished, void* userdata) = nullptr;
  int (*propertiesCreate)(Properties** properties) = nullptr;
  int (*propertiesSet)(Properties* properties, const char* key, const char* value) = nullptr;
  int (*propertiesDestroy)(Properties* properties) = nullptr;

  // Null when it is not there as expected.
  static const SoundLibrary* shared() {
    static const SoundLibrary* const library = load();
    return library;
  }

 private:
  template <typename Function>
  static bool find(void* handle, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(handle, name));
    return function != nullptr;
  }
  static const SoundLibrary* load() {
    void* const handle = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return nullptr;
    static SoundLibrary library;
    const bool isWhole = find(handle, "ca_context_create", library.contextCreate) &&
                         find(handle, "ca_context_play_full", library.contextPlayFull) &&
                         find(handle, "ca_proplist_create", library.propertiesCreate) &&
                         find(handle, "ca_proplist_sets", library.propertiesSet) &&
                         find(handle, "ca_proplist_destroy", library.propertiesDestroy);
    return isWhole ? &library : nullptr;
  }
};

void didEnd(SoundLibrary::Context* /*context*/, std::uint32_t /*id*/, int /*error*/,
            void* userdata) {
  const std::unique_ptr<std::function<void()>> ended(static_cast<std::function<void()>*>(userdata));
  (*ended)();
}

// One for the process, kept to its end: sounds may still be heard.
SoundLibrary::Context* soundContext(const SoundLibrary& library) {
  static SoundLibrary::Context* const context = [&library] {
    SoundLibrary::Context* made = nullptr;
    return library.contextCreate(&made) < 0 ? nullptr : made;
  }();
  return context;
}

}  // namespace

bool playEventSound(const std::string& name, std::function<void()> ended) {
  const auto* const library = SoundLibrary::shared();
  auto* const context = library == nullptr ? nullptr : soundContext(*library);
  SoundLibrary::Properties* properties = nullptr;
  if (context == nullptr || library->propertiesCreate(&properties) < 0) return false;
  auto owned = std::make_unique<std::function<void()>>(std::move(ended));
  const bool plays = library->propertiesSet(properties, "event.id", name.c_str()) >= 0 &&
                     library->propertiesSet(properties, "event.description", "Tervano") >= 0 &&
                     library->propertiesSet(properties, "application.name", "Tervano") >= 0 &&
                     library->propertiesSet(properties, "media.role", "event") >= 0 &&
                     library->contextPlayFull(context, 0, properties, didEnd, owned.get()) >= 0;
  library->propertiesDestroy(properties);
  // Otherwise the end of the sound takes it.
  if (plays) static_cast<void>(owned.release());
  return plays;
}

}  // namespace tervano
