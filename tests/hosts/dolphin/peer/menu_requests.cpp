// Loads the plugin and makes two menu requests for that many files: menu_requests COUNT

#include <sys/stat.h>

#include <KAbstractFileItemActionPlugin>
#include <KFileItem>
#include <KFileItemListProperties>
#include <KIO/UDSEntry>
#include <KPluginFactory>
#include <QAction>
#include <QApplication>
#include <QUrl>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "tests/hosts/system_calls/system_calls.h"

namespace {

// As the file manager has listed it.
KFileItem listedFile(int number) {
  const QString name = QString::number(number) + QLatin1String(number % 2 == 0 ? ".txt" : "");
  KIO::UDSEntry entry;
  entry.fastInsert(KIO::UDSEntry::UDS_NAME, name);
  entry.fastInsert(KIO::UDSEntry::UDS_FILE_TYPE, S_IFREG);
  entry.fastInsert(KIO::UDSEntry::UDS_MIME_TYPE, QStringLiteral("text/plain"));
  return KFileItem(entry, QUrl::fromLocalFile(QLatin1String("/folder/") + name));
}

}  // namespace

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  const int count = argc == 2 ? std::atoi(argv[1]) : 0;
  KFileItemList files;
  for (int i = 0; i < count; ++i) files.append(listedFile(i));
  const KFileItemListProperties selection(files);
  tervano::test::markStart();
  const KPluginMetaData metaData(QStringLiteral("kf5/kfileitemaction/tervano"));
  const std::unique_ptr<KAbstractFileItemActionPlugin> plugin(
      KPluginFactory::instantiatePlugin<KAbstractFileItemActionPlugin>(metaData).plugin);
  tervano::test::markStart();
  for (int request = 0; request < 2; ++request) {
    tervano::test::markMenuRequest();
    const QList<QAction*> entries = plugin->actions(selection, nullptr);
    tervano::test::markMenuRequest();
    for (const QAction* entry : entries) std::cout << entry->text().toStdString() << "\n";
  }
}
