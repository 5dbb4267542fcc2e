// Archives of a small registry: what is decoded is archived again and decodes to as much.

#include <cstdlib>

#include "archive/platform_exception.h"
#include "tests/archive/sample_classes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  tervano::Value root;
  try {
    root = tervano::Unarchiver::unarchiveObjectWithData({bytes, size},
                                                        tervano::testing::sampleRegistry());
  } catch (const tervano::PlatformException&) {
    return 0;
  }
  tervano::Data written;
  try {
    written = tervano::testing::archived(root);
  } catch (const tervano::PlatformException&) {
    // Objects may be nested deeper as Values than as the entries that they share.
    return 0;
  }
  if (written.size() > 1 << 20) return 0;
  const tervano::Value again = tervano::testing::unarchived(written);
  if (tervano::testing::archived(again) != written) std::abort();
  return 0;
}
