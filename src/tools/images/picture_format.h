#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tervano {

// The formats in which the image tool can write a picture, as far as the machine has the codec.
enum class PictureFormat { jpeg, png, tiff, gif, bmp, jp2, webp, heic, avif, pdf };

inline constexpr std::array kPictureFormats{
    PictureFormat::jpeg, PictureFormat::png, PictureFormat::tiff, PictureFormat::gif,
    PictureFormat::bmp,  PictureFormat::jp2, PictureFormat::webp, PictureFormat::heic,
    PictureFormat::avif, PictureFormat::pdf,
};

// The platform's word for a format: "jpeg", "png", ...
std::string_view wordOf(PictureFormat format);

// The format that a word names: the platform's word, the usual file name extension or the uniform
// type identifier, without regard to case. Nil for any other word.
std::optional<PictureFormat> formatOfWord(std::string_view word);

// All words as the part of a sentence: "jpeg, png, ... and pdf".
std::string listOfWords();

// The longest side in pixels that a file of the format can have.
std::uint32_t largestSide(PictureFormat format);

}  // namespace tervano
