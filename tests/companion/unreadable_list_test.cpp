#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <ostream>

#include "archive/archiver.h"
#include "tests/companion/tervano_program.h"

namespace tervano::test {

namespace {

constexpr char kUnreadableUid[] = "0123456789ABCDEF0123456789ABCDEF";

// Every command that needs the list.
const std::vector<std::vector<std::string>>& commands() {
  static const std::vector<std::vector<std::string>> all = {
      {"list"},
      {"list", "--json"},
      {"show", kUnreadableUid},
      {"add", "move", "--title", "x"},
      {"enable", kUnreadableUid},
      {"disable", kUnreadableUid},
      {"remove", kUnreadableUid},
      {"set", kUnreadableUid, "--title", "x"},
      {"menu", "--json"},
      {"menu", "--print", "--kind", "toolbar"},
      {"reorder", kUnreadableUid, "--first"},
      {"run", kUnreadableUid},
  };
  return all;
}

class UnreadableListTest : public testing::Test {
 protected:
  UnreadableListTest() { home_.succeed({"add", "move", "--title", "A"}); }

  void write(const std::string& content) {
    std::ofstream(home_.listFile(), std::ios::binary | std::ios::trunc) << content;
  }
  void expectEveryCommandToFail(const std::function<bool()>& prepare = nullptr) {
    for (const auto& words : commands()) {
      SCOPED_TRACE(words.front());
      ProgramStart start;
      start.arguments = words;
      start.prepare = prepare;
      expectFailure(home_.start(start));
    }
  }
  // The same, and the file is what it was.
  void expectFailureAndTheSameFile(const std::string& content) {
    write(content);
    expectEveryCommandToFail();
    EXPECT_EQ(contentsOf(home_.listFile()), content);
  }

  ProgramHome home_;
};

}  // namespace

TEST_F(UnreadableListTest, TruncatedFile) {
  const std::string whole = contentsOf(home_.listFile());
  expectFailureAndTheSameFile(whole.substr(0, whole.size() / 2));
}

TEST_F(UnreadableListTest, FileWithoutItsLastByte) {
  const std::string whole = contentsOf(home_.listFile());
  expectFailureAndTheSameFile(whole.substr(0, whole.size() - 1));
}

TEST_F(UnreadableListTest, Garbage) {
  expectFailureAndTheSameFile(std::string("\x00\xff garbage\n", 11));
}

TEST_F(UnreadableListTest, HalfOfAnXmlPropertyList) {
  expectFailureAndTheSameFile("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>");
}

TEST_F(UnreadableListTest, ArchiveWhoseRootIsNoArray) {
  const Data data = Archiver::archivedDataWithRootObject(Value("a text"), ClassRegistry());
  expectFailureAndTheSameFile({data.begin(), data.end()});
}

TEST_F(UnreadableListTest, ArchiveWithAClassThatIsUnknown) {
  std::string content = contentsOf(home_.listFile());
  const auto at = content.find("TVMoveToAction");
  ASSERT_NE(at, std::string::npos);
  for (auto next = at; next != std::string::npos; next = content.find("TVMoveToAction", next)) {
    content.replace(next, 2, "XX");
  }
  expectFailureAndTheSameFile(content);
}

TEST_F(UnreadableListTest, FolderInPlaceOfTheFile) {
  std::filesystem::remove(home_.listFile());
  std::filesystem::create_directories(home_.listFile() + "/inner");
  expectEveryCommandToFail();
  EXPECT_TRUE(exists(home_.listFile() + "/inner"));
}

TEST_F(UnreadableListTest, FileThatMayNotBeRead) {
  const std::string content = contentsOf(home_.listFile());
  giveToNobody(home_.path());
  ASSERT_EQ(chmod(home_.listFile().c_str(), 0), 0);
  expectEveryCommandToFail(becomeNobody);
  ASSERT_EQ(chmod(home_.listFile().c_str(), 0600), 0);
  EXPECT_EQ(contentsOf(home_.listFile()), content);
}

TEST_F(UnreadableListTest, PipeInPlaceOfTheFileIsNotWaitedFor) {
  std::filesystem::remove(home_.listFile());
  ASSERT_EQ(mkfifo(home_.listFile().c_str(), 0600), 0);
  expectEveryCommandToFail();
  EXPECT_TRUE(std::filesystem::is_fifo(home_.listFile()));
}

TEST_F(UnreadableListTest, EmptyFileIsAnEmptyList) {
  write("");
  EXPECT_EQ(home_.json({"list", "--json"}).size(), 0U);
}

TEST_F(UnreadableListTest, MissingFileIsAnEmptyList) {
  std::filesystem::remove(home_.listFile());
  EXPECT_EQ(home_.json({"list", "--json"}).size(), 0U);
}

TEST_F(UnreadableListTest, MissingContainerIsAnEmptyListToo) {
  std::filesystem::remove_all(home_.container());
  EXPECT_EQ(home_.json({"list", "--json"}).size(), 0U);
}

}  // namespace tervano::test
