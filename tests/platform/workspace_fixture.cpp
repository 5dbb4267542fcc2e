#include "tests/platform/workspace_fixture.h"

namespace tervano::test {

std::string workspacePeerPath() {
  return WORKSPACE_PEER;
}

}  // namespace tervano::test
