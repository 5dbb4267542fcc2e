#include "actions/chunk_text.h"

#include "archive/utf.h"

namespace tervano {

std::string chunkText(const Data& chunk) {
  std::string text(chunk.begin(), chunk.end());
  return isValidUtf8(text) ? text : "(null)";
}

}  // namespace tervano
