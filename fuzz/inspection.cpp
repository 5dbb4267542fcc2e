// Any keyed archive, whatever its classes.

#include "archive/inspection.h"

#include "archive/platform_exception.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  try {
    tervano::plainValueOfKeyedArchive({bytes, size});
  } catch (const tervano::PlatformException&) {
    return 0;
  }
  return 0;
}
