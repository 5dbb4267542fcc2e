#include "platform/linux/uniform_type_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "platform/linux/desktop_types.h"
#include "platform/linux/uniform_type_index.h"
#include "tests/support/temporary_home.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

class UniformTypeTableTest : public testing::Test {
 protected:
  UniformTypeTable types_;
};

TEST_F(UniformTypeTableTest, WellKnownExtensionsHaveTheirPublishedIdentifiers) {
  const std::pair<const char*, const char*> kKnown[] = {
      {"jpg", "public.jpeg"},
      {"jpeg", "public.jpeg"},
      {"png", "public.png"},
      {"gif", "com.compuserve.gif"},
      {"tiff", "public.tiff"},
      {"heic", "public.heic"},
      {"avif", "public.avif"},
      {"webp", "org.webmproject.webp"},
      {"jp2", "public.jpeg-2000"},
      {"bmp", "com.microsoft.bmp"},
      {"ico", "com.microsoft.ico"},
      {"svg", "public.svg-image"},
      {"psd", "com.adobe.photoshop-image"},
      {"dng", "com.adobe.raw-image"},
      {"pdf", "com.adobe.pdf"},
      {"txt", "public.plain-text"},
      {"md", "net.daringfireball.markdown"},
      {"json", "public.json"},
      {"yaml", "public.yaml"},
      {"csv", "public.comma-separated-values-text"},
      {"html", "public.html"},
      {"xml", "public.xml"},
      {"rtf", "public.rtf"},
      {"py", "public.python-script"},
      {"sh", "public.shell-script"},
      {"c", "public.c-source"},
      {"h", "public.c-header"},
      {"cpp", "public.c-plus-plus-source"},
      {"m", "public.objective-c-source"},
      {"java", "com.sun.java-source"},
      {"js", "com.netscape.javascript-source"},
      {"swift", "public.swift-source"},
      {"docx", "org.openxmlformats.wordprocessingml.document"},
      {"odt", "org.oasis-open.opendocument.text"},
      {"mp3", "public.mp3"},
      {"m4a", "com.apple.m4a-audio"},
      {"mp4", "public.mpeg-4"},
      {"mov", "com.apple.quicktime-movie"},
      {"mkv", "org.matroska.mkv"},
      {"zip", "com.pkware.zip-archive"},
      {"tar", "public.tar-archive"},
      {"gz", "org.gnu.gnu-zip-archive"},
      {"7z", "org.7-zip.7-zip-archive"},
      {"dmg", "com.apple.disk-image-udif"},
      {"iso", "public.iso-image"},
      {"ttf", "public.truetype-ttf-font"},
      {"ics", "com.apple.ical.ics"},
      {"vcf", "public.vcard"},
      {"eml", "com.apple.mail.email"},
      {"epub", "org.idpf.epub-container"},
      {"app", "com.apple.application-bundle"},
  };
  for (const auto& [extension, identifier] : kKnown) {
    EXPECT_EQ(types_.preferredIdentifierForExtension(extension), identifier);
  }
}

TEST_F(UniformTypeTableTest, TheTableKnowsAtLeast350Extensions) {
  std::size_t count = 0;
  for (const auto& row : kUniformTypes) {
    auto list = row.extensions;
    while (!list.empty()) {
      const auto extension = nextWord(list);
      EXPECT_EQ(types_.preferredIdentifierForExtension(extension), row.identifier);
      ++count;
    }
  }
  EXPECT_GE(count, 350U);
}

TEST_F(UniformTypeTableTest, EveryRowIsFoundAndConformsToEachOfItsParents) {
  for (const auto& row : kUniformTypes) {
    EXPECT_TRUE(types_.isDeclared(row.identifier)) << row.identifier;
    auto list = row.parents;
    while (!list.empty()) {
      const auto parent = nextWord(list);
      EXPECT_TRUE(types_.conformsTo(row.identifier, parent)) << row.identifier << " " << parent;
      EXPECT_FALSE(types_.conformsTo(parent, row.identifier)) << row.identifier << " " << parent;
    }
  }
}

TEST_F(UniformTypeTableTest, ThePrecomputedConformanceIsThatOfAWalkThroughTheGraph) {
  for (const auto& row : kUniformTypes) {
    const auto walked = types_.conformanceOf(row.identifier);
    for (const auto& other : kUniformTypes) {
      EXPECT_EQ(types_.conformsTo(row.identifier, other.identifier),
                std::find(walked.begin(), walked.end(), other.identifier) != walked.end())
          << row.identifier << " " << other.identifier;
    }
  }
}

TEST_F(UniformTypeTableTest, EveryTypeOfAFileConformsToData) {
  for (const auto& row : kUniformTypes) {
    if (row.extensions.empty()) continue;
    EXPECT_NE(types_.conformsTo(row.identifier, "public.data"),
              types_.conformsTo(row.identifier, "public.directory"))
        << row.identifier;
  }
}

TEST_F(UniformTypeTableTest, ExtensionsAreFoundWithoutRegardToCase) {
  EXPECT_EQ(types_.preferredIdentifierForExtension("JPG"), "public.jpeg");
  EXPECT_EQ(types_.preferredIdentifierForExtension("Jpg"), "public.jpeg");
  EXPECT_EQ(types_.preferredIdentifierForExtension("AppImage"), "org.appimage.appimage");
}

TEST_F(UniformTypeTableTest, ApplicationsOfThisDesktopConformToApplication) {
  for (const char* extension : {"desktop", "AppImage", "app"}) {
    const auto identifier = types_.preferredIdentifierForExtension(extension);
    EXPECT_TRUE(types_.conformsTo(identifier, "com.apple.application")) << extension;
    EXPECT_TRUE(types_.conformsTo(identifier, "public.executable")) << extension;
  }
}

TEST_F(UniformTypeTableTest, BundlesAreFoldersAndNoData) {
  for (const char* extension : {"app", "rtfd", "framework", "bundle"}) {
    const auto identifier = types_.preferredIdentifierForExtension(extension);
    EXPECT_TRUE(types_.conformsTo(identifier, "public.directory")) << extension;
    EXPECT_FALSE(types_.conformsTo(identifier, "public.data")) << extension;
  }
  EXPECT_TRUE(types_.conformsTo("com.apple.rtfd", "com.apple.package"));
}

TEST_F(UniformTypeTableTest, AFolderIsADirectoryAndAnItemAndNoData) {
  EXPECT_THAT(types_.conformanceOf("public.folder"),
              ElementsAre("public.folder", "public.directory", "public.item"));
  EXPECT_FALSE(types_.conformsTo("public.folder", "public.data"));
}

TEST_F(UniformTypeTableTest, ConformanceIsListedNearestFirst) {
  EXPECT_THAT(
      types_.conformanceOf("public.jpeg"),
      ElementsAre("public.jpeg", "public.image", "public.data", "public.content", "public.item"));
}

TEST_F(UniformTypeTableTest, ATextIsNoImage) {
  EXPECT_FALSE(types_.conformsTo("public.plain-text", "public.image"));
}

TEST_F(UniformTypeTableTest, EqualIdentifiersConformEvenWhenNobodyDeclaresThem) {
  EXPECT_TRUE(types_.conformsTo("com.example.unheard-of", "com.example.unheard-of"));
  EXPECT_FALSE(types_.isDeclared("com.example.unheard-of"));
  EXPECT_THAT(types_.conformanceOf("com.example.unheard-of"),
              ElementsAre("com.example.unheard-of"));
}

TEST_F(UniformTypeTableTest, AnUndeclaredIdentifierConformsToNothingElse) {
  EXPECT_FALSE(types_.conformsTo("com.example.unheard-of", "public.data"));
  EXPECT_FALSE(types_.conformsTo("public.jpeg", "com.example.unheard-of"));
  EXPECT_FALSE(types_.conformsTo("", "public.data"));
}

TEST_F(UniformTypeTableTest, TheEmptyExtensionIsDataOfNoKnownKind) {
  const auto identifier = types_.preferredIdentifierForExtension("");
  EXPECT_EQ(identifier, "dyn.a");
  EXPECT_TRUE(types_.isDeclared(identifier));
  EXPECT_THAT(types_.conformanceOf(identifier), ElementsAre("dyn.a", "public.data", "public.item"));
}

TEST_F(UniformTypeTableTest, AnUnknownExtensionHasTheSameIdentifierOnEveryMachine) {
  EXPECT_EQ(types_.preferredIdentifierForExtension("zzqx"), "dyn.af9t72u0");
  EXPECT_EQ(types_.preferredIdentifierForExtension("ZZQX"), "dyn.af9t72u0");
}

TEST_F(UniformTypeTableTest, AnUnknownExtensionConformsToDataOnly) {
  const auto identifier = types_.preferredIdentifierForExtension("zzqx");
  EXPECT_TRUE(types_.conformsTo(identifier, identifier));
  EXPECT_TRUE(types_.conformsTo(identifier, "public.data"));
  EXPECT_TRUE(types_.conformsTo(identifier, "public.item"));
  for (const auto& row : kUniformTypes) {
    if (row.identifier == "public.data" || row.identifier == "public.item") continue;
    EXPECT_FALSE(types_.conformsTo(identifier, row.identifier)) << row.identifier;
  }
}

TEST_F(UniformTypeTableTest, DifferentUnknownExtensionsDiffer) {
  std::set<std::string> identifiers;
  for (int first = 0; first < 256; ++first) {
    for (const char* rest : {"", "a", "\x80q"}) {
      std::string extension(1, static_cast<char>(first));
      extension += rest;
      if (first >= 'A' && first <= 'Z') continue;
      identifiers.insert(dynamicIdentifierForExtension(extension));
    }
  }
  EXPECT_EQ(identifiers.size(), (256U - 26U) * 3U);
}

TEST_F(UniformTypeTableTest, AnExtensionMayBeAnyBytesOfAnyLength) {
  const std::string bytes("\xff\x00\x01/\xc3", 5);
  EXPECT_THAT(types_.preferredIdentifierForExtension(bytes), StartsWith("dyn.a"));
  const std::string longOne(100'000, 'x');
  EXPECT_THAT(types_.preferredIdentifierForExtension(longOne), StartsWith("dyn.a"));
}

TEST_F(UniformTypeTableTest, NoIdentifierOfTheTableLooksDynamic) {
  for (const auto& row : kUniformTypes) EXPECT_THAT(row.identifier, Not(StartsWith("dyn.a")));
}

// ---- The desktop's MIME database

class DesktopTypesTest : public testing::Test {
 protected:
  DesktopTypesTest() {
    home_.setVariable("XDG_DATA_DIRS", home_.path() + "/system");
    std::filesystem::create_directories(systemFolder());
    std::filesystem::create_directories(userFolder());
  }

  std::string systemFolder() const { return home_.path() + "/system/mime"; }
  std::string userFolder() const { return home_.dataHome() + "/mime"; }
  static void write(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
  }

  TemporaryHome home_;
  UniformTypeTable types_;
};

TEST_F(DesktopTypesTest, BeforeTheyAreLoadedTheBuiltInTableAnswersAlone) {
  write(systemFolder() + "/globs2", "50:image/x-lwo:*.lwo\n");
  EXPECT_THAT(types_.preferredIdentifierForExtension("lwo"), StartsWith("dyn.a"));
  types_.loadDesktopTypes();
  EXPECT_EQ(types_.preferredIdentifierForExtension("lwo"), "org.freedesktop.mime.image.x-lwo");
}

TEST_F(DesktopTypesTest, AnExtensionOfTheDatabaseConformsByItsMajorType) {
  write(systemFolder() + "/globs2",
        "50:image/x-lwo:*.lwo\n50:audio/x-odd:*.oddsound\n50:video/x-odd:*.oddfilm\n"
        "50:text/x-odd:*.oddtext\n50:font/x-odd:*.oddfont\n50:application/x-odd:*.odd\n");
  types_.loadDesktopTypes();
  const std::pair<const char*, const char*> kExpected[] = {{"lwo", "public.image"},
                                                           {"oddsound", "public.audio"},
                                                           {"oddfilm", "public.movie"},
                                                           {"oddtext", "public.text"},
                                                           {"oddfont", "public.font"}};
  for (const auto& [extension, type] : kExpected) {
    const auto identifier = types_.preferredIdentifierForExtension(extension);
    EXPECT_TRUE(types_.conformsTo(identifier, type)) << extension;
    EXPECT_TRUE(types_.conformsTo(identifier, "public.data")) << extension;
    EXPECT_TRUE(types_.isDeclared(identifier)) << extension;
  }
  EXPECT_THAT(types_.conformanceOf(types_.preferredIdentifierForExtension("odd")),
              ElementsAre("org.freedesktop.mime.application.x-odd", "public.data", "public.item"));
}

TEST_F(DesktopTypesTest, AMimeTypeThatTheTableHasANameForGetsThatName) {
  write(systemFolder() + "/globs2", "50:image/jpeg:*.jpegphoto\n50:image/pjpeg:*.pj\n");
  write(systemFolder() + "/aliases", "image/pjpeg image/jpeg\n");
  types_.loadDesktopTypes();
  EXPECT_EQ(types_.preferredIdentifierForExtension("jpegphoto"), "public.jpeg");
  EXPECT_EQ(types_.preferredIdentifierForExtension("pj"), "public.jpeg");
}

TEST_F(DesktopTypesTest, ASubclassConformsToWhatItIsASubclassOf) {
  write(systemFolder() + "/globs2",
        "50:application/x-child:*.child\n50:application/x-packed:*.packed\n");
  write(systemFolder() + "/subclasses",
        "application/x-child application/x-parent\napplication/x-parent text/plain\n"
        "application/x-packed application/gzip\n");
  types_.loadDesktopTypes();
  EXPECT_THAT(types_.conformanceOf(types_.preferredIdentifierForExtension("child")),
              ElementsAre("org.freedesktop.mime.application.x-child",
                          "org.freedesktop.mime.application.x-parent", "public.data",
                          "public.plain-text", "public.item", "public.text", "public.content"));
  EXPECT_TRUE(types_.conformsTo("org.freedesktop.mime.application.x-child",
                                "org.freedesktop.mime.application.x-parent"));
  EXPECT_TRUE(types_.conformsTo("org.freedesktop.mime.application.x-child", "public.text"));
  EXPECT_TRUE(
      types_.conformsTo(types_.preferredIdentifierForExtension("packed"), "public.archive"));
}

TEST_F(DesktopTypesTest, ADocumentThatIsAZipFileInsideIsNoArchive) {
  write(systemFolder() + "/globs2", "50:application/x-boxed:*.boxed\n");
  write(systemFolder() + "/subclasses", "application/x-boxed application/zip\n");
  types_.loadDesktopTypes();
  EXPECT_FALSE(
      types_.conformsTo(types_.preferredIdentifierForExtension("boxed"), "public.archive"));
}

TEST_F(DesktopTypesTest, ACircleOfSubclassesEnds) {
  write(systemFolder() + "/globs2", "50:application/x-a:*.aaaa\n");
  write(systemFolder() + "/subclasses",
        "application/x-a application/x-b\napplication/x-b application/x-a\n");
  types_.loadDesktopTypes();
  const auto identifier = types_.preferredIdentifierForExtension("aaaa");
  EXPECT_TRUE(types_.conformsTo(identifier, "public.data"));
  EXPECT_THAT(types_.conformanceOf(identifier), testing::Contains("public.item"));
}

TEST_F(DesktopTypesTest, TheBuiltInTableGoesBeforeTheDatabase) {
  write(systemFolder() + "/globs2", "99:application/x-odd:*.jpg\n");
  types_.loadDesktopTypes();
  EXPECT_EQ(types_.preferredIdentifierForExtension("jpg"), "public.jpeg");
}

TEST_F(DesktopTypesTest, TheHeavierPatternWins) {
  write(systemFolder() + "/globs2",
        "40:image/x-a:*.dupe\n80:audio/x-b:*.dupe\n50:text/x-c:*.dupe\n");
  types_.loadDesktopTypes();
  EXPECT_EQ(types_.preferredIdentifierForExtension("dupe"), "org.freedesktop.mime.audio.x-b");
}

TEST_F(DesktopTypesTest, TheUserCanRemoveTheSystemsPatternsOfAType) {
  write(systemFolder() + "/globs2", "50:image/x-a:*.mine\n");
  write(userFolder() + "/globs2", "0:image/x-a:__NOGLOBS__\n50:audio/x-b:*.mine\n");
  types_.loadDesktopTypes();
  EXPECT_EQ(types_.preferredIdentifierForExtension("mine"), "org.freedesktop.mime.audio.x-b");
}

TEST_F(DesktopTypesTest, PatternsThatAreNoPlainExtensionAreLeftOut) {
  write(systemFolder() + "/globs2",
        "50:text/x-a:Makefile\n50:text/x-b:*.tar.zzq\n50:text/x-c:*.so.[0-9]*\n"
        "50:text/x-d:*.ZZR:cs\n50:text/x-e:*.zzs:cs\n");
  types_.loadDesktopTypes();
  for (const char* extension : {"makefile", "zzq", "so.[0-9]*", "zzr"}) {
    EXPECT_THAT(types_.preferredIdentifierForExtension(extension), StartsWith("dyn.a"))
        << extension;
  }
  EXPECT_EQ(types_.preferredIdentifierForExtension("zzs"), "org.freedesktop.mime.text.x-e");
}

TEST_F(DesktopTypesTest, PatternsAreMatchedWithoutRegardToCase) {
  write(systemFolder() + "/globs2", "50:image/x-a:*.MixedUp\n");
  types_.loadDesktopTypes();
  EXPECT_EQ(types_.preferredIdentifierForExtension("mixedUP"), "org.freedesktop.mime.image.x-a");
}

TEST_F(DesktopTypesTest, ADamagedDatabaseAddsWhatIsWhole) {
  write(systemFolder() + "/globs2",
        std::string("\0\xff:::\n", 6) +
            "number:image/x-a:*.zza\n50\n50:\n50:image/x-b\n50:noslash:*.zzc\n50:image/x-d:*.zzd");
  write(systemFolder() + "/subclasses", "one\n\n two\nimage/x-d \n");
  write(systemFolder() + "/aliases", "one\n \n");
  types_.loadDesktopTypes();
  EXPECT_EQ(types_.preferredIdentifierForExtension("zzd"), "org.freedesktop.mime.image.x-d");
  EXPECT_THAT(types_.preferredIdentifierForExtension("zza"), StartsWith("dyn.a"));
}

TEST_F(DesktopTypesTest, AMissingDatabaseAddsNothing) {
  home_.setVariable("XDG_DATA_DIRS", "/nonexistent");
  types_.loadDesktopTypes();
  EXPECT_THAT(types_.preferredIdentifierForExtension("lwo"), StartsWith("dyn.a"));
  EXPECT_EQ(types_.preferredIdentifierForExtension("png"), "public.png");
}

TEST_F(DesktopTypesTest, TheMachinesOwnDatabaseAgreesWithTheTable) {
  home_.setVariable("XDG_DATA_DIRS", std::nullopt);
  types_.loadDesktopTypes();
  const auto identifier = types_.preferredIdentifierForExtension("lwo");
  EXPECT_TRUE(types_.conformsTo(identifier, "public.image")) << identifier;
  for (const auto& row : kUniformTypes) {
    auto list = row.extensions;
    while (!list.empty()) {
      const auto extension = nextWord(list);
      EXPECT_EQ(types_.preferredIdentifierForExtension(extension), row.identifier);
    }
  }
}

TEST_F(DesktopTypesTest, LookUpsGoOnWhileTheyAreLoaded) {
  std::string globs;
  for (int i = 0; i < 20'000; ++i) {
    globs += "50:image/x-many:*.many" + std::to_string(i) + "\n";
  }
  write(systemFolder() + "/globs2", globs);
  std::atomic<bool> loaded{false};
  std::thread reader([&] {
    while (!loaded) {
      const auto identifier = types_.preferredIdentifierForExtension("many19999");
      EXPECT_TRUE(types_.conformsTo(identifier, "public.data"));
      EXPECT_EQ(types_.preferredIdentifierForExtension("png"), "public.png");
    }
  });
  std::thread otherLoader([&] { types_.loadDesktopTypes(); });
  types_.loadDesktopTypes();
  loaded = true;
  reader.join();
  otherLoader.join();
  EXPECT_EQ(types_.preferredIdentifierForExtension("many19999"),
            "org.freedesktop.mime.image.x-many");
}

}  // namespace
}  // namespace tervano::test
