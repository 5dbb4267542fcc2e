#pragma once

#include "tools/images/codecs/streams.h"

namespace tervano {

// The colour profile in the header of a JPEG 2000 file (ISO/IEC 15444-1, annex I), which the codec
// behind the picture library passes over.

// Empty when the file has none.
Data profileOfJp2(InputStream& file);

// Puts a profile in place of the file's own statement of its colour space. The file is complete and
// was written by us. False when its header has no such statement or it cannot be rewritten.
bool insertProfileIntoJp2(OutputStream& file, const Data& profile);

}  // namespace tervano
