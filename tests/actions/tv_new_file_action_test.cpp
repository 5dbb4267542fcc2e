#include "actions/tv_new_file_action.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>

#include "platform/clock.h"
#include "platform/file_manager.h"
#include "prefs/tv_user_defaults.h"
#include "tests/actions/action_test.h"
#include "tests/actions/recorded_block.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uid_t kNobody = 65534;
constexpr std::int64_t kNanosecondsInSecond = 1'000'000'000;

// The real file manager; a test sees each copy before it is done, and may refuse it, and what
// attributes are set.
class WatchedCopies : public ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;

  std::function<std::optional<Error>(const std::string& to)> beforeCopy;
  std::optional<Error> attributesError;
  std::vector<std::pair<std::string, FileAttributes>> attributes;
  std::atomic<std::thread::id> thread;

  std::optional<Error> copyItemAtPath(const std::string& from, const std::string& to) override {
    thread = std::this_thread::get_id();
    if (beforeCopy) {
      if (auto error = beforeCopy(to)) return error;
    }
    return ForwardingFileManager::copyItemAtPath(from, to);
  }
  std::optional<Error> setAttributesOfItemAtPath(const FileAttributes& set,
                                                 const std::string& path) override {
    attributes.emplace_back(path, set);
    if (attributesError) return attributesError;
    return ForwardingFileManager::setAttributesOfItemAtPath(set, path);
  }
};

// One second later at every reading.
class SteppingClock : public ForwardingClock {
 public:
  using ForwardingClock::ForwardingClock;
  std::int64_t nowInNanoseconds() const override {
    return (1'600'000'000 + ++readings) * kNanosecondsInSecond + 123;
  }
  mutable int readings = 0;
};

// A test sees each reveal as it is asked for.
class WatchedWorkspace : public RecordingWorkspace {
 public:
  using RecordingWorkspace::RecordingWorkspace;
  std::function<void()> onReveal;
  void activateFileViewerSelectingURLs(const std::vector<Url>& urls) override {
    if (onReveal) onReveal();
    RecordingWorkspace::activateFileViewerSelectingURLs(urls);
  }
};

class TVNewFileActionTest : public ActionTest {
 protected:
  TVNewFileActionTest() : files_(*platform_.services().fileManager) {
    platform_.services().fileManager = &files_;
    template_ = makeFile("templates/blank", "of the template");
    action_ = action<TVNewFileAction>();
    action_->setFileName("untitled");
    action_->setExtension("txt");
    action_->setTemplateURL(Url::fileURLWithPath(template_));
  }

  RecordedBlock run(const TVAction::FilePaths& paths) {
    RecordedBlock end;
    action_->runWithFilePaths(paths, end.block());
    EXPECT_EQ(end.calls(), 0) << "the block was called before the run returned";
    EXPECT_TRUE(waitUntil([&] { return end.calls() > 0; }, 30));
    runPendingMainItems();
    EXPECT_EQ(end.calls(), 1);
    EXPECT_EQ(end.thread(), std::this_thread::get_id());
    return end;
  }
  void expectSuccess(const TVAction::FilePaths& paths) {
    const auto end = run(paths);
    EXPECT_TRUE(end.success());
    EXPECT_EQ(end.error(), std::nullopt);
  }
  static std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  static struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
  }
  static std::int64_t modificationOf(const std::string& path) {
    const auto time = statusOf(path).st_mtim;
    return time.tv_sec * kNanosecondsInSecond + time.tv_nsec;
  }
  static std::int64_t birthOf(const std::string& path) {
    struct statx status {};
    EXPECT_EQ(statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &status), 0);
    return (status.stx_mask & STATX_BTIME) == 0
               ? -1
               : status.stx_btime.tv_sec * kNanosecondsInSecond + status.stx_btime.tv_nsec;
  }
  // Long before this run.
  static void makeOld(const std::string& path) {
    const struct timespec times[2] = {{1'000'000'000, 5}, {1'000'000'000, 5}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
  static Error diskError() { return {"POSIX", EIO, "the disk is on fire"}; }

  WatchedCopies files_;
  std::string template_;
  std::shared_ptr<TVNewFileAction> action_;
};

TEST_F(TVNewFileActionTest, ASelectedFolderReceivesTheFileInside) {
  const auto folder = makeFolder("folder");
  expectSuccess({folder});
  EXPECT_THAT(namesIn(folder), ElementsAre("untitled.txt"));
  EXPECT_EQ(contentsOf(folder + "/untitled.txt"), "of the template");
}

TEST_F(TVNewFileActionTest, ASelectedFileReceivesTheFileBesideIt) {
  const auto selected = makeFile("folder/a.doc", "kept");
  expectSuccess({selected});
  EXPECT_THAT(namesIn(home() + "/folder"), ElementsAre("a.doc", "untitled.txt"));
  EXPECT_EQ(contentsOf(selected), "kept");
}

TEST_F(TVNewFileActionTest, TwoFilesOfOneFolderGiveOneNewFile) {
  expectSuccess({makeFile("folder/a"), makeFile("folder/b"), makeFile("folder/c")});
  EXPECT_THAT(namesIn(home() + "/folder"), ElementsAre("a", "b", "c", "untitled.txt"));
}

TEST_F(TVNewFileActionTest, AFolderAndAFileInItGiveOneNewFile) {
  const auto selected = makeFile("folder/a");
  expectSuccess({home() + "/folder", selected});
  expectSuccess({selected, home() + "/folder"});
  EXPECT_THAT(namesIn(home() + "/folder"), ElementsAre("a", "untitled 2.txt", "untitled.txt"));
}

TEST_F(TVNewFileActionTest, AFolderWithSlashesAtItsEndIsTheSameFolder) {
  const auto selected = makeFile("folder/a");
  expectSuccess({home() + "/folder/", home() + "/folder//", home() + "/folder", selected});
  EXPECT_THAT(namesIn(home() + "/folder"), ElementsAre("a", "untitled.txt"));
  EXPECT_THAT(workspace_.revealed(),
              ElementsAre(ElementsAre(Url::fileURLWithPath(home() + "/folder/untitled.txt"))));
}

TEST_F(TVNewFileActionTest, EachFolderReceivesItsOwn) {
  const auto first = makeFolder("first");
  const auto second = makeFile("second/a");
  const auto third = makeFolder("first/inner");
  expectSuccess({first, second, third});
  EXPECT_TRUE(exists(first + "/untitled.txt"));
  EXPECT_TRUE(exists(home() + "/second/untitled.txt"));
  EXPECT_TRUE(exists(third + "/untitled.txt"));
  EXPECT_THAT(workspace_.revealed(),
              ElementsAre(ElementsAre(Url::fileURLWithPath(first + "/untitled.txt"),
                                      Url::fileURLWithPath(home() + "/second/untitled.txt"),
                                      Url::fileURLWithPath(third + "/untitled.txt"))));
}

TEST_F(TVNewFileActionTest, ALinkToAFolderIsThatFolder) {
  makeFolder("folder");
  std::filesystem::create_directory_symlink("folder", home() + "/link");
  expectSuccess({home() + "/link"});
  EXPECT_TRUE(exists(home() + "/folder/untitled.txt"));
}

TEST_F(TVNewFileActionTest, ALinkToAFileReceivesTheFileBesideTheLink) {
  const auto selected = makeFile("far/a");
  makeFolder("near");
  std::filesystem::create_symlink(selected, home() + "/near/link");
  expectSuccess({home() + "/near/link"});
  EXPECT_TRUE(exists(home() + "/near/untitled.txt"));
  EXPECT_FALSE(exists(home() + "/far/untitled.txt"));
}

TEST_F(TVNewFileActionTest, ATakenNameGivesTheNextFreeOneAndNothingIsOverwritten) {
  makeFile("folder/untitled.txt", "old");
  makeFile("folder/untitled 2.txt", "old too");
  expectSuccess({home() + "/folder"});
  EXPECT_EQ(contentsOf(home() + "/folder/untitled.txt"), "old");
  EXPECT_EQ(contentsOf(home() + "/folder/untitled 2.txt"), "old too");
  EXPECT_EQ(contentsOf(home() + "/folder/untitled 3.txt"), "of the template");
  EXPECT_THAT(workspace_.revealed(),
              ElementsAre(ElementsAre(Url::fileURLWithPath(home() + "/folder/untitled 3.txt"))));
}

TEST_F(TVNewFileActionTest, ADanglingLinkTakesItsName) {
  const auto folder = makeFolder("folder");
  std::filesystem::create_symlink(home() + "/nowhere", folder + "/untitled.txt");
  expectSuccess({folder});
  EXPECT_TRUE(std::filesystem::is_symlink(folder + "/untitled.txt"));
  EXPECT_EQ(contentsOf(folder + "/untitled 2.txt"), "of the template");
  EXPECT_FALSE(exists(home() + "/nowhere"));
}

TEST_F(TVNewFileActionTest, ANameThatIsTakenAtTheLastMomentIsAnErrorAndIsKept) {
  const auto folder = makeFolder("folder");
  files_.beforeCopy = [this](const std::string& to) -> std::optional<Error> {
    makeFile(to.substr(home().size() + 1), "of another");
    return std::nullopt;
  };
  const auto end = run({folder});
  EXPECT_FALSE(end.success());
  ASSERT_TRUE(end.error());
  EXPECT_EQ(end.error()->code, EEXIST);
  EXPECT_EQ(contentsOf(folder + "/untitled.txt"), "of another");
  EXPECT_THAT(namesIn(folder), ElementsAre("untitled.txt"));
}

TEST_F(TVNewFileActionTest, WithoutExtensionTheNameHasNoDot) {
  const auto folder = makeFolder("folder");
  action_->setExtension("");
  expectSuccess({folder});
  action_->setExtension(std::nullopt);
  expectSuccess({folder});
  EXPECT_THAT(namesIn(folder), ElementsAre("untitled", "untitled 2"));
}

TEST_F(TVNewFileActionTest, TheExtensionIsAppendedWhateverTheNameHolds) {
  const auto folder = makeFolder("folder");
  action_->setFileName("a.b");
  action_->setExtension("tar.gz");
  expectSuccess({folder});
  expectSuccess({folder});
  EXPECT_THAT(namesIn(folder), ElementsAre("a.b.tar 2.gz", "a.b.tar.gz"));
}

TEST_F(TVNewFileActionTest, WithoutFileNameNothingIsCreatedAndTheErrorSaysWhy) {
  const auto folder = makeFolder("folder");
  action_->setFileName(std::nullopt);
  for (const char* const extension : {"txt", ""}) {
    action_->setExtension(extension);
    const auto end = run({folder});
    EXPECT_FALSE(end.success());
    ASSERT_TRUE(end.error());
    EXPECT_EQ(end.error()->message, "No name is set for the new file");
  }
  EXPECT_THAT(namesIn(folder), IsEmpty());
  EXPECT_THAT(namesIn(home() + "/templates"), ElementsAre("blank"));
  EXPECT_THAT(workspace_.revealed(), ElementsAre(IsEmpty(), IsEmpty()));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVNewFileActionTest, WithoutFileNameAnEmptySelectionFailsToo) {
  action_->setFileName(std::nullopt);
  const auto end = run({});
  EXPECT_FALSE(end.success());
  EXPECT_TRUE(end.error());
}

TEST_F(TVNewFileActionTest, AnEmptyNameWithoutExtensionIsNoName) {
  const auto folder = makeFolder("folder");
  action_->setFileName("");
  action_->setExtension(std::nullopt);
  const auto end = run({folder});
  EXPECT_FALSE(end.success());
  EXPECT_EQ(end.error()->message, "No name is set for the new file");
  EXPECT_THAT(namesIn(folder), IsEmpty());
  EXPECT_FALSE(exists(folder + " 2"));
}

TEST_F(TVNewFileActionTest, AnEmptyNameWithExtensionIsAHiddenFile) {
  const auto folder = makeFolder("folder");
  action_->setFileName("");
  action_->setExtension("profile");
  expectSuccess({folder});
  EXPECT_THAT(namesIn(folder), ElementsAre(".profile"));
}

TEST_F(TVNewFileActionTest, ANameThatLeadsToAnotherFolderIsAnErrorAndNothingIsCreated) {
  const auto folder = makeFolder("folder");
  const auto inner = makeFolder("folder/inner");
  makeFolder("folder/untitled.d");
  const std::pair<std::string, std::string> settings[] = {{"inner/untitled", "txt"},
                                                          {"../untitled", "txt"},
                                                          {"/untitled", "txt"},
                                                          {"untitled", "d/txt"},
                                                          {"untitled", "d/../../txt"}};
  for (const auto& [name, extension] : settings) {
    action_->setFileName(name);
    action_->setExtension(extension);
    const auto end = run({folder});
    EXPECT_FALSE(end.success());
    ASSERT_TRUE(end.error());
    EXPECT_EQ(end.error()->message,
              "A new file cannot have the name \"" + name + "." + extension + "\"");
    EXPECT_THAT(workspace_.revealed().back(), IsEmpty());
  }
  EXPECT_THAT(namesIn(folder), ElementsAre("inner", "untitled.d"));
  EXPECT_THAT(namesIn(inner), IsEmpty());
  EXPECT_THAT(namesIn(home()), testing::Not(testing::Contains("untitled.txt")));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVNewFileActionTest, TheNamesOfTheFolderItselfAndTheOneAboveAreErrors) {
  const auto folder = makeFolder("folder");
  action_->setExtension(std::nullopt);
  for (const char* const name : {".", ".."}) {
    action_->setFileName(name);
    const auto end = run({folder});
    EXPECT_FALSE(end.success());
    ASSERT_TRUE(end.error());
    EXPECT_EQ(end.error()->message,
              std::string("A new file cannot have the name \"") + name + "\"");
  }
  EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST_F(TVNewFileActionTest, ANulInNameOrExtensionIsAnErrorAndNothingIsCreated) {
  const auto folder = makeFolder("folder");
  makeFile("folder/un");
  for (const bool isInName : {true, false}) {
    action_->setFileName(isInName ? std::string("un\0titled", 9) : "un");
    action_->setExtension(isInName ? std::string("txt") : std::string("t\0xt", 4));
    const auto end = run({folder});
    EXPECT_FALSE(end.success());
    ASSERT_TRUE(end.error());
    EXPECT_THAT(end.error()->message, testing::StartsWith("A new file cannot have the name \"un"));
  }
  EXPECT_THAT(namesIn(folder), ElementsAre("un"));
}

TEST_F(TVNewFileActionTest, AnExtensionOfAnyBytesIsTakenAsItIs) {
  int number = 0;
  for (const char* const extension : {"\xFF\xFE", "t x\nt", "$(x)", "~"}) {
    const auto folder = makeFolder("folder" + std::to_string(++number));
    action_->setExtension(extension);
    expectSuccess({folder});
    EXPECT_THAT(namesIn(folder), ElementsAre(std::string("untitled.") + extension));
  }
}

TEST_F(TVNewFileActionTest, TheDatesAreTwoReadingsTheModificationFirst) {
  Clock* const realClock = platform_.services().clock;
  SteppingClock clock(*realClock);
  platform_.services().clock = &clock;
  const auto folder = makeFolder("folder");
  run({folder});
  platform_.services().clock = realClock;
  EXPECT_EQ(clock.readings, 2);
  ASSERT_THAT(files_.attributes, SizeIs(1));
  EXPECT_EQ(files_.attributes[0].first, folder + "/untitled.txt");
  EXPECT_EQ(files_.attributes[0].second.modificationDate,
            1'600'000'001 * kNanosecondsInSecond + 123);
  EXPECT_EQ(files_.attributes[0].second.creationDate, 1'600'000'002 * kNanosecondsInSecond + 123);
  EXPECT_EQ(modificationOf(folder + "/untitled.txt"), 1'600'000'001 * kNanosecondsInSecond + 123);
}

TEST_F(TVNewFileActionTest, TheNewFileIsDatedAtTheRunAndTheTemplateKeepsItsDate) {
  makeOld(template_);
  const auto folder = makeFolder("folder");
  const auto before = platform().clock->nowInNanoseconds();
  run({folder});
  const auto after = platform().clock->nowInNanoseconds();
  EXPECT_GE(modificationOf(folder + "/untitled.txt"), before);
  EXPECT_LE(modificationOf(folder + "/untitled.txt"), after);
  EXPECT_EQ(modificationOf(template_), 1'000'000'000 * kNanosecondsInSecond + 5);
  // The file system's own clock is coarser and may lag behind a little.
  const auto birth = birthOf(folder + "/untitled.txt");
  EXPECT_TRUE(birth < 0 || birth >= before - kNanosecondsInSecond);
}

TEST_F(TVNewFileActionTest, AttributesThatCannotBeSetAreNoFailure) {
  files_.attributesError = diskError();
  const auto folder = makeFolder("folder");
  expectSuccess({folder});
  EXPECT_TRUE(exists(folder + "/untitled.txt"));
  EXPECT_THAT(workspace_.revealed(),
              ElementsAre(ElementsAre(Url::fileURLWithPath(folder + "/untitled.txt"))));
}

TEST_F(TVNewFileActionTest, AttributesAreSetOnlyOnWhatWasCreated) {
  files_.beforeCopy = [](const std::string&) { return std::optional(diskError()); };
  run({makeFolder("folder")});
  EXPECT_THAT(files_.attributes, IsEmpty());
}

TEST_F(TVNewFileActionTest, PathsThatNoLongerExistAreNoFailure) {
  std::filesystem::create_symlink("nowhere", home() + "/dangling");
  expectSuccess({home() + "/missing", home() + "/missing/deeper", home() + "/dangling", ""});
  EXPECT_THAT(workspace_.revealed(), ElementsAre(IsEmpty()));
  EXPECT_THAT(namesIn(home()), testing::Not(testing::Contains("untitled.txt")));
}

TEST_F(TVNewFileActionTest, MissingPathsAreSkippedAndTheOthersServed) {
  const auto folder = makeFolder("folder");
  expectSuccess({home() + "/missing", folder});
  EXPECT_TRUE(exists(folder + "/untitled.txt"));
}

TEST_F(TVNewFileActionTest, AnEmptySelectionSucceedsWithAnEmptyReveal) {
  expectSuccess({});
  EXPECT_THAT(workspace_.revealed(), ElementsAre(IsEmpty()));
}

TEST_F(TVNewFileActionTest, AMissingTemplateEndsTheRunWithTheCopysError) {
  std::filesystem::remove(template_);
  const auto folder = makeFolder("folder");
  const auto end = run({folder});
  EXPECT_FALSE(end.success());
  ASSERT_TRUE(end.error());
  EXPECT_EQ(end.error()->code, ENOENT);
  EXPECT_THAT(end.error()->message, HasSubstr(template_));
  EXPECT_THAT(namesIn(folder), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), ElementsAre(IsEmpty()));
}

TEST_F(TVNewFileActionTest, WithoutTemplateTheErrorSaysWhy) {
  const auto folder = makeFolder("folder");
  for (const std::optional<Url>& url :
       {std::optional<Url>(), std::optional(Url("https://example.org/blank"))}) {
    action_->setTemplateURL(url);
    const auto end = run({folder});
    EXPECT_FALSE(end.success());
    ASSERT_TRUE(end.error());
    EXPECT_EQ(end.error()->message,
              "No template is set for the new file " + folder + "/untitled.txt");
  }
  EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST_F(TVNewFileActionTest, WithoutTemplateASelectionThatIsGoneIsNoFailure) {
  action_->setTemplateURL(std::nullopt);
  expectSuccess({home() + "/missing"});
}

TEST_F(TVNewFileActionTest, AFolderThatIsNotWritableEndsTheRunWithTheCopysError) {
  const auto folder = makeFolder("folder");
  ASSERT_EQ(chmod(folder.c_str(), 0555), 0);
  ASSERT_EQ(chmod(home().c_str(), 0755), 0);
  // Root may write everywhere; the whole process becomes somebody else for the run.
  const bool isRoot = geteuid() == 0;
  ASSERT_EQ(seteuid(isRoot ? kNobody : geteuid()), 0);
  const auto end = run({folder});
  ASSERT_EQ(seteuid(isRoot ? 0 : geteuid()), 0);
  EXPECT_FALSE(end.success());
  ASSERT_TRUE(end.error());
  EXPECT_EQ(end.error()->code, EACCES);
  EXPECT_THAT(end.error()->message, HasSubstr(folder + "/untitled.txt"));
  EXPECT_THAT(namesIn(folder), IsEmpty());
  ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
}

TEST_F(TVNewFileActionTest, TheSecondOfThreeThatFailsEndsTheRunAndTheFirstStays) {
  const auto first = makeFolder("first");
  const auto second = makeFolder("second");
  const auto third = makeFolder("third");
  files_.beforeCopy = [&](const std::string& to) {
    return to.starts_with(second) ? std::optional(diskError()) : std::nullopt;
  };
  const auto end = run({first, second, third});
  EXPECT_FALSE(end.success());
  EXPECT_EQ(end.error(), diskError());
  EXPECT_TRUE(exists(first + "/untitled.txt"));
  EXPECT_THAT(namesIn(second), IsEmpty());
  EXPECT_THAT(namesIn(third), IsEmpty());
  EXPECT_THAT(workspace_.revealed(),
              ElementsAre(ElementsAre(Url::fileURLWithPath(first + "/untitled.txt"))));
}

TEST_F(TVNewFileActionTest, FailuresAreNeitherLoggedNorShown) {
  std::filesystem::remove(template_);
  run({makeFolder("folder")});
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
}

TEST_F(TVNewFileActionTest, ASuccessIsNeitherLoggedNorNotified) {
  run({makeFolder("folder")});
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
}

TEST_F(TVNewFileActionTest, TheRevealHappensWhateverThePreferencesSay) {
  TVUserDefaults::create()->setShowFileOnMoveCopyComplete(false);
  TVUserDefaults::create()->setDisableActionNotifications(true);
  run({makeFolder("folder")});
  EXPECT_THAT(workspace_.revealed(), ElementsAre(SizeIs(1)));
}

TEST_F(TVNewFileActionTest, TheRevealIsAskedForOnTheRunsQueueBeforeTheBlockIsPosted) {
  std::atomic<std::thread::id> thread;
  std::atomic<int> callsAtReveal{-1};
  RecordedBlock end;
  WatchedWorkspace workspace(*platform_.services().workspace);
  workspace.onReveal = [&] {
    thread = std::this_thread::get_id();
    callsAtReveal = end.calls();
  };
  platform_.services().workspace = &workspace;
  action_->runWithFilePaths({makeFolder("folder")}, end.block());
  EXPECT_TRUE(waitUntil([&] { return end.calls() == 1; }, 30));
  platform_.services().workspace = &workspace_;
  EXPECT_EQ(callsAtReveal, 0);
  EXPECT_NE(thread.load(), std::this_thread::get_id());
  EXPECT_EQ(thread.load(), files_.thread.load());
}

TEST_F(TVNewFileActionTest, TheExecutableFlagChangesNoPermission) {
  ASSERT_EQ(chmod(template_.c_str(), 0640), 0);
  const auto folder = makeFolder("folder");
  action_->setExecutable(true);
  run({folder});
  EXPECT_EQ(statusOf(folder + "/untitled.txt").st_mode & 07777, 0640u);
}

TEST_F(TVNewFileActionTest, AnExecutableTemplateGivesAnExecutableFile) {
  ASSERT_EQ(chmod(template_.c_str(), 0755), 0);
  const auto folder = makeFolder("folder");
  run({folder});
  EXPECT_EQ(statusOf(folder + "/untitled.txt").st_mode & 07777, 0755u);
}

TEST_F(TVNewFileActionTest, AReadOnlyTemplateGivesAReadOnlyFileDatedNow) {
  makeOld(template_);
  ASSERT_EQ(chmod(template_.c_str(), 0444), 0);
  const auto folder = makeFolder("folder");
  const auto before = platform().clock->nowInNanoseconds();
  expectSuccess({folder});
  EXPECT_EQ(statusOf(folder + "/untitled.txt").st_mode & 07777, 0444u);
  EXPECT_EQ(contentsOf(folder + "/untitled.txt"), "of the template");
  EXPECT_GE(modificationOf(folder + "/untitled.txt"), before);
}

TEST_F(TVNewFileActionTest, ATemplateThatIsAFolderIsCopiedWithItsContents) {
  makeFile("templates/project/src/main.c", "int main;");
  action_->setTemplateURL(Url::fileURLWithPath(home() + "/templates/project", true));
  action_->setExtension(std::nullopt);
  const auto folder = makeFolder("folder");
  expectSuccess({folder});
  EXPECT_EQ(contentsOf(folder + "/untitled/src/main.c"), "int main;");
}

TEST_F(TVNewFileActionTest, ATemplateThatIsALinkIsCopiedAsALinkAndItsTargetKeepsItsDate) {
  makeOld(template_);
  std::filesystem::create_symlink(template_, home() + "/templates/link");
  action_->setTemplateURL(Url::fileURLWithPath(home() + "/templates/link"));
  const auto folder = makeFolder("folder");
  expectSuccess({folder});
  EXPECT_EQ(std::filesystem::read_symlink(folder + "/untitled.txt"), template_);
  EXPECT_EQ(modificationOf(template_), 1'000'000'000 * kNanosecondsInSecond + 5);
}

TEST_F(TVNewFileActionTest, AnEmptyTemplateGivesAnEmptyFile) {
  makeFile("templates/blank", "");
  const auto folder = makeFolder("folder");
  expectSuccess({folder});
  EXPECT_EQ(statusOf(folder + "/untitled.txt").st_size, 0);
}

TEST_F(TVNewFileActionTest, NamesOfAnyBytesAreTakenAsTheyAre) {
  int number = 0;
  for (const std::string& name :
       {std::string("a\nb"), std::string("'single' \"double\""), std::string("$(touch injected)"),
        std::string("-rf"), std::string("\xFF\xFE"), std::string(251, 'n'), std::string("%41 ?#"),
        std::string("*")}) {
    const auto folder = makeFolder("folders/" + std::to_string(++number) + name.substr(0, 200));
    action_->setFileName(name);
    expectSuccess({folder});
    EXPECT_THAT(namesIn(folder), ElementsAre(name + ".txt"));
    EXPECT_EQ(workspace_.revealed().back().front().path(), folder + "/" + name + ".txt");
  }
  EXPECT_FALSE(exists("injected"));
}

TEST_F(TVNewFileActionTest, TemplatesWithAnyBytesInTheirNamesAreCopied) {
  int number = 0;
  for (const std::string& name : {std::string("a\nb"), std::string("-rf"), std::string("\xFF\xFE"),
                                  std::string(255, 'n'), std::string("%41 ?#")}) {
    action_->setTemplateURL(Url::fileURLWithPath(makeFile("templates/" + name, name)));
    const auto folder = makeFolder("folder" + std::to_string(++number));
    expectSuccess({folder});
    EXPECT_EQ(contentsOf(folder + "/untitled.txt"), name);
  }
}

TEST_F(TVNewFileActionTest, ANameThatIsTooLongIsAnErrorThatNamesIt) {
  const auto folder = makeFolder("folder");
  action_->setFileName(std::string(252, 'n'));
  const auto end = run({folder});
  EXPECT_FALSE(end.success());
  ASSERT_TRUE(end.error());
  EXPECT_EQ(end.error()->code, ENAMETOOLONG);
  EXPECT_THAT(end.error()->message, HasSubstr(std::string(252, 'n') + ".txt"));
  EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST_F(TVNewFileActionTest, TheLongestNameThatIsTakenIsShortened) {
  const auto folder = makeFolder("folder");
  action_->setFileName(std::string(251, 'n'));
  expectSuccess({folder});
  expectSuccess({folder});
  EXPECT_THAT(namesIn(folder),
              ElementsAre(std::string(249, 'n') + " 2.txt", std::string(251, 'n') + ".txt"));
}

TEST_F(TVNewFileActionTest, TheWorkIsDoneAwayFromTheMainThread) {
  run({makeFolder("folder")});
  EXPECT_NE(files_.thread.load(), std::thread::id());
  EXPECT_NE(files_.thread.load(), std::this_thread::get_id());
}

TEST_F(TVNewFileActionTest, EachRunMakesASerialQueueOfItsOwnSoThatTwoProceedTogether) {
  class NamingRunLoop : public ForwardingRunLoop {
   public:
    using ForwardingRunLoop::ForwardingRunLoop;
    std::vector<std::string> labels;
    std::shared_ptr<SerialQueue> createSerialQueue(const std::string& label) override {
      labels.push_back(label);
      return ForwardingRunLoop::createSerialQueue(label);
    }
  } runLoop(*platform_.services().runLoop);
  platform_.services().runLoop = &runLoop;
  // The first run waits inside its copy until the second one is inside its own.
  std::mutex mutex;
  std::condition_variable both;
  int inside = 0;
  bool met = true;
  files_.beforeCopy = [&](const std::string&) -> std::optional<Error> {
    std::unique_lock lock(mutex);
    ++inside;
    both.notify_all();
    met = both.wait_for(lock, std::chrono::seconds(30), [&] { return inside == 2; }) && met;
    return diskError();
  };
  RecordedBlock first;
  RecordedBlock second;
  action_->runWithFilePaths({makeFolder("first")}, first.block());
  action_->runWithFilePaths({makeFolder("second")}, second.block());
  EXPECT_TRUE(waitUntil([&] { return first.calls() == 1 && second.calls() == 1; }, 30));
  platform_.services().runLoop = &platform_.runLoop();
  EXPECT_TRUE(met);
  EXPECT_THAT(runLoop.labels, ElementsAre("com.vessok.newfilequeue", "com.vessok.newfilequeue"));
}

TEST_F(TVNewFileActionTest, ARunHoldsTheActionUntilItsWorkIsDone) {
  const std::weak_ptr<TVNewFileAction> weak = action_;
  std::atomic<bool> wasAlive{false};
  files_.beforeCopy = [&](const std::string&) -> std::optional<Error> {
    wasAlive = !weak.expired();
    return std::nullopt;
  };
  RecordedBlock end;
  action_->runWithFilePaths({makeFolder("folder")}, end.block());
  action_ = nullptr;
  EXPECT_TRUE(waitUntil([&] { return end.calls() == 1; }, 30));
  EXPECT_TRUE(wasAlive);
  EXPECT_TRUE(waitUntil([&] { return weak.expired(); }, 30));
}

TEST_F(TVNewFileActionTest, ARunWithoutBlockCreatesAllTheSame) {
  const auto folder = makeFolder("folder");
  action_->runWithFilePaths({folder}, nullptr);
  EXPECT_TRUE(waitUntil([&] { return !workspace_.revealed().empty(); }, 30));
  EXPECT_TRUE(exists(folder + "/untitled.txt"));
}

TEST_F(TVNewFileActionTest, WhatTheBlockHoldsIsReleasedOnTheMainThread) {
  std::thread::id releasedOn;
  auto holder = std::shared_ptr<int>(new int(0), [&](const int* held) {
    delete held;
    releasedOn = std::this_thread::get_id();
  });
  bool ended = false;
  action_->runWithFilePaths({makeFolder("folder")},
                            [holder, &ended](bool, const std::optional<Error>&) { ended = true; });
  holder = nullptr;
  EXPECT_TRUE(waitUntil([&] { return ended && releasedOn != std::thread::id(); }, 30));
  EXPECT_EQ(releasedOn, std::this_thread::get_id());
}

TEST_F(TVNewFileActionTest, BeforeRunIsThatOfTheBase) {
  int calls = 0;
  action_->beforeRunWithFilePaths({"/a"}, [&](const Value& object) {
    EXPECT_TRUE(object.isNull());
    ++calls;
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(TVNewFileActionTest, ANewActionHasNoSettingsAndNoTitle) {
  const auto fresh = action<TVNewFileAction>();
  EXPECT_FALSE(fresh->executable());
  EXPECT_EQ(fresh->fileName(), std::nullopt);
  EXPECT_EQ(fresh->extension(), std::nullopt);
  EXPECT_EQ(fresh->templateURL(), std::nullopt);
  EXPECT_EQ(fresh->title(), std::nullopt);
  EXPECT_EQ(fresh->defaultTitle(), std::nullopt);
  EXPECT_EQ(fresh->icon(), nullptr);
  EXPECT_FALSE(fresh->isDefault());
  EXPECT_EQ(fresh->editorClassName(), "TVMoveToActionModule");
}

TEST_F(TVNewFileActionTest, ItsChainIsThatOfADirectSubclass) {
  EXPECT_EQ(action_->className(), "TVNewFileAction");
  EXPECT_THAT(*registry_.chain("TVNewFileAction"),
              ElementsAre("TVNewFileAction", "TVAction", "NSObject"));
}

TEST_F(TVNewFileActionTest, ItsSettingsSurviveCopyAndArchive) {
  for (const bool executable : {true, false}) {
    action_->setExecutable(executable);
    const auto copy = std::dynamic_pointer_cast<TVNewFileAction>(action_->copy());
    const auto decoded = unarchived<TVNewFileAction>(archived(action_));
    for (const auto& other : {copy, decoded}) {
      ASSERT_NE(other, nullptr);
      EXPECT_EQ(other->executable(), executable);
      EXPECT_EQ(other->fileName(), "untitled");
      EXPECT_EQ(other->extension(), "txt");
      EXPECT_EQ(other->templateURL(), action_->templateURL());
      EXPECT_EQ(other->uid(), action_->uid());
    }
  }
}

TEST_F(TVNewFileActionTest, ItsKeysAreEncodedAfterThoseOfTheBaseInTheirOrder) {
  EXPECT_THAT(
      encodedKeys(archived(action_), "enabled"),
      ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes", "actionDescription",
                  "templateURL", "executable", "fileName", "extension", "$class"));
}

TEST_F(TVNewFileActionTest, DecodingWithoutItsKeysGivesNilAndNo) {
  action_->setExecutable(true);
  const auto decoded = unarchived<TVNewFileAction>(
      withEditedObject(archived(action_), "enabled", [](Value::Dictionary& object) {
        for (const char* const key : {"templateURL", "executable", "fileName", "extension"}) {
          object.erase(key);
        }
      }));
  EXPECT_EQ(decoded->templateURL(), std::nullopt);
  EXPECT_FALSE(decoded->executable());
  EXPECT_EQ(decoded->fileName(), std::nullopt);
  EXPECT_EQ(decoded->extension(), std::nullopt);
}

TEST_F(TVNewFileActionTest, NilSettingsAreEncodedAsNilAndEmptyOnesStayEmpty) {
  action_->setTemplateURL(std::nullopt);
  action_->setFileName(std::nullopt);
  action_->setExtension("");
  const auto object = encodedObject(archived(action_), "enabled");
  EXPECT_EQ(object.at("templateURL"), Value(Uid{0}));
  EXPECT_EQ(object.at("fileName"), Value(Uid{0}));
  EXPECT_NE(object.at("extension"), Value(Uid{0}));
  EXPECT_EQ(unarchived<TVNewFileAction>(archived(action_))->extension(), "");
}

}  // namespace
}  // namespace tervano::test
