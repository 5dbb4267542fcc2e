#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <jpeglib.h>

#include "tests/tools/images/images_test.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

constexpr uid_t kNobody = 65534;
constexpr char kNoPicture[] = "it is no picture of a kind that can be read";
constexpr char kDamaged[] = "the picture is damaged or ends early";

std::string bigEndian(std::uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}

std::string littleEndian(std::uint32_t value, int size) {
  std::string bytes;
  for (int index = 0; index < size; ++index) bytes += static_cast<char>(value >> (8 * index));
  return bytes;
}

// Puts a small file system on a folder, for the calling process alone.
void mountSmall(const std::string& folder, const char* options) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", folder.c_str(), "tmpfs", 0, options) != 0) {
    _exit(98);
  }
}

enum class Unusual { scanForEachColour, arithmetic };

// A JPEG of 64 by 64 pixels of many colours.
std::string unusualJpeg(Unusual kind) {
  constexpr int kSide = 64;
  constexpr int kColours = 3;
  jpeg_error_mgr errors{};
  jpeg_compress_struct codec{};
  codec.err = jpeg_std_error(&errors);
  jpeg_create_compress(&codec);
  unsigned char* bytes = nullptr;
  unsigned long count = 0;
  jpeg_mem_dest(&codec, &bytes, &count);
  codec.image_width = kSide;
  codec.image_height = kSide;
  codec.input_components = kColours;
  codec.in_color_space = JCS_RGB;
  jpeg_set_defaults(&codec);
  constexpr jpeg_scan_info kScans[] = {
      {1, {0}, 0, 63, 0, 0}, {1, {1}, 0, 63, 0, 0}, {1, {2}, 0, 63, 0, 0}};
  if (kind == Unusual::arithmetic) {
    codec.arith_code = TRUE;
  } else {
    codec.scan_info = kScans;
    codec.num_scans = kColours;
  }
  jpeg_start_compress(&codec, TRUE);
  for (int y = 0; y < kSide; ++y) {
    std::array<JSAMPLE, kSide * kColours> row{};
    for (std::size_t at = 0; at < row.size(); ++at) {
      row[at] = static_cast<JSAMPLE>(at * 7 + static_cast<std::size_t>(y) * 11);
    }
    JSAMPROW rows = row.data();
    jpeg_write_scanlines(&codec, &rows, 1);
  }
  jpeg_finish_compress(&codec);
  jpeg_destroy_compress(&codec);
  const std::string content(reinterpret_cast<const char*>(bytes), count);
  std::free(bytes);
  return content;
}

// The most memory that the program's children have held, in kibibytes.
long mostMemory() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return usage.ru_maxrss;
}

// A file of each kind that is whole.
class DamagedPicturesTest : public ImagesTest, public testing::WithParamInterface<const char*> {
 protected:
  std::string whole() {
    const std::string name = GetParam();
    if (name == "cmyk.jpg") return sampleAs(name, {"-colorspace", "CMYK"});
    if (name == "progressive.jpg") return sampleAs(name, {"-interlace", "plane"});
    if (name == "interlaced.png") return sampleAs(name, {"-interlace", "png"});
    if (name == "runs.bmp") {
      return sampleAs(name, {"-type", "palette", "-colors", "4", "-compress", "RLE"});
    }
    if (name == "tiled.tiff") {
      return sampleAs(name, {"-define", "tiff:tile-geometry=32x32", "-compress", "zip"});
    }
    if (name == "plain.pdf") {
      expectConverted("pdf", sampleAs("source.png"), at(name));
      return at(name);
    }
    if (name == "plain.svg") {
      write(at(name),
            "<svg xmlns='http://www.w3.org/2000/svg' width='64' height='48'>"
            "<rect width='32' height='48' fill='#0000ff'/></svg>");
      return at(name);
    }
    return sampleAs(name);
  }
};

}  // namespace

TEST_P(DamagedPicturesTest, ACutFileIsRefused) {
  const std::string content = contentOf(whole());
  const std::string cut = at("cut");
  fs::create_directory(at("out"));
  for (const std::string target : {"png", "webp", "bmp"}) {
    write(cut, content);
    expectConverted(target, cut, at("whole." + target));
    write(cut, content.substr(0, content.size() / 2));
    expectRefused(target, cut, at("out/half." + target), "Could not convert");
  }
  write(cut, content.substr(0, 1));
  expectRefused("png", cut, at("out/byte.png"), "Could not convert");
  write(cut, content.substr(0, 12));
  expectRefused("png", cut, at("out/head.png"), "Could not convert");
  write(cut, "");
  expectRefused("png", cut, at("out/empty.png"), "the file is empty");
}

INSTANTIATE_TEST_SUITE_P(Kinds, DamagedPicturesTest,
                         testing::Values("plain.jpg", "progressive.jpg", "cmyk.jpg", "plain.png",
                                         "interlaced.png", "plain.tiff", "tiled.tiff", "plain.gif",
                                         "plain.bmp", "runs.bmp", "plain.jp2", "plain.webp",
                                         "plain.heic", "plain.avif", "plain.pdf", "plain.svg",
                                         "plain.ppm", "plain.ico"),
                         [](const auto& information) {
                           std::string name = information.param;
                           name[name.find('.')] = '_';
                           return name;
                         });

TEST_F(ImagesTest, ABrokenByteInTheMiddleOfAJpegIsFound) {
  std::string content = contentOf(sampleAs("source.jpg"));
  // A mark that cannot stand among the pixels.
  content.replace(content.size() / 2, 2, "\xff\xd9");
  write(at("broken.jpg"), content);
  fs::create_directory(at("out"));
  expectRefused("png", at("broken.jpg"), at("out/a.png"), kDamaged);
  expectRefused("pdf", at("broken.jpg"), at("out/a.pdf"), kDamaged);
}

TEST_F(ImagesTest, AJpegThatLacksOneOfItsScansIsRefused) {
  const std::string whole = unusualJpeg(Unusual::scanForEachColour);
  write(at("whole.jpg"), whole);
  expectConverted("png", at("whole.jpg"), at("whole.png"));
  // Up to the second scan: what there is of the picture is whole, and gray.
  const auto second = whole.find("\xff\xda", whole.find("\xff\xda") + 2);
  ASSERT_NE(second, std::string::npos);
  write(at("cut.jpg"), whole.substr(0, second));
  fs::create_directory(at("out"));
  expectRefused("png", at("cut.jpg"), at("out/a.png"), kDamaged);
  expectRefused("pdf", at("cut.jpg"), at("out/a.pdf"), kDamaged);
}

TEST_F(ImagesTest, ACutJpegOfTheRareKindIsRefused) {
  const std::string whole = unusualJpeg(Unusual::arithmetic);
  write(at("whole.jpg"), whole);
  expectConverted("png", at("whole.jpg"), at("whole.png"));
  fs::create_directory(at("out"));
  for (const std::size_t length : {whole.size() / 2, whole.size() - 2}) {
    write(at("cut.jpg"), whole.substr(0, length));
    expectRefused("png", at("cut.jpg"), at("out/a.png"), kDamaged);
  }
}

TEST_F(ImagesTest, AJpegOfThousandsOfScansIsRefused) {
  std::string content = contentOf(sampleAs("source.jpg", {"-interlace", "plane"}));
  // The first scan, up to the tables of the second one, can be read again and again.
  const auto begin = content.find("\xff\xda");
  const auto end = content.find("\xff\xc4", begin);
  ASSERT_NE(end, std::string::npos);
  const std::string scan = content.substr(begin, end - begin);
  std::string few;
  for (int count = 0; count < 100; ++count) few += scan;
  std::string many;
  for (int count = 0; count < 60; ++count) many += few;
  write(at("patient.jpg"), std::string(content).insert(end, few));
  write(at("endless.jpg"), std::string(content).insert(end, many));
  expectConverted("png", at("patient.jpg"), at("patient.png"));
  EXPECT_EQ(read(at("patient.png")).bytes, read(at("source.jpg")).bytes);
  fs::create_directory(at("out"));
  expectRefused("png", at("endless.jpg"), at("out/a.png"), kDamaged);
  expectRefused("webp", at("endless.jpg"), at("out/a.webp"), kDamaged);
}

TEST_F(ImagesTest, ADocumentIsNotMadeOfOnlyThePagesThatAreLeft) {
  sample();
  magick({at("sample.ppm"), at("sample.ppm"), at("sample.ppm"), "-compress", "none",
          at("pages.tiff")});
  const std::string whole = contentOf(at("pages.tiff"));
  fs::create_directory(at("out"));
  // The last directory stands at the end.
  write(at("cut.tiff"), whole.substr(0, whole.size() - 100));
  expectRefused("pdf", at("cut.tiff"), at("out/a.pdf"), kDamaged);
  // The first page alone is there.
  expectConverted("png", at("cut.tiff"), at("first.png"));
  EXPECT_EQ(read(at("first.png")).bytes, read(at("sample.ppm")).bytes);
}

TEST_F(ImagesTest, ATiffOfTooManyPagesIsNoDocument) {
  // One byte of a picture, and directories for it, each pointing to the next one.
  constexpr std::uint32_t kBegin = 8 + 4;
  constexpr std::uint32_t kSize = 2 + 8 * 12 + 4;
  constexpr std::uint32_t kPages = 10002;
  std::string content = std::string("II*\0", 4) + littleEndian(kBegin, 4) + "gray";
  for (std::uint32_t page = 1; page <= kPages; ++page) {
    content += littleEndian(8, 2);
    for (const auto& [tag, value] : {std::pair(256U, 1U),
                                     {257U, 1U},
                                     {258U, 8U},
                                     {259U, 1U},
                                     {262U, 1U},
                                     {273U, 8U},
                                     {278U, 1U},
                                     {279U, 1U}}) {
      content +=
          littleEndian(tag, 2) + littleEndian(4, 2) + littleEndian(1, 4) + littleEndian(value, 4);
    }
    content += littleEndian(page == kPages ? 0 : kBegin + page * kSize, 4);
  }
  write(at("pages.tiff"), content);
  fs::create_directory(at("out"));
  expectRefused("pdf", at("pages.tiff"), at("out/a.pdf"), "it has too many pages");
  expectConverted("png", at("pages.tiff"), at("first.png"));
}

TEST_F(ImagesTest, WhatIsNoPictureIsRefused) {
  fs::create_directory(at("out"));
  write(at("text"), "Dear reader,\nthis is a letter.\n");
  write(at("page.html"), "<!DOCTYPE html><html><body><p>A page</p></body></html>");
  write(at("numbers.csv"), "1,2,3\n4,5,6\n");
  write(at("zeros"), std::string(100000, '\0'));
  for (const std::string name : {"text", "page.html", "numbers.csv", "zeros"}) {
    expectRefused("png", at(name), at("out/" + name), kNoPicture);
    expectRefused("heic", at(name), at("out/" + name), kNoPicture);
  }
  expectRefused("jpeg", TERVANO_IMAGES, at("out/program"), kNoPicture);
}

TEST_F(ImagesTest, ACamerasRawDataIsRefused) {
  sampleAs("preview.tiff");
  // NewSubfileType 1: the only picture is a smaller version of another one.
  outputOf({"/usr/bin/tiffset", "-s", "254", "1", at("preview.tiff")});
  fs::create_directory(at("out"));
  expectRefused("png", at("preview.tiff"), at("out/a.png"), "a camera's raw data cannot be read");
}

TEST_F(ImagesTest, AMissingPictureIsRefused) {
  fs::create_directory(at("out"));
  expectRefused("png", at("missing.jpg"), at("out/a.png"), "No such file or directory");
  expectRefused("png", "", at("out/a.png"), "No such file or directory");
  fs::create_symlink("nowhere", at("dangling.jpg"));
  expectRefused("png", at("dangling.jpg"), at("out/a.png"), "No such file or directory");
  expectRefused("png", at("sample.ppm/below"), at("out/a.png"), "No such file or directory");
  write(at("file"), "");
  expectRefused("png", at("file/below"), at("out/a.png"), "Not a directory");
  expectRefused("png", at(std::string(300, 'n')), at("out/a.png"), "File name too long");
}

TEST_F(ImagesTest, WhatIsNoFileIsRefusedUnopened) {
  fs::create_directory(at("out"));
  // A writer would wait for the reader, and a reader for the writer.
  ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
  expectRefused("png", at("pipe"), at("out/a.png"), "it is a pipe, not a file");
  expectRefused("png", "/dev/zero", at("out/a.png"), "it is a device, not a file");
  expectRefused("png", at("out"), at("out/a.png"), "it is a folder");
  const int number = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  at("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(number, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  expectRefused("png", at("socket"), at("out/a.png"), "it is a socket, not a file");
  close(number);
}

TEST_F(ImagesTest, ALinkToAPictureIsFollowed) {
  sampleAs("source.png");
  fs::create_symlink("source.png", at("link"));
  expectConverted("jpeg", at("link"), at("result.jpeg"));
}

TEST_F(ImagesTest, APictureThatMayNotBeReadIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become somebody else";
  const std::string source = sampleAs("source.png");
  fs::create_directory(at("theirs"));
  ASSERT_EQ(chown(at("theirs").c_str(), kNobody, kNobody), 0);
  ASSERT_EQ(chmod(home_.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(source.c_str(), 0600), 0);
  home_.setVariable("XDG_RUNTIME_DIR", at("theirs"));
  const auto asNobody = [] {
    if (setgid(kNobody) != 0 || setuid(kNobody) != 0) _exit(98);
  };
  fs::create_directory(at("theirs/out"));
  ASSERT_EQ(chown(at("theirs/out").c_str(), kNobody, kNobody), 0);
  expectRefused("jpeg", source, at("theirs/out/a.jpeg"), "Permission denied", asNobody);
  ASSERT_EQ(chmod(source.c_str(), 0644), 0);
  fs::create_directory(at("ours"));
  ASSERT_EQ(chmod(at("ours").c_str(), 0755), 0);
  expectRefused("jpeg", source, at("ours/a.jpeg"), "Permission denied", asNobody);
  const Ending ending = convert("jpeg", source, at("theirs/out/a.jpeg"), asNobody);
  EXPECT_EQ(ending.status, 0) << ending.err;
}

TEST_F(ImagesTest, AnUnknownFormatIsRefused) {
  const std::string source = sampleAs("source.png");
  fs::create_directory(at("out"));
  for (const std::string format : {"psd", "", "icns", "jpeg2001", "../png", "png\nx"}) {
    expectRefused(format, source, at("out/a"),
                  "only as jpeg, png, tiff, gif, bmp, jp2, webp, heic, avif and pdf");
  }
}

TEST_F(ImagesTest, AFolderThatCannotTakeTheResultIsTold) {
  const std::string source = sampleAs("source.png");
  fs::create_directory(at("out"));
  expectRefused("jpeg", source, at("missing/a.jpeg"), "No such file or directory");
  expectRefused("jpeg", source, at("sample.ppm/a.jpeg"), "Not a directory");
  expectRefused("jpeg", source, at("out/"), "Is a directory");
  expectRefused("jpeg", source, at("out"), "File exists");
  expectRefused("jpeg", source, at("out/.."), "Is a directory");
  expectRefused("jpeg", source, "", "No such file or directory");
  expectRefused("jpeg", source, at("out/" + std::string(300, 'n')), "File name too long");
  expectRefused("jpeg", source, "/proc/sys/kernel/a.jpeg", "Could not convert");
}

TEST_F(ImagesTest, AReadOnlyFileSystemIsTold) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  const std::string source = sampleAs("source.png");
  fs::create_directory(at("out"));
  expectRefused("jpeg", source, at("out/a.jpeg"), "Read-only file system",
                [this] { mountSmall(at("out"), "ro"); });
}

TEST_F(ImagesTest, AFullDiskIsTold) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  magick({"-size", "400x400", "plasma:", "-depth", "8", at("big.png")});
  fs::create_directory(at("out"));
  for (const std::string target :
       {"jpeg", "png", "tiff", "gif", "bmp", "jp2", "webp", "heic", "avif", "pdf"}) {
    expectRefused(target, at("big.png"), at("out/a." + target), "No space left on device",
                  [this] { mountSmall(at("out"), "size=8k"); });
  }
}

TEST_F(ImagesTest, ALimitOnTheSizeOfFilesIsTold) {
  magick({"-size", "400x400", "plasma:", "-depth", "8", at("big.png")});
  fs::create_directory(at("out"));
  expectRefused("tiff", at("big.png"), at("out/a.tiff"), "File too large", [] {
    const rlimit limit{20000, 20000};
    setrlimit(RLIMIT_FSIZE, &limit);
  });
}

TEST_F(ImagesTest, WrongArgumentsAreToldInOneSentence) {
  const std::vector<std::vector<std::string>> wrong{
      {},
      {"--help"},
      {"-s", "format", "png", "in"},
      {"-s", "format", "png", "in", "--out"},
      {"-s", "format", "png", "in", "-o", "out"},
      {"-s", "dpi", "png", "in", "--out", "out"},
      {"-g", "format", "png", "in", "--out", "out"},
      {"-s", "format", "png", "in", "--out", "out", "more"},
      {"--formats", "more"},
  };
  for (auto arguments : wrong) {
    arguments.insert(arguments.begin(), TERVANO_IMAGES);
    const Ending ending = run(arguments);
    EXPECT_EQ(ending.status, 2);
    EXPECT_EQ(ending.out, "");
    EXPECT_EQ(ending.err, "tervano-images: Usage: -s format FORMAT IN --out OUT, or --formats\n");
  }
}

TEST_F(ImagesTest, APictureThatClaimsToBeEnormousIsRefusedAtOnce) {
  fs::create_directory(at("out"));
  // Headers of 60,000 by 60,000 pixels with hardly anything behind them.
  const std::string side = bigEndian(60000);
  write(at("png"), std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16) + side + side +
                       std::string("\x08\x02\0\0\0", 5) + "\x7f\x5a\xf6\x7c");
  write(at("gif"), std::string("GIF89a\x60\xea\x60\xea\0\0\0,\0\0\0\0\x60\xea\x60\xea\0", 23) +
                       std::string("\x08\x01\0", 3));
  write(at("bmp"), "BM" + littleEndian(1000, 4) + littleEndian(0, 4) + littleEndian(54, 4) +
                       littleEndian(40, 4) + littleEndian(60000, 4) + littleEndian(60000, 4) +
                       littleEndian(1, 2) + littleEndian(24, 2) + std::string(24, '\0'));
  write(at("svg"), "<svg xmlns='http://www.w3.org/2000/svg' width='60000' height='60000'/>");
  write(at("jpeg"), std::string("\xff\xd8\xff\xc2\0\x11\x08\xea\x60\xea\x60\x03\x01\x11\0\x02\x11"
                                "\x01\x03\x11\x01",
                                21) +
                        std::string("\xff\xda\0\x0c\x03\x01\0\x02\x11\x03\x11\0\0\0", 14));
  for (const std::string name : {"png", "gif", "bmp", "svg", "jpeg"}) {
    for (const std::string target : {"png", "webp", "bmp"}) {
      expectRefused(target, at(name), at("out/a." + target), "Could not convert");
    }
  }
  EXPECT_LT(mostMemory(), 400 << 10);
}

TEST_F(ImagesTest, APictureThatNeedsTooMuchMemoryIsRefused) {
  fs::create_directory(at("out"));
  magick({"-size", "6000x6000", "xc:gray", "-depth", "8", "-type", "TrueColor", at("big.png")});
  // Of the smallest machine: what the tool holds already, and little more.
  expectRefused("heic", at("big.png"), at("out/a.heic"), "Could not convert", [] {
    const rlimit limit{100 << 20, 100 << 20};
    setrlimit(RLIMIT_DATA, &limit);
  });
}

TEST_F(ImagesTest, WhatIsTooLargeForAFormatIsTold) {
  fs::create_directory(at("out"));
  write(at("wide.pgm"), "P5 17000 2 255\n" + std::string(34000, 'x'));
  expectRefused("webp", at("wide.pgm"), at("out/a.webp"),
                "it is too large for the format webp (17000 x 2 pixels)");
  write(at("tall.pgm"), "P5 2 66000 255\n" + std::string(132000, 'x'));
  expectRefused("jpeg", at("tall.pgm"), at("out/a.jpeg"),
                "it is too large for the format jpeg (2 x 66000 pixels)");
  expectRefused("gif", at("tall.pgm"), at("out/a.gif"), "it is too large for the format gif");
  expectConverted("tiff", at("tall.pgm"), at("tall.tiff"));
  expectRefused("jpeg", at("tall.tiff"), at("out/a.jpeg"), "it is too large for the format jpeg");
}

TEST_F(ImagesTest, ItRunsWithItsStandardStreamsClosed) {
  const std::string source = sampleAs("source.png");
  const auto withoutStreams = [] {
    for (const int number : {0, 1, 2}) close(number);
  };
  for (const std::string target : {"jpeg", "webp"}) {
    EXPECT_EQ(convert(target, source, at("result." + target), withoutStreams).status, 0);
    EXPECT_GE(likeness(read(source), read(at("result." + target))), 30);
  }
  EXPECT_EQ(convert("jpeg", at("missing"), at("a.jpeg"), withoutStreams).status, 1);
}

}  // namespace tervano::test
