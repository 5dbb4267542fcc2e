#include "store/tv_actions_manager.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "archive/archiver.h"
#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "archive/unarchiver.h"
#include "messaging/message_identifiers.h"
#include "model/register_model_classes.h"
#include "model/tv_action_groups.h"
#include "platform/file_manager.h"
#include "platform/notify_channel.h"
#include "tests/support/archive_editing.h"
#include "tests/support/child_process.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr char kLoadFailure[] = "Could not load actions because of error: ";

// The real file manager; counts the writes, and can refuse them.
class CountingFileManager : public ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;
  int writes = 0;
  bool wroteAtomically = true;
  bool refusesWrites = false;
  bool hasContainers = true;

  std::optional<Error> writeDataToFile(const Data& data, const std::string& path,
                                       bool atomically) override {
    ++writes;
    wroteAtomically = wroteAtomically && atomically;
    if (refusesWrites) return posixError(ENOSPC, path);
    return ForwardingFileManager::writeDataToFile(data, path, atomically);
  }
  bool supportsGroupContainers() const override { return hasContainers; }
  std::optional<Url> containerURLForSecurityApplicationGroupIdentifier(
      const std::string& groupIdentifier) const override {
    if (!hasContainers) return std::nullopt;
    return ForwardingFileManager::containerURLForSecurityApplicationGroupIdentifier(
        groupIdentifier);
  }
};

// The real channel; counts the posts.
class CountingChannel : public ForwardingNotifyChannel {
 public:
  using ForwardingNotifyChannel::ForwardingNotifyChannel;
  std::vector<std::string> posts;
  std::function<void()> onPost;
  void post(const std::string& name) override {
    posts.push_back(name);
    if (onPost) onPost();
    ForwardingNotifyChannel::post(name);
  }
};

// An action whose decoding fails in a way that is none of the platform's.
class BrokenAction : public TVAction {
 public:
  std::string_view className() const override { return "TVBrokenAction"; }
  void initWithCoder(Unarchiver& /*coder*/) override { throw std::runtime_error("not ours"); }
};

class TVActionsManagerTest : public testing::Test {
 protected:
  TVActionsManagerTest()
      : platform_(&registry_),
        log_(*platform_.services().log),
        files_(*platform_.services().fileManager),
        channel_(*platform_.services().notifyChannel) {
    registerModelClasses(registry_);
    registerActionClass<BrokenAction>(registry_, {"TVBrokenAction"});
    platform_.services().log = &log_;
    platform_.services().fileManager = &files_;
    platform_.services().notifyChannel = &channel_;
  }

  std::string container() { return platform_.home().dataHome() + "/Q4T7N2XR8K.com.vessok.tervano"; }
  std::string listFile() { return container() + "/Actions.plist"; }
  void writeListFile(const Data& data) {
    std::filesystem::create_directories(container());
    std::ofstream(listFile(), std::ios::binary)
        .write(reinterpret_cast<const char*>(data.data()),
               static_cast<std::streamsize>(data.size()));
  }
  Data readListFile() {
    std::ifstream file(listFile(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  Data archiveOf(const Value& root) const {
    return Archiver::archivedDataWithRootObject(root, registry_);
  }
  // An archive of one action and one group with a member.
  Data sampleArchive() const {
    const auto group = action<TVCopyActionGroup>();
    group->addAction(action<TVAction>());
    return archiveOf(Value::Array{action<TVAction>(), group});
  }
  // The list in the file has to be refused, be logged and stay as it is.
  void expectRefused(const Data& data) {
    writeListFile(data);
    std::string reason;
    EXPECT_EQ(TVActionsManager::create(&reason), nullptr);
    EXPECT_NE(reason, "");
    ASSERT_THAT(log_.lines(), SizeIs(1));
    EXPECT_THAT(log_.lines()[0], StartsWith(kLoadFailure));
    EXPECT_EQ(readListFile(), data);
    EXPECT_EQ(files_.writes, 0);
  }
  ClassRegistry registry_;
  ScopedPlatform platform_;
  RecordingLog log_;
  CountingFileManager files_;
  CountingChannel channel_;
};

TEST_F(TVActionsManagerTest, WithoutFileTheListIsEmptyAndNothingIsWrittenUntilSave) {
  const auto manager = TVActionsManager::create();
  ASSERT_NE(manager, nullptr);
  EXPECT_THAT(manager->actions(), IsEmpty());
  manager->addAction(action<TVAction>());
  runPendingMainItems();
  EXPECT_FALSE(std::filesystem::exists(listFile()));
  manager->save();
  EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(listFile()); }));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVActionsManagerTest, TheContainerIsCreatedForTheUserAloneOnFirstAccess) {
  ASSERT_FALSE(std::filesystem::exists(container()));
  const auto manager = TVActionsManager::create();
  struct stat status {};
  ASSERT_EQ(stat(container().c_str(), &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

TEST_F(TVActionsManagerTest, TheContainerIsCreatedAgainByASaveWhenItWasRemoved) {
  const auto manager = TVActionsManager::create();
  std::filesystem::remove_all(container());
  manager->actuallySave();
  EXPECT_TRUE(std::filesystem::exists(listFile()));
}

TEST_F(TVActionsManagerTest, AnEmptyFileIsAnEmptyList) {
  writeListFile({});
  const auto manager = TVActionsManager::create();
  ASSERT_NE(manager, nullptr);
  EXPECT_THAT(manager->actions(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVActionsManagerTest, AnArchiveOfAnEmptyArrayIsAnEmptyList) {
  writeListFile(archiveOf(Value::Array()));
  const auto manager = TVActionsManager::create();
  ASSERT_NE(manager, nullptr);
  EXPECT_THAT(manager->actions(), IsEmpty());
}

TEST_F(TVActionsManagerTest, AnArchiveOfNilIsAnEmptyList) {
  writeListFile(archiveOf(nullptr));
  const auto manager = TVActionsManager::create();
  ASSERT_NE(manager, nullptr);
  EXPECT_THAT(manager->actions(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVActionsManagerTest, TheListIsLoadedInItsOrder) {
  const auto first = action<TVMoveActionGroup>();
  const auto second = action<TVAction>();
  const auto third = action<TVCopyActionGroup>();
  writeListFile(archiveOf(Value::Array{first, second, third}));
  const auto actions = TVActionsManager::create()->actions();
  ASSERT_THAT(actions, SizeIs(3));
  EXPECT_EQ(actions[0]->uid(), first->uid());
  EXPECT_EQ(actions[1]->uid(), second->uid());
  EXPECT_EQ(actions[2]->uid(), third->uid());
  EXPECT_EQ(actions[2]->className(), "TVCopyActionGroup");
  EXPECT_FALSE(actions[0]->isNew());
}

TEST_F(TVActionsManagerTest, ATruncatedFileGivesNoManagerAndLogsTheCallStack) {
  Data archive = sampleArchive();
  archive.resize(archive.size() / 2);
  expectRefused(archive);
  // A frame of the stack, not the exception's reason.
  EXPECT_THAT(log_.lines()[0], HasSubstr("store_tests"));
}

TEST_F(TVActionsManagerTest, EveryTruncationGivesNoManager) {
  const Data whole = sampleArchive();
  for (std::size_t size = 1; size < whole.size(); size += 1 + whole.size() / 64) {
    writeListFile(Data(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    EXPECT_EQ(TVActionsManager::create(), nullptr) << size;
  }
}

TEST_F(TVActionsManagerTest, AFileOfAnotherKindGivesNoManager) {
  const std::string text = "#!/bin/sh\n";
  expectRefused(Data(text.begin(), text.end()));
}

TEST_F(TVActionsManagerTest, AnArchiveWithAnUnknownClassGivesNoManager) {
  Value list = binaryPropertyListWithData(sampleArchive());
  auto& objects = *list.getIf<Value::Dictionary>()->at("$objects").getIf<Value::Array>();
  for (Value& object : objects) {
    auto* dictionary = object.getIf<Value::Dictionary>();
    if (dictionary == nullptr || !dictionary->contains("$classname")) continue;
    if (dictionary->at("$classname") == Value("TVAction")) {
      (*dictionary)["$classname"] = "TVUnheardOfAction";
      (*dictionary)["$classes"] = Value::Array{"TVUnheardOfAction", "NSObject"};
    }
  }
  expectRefused(binaryDataWithPropertyList(list));
}

TEST_F(TVActionsManagerTest, ARootThatIsNoArrayGivesNoManager) {
  expectRefused(archiveOf(Value::Dictionary{{"actions", Value::Array()}}));
}

TEST_F(TVActionsManagerTest, ARootThatIsAnActionGivesNoManager) {
  expectRefused(archiveOf(action<TVAction>()));
}

TEST_F(TVActionsManagerTest, AnEntryThatIsNoActionGivesNoManager) {
  expectRefused(archiveOf(Value::Array{action<TVAction>(), "a text"}));
}

TEST_F(TVActionsManagerTest, AnEntryThatIsAnotherObjectGivesNoManager) {
  expectRefused(
      archiveOf(Value::Array{std::const_pointer_cast<Image>(Image::imageNamed("icon-move"))}));
}

TEST_F(TVActionsManagerTest, AFieldOfAWrongTypeGivesNoManager) {
  expectRefused(withEditedObject(sampleArchive(), "enabled",
                                 [](auto& object) { object["enabled"] = "perhaps"; }));
}

TEST_F(TVActionsManagerTest, AFolderInPlaceOfTheFileGivesNoManager) {
  std::filesystem::create_directories(listFile());
  std::string reason;
  EXPECT_EQ(TVActionsManager::create(&reason), nullptr);
  EXPECT_THAT(reason, HasSubstr("Actions.plist"));
  EXPECT_THAT(log_.lines(), ElementsAre(StartsWith(kLoadFailure)));
  EXPECT_TRUE(std::filesystem::is_directory(listFile()));
}

TEST_F(TVActionsManagerTest, AFileThatMayNotBeReadGivesNoManagerAndStaysAsItIs) {
  const Data archive = sampleArchive();
  writeListFile(archive);
  ASSERT_EQ(chmod(platform_.home().path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(listFile().c_str(), 0), 0);
  auto child = forkChild([](ParentLink& link) {
    constexpr uid_t kNobody = 65534;
    if (geteuid() == 0 && setuid(kNobody) != 0) return 1;
    std::string reason;
    if (TVActionsManager::create(&reason) != nullptr) return 2;
    link.say(reason);
    return 0;
  });
  EXPECT_THAT(child.hear().value_or(""), HasSubstr("Permission denied"));
  EXPECT_EQ(child.waitForExit(), 0);
  ASSERT_EQ(chmod(listFile().c_str(), 0600), 0);
  EXPECT_EQ(readListFile(), archive);
}

TEST_F(TVActionsManagerTest, AFileInPlaceOfTheContainerIsAnEmptyListThatCannotBeWritten) {
  std::ofstream(container()) << "in the way";
  const auto manager = TVActionsManager::create();
  ASSERT_NE(manager, nullptr);
  EXPECT_THAT(manager->actions(), IsEmpty());
  manager->actuallySave();
  EXPECT_TRUE(std::filesystem::is_regular_file(container()));
}

TEST_F(TVActionsManagerTest, AnExceptionThatIsNoneOfThePlatformsTravelsOn) {
  writeListFile(archiveOf(Value::Array{std::make_shared<BrokenAction>()}));
  EXPECT_THROW(TVActionsManager::create(), std::runtime_error);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVActionsManagerTest, TenSavesInABurstMakeOneWriteAndOneMessage) {
  const auto manager = TVActionsManager::create();
  int messages = 0;
  const auto listener = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                                       kWormholeDirectory);
  listener->listenForMessageWithIdentifier(kActionsDidChangeNotification,
                                           [&](const Value&) { ++messages; });
  for (int i = 0; i < 10; ++i) {
    manager->save();
    runPendingMainItems();
  }
  EXPECT_EQ(files_.writes, 0);
  EXPECT_TRUE(waitUntil([&] { return messages > 0; }));
  // As long again, for a second write that must not come.
  bool passed = false;
  const auto timer = VXTimer::timerWithInterval(0.2, false, [&](VXTimer&) { passed = true; });
  EXPECT_TRUE(waitUntil([&] { return passed; }));
  EXPECT_EQ(files_.writes, 1);
  EXPECT_THAT(channel_.posts, ElementsAre("TVDidChangeNotification"));
  EXPECT_EQ(messages, 1);
}

TEST_F(TVActionsManagerTest, ASaveIsDelayedByATenthOfASecondOfSinglePrecision) {
  const auto manager = TVActionsManager::create();
  EXPECT_EQ(manager->saveDelayTimer(), nullptr);
  manager->save();
  ASSERT_NE(manager->saveDelayTimer(), nullptr);
  EXPECT_EQ(manager->saveDelayTimer()->interval(), 0.10000000149011612);
  EXPECT_FALSE(manager->saveDelayTimer()->repeats());
}

TEST_F(TVActionsManagerTest, ASecondSaveDropsTheFirstOnesBlock) {
  const auto manager = TVActionsManager::create();
  manager->save();
  const auto first = manager->saveDelayTimer();
  manager->save();
  EXPECT_NE(manager->saveDelayTimer(), first);
  EXPECT_EQ(first->timer(), nullptr);
  EXPECT_FALSE(first->didFinishBlock());
}

TEST_F(TVActionsManagerTest, ASaveAfterTheFirstOneWasWrittenWritesAgain) {
  const auto manager = TVActionsManager::create();
  manager->save();
  ASSERT_TRUE(waitUntil([&] { return files_.writes == 1; }));
  manager->addAction(action<TVAction>());
  manager->save();
  ASSERT_TRUE(waitUntil([&] { return files_.writes == 2; }));
  EXPECT_THAT(TVActionsManager::create()->actions(), SizeIs(1));
}

TEST_F(TVActionsManagerTest, AManagerThatIsGoneSavesNothing) {
  auto manager = TVActionsManager::create();
  manager->addAction(action<TVAction>());
  manager->save();
  manager = nullptr;
  bool passed = false;
  const auto timer = VXTimer::timerWithInterval(0.2, false, [&](VXTimer&) { passed = true; });
  EXPECT_TRUE(waitUntil([&] { return passed; }));
  EXPECT_EQ(files_.writes, 0);
  EXPECT_THAT(channel_.posts, IsEmpty());
}

TEST_F(TVActionsManagerTest, ATimerThatOutlivesItsManagerSavesNothing) {
  auto manager = TVActionsManager::create();
  manager->save();
  const auto timer = manager->saveDelayTimer();
  manager->setSaveDelayTimer(nullptr);
  manager = nullptr;
  bool passed = false;
  const auto later = VXTimer::timerWithInterval(0.2, false, [&](VXTimer&) { passed = true; });
  EXPECT_TRUE(waitUntil([&] { return passed; }));
  EXPECT_EQ(files_.writes, 0);
}

TEST_F(TVActionsManagerTest, AfterASaveNoActionOfTheListIsNewInMemoryAndInTheFile) {
  const auto manager = TVActionsManager::create();
  manager->addAction(action<TVAction>());
  manager->addAction(action<TVCopyActionGroup>());
  manager->actuallySave();
  for (const auto& action : manager->actions()) EXPECT_FALSE(action->isNew());
  for (const auto& action : TVActionsManager::create()->actions()) EXPECT_FALSE(action->isNew());
}

TEST_F(TVActionsManagerTest, ASaveDoesNotTouchTheMembersOfAGroup) {
  const auto manager = TVActionsManager::create();
  const auto group = action<TVCopyActionGroup>();
  const auto member = action<TVAction>();
  group->addAction(member);
  manager->addAction(group);
  manager->actuallySave();
  EXPECT_FALSE(group->isNew());
  EXPECT_TRUE(member->isNew());
}

TEST_F(TVActionsManagerTest, TheFileIsWrittenAtomicallyAsOneArchiveOfAnArray) {
  const auto manager = TVActionsManager::create();
  manager->addAction(action<TVAction>());
  manager->saveToFile();
  EXPECT_TRUE(files_.wroteAtomically);
  const Value root = Unarchiver::unarchiveObjectWithData(readListFile(), registry_);
  ASSERT_NE(root.getIf<Value::Array>(), nullptr);
  EXPECT_THAT(*root.getIf<Value::Array>(), SizeIs(1));
}

TEST_F(TVActionsManagerTest, SaveToFileAnnouncesNothing) {
  TVActionsManager::create()->saveToFile();
  EXPECT_EQ(files_.writes, 1);
  EXPECT_THAT(channel_.posts, IsEmpty());
}

TEST_F(TVActionsManagerTest, AFailedWriteIsNotReportedAndTheChangeAnnouncedAllTheSame) {
  const Data archive = sampleArchive();
  writeListFile(archive);
  const auto manager = TVActionsManager::create();
  files_.refusesWrites = true;
  manager->updateActions({});
  manager->actuallySave();
  EXPECT_THAT(channel_.posts, ElementsAre("TVDidChangeNotification"));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ(readListFile(), archive);
}

TEST_F(TVActionsManagerTest, TheMessageCarriesNoObjectAndNoFile) {
  TVActionsManager::create()->actuallySave();
  EXPECT_FALSE(std::filesystem::exists(container() + "/wormhole/TVDidChangeNotification.archive"));
}

TEST_F(TVActionsManagerTest, TheChangeIsAnnouncedAfterTheFileWasWritten) {
  const auto manager = TVActionsManager::create();
  manager->addAction(action<TVAction>());
  bool wasWritten = false;
  channel_.onPost = [&] { wasWritten = std::filesystem::exists(listFile()); };
  manager->actuallySave();
  EXPECT_TRUE(wasWritten);
}

TEST_F(TVActionsManagerTest, ChangingTheListSavesNothing) {
  const auto manager = TVActionsManager::create();
  const auto entry = action<TVAction>();
  manager->addAction(entry);
  manager->removeAction(entry);
  manager->updateActions({entry});
  EXPECT_EQ(manager->saveDelayTimer(), nullptr);
  EXPECT_EQ(files_.writes, 0);
}

TEST_F(TVActionsManagerTest, AddingOrRemovingNilIsIgnored) {
  const auto manager = TVActionsManager::create();
  manager->addAction(action<TVAction>());
  manager->addAction(nullptr);
  manager->removeAction(nullptr);
  EXPECT_THAT(manager->actions(), SizeIs(1));
}

TEST_F(TVActionsManagerTest, RemovingTakesOutEveryEntryOfThatObjectAndNoCopyOfIt) {
  const auto manager = TVActionsManager::create();
  const auto twice = action<TVAction>();
  const auto copy = twice->copy();
  manager->updateActions({twice, copy, twice});
  manager->removeAction(twice);
  EXPECT_THAT(manager->actions(), ElementsAre(copy));
}

TEST_F(TVActionsManagerTest, UpdatingLeavesNullEntriesOut) {
  const auto manager = TVActionsManager::create();
  const auto entry = action<TVAction>();
  manager->updateActions({nullptr, entry});
  manager->actuallySave();
  EXPECT_THAT(manager->actions(), ElementsAre(entry));
  EXPECT_THAT(TVActionsManager::create()->actions(), SizeIs(1));
}

TEST_F(TVActionsManagerTest, ActionsAreASnapshot) {
  const auto manager = TVActionsManager::create();
  const auto snapshot = manager->actions();
  manager->addAction(action<TVAction>());
  EXPECT_THAT(snapshot, IsEmpty());
}

TEST_F(TVActionsManagerTest, TwoManagersDoNotSeeEachOthersUnsavedChanges) {
  const auto first = TVActionsManager::create();
  const auto second = TVActionsManager::create();
  first->addAction(action<TVAction>());
  first->actuallySave();
  EXPECT_THAT(second->actions(), IsEmpty());
  EXPECT_THAT(TVActionsManager::create()->actions(), SizeIs(1));
}

TEST_F(TVActionsManagerTest, WithoutGroupContainersTheListIsEmptyAndSavingDoesNothing) {
  files_.hasContainers = false;
  const auto manager = TVActionsManager::create();
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(manager->saveURL(), std::nullopt);
  EXPECT_EQ(manager->wormHole(), nullptr);
  manager->addAction(action<TVAction>());
  manager->actuallySave();
  EXPECT_EQ(files_.writes, 0);
  EXPECT_THAT(channel_.posts, IsEmpty());
}

TEST_F(TVActionsManagerTest, TheFileLiesInTheContainer) {
  EXPECT_EQ(TVActionsManager::create()->saveURL(), Url::fileURLWithPath(listFile()));
}

TEST_F(TVActionsManagerTest, AnActionInTheListAndInAGroupIsOneObjectAfterLoading) {
  const auto manager = TVActionsManager::create();
  const auto shared = action<TVAction>();
  const auto group = action<TVActionGroup>();
  group->addAction(shared);
  manager->updateActions({group, shared});
  manager->saveToFile();
  const auto loaded = TVActionsManager::create()->actions();
  const auto loadedGroup = std::dynamic_pointer_cast<TVActionGroup>(loaded[0]);
  EXPECT_EQ(loadedGroup->actions()->front(), loaded[1]);
}

TEST_F(TVActionsManagerTest, AnActionOfAnUnregisteredClassCannotBeSavedAndTheFileStays) {
  class Stranger : public TVAction {
    std::string_view className() const override { return "TVStranger"; }
  };
  const Data archive = sampleArchive();
  writeListFile(archive);
  const auto manager = TVActionsManager::create();
  manager->addAction(std::make_shared<Stranger>());
  EXPECT_THROW(manager->actuallySave(), PlatformException);
  EXPECT_EQ(readListFile(), archive);
}

TEST_F(TVActionsManagerTest, AChangeSavedByAnotherProcessIsAnnouncedHere) {
  auto child = forkChild([](ParentLink& link) {
    if (link.hear() != "save") return 1;
    const auto manager = TVActionsManager::create();
    const auto added = action<TVCopyActionGroup>();
    manager->addAction(added);
    manager->save();
    if (!waitUntil([&] { return !added->isNew(); })) return 2;
    link.say(*added->uid());
    return 0;
  });
  const auto manager = TVActionsManager::create();
  int messages = 0;
  manager->wormHole()->listenForMessageWithIdentifier(kActionsDidChangeNotification,
                                                      [&](const Value& message) {
                                                        EXPECT_TRUE(message.isNull());
                                                        ++messages;
                                                      });
  child.say("save");
  const auto uid = child.hear();
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_TRUE(waitUntil([&] { return messages == 1; }));
  EXPECT_THAT(manager->actions(), IsEmpty());
  const auto reloaded = TVActionsManager::create()->actions();
  ASSERT_THAT(reloaded, SizeIs(1));
  EXPECT_EQ(reloaded[0]->uid(), uid);
}

TEST_F(TVActionsManagerTest, AReaderSeesTheOldOrTheNewListAndNeverATornOne) {
  auto writer = forkChild([](ParentLink& link) {
    const auto manager = TVActionsManager::create();
    link.say("ready");
    for (int i = 0; i < 200; ++i) {
      // Lists of very different sizes.
      manager->updateActions(ActionList(i % 2 == 0 ? 1 : 100, action<TVAction>()));
      manager->saveToFile();
    }
    return 0;
  });
  ASSERT_EQ(writer.hear(), "ready");
  int loads = 0;
  while (!writer.waitForExit(0)) {
    const auto manager = TVActionsManager::create();
    ASSERT_NE(manager, nullptr);
    EXPECT_THAT(manager->actions().size(), testing::AnyOf(0U, 1U, 100U));
    ++loads;
  }
  EXPECT_GT(loads, 0);
}

// The shared instance lives as long as its process, so each test has one of its own.
class SharedInstanceTest : public TVActionsManagerTest {
 protected:
  class Special : public TVActionsManager {};
};

TEST_F(SharedInstanceTest, IsOneManagerPerProcess) {
  auto child = forkChild([](ParentLink&) {
    const auto first = TVActionsManager::sharedInstance();
    return first != nullptr && TVActionsManager::sharedInstance() == first ? 0 : 1;
  });
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(SharedInstanceTest, IsMadeByTheFirstReceivingClassAndByNoOther) {
  auto child = forkChild([](ParentLink&) {
    const auto first = TVActionsManager::sharedInstance<Special>();
    if (std::dynamic_pointer_cast<Special>(first) == nullptr) return 1;
    return TVActionsManager::sharedInstance() == first ? 0 : 2;
  });
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(SharedInstanceTest, IsMadeOnceByManyThreads) {
  auto child = forkChild([](ParentLink&) {
    std::vector<std::shared_ptr<TVActionsManager>> instances(8);
    std::vector<std::thread> threads;
    threads.reserve(instances.size());
    for (auto& instance : instances) {
      threads.emplace_back([&instance] { instance = TVActionsManager::sharedInstance(); });
    }
    for (auto& thread : threads) thread.join();
    for (const auto& instance : instances) {
      if (instance == nullptr || instance != instances[0]) return 1;
    }
    return 0;
  });
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(SharedInstanceTest, StaysNilWhenTheFirstLoadFailed) {
  writeListFile({1, 2, 3});
  const std::string path = listFile();
  auto child = forkChild([path](ParentLink&) {
    if (TVActionsManager::sharedInstance() != nullptr) return 1;
    std::filesystem::remove(path);
    return TVActionsManager::sharedInstance() == nullptr ? 0 : 2;
  });
  EXPECT_EQ(child.waitForExit(), 0);
}

}  // namespace
}  // namespace tervano::test
