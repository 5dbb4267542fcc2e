#include <gmock/gmock.h>

#include <array>
#include <cstdio>

#include "archive/platform_exception.h"
#include "tests/model/model_test.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

class TVActionTest : public ModelTest {
 protected:
  std::shared_ptr<TVAction> decodedWithout(std::string_view key) const {
    return unarchived(withEditedObject(archived(action<SampleAction>()), "enabled",
                                       [&](auto& object) { object.erase(std::string(key)); }));
  }
  static ImagePtr colouredImage(int pixels, double points) {
    Bitmap bitmap = Bitmap::blank(pixels, pixels);
    for (std::size_t i = 0; i < bitmap.pixels.size(); i += 4) {
      bitmap.pixels[i] = 200;
      bitmap.pixels[i + 3] = 255;
    }
    return Image::imageWithBitmap(bitmap, {points, points});
  }
};

TEST_F(TVActionTest, TwoNewActionsHaveDifferentUidsOf32UpperCaseHexadecimalCharacters) {
  const auto first = action<TVAction>();
  const auto second = action<TVAction>();
  EXPECT_THAT(first->uid().value(), MatchesRegex("[0-9A-F]{32}"));
  EXPECT_THAT(second->uid().value(), MatchesRegex("[0-9A-F]{32}"));
  EXPECT_NE(first->uid(), second->uid());
}

TEST_F(TVActionTest, ABlankActionHasEveryFieldEmpty) {
  const TVAction blank;
  EXPECT_FALSE(blank.enabled());
  EXPECT_FALSE(blank.isNew());
  EXPECT_FALSE(blank.isDefault());
  EXPECT_EQ(blank.uid(), std::nullopt);
  EXPECT_EQ(blank.icon(), nullptr);
  EXPECT_EQ(blank.title(), std::nullopt);
  EXPECT_EQ(blank.actionDescription(), std::nullopt);
  EXPECT_EQ(blank.fileTypes(), std::nullopt);
  EXPECT_EQ(blank.defaultTitle(), std::nullopt);
}

TEST_F(TVActionTest, ANewBaseActionIsEnabledAndNewAndHasNeitherTitleNorIcon) {
  const auto fresh = action<TVAction>();
  EXPECT_TRUE(fresh->enabled());
  EXPECT_TRUE(fresh->isNew());
  EXPECT_FALSE(fresh->isDefault());
  EXPECT_EQ(fresh->icon(), nullptr);
  EXPECT_EQ(fresh->title(), std::nullopt);
  EXPECT_EQ(fresh->actionDescription(), std::nullopt);
  EXPECT_EQ(fresh->fileTypes(), std::nullopt);
  EXPECT_EQ(fresh->editorClassName(), std::nullopt);
}

TEST_F(TVActionTest, InitTakesTheTitleFromTheOverriddenDefaultTitle) {
  EXPECT_EQ(action<SampleAction>()->title(), "Sample");
}

TEST_F(TVActionTest, DefaultTitleOfTheBaseIsWhatWasStored) {
  TVAction blank;
  blank.setDefaultTitle("Stored");
  EXPECT_EQ(blank.defaultTitle(), "Stored");
  blank.init();
  EXPECT_EQ(blank.title(), "Stored");
}

TEST_F(TVActionTest, ActionMakesAnObjectOfTheReceivingClass) {
  EXPECT_EQ(action<SampleAction>()->className(), "TVSampleAction");
}

TEST_F(TVActionTest, GenerateUIDReplacesTheUid) {
  const auto fresh = action<TVAction>();
  const auto before = fresh->uid();
  fresh->generateUID();
  EXPECT_NE(fresh->uid(), before);
  EXPECT_THAT(fresh->uid().value(), MatchesRegex("[0-9A-F]{32}"));
}

TEST_F(TVActionTest, ACopyKeepsUidTitleEnabledStateIsDefaultFileTypesAndDescription) {
  const auto source = action<SampleAction>();
  source->setEnabled(false);
  const auto copy = source->copy();
  EXPECT_EQ(copy->uid(), source->uid());
  EXPECT_EQ(copy->title(), source->title());
  EXPECT_FALSE(copy->enabled());
  EXPECT_TRUE(copy->isDefault());
  EXPECT_EQ(copy->fileTypes(), source->fileTypes());
  EXPECT_EQ(copy->actionDescription(), source->actionDescription());
}

TEST_F(TVActionTest, ACopyIsNotNew) {
  const auto source = action<SampleAction>();
  ASSERT_TRUE(source->isNew());
  EXPECT_FALSE(source->copy()->isNew());
}

TEST_F(TVActionTest, ACopyIsAnObjectOfTheSameClass) {
  const std::shared_ptr<TVAction> source = action<SampleAction>();
  EXPECT_NE(std::dynamic_pointer_cast<SampleAction>(source->copy()), nullptr);
}

TEST_F(TVActionTest, ACopyHasAnIconObjectOfItsOwn) {
  const auto source = action<SampleAction>();
  const auto copy = source->copy();
  ASSERT_NE(copy->icon(), nullptr);
  EXPECT_NE(copy->icon(), source->icon());
  EXPECT_EQ(copy->icon()->draw(32, 32), source->icon()->draw(32, 32));
}

TEST_F(TVActionTest, ACopyOfAnActionWithoutIconHasABlankOne) {
  const auto copy = action<TVAction>()->copy();
  ASSERT_NE(copy->icon(), nullptr);
  EXPECT_EQ(copy->icon()->size(), (Size{16, 16}));
  EXPECT_EQ(copy->icon()->draw(32, 32), Bitmap::blank(32, 32));
}

TEST_F(TVActionTest, ACopyDoesNotTakeTheDefaultTitle) {
  const auto source = action<TVAction>();
  source->setDefaultTitle("Stored");
  EXPECT_EQ(source->copy()->defaultTitle(), std::nullopt);
}

TEST_F(TVActionTest, ACopyKeepsItsFieldsWhenTheSourceChanges) {
  const auto source = action<SampleAction>();
  const auto copy = source->copy();
  source->setTitle("Other");
  source->setFileTypes(std::nullopt);
  EXPECT_EQ(copy->title(), "Sample");
  EXPECT_TRUE(copy->fileTypes().has_value());
}

TEST_F(TVActionTest, ACopyOfABlankActionHasNoUid) {
  EXPECT_EQ(std::make_shared<TVAction>()->copy()->uid(), std::nullopt);
}

TEST_F(TVActionTest, DecodingWithoutUidGeneratesOne) {
  const auto decoded = decodedWithout("uid");
  EXPECT_THAT(decoded->uid().value(), MatchesRegex("[0-9A-F]{32}"));
}

TEST_F(TVActionTest, DecodingWithANilUidGeneratesOne) {
  const auto decoded = unarchived(withEditedObject(archived(action<SampleAction>()), "enabled",
                                                   [](auto& object) { object["uid"] = Uid{0}; }));
  EXPECT_THAT(decoded->uid().value(), MatchesRegex("[0-9A-F]{32}"));
}

TEST_F(TVActionTest, DecodingWithoutEnabledGivesADisabledAction) {
  EXPECT_FALSE(decodedWithout("enabled")->enabled());
}

TEST_F(TVActionTest, DecodingWithoutIconGivesABlankIconOf16By16Points) {
  const auto decoded = decodedWithout("icon");
  ASSERT_NE(decoded->icon(), nullptr);
  EXPECT_EQ(decoded->icon()->size(), (Size{16, 16}));
  EXPECT_EQ(decoded->icon()->draw(32, 32), Bitmap::blank(32, 32));
}

TEST_F(TVActionTest, DecodingWithoutTitleGivesNilAndNotTheDefaultTitle) {
  EXPECT_EQ(decodedWithout("title")->title(), std::nullopt);
}

TEST_F(TVActionTest, DecodingWithoutIsDefaultGivesNo) {
  EXPECT_FALSE(decodedWithout("isDefault")->isDefault());
}

TEST_F(TVActionTest, DecodingWithoutFileTypesGivesNil) {
  EXPECT_EQ(decodedWithout("fileTypes")->fileTypes(), std::nullopt);
}

TEST_F(TVActionTest, DecodingWithoutActionDescriptionGivesNil) {
  EXPECT_EQ(decodedWithout("actionDescription")->actionDescription(), std::nullopt);
}

TEST_F(TVActionTest, ADecodedSubclassTakesItsFieldsFromTheArchiveOnly) {
  const auto source = action<SampleAction>();
  source->setTitle("Mine");
  source->setIsDefault(false);
  source->setActionDescription(std::nullopt);
  source->setFileTypes(std::nullopt);
  const auto decoded = unarchived<SampleAction>(archived(source));
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(decoded->uid(), source->uid());
  EXPECT_EQ(decoded->title(), "Mine");
  EXPECT_TRUE(decoded->enabled());
  EXPECT_FALSE(decoded->isDefault());
  EXPECT_FALSE(decoded->isNew());
  EXPECT_EQ(decoded->actionDescription(), std::nullopt);
  EXPECT_EQ(decoded->fileTypes(), std::nullopt);
}

TEST_F(TVActionTest, ADecodedIconIsANewImageThatLooksTheSame) {
  const auto source = action<SampleAction>();
  source->setIcon(colouredImage(32, 32));
  const auto decoded = unarchived(archived(source));
  EXPECT_NE(decoded->icon(), source->icon());
  EXPECT_EQ(decoded->icon()->size(), (Size{16, 16}));
  EXPECT_EQ(decoded->icon()->draw(32, 32), source->icon()->draw(32, 32));
}

TEST_F(TVActionTest, EveryFieldSurvivesTheArchive) {
  const auto source = action<SampleAction>();
  const auto decoded = unarchived(archived(source));
  EXPECT_EQ(decoded->uid(), source->uid());
  EXPECT_EQ(decoded->title(), source->title());
  EXPECT_EQ(decoded->enabled(), source->enabled());
  EXPECT_EQ(decoded->isDefault(), source->isDefault());
  EXPECT_EQ(decoded->fileTypes(), source->fileTypes());
  EXPECT_EQ(decoded->actionDescription(), source->actionDescription());
}

TEST_F(TVActionTest, AnEmptyListOfFileTypesIsNotNilAfterTheArchive) {
  const auto source = action<SampleAction>();
  source->setFileTypes(std::vector<std::string>());
  EXPECT_EQ(unarchived(archived(source))->fileTypes(), std::vector<std::string>());
}

TEST_F(TVActionTest, TheKeysAreEncodedInTheirOrder) {
  EXPECT_THAT(encodedKeys(archived(action<SampleAction>()), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "$class"));
}

TEST_F(TVActionTest, KeysOfNilValuesAreEncodedAsNil) {
  const auto object = encodedObject(archived(action<TVAction>()), "enabled");
  for (const char* key : {"title", "icon", "fileTypes", "actionDescription"}) {
    ASSERT_TRUE(object.contains(key)) << key;
    EXPECT_EQ(object.at(key), Value(Uid{0})) << key;
  }
  EXPECT_EQ(object.at("enabled"), Value(true));
  EXPECT_EQ(object.at("isDefault"), Value(false));
}

TEST_F(TVActionTest, DecodingReadsTheKeysInTheirOrder) {
  // Each key of a wrong type is complained about before the ones that follow it.
  const std::vector<std::string> keys = {
      "uid", "enabled", "title", "icon", "isDefault", "fileTypes", "actionDescription"};
  const Data whole = archived(action<SampleAction>());
  for (std::size_t first = 0; first < keys.size(); ++first) {
    const Data wrong = withEditedObject(whole, "enabled", [&](auto& object) {
      for (std::size_t i = first; i < keys.size(); ++i) object[keys[i]] = Value("a bare text");
    });
    try {
      unarchived(wrong);
      ADD_FAILURE() << keys[first] << " of a wrong type was taken";
    } catch (const PlatformException& exception) {
      EXPECT_THAT(exception.reason(), testing::HasSubstr(keys[first]));
    }
  }
}

TEST_F(TVActionTest, SetIconStoresAnImageOf16By16PointsForOneOf512) {
  TVAction blank;
  blank.setIcon(colouredImage(512, 512));
  EXPECT_EQ(blank.icon()->size(), (Size{16, 16}));
  const Bitmap drawn = blank.icon()->draw(32, 32);
  ASSERT_EQ(drawn.pixels.size(), 32U * 32U * 4U);
  EXPECT_EQ(drawn.pixels[0], 200);
  EXPECT_EQ(drawn.pixels[3], 255);
}

TEST_F(TVActionTest, SetIconNeverStoresTheGivenObject) {
  TVAction blank;
  const auto given = colouredImage(32, 16);
  blank.setIcon(given);
  EXPECT_NE(blank.icon(), given);
}

TEST_F(TVActionTest, SetIconOfNilStoresABlankIcon) {
  TVAction blank;
  blank.setIcon(nullptr);
  ASSERT_NE(blank.icon(), nullptr);
  EXPECT_EQ(blank.icon()->size(), (Size{16, 16}));
  EXPECT_EQ(blank.icon()->draw(32, 32), Bitmap::blank(32, 32));
}

TEST_F(TVActionTest, DescriptionHoldsClassAddressAndTitle) {
  const auto sample = action<SampleAction>();
  sample->setTitle("Copy to a folder");
  std::array<char, 32> address{};
  std::snprintf(address.data(), address.size(), "%p", static_cast<void*>(sample.get()));
  EXPECT_EQ(sample->description(),
            std::string("<TVSampleAction: ") + address.data() + " title=Copy to a folder>");
}

TEST_F(TVActionTest, DescriptionShowsANilTitleAsNull) {
  EXPECT_THAT(action<TVAction>()->description(),
              MatchesRegex("<TVAction: 0x[0-9a-f]+ title=\\(null\\)>"));
}

TEST_F(TVActionTest, BeforeRunCallsTheBlockAtOnceWithNil) {
  int calls = 0;
  action<TVAction>()->beforeRunWithFilePaths({"/a"}, [&](const Value& object) {
    EXPECT_TRUE(object.isNull());
    ++calls;
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(TVActionTest, BeforeRunWithoutBlockDoesNothing) {
  EXPECT_NO_THROW(action<TVAction>()->beforeRunWithFilePaths({"/a"}, nullptr));
}

TEST_F(TVActionTest, RunningTheBaseOnlyLogsThatItShouldBeOverridden) {
  bool called = false;
  action<TVAction>()->runWithFilePaths({"/a"},
                                       [&](bool, const std::optional<Error>&) { called = true; });
  EXPECT_THAT(logged(), ElementsAre("Subclasses should override this"));
  EXPECT_FALSE(called);
}

TEST_F(TVActionTest, AnArchivedTextOfAnyUnicodeSurvives) {
  const auto source = action<TVAction>();
  source->setTitle("Größe \xF0\x9F\x93\x81 \"$null\"");
  EXPECT_EQ(unarchived(archived(source))->title(), source->title());
  source->setTitle("$null");
  EXPECT_EQ(unarchived(archived(source))->title(), "$null");
}

}  // namespace
}  // namespace tervano::test
