#include "platform/linux/desktop_image_codec.h"

#include <dlfcn.h>

#include "platform/linux/installed_bundle.h"
#include "platform/log.h"

namespace tervano {

namespace {

constexpr char kPicturesModule[] = "pictures.so";
constexpr char kEntryPoint[] = "tervanoPictureCodec";

}  // namespace

const ImageCodec* DesktopImageCodec::library() const {
  std::call_once(loaded_, [this] {
    const std::string path = modulePath_.empty()
                                 ? InstalledBundle().pathForAuxiliaryExecutable(kPicturesModule)
                                 : modulePath_;
    // Never unloaded: the libraries behind it register types that must stay.
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* entry = module == nullptr ? nullptr : dlsym(module, kEntryPoint);
    if (entry == nullptr) {
      const char* why = dlerror();
      log(std::string("Could not load the picture library: ") + (why == nullptr ? path : why));
      return;
    }
    library_ = reinterpret_cast<const ImageCodec* (*)()>(entry)();
  });
  return library_;
}

std::optional<std::pair<int, int>> DesktopImageCodec::pixelSize(const Data& encoded) const {
  const ImageCodec* codec = library();
  return codec == nullptr ? std::nullopt : codec->pixelSize(encoded);
}

bool DesktopImageCodec::isVector(const Data& encoded) const {
  const ImageCodec* codec = library();
  return codec != nullptr && codec->isVector(encoded);
}

std::optional<Bitmap> DesktopImageCodec::draw(const Data& encoded, int width, int height) const {
  const ImageCodec* codec = library();
  return codec == nullptr ? std::nullopt : codec->draw(encoded, width, height);
}

Data DesktopImageCodec::TIFFRepresentation(const Bitmap& bitmap) const {
  const ImageCodec* codec = library();
  return codec == nullptr ? Data() : codec->TIFFRepresentation(bitmap);
}

Data DesktopImageCodec::PNGRepresentation(const Bitmap& bitmap) const {
  const ImageCodec* codec = library();
  return codec == nullptr ? Data() : codec->PNGRepresentation(bitmap);
}

}  // namespace tervano
