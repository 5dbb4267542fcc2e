#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "tests/companion/tervano_program.h"
#include "tests/support/program.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;

using testing::EndsWith;
using testing::HasSubstr;

using Words = std::vector<std::string>;

// Rehearses actions in a private home, and looks whether anything in it has changed.
class DryRunTest : public testing::Test {
 protected:
  std::string add(Words words) {
    words.insert(words.begin(), "add");
    return home_.succeed(std::move(words));
  }
  // Path to content of every file below the home; of folders the path alone.
  std::map<std::string, std::string> everything() const {
    std::map<std::string, std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(home_.path())) {
      found[entry.path()] = entry.is_regular_file() ? contentsOf(entry.path()) : "";
    }
    return found;
  }
  ProgramOutcome rehearse(const std::string& uid, const Words& paths) {
    Words words = {"run", "--dry-run", "--json", uid};
    words.insert(words.end(), paths.begin(), paths.end());
    const auto before = everything();
    auto outcome = home_.tervano(words);
    EXPECT_EQ(everything(), before);
    return outcome;
  }
  // Each step as its verb and its words.
  std::vector<Words> steps(const std::string& uid, const Words& paths) {
    const auto outcome = rehearse(uid, paths);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    return stepsOf(outcome.output);
  }
  static std::vector<Words> stepsOf(const std::string& output) {
    std::vector<Words> all;
    for (const auto& step : nlohmann::json::parse(output)) {
      Words words = step["words"];
      words.insert(words.begin(), step["does"].get<std::string>());
      all.push_back(std::move(words));
    }
    return all;
  }

  ProgramHome home_;
};

}  // namespace

TEST_F(DryRunTest, AMoveShowsWhereEachFileWouldGo) {
  const auto to = home_.folder("to");
  home_.file("to/a.txt");
  const auto uid = add({"move", "--to", to});
  const auto first = home_.file("one/a.txt");
  const auto second = home_.file("two/a.txt");
  EXPECT_EQ(steps(uid, {first, second}),
            (std::vector<Words>{{"move", first, to + "/a 2.txt"},
                                {"move", second, to + "/a 3.txt"},
                                {"show", to + "/a 2.txt", to + "/a 3.txt"}}));
}

TEST_F(DryRunTest, AMoveThatReplacesShowsWhatWouldBeRemoved) {
  home_.succeed({"prefs", "set", "overwriteDestinationFile", "yes"});
  home_.succeed({"prefs", "set", "showFileOnMoveCopyComplete", "no"});
  const auto to = home_.folder("to");
  const auto old = home_.file("to/a.txt", "old");
  const auto file = home_.file("a.txt", "new");
  EXPECT_EQ(steps(add({"move", "--to", to}), {file}),
            (std::vector<Words>{{"remove", old}, {"move", file, old}}));
}

TEST_F(DryRunTest, AMoveOfWhatIsNotThereFailsAsItWould) {
  const auto outcome =
      rehearse(add({"move", "--to", home_.folder("to")}), {home_.path() + "/missing"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "[]\n");
  expectOneSentence(outcome.errors);
}

TEST_F(DryRunTest, AMoveOfAFolderIntoItselfFailsAsItWould) {
  const auto folder = home_.folder("folder");
  const auto inside = home_.folder("folder/inside");
  EXPECT_EQ(rehearse(add({"move", "--to", inside}), {folder}).status, 1);
}

TEST_F(DryRunTest, ACopyShowsWhereEachFileWouldGoAndWhatItWouldReplace) {
  const auto to = home_.folder("to");
  const auto old = home_.file("to/a.txt", "old");
  const auto first = home_.file("one/a.txt");
  const auto second = home_.file("two/a.txt");
  const auto uid = add({"copy", "--to", to});
  EXPECT_EQ(steps(uid, {first, second}),
            (std::vector<Words>{{"copy", first, to + "/a 2.txt"},
                                {"copy", second, to + "/a 3.txt"},
                                {"show", to + "/a 2.txt", to + "/a 3.txt"}}));
  home_.succeed({"prefs", "set", "overwriteDestinationFile", "yes"});
  home_.succeed({"prefs", "set", "showFileOnMoveCopyComplete", "no"});
  EXPECT_EQ(steps(uid, {first}), (std::vector<Words>{{"remove", old}, {"copy", first, old}}));
  EXPECT_EQ(rehearse(uid, {home_.path() + "/missing"}).status, 1);
}

TEST_F(DryRunTest, CompressShowsWhatIsPackedAndTheArchiveAndAsksForNothing) {
  const auto first = home_.file("docs/a");
  const auto second = home_.file("docs/b");
  home_.file("docs/docs.zip");
  const auto uid = add({"compress"});
  EXPECT_EQ(steps(uid, {first, second}),
            (std::vector<Words>{{"compress", first, second, home_.path() + "/docs/docs 2.zip"}}));
  EXPECT_EQ(rehearse(uid, {home_.path() + "/missing"}).status, 1);
  EXPECT_EQ(rehearse(uid, {}).status, 1);
}

TEST_F(DryRunTest, ASecureDeleteShowsTheProgramWithEveryArgumentAndAsksNothing) {
  const auto first = home_.file("a 'b' $(c).txt");
  const auto second = home_.file("-rf");
  const auto all = steps(add({"secure-delete"}), {first, second});
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0][0], "run");
  EXPECT_THAT(all[0][1], EndsWith("/tervano-remove"));
  EXPECT_EQ(Words(all[0].begin() + 2, all[0].end()), (Words{"-v", "-f", "-r", "-P", first}));
  EXPECT_EQ(all[1].back(), second);
}

TEST_F(DryRunTest, PicturesThatWouldGetOneNameGetDifferentOnes) {
  const auto uid = add({"convert", "--format", "jpeg"});
  const auto first = home_.file("a.png");
  const auto second = home_.file("a.tiff");
  const auto all = steps(uid, {first, second});
  ASSERT_EQ(all.size(), 4U);
  EXPECT_THAT(all[0][1], EndsWith("/tervano-images"));
  EXPECT_EQ(Words(all[0].begin() + 2, all[0].end()),
            (Words{"-s", "format", "jpeg", first, "--out", home_.path() + "/a.jpg"}));
  EXPECT_EQ(all[1], (Words{"show", home_.path() + "/a.jpg"}));
  EXPECT_EQ(all[2].back(), home_.path() + "/a 2.jpg");
}

TEST_F(DryRunTest, AScriptIsNotRun) {
  const auto mark = home_.path() + "/mark";
  const auto script = home_.file("script.sh", "touch '" + mark + "'\n");
  const auto file = home_.file("a.txt");
  EXPECT_EQ(steps(add({"script", "--file", script}), {file}),
            (std::vector<Words>{{"run", "/bin/bash", script, file}}));
  EXPECT_FALSE(exists(mark));
}

TEST_F(DryRunTest, AUserScriptIsNotLoadedAndItsCallIsShown) {
  const auto mark = home_.path() + "/mark";
  const auto script = home_.file("script.py", "open('" + mark + "', 'w')\n");
  const auto file = home_.file("a.txt");
  const auto all = steps(add({"user-script", "--file", script}), {file});
  ASSERT_EQ(all.size(), 2U);
  EXPECT_THAT(all[0][1], HasSubstr("python3"));
  EXPECT_EQ(all[0].back(), script);
  EXPECT_EQ(all[1], (Words{"call", "runWithPaths", file}));
  EXPECT_FALSE(exists(mark));
}

TEST_F(DryRunTest, AUserScriptThatIsMissingFailsAsItWould) {
  const auto script = home_.file("script.py");
  const auto uid = add({"user-script", "--file", script});
  fs::remove(script);
  const auto outcome = rehearse(uid, {home_.file("a.txt")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr(script));
}

TEST_F(DryRunTest, ANewFileShowsItsTemplateAndWhereTheCopyWouldStand) {
  const auto templateFile = home_.file("Letter.odt");
  const auto uid = add({"new-file", "--template", templateFile, "--name", "Letter"});
  const auto folder = home_.folder("folder");
  home_.file("folder/Letter.odt");
  EXPECT_EQ(steps(uid, {folder}),
            (std::vector<Words>{{"copy", templateFile, folder + "/Letter 2.odt"},
                                {"show", folder + "/Letter 2.odt"}}));
}

TEST_F(DryRunTest, AnApplicationIsNotStartedAndItsCommandLineIsShown) {
  const auto mark = home_.path() + "/mark";
  const auto program = home_.file("bin/viewer", "#!/bin/sh\ntouch '" + mark + "'\n");
  fs::permissions(program, fs::perms::owner_all);
  const std::string head = "[Desktop Entry]\nType=Application\nName=Viewer\nExec=" + program;
  home_.file(".local/share/applications/org.example.Viewer.desktop", head + " --many %F\n");
  home_.file(".local/share/applications/org.example.One.desktop", head + " --one %f\n");
  const auto first = home_.file("a b.txt");
  const auto second = home_.file("c.txt");
  EXPECT_EQ(steps(add({"open-with", "--app", "org.example.Viewer"}), {first, second}),
            (std::vector<Words>{{"run", program, "--many", first, second}}));
  EXPECT_EQ(
      steps(add({"open-with", "--app", "org.example.One"}), {first, second}),
      (std::vector<Words>{{"run", program, "--one", first}, {"run", program, "--one", second}}));
  EXPECT_FALSE(exists(mark));
}

TEST_F(DryRunTest, AMessageShowsTheMailProgramAndTheAttachments) {
  const auto program = home_.file("bin/mailer", "#!/bin/sh\n");
  fs::permissions(program, fs::perms::owner_all);
  const auto entry = home_.file(".local/share/applications/mailer.desktop",
                                "[Desktop Entry]\nType=Application\nName=Mailer\nExec=" + program +
                                    " %u\nMimeType=x-scheme-handler/mailto;\n");
  home_.file(".config/mimeapps.list",
             "[Default Applications]\nx-scheme-handler/mailto=mailer.desktop\n");
  const auto file = home_.file("a.txt");
  EXPECT_EQ(steps(add({"mail"}), {file}), (std::vector<Words>{{"attach", entry, file}}));
}

TEST_F(DryRunTest, AFolderIsNotOpened) {
  const auto folder = home_.folder("favourite");
  EXPECT_EQ(steps(add({"open-folder", "--to", folder}), {}),
            (std::vector<Words>{{"open", folder}}));
}

TEST_F(DryRunTest, AsTextEachWordStandsInQuotesOfItsOwn) {
  const auto script = home_.file("it's.sh", "");
  const auto uid = add({"script", "--file", script});
  EXPECT_EQ(home_.succeed({"run", "--dry-run", uid, "/a b"}),
            "run '/bin/bash' '" + home_.path() + "/it'\\''s.sh' '/a b'");
}

TEST_F(DryRunTest, JsonIsForADryRunOnly) {
  expectUsageError(home_.tervano({"run", "--json", add({"move"})}));
}

}  // namespace tervano::test
