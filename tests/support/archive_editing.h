#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/value.h"

namespace tervano::test {

// The archive with one encoded object changed: the first, in the order of the archive, that has
// the key `having`.
Data withEditedObject(const Data& archive, std::string_view having,
                      const std::function<void(Value::Dictionary& object)>& edit);

// The keys of that object as they stand in the file, "$class" included.
std::vector<std::string> encodedKeys(const Data& archive, std::string_view having);

// That object's fields; references are UIDs into the archive.
Value::Dictionary encodedObject(const Data& archive, std::string_view having);

}  // namespace tervano::test
