// Whatever the XML reader takes, both writers write again, and it reads back equal.

#include <cstdlib>

#include "archive/platform_exception.h"
#include "archive/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  tervano::Value value;
  try {
    value = tervano::XMLPropertyListWithData({bytes, size});
  } catch (const tervano::PlatformException&) {
    return 0;
  }
  const tervano::Data xml = tervano::XMLDataWithPropertyList(value);
  if (!(tervano::XMLPropertyListWithData(xml) == value)) std::abort();
  const tervano::Data binary = tervano::binaryDataWithPropertyList(value);
  if (!(tervano::binaryPropertyListWithData(binary) == value)) std::abort();
  return 0;
}
