#include <gmock/gmock.h>

#include <map>

#include "tests/tools/images/images_test.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;

constexpr const char* kTargets[] = {"jpeg", "png",  "tiff", "gif",  "bmp",
                                    "jp2",  "webp", "heic", "avif", "pdf"};

struct Source {
  const char* name;
  const char* file;
  std::vector<std::string> options;
};

bool isLossless(const std::string& format) {
  return format == "png" || format == "tiff" || format == "bmp" || format == "jp2";
}

// Every kind of source to every target.
class ConversionsTest : public ImagesTest, public testing::WithParamInterface<Source> {
 protected:
  std::string pictureOfDocument(const std::string& path) {
    outputOf({"/usr/bin/pdftoppm", "-scale-to-x", "64", "-scale-to-y", "48", "-singlefile", "-png",
              path, path});
    return path + ".png";
  }
};

}  // namespace

TEST_P(ConversionsTest, ShowsThePictureInEveryTarget) {
  const std::string source = sampleAs(GetParam().file, GetParam().options);
  std::vector<std::string> results{source};
  for (const std::string target : kTargets) {
    const std::string result = at("result." + target);
    expectConverted(target, source, result);
    results.push_back(target == "pdf" ? pictureOfDocument(result) : result);
  }
  const auto pictures = readAll(results);
  for (std::size_t index = 1; index < results.size(); ++index) {
    const std::string target = kTargets[index - 1];
    // The two readers may round the colours of a picture that was compressed by losing some.
    constexpr double kRounded = 45;
    constexpr double kLossy = 30;
    EXPECT_GE(likeness(pictures[0], pictures[index]), isLossless(target) ? kRounded : kLossy)
        << target;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sources, ConversionsTest,
    testing::Values(Source{"Jpeg", "source.jpg", {}},
                    Source{"ProgressiveJpeg", "source.jpg", {"-interlace", "plane"}},
                    Source{"Png", "source.png", {}},
                    Source{"InterlacedPng", "source.png", {"-interlace", "png"}},
                    Source{"PngWithPalette", "source.png", {"-type", "palette"}},
                    Source{"Tiff", "source.tiff", {"-compress", "none"}},
                    Source{"TiledTiff",
                           "source.tiff",
                           {"-define", "tiff:tile-geometry=32x32", "-compress", "zip"}},
                    Source{"TiffInPlanes", "source.tiff", {"-interlace", "plane"}},
                    Source{"BigEndianTiff", "source.tiff", {"-endian", "MSB", "-depth", "16"}},
                    Source{"Gif", "source.gif", {}}, Source{"Bmp", "source.bmp", {}},
                    Source{"Jp2", "source.jp2", {"-quality", "100"}},
                    Source{"Webp", "source.webp", {"-define", "webp:lossless=true"}},
                    Source{"Heic", "source.heic", {}}, Source{"Avif", "source.avif", {}},
                    Source{"Ppm", "source.ppm", {}}, Source{"Ico", "source.ico", {}}),
    [](const auto& information) { return information.param.name; });

TEST_F(ImagesTest, LosslessTargetsKeepEveryPixel) {
  const std::string source = sampleAs("source.png");
  const Pixels original = read(source);
  for (const std::string target : {"png", "tiff", "bmp", "jp2"}) {
    expectConverted(target, source, at("result." + target));
    EXPECT_EQ(read(at("result." + target)).bytes, original.bytes) << target;
  }
  expectConverted("pdf", source, at("result.pdf"));
  outputOf({"/usr/bin/pdfimages", "-png", at("result.pdf"), at("taken")});
  EXPECT_EQ(read(at("taken-000.png")).bytes, original.bytes);
}

TEST_F(ImagesTest, SynonymsNameTheSameFormat) {
  const std::string source = sampleAs("source.png");
  const std::map<std::string, std::string> synonyms{{"jpg", "JPEG"},
                                                    {"tif", "TIFF"},
                                                    {"JPEG", "JPEG"},
                                                    {"public.png", "PNG"},
                                                    {"public.tiff", "TIFF"}};
  for (const auto& [word, kind] : synonyms) {
    expectConverted(word, source, at("by-" + word));
    EXPECT_THAT(outputOf({"/usr/bin/identify", at("by-" + word)}), HasSubstr(" " + kind + " "));
  }
  expectConverted("heif", source, at("by-heif.heic"));
  EXPECT_THAT(outputOf({"/usr/bin/identify", at("by-heif.heic")}), HasSubstr(" HEIC "));
}

TEST_F(ImagesTest, TheFormatsThatCanBeWrittenAreListed) {
  const Ending ending = run({TERVANO_IMAGES, "--formats"});
  EXPECT_EQ(ending.status, 0);
  EXPECT_EQ(ending.out, "jpeg\npng\ntiff\ngif\nbmp\njp2\nwebp\nheic\navif\npdf\n");
  EXPECT_EQ(ending.err, "");
}

TEST_F(ImagesTest, TransparencyBecomesWhiteWhereTheTargetHasNone) {
  magick({"-size", "64x48", "xc:rgba(255,0,0,0.5)", at("half.png")});
  magick({at("half.png"), "-interlace", "png", at("interlaced.png")});
  for (const std::string source : {"half.png", "interlaced.png"}) {
    for (const std::string target : {"jpeg", "bmp"}) {
      const std::string result = at(source + "." + target);
      expectConverted(target, at(source), result);
      const Pixels pixels = read(result);
      EXPECT_NEAR(pixels.at(30, 20)[0], 255, 2) << result;
      EXPECT_NEAR(pixels.at(30, 20)[1], 128, 2) << result;
      EXPECT_NEAR(pixels.at(30, 20)[2], 128, 2) << result;
    }
  }
}

TEST_F(ImagesTest, TransparencyIsKeptWhereTheTargetHasIt) {
  magick({"-size", "64x48", "xc:rgba(255,0,0,0.5)", at("half.png")});
  magick({at("half.png"), at("half.tiff")});
  for (const std::string source : {"half.png", "half.tiff"}) {
    for (const std::string target : {"png", "tiff", "jp2", "webp", "heic", "avif"}) {
      const std::string result = at(source + "." + target);
      expectConverted(target, at(source), result);
      std::string readable = result;
      if (target == "heic" || target == "avif") {
        // ImageMagick passes over the alpha of these.
        readable += ".png";
        outputOf({"/usr/bin/heif-convert", result, readable});
      }
      const Pixels pixels = read(readable);
      EXPECT_NEAR(pixels.at(30, 20)[0], 255, 6) << result;
      EXPECT_NEAR(pixels.at(30, 20)[1], 0, 6) << result;
      EXPECT_NEAR(pixels.at(30, 20)[3], 128, 3) << result;
    }
  }
  expectConverted("pdf", at("half.png"), at("half.pdf"));
  EXPECT_THAT(outputOf({"/usr/bin/pdfimages", "-list", at("half.pdf")}), HasSubstr("smask"));
  outputOf({"/usr/bin/pdftoppm", "-r", "72", "-png", at("half.pdf"), at("page")});
  const Pixels page = read(at("page-1.png"));
  EXPECT_NEAR(page.at(30, 20)[0], 255, 2);
  EXPECT_NEAR(page.at(30, 20)[1], 128, 2);
}

TEST_F(ImagesTest, ATiffWithMultipliedAlphaShowsItsColours) {
  std::string pixel("\x64\x32\x00\x80", 4);
  std::string raw;
  for (int count = 0; count < kWidth * kHeight; ++count) raw += pixel;
  write(at("raw"), raw);
  outputOf({"/usr/bin/raw2tiff", "-w", "64", "-l", "48", "-b", "4", "-p", "rgb", at("raw"),
            at("source.tiff")});
  // ExtraSamples: one, associated.
  outputOf({"/usr/bin/tiffset", "-s", "338", "1", "1", at("source.tiff")});
  ASSERT_THAT(outputOf({"/usr/bin/tiffinfo", at("source.tiff")}), HasSubstr("assoc-alpha"));
  expectConverted("png", at("source.tiff"), at("result.png"));
  const Pixels pixels = read(at("result.png"));
  EXPECT_NEAR(pixels.at(30, 20)[0], 200, 3);
  EXPECT_NEAR(pixels.at(30, 20)[1], 100, 3);
  EXPECT_NEAR(pixels.at(30, 20)[3], 128, 2);
}

TEST_F(ImagesTest, SixteenBitsAreKeptWhereTheTargetHasThem) {
  const std::string source =
      sampleAs("source.png", {"-depth", "16", "-resize", "64x48", "-evaluate", "add", "1"});
  sampleAs("source.tiff", {"-depth", "16", "-evaluate", "add", "1"});
  ASSERT_EQ(outputOf({"/usr/bin/identify", "-format", "%z", source}), "16");
  for (const std::string from : {"source.png", "source.tiff"}) {
    for (const std::string target : {"png", "tiff", "jp2"}) {
      const std::string result = at(from + "." + target);
      expectConverted(target, at(from), result);
      EXPECT_EQ(outputOf({"/usr/bin/identify", "-format", "%z", result}), "16") << result;
      const Ending compared = run({"/usr/bin/compare", "-metric", "AE", at(from), result, "null:"});
      EXPECT_EQ(compared.err, "0") << result;
    }
    expectConverted("heic", at(from), at(from + ".heic"));
    EXPECT_THAT(outputOf({"/usr/bin/exiftool", "-s3", "-ImagePixelDepth", at(from + ".heic")}),
                HasSubstr("10"));
    for (const std::string target : {"jpeg", "bmp", "webp", "gif", "avif"}) {
      const std::string result = at(from + "." + target);
      expectConverted(target, at(from), result);
      EXPECT_GE(likeness(read(at(from)), read(result)), 30) << result;
    }
  }
}

TEST_F(ImagesTest, GrayPicturesStayGray) {
  const std::string source = sampleAs("gray.png", {"-colorspace", "Gray", "-depth", "8"});
  for (const std::string target : {"jpeg", "png", "tiff", "bmp", "jp2", "webp", "heic", "gif"}) {
    const std::string result = at("gray-result." + target);
    expectConverted(target, source, result);
    EXPECT_GE(likeness(read(source), read(result)), 30) << target;
  }
  for (const std::string target : {"jpeg", "png", "tiff"}) {
    EXPECT_THAT(
        outputOf({"/usr/bin/identify", "-format", "%[channels]", at("gray-result." + target)}),
        HasSubstr("gray"))
        << target;
  }
  expectConverted("pdf", source, at("gray.pdf"));
  EXPECT_THAT(outputOf({"/usr/bin/pdfimages", "-list", at("gray.pdf")}), HasSubstr("gray"));
}

TEST_F(ImagesTest, BlackAndWhiteScansAreRead) {
  const std::string source =
      sampleAs("scan.tiff", {"-threshold", "50%", "-type", "bilevel", "-compress", "Group4"});
  for (const std::string target : {"png", "jpeg", "tiff", "pdf"}) {
    expectConverted(target, source, at("scan-result." + target));
  }
  EXPECT_EQ(read(at("scan-result.png")).bytes, read(source).bytes);
}

TEST_F(ImagesTest, NumbersWithAPointAreAmountsOfLight) {
  std::string raw;
  for (int count = 0; count < kWidth * kHeight; ++count) {
    const float colours[] = {0, 0.5F, 1};
    raw.append(reinterpret_cast<const char*>(colours), sizeof colours);
  }
  write(at("raw"), raw);
  const std::string source = at("source.tiff");
  outputOf({"/usr/bin/raw2tiff", "-w", "64", "-l", "48", "-b", "3", "-d", "float", "-p", "rgb",
            at("raw"), source});
  expectConverted("png", source, at("result.png"));
  const Pixels pixels = read(at("result.png"));
  EXPECT_EQ(pixels.at(30, 20)[0], 0);
  // Half the light, not half the value.
  EXPECT_NEAR(pixels.at(30, 20)[1], 188, 1);
  EXPECT_EQ(pixels.at(30, 20)[2], 255);
}

TEST_F(ImagesTest, ADrawingIsDrawn) {
  write(at("drawing.svg"),
        "<svg xmlns='http://www.w3.org/2000/svg' width='64' height='48'>"
        "<rect width='32' height='48' fill='#0000ff'/></svg>");
  expectConverted("png", at("drawing.svg"), at("drawing.png"));
  expectConverted("jpeg", at("drawing.svg"), at("drawing.jpeg"));
  const Pixels png = read(at("drawing.png"));
  EXPECT_EQ(png.at(10, 10)[2], 255);
  EXPECT_EQ(png.at(50, 10)[3], 0);
  const Pixels jpeg = read(at("drawing.jpeg"));
  EXPECT_NEAR(jpeg.at(50, 10)[0], 255, 2);
}

TEST_F(ImagesTest, AFrameFollowsTheOtherWhereTheTargetHasFrames) {
  sample();
  magick({"-delay", "20", at("sample.ppm"), "(", "+clone", "-flip", ")", "(", "-clone", "0",
          "-negate", ")", "-loop", "3", at("moving.gif")});
  expectConverted("webp", at("moving.gif"), at("moving.webp"));
  expectConverted("gif", at("moving.gif"), at("again.gif"));
  expectConverted("gif", at("moving.webp"), at("from-webp.gif"));
  expectConverted("png", at("moving.gif"), at("first.png"));
  for (const std::string name : {"moving.webp", "again.gif", "from-webp.gif"}) {
    EXPECT_EQ(outputOf({"/usr/bin/identify", "-format", "%wx%h ", at(name)}), "64x48 64x48 64x48 ")
        << name;
  }
  EXPECT_EQ(outputOf({"/usr/bin/identify", "-format", "%T ", at("again.gif")}), "20 20 20 ");
  EXPECT_EQ(outputOf({"/usr/bin/identify", "-format", "%wx%h ", at("first.png")}), "64x48 ");
  EXPECT_GE(likeness(read(at("first.png")), read(sample())), 30);
  EXPECT_GE(likeness(read(at("moving.webp")), read(sample())), 25);
}

TEST_F(ImagesTest, TheFirstPageOfATiffIsThePicture) {
  sample();
  magick({at("sample.ppm"), "(", "+clone", "-negate", ")", at("pages.tiff")});
  for (const std::string target : {"png", "jpeg", "tiff", "webp"}) {
    expectConverted(target, at("pages.tiff"), at("page." + target));
    EXPECT_GE(likeness(read(at("page." + target)), read(sample())), 30) << target;
  }
  EXPECT_EQ(outputOf({"/usr/bin/identify", "-format", "%s ", at("page.tiff")}), "0 ");
}

TEST_F(ImagesTest, ThePagesOfATiffBecomePagesOfADocument) {
  sample();
  magick({at("sample.ppm"), "(", "+clone", "-resize", "32x100!", "-negate", ")", "(", "-clone", "0",
          "-colorspace", "Gray", ")", at("pages.tiff")});
  expectConverted("pdf", at("pages.tiff"), at("pages.pdf"));
  outputOf({"/usr/bin/pdftoppm", "-r", "72", "-png", at("pages.pdf"), at("page")});
  EXPECT_GE(likeness(read(at("page-1.png")), read(sample())), 25);
  EXPECT_EQ(
      outputOf({"/usr/bin/identify", "-format", "%wx%h ", at("page-2.png"), at("page-3.png")}),
      "32x100 64x48 ");
}

TEST_F(ImagesTest, ThumbnailsInATiffAreNoPages) {
  sample();
  magick({"(", at("sample.ppm"), "-resize", "16x12", ")", at("sample.ppm"), at("pages.tiff")});
  // NewSubfileType 1: a smaller version of another picture in the file.
  outputOf({"/usr/bin/tiffset", "-d", "0", "-s", "254", "1", at("pages.tiff")});
  expectConverted("png", at("pages.tiff"), at("result.png"));
  EXPECT_EQ(read(at("result.png")).bytes, read(sample()).bytes);
  expectConverted("pdf", at("pages.tiff"), at("result.pdf"));
  outputOf({"/usr/bin/pdfimages", "-png", at("result.pdf"), at("page")});
  EXPECT_EQ(outputOf({"/usr/bin/identify", "-format", "%wx%h ", at("page-000.png")}), "64x48 ");
  EXPECT_EQ(contentOf(at("page-001.png")), "");
}

TEST_F(ImagesTest, AJpegStandsInADocumentAsItIs) {
  const std::string source = sampleAs("source.jpg", {"-quality", "70"});
  expectConverted("pdf", source, at("result.pdf"));
  outputOf({"/usr/bin/pdfimages", "-j", at("result.pdf"), at("taken")});
  EXPECT_EQ(contentOf(at("taken-000.jpg")), contentOf(source));
}

TEST_F(ImagesTest, TheFirstPageOfADocumentIsDrawn) {
  const std::string source = sampleAs("source.png");
  expectConverted("pdf", source, at("source.pdf"));
  expectConverted("png", at("source.pdf"), at("result.png"));
  // At 150 pixels an inch, on a page of 64 by 48 points.
  EXPECT_EQ(outputOf({"/usr/bin/identify", "-format", "%wx%h", at("result.png")}), "133x100");
}

TEST_F(ImagesTest, ADocumentStaysAsItIs) {
  expectConverted("pdf", sampleAs("source.png"), at("source.pdf"));
  expectConverted("pdf", at("source.pdf"), at("result.pdf"));
  EXPECT_EQ(contentOf(at("result.pdf")), contentOf(at("source.pdf")));
}

TEST_F(ImagesTest, AJpegWhoseEndMarkIsMissingIsWhole) {
  const std::string source = sampleAs("source.jpg");
  const std::string content = contentOf(source);
  ASSERT_EQ(content.substr(content.size() - 2), "\xff\xd9");
  write(at("cut.jpg"), content.substr(0, content.size() - 2));
  expectConverted("png", at("cut.jpg"), at("result.png"));
  EXPECT_EQ(read(at("result.png")).bytes, read(source).bytes);
}

TEST_F(ImagesTest, EveryWidthAndHeightIsConverted) {
  for (const std::string size : {"1x1", "1x7", "7x1", "17x3", "3x257"}) {
    const std::string source = at(size + ".png");
    magick({"-size", size, "gradient:red-blue", "-depth", "8", source});
    for (const std::string target : kTargets) {
      const std::string result = at(size + "." + target + ".result");
      expectConverted(target, source, result);
      if (target == "heic" || target == "avif" || target == "pdf") continue;
      EXPECT_EQ(outputOf({"/usr/bin/identify", "-format", "%wx%h", target + ":" + result}), size)
          << target;
    }
  }
}

}  // namespace tervano::test
