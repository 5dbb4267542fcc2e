#include "tools/images/picture_format.h"

#include <limits>

namespace tervano {

namespace {

struct Word {
  std::string_view text;
  PictureFormat format;
};

// The first word of a format is the platform's.
constexpr Word kWords[] = {
    {"jpeg", PictureFormat::jpeg},
    {"jpg", PictureFormat::jpeg},
    {"public.jpeg", PictureFormat::jpeg},
    {"png", PictureFormat::png},
    {"public.png", PictureFormat::png},
    {"tiff", PictureFormat::tiff},
    {"tif", PictureFormat::tiff},
    {"public.tiff", PictureFormat::tiff},
    {"gif", PictureFormat::gif},
    {"com.compuserve.gif", PictureFormat::gif},
    {"bmp", PictureFormat::bmp},
    {"com.microsoft.bmp", PictureFormat::bmp},
    {"jp2", PictureFormat::jp2},
    {"jpeg2000", PictureFormat::jp2},
    {"public.jpeg-2000", PictureFormat::jp2},
    {"webp", PictureFormat::webp},
    {"org.webmproject.webp", PictureFormat::webp},
    {"heic", PictureFormat::heic},
    {"heif", PictureFormat::heic},
    {"public.heic", PictureFormat::heic},
    {"public.heif", PictureFormat::heic},
    {"avif", PictureFormat::avif},
    {"public.avif", PictureFormat::avif},
    {"pdf", PictureFormat::pdf},
    {"com.adobe.pdf", PictureFormat::pdf},
};

constexpr char lowered(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) return false;
  for (std::size_t index = 0; index < left.size(); ++index) {
    if (lowered(left[index]) != lowered(right[index])) return false;
  }
  return true;
}

}  // namespace

std::string_view wordOf(PictureFormat format) {
  for (const Word& word : kWords) {
    if (word.format == format) return word.text;
  }
  return {};
}

std::optional<PictureFormat> formatOfWord(std::string_view word) {
  for (const Word& known : kWords) {
    if (equalsIgnoringCase(known.text, word)) return known.format;
  }
  return std::nullopt;
}

std::string listOfWords() {
  std::string list;
  for (const PictureFormat format : kPictureFormats) {
    if (!list.empty()) list += format == kPictureFormats.back() ? " and " : ", ";
    list += wordOf(format);
  }
  return list;
}

std::uint32_t largestSide(PictureFormat format) {
  switch (format) {
    case PictureFormat::jpeg:
      return 65500;
    case PictureFormat::gif:
      return 65535;
    case PictureFormat::webp:
      return 16383;
    case PictureFormat::heic:
    case PictureFormat::avif:
      return 65535;
    default:
      return std::numeric_limits<std::int32_t>::max();
  }
}

}  // namespace tervano
