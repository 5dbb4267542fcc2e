#include "tests/hosts/modules/module_fixture.h"

#include <malloc.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "tests/hosts/elsewhere/elsewhere_file.h"
#include "tests/hosts/system_calls/system_calls.h"

namespace tervano::test {

namespace fs = std::filesystem;

namespace {

std::string outputOf(const std::string& program, std::vector<std::string> words) {
  ProgramStart start;
  start.path = program;
  start.arguments = std::move(words);
  start.seconds = 60;
  const auto outcome = runProgram(start);
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  return outcome.output;
}

}  // namespace

TEST_F(ModuleTest, ItExportsItsEntryFunctionsAndNothingElse) {
  std::istringstream lines(
      outputOf("/usr/bin/nm", {"--dynamic", "--defined-only", "--format=posix", Module::path()}));
  std::set<std::string> names;
  for (std::string line; std::getline(lines, line);) names.insert(line.substr(0, line.find(' ')));
  const std::string entries = Manager::kEntries;
  EXPECT_EQ(names, (std::set<std::string>{entries + "initialize", entries + "list_types",
                                          entries + "shutdown"}));
}

TEST_F(ModuleTest, ItBringsNoToolkitButTheFileManagersOwn) {
  const std::string libraries = Module::loadedLibraries();
  EXPECT_NE(libraries.find(Module::path()), std::string::npos);
  EXPECT_EQ(libraries.find("libgtk-3.so") != std::string::npos, Manager::kDrawsWithGtk3)
      << libraries;
  for (const char* toolkit : {"libgtk-4", "libgtk-x11-2", "libQt5", "libQt6"}) {
    EXPECT_EQ(libraries.find(toolkit), std::string::npos) << toolkit;
  }
}

TEST_F(ModuleTest, ItIsLoadedUnloadedAndLoadedAgain) {
  addMove("Away");
  const std::string text = drawn("Tervano@[Away@]");
  ASSERT_EQ(textOnceItIs(text), text);
  for (int i = 0; i < 100; ++i) {
    provider_.reset();
    module_.reset();
    // The code stays for what still calls it: messages, threads, items that are kept.
    EXPECT_NE(Module::loadedLibraries().find(Module::path()), std::string::npos);
    module_ = std::make_unique<Module>();
    provider_.reset(module_->newProvider());
    ASSERT_EQ(textOf(files_), text);
  }
}

TEST_F(ModuleTest, AnItemThatIsKeptWorksAfterTheModuleWasUnloaded) {
  addMove("Away");
  const std::string text = drawn("Tervano@[Away@]");
  ASSERT_EQ(textOnceItIs(text), text);
  const Items items(request(files_));
  provider_.reset();
  module_.reset();
  ASSERT_TRUE(items.choose("Away"));
  EXPECT_EQ(handedOver(), (std::set<std::vector<std::string>>{{home_.path() + "/one.txt"}}));
}

TEST_F(ModuleTest, AGroupIsASubmenuInsideTheWrapperAndUnderscoresAreDoubled) {
  const std::string group = add({"group-move", "--title", "Sort_by"});
  addMove("_Away", {"--into", group});
  addMove("<b>Alone</b> & more");
  const std::string text = drawn("Tervano@[Sort__by@[__Away@],<b>Alone</b> & more@]");
  EXPECT_EQ(textOnceItIs(text), text);
}

TEST_F(ModuleTest, WithoutTheWrapperTheEntriesStandAlone) {
  home_.succeed({"prefs", "set", "useSubmenu", "no"});
  addMove("Away");
  addMove("Farther");
  EXPECT_EQ(textOnceItIs(drawn("Away@,Farther@")), drawn("Away@,Farther@"));
}

TEST_F(ModuleTest, WithoutAFittingActionThereIsNoEntry) {
  addMove("Pictures", {"--types", "public.image"});
  Files pictures;
  pictures.add(newLocalFile("/folder/one.png"));
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Pictures@]"), pictures), drawn("Tervano@[Pictures@]"));
  EXPECT_EQ(textOf(files_), "");
}

TEST_F(ModuleTest, TheBackgroundMenuActsOnTheFolder) {
  addMove("Away");
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Away@]")), drawn("Tervano@[Away@]"));
  const GObjectPtr<GObject> folder(newLocalFile(home_.folder("folder"), true));
  const Items items(requestForFolder(folder.get()));
  ASSERT_TRUE(items.choose("Away"));
  EXPECT_EQ(handedOver(), (std::set<std::vector<std::string>>{{home_.path() + "/folder"}}));
}

TEST_F(ModuleTest, AnEntryChosenOnItemsOfTheTrashTouchesNothing) {
  add({"secure-delete", "--title", "Delete"});
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Delete@]")), drawn("Tervano@[Delete@]"));
  home_.succeed({"prefs", "set", "useSubmenu", "no"});
  ASSERT_EQ(textOnceItIs(drawn("Delete@")), drawn("Delete@"));
  // As a virtual file system lists it, and as one does that is mounted as well.
  for (GFile* location : {g_file_new_for_uri("trash:///one.txt"),
                          newElsewhereFile("trash:///one.txt", home_.path() + "/one.txt")}) {
    Files trashed;
    trashed.add(newFile(location, false));
    const Items items(request(trashed));
    EXPECT_TRUE(items.isNull()) << items.text();
    items.choose("Delete");
    const GObjectPtr<GObject> folder(
        newFile(newElsewhereFile("trash:///", home_.folder(".local/share/Trash/files")), true));
    EXPECT_TRUE(Items(requestForFolder(folder.get())).isNull());
  }
  EXPECT_EQ(handedOver(), (std::set<std::vector<std::string>>{}));
}

TEST_F(ModuleTest, OnlyTheLocalItemsOfASelectionAreActedOn) {
  addMove("Away");
  files_.add(newFile(g_file_new_for_uri("trash:///two.txt"), false))
      .add(newFile(newElsewhereFile("trash:///three.txt", home_.path() + "/three.txt"), false))
      .add(newFile(g_file_new_for_uri("sftp://host/four.txt"), false))
      .add(newFile(newElsewhereFile("recent:///six", home_.path() + "/six.txt"), false))
      .add(newFile(nullptr, false));
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Away@]")), drawn("Tervano@[Away@]"));
  ASSERT_TRUE(Items(request(files_)).choose("Away"));
  EXPECT_EQ(handedOver(), (std::set<std::vector<std::string>>{{home_.path() + "/one.txt"}}));
}

TEST_F(ModuleTest, AFileOfAShareIsUsedByThePathAtWhichItIsMounted) {
  addMove("Away");
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Away@]")), drawn("Tervano@[Away@]"));
  Files remote;
  remote.add(newFile(newElsewhereFile("sftp://host/two.txt", home_.path() + "/two.txt"), false));
  ASSERT_TRUE(Items(request(remote)).choose("Away"));
  EXPECT_EQ(handedOver(), (std::set<std::vector<std::string>>{{home_.path() + "/two.txt"}}));
}

TEST_F(ModuleTest, TheTrashAndListsOfFilesAreNotAskedForPaths) {
  addMove("Away");
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Away@]")), drawn("Tervano@[Away@]"));
  for (const char* uri : {"trash:///one.txt", "recent:///one"}) {
    Files remote;
    remote.add(newFile(newElsewhereFile(uri, home_.path() + "/one.txt"), false));
    EXPECT_TRUE(Items(request(remote)).isNull()) << uri;
    EXPECT_TRUE(Items(requestForFolder(static_cast<GObject*>(remote.list()->data))).isNull())
        << uri;
  }
  EXPECT_EQ(pathQuestions(), 0);
}

TEST_F(ModuleTest, AFileInTheListOfRecentOnesIsUsedByItsPath) {
  addMove("Away");
  Files recent;
  recent.add(newRecentFile("file://" + home_.path() + "/b%20%231.txt"))
      .add(newRecentFile("sftp://host/two.txt"))
      .add(newRecentFile("not a URL"));
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Away@]"), recent), drawn("Tervano@[Away@]"));
  ASSERT_TRUE(Items(request(recent)).choose("Away"));
  EXPECT_EQ(handedOver(), (std::set<std::vector<std::string>>{{home_.path() + "/b #1.txt"}}));
}

TEST_F(ModuleTest, EntriesOfTwoWindowsKeepTheirSelections) {
  addMove("Away");
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Away@]")), drawn("Tervano@[Away@]"));
  Files others;
  others.add(newLocalFile(home_.file("b #1%.txt"))).add(newLocalFile(home_.file("ä.txt")));
  const Items first(request(files_));
  const Items second(request(others));
  ASSERT_TRUE(first.choose("Away"));
  EXPECT_EQ(handedOver(), (std::set<std::vector<std::string>>{{home_.path() + "/one.txt"}}));
  ASSERT_TRUE(second.choose("Away"));
  EXPECT_EQ(handedOver(), (std::set<std::vector<std::string>>{
                              {home_.path() + "/one.txt"},
                              {home_.path() + "/b #1%.txt", home_.path() + "/ä.txt"}}));
}

TEST_F(ModuleTest, OddFilesDoNoHarm) {
  addMove("Away");
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Away@]")), drawn("Tervano@[Away@]"));
  EXPECT_TRUE(Items(Manager::fileItems(provider_.get(), nullptr)).isNull());
  EXPECT_TRUE(Items(Manager::folderItems(provider_.get(), nullptr)).isNull());
  Files nowhere;
  nowhere.add(newFile(nullptr, true));
  EXPECT_TRUE(Items(request(nowhere)).isNull());
  Files notText;
  notText.add(newLocalFile(home_.path() + "/bad \xff\xfe.txt"));
  const Items items(request(notText));
  ASSERT_TRUE(items.choose("Away"));
  EXPECT_EQ(handedOver(), (std::set<std::vector<std::string>>{}));
}

TEST_F(ModuleTest, ChangesOfTheListAndOfPreferencesAreSeenAndTold) {
  int told = 0;
  const bool isTelling = g_signal_lookup("items-updated", G_OBJECT_TYPE(provider_.get())) != 0;
  if (isTelling) {
    g_signal_connect_data(provider_.get(), "items-updated",
                          G_CALLBACK(+[](GObject*, int* count) { ++*count; }), &told, nullptr,
                          static_cast<GConnectFlags>(0));
  }
  addMove("Away");
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Away@]")), drawn("Tervano@[Away@]"));
  EXPECT_EQ(isTelling, waitUntil([&] { return told > 0 || !isTelling; }) && isTelling);
  told = 0;
  addMove("Farther");
  EXPECT_EQ(textOnceItIs(drawn("Tervano@[Away@,Farther@]")), drawn("Tervano@[Away@,Farther@]"));
  EXPECT_TRUE(waitUntil([&] { return told > 0 || !isTelling; }));
  told = 0;
  home_.succeed({"prefs", "set", "useSubmenu", "no"});
  EXPECT_EQ(textOnceItIs(drawn("Away@,Farther@")), drawn("Away@,Farther@"));
  EXPECT_TRUE(waitUntil([&] { return told > 0 || !isTelling; }));
}

TEST_F(ModuleTest, AListThatIsBrokenWhileItRunsDoesNoHarm) {
  addMove("Away");
  const std::string text = drawn("Tervano@[Away@]");
  ASSERT_EQ(textOnceItIs(text), text);
  const std::string good = contentsOf(home_.listFile());
  for (const std::string& junk : {std::string(), std::string("junk"), good.substr(0, 100),
                                  "bplist00" + std::string(64, '\xff')}) {
    std::ofstream(home_.listFile(), std::ios::binary) << junk;
    home_.succeed({"post", "TVDidChangeNotification"});
    EXPECT_EQ(textOnceItIs(""), "");
    std::ofstream(home_.listFile(), std::ios::binary) << good;
    home_.succeed({"post", "TVDidChangeNotification"});
    EXPECT_EQ(textOnceItIs(text), text);
  }
}

TEST_F(ModuleTest, AChoiceAfterTheContainerWasDeletedDoesNoHarm) {
  addMove("Away");
  ASSERT_EQ(textOnceItIs(drawn("Tervano@[Away@]")), drawn("Tervano@[Away@]"));
  const Items items(request(files_));
  fs::remove_all(home_.container());
  EXPECT_TRUE(items.choose("Away"));
  Items(request(files_)).choose("Away");
  EXPECT_TRUE(exists(home_.path() + "/one.txt"));
  addMove("Another");
  EXPECT_EQ(textOnceItIs(drawn("Tervano@[Another@]")), drawn("Tervano@[Another@]"));
}

TEST_F(ModuleTest, EveryItemEndsWithItsMenu) {
  const std::string group = add({"group-move", "--title", "Sort"});
  addMove("Away", {"--into", group});
  addMove("Farther", {"--into", group});
  addMove("Alone");
  const std::string text = drawn("Tervano@[Sort@[Away@,Farther@],Alone@]");
  ASSERT_EQ(textOnceItIs(text), text);
  int living = 0;
  {
    const Items items(request(files_));
    items.countIn(living);
    // The wrapper, the group, and their submenus; three actions.
    EXPECT_EQ(living, 7);
  }
  EXPECT_EQ(living, 0);
}

TEST_F(ModuleTest, TenThousandRequestsLeaveNothingBehind) {
  const std::string group = add({"group-move", "--title", "Sort"});
  addMove("Away", {"--into", group});
  const std::string text = drawn("Tervano@[Sort@[Away@]]");
  ASSERT_EQ(textOnceItIs(text), text);
  constexpr int kSizes[] = {0, 1, 10, 100, 1'000, 10'000};
  std::map<int, Files> selections;
  for (const int size : kSizes) selections[size].addMany("/folder", size);
  const auto request = [&](int number) {
    // Most are small, as they are in life.
    const int size = number % 100 == 0 ? 10'000 : number % 20 == 0 ? 1'000 : kSizes[number % 4];
    ASSERT_EQ(textOf(selections[size]), size == 0 ? "" : text);
  };
  for (int i = 0; i < 400; ++i) request(i);
  malloc_trim(0);
  const auto bytes = mallinfo2().uordblks;
  for (int i = 0; i < 10'000; ++i) request(i);
  EXPECT_LT(mallinfo2().uordblks, bytes + 100'000);
}

TEST_F(ModuleTest, ARequestThatRunsOutOfMemoryThrowsNothing) {
  const std::string group = add({"group-move", "--title", "Sort"});
  addMove("Away", {"--into", group});
  const std::string text = drawn("Tervano@[Sort@[Away@]]");
  ASSERT_EQ(textOnceItIs(text), text);
  expectNoMenuWithoutMemory([&] { return request(files_); }, text);
}

TEST_F(ModuleTest, ABackgroundMenuThatRunsOutOfMemoryThrowsNothing) {
  const std::string group = add({"group-move", "--title", "Sort"});
  addMove("Away", {"--into", group});
  const std::string text = drawn("Tervano@[Sort@[Away@]]");
  ASSERT_EQ(textOnceItIs(text), text);
  const GObjectPtr<GObject> folder(newLocalFile(home_.folder("folder"), true));
  expectNoMenuWithoutMemory([&] { return requestForFolder(folder.get()); }, text);
}

TEST_F(ModuleTest, ARequestStartsNothingWaitsForNothingAndLooksAtNoFile) {
  const std::string group = add({"group-move", "--title", "Sort"});
  addMove("Away", {"--into", group});
  addMove("Pictures", {"--types", "public.image"});
  expectHarmlessSystemCalls(TERVANO_MENU_REQUESTS, home_.path());
}

}  // namespace tervano::test
