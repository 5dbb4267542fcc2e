#include "tools/images/codecs/full_prepare.h"

#include <array>
#include <utility>

#include "tools/images/codecs/exif.h"

namespace tervano {

namespace {

// What a format takes as it is.
struct Taken {
  bool gray = false;
  bool alpha = false;
  bool deep = false;
  bool cmyk = false;
  bool profile = false;
};

Taken takenBy(PictureFormat format) {
  switch (format) {
    case PictureFormat::jpeg:
      return {true, false, false, true, true};
    case PictureFormat::png:
    case PictureFormat::jp2:
      return {true, true, true, false, true};
    case PictureFormat::tiff:
    case PictureFormat::pdf:
      return {true, true, true, true, true};
    case PictureFormat::gif:
      return {false, true, false, false, false};
    case PictureFormat::bmp:
      return {true, false, false, false, false};
    case PictureFormat::webp:
    // The encoder of Debian 12 fails on AVIF pictures of 10 bits.
    case PictureFormat::avif:
      return {false, true, false, false, true};
    case PictureFormat::heic:
      return {false, true, true, false, true};
  }
  return {};
}

// The steps of one picture, each of which replaces it.
class Preparation {
 public:
  Preparation(LoadedPicture& picture, const Taken& taken, const InputStream& file)
      : picture_(picture), taken_(taken), file_(file) {}

  void run() {
    turn();
    step(vips_image_decode);
    makeNumbersWhole();
    dropOddBands();
    chooseColours();
    if (hasAlpha() && !taken_.alpha) layOnWhite();
    if (isDeep() && !taken_.deep) {
      step(vips_cast, VIPS_FORMAT_UCHAR, "shift", TRUE);
      setInterpretation();
    }
    // From here on the notes tell it.
    vips_image_remove(image(), VIPS_META_ICC_NAME);
  }

 private:
  VipsImage* image() const { return picture_.image.get(); }
  bool isDeep() const { return vips_image_get_format(image()) == VIPS_FORMAT_USHORT; }
  bool hasAlpha() const { return vips_image_hasalpha(image()) != FALSE; }
  bool isCmyk() const { return vips_image_get_interpretation(image()) == VIPS_INTERPRETATION_CMYK; }
  int colours() const { return vips_image_get_bands(image()) - (hasAlpha() ? 1 : 0); }

  template <typename Operation, typename... Arguments>
  void step(Operation operation, Arguments... arguments) {
    VipsImage* out = nullptr;
    if (call(operation, &out, arguments...) != 0) failWithVips(file_);
    picture_.image.reset(out);
  }
  template <typename... Arguments>
  int call(int (*operation)(VipsImage*, VipsImage**, ...), VipsImage** out,
           Arguments... arguments) {
    return operation(image(), out, arguments..., nullptr);
  }
  template <typename First, typename... Arguments>
  int call(int (*operation)(VipsImage*, VipsImage**, First, ...), VipsImage** out, First first,
           Arguments... arguments) {
    return operation(image(), out, first, arguments..., nullptr);
  }
  int call(int (*operation)(VipsImage*, VipsImage**), VipsImage** out) {
    return operation(image(), out);
  }

  void turn() {
    if (picture_.animated) return;
    PictureNotes& notes = picture_.notes;
    if (picture_.orientation != 1) {
      // Rows of the file become columns, so all of them are needed.
      picture_.image.reset([this] {
        VipsImage* const copy = vips_image_copy_memory(image());
        if (copy == nullptr) failWithVips(file_);
        return copy;
      }());
      VipsImage* marked = nullptr;
      if (vips_copy(image(), &marked, nullptr) != 0) failWithVips(file_);
      picture_.image.reset(marked);
      vips_image_set_int(marked, VIPS_META_ORIENTATION, picture_.orientation);
      step(vips_autorot);
      constexpr int kFirstSideways = 5;
      if (picture_.orientation >= kFirstSideways && notes.density) {
        std::swap(notes.density->across, notes.density->down);
      }
      makeXmpUpright(notes.xmp);
    }
    makeExifUpright(notes.exif, static_cast<std::uint32_t>(vips_image_get_width(image())),
                    static_cast<std::uint32_t>(vips_image_get_height(image())));
  }

  // Other numbers than those of 8 and 16 bits, which no format here takes.
  void makeNumbersWhole() {
    switch (vips_image_get_interpretation(image())) {
      case VIPS_INTERPRETATION_LAB:
      case VIPS_INTERPRETATION_LABS:
      case VIPS_INTERPRETATION_LABQ:
      case VIPS_INTERPRETATION_LCH:
      case VIPS_INTERPRETATION_CMC:
      case VIPS_INTERPRETATION_XYZ:
      case VIPS_INTERPRETATION_YXY:
      case VIPS_INTERPRETATION_HSV:
      case VIPS_INTERPRETATION_scRGB:
        step(vips_colourspace, vips_band_format_is8bit(vips_image_get_format(image())) != FALSE
                                   ? VIPS_INTERPRETATION_sRGB
                                   : VIPS_INTERPRETATION_RGB16);
        picture_.notes.profile.clear();
        break;
      default:
        break;
    }
    switch (vips_image_get_format(image())) {
      case VIPS_FORMAT_UCHAR:
      case VIPS_FORMAT_USHORT:
        break;
      case VIPS_FORMAT_CHAR:
        step(vips_cast, VIPS_FORMAT_UCHAR);
        break;
      case VIPS_FORMAT_SHORT:
        step(vips_cast, VIPS_FORMAT_USHORT);
        break;
      case VIPS_FORMAT_UINT:
      case VIPS_FORMAT_INT:
        step(vips_cast, VIPS_FORMAT_USHORT, "shift", TRUE);
        break;
      default:
        // By custom, numbers with a point go from black 0 to white 1.
        scaleByOne(UINT16_MAX);
        step(vips_cast, VIPS_FORMAT_USHORT);
        break;
    }
    setInterpretation();
  }

  void scaleByOne(double white) {
    VipsImage* out = nullptr;
    if (vips_linear1(image(), &out, white, 0, nullptr) != 0) failWithVips(file_);
    picture_.image.reset(out);
  }

  // By the number of bands and bits.
  void setInterpretation() {
    if (isCmyk() && vips_image_get_bands(image()) >= 4) return;
    const bool gray = vips_image_get_bands(image()) < 3;
    step(vips_copy, "interpretation",
         gray ? (isDeep() ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W)
              : (isDeep() ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB));
  }

  void dropOddBands() {
    const int most = isCmyk() ? 5 : vips_image_get_bands(image()) < 3 ? 2 : 4;
    if (vips_image_get_bands(image()) > most) step(vips_extract_band, 0, "n", most);
  }

  void chooseColours() {
    Data& profile = picture_.notes.profile;
    const Colour colour = isCmyk() ? Colour::cmyk : colours() == 1 ? Colour::gray : Colour::rgb;
    const bool fits = profileFits(profile, colour);
    const bool taken = (colour != Colour::cmyk || taken_.cmyk) &&
                       (colour != Colour::gray || taken_.gray) && (!fits || taken_.profile);
    if (!fits) profile.clear();
    if (taken) return;
    if (!(fits || colour == Colour::cmyk) || !transformByProfile(colour)) {
      step(vips_colourspace, isDeep() ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB);
    }
    profile.clear();
  }

  // False when the profile cannot be used.
  bool transformByProfile(Colour colour) {
    if (picture_.notes.profile.empty()) {
      vips_image_remove(image(), VIPS_META_ICC_NAME);
    } else {
      vips_image_set_blob_copy(image(), VIPS_META_ICC_NAME, picture_.notes.profile.data(),
                               picture_.notes.profile.size());
    }
    VipsImage* out = nullptr;
    if (vips_icc_transform(image(), &out, "srgb", "embedded", TRUE, "input_profile",
                           colour == Colour::cmyk ? "cmyk" : "srgb", "intent", VIPS_INTENT_RELATIVE,
                           "depth", isDeep() ? 16 : 8, nullptr) != 0) {
      vips_error_clear();
      return false;
    }
    picture_.image.reset(out);
    setInterpretation();
    return true;
  }

  void layOnWhite() {
    const double white = isDeep() ? 65535 : 255;
    VipsArrayDouble* const background = vips_array_double_newv(1, white);
    VipsImage* out = nullptr;
    const int failed =
        vips_flatten(image(), &out, "background", background, "max_alpha", white, nullptr);
    vips_area_unref(VIPS_AREA(background));
    if (failed != 0) failWithVips(file_);
    picture_.image.reset(out);
  }

  LoadedPicture& picture_;
  Taken taken_;
  const InputStream& file_;
};

}  // namespace

void prepare(LoadedPicture& picture, PictureFormat format, const InputStream& file) {
  Preparation(picture, takenBy(format), file).run();
}

PictureShape shapeOf(const LoadedPicture& picture) {
  VipsImage* const image = picture.image.get();
  PictureShape shape;
  shape.width = static_cast<std::uint32_t>(vips_image_get_width(image));
  shape.height = static_cast<std::uint32_t>(vips_image_get_height(image));
  shape.alpha = vips_image_hasalpha(image) != FALSE;
  shape.bits = vips_image_get_format(image) == VIPS_FORMAT_USHORT ? 16 : 8;
  const int colours = vips_image_get_bands(image) - (shape.alpha ? 1 : 0);
  shape.colour = colours == 1 ? Colour::gray : colours == 3 ? Colour::rgb : Colour::cmyk;
  return shape;
}

}  // namespace tervano
