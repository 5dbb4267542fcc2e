#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <KAbstractFileItemActionPlugin>
#include <KFileItemActions>
#include <KFileItemListProperties>
#include <KIO/UDSEntry>
#include <KPluginFactory>
#include <QApplication>
#include <QDeadlineTimer>
#include <QMenu>
#include <QPluginLoader>
#include <QTimer>
#include <QUrl>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include "tests/companion/tervano_program.h"
#include "tests/hosts/modules/failing_memory.h"
#include "tests/hosts/system_calls/system_calls.h"

namespace tervano::test {

namespace fs = std::filesystem;

namespace {

// A program that shows KDE's menus of files. The plugin lives as long as the process, and so does
// all of this.
class Host {
 public:
  static Host& shared() {
    static auto& host = *new Host;
    return host;
  }

  ProgramHome home;

 private:
  Host() {
    home.home().setVariable("QT_QPA_PLATFORM", "offscreen");
    home.home().setVariable("QT_PLUGIN_PATH", TERVANO_QT_PLUGINS);
    home.home().setVariable("XDG_DATA_DIRS", "/usr/share");
    home.home().setVariable("LC_ALL", "C.UTF-8");
    application_ = new QApplication(count_, words_);
  }

  int count_ = 1;
  char name_[5] = "host";
  char* words_[2] = {name_, nullptr};
  QApplication* application_ = nullptr;
};

// Lets the host's loop run until then.
bool waitInHost(const std::function<bool()>& done, int seconds = 20) {
  const QDeadlineTimer deadline(seconds * 1000);
  QTimer tick;
  tick.start(5);
  while (!done()) {
    if (deadline.hasExpired()) return false;
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }
  return true;
}

KFileItem itemOf(const std::string& path) {
  return KFileItem(QUrl::fromLocalFile(QFile::decodeName(path.c_str())));
}

// An item as a service of the desktop lists it.
KFileItem listedItem(const char* url, const std::string& localPath) {
  KIO::UDSEntry entry;
  entry.fastInsert(KIO::UDSEntry::UDS_NAME, QStringLiteral("item.txt"));
  entry.fastInsert(KIO::UDSEntry::UDS_FILE_TYPE, S_IFREG);
  entry.fastInsert(KIO::UDSEntry::UDS_MIME_TYPE, QStringLiteral("text/plain"));
  if (!localPath.empty()) {
    entry.fastInsert(KIO::UDSEntry::UDS_LOCAL_PATH, QFile::decodeName(localPath.c_str()));
  }
  return KFileItem(entry, QUrl(QLatin1String(url)));
}

std::string titlesOf(const QList<QAction*>& entries) {
  std::string titles;
  for (const QAction* entry : entries) {
    if (!titles.empty()) titles += ',';
    if (!entry->isEnabled()) titles += '-';
    titles += entry->text().toStdString();
    if (entry->menu() != nullptr) titles += '[' + titlesOf(entry->menu()->actions()) + ']';
  }
  return titles;
}

QAction* entryNamed(const QList<QAction*>& entries, const QString& title) {
  for (QAction* entry : entries) {
    if (entry->text() == title) return entry;
    if (entry->menu() == nullptr) continue;
    if (QAction* found = entryNamed(entry->menu()->actions(), title)) return found;
  }
  return nullptr;
}

}  // namespace

class DolphinMenuTest : public testing::Test {
 protected:
  // Before the first menu of the test.
  std::string add(std::vector<std::string> words) const {
    words.insert(words.begin(), "add");
    return home_.succeed(std::move(words));
  }
  std::string addMove(const std::string& title, std::vector<std::string> options = {}) const {
    std::vector<std::string> words = {"move", "--title", title, "--to", home_.folder("to")};
    words.insert(words.end(), options.begin(), options.end());
    return add(std::move(words));
  }

  void SetUp() override {
    fs::remove_all(home_.container());
    home_.succeed({"prefs", "set", "useSubmenu", "yes"});
  }

  // What the desktop's menu of these files gets from the plugin that it finds by itself.
  QList<QAction*> menuOf(const KFileItemList& items) {
    fileActions_.setItemListProperties(KFileItemListProperties(items));
    menu_.clear();
    fileActions_.addActionsTo(&menu_, KFileItemActions::MenuActionSource::Plugins);
    return menu_.actions();
  }
  // The same once the list is what it is expected to be: changes arrive as messages.
  std::string titlesOnceTheyAre(const std::string& titles, const KFileItemList& items) {
    std::string found;
    waitInHost([&] { return (found = titlesOf(menuOf(items))) == titles; });
    return found;
  }

  bool showsIcon(const char* title) const {
    const QAction* entry = entryNamed(menu_.actions(), QLatin1String(title));
    return !entry->icon().pixmap(16).isNull() && entry->isIconVisibleInMenu();
  }

  std::vector<std::string> handedOver() const {
    for (const auto& file : fs::directory_iterator(home_.container())) {
      if (file.path().filename().string().size() != 36) continue;
      std::ifstream stream(file.path());
      return nlohmann::json::parse(stream).at("paths").get<std::vector<std::string>>();
    }
    return {"no file"};
  }

  std::unique_ptr<KAbstractFileItemActionPlugin> plugin() const {
    const KPluginMetaData metaData(QStringLiteral("kf5/kfileitemaction/tervano"));
    return std::unique_ptr<KAbstractFileItemActionPlugin>(
        KPluginFactory::instantiatePlugin<KAbstractFileItemActionPlugin>(metaData).plugin);
  }

  ProgramHome& home_ = Host::shared().home;
  QWidget window_;
  KFileItemActions fileActions_;
  QMenu menu_;
  KFileItemList oneFile_ = {itemOf(home_.file("one.txt"))};
};

TEST_F(DolphinMenuTest, AGroupIsASubmenuInsideTheWrapper) {
  const std::string group = add({"group-move", "--title", "Sort"});
  addMove("Away", {"--into", group});
  addMove("Alone");
  EXPECT_EQ(titlesOnceTheyAre("Tervano[Sort[Away],Alone]", oneFile_), "Tervano[Sort[Away],Alone]");
}

TEST_F(DolphinMenuTest, AmpersandsAreDoubledAndNothingElse) {
  addMove("Fish & Chips_1\t<b>");
  const char* const titles = "Tervano[Fish && Chips_1 <b>]";
  EXPECT_EQ(titlesOnceTheyAre(titles, oneFile_), titles);
}

TEST_F(DolphinMenuTest, AnEmptyWrapperIsNotShown) {
  addMove("Pictures", {"--types", "public.image"});
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Pictures]", {itemOf(home_.file("one.png"))}),
            "Tervano[Pictures]");
  EXPECT_EQ(titlesOf(menuOf(oneFile_)), "");
}

TEST_F(DolphinMenuTest, AFolderHasAMenu) {
  addMove("Away");
  EXPECT_EQ(titlesOnceTheyAre("Tervano[Away]", {itemOf(home_.folder("folder"))}), "Tervano[Away]");
}

TEST_F(DolphinMenuTest, FilesAndFoldersTogetherHaveAMenu) {
  addMove("Away");
  const KFileItemList both = {itemOf(home_.file("one.txt")), itemOf(home_.folder("folder"))};
  EXPECT_EQ(titlesOnceTheyAre("Tervano[Away]", both), "Tervano[Away]");
}

TEST_F(DolphinMenuTest, FilesOfDifferentTypesHaveAMenu) {
  addMove("Away");
  const KFileItemList both = {itemOf(home_.file("one.txt")), itemOf(home_.file("one.png"))};
  EXPECT_EQ(titlesOnceTheyAre("Tervano[Away]", both), "Tervano[Away]");
}

TEST_F(DolphinMenuTest, PipesAndDanglingLinksHaveAMenu) {
  addMove("Away");
  const std::string pipe = home_.folder("odd") + "/pipe";
  const std::string link = home_.folder("odd") + "/link";
  mkfifo(pipe.c_str(), 0600);
  fs::remove(link);
  fs::create_symlink("nowhere", link);
  EXPECT_EQ(titlesOnceTheyAre("Tervano[Away]", {itemOf(pipe)}), "Tervano[Away]");
  EXPECT_EQ(titlesOnceTheyAre("Tervano[Away]", {itemOf(link)}), "Tervano[Away]");
}

TEST_F(DolphinMenuTest, AChosenEntryHandsOverAllPathsInOrder) {
  addMove("Away");
  const KFileItemList items = {itemOf(home_.file("b #1%.txt")), itemOf(home_.file("ä.txt")),
                               itemOf(home_.folder("a"))};
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", items), "Tervano[Away]");
  entryNamed(menu_.actions(), QStringLiteral("Away"))->trigger();
  EXPECT_EQ(handedOver(), (std::vector<std::string>{home_.path() + "/b #1%.txt",
                                                    home_.path() + "/ä.txt", home_.path() + "/a"}));
}

TEST_F(DolphinMenuTest, AnEntryKeepsItsSelectionWhenAnotherMenuIsShown) {
  addMove("Away");
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", oneFile_), "Tervano[Away]");
  QMenu other;
  fileActions_.setItemListProperties(KFileItemListProperties({itemOf(home_.file("two.txt"))}));
  fileActions_.addActionsTo(&other, KFileItemActions::MenuActionSource::Plugins);
  entryNamed(menu_.actions(), QStringLiteral("Away"))->trigger();
  EXPECT_EQ(handedOver(), std::vector<std::string>{home_.path() + "/one.txt"});
}

TEST_F(DolphinMenuTest, AnEntryChosenOnItemsOfTheTrashTouchesNothing) {
  home_.succeed({"prefs", "set", "useSubmenu", "no"});
  add({"secure-delete", "--title", "Delete"});
  ASSERT_EQ(titlesOnceTheyAre("Delete", oneFile_), "Delete");
  // An item of the trash has a path on this machine.
  const KFileItem trashed = listedItem("trash:/0-one.txt", home_.path() + "/one.txt");
  EXPECT_EQ(titlesOf(menuOf({trashed})), "");
  EXPECT_EQ(entryNamed(menu_.actions(), QStringLiteral("Delete")), nullptr);
  EXPECT_EQ(titlesOf(menuOf({listedItem("trash:/", home_.folder("Trash"))})), "");
  EXPECT_EQ(handedOver(), std::vector<std::string>{"no file"});
  ASSERT_EQ(titlesOf(menuOf({trashed, itemOf(home_.file("two.txt"))})), "Delete");
  entryNamed(menu_.actions(), QStringLiteral("Delete"))->trigger();
  EXPECT_EQ(handedOver(), std::vector<std::string>{home_.path() + "/two.txt"});
}

TEST_F(DolphinMenuTest, AnItemElsewhereIsUsedByItsPathHere) {
  addMove("Away");
  const KFileItemList items = {listedItem("desktop:/item.txt", home_.path() + "/one.txt")};
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", items), "Tervano[Away]");
  entryNamed(menu_.actions(), QStringLiteral("Away"))->trigger();
  EXPECT_EQ(handedOver(), std::vector<std::string>{home_.path() + "/one.txt"});
}

TEST_F(DolphinMenuTest, ItemsWithoutAPathHereAreLeftOut) {
  addMove("Away");
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", oneFile_), "Tervano[Away]");
  EXPECT_EQ(titlesOf(menuOf({listedItem("smb://server/share/item.txt", "")})), "");
  EXPECT_EQ(titlesOf(menuOf({listedItem("file://server/etc/passwd", "")})), "");
  EXPECT_EQ(titlesOf(menuOf({listedItem("tags:/item.txt", "relative/one.txt")})), "");
  const KFileItemList both = {listedItem("smb://server/share/item.txt", ""), oneFile_.first()};
  ASSERT_EQ(titlesOf(menuOf(both)), "Tervano[Away]");
  entryNamed(menu_.actions(), QStringLiteral("Away"))->trigger();
  EXPECT_EQ(handedOver(), std::vector<std::string>{home_.path() + "/one.txt"});
}

TEST_F(DolphinMenuTest, ChangesOfTheListAndOfPreferencesAreSeen) {
  addMove("Away");
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", oneFile_), "Tervano[Away]");
  addMove("Farther");
  EXPECT_EQ(titlesOnceTheyAre("Tervano[Away,Farther]", oneFile_), "Tervano[Away,Farther]");
  home_.succeed({"prefs", "set", "useSubmenu", "no"});
  EXPECT_EQ(titlesOnceTheyAre("Away,Farther", oneFile_), "Away,Farther");
}

TEST_F(DolphinMenuTest, IconsThatAreStillBeingDrawnComeToTheOpenMenu) {
  addMove("Away", {"--icon", TERVANO_SHARE "/tervano/icons/icon-copy.svg"});
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", oneFile_), "Tervano[Away]");
  EXPECT_TRUE(showsIcon("Tervano"));
  EXPECT_TRUE(waitInHost([&] { return showsIcon("Away"); }));
}

TEST_F(DolphinMenuTest, IconsThatAreDrawnAreInTheMenuAtOnce) {
  addMove("Away");
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", oneFile_), "Tervano[Away]");
  ASSERT_TRUE(waitInHost([&] { return showsIcon("Away"); }));
  menuOf(oneFile_);
  EXPECT_TRUE(showsIcon("Away"));
}

TEST_F(DolphinMenuTest, TenThousandRequestsLeaveNothingBehind) {
  const std::string group = add({"group-move", "--title", "Sort"});
  addMove("Away", {"--into", group});
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Sort[Away]]", oneFile_), "Tervano[Sort[Away]]");
  const auto provider = plugin();
  ASSERT_NE(provider, nullptr);
  std::vector<KFileItemListProperties> selections;
  for (const int size : {1, 0, 10, 100, 1'000, 10'000}) {
    KFileItemList files;
    for (int i = 0; i < size; ++i) {
      files.append(listedItem("file:///folder/item.txt", "/folder/item.txt"));
    }
    selections.emplace_back(files);
  }
  // An empty selection meets no filter, and this group has none.
  const char* const kMenuOfNothing = "Tervano[Sort[Away]]";
  const auto request = [&](int number) {
    // Most are small, as they are in life.
    const std::size_t size = number % 200 == 0 ? 5 : number % 50 == 0 ? 4 : number % 4;
    QMenu menu;
    menu.addActions(provider->actions(selections[size], &window_));
    const bool isEmpty = selections[size].items().isEmpty();
    EXPECT_EQ(titlesOf(menu.actions()), isEmpty ? kMenuOfNothing : "Tervano[Sort[Away]]");
  };
  for (int i = 0; i < 201; ++i) request(i);
  const auto widgets = QApplication::allWidgets().size();
  const auto bytes = mallinfo2().uordblks;
  for (int i = 0; i < 10'000; ++i) request(i);
  EXPECT_EQ(QApplication::allWidgets().size(), widgets);
  EXPECT_LT(mallinfo2().uordblks, bytes + 100'000);
}

TEST_F(DolphinMenuTest, ThePluginIsLoadedUnloadedAndLoadedAgain) {
  addMove("Away");
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", oneFile_), "Tervano[Away]");
  for (int i = 0; i < 100; ++i) {
    QPluginLoader loader(QStringLiteral(TERVANO_PLUGIN));
    auto* const factory = qobject_cast<KPluginFactory*>(loader.instance());
    ASSERT_NE(factory, nullptr) << loader.errorString().toStdString();
    std::unique_ptr<KAbstractFileItemActionPlugin> made(
        factory->create<KAbstractFileItemActionPlugin>());
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(titlesOf(made->actions(KFileItemListProperties(oneFile_), nullptr)), "Tervano[Away]");
    made.reset();
    loader.unload();
    // The code stays for what still calls it: messages and threads.
    EXPECT_NE(contentsOf("/proc/self/maps").find(TERVANO_PLUGIN), std::string::npos);
  }
  addMove("Farther");
  EXPECT_EQ(titlesOnceTheyAre("Tervano[Away,Farther]", oneFile_), "Tervano[Away,Farther]");
}

TEST_F(DolphinMenuTest, AListThatIsBrokenWhileItRunsDoesNoHarm) {
  addMove("Away");
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", oneFile_), "Tervano[Away]");
  const std::string good = contentsOf(home_.listFile());
  for (const std::string& junk : {std::string(), std::string("junk"), good.substr(0, 100),
                                  "bplist00" + std::string(64, '\xff')}) {
    std::ofstream(home_.listFile(), std::ios::binary) << junk;
    home_.succeed({"post", "TVDidChangeNotification"});
    EXPECT_EQ(titlesOnceTheyAre("", oneFile_), "");
    std::ofstream(home_.listFile(), std::ios::binary) << good;
    home_.succeed({"post", "TVDidChangeNotification"});
    EXPECT_EQ(titlesOnceTheyAre("Tervano[Away]", oneFile_), "Tervano[Away]");
  }
}

TEST_F(DolphinMenuTest, AChoiceAfterTheContainerWasDeletedDoesNoHarm) {
  addMove("Away");
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", oneFile_), "Tervano[Away]");
  fs::remove_all(home_.container());
  entryNamed(menu_.actions(), QStringLiteral("Away"))->trigger();
  EXPECT_TRUE(exists(home_.path() + "/one.txt"));
  EXPECT_EQ(titlesOf(menuOf(oneFile_)), "Tervano[Away]");
  addMove("Another");
  EXPECT_EQ(titlesOnceTheyAre("Tervano[Another]", oneFile_), "Tervano[Another]");
  entryNamed(menu_.actions(), QStringLiteral("Another"))->trigger();
  EXPECT_EQ(handedOver(), std::vector<std::string>{home_.path() + "/one.txt"});
}

TEST_F(DolphinMenuTest, ARequestThatRunsOutOfMemoryThrowsNothing) {
  const std::string group = add({"group-move", "--title", "Sort"});
  addMove("Away", {"--into", group});
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Sort[Away]]", oneFile_), "Tervano[Sort[Away]]");
  const auto provider = plugin();
  const KFileItemListProperties selection(oneFile_);
  int allocation = 0;
  for (bool hasFailed = true; hasFailed; ++allocation) {
    ASSERT_LT(allocation, 10'000);
    QList<QAction*> entries;
    {
      // The toolkit loses its own way when it is refused memory.
      const FailingMemory failing(allocation, ".so.5");
      entries = provider->actions(selection, nullptr);
      hasFailed = FailingMemory::hasFailed();
    }
    EXPECT_EQ(titlesOf(entries), hasFailed ? "" : "Tervano[Sort[Away]]") << allocation;
  }
  EXPECT_GT(allocation, 5);
}

TEST_F(DolphinMenuTest, NothingSelectedHasNoMenu) {
  addMove("Away", {"--types", "public.image"});
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", {itemOf(home_.file("one.png"))}), "Tervano[Away]");
  EXPECT_EQ(titlesOf(plugin()->actions(KFileItemListProperties(), nullptr)), "");
}

TEST_F(DolphinMenuTest, ARequestStartsNothingWaitsForNothingAndLooksAtNoFile) {
  addMove("Away");
  addMove("Pictures", {"--types", "public.image"});
  // The first menu of a process makes its toolkit read how menus look.
  expectHarmlessSystemCalls(TERVANO_MENU_REQUESTS, home_.path(), 1);
}

TEST_F(DolphinMenuTest, ThePluginExportsWhatQtLooksForAndNothingElse) {
  ProgramStart start;
  start.path = "/usr/bin/nm";
  start.arguments = {"--dynamic", "--defined-only", "--format=posix", TERVANO_PLUGIN};
  std::istringstream lines(runProgram(start).output);
  std::set<std::string> names;
  for (std::string line; std::getline(lines, line);) names.insert(line.substr(0, line.find(' ')));
  EXPECT_EQ(names, (std::set<std::string>{"qt_plugin_instance", "qt_plugin_query_metadata"}));
}

TEST_F(DolphinMenuTest, EntriesGoWithThePluginAndWithTheWindow) {
  addMove("Away");
  ASSERT_EQ(titlesOnceTheyAre("Tervano[Away]", oneFile_), "Tervano[Away]");
  auto provider = plugin();
  auto window = std::make_unique<QWidget>();
  QMenu menu;
  menu.addActions(provider->actions(KFileItemListProperties(oneFile_), window.get()));
  ASSERT_EQ(titlesOf(menu.actions()), "Tervano[Away]");
  window.reset();
  EXPECT_EQ(titlesOf(menu.actions()), "");
  menu.addActions(provider->actions(KFileItemListProperties(oneFile_), nullptr));
  ASSERT_EQ(titlesOf(menu.actions()), "Tervano[Away]");
  provider.reset();
  EXPECT_EQ(titlesOf(menu.actions()), "");
}

}  // namespace tervano::test
