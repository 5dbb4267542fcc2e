#include "platform/error.h"

#include <system_error>

namespace tervano {

Error posixError(int code, const std::string& what) {
  return Error{"POSIX", code, what + ": " + std::generic_category().message(code)};
}

}  // namespace tervano
