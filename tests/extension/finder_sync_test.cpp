#include "extension/finder_sync.h"

#include <gmock/gmock.h>

#include "extension/hand_off.h"
#include "model/tv_action_groups.h"
#include "platform/notify_channel.h"
#include "platform/workspace.h"
#include "store/tv_actions_manager.h"
#include "tests/extension/extension_test.h"
#include "tests/extension/menu_text.h"
#include "tests/support/child_process.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class StartUpTest : public FinderSyncTest {
 protected:
  void postVolumeChange(const char* name) {
    const int sender = 0;
    workspace_.notificationCenter().post({name, &sender, {}});
  }
};

TEST_F(StartUpTest, EveryVisibleVolumeIsWatched) {
  volumes_.urls = {Url("file:///"), Url("file:///media/stick/"), Url("file:///")};
  finderSync();
  ASSERT_THAT(controller_->directories, SizeIs(1));
  EXPECT_THAT(controller_->directories[0],
              ElementsAre(Url("file:///"), Url("file:///media/stick/")));
  EXPECT_THAT(volumes_.skippedHidden, ElementsAre(true));
}

TEST_F(StartUpTest, PreferencesAndActionsAreLoadedAndTheMessengerListens) {
  EXPECT_NE(finderSync().userDefaults(), nullptr);
  EXPECT_EQ(finderSync().actionsArray(), ActionList());
  ASSERT_NE(finderSync().wormhole(), nullptr);
  EXPECT_THAT(finderSync().wormhole()->listenerBlocks(), SizeIs(2));
  EXPECT_TRUE(finderSync().wormhole()->listenerBlockForIdentifier("TVDidChangeNotification"));
  EXPECT_TRUE(
      finderSync().wormhole()->listenerBlockForIdentifier("NSUserDefaultsDidChangeNotification"));
}

TEST_F(StartUpTest, TheFolderPropertyIsNeverSet) {
  EXPECT_EQ(finderSync().myFolderURL(), std::nullopt);
}

TEST_F(StartUpTest, TheWatchedFoldersFollowMountUnmountAndRename) {
  finderSync();
  int updates = 1;
  for (const char* name : {"NSWorkspaceDidMountNotification", "NSWorkspaceDidUnmountNotification",
                           "NSWorkspaceDidRenameVolumeNotification"}) {
    volumes_.urls.emplace_back("file:///media/" + std::to_string(updates) + "/");
    postVolumeChange(name);
    ++updates;
    ASSERT_THAT(controller_->directories, SizeIs(updates)) << name;
    EXPECT_THAT(controller_->directories.back(), SizeIs(updates)) << name;
  }
}

TEST_F(StartUpTest, NothingIsHeardOnceTheExtensionIsGone) {
  finderSync();
  const std::weak_ptr<FinderSync> weak = finderSync_;
  finderSync_ = nullptr;
  EXPECT_TRUE(weak.expired());
  postVolumeChange("NSWorkspaceDidMountNotification");
  EXPECT_THAT(controller_->directories, SizeIs(1));
}

TEST_F(StartUpTest, AMessageUnderWayWhenTheExtensionGoesIsDropped) {
  finderSync();
  TVActionsManager::create()->actuallySave();
  const std::weak_ptr<FinderSync> weak = finderSync_;
  finderSync_ = nullptr;
  runPendingMainItems();
  EXPECT_TRUE(weak.expired());
}

TEST_F(StartUpTest, WithoutGroupContainersItStartsAndFollowsNothing) {
  files_.hasContainers = false;
  EXPECT_EQ(finderSync().wormhole(), nullptr);
  EXPECT_EQ(finderSync().actionsArray(), ActionList());
}

TEST_F(StartUpTest, AListThatCannotBeLoadedShowsNoActions) {
  writeFile(container() + "/Actions.plist", "broken");
  EXPECT_EQ(finderSync().actionsArray(), std::nullopt);
  EXPECT_THAT(log_.lines(), ElementsAre(StartsWith("Could not load actions because of error: ")));
}

TEST_F(StartUpTest, TheToolbarItemHasItsTexts) {
  EXPECT_EQ(finderSync().toolbarItemName(), "Tervano");
  EXPECT_EQ(finderSync().toolbarItemToolTip(), "Click the toolbar item for a menu.");
  ASSERT_NE(finderSync().toolbarItemImage(), nullptr);
  EXPECT_EQ(finderSync().toolbarItemImage()->name(), "icon-tervano");
}

class ChangesTest : public FinderSyncTest {};

TEST_F(ChangesTest, TheListIsReadAgainWhenItWasSaved) {
  finderSync();
  const auto manager = TVActionsManager::create();
  const auto added = action<TVCopyActionGroup>();
  manager->addAction(added);
  manager->save();
  EXPECT_TRUE(waitUntil([&] { return finderSync().actionsArray()->size() == 1; }));
  EXPECT_EQ(finderSync().actionsArray()->front()->uid(), added->uid());
}

TEST_F(ChangesTest, AFreshPreferencesObjectIsMadeWhenAPreferenceWasSet) {
  const auto before = finderSync().userDefaults();
  ASSERT_TRUE(before->useSubmenu());
  TVUserDefaults::create()->setUseSubmenu(false);
  EXPECT_TRUE(waitUntil([&] { return finderSync().userDefaults() != before; }));
  EXPECT_FALSE(finderSync().userDefaults()->useSubmenu());
}

TEST_F(ChangesTest, ReloadDataReplacesTheSnapshotWhole) {
  finderSync();
  const auto before = finderSync().actionsArray();
  const auto manager = TVActionsManager::create();
  manager->addAction(action<TVAction>());
  manager->saveToFile();
  EXPECT_EQ(finderSync().actionsArray(), before);
  finderSync().reloadData();
  EXPECT_THAT(*finderSync().actionsArray(), SizeIs(1));
}

TEST_F(ChangesTest, PreferencesDidChangeMakesAFreshObject) {
  const auto before = finderSync().userDefaults();
  finderSync().preferencesDidChange();
  EXPECT_NE(finderSync().userDefaults(), nullptr);
  EXPECT_NE(finderSync().userDefaults(), before);
}

TEST_F(ChangesTest, AListSavedByAnotherProcessIsInTheNextMenu) {
  auto child = forkChild([](ParentLink& link) {
    if (link.hear() != "save") return 1;
    const auto manager = TVActionsManager::create();
    const auto added = action<TVAction>();
    added->setTitle("From the other process");
    manager->addAction(added);
    manager->save();
    if (!waitUntil([&] { return !added->isNew(); })) return 2;
    link.say(*added->uid());
    return 0;
  });
  finderSync();
  child.say("save");
  const auto uid = child.hear();
  ASSERT_TRUE(uid.has_value());
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_TRUE(waitUntil([&] { return finderSync().actionsArray()->size() == 1; }));
  EXPECT_EQ(menuText(finderSync().menuForMenuKind(MenuKind::toolbarItemMenu)),
            "From the other process [tv_" + *uid + "]\n");
}

TEST_F(ChangesTest, APreferenceSetByAnotherProcessIsInTheNextMenu) {
  auto child = forkChild([](ParentLink& link) {
    if (link.hear() != "set") return 1;
    TVUserDefaults::create()->setUseSubmenu(false);
    return 0;
  });
  const auto before = finderSync().userDefaults();
  child.say("set");
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_TRUE(waitUntil([&] { return finderSync().userDefaults() != before; }));
  EXPECT_EQ(menuText(finderSync().menuForMenuKind(MenuKind::contextualMenuForItems)), "");
}

class SelectionTest : public FinderSyncTest {};

TEST_F(SelectionTest, TheSelectedItemsAreActedOn) {
  controller_->selected = files({"/a", "/b"});
  controller_->targeted = item("/folder", true);
  EXPECT_EQ(finderSync().selectedItems(), controller_->selected);
}

TEST_F(SelectionTest, WithoutSelectionTheTargetedFolderIs) {
  controller_->targeted = item("/folder", true);
  const auto selected = finderSync().selectedItems();
  ASSERT_THAT(*selected, SizeIs(1));
  EXPECT_EQ(selected->front().url, Url("file:///folder/"));
  EXPECT_EQ(selected->front().isDirectory, true);
  controller_->selected = items({});
  EXPECT_THAT(*finderSync().selectedItems(), SizeIs(1));
}

TEST_F(SelectionTest, WithoutSelectionAndTargetNothingIs) {
  EXPECT_THAT(*finderSync().selectedItems(), IsEmpty());
}

class ChoiceTest : public FinderSyncTest {
 protected:
  static constexpr char kUid[] = "0123456789ABCDEF0123456789ABCDEF";

  // The hand-off that the only opened URL names.
  HandOff opened() {
    const auto urls = workspace_.opened();
    EXPECT_THAT(urls, SizeIs(1));
    if (urls.empty()) return {};
    std::optional<Error> error;
    const auto handOff = parseHandOffURL(urls.back().absoluteString(), &error);
    EXPECT_TRUE(handOff.has_value()) << (error ? error->message : "");
    return handOff.value_or(HandOff());
  }
  std::vector<std::string> handOffFiles() {
    std::vector<std::string> names;
    if (!std::filesystem::exists(container())) return names;
    for (const auto& entry : std::filesystem::directory_iterator(container())) {
      if (entry.is_regular_file()) names.push_back(entry.path().filename());
    }
    return names;
  }
};

TEST_F(ChoiceTest, ThreeItemsMakeOneFileWithTheirPathsInOrderAndOneURL) {
  controller_->selected = files({"/c.txt", "/a b.txt", "/b.txt"});
  finderSync().resolveActionWithUID(kUid);
  const HandOff handOff = opened();
  EXPECT_EQ(handOff.action, kUid);
  EXPECT_THAT(handOffFiles(), ElementsAre(handOff.file));
  EXPECT_EQ(readFile(container() + "/" + handOff.file),
            "{\n  \"paths\" : [\n    \"\\/c.txt\",\n    \"\\/a b.txt\",\n    \"\\/b.txt\"\n  ]\n}");
  EXPECT_THAT(readHandOffFile(handOff.file).value(), ElementsAre("/c.txt", "/a b.txt", "/b.txt"));
  EXPECT_EQ(workspace_.opened()[0].absoluteString(),
            std::string("tervano://runaction?action=") + kUid + "&file=" + handOff.file);
}

TEST_F(ChoiceTest, TheBackgroundOfAFolderHandsOverTheFoldersPath) {
  controller_->targeted = item("/home/someone/folder", true);
  finderSync().resolveActionWithUID(kUid);
  EXPECT_THAT(readHandOffFile(opened().file).value(), ElementsAre("/home/someone/folder"));
}

TEST_F(ChoiceTest, WithoutSelectionAndTargetAnEmptyListIsHandedOver) {
  finderSync().resolveActionWithUID(kUid);
  const HandOff handOff = opened();
  EXPECT_EQ(readFile(container() + "/" + handOff.file), "{\n  \"paths\" : [\n\n  ]\n}");
  EXPECT_THAT(readHandOffFile(handOff.file).value(), IsEmpty());
}

TEST_F(ChoiceTest, EachChoiceMakesAFileOfItsOwn) {
  controller_->selected = files({"/a"});
  finderSync().resolveActionWithUID(kUid);
  finderSync().resolveActionWithUID(kUid);
  EXPECT_THAT(handOffFiles(), SizeIs(2));
  EXPECT_THAT(workspace_.opened(), SizeIs(2));
}

TEST_F(ChoiceTest, ASelectorWithThePrefixIsResolvedAndServesLaterChoices) {
  const std::string selector = std::string("tv_") + kUid;
  EXPECT_TRUE(FinderSync::resolveInstanceMethod(selector));
  EXPECT_TRUE(FinderSync::instancesRespondToSelector(selector));
  controller_->selected = files({"/a"});
  EXPECT_TRUE(finderSync().invoke(selector));
  EXPECT_EQ(opened().action, kUid);
}

TEST_F(ChoiceTest, InvokingResolvesASelectorThatIsNotKnownYet) {
  const std::string selector = "tv_00000000000000000000000000000FFF";
  ASSERT_FALSE(FinderSync::instancesRespondToSelector(selector));
  controller_->selected = files({"/a"});
  EXPECT_TRUE(finderSync().invoke(selector));
  EXPECT_TRUE(FinderSync::instancesRespondToSelector(selector));
  EXPECT_EQ(opened().action, "00000000000000000000000000000FFF");
}

TEST_F(ChoiceTest, ASelectorWithoutThePrefixIsNotResolved) {
  for (const char* selector : {"", "tv", "TV_0", "xtv_0", "description", "tv-0"}) {
    EXPECT_FALSE(FinderSync::resolveInstanceMethod(selector)) << selector;
    EXPECT_FALSE(FinderSync::instancesRespondToSelector(selector)) << selector;
    EXPECT_FALSE(finderSync().invoke(selector)) << selector;
  }
  EXPECT_THAT(workspace_.opened(), IsEmpty());
  EXPECT_THAT(handOffFiles(), IsEmpty());
}

TEST_F(ChoiceTest, TheUidIsPassedOnAsItWasReceived) {
  controller_->selected = files({"/a"});
  finderSync().resolveActionWithUID("nobody-knows-me");
  ASSERT_THAT(workspace_.opened(), SizeIs(1));
  EXPECT_THAT(workspace_.opened()[0].absoluteString(),
              StartsWith("tervano://runaction?action=nobody-knows-me&file="));
}

TEST_F(ChoiceTest, AnItemChosenLaterActsOnTheSelectionOfItsMenu) {
  const auto shown = action<TVAction>();
  finderSync().setActionsArray(ActionList{shown});
  const Menu menu = finderSync().menuForMenuKind(MenuKind::toolbarItemMenu, files({"/then"}));
  controller_->selected = files({"/now"});
  EXPECT_TRUE(finderSync().invoke(*menu.items[0].action, menu.items[0].selection));
  EXPECT_THAT(readHandOffFile(opened().file).value(), ElementsAre("/then"));
}

TEST_F(ChoiceTest, TheFileBelongsToTheUserAlone) {
  finderSync().resolveActionWithUID(kUid);
  const auto status = std::filesystem::status(container() + "/" + opened().file);
  EXPECT_EQ(status.permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(ChoiceTest, ItemsThatAreNoLocalFilesAreLeftOut) {
  controller_->selected =
      items({item("/a"), {Url("sftp://host/b"), false}, {Url("file://other/c"), false}});
  finderSync().resolveActionWithUID(kUid);
  EXPECT_THAT(readHandOffFile(opened().file).value(), ElementsAre("/a"));
}

TEST_F(ChoiceTest, WhenEveryItemWasLeftOutNothingIsHandedOver) {
  controller_->selected = items({{Url("trash:///b"), false}});
  controller_->targeted = item("/folder", true);
  finderSync().resolveActionWithUID(kUid);
  EXPECT_THAT(workspace_.opened(), IsEmpty());
  EXPECT_THAT(handOffFiles(), IsEmpty());
}

TEST_F(ChoiceTest, APathThatIsNotUTF8IsLoggedAndNothingIsOpened) {
  controller_->selected = files({"/fine", "/b\xFFx"});
  finderSync().resolveActionWithUID(kUid);
  EXPECT_THAT(workspace_.opened(), IsEmpty());
  EXPECT_THAT(handOffFiles(), IsEmpty());
  EXPECT_THAT(log_.lines(), ElementsAre("Could not convert to JSON: a text that is not UTF-8: "
                                        "\"/b\xEF\xBF\xBDx\""));
}

TEST_F(ChoiceTest, AFailedWriteIsNotDetectedAndTheURLOpened) {
  finderSync();
  files_.refusesWrites = true;
  controller_->selected = files({"/a"});
  finderSync().resolveActionWithUID(kUid);
  EXPECT_THAT(log_.lines(), IsEmpty());
  std::optional<Error> error;
  EXPECT_EQ(readHandOffFile(opened().file, &error), std::nullopt);
  EXPECT_EQ(error->code, ENOENT);
}

TEST_F(ChoiceTest, AMissingContainerIsNotCreatedAndTheURLOpened) {
  finderSync();
  std::filesystem::remove_all(container());
  finderSync().resolveActionWithUID(kUid);
  EXPECT_FALSE(std::filesystem::exists(container()));
  EXPECT_EQ(opened().action, kUid);
}

TEST_F(ChoiceTest, WithoutGroupContainersTheURLIsStillOpened) {
  files_.hasContainers = false;
  finderSync().resolveActionWithUID(kUid);
  EXPECT_EQ(opened().action, kUid);
}

TEST_F(ChoiceTest, SaveDictionaryAnswersNilForWhatJSONCannotHold) {
  EXPECT_EQ(finderSync().saveDictionary({{"date", Date{1}}}), std::nullopt);
  EXPECT_THAT(log_.lines(), ElementsAre(StartsWith("Could not convert to JSON: ")));
  EXPECT_THAT(handOffFiles(), IsEmpty());
}

TEST_F(ChoiceTest, SaveDictionaryNamesTheFileByAFreshUUID) {
  const auto first = finderSync().saveDictionary({{"a", 1}});
  const auto second = finderSync().saveDictionary({{"a", 1}});
  ASSERT_TRUE(first && second);
  EXPECT_NE(first, second);
  EXPECT_THAT(*first, testing::MatchesRegex(
                          "[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}"));
  EXPECT_EQ(readFile(container() + "/" + *first), "{\n  \"a\" : 1\n}");
}

TEST_F(ChoiceTest, TheFileIsWrittenInPlace) {
  finderSync();
  files_.writtenAtomically.clear();
  finderSync().saveDictionary({{"paths", Value::Array()}});
  EXPECT_THAT(files_.writtenAtomically, ElementsAre(false));
}

TEST_F(ChoiceTest, TenThousandItemsTravelWhole) {
  SelectedItems list;
  for (int i = 0; i < 10000; ++i) list.push_back(item("/folder/file " + std::to_string(i)));
  finderSync().resolveActionWithUID(kUid, list);
  const auto paths = readHandOffFile(opened().file).value();
  ASSERT_THAT(paths, SizeIs(10000));
  EXPECT_EQ(paths.back(), "/folder/file 9999");
}

}  // namespace
}  // namespace tervano::test
