#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/companion/tervano_program.h"
#include "tests/support/program.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class FirstRunTest : public testing::Test {
 protected:
  std::string templates() const { return home_.path() + "/Templates"; }
  std::string preference(const std::string& name) { return home_.succeed({"prefs", "get", name}); }
  static std::size_t filesIn(const std::string& folder) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
  }

  ProgramHome home_;
};

}  // namespace

TEST_F(FirstRunTest, TheFirstListHasEveryGroupEverySingleActionAndEveryScript) {
  home_.folder("Documents");
  home_.folder("Downloads");
  home_.succeed({"setup"});
  const std::string titles = home_.titles();
  EXPECT_THAT(titles, StartsWith("Move to a folder[Documents Downloads] "
                                 "Copy to a folder[Documents Downloads] Open With["));
  EXPECT_THAT(titles, HasSubstr("Create new file[Comma Separated Values Document "));
  EXPECT_THAT(titles, HasSubstr("Convert Image[JPEG PNG TIFF GIF BMP WebP PDF] "));
  EXPECT_THAT(titles,
              HasSubstr("Open new Finder window[" + fs::path(home_.path()).filename().string() +
                        " Documents Downloads] Send via Email "));
  EXPECT_THAT(titles, HasSubstr(" Secure Delete Reset App Preferences "));
  EXPECT_THAT(titles, HasSubstr(" Copy Path "));
  for (const auto* name :
       {"didCreateDefaultActions", "didCreateDefaultActions2", "didCreateDefaultTemplates"}) {
    EXPECT_EQ(preference(name), "yes") << name;
  }
}

TEST_F(FirstRunTest, TheFoldersAreTheUsersOwn) {
  home_.folder("Dokumente & mehr");
  home_.folder("elsewhere");
  home_.file(".config/user-dirs.dirs",
             "# comment\nXDG_DOCUMENTS_DIR=\"$HOME/Dokumente & mehr\"\n"
             "XDG_DOWNLOAD_DIR=\"" +
                 home_.path() + "/elsewhere/\"\n" +
                 "XDG_MUSIC_DIR=\"$HOME\"\nXDG_PICTURES_DIR=broken\n");
  home_.folder("Music");
  home_.succeed({"setup"});
  EXPECT_THAT(home_.titles(), StartsWith("Move to a folder[Dokumente & mehr elsewhere] "));
}

TEST_F(FirstRunTest, TheApplicationsOfCommonFilesAreOfferedOnceEach) {
  home_.file(".local/share/applications/org.example.All.desktop",
             "[Desktop Entry]\nType=Application\nName=All of it\nExec=/bin/true %F\n"
             "MimeType=text/plain;image/png;\n");
  home_.file(".config/mimeapps.list",
             "[Default Applications]\ntext/plain=org.example.All.desktop\n"
             "image/png=org.example.All.desktop\n");
  home_.succeed({"setup"});
  EXPECT_THAT(home_.titles(), HasSubstr("Open With[All of it"));
  EXPECT_THAT(home_.titles(), testing::Not(HasSubstr("All of it All of it")));
}

TEST_F(FirstRunTest, NewFilesAreMadeFromTheUsersOwnTemplates) {
  home_.succeed({"setup"});
  EXPECT_EQ(filesIn(templates()), 11U);
  for (const auto& entry : home_.json({"list", "--json"})) {
    if (entry["title"] != "Create new file") continue;
    ASSERT_EQ(entry["actions"].size(), 11U);
    const auto shown =
        home_.json({"show", "--json", entry["actions"][0]["uid"].get<std::string>()});
    EXPECT_THAT(shown.dump(), HasSubstr(templates().substr(1)));
  }
}

TEST_F(FirstRunTest, ATemplateOfTheSameNameStaysAsItIs) {
  const auto own = home_.file("Templates/Text File.txt", "my own");
  EXPECT_THAT(home_.succeed({"setup"}), HasSubstr("Made 10 templates in " + templates()));
  EXPECT_EQ(contentsOf(own), "my own");
}

TEST_F(FirstRunTest, WhoeverWantsNoFolderOfTemplatesGetsNone) {
  home_.file(".config/user-dirs.dirs", "XDG_TEMPLATES_DIR=\"$HOME/\"\n");
  home_.succeed({"setup"});
  EXPECT_FALSE(exists(templates()));
  EXPECT_FALSE(exists(home_.path() + "/Text File.txt"));
  EXPECT_EQ(preference("didCreateDefaultTemplates"), "yes");
  EXPECT_THAT(home_.titles(), HasSubstr("Create new file[Comma Separated Values "));
}

TEST_F(FirstRunTest, NothingIsRepeated) {
  home_.succeed({"setup"});
  fs::remove_all(templates());
  fs::remove(home_.listFile());
  EXPECT_EQ(home_.succeed({"setup"}), "Nothing to do: this was done before.");
  EXPECT_FALSE(exists(templates()));
  EXPECT_FALSE(exists(home_.listFile()));
}

TEST_F(FirstRunTest, AListThatIsThereStaysAsItIs) {
  const auto uid = home_.succeed({"add", "move", "--title", "Mine"});
  EXPECT_THAT(home_.succeed({"setup"}), HasSubstr("which stays as it is"));
  EXPECT_EQ(home_.titles(), "Mine");
  EXPECT_EQ(preference("didCreateDefaultActions"), "yes");
  EXPECT_EQ(preference("didCreateDefaultActions2"), "yes");
}

TEST_F(FirstRunTest, AListThatWasEmptiedStaysEmpty) {
  home_.succeed({"remove", home_.succeed({"add", "move"})});
  home_.succeed({"setup"});
  EXPECT_EQ(home_.titles(), "");
}

TEST_F(FirstRunTest, AListThatCannotBeReadStaysAsItIs) {
  const auto list =
      home_.file(".local/share/Q4T7N2XR8K.com.vessok.tervano/Actions.plist", "nonsense");
  home_.tervano({"setup"});
  EXPECT_EQ(contentsOf(list), "nonsense");
}

TEST_F(FirstRunTest, EachHalfOfTheListHasAFlagOfItsOwn) {
  home_.succeed({"prefs", "set", "didCreateDefaultActions", "yes"});
  home_.succeed({"setup"});
  EXPECT_THAT(home_.titles(), StartsWith("Compress to Tar Archive Copy Name "));

  ProgramHome other;
  other.succeed({"prefs", "set", "didCreateDefaultActions2", "yes"});
  other.succeed({"setup"});
  EXPECT_THAT(other.titles(), testing::EndsWith("Secure Delete Reset App Preferences"));
}

TEST_F(FirstRunTest, WhatCannotBeMadeIsMadeTheNextTime) {
  home_.file("Templates", "a file in the way");
  const auto outcome = home_.tervano({"setup"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(preference("didCreateDefaultTemplates"), "no");
  fs::remove(templates());
  home_.succeed({"setup"});
  EXPECT_EQ(filesIn(templates()), 11U);
}

TEST_F(FirstRunTest, WithoutTemplatesTheListIsMadeAllTheSameAndTheFailureIsSaid) {
  home_.file("Templates", "a file in the way");
  const auto outcome = home_.tervano({"setup"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output, StartsWith("Made a list of "));
  EXPECT_THAT(outcome.errors, HasSubstr("The templates could not be made: "));
  EXPECT_THAT(home_.titles(), HasSubstr("Create new file[Comma Separated Values "));
  EXPECT_EQ(preference("didCreateDefaultActions"), "yes");
}

TEST_F(FirstRunTest, WithoutTemplatesTheCompanionsStartMakesTheListAndLogsTheFailure) {
  home_.file("Templates", "a file in the way");
  const auto outcome = home_.tervano({"open", "tervano://nothing"});
  EXPECT_THAT(outcome.errors, HasSubstr("The templates could not be made: "));
  EXPECT_THAT(home_.titles(), StartsWith("Move to a folder["));
}

TEST_F(FirstRunTest, TheCompanionsStartMakesIt) {
  home_.tervano({"open", "tervano://nothing"});
  EXPECT_THAT(home_.titles(), StartsWith("Move to a folder["));
}

TEST_F(FirstRunTest, TheServicesStartMakesIt) {
  EXPECT_EQ(home_.tervano({"service", "--idle-seconds", "0"}).status, 0);
  EXPECT_THAT(home_.titles(), StartsWith("Move to a folder["));
}

TEST_F(FirstRunTest, NoOtherCommandMakesIt) {
  home_.succeed({"list"});
  home_.succeed({"menu", "--print", "/"});
  home_.succeed({"explain", "/"});
  EXPECT_FALSE(exists(home_.listFile()));
  EXPECT_FALSE(exists(templates()));
}

TEST_F(FirstRunTest, EveryDefaultActionCanBeRunDry) {
  home_.folder("Documents");
  home_.succeed({"setup"});
  const auto file = home_.file("Documents/picture.png");
  for (const auto& entry : home_.json({"list", "--json"})) {
    if (entry["class"] != "TVBundledScriptAction") continue;
    const auto outcome = home_.tervano({"run", "--dry-run", entry["uid"].get<std::string>(), file});
    EXPECT_EQ(outcome.status, 0) << entry["title"] << outcome.errors;
    EXPECT_THAT(outcome.output, StartsWith("run '/bin/bash' ")) << entry["title"];
  }
}

}  // namespace tervano::test
