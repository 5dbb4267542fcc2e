#pragma once

#include <string>

#include "platform/linux/secret.h"

namespace tervano::test {

// A secret of at most 1,023 bytes with that text.
Secret secretOf(const std::string& text);

}  // namespace tervano::test
