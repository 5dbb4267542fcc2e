// Whatever the binary reader takes, the writer writes again, and it reads back equal.

#include <cstdlib>

#include "archive/platform_exception.h"
#include "archive/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  tervano::Value value;
  try {
    value = tervano::binaryPropertyListWithData({bytes, size});
  } catch (const tervano::PlatformException&) {
    return 0;
  }
  const tervano::Data written = tervano::binaryDataWithPropertyList(value);
  // Sharing is not written again, so a list may have become larger than what is read.
  if (written.size() > 1 << 20) return 0;
  const tervano::Value again = tervano::binaryPropertyListWithData(written);
  if (!(again == value)) std::abort();
  if (tervano::binaryDataWithPropertyList(again) != written) std::abort();
  return 0;
}
