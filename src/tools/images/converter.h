#pragma once

#include <string>
#include <vector>

#include "tools/images/picture_format.h"

namespace tervano {

// One picture to convert: open descriptors of the picture, at its start, and of an empty file that
// can be read, written and sought in. The converter reads and writes them and closes neither.
struct Conversion {
  int input = -1;
  int output = -1;
  PictureFormat format = PictureFormat::jpeg;
};

struct ConversionResult {
  // declined: not a picture for this converter, and nothing was written.
  enum class Kind { done, declined, failed };

  static ConversionResult done() { return {Kind::done, {}}; }
  static ConversionResult declined() { return {Kind::declined, {}}; }
  // `reason` is the end of a sentence, without its full stop.
  static ConversionResult failed(std::string reason) { return {Kind::failed, std::move(reason)}; }

  Kind kind = Kind::done;
  std::string reason;
};

// What a codec module offers. A module is loaded once a process and stays.
//
// What every converter keeps: the picture is upright without any further turning; the colour
// profile, capture data (Exif), XMP and resolution go along where the format has a place for them;
// transparency becomes white and 16 bits become 8 where it has none.
class PictureConverter {
 public:
  virtual ConversionResult convert(const Conversion& conversion) const = 0;
  // The formats that this machine's codecs can write.
  virtual std::vector<PictureFormat> writableFormats() const = 0;

 protected:
  ~PictureConverter() = default;
};

// The common pairs by their own libraries, which load in a moment; and everything else.
constexpr char kQuickModule[] = "images-quick.so";
constexpr char kFullModule[] = "images-full.so";

// Loads a module that lies beside the running program. Nil, with the reason, when it cannot.
const PictureConverter* loadConverter(const char* module, std::string& reason);

// What a module exports under kConverterEntryPoint.
using ConverterEntryPoint = const PictureConverter* (*)();
constexpr char kConverterEntryPoint[] = "tervanoPictureConverter";

}  // namespace tervano
