#include <gmock/gmock.h>

#include "actions/path_names.h"
#include "actions/tv_convert_image_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_new_file_action.h"
#include "archive/url.h"
#include "tests/actions/tool_action_test.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;

// The actions that make files, each asked for a file of one name in a folder of its own in which
// the same names are taken.
class NumberingRuleTest : public ToolActionTest {
 protected:
  NumberingRuleTest() { setTool("/usr/bin/sips", "exit 0\n"); }

  // What move, new file and convert image call their files.
  std::vector<std::string> namesFor(const std::string& name,
                                    const std::vector<std::string>& taken) {
    return {movedAs(name, folderWith(taken)), createdAs(name, folderWith(taken)),
            convertedAs(name, folderWith(taken))};
  }

 private:
  std::string folderWith(const std::vector<std::string>& taken) {
    const std::string folder = makeFolder("folder" + std::to_string(++folders_));
    for (const auto& name : taken) makeFile(lastPathComponent(folder) + "/" + name);
    return folder;
  }
  std::string movedAs(const std::string& name, const std::string& folder) {
    const auto move = action<TVMoveToAction>();
    move->setDestinationURL(Url::fileURLWithPath(folder, true));
    EXPECT_TRUE(
        runToEnd(*move, {makeFile("source" + std::to_string(++folders_) + "/" + name)}).success());
    return workspace_.revealed().back().front().lastPathComponent();
  }
  std::string createdAs(const std::string& name, const std::string& folder) {
    const auto newFile = action<TVNewFileAction>();
    newFile->setFileName(deletingPathExtension(name));
    newFile->setExtension(pathExtension(name));
    newFile->setTemplateURL(Url::fileURLWithPath(makeFile("template")));
    EXPECT_TRUE(runToEnd(*newFile, {folder}).success());
    return workspace_.revealed().back().front().lastPathComponent();
  }
  std::string convertedAs(const std::string& name, const std::string& folder) {
    const auto convert = action<TVConvertImageAction>();
    convert->setOutputFormat("png");
    convert->setOutputExtension(pathExtension(name));
    runToEnd(*convert, {folder + "/" + deletingPathExtension(name) + ".tif"});
    return workspace_.revealed().back().front().lastPathComponent();
  }

  int folders_ = 0;
};

TEST_F(NumberingRuleTest, AFreeNameIsTakenByAllAsItIs) {
  EXPECT_THAT(namesFor("a.png", {}), ElementsAre("a.png", "a.png", "a.png"));
}

TEST_F(NumberingRuleTest, ATakenNameIsNumberedByAllAlike) {
  EXPECT_THAT(namesFor("a.png", {"a.png"}), ElementsAre("a 2.png", "a 2.png", "a 2.png"));
}

TEST_F(NumberingRuleTest, TakenNumbersAreSkippedByAllAlike) {
  EXPECT_THAT(namesFor("a.png", {"a.png", "a 2.png", "a 4.png"}),
              ElementsAre("a 3.png", "a 3.png", "a 3.png"));
}

TEST_F(NumberingRuleTest, OnlyTheLastExtensionCountsForAll) {
  EXPECT_THAT(namesFor("a.tar.gz", {"a.tar.gz"}),
              ElementsAre("a.tar 2.gz", "a.tar 2.gz", "a.tar 2.gz"));
}

TEST_F(NumberingRuleTest, ANameWithoutExtensionIsNumberedByAllAlike) {
  EXPECT_THAT(namesFor("README", {"README"}), ElementsAre("README 2", "README 2", "README 2"));
}

TEST_F(NumberingRuleTest, TheLongestNameIsShortenedByAllAlike) {
  const std::string taken = std::string(251, 'n') + ".png";
  const std::string numbered = std::string(249, 'n') + " 2.png";
  EXPECT_THAT(namesFor(taken, {taken}), ElementsAre(numbered, numbered, numbered));
}

}  // namespace
}  // namespace tervano::test
