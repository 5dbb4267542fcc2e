#include "platform/linux/tool_table.h"

namespace tervano {

std::map<std::string, std::string> toolTable(const Bundle& bundle) {
  return {{"/usr/bin/sips", bundle.pathForAuxiliaryExecutable("tervano-images")},
          {"/usr/bin/defaults", bundle.pathForAuxiliaryExecutable("tervano-defaults")},
          {"/bin/rm", bundle.pathForAuxiliaryExecutable("tervano-remove")}};
}

}  // namespace tervano
