#include "hosts/dolphin/dolphin_menu.h"

#include <KFileItem>
#include <KFileItemListProperties>
#include <QAction>
#include <QFile>
#include <QMenu>
#include <QUrl>
#include <algorithm>

#include "hosts/common/host_extension.h"
#include "hosts/common/menu_text.h"
#include "hosts/dolphin/menu_icons.h"
#include "platform/linux/guard.h"

namespace tervano {

namespace {

// The path on this machine; empty without one. What lies in the trash is a file as well, but one
// that belongs to the trash alone.
std::string localPathOf(const KFileItem& file) {
  const QUrl url = file.url();
  if (url.scheme() == QLatin1String("trash") || (url.isLocalFile() && !url.host().isEmpty())) {
    return {};
  }
  const std::string path = QFile::encodeName(file.localPath()).toStdString();
  return path.starts_with('/') ? path : std::string();
}

// What has no path on this machine keeps its own URL, which no menu acts on.
SelectedItem selectedItemOf(const KFileItem& file) {
  const bool isDirectory = file.isDir();
  const std::string path = localPathOf(file);
  if (!path.empty()) return {Url::fileURLWithPath(path, isDirectory), isDirectory};
  return {Url(file.url().toEncoded().toStdString()), isDirectory};
}

SelectedItems selectedItemsOf(const KFileItemList& files) {
  SelectedItems items;
  items.reserve(static_cast<std::size_t>(files.size()));
  for (const KFileItem& file : files) items.push_back(selectedItemOf(file));
  return items;
}

void fill(QMenu& widget, const Menu& menu, HostExtension& extension) {
  for (const MenuItem& item : menu.items) {
    const QString label = QString::fromStdString(menuLabel(item.title, '&'));
    QAction* entry = nullptr;
    if (item.submenu == nullptr) {
      entry = widget.addAction(label);
      QObject::connect(entry, &QAction::triggered, entry, [&extension, item] {
        guarded("a choice", [&] { extension.choose(item); });
      });
    } else if (!item.submenu->items.empty()) {
      QMenu& submenu = *widget.addMenu(label);
      fill(submenu, *item.submenu, extension);
      entry = submenu.menuAction();
    } else {
      continue;
    }
    entry->setEnabled(item.enabled);
    MenuIcons::shared(extension).show(item.image, *entry);
  }
}

// Whether no menu but the one that owns them shows the entries any more.
bool isUnused(const QMenu& answer) {
  const auto entries = answer.actions();
  return std::all_of(entries.begin(), entries.end(),
                     [](const QAction* entry) { return entry->associatedWidgets().size() <= 1; });
}

}  // namespace

DolphinMenu::DolphinMenu(QObject* parent, const QVariantList& /*arguments*/)
    : KAbstractFileItemActionPlugin(parent) {
  // Before the first menu is asked for.
  HostExtension::shared(HostExtension::Icons::files);
}

DolphinMenu::~DolphinMenu() {
  for (const auto& answer : answers_) delete answer.data();
}

QList<QAction*> DolphinMenu::actions(const KFileItemListProperties& selection, QWidget* window) {
  QList<QAction*> entries;
  guarded("a context menu", [&] {
    auto* const extension = HostExtension::shared(HostExtension::Icons::files);
    if (extension == nullptr) return;
    removeUnused();
    const Menu menu = extension->menuForItems(selectedItemsOf(selection.items()));
    QMenu& answer = *answers_.emplace_back(new QMenu(window));
    fill(answer, menu, *extension);
    entries = answer.actions();
  });
  return entries;
}

void DolphinMenu::removeUnused() {
  std::erase_if(answers_, [](const QPointer<QMenu>& answer) {
    if (answer == nullptr) return true;
    if (!isUnused(*answer)) return false;
    delete answer.data();
    return true;
  });
}

}  // namespace tervano
