#include "messaging/vx_wormhole_file_transiting.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "archive/property_list.h"
#include "messaging/message_identifiers.h"
#include "messaging/vx_wormhole_coordinated_file_transiting.h"
#include "tests/messaging/message_samples.h"
#include "tests/support/child_process.h"
#include "tests/support/scoped_platform.h"

namespace tervano {
namespace {

namespace fs = std::filesystem;
using test::Note;
using test::ScopedPlatform;

constexpr char kTransitIdentifier[] = "TVTestMessage";

void putFile(const std::string& path, const std::string& contents) {
  std::ofstream(path, std::ios::binary) << contents;
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

// What holds for the plain and the coordinated transport alike.
template <typename Transport>
class FileTransitingTest : public testing::Test {
 protected:
  ScopedPlatform platform_{&test::noteRegistry()};
  std::string container_ =
      platform_.home().dataHome() + "/" + std::string(kApplicationGroupIdentifier);
  std::string folder_ = container_ + "/wormhole";
  Transport transport_{kApplicationGroupIdentifier, kWormholeDirectory};

  std::string file(const std::string& identifier = kTransitIdentifier) const {
    return folder_ + "/" + identifier + ".archive";
  }
};

using Transports = testing::Types<VXWormholeFileTransiting, VXWormholeCoordinatedFileTransiting>;
TYPED_TEST_SUITE(FileTransitingTest, Transports);

TYPED_TEST(FileTransitingTest, ConstructionCreatesNothingOnDisk) {
  EXPECT_FALSE(fs::exists(this->container_));
}

TYPED_TEST(FileTransitingTest, TheAccessorsAnswerWhatTheConstructionGot) {
  EXPECT_EQ(this->transport_.applicationGroupIdentifier(), kApplicationGroupIdentifier);
  EXPECT_EQ(this->transport_.directory(), kWormholeDirectory);
  EXPECT_NE(this->transport_.fileManager(), nullptr);
}

TYPED_TEST(FileTransitingTest, TheFileLiesInTheDirectoryOfTheContainer) {
  EXPECT_EQ(this->transport_.messagePassingDirectoryPath(), this->folder_);
  EXPECT_EQ(this->transport_.filePathForIdentifier("TVDidChangeNotification"),
            this->folder_ + "/TVDidChangeNotification.archive");
}

TYPED_TEST(FileTransitingTest, ANilDirectoryStandsForTheContainer) {
  this->transport_.setDirectory(std::nullopt);
  EXPECT_EQ(this->transport_.filePathForIdentifier(kTransitIdentifier),
            this->container_ + "/TVTestMessage.archive");
}

TYPED_TEST(FileTransitingTest, AskingForThePathCreatesTheDirectoryForItsUserOnly) {
  this->transport_.filePathForIdentifier(kTransitIdentifier);
  struct stat status {};
  ASSERT_EQ(stat(this->folder_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

TYPED_TEST(FileTransitingTest, WritingNilSucceedsAndWritesNoFile) {
  EXPECT_TRUE(this->transport_.writeMessageObject(nullptr, kTransitIdentifier));
  EXPECT_FALSE(fs::exists(this->file()));
}

TYPED_TEST(FileTransitingTest, WritingNilLeavesWhatIsStored) {
  ASSERT_TRUE(this->transport_.writeMessageObject("before", kTransitIdentifier));
  EXPECT_TRUE(this->transport_.writeMessageObject(nullptr, kTransitIdentifier));
  EXPECT_EQ(this->transport_.messageObjectForIdentifier(kTransitIdentifier), Value("before"));
}

TYPED_TEST(FileTransitingTest, WritingUnderTheEmptyIdentifierFails) {
  EXPECT_FALSE(this->transport_.writeMessageObject("object", ""));
  EXPECT_FALSE(fs::exists(this->folder_ + "/.archive"));
}

TYPED_TEST(FileTransitingTest, WritingUnderANilIdentifierFails) {
  EXPECT_FALSE(this->transport_.writeMessageObject("object", std::nullopt));
}

TYPED_TEST(FileTransitingTest, WritingNilUnderANilIdentifierFails) {
  EXPECT_FALSE(this->transport_.writeMessageObject(nullptr, std::nullopt));
}

TYPED_TEST(FileTransitingTest, WritingNilUnderTheEmptyIdentifierSucceeds) {
  EXPECT_TRUE(this->transport_.writeMessageObject(nullptr, ""));
}

TYPED_TEST(FileTransitingTest, ReadingUnderANilOrEmptyIdentifierGivesNil) {
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier(std::nullopt).isNull());
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier("").isNull());
}

TYPED_TEST(FileTransitingTest, WritingTwiceLeavesOneFileWithTheSecondObject) {
  ASSERT_TRUE(this->transport_.writeMessageObject("first", kTransitIdentifier));
  ASSERT_TRUE(this->transport_.writeMessageObject("second", kTransitIdentifier));
  EXPECT_EQ(namesIn(this->folder_), std::vector<std::string>{"TVTestMessage.archive"});
  EXPECT_EQ(this->transport_.messageObjectForIdentifier(kTransitIdentifier), Value("second"));
}

TYPED_TEST(FileTransitingTest, ReadingAnIdentifierNeverWrittenGivesNil) {
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier(kTransitIdentifier).isNull());
}

TYPED_TEST(FileTransitingTest, ReadingDoesNotConsumeTheMessage) {
  ASSERT_TRUE(this->transport_.writeMessageObject("stays", kTransitIdentifier));
  EXPECT_EQ(this->transport_.messageObjectForIdentifier(kTransitIdentifier), Value("stays"));
  EXPECT_EQ(this->transport_.messageObjectForIdentifier(kTransitIdentifier), Value("stays"));
}

TYPED_TEST(FileTransitingTest, ReadingAfterDeletingGivesNil) {
  ASSERT_TRUE(this->transport_.writeMessageObject("gone soon", kTransitIdentifier));
  this->transport_.deleteContentForIdentifier(kTransitIdentifier);
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier(kTransitIdentifier).isNull());
  EXPECT_FALSE(fs::exists(this->file()));
}

TYPED_TEST(FileTransitingTest, DeletingWhatIsNotThereDoesNothing) {
  ASSERT_TRUE(this->transport_.writeMessageObject("other", "other"));
  this->transport_.deleteContentForIdentifier(kTransitIdentifier);
  this->transport_.deleteContentForIdentifier("");
  this->transport_.deleteContentForIdentifier(std::nullopt);
  EXPECT_EQ(namesIn(this->folder_), std::vector<std::string>{"other.archive"});
}

TYPED_TEST(FileTransitingTest, EveryKindOfObjectComesBackEqual) {
  for (const auto& [name, object] : test::messageSamples()) {
    EXPECT_TRUE(this->transport_.writeMessageObject(object, kTransitIdentifier)) << name;
    EXPECT_TRUE(this->transport_.messageObjectForIdentifier(kTransitIdentifier) == object) << name;
  }
}

TYPED_TEST(FileTransitingTest, AnObjectOfARegisteredClassComesBack) {
  ASSERT_TRUE(
      this->transport_.writeMessageObject(std::make_shared<Note>("kept"), kTransitIdentifier));
  const auto read = this->transport_.messageObjectForIdentifier(kTransitIdentifier);
  ASSERT_NE(read.template getIf<Value::Object>(), nullptr);
  const auto note = std::dynamic_pointer_cast<Note>(*read.template getIf<Value::Object>());
  ASSERT_NE(note, nullptr);
  EXPECT_EQ(note->text(), "kept");
}

TYPED_TEST(FileTransitingTest, AnObjectOfAnUnknownClassFailsAndKeepsWhatIsStored) {
  ASSERT_TRUE(this->transport_.writeMessageObject("kept", kTransitIdentifier));
  EXPECT_FALSE(
      this->transport_.writeMessageObject(std::make_shared<test::Stranger>(), kTransitIdentifier));
  EXPECT_EQ(this->transport_.messageObjectForIdentifier(kTransitIdentifier), Value("kept"));
}

TYPED_TEST(FileTransitingTest, TheFileIsAKeyedArchiveAndNothingElse) {
  ASSERT_TRUE(this->transport_.writeMessageObject("hello", kTransitIdentifier));
  const auto bytes = this->platform_.fileManager().contentsAtPath(this->file());
  ASSERT_TRUE(bytes);
  const auto list = binaryPropertyListWithData(*bytes);
  ASSERT_NE(list.find("$archiver"), nullptr);
  EXPECT_EQ(*list.find("$archiver"), Value("NSKeyedArchiver"));
  ASSERT_NE(list.find("$top"), nullptr);
  EXPECT_NE(list.find("$top")->find("root"), nullptr);
}

TYPED_TEST(FileTransitingTest, TheOtherTransportReadsTheSameFile) {
  ASSERT_TRUE(this->transport_.writeMessageObject("shared", kTransitIdentifier));
  VXWormholeFileTransiting plain(kApplicationGroupIdentifier, kWormholeDirectory);
  VXWormholeCoordinatedFileTransiting coordinated(kApplicationGroupIdentifier, kWormholeDirectory);
  EXPECT_EQ(plain.messageObjectForIdentifier(kTransitIdentifier), Value("shared"));
  EXPECT_EQ(coordinated.messageObjectForIdentifier(kTransitIdentifier), Value("shared"));
}

TYPED_TEST(FileTransitingTest, DeletingAllWithoutDirectoryDeletesNothing) {
  this->transport_.setDirectory(std::nullopt);
  ASSERT_TRUE(this->transport_.writeMessageObject("kept", kTransitIdentifier));
  putFile(this->container_ + "/Actions.plist", "the list");
  this->transport_.deleteContentForAllMessages();
  EXPECT_EQ(namesIn(this->container_),
            (std::vector<std::string>{"Actions.plist", "TVTestMessage.archive"}));
}

TYPED_TEST(FileTransitingTest, ASingleMessageIsDeletedAlsoWithoutDirectory) {
  this->transport_.setDirectory(std::nullopt);
  ASSERT_TRUE(this->transport_.writeMessageObject("gone", kTransitIdentifier));
  this->transport_.deleteContentForIdentifier(kTransitIdentifier);
  EXPECT_TRUE(namesIn(this->container_).empty());
}

TYPED_TEST(FileTransitingTest, DeletingAllEmptiesTheDirectoryOfEverything) {
  ASSERT_TRUE(this->transport_.writeMessageObject("one", "one"));
  ASSERT_TRUE(this->transport_.writeMessageObject("two", "two"));
  putFile(this->folder_ + "/no message.txt", "text");
  putFile(this->folder_ + "/.hidden", "text");
  fs::create_directories(this->folder_ + "/folder/deeper");
  putFile(this->folder_ + "/folder/deeper/file", "text");
  this->transport_.deleteContentForAllMessages();
  EXPECT_TRUE(fs::exists(this->folder_));
  EXPECT_TRUE(namesIn(this->folder_).empty());
}

TYPED_TEST(FileTransitingTest, DeletingAllRemovesALinkButNotWhatItPointsTo) {
  const std::string target = this->platform_.home().path() + "/precious";
  fs::create_directories(target);
  putFile(target + "/file", "text");
  this->transport_.messagePassingDirectoryPath();
  fs::create_symlink(target, this->folder_ + "/link");
  this->transport_.deleteContentForAllMessages();
  EXPECT_TRUE(namesIn(this->folder_).empty());
  EXPECT_TRUE(fs::exists(target + "/file"));
}

TYPED_TEST(FileTransitingTest, DeletingAllLeavesTheRestOfTheContainer) {
  ASSERT_TRUE(this->transport_.writeMessageObject("one", "one"));
  putFile(this->container_ + "/Actions.plist", "the list");
  this->transport_.deleteContentForAllMessages();
  EXPECT_TRUE(fs::exists(this->container_ + "/Actions.plist"));
}

TYPED_TEST(FileTransitingTest, DeletingAllOfADirectoryThatDoesNotExistDoesNothing) {
  this->transport_.deleteContentForAllMessages();
  EXPECT_TRUE(namesIn(this->folder_).empty());
}

TYPED_TEST(FileTransitingTest, DeletingAllNeverEmptiesTheContainerUnderAnotherSpelling) {
  this->transport_.messagePassingDirectoryPath();
  putFile(this->container_ + "/Actions.plist", "the list");
  for (const char* spelling :
       {"", ".", "/", "//", "./", "./.", "a/..", "wormhole/..", "wormhole/../", "a/../b/.."}) {
    this->transport_.setDirectory(spelling);
    this->transport_.deleteContentForAllMessages();
    EXPECT_TRUE(fs::exists(this->container_ + "/Actions.plist")) << spelling;
  }
}

TYPED_TEST(FileTransitingTest, DeletingAllNeverReachesOutOfTheContainer) {
  this->transport_.messagePassingDirectoryPath();
  const std::string outside = this->platform_.home().dataHome();
  fs::create_directories(outside + "/other/deeper");
  putFile(outside + "/other/file", "text");
  putFile(outside + "/other/deeper/file", "text");
  for (const char* spelling :
       {"..", "../", "../other", "../other/deeper", "a/../../other", "wormhole/../.."}) {
    this->transport_.setDirectory(spelling);
    this->transport_.deleteContentForAllMessages();
    EXPECT_TRUE(fs::exists(outside + "/other/file")) << spelling;
    EXPECT_TRUE(fs::exists(outside + "/other/deeper/file")) << spelling;
    EXPECT_TRUE(fs::exists(this->container_)) << spelling;
  }
}

TYPED_TEST(FileTransitingTest, DeletingAllWorksInADirectoryOfADirectory) {
  this->transport_.setDirectory("a/b");
  ASSERT_TRUE(this->transport_.writeMessageObject("gone", kTransitIdentifier));
  this->transport_.deleteContentForAllMessages();
  EXPECT_TRUE(namesIn(this->container_ + "/a/b").empty());
}

TYPED_TEST(FileTransitingTest, ATransportForNobodyFailsEveryWriteAndReadsNil) {
  TypeParam nobody;
  EXPECT_EQ(nobody.applicationGroupIdentifier(), "dev.assertion.nonDesignatedInitializer");
  EXPECT_EQ(nobody.directory(), std::nullopt);
  EXPECT_EQ(nobody.messagePassingDirectoryPath(), std::nullopt);
  EXPECT_EQ(nobody.filePathForIdentifier(kTransitIdentifier), std::nullopt);
  EXPECT_FALSE(nobody.writeMessageObject("object", kTransitIdentifier));
  EXPECT_TRUE(nobody.messageObjectForIdentifier(kTransitIdentifier).isNull());
  nobody.deleteContentForIdentifier(kTransitIdentifier);
  nobody.deleteContentForAllMessages();
  EXPECT_TRUE(namesIn(this->platform_.home().dataHome()).empty());
}

TYPED_TEST(FileTransitingTest, ATransportWithoutGroupFailsEveryWriteAndReadsNil) {
  TypeParam nobody(std::nullopt, kWormholeDirectory);
  EXPECT_FALSE(nobody.writeMessageObject("object", kTransitIdentifier));
  EXPECT_TRUE(nobody.messageObjectForIdentifier(kTransitIdentifier).isNull());
  nobody.deleteContentForAllMessages();
}

TYPED_TEST(FileTransitingTest, ATransportWithoutFileManagerFailsEveryWriteAndReadsNil) {
  this->transport_.setFileManager(nullptr);
  EXPECT_FALSE(this->transport_.writeMessageObject("object", kTransitIdentifier));
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier(kTransitIdentifier).isNull());
  this->transport_.deleteContentForIdentifier(kTransitIdentifier);
  this->transport_.deleteContentForAllMessages();
}

TYPED_TEST(FileTransitingTest, ADirectoryDeletedBetweenTwoWritesIsMadeAgain) {
  ASSERT_TRUE(this->transport_.writeMessageObject("first", kTransitIdentifier));
  fs::remove_all(this->container_);
  EXPECT_TRUE(this->transport_.writeMessageObject("second", kTransitIdentifier));
  EXPECT_EQ(this->transport_.messageObjectForIdentifier(kTransitIdentifier), Value("second"));
}

TYPED_TEST(FileTransitingTest, AnIdentifierWithASlashNamesAFileInASubdirectory) {
  EXPECT_EQ(this->transport_.filePathForIdentifier("sub/name"),
            this->folder_ + "/sub/name.archive");
  EXPECT_FALSE(this->transport_.writeMessageObject("no such folder", "sub/name"));
  fs::create_directories(this->folder_ + "/sub");
  EXPECT_TRUE(this->transport_.writeMessageObject("there", "sub/name"));
  EXPECT_EQ(this->transport_.messageObjectForIdentifier("sub/name"), Value("there"));
  EXPECT_TRUE(fs::exists(this->folder_ + "/sub/name.archive"));
}

TYPED_TEST(FileTransitingTest, AnIdentifierThatClimbsUpIsTakenAsItStands) {
  EXPECT_TRUE(this->transport_.writeMessageObject("above", "../above"));
  EXPECT_TRUE(fs::exists(this->container_ + "/above.archive"));
  EXPECT_EQ(this->transport_.messageObjectForIdentifier("../above"), Value("above"));
}

TYPED_TEST(FileTransitingTest, AnIdentifierWithANulByteNamesNoFile) {
  ASSERT_TRUE(this->transport_.writeMessageObject("kept", "name"));
  const std::string identifier("name.archive\0.x", 15);
  EXPECT_FALSE(this->transport_.writeMessageObject("object", identifier));
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier(identifier).isNull());
  this->transport_.deleteContentForIdentifier(identifier);
  EXPECT_EQ(this->transport_.messageObjectForIdentifier("name"), Value("kept"));
}

TYPED_TEST(FileTransitingTest, OddIdentifiersAreTakenAsTheyStand) {
  for (const std::string identifier :
       {" ", ".", "..", "-rf", "a b", "new\nline", "quote\"'`$(x)", "100%41", "caf\xc3\xa9",
        "\xff\xfe", "a.archive", "*?[", "\\", "tab\t", "\x01"}) {
    EXPECT_TRUE(this->transport_.writeMessageObject(7, identifier)) << identifier;
    EXPECT_TRUE(fs::exists(this->file(identifier))) << identifier;
    EXPECT_EQ(this->transport_.messageObjectForIdentifier(identifier), Value(7)) << identifier;
    this->transport_.deleteContentForIdentifier(identifier);
    EXPECT_FALSE(fs::exists(this->file(identifier))) << identifier;
  }
}

TYPED_TEST(FileTransitingTest, TheLongestNameThatAFileCanHaveWorks) {
  const std::string identifier(255 - std::string(".archive").size(), 'n');
  EXPECT_TRUE(this->transport_.writeMessageObject("long", identifier));
  EXPECT_EQ(this->transport_.messageObjectForIdentifier(identifier), Value("long"));
}

TYPED_TEST(FileTransitingTest, ANameTooLongForAFileFails) {
  const std::string identifier(248, 'n');
  EXPECT_FALSE(this->transport_.writeMessageObject("too long", identifier));
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier(identifier).isNull());
  EXPECT_TRUE(namesIn(this->folder_).empty());
}

TYPED_TEST(FileTransitingTest, AFileThatIsNoArchiveGivesNil) {
  ASSERT_TRUE(this->transport_.writeMessageObject(Value::Array{1, "two"}, kTransitIdentifier));
  const auto good = *this->platform_.fileManager().contentsAtPath(this->file());
  const std::string archive(good.begin(), good.end());
  const auto list = binaryDataWithPropertyList(Value::Dictionary{{"a", 1}});
  for (const std::string& bytes :
       {std::string(), std::string("garbage"), std::string("bplist00"),
        archive.substr(0, archive.size() / 2), archive.substr(1), archive + "x",
        std::string(list.begin(), list.end()), std::string(100, '\0'),
        std::string("<?xml version=\"1.0\"?><plist>")}) {
    putFile(this->file(), bytes);
    EXPECT_TRUE(this->transport_.messageObjectForIdentifier(kTransitIdentifier).isNull())
        << bytes.size() << " bytes";
  }
}

TYPED_TEST(FileTransitingTest, AFolderInPlaceOfAMessageReadsNilAndCannotBeWritten) {
  fs::create_directories(this->file() + "/inside");
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier(kTransitIdentifier).isNull());
  EXPECT_FALSE(this->transport_.writeMessageObject("object", kTransitIdentifier));
  EXPECT_TRUE(fs::exists(this->file() + "/inside"));
}

TYPED_TEST(FileTransitingTest, AFifoInPlaceOfAMessageReadsNil) {
  this->transport_.messagePassingDirectoryPath();
  ASSERT_EQ(mkfifo(this->file().c_str(), 0600), 0);
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier(kTransitIdentifier).isNull());
}

TYPED_TEST(FileTransitingTest, AFileInPlaceOfTheDirectoryMakesWritesFail) {
  fs::create_directories(this->container_);
  putFile(this->folder_, "a file");
  EXPECT_FALSE(this->transport_.writeMessageObject("object", kTransitIdentifier));
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier(kTransitIdentifier).isNull());
  this->transport_.deleteContentForAllMessages();
  EXPECT_TRUE(fs::is_regular_file(this->folder_));
}

TYPED_TEST(FileTransitingTest, ADirectoryThatMayNotBeWrittenMakesWritesFailAndKeepsTheMessage) {
  ASSERT_TRUE(this->transport_.writeMessageObject("kept", kTransitIdentifier));
  for (auto path = fs::path(this->folder_); path != "/tmp" && path != "/";
       path = path.parent_path()) {
    chmod(path.c_str(), 0755);
  }
  chmod(this->file().c_str(), 0644);
  auto child = test::forkChild([this](test::ParentLink&) {
    if (getuid() == 0 && setuid(65534) != 0) return 3;
    if (this->transport_.writeMessageObject("other", kTransitIdentifier)) return 1;
    this->transport_.deleteContentForAllMessages();
    return fs::exists(this->file()) ? 0 : 2;
  });
  if (getuid() != 0) chmod(this->folder_.c_str(), 0555);
  EXPECT_EQ(child.waitForExit(), 0);
  chmod(this->folder_.c_str(), 0755);
  EXPECT_EQ(this->transport_.messageObjectForIdentifier(kTransitIdentifier), Value("kept"));
}

TYPED_TEST(FileTransitingTest, AFullDiskMakesAWriteFailAndKeepsTheMessage) {
  ASSERT_TRUE(this->transport_.writeMessageObject("kept", kTransitIdentifier));
  auto child = test::forkChild([this](test::ParentLink&) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4096, 4096};
    setrlimit(RLIMIT_FSIZE, &limit);
    return this->transport_.writeMessageObject(std::string(100'000, 'x'), kTransitIdentifier) ? 1
                                                                                              : 0;
  });
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(this->transport_.messageObjectForIdentifier(kTransitIdentifier), Value("kept"));
  EXPECT_EQ(namesIn(this->folder_), std::vector<std::string>{"TVTestMessage.archive"});
}

// A file manager whose container moves.
class MovingContainer : public ForwardingFileManager {
 public:
  explicit MovingContainer(FileManager& real) : ForwardingFileManager(real) {}
  std::optional<Url> containerURLForSecurityApplicationGroupIdentifier(
      const std::string&) const override {
    return container ? std::optional(Url::fileURLWithPath(*container, true)) : std::nullopt;
  }
  std::optional<std::string> container;
};

TYPED_TEST(FileTransitingTest, ThePathIsComputedAfreshOnEveryCall) {
  auto moving = std::make_shared<MovingContainer>(this->platform_.fileManager());
  this->transport_.setFileManager(moving);
  EXPECT_FALSE(this->transport_.writeMessageObject("nowhere", kTransitIdentifier));
  moving->container = this->platform_.home().path() + "/a";
  EXPECT_TRUE(this->transport_.writeMessageObject("a", kTransitIdentifier));
  moving->container = this->platform_.home().path() + "/b";
  EXPECT_TRUE(this->transport_.messageObjectForIdentifier(kTransitIdentifier).isNull());
  EXPECT_TRUE(fs::exists(this->platform_.home().path() + "/a/wormhole/TVTestMessage.archive"));
}

TYPED_TEST(FileTransitingTest, SettingTheGroupMovesTheMessages) {
  this->transport_.setApplicationGroupIdentifier("no.such.group");
  EXPECT_FALSE(this->transport_.writeMessageObject("object", kTransitIdentifier));
  this->transport_.setApplicationGroupIdentifier(kApplicationGroupIdentifier);
  EXPECT_TRUE(this->transport_.writeMessageObject("object", kTransitIdentifier));
}

// A coordinator that refuses, or that leads to another path.
class ScriptedCoordinator : public FileCoordinator {
 public:
  std::optional<Error> coordinateWriting(const std::string& path,
                                         const Accessor& accessor) override {
    ++writings;
    return run(path, accessor);
  }
  std::optional<Error> coordinateReading(const std::string& path,
                                         const Accessor& accessor) override {
    ++readings;
    return run(path, accessor);
  }
  std::optional<std::string> otherPath;
  bool refuses = false;
  int writings = 0;
  int readings = 0;

 private:
  std::optional<Error> run(const std::string& path, const Accessor& accessor) {
    if (refuses) return Error{"POSIX", EIO, "refused"};
    accessor(otherPath.value_or(path));
    return std::nullopt;
  }
};

class CoordinatedFileTransitingTest : public testing::Test {
 protected:
  ScopedPlatform platform_{&test::noteRegistry()};
  ScriptedCoordinator coordinator_;
  VXWormholeCoordinatedFileTransiting transport_{kApplicationGroupIdentifier, kWormholeDirectory};

  void SetUp() override { platform_.services().fileCoordinator = &coordinator_; }
};

TEST_F(CoordinatedFileTransitingTest, EachWriteAndReadIsCoordinatedOnce) {
  transport_.writeMessageObject("object", kTransitIdentifier);
  EXPECT_EQ(coordinator_.writings, 1);
  EXPECT_EQ(coordinator_.readings, 0);
  transport_.messageObjectForIdentifier(kTransitIdentifier);
  EXPECT_EQ(coordinator_.writings, 1);
  EXPECT_EQ(coordinator_.readings, 1);
}

TEST_F(CoordinatedFileTransitingTest, DeletingIsNotCoordinated) {
  transport_.writeMessageObject("object", kTransitIdentifier);
  transport_.deleteContentForIdentifier(kTransitIdentifier);
  transport_.deleteContentForAllMessages();
  EXPECT_EQ(coordinator_.writings, 1);
  EXPECT_EQ(coordinator_.readings, 0);
}

TEST_F(CoordinatedFileTransitingTest, NilObjectsAndNilIdentifiersAreNotCoordinated) {
  EXPECT_TRUE(transport_.writeMessageObject(nullptr, kTransitIdentifier));
  EXPECT_FALSE(transport_.writeMessageObject("object", std::nullopt));
  EXPECT_FALSE(transport_.writeMessageObject("object", ""));
  EXPECT_TRUE(transport_.messageObjectForIdentifier(std::nullopt).isNull());
  EXPECT_EQ(coordinator_.writings, 0);
  EXPECT_EQ(coordinator_.readings, 0);
}

TEST_F(CoordinatedFileTransitingTest, ThePlainTransportIsNotCoordinated) {
  VXWormholeFileTransiting plain(kApplicationGroupIdentifier, kWormholeDirectory);
  plain.writeMessageObject("object", kTransitIdentifier);
  plain.messageObjectForIdentifier(kTransitIdentifier);
  EXPECT_EQ(coordinator_.writings, 0);
  EXPECT_EQ(coordinator_.readings, 0);
}

TEST_F(CoordinatedFileTransitingTest, AnAccessorThatDoesNotRunFailsTheWriteAndReadsNil) {
  ASSERT_TRUE(transport_.writeMessageObject("stored", kTransitIdentifier));
  coordinator_.refuses = true;
  EXPECT_FALSE(transport_.writeMessageObject("object", kTransitIdentifier));
  EXPECT_TRUE(transport_.messageObjectForIdentifier(kTransitIdentifier).isNull());
  coordinator_.refuses = false;
  EXPECT_EQ(transport_.messageObjectForIdentifier(kTransitIdentifier), Value("stored"));
}

TEST_F(CoordinatedFileTransitingTest, ThePathThatTheCoordinatorPassesIsUsed) {
  coordinator_.otherPath = platform_.home().path() + "/elsewhere";
  EXPECT_TRUE(transport_.writeMessageObject("object", kTransitIdentifier));
  EXPECT_TRUE(fs::exists(*coordinator_.otherPath));
  EXPECT_EQ(transport_.messageObjectForIdentifier(kTransitIdentifier), Value("object"));
  coordinator_.otherPath = std::nullopt;
  EXPECT_TRUE(transport_.messageObjectForIdentifier(kTransitIdentifier).isNull());
}

TEST_F(CoordinatedFileTransitingTest, AWriteThatFailsInsideTheAccessorFails) {
  coordinator_.otherPath = platform_.home().path() + "/no/such/folder";
  EXPECT_FALSE(transport_.writeMessageObject("object", kTransitIdentifier));
}

TEST_F(CoordinatedFileTransitingTest, TheAdditionalOptionsStartAsNone) {
  EXPECT_EQ(transport_.additionalFileWritingOptions(), 0U);
  ASSERT_TRUE(transport_.writeMessageObject("first", kTransitIdentifier));
  EXPECT_TRUE(transport_.writeMessageObject("second", kTransitIdentifier));
}

TEST_F(CoordinatedFileTransitingTest, WithoutOverwritingAStoredMessageStays) {
  transport_.setAdditionalFileWritingOptions(kDataWritingWithoutOverwriting);
  EXPECT_EQ(transport_.additionalFileWritingOptions(), 2U);
  EXPECT_TRUE(transport_.writeMessageObject("first", kTransitIdentifier));
  EXPECT_FALSE(transport_.writeMessageObject("second", kTransitIdentifier));
  EXPECT_EQ(transport_.messageObjectForIdentifier(kTransitIdentifier), Value("first"));
}

TEST_F(CoordinatedFileTransitingTest, OptionsWithoutMeaningHereChangeNothing) {
  transport_.setAdditionalFileWritingOptions(0xF0000000);
  EXPECT_TRUE(transport_.writeMessageObject("first", kTransitIdentifier));
  EXPECT_TRUE(transport_.writeMessageObject("second", kTransitIdentifier));
  EXPECT_EQ(transport_.messageObjectForIdentifier(kTransitIdentifier), Value("second"));
}

}  // namespace
}  // namespace tervano
