#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "tests/companion/tervano_program.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;

class ActionKindsTest : public testing::Test {
 protected:
  nlohmann::ordered_json added(std::vector<std::string> words) {
    words.insert(words.begin(), "add");
    return home_.json({"show", home_.succeed(std::move(words)), "--json"});
  }

  ProgramHome home_;
};

std::string fileURL(const std::string& path) {
  return "file://" + path;
}

}  // namespace

TEST_F(ActionKindsTest, EveryKindMakesItsClass) {
  const std::string script = home_.file("s.py");
  const std::string folder = home_.folder("f");
  const std::map<std::string, std::vector<std::string>> options = {
      {"open-with", {"--app", script}},    {"new-file", {"--template", script}},
      {"convert", {"--format", "png"}},    {"script", {"--file", script}},
      {"user-script", {"--file", script}}, {"open-folder", {"--to", folder}},
  };
  int made = 0;
  for (const auto& kind : home_.json({"kinds", "--json"})) {
    const std::string name = kind["kind"];
    SCOPED_TRACE(name);
    std::vector<std::string> words{name};
    if (name == "bundled") words.push_back(kind["names"][0]);
    if (const auto more = options.find(name); more != options.end()) {
      words.insert(words.end(), more->second.begin(), more->second.end());
    }
    EXPECT_EQ(added(words)["class"], kind["class"]);
    ++made;
  }
  EXPECT_EQ(made, 19);
}

TEST_F(ActionKindsTest, EveryKindIsNamedByTheCommandThatListsThem) {
  const std::string text = home_.succeed({"kinds"});
  for (const auto& kind : home_.json({"kinds", "--json"})) {
    EXPECT_THAT(text, HasSubstr(std::string(kind["kind"])));
  }
  EXPECT_THAT(text, HasSubstr("new-file --template FILE [--name NAME] [--extension EXTENSION]"));
  EXPECT_THAT(text, HasSubstr("open-with --app NAME|FILE\n"));
}

TEST_F(ActionKindsTest, AnUnknownKindIsAnsweredWithTheKnownOnes) {
  const auto outcome = home_.tervano({"add", "teleport"});
  expectUsageError(outcome);
  EXPECT_THAT(outcome.errors, HasSubstr("secure-delete"));
}

TEST_F(ActionKindsTest, WhatAKindNeedsIsAskedFor) {
  for (const std::string kind :
       {"open-with", "new-file", "convert", "script", "user-script", "open-folder", "bundled"}) {
    SCOPED_TRACE(kind);
    expectUsageError(home_.tervano({"add", kind}));
  }
  EXPECT_EQ(home_.titles(), "");
}

TEST_F(ActionKindsTest, AnOptionOfAnotherKindIsRefused) {
  expectUsageError(home_.tervano({"add", "mail", "--to", home_.folder("f")}));
  expectUsageError(home_.tervano({"add", "mail", "--app", "vim"}));
  expectUsageError(home_.tervano({"add", "move", "--format", "png"}));
  expectUsageError(home_.tervano({"add", "group-move", "--file", "x"}));
  expectUsageError(home_.tervano({"add", "secure-delete", "extra"}));
  EXPECT_EQ(home_.titles(), "");
}

TEST_F(ActionKindsTest, ConvertTakesTheUsualExtensionOfItsFormat) {
  const auto jpeg = added({"convert", "--format", "jpeg"});
  EXPECT_EQ(jpeg["outputFormat"], "jpeg");
  EXPECT_EQ(jpeg["outputExtension"], "jpg");
  EXPECT_EQ(jpeg["title"], "JPEG");
  EXPECT_EQ(jpeg["fileTypes"], nlohmann::ordered_json::parse(R"(["public.image"])"));
  const auto png = added({"convert", "--format", "png", "--extension", ".PNG", "--title", "P"});
  EXPECT_EQ(png["outputExtension"], "PNG");
  EXPECT_EQ(png["title"], "P");
  expectUsageError(home_.tervano({"add", "convert", "--format", ""}));
  for (const std::string extension : {"a/b", "", "."}) {
    expectUsageError(
        home_.tervano({"add", "convert", "--format", "png", "--extension", extension}));
  }
  const std::string uid = home_.succeed({"add", "convert", "--format", "jp2"});
  EXPECT_EQ(home_.json({"show", uid, "--json"})["title"], "JPEG 2000");
  expectUsageError(home_.tervano({"set", uid, "--extension", ""}));
  EXPECT_EQ(added({"convert", "--format", "webp"})["title"], "WebP");
}

TEST_F(ActionKindsTest, NewFileTakesNameAndExtensionOfItsOptionsOrItsTemplate) {
  const std::string sheet = home_.file("Sheet.tar.gz");
  const auto plain = added({"new-file", "--template", sheet});
  EXPECT_EQ(plain["templateURL"], fileURL(sheet));
  EXPECT_EQ(plain["fileName"], "untitled");
  EXPECT_EQ(plain["extension"], "gz");
  EXPECT_EQ(plain["title"], "Sheet.tar");
  EXPECT_EQ(plain["executable"], false);
  const auto all = added(
      {"new-file", "--template", sheet, "--name", "n", "--extension", "", "--executable", "yes"});
  EXPECT_EQ(all["fileName"], "n");
  EXPECT_EQ(all["extension"], "");
  EXPECT_EQ(all["executable"], true);
  expectUsageError(home_.tervano({"add", "new-file", "--template", sheet, "--name", "a/b"}));
  for (const std::string name : {"", ".", ".."}) {
    expectUsageError(home_.tervano({"add", "new-file", "--template", sheet, "--name", name}));
  }
  expectUsageError(home_.tervano({"add", "new-file", "--template", sheet, "--executable", "1"}));
  expectUsageError(home_.tervano({"add", "new-file", "--template", home_.folder("f")}));
}

TEST_F(ActionKindsTest, ATemplateWithoutAnExtensionGivesNone) {
  for (const std::string name : {".profile", "Makefile"}) {
    const auto made = added({"new-file", "--template", home_.file(name)});
    EXPECT_EQ(made["extension"], nullptr) << name;
    EXPECT_EQ(made["title"], name);
  }
}

TEST_F(ActionKindsTest, ATemplateWhoseExtensionIsNoTextGivesNone) {
  const auto made = added({"new-file", "--template", home_.file("sheet.\xFF")});
  EXPECT_EQ(made["extension"], nullptr);
  EXPECT_EQ(made["templateURL"], "file://" + home_.path() + "/sheet.%FF");
}

TEST_F(ActionKindsTest, AFormatThatCannotBeAnExtensionNeedsOne) {
  expectUsageError(home_.tervano({"add", "convert", "--format", "a/b"}));
  EXPECT_EQ(added({"convert", "--format", "a/b", "--extension", "c"})["outputExtension"], "c");
}

TEST_F(ActionKindsTest, ATemplateThatComesWithTheProgramIsTakenByItsName) {
  const auto made = added({"new-file", "--template", "Text File.txt"});
  EXPECT_THAT(std::string(made["templateURL"]), testing::EndsWith("/Templates/Text%20File.txt"));
  EXPECT_EQ(made["title"], "Text File");
  EXPECT_EQ(made["extension"], "txt");
}

TEST_F(ActionKindsTest, AnApplicationIsNamedByItsIdentifierOrItsFile) {
  const std::string entry = home_.file(".local/share/applications/org.example.Editor.desktop",
                                       "[Desktop Entry]\nType=Application\nName=The Editor\n"
                                       "Exec=true %F\n");
  for (const std::string& name :
       {std::string("org.example.Editor"), std::string("org.example.Editor.desktop"), entry}) {
    SCOPED_TRACE(name);
    const auto outcome = home_.tervano({"add", "open-with", "--app", name});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    const auto shown =
        home_.json({"show", outcome.output.substr(0, outcome.output.size() - 1), "--json"});
    EXPECT_EQ(shown["applicationURL"], fileURL(entry));
    EXPECT_EQ(shown["title"], "The Editor");
  }
  expectUsageError(home_.tervano({"add", "open-with", "--app", "no.such.App"}));
  expectUsageError(home_.tervano({"add", "open-with", "--app", ""}));
}

TEST_F(ActionKindsTest, AnApplicationByItsPathIsAFileOrAFolderBundle) {
  for (const auto& path : {home_.file("program"), home_.folder("Own.app"), home_.folder("O.APP")}) {
    EXPECT_EQ(added({"open-with", "--app", path})["applicationURL"], fileURL(path));
  }
  expectUsageError(home_.tervano({"add", "open-with", "--app", home_.folder("folder")}));
  const auto outcome = home_.tervano({"add", "open-with", "--app", home_.path() + "/none"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors,
            "Note: the application " + home_.path() + "/none does not exist yet.\n");
}

TEST_F(ActionKindsTest, ScriptsAreFilesAndAMissingOneIsNoted) {
  const auto outcome = home_.tervano({"add", "script", "--file", "/no/such/script.sh"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("does not exist yet"));
  const std::string script = home_.file("my script.sh");
  const auto shown = added({"script", "--file", script});
  EXPECT_EQ(shown["title"], "Run Script");
  EXPECT_EQ(shown["isEditable"], true);
  EXPECT_EQ(added({"user-script", "--file", script})["title"], "my script");
  expectUsageError(home_.tervano({"add", "script", "--file", home_.folder("f")}));
}

TEST_F(ActionKindsTest, BundledScriptsHaveTheirNameAndDescription) {
  const auto kinds = home_.json({"kinds", "--json"});
  for (const auto& kind : kinds) {
    if (kind["kind"] != "bundled") continue;
    ASSERT_GE(kind["names"].size(), 8U);
    for (const std::string name : kind["names"]) {
      SCOPED_TRACE(name);
      const auto shown = added({"bundled", name});
      EXPECT_EQ(shown["title"], name);
      EXPECT_EQ(shown["isEditable"], false);
      EXPECT_EQ(shown["isDefault"], true);
      EXPECT_NE(shown["actionDescription"], nullptr);
    }
  }
  expectUsageError(home_.tervano({"add", "bundled", "No Such Script"}));
}

TEST_F(ActionKindsTest, TheScriptOfABundledOneCannotBeChanged) {
  const std::string script = home_.file("own.sh");
  expectUsageError(home_.tervano({"add", "bundled", "Copy Name", "--file", script}));
  const std::string uid = home_.succeed({"add", "bundled", "Copy Name"});
  const auto before = home_.json({"show", uid, "--json"});
  expectUsageError(home_.tervano({"set", uid, "--file", script}));
  EXPECT_EQ(home_.json({"show", uid, "--json"}), before);
  home_.succeed({"set", uid, "--title", "Names", "--description", "Mine"});
  EXPECT_EQ(home_.json({"show", uid, "--json"})["title"], "Names");
}

TEST_F(ActionKindsTest, SetChangesWhatAddCanSet) {
  const std::string uid = home_.succeed({"add", "convert", "--format", "png"});
  home_.succeed({"set", uid, "--format", "tiff", "--extension", "tif"});
  const auto shown = home_.json({"show", uid, "--json"});
  EXPECT_EQ(shown["outputFormat"], "tiff");
  EXPECT_EQ(shown["outputExtension"], "tif");
  expectUsageError(home_.tervano({"set", uid, "--file", home_.file("s.sh")}));
}

TEST_F(ActionKindsTest, AFavouriteFolderIsListedWithItsFolder) {
  const std::string folder = home_.folder("Music");
  added({"open-folder", "--to", folder});
  EXPECT_EQ(home_.json({"list", "--json"})[0]["destination"], folder);
  EXPECT_EQ(home_.titles(), "Music");
}

}  // namespace tervano::test
