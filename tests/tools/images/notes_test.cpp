#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <map>

#include "tests/tools/images/images_test.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;

std::string bigEndian(std::uint32_t value, int size) {
  std::string bytes;
  for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
    bytes += static_cast<char>(value >> shift);
  }
  return bytes;
}

// A JPEG with capture data in front that only tells how it lies.
std::string lyingBy(const std::string& jpeg, int orientation) {
  std::string exif("Exif\0\0MM\0*\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0", 25);
  exif += static_cast<char>(orientation);
  exif += std::string(6, '\0');
  return jpeg.substr(0, 2) + "\xff\xe1" +
         bigEndian(static_cast<std::uint32_t>(exif.size()) + 2, 2) + exif + jpeg.substr(2);
}

// A profile (ICC.1:2001-04, three-component matrix-based) like sRGB in which the first channel is
// blue and the third one red.
std::string swappedProfile() {
  struct Tag {
    std::string name;
    std::string content;
  };
  const auto point = [](double x, double y, double z) {
    std::string content("XYZ \0\0\0\0", 8);
    for (const double value : {x, y, z}) {
      content += bigEndian(static_cast<std::uint32_t>(std::lround(value * 65536)), 4);
    }
    return content;
  };
  const std::string curve = std::string("curv\0\0\0\0\0\0\0\x01\x02\x33\0\0", 16);
  std::string description("desc\0\0\0\0\0\0\0\x08swapped\0", 20);
  description += std::string(78, '\0') + std::string(2, '\0');
  const std::vector<Tag> tags{
      {"desc", description},
      {"cprt", std::string("text\0\0\0\0none\0\0\0\0", 16)},
      {"wtpt", point(0.9642, 1, 0.8249)},
      {"rXYZ", point(0.1431, 0.0606, 0.7141)},
      {"gXYZ", point(0.3851, 0.7169, 0.0971)},
      {"bXYZ", point(0.4361, 0.2225, 0.0139)},
      {"rTRC", curve},
      {"gTRC", curve},
      {"bTRC", curve},
  };
  std::string table = bigEndian(static_cast<std::uint32_t>(tags.size()), 4);
  std::string contents;
  const std::size_t begin = 128 + 4 + tags.size() * 12;
  for (const Tag& tag : tags) {
    table += tag.name + bigEndian(static_cast<std::uint32_t>(begin + contents.size()), 4) +
             bigEndian(static_cast<std::uint32_t>(tag.content.size()), 4);
    contents += tag.content;
  }
  std::string header = bigEndian(static_cast<std::uint32_t>(begin + contents.size()), 4);
  header += std::string(4, '\0') + bigEndian(0x02400000, 4) + "mntrRGB XYZ ";
  header += std::string(12, '\0') + "acsp" + std::string(28, '\0');
  header += bigEndian(0xF6D6, 4) + bigEndian(0x10000, 4) + bigEndian(0xD32D, 4);
  header.resize(128);
  return header + table + contents;
}

}  // namespace

TEST_F(ImagesTest, APictureIsUprightInEveryTarget) {
  const std::string jpeg = contentOf(sampleAs("plain.jpg", {"-quality", "95"}));
  for (int orientation = 1; orientation <= 8; ++orientation) {
    const std::string name = std::to_string(orientation);
    const std::string source = at(name + ".jpg");
    write(source, lyingBy(jpeg, orientation));
    const int width = orientation < 5 ? kWidth : kHeight;
    const int height = orientation < 5 ? kHeight : kWidth;
    magick({source, "-auto-orient", "-strip", at(name + ".upright.png")});
    std::vector<std::string> results{at(name + ".upright.png")};
    for (const std::string target : {"png", "bmp"}) {
      results.push_back(at(name + "." + target));
      expectConverted(target, source, results.back());
    }
    expectConverted("pdf", source, at(name + ".pdf"));
    outputOf({"/usr/bin/pdftoppm", "-r", "72", "-singlefile", "-png", at(name + ".pdf"),
              at(name + ".pdf")});
    results.push_back(at(name + ".pdf.png"));
    const auto pictures = readAll(results, width, height);
    EXPECT_EQ(likeness(pictures[0], pictures[1]), 100) << orientation;
    EXPECT_GE(likeness(pictures[0], pictures[2]), 45) << orientation;
    EXPECT_GE(likeness(pictures[0], pictures[3]), 25) << orientation;
  }
}

TEST_F(ImagesTest, ATiffIsUprightInEveryTarget) {
  sampleAs("plain.tiff");
  for (const std::string orientation : {"3", "6", "7"}) {
    const std::string source = at("lying.tiff");
    write(source, contentOf(at("plain.tiff")));
    outputOf({"/usr/bin/tiffset", "-s", "274", orientation, source});
    const int width = orientation == "3" ? kWidth : kHeight;
    const int height = orientation == "3" ? kHeight : kWidth;
    magick({source, "-auto-orient", "-strip", at("upright.png")});
    const Pixels upright = read(at("upright.png"), width, height);
    for (const std::string target : {"png", "tiff", "jp2", "bmp"}) {
      const std::string result = at(orientation + "." + target);
      expectConverted(target, source, result);
      EXPECT_EQ(likeness(read(result, width, height), upright), 100) << orientation << target;
    }
  }
}

TEST_F(ImagesTest, NoViewerTurnsAnUprightPictureAgain) {
  write(at("lying.jpg"), lyingBy(contentOf(sampleAs("plain.jpg")), 6));
  outputOf({"/usr/bin/exiftool", "-q", "-overwrite_original", "-XMP-tiff:Orientation#=6",
            "-ExifImageWidth=64", "-ExifImageHeight=48", at("lying.jpg")});
  std::vector<std::string> list{"/usr/bin/exiftool",
                                "-q",
                                "-s3",
                                "-n",
                                "-p",
                                "$FileName $ImageSize ${Orientation;} ${ExifImageWidth;}"};
  for (const std::string target : {"jpeg", "png", "tiff", "webp", "heic", "avif"}) {
    expectConverted(target, at("lying.jpg"), at("result." + target));
    list.push_back(at("result." + target));
  }
  // Both the capture data and XMP tell it.
  list.insert(list.begin() + 1, "-a");
  EXPECT_EQ(outputOf(list),
            "result.jpeg 48 64 1 48\nresult.png 48 64 1 48\nresult.tiff 48 64 1 48\n"
            "result.webp 48 64 1 48\nresult.heic 48 64 1 48\nresult.avif 48 64 1 48\n");
  for (const std::string target : {"jpeg", "png", "tiff", "webp", "heic", "avif"}) {
    EXPECT_THAT(outputOf({"/usr/bin/exiftool", "-s3", "-n", "-XMP-tiff:Orientation",
                          at("result." + target)}),
                "1\n")
        << target;
  }
}

TEST_F(ImagesTest, AThumbnailOfATurnedPictureIsDropped) {
  sampleAs("plain.jpg");
  sampleAs("small.jpg", {"-resize", "16x12"});
  const std::string fill = "-ThumbnailImage<=" + at("small.jpg");
  for (const std::string orientation : {"1", "6"}) {
    const std::string source = at(orientation + ".jpg");
    outputOf(
        {"/usr/bin/exiftool", "-q", "-o", source, "-Orientation#=" + orientation, at("plain.jpg")});
    outputOf({"/usr/bin/exiftool", "-q", "-overwrite_original", fill, source});
    expectConverted("jpeg", source, at(orientation + ".result.jpg"));
    const std::string thumbnail =
        outputOf({"/usr/bin/exiftool", "-b", "-ThumbnailImage", at(orientation + ".result.jpg")});
    EXPECT_EQ(thumbnail, orientation == "1" ? contentOf(at("small.jpg")) : "");
  }
}

TEST_F(ImagesTest, CaptureDataGoesAlong) {
  sampleAs("source.jpg");
  outputOf({"/usr/bin/exiftool", "-q", "-overwrite_original", "-Make=ACME", "-Model=One",
            "-DateTimeOriginal=2020:01:02 03:04:05", "-ExposureTime=1/250", "-GPSLatitude=10.5",
            "-GPSLatitudeRef=N", "-Artist=Somebody", "-XMP-dc:Subject=harbour",
            "-Photoshop:CopyrightFlag=true", at("source.jpg")});
  const auto notesOf = [this](const std::string& path) {
    return outputOf({"/usr/bin/exiftool", "-s3", "-n", "-Make", "-Model", "-DateTimeOriginal",
                     "-ExposureTime", "-GPSLatitude", "-EXIF:Artist", "-XMP-dc:Subject", path});
  };
  const std::string notes = "ACME\nOne\n2020:01:02 03:04:05\n0.004\n10.5\nSomebody\nharbour\n";
  ASSERT_EQ(notesOf(at("source.jpg")), notes);
  for (const std::string target : {"jpeg", "png", "tiff", "webp", "heic", "avif"}) {
    expectConverted(target, at("source.jpg"), at("result." + target));
    EXPECT_EQ(notesOf(at("result." + target)), notes) << target;
  }
  for (const std::string source : {"tiff", "png", "webp", "heic", "avif"}) {
    expectConverted("jpeg", at("result." + source), at(source + ".again.jpg"));
    EXPECT_EQ(notesOf(at(source + ".again.jpg")), notes) << source;
  }
  expectConverted("webp", at("result.tiff"), at("tiff.webp"));
  EXPECT_EQ(notesOf(at("tiff.webp")), notes);
  for (const std::string result : {"result.jpeg", "result.tiff", "tiff.again.jpg"}) {
    EXPECT_EQ(outputOf({"/usr/bin/exiftool", "-s3", "-n", "-Photoshop:CopyrightFlag", at(result)}),
              "1\n")
        << result;
  }
}

TEST_F(ImagesTest, TheColourProfileGoesAlong) {
  const std::string profile = swappedProfile();
  write(at("swapped.icc"), profile);
  for (const std::string source : {"source.png", "source.jpg", "source.tiff"}) {
    sampleAs(source, {"-profile", at("swapped.icc")});
    for (const std::string target : {"jpeg", "png", "tiff", "jp2", "webp", "heic", "avif"}) {
      const std::string result = at(source + "." + target);
      expectConverted(target, at(source), result);
      EXPECT_EQ(outputOf({"/usr/bin/exiftool", "-b", "-ICC_Profile", result}), profile) << result;
    }
    expectConverted("pdf", at(source), at(source + ".pdf"));
    EXPECT_THAT(outputOf({"/usr/bin/pdfimages", "-list", at(source + ".pdf")}), HasSubstr("icc"))
        << source;
  }
  for (const std::string source : {"jp2", "webp", "heic", "avif"}) {
    const std::string result = at("from-" + source + ".png");
    expectConverted("png", at("source.png." + source), result);
    EXPECT_EQ(outputOf({"/usr/bin/exiftool", "-b", "-ICC_Profile", result}), profile) << source;
  }
  EXPECT_EQ(read(at("source.png.jp2")).bytes, read(at("source.png")).bytes);
}

TEST_F(ImagesTest, WhereTheTargetHasNoProfileTheColoursAreConverted) {
  write(at("swapped.icc"), swappedProfile());
  magick({"-size", "64x48", "xc:#ff0000", "-profile", at("swapped.icc"), at("red.png")});
  for (const std::string target : {"bmp", "gif"}) {
    expectConverted(target, at("red.png"), at("result." + target));
    const Pixels pixels = read(at("result." + target));
    EXPECT_LT(pixels.at(30, 20)[0], 40) << target;
    EXPECT_GT(pixels.at(30, 20)[2], 240) << target;
  }
}

TEST_F(ImagesTest, AProfileForOtherColoursIsLeftOut) {
  write(at("swapped.icc"), swappedProfile());
  magick({"-size", "64x48", "gradient:", "-depth", "8", "-colorspace", "Gray", at("gray.tiff")});
  outputOf({"/usr/bin/exiftool", "-q", "-overwrite_original", "-ICC_Profile<=" + at("swapped.icc"),
            at("gray.tiff")});
  for (const std::string target : {"png", "jpeg", "tiff", "webp", "bmp"}) {
    expectConverted(target, at("gray.tiff"), at("gray." + target + ".result"));
    EXPECT_EQ(
        outputOf({"/usr/bin/exiftool", "-b", "-ICC_Profile", at("gray." + target + ".result")}), "")
        << target;
  }
}

TEST_F(ImagesTest, PrintColoursAreKeptOrConverted) {
  for (const std::string source : {"cmyk.tiff", "cmyk.jpg"}) {
    sampleAs(source, {"-colorspace", "CMYK"});
    for (const std::string target : {"jpeg", "tiff"}) {
      const std::string result = at(source + "." + target);
      expectConverted(target, at(source), result);
      EXPECT_EQ(outputOf({"/usr/bin/identify", "-format", "%[colorspace]", result}), "CMYK");
      EXPECT_GE(likeness(read(at(source)), read(result)), 35) << result;
    }
    expectConverted("pdf", at(source), at(source + ".pdf"));
    EXPECT_THAT(outputOf({"/usr/bin/pdfimages", "-list", at(source + ".pdf")}), HasSubstr("cmyk"));
    for (const std::string target : {"png", "bmp", "gif", "jp2", "webp", "heic"}) {
      const std::string result = at(source + "." + target);
      expectConverted(target, at(source), result);
      // The two readers make other colours of the inks, but the same picture.
      EXPECT_GE(likeness(read(at(source)), read(result)), 12) << result;
    }
  }
  magick({"-size", "64x48", "xc:white", "-colorspace", "CMYK", at("white.tiff")});
  expectConverted("png", at("white.tiff"), at("white.png"));
  for (int channel = 0; channel < 3; ++channel) {
    EXPECT_GE(read(at("white.png")).at(30, 20)[channel], 253);
  }
}

TEST_F(ImagesTest, AResolutionThatNoPictureHasIsLeftOut) {
  sampleAs("plain.tiff");
  for (const std::string density : {"4000000000", "0.001", "0"}) {
    write(at("odd.tiff"), contentOf(at("plain.tiff")));
    // In pixels per inch.
    for (const auto& [tag, value] : {std::pair("296", std::string("2")), std::pair("282", density),
                                     std::pair("283", density)}) {
      outputOf({"/usr/bin/tiffset", "-s", tag, value, at("odd.tiff")});
    }
    for (const std::string target : {"png", "tiff", "bmp", "pdf"}) {
      expectConverted(target, at("odd.tiff"), at(density + "." + target));
    }
    EXPECT_THAT(outputOf({"/usr/bin/pdfinfo", at(density + ".pdf")}), HasSubstr(" 64 x 48 pts"));
    EXPECT_EQ(outputOf({"/usr/bin/exiftool", "-s3", "-PixelsPerUnitX", at(density + ".png")}), "");
    EXPECT_EQ(outputOf({"/usr/bin/exiftool", "-s3", "-XResolution", at(density + ".tiff")}), "");
    EXPECT_EQ(outputOf({"/usr/bin/exiftool", "-s3", "-PixelsPerMeterX", at(density + ".bmp")}),
              "0\n");
  }
}

TEST_F(ImagesTest, TheResolutionGoesAlong) {
  for (const std::string source : {"source.tiff", "source.jpg", "source.png"}) {
    sampleAs(source, {"-units", "PixelsPerInch", "-density", "300"});
    for (const std::string target : {"jpeg", "png", "tiff", "bmp"}) {
      const std::string result = at(source + "." + target);
      expectConverted(target, at(source), result);
      EXPECT_EQ(std::lround(std::stod(outputOf(
                    {"/usr/bin/identify", "-units", "PixelsPerInch", "-format", "%x", result}))),
                300)
          << result;
    }
    expectConverted("pdf", at(source), at(source + ".pdf"));
    EXPECT_THAT(outputOf({"/usr/bin/pdfinfo", at(source + ".pdf")}), HasSubstr("15.36 x 11.52"));
  }
}

}  // namespace tervano::test
