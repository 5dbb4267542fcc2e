#include "actions/tv_bundled_script_action.h"

#include <gmock/gmock.h>

#include "archive/property_list.h"
#include "platform/linux/installed_bundle.h"
#include "tests/actions/action_test.h"
#include "tests/actions/recorded_block.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class OwnBundledScriptAction : public TVBundledScriptAction {
 public:
  std::string_view className() const override { return "OwnBundledScriptAction"; }
};

// Resources of the test's own.
class TVBundledScriptActionTest : public ActionTest {
 protected:
  TVBundledScriptActionTest() : bundle_(home() + "/bin/program") {
    platform_.services().bundle = &bundle_;
    makeFolder("share/tervano");
  }

  std::string makeScript(const std::string& name, const std::string& text = "exit 0\n") {
    return makeFile("share/tervano/Default Scripts/" + name + ".sh", text);
  }
  void makeDescriptions(const Value& list) {
    const Data bytes = XMLDataWithPropertyList(list);
    makeFile("share/tervano/BundledDescriptions.plist", std::string(bytes.begin(), bytes.end()));
  }
  static std::shared_ptr<TVBundledScriptAction> bundled(const std::string& name) {
    return TVBundledScriptAction::actionWithBundledFileName(name);
  }

  InstalledBundle bundle_;
};

TEST_F(TVBundledScriptActionTest, AScriptOfTheResourcesBecomesAnAction) {
  const auto path = makeScript("Clean Up");
  makeDescriptions(Value::Dictionary{{"Clean Up", "Cleans up."}, {"Other", "Else."}});
  const auto made = bundled("Clean Up");
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->title(), "Clean Up");
  EXPECT_EQ(made->defaultTitle(), "Clean Up");
  EXPECT_EQ(made->actionDescription(), "Cleans up.");
  EXPECT_EQ(made->scriptURL(), Url::fileURLWithPath(path));
  EXPECT_FALSE(made->isEditable());
  EXPECT_TRUE(made->isDefault());
  EXPECT_TRUE(made->isNew());
  EXPECT_TRUE(made->enabled());
  EXPECT_EQ(made->uid()->size(), 32u);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVBundledScriptActionTest, AMissingScriptIsNilAndOneLineInTheLog) {
  makeScript("Present");
  EXPECT_EQ(bundled("Missing"), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("Couldn't find file: Missing"));
}

TEST_F(TVBundledScriptActionTest, AnEmptyNameIsNilAndOneLineInTheLog) {
  makeScript("");
  EXPECT_EQ(bundled(""), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("Couldn't find file: "));
}

TEST_F(TVBundledScriptActionTest, AnEmptyPathIsNoScript) {
  class EmptyAnswers : public ForwardingBundle {
   public:
    using ForwardingBundle::ForwardingBundle;
    using ForwardingBundle::pathForResource;
    std::optional<std::string> pathForResource(const std::string& /*name*/,
                                               const std::string& /*type*/,
                                               const std::string& /*subdirectory*/) const override {
      return "";
    }
  } emptyAnswers(bundle_);
  platform_.services().bundle = &emptyAnswers;
  EXPECT_EQ(bundled("Clean Up"), nullptr);
  platform_.services().bundle = &bundle_;
  EXPECT_THAT(log_.lines(), ElementsAre("Couldn't find file: Clean Up"));
}

TEST_F(TVBundledScriptActionTest, WithoutAnyResourcesItIsNil) {
  EXPECT_EQ(bundled("Clean Up"), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("Couldn't find file: Clean Up"));
}

TEST_F(TVBundledScriptActionTest, OnlyTheFolderOfDefaultScriptsCounts) {
  makeFile("share/tervano/Beside.sh", "exit 0\n");
  makeFile("share/tervano/Default Scripts/Other.txt", "exit 0\n");
  EXPECT_EQ(bundled("Beside"), nullptr);
  EXPECT_EQ(bundled("Other"), nullptr);
}

TEST_F(TVBundledScriptActionTest, ANameThatLeadsOutOfTheResourcesIsNil) {
  makeFile("outside.sh", "exit 0\n");
  makeScript("Present");
  EXPECT_EQ(bundled("../../../outside"), nullptr);
}

TEST_F(TVBundledScriptActionTest, AScriptThatTheListDoesNotDescribeHasNoDescription) {
  makeScript("Clean Up");
  makeDescriptions(Value::Dictionary{{"Other", "Else."}});
  const auto made = bundled("Clean Up");
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->actionDescription(), std::nullopt);
  EXPECT_EQ(made->title(), "Clean Up");
  EXPECT_EQ(made->defaultTitle(), "Clean Up");
}

TEST_F(TVBundledScriptActionTest, WithoutListOrWithAnEmptyOrOddOneThereIsNoDescription) {
  makeScript("Clean Up");
  EXPECT_EQ(bundled("Clean Up")->actionDescription(), std::nullopt);
  makeDescriptions(Value::Dictionary{});
  EXPECT_EQ(bundled("Clean Up")->actionDescription(), std::nullopt);
  makeDescriptions(Value::Array{"Clean Up"});
  EXPECT_EQ(bundled("Clean Up")->actionDescription(), std::nullopt);
  makeDescriptions(Value::Dictionary{{"Clean Up", 7}});
  EXPECT_EQ(bundled("Clean Up")->actionDescription(), std::nullopt);
  makeFile("share/tervano/BundledDescriptions.plist", "no list");
  EXPECT_EQ(bundled("Clean Up")->actionDescription(), std::nullopt);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVBundledScriptActionTest, AnImageOfTheScriptsNameIsItsIcon) {
  makeScript("Clean Up");
  makeFile("share/tervano/icons/Clean Up.svg",
           "<svg xmlns='http://www.w3.org/2000/svg' width='16' height='16'>"
           "<rect width='16' height='16' fill='#ff0000'/></svg>");
  const auto made = bundled("Clean Up");
  ASSERT_NE(made->icon(), nullptr);
  EXPECT_EQ(made->icon()->name(), "Clean Up");
  EXPECT_EQ(made->icon()->size(), (Size{16, 16}));
}

TEST_F(TVBundledScriptActionTest, WithoutSuchAnImageTheIconIsThatOfShellScripts) {
  makeScript("Clean Up");
  ASSERT_NE(bundled("Clean Up")->icon(), nullptr);
  EXPECT_EQ(bundled("Clean Up")->icon()->name(), "icon-shell");
}

TEST_F(TVBundledScriptActionTest, TheActionIsOfTheReceivingClass) {
  makeScript("Clean Up");
  const std::shared_ptr<OwnBundledScriptAction> own =
      OwnBundledScriptAction::actionWithBundledFileName<OwnBundledScriptAction>("Clean Up");
  ASSERT_NE(own, nullptr);
  EXPECT_EQ(own->className(), "OwnBundledScriptAction");
  EXPECT_EQ(own->title(), "Clean Up");
  EXPECT_EQ(bundled("Clean Up")->className(), "TVBundledScriptAction");
}

TEST_F(TVBundledScriptActionTest, TwoOfOneScriptHaveTheirOwnUids) {
  makeScript("Clean Up");
  EXPECT_NE(bundled("Clean Up")->uid(), bundled("Clean Up")->uid());
}

TEST_F(TVBundledScriptActionTest, OddNamesAreTakenAsTheyAre) {
  for (const char* const name :
       {"a\nb", "$(touch injected)", "it's \"so\"", "-rf", "%41", ".dot"}) {
    const auto path = makeScript(name);
    const auto made = bundled(name);
    ASSERT_NE(made, nullptr) << name;
    EXPECT_EQ(made->title(), name);
    EXPECT_EQ(made->scriptURL()->path(), path);
  }
}

TEST_F(TVBundledScriptActionTest, ANewActionIsADefaultOneThatMayNotBeEdited) {
  const auto fresh = action<TVBundledScriptAction>();
  EXPECT_FALSE(fresh->isEditable());
  EXPECT_TRUE(fresh->isDefault());
  EXPECT_EQ(fresh->title(), "Run Script");
  EXPECT_EQ(fresh->defaultTitle(), "Run Script");
  EXPECT_EQ(fresh->icon()->name(), "icon-shell");
  EXPECT_EQ(fresh->scriptURL(), std::nullopt);
  EXPECT_EQ(fresh->actionDescription(), std::nullopt);
}

TEST_F(TVBundledScriptActionTest, TheStoredDefaultTitleIsAnsweredWhenOneIsSet) {
  const auto fresh = action<TVBundledScriptAction>();
  fresh->setDefaultTitle("Stored");
  EXPECT_EQ(fresh->defaultTitle(), "Stored");
  fresh->setDefaultTitle(std::nullopt);
  EXPECT_EQ(fresh->defaultTitle(), "Run Script");
}

TEST_F(TVBundledScriptActionTest, ItsEditorIsTheOneWithNothingToEdit) {
  EXPECT_EQ(action<TVBundledScriptAction>()->editorClassName(), "TVResetAppModule");
}

TEST_F(TVBundledScriptActionTest, ItsChainNamesTheShellScriptAction) {
  EXPECT_THAT(*registry_.chain("TVBundledScriptAction"),
              ElementsAre("TVBundledScriptAction", "TVShellScriptAction", "TVAction", "NSObject"));
}

TEST_F(TVBundledScriptActionTest, ItsArchiveIsThatOfAShellScript) {
  makeScript("Clean Up");
  const auto made = bundled("Clean Up");
  const Data archive = archived(made);
  EXPECT_THAT(encodedKeys(archive, "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "scriptURL", "isEditable", "$class"));
  const auto decoded = unarchived<TVBundledScriptAction>(archive);
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(decoded->scriptURL(), made->scriptURL());
  EXPECT_EQ(decoded->title(), "Clean Up");
  EXPECT_EQ(decoded->defaultTitle(), "Run Script");
  EXPECT_FALSE(decoded->isEditable());
  EXPECT_TRUE(decoded->isDefault());
}

TEST_F(TVBundledScriptActionTest, DecodingAppliesNothingOfANewAction) {
  const auto decoded = unarchived<TVBundledScriptAction>(withEditedObject(
      archived(action<TVBundledScriptAction>()), "enabled", [](Value::Dictionary& object) {
        object["isEditable"] = true;
        object.erase("isDefault");
        object.erase("title");
      }));
  EXPECT_TRUE(decoded->isEditable());
  EXPECT_FALSE(decoded->isDefault());
  EXPECT_EQ(decoded->title(), std::nullopt);
}

TEST_F(TVBundledScriptActionTest, ACopyIsOfItsClassWithTheSameScript) {
  makeScript("Clean Up");
  const auto made = bundled("Clean Up");
  const auto copy = std::dynamic_pointer_cast<TVBundledScriptAction>(made->copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->scriptURL(), made->scriptURL());
  EXPECT_EQ(copy->uid(), made->uid());
  EXPECT_FALSE(copy->isEditable());
  EXPECT_TRUE(copy->isDefault());
  EXPECT_EQ(copy->defaultTitle(), "Run Script");
}

TEST_F(TVBundledScriptActionTest, ItRunsAsAShellScript) {
  const auto path = makeScript("Clean Up", "echo \"$0 $1\"\n");
  const auto made = bundled("Clean Up");
  RecordedBlock end;
  made->runWithFilePaths({"/a b"}, end.block());
  EXPECT_TRUE(waitUntil([&] { return end.calls() == 1; }, 30));
  EXPECT_TRUE(end.success());
  EXPECT_THAT(log_.lines(), ElementsAre("Run with script: " + made->scriptURL()->absoluteString(),
                                        "Got output: " + path + " /a b\n"));
}

}  // namespace
}  // namespace tervano::test
