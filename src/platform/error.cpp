#include "platform/error.h"

#include <cstring>

namespace tervano {

Error posixError(int code, const std::string& what) {
  // In English, whatever the locale: logs and notifications of actions have it too.
  const char* const description = strerrordesc_np(code);
  return Error{
      "POSIX", code,
      what + ": " +
          (description == nullptr ? "Unknown error " + std::to_string(code) : description)};
}

}  // namespace tervano
