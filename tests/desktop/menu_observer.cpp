// A plugin that Qt loads into a file manager under test, since its menus are not on the
// accessibility bus: whenever a menu is shown or hidden, the open ones are written as JSON to the
// file that TERVANO_MENUS names, which is replaced whole.
//
//   [{"title": "", "entries": [ENTRY...]}...]   the open menus, each below the one that opened it
//   ENTRY: {"title", "isEnabled", "hasIcon", "place": [x, y] on the screen or null,
//           "entries": null or what its submenu holds}

#include <QAction>
#include <QApplication>
#include <QEvent>
#include <QGenericPlugin>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMenu>
#include <QSaveFile>
#include <QTimer>
#include <QtPlugin>

namespace {

// What the user reads: without the marks of keys.
QString shownText(const QAction& action) {
  QString shown;
  const QString text = action.text();
  for (int i = 0; i < text.size() && text[i] != '\t'; ++i) {
    if (text[i] == '&' && ++i == text.size()) break;
    shown += text[i];
  }
  return shown;
}

QJsonArray entriesOf(const QMenu& menu) {
  QJsonArray entries;
  for (const QAction* action : menu.actions()) {
    if (action->isSeparator() || !action->isVisible()) continue;
    QJsonValue place;
    if (menu.isVisible()) {
      const QPoint center =
          menu.mapToGlobal(menu.actionGeometry(const_cast<QAction*>(action)).center());
      place = QJsonArray{center.x(), center.y()};
    }
    entries.append(QJsonObject{
        {"title", shownText(*action)},
        {"isEnabled", action->isEnabled()},
        {"hasIcon", !action->icon().pixmap(16).isNull() && action->isIconVisibleInMenu()},
        {"place", place},
        {"entries",
         action->menu() == nullptr ? QJsonValue() : QJsonValue(entriesOf(*action->menu()))}});
  }
  return entries;
}

void writeOpenMenus() {
  QJsonArray menus;
  for (const QWidget* widget : QApplication::topLevelWidgets()) {
    const auto* menu = qobject_cast<const QMenu*>(widget);
    if (menu == nullptr || !menu->isVisible()) continue;
    // Submenus are written with the menu that opened them.
    const auto* opener = menu->menuAction();
    bool isSubmenu = false;
    for (const QWidget* shown : opener->associatedWidgets()) {
      isSubmenu = isSubmenu || (shown->isVisible() && qobject_cast<const QMenu*>(shown) != nullptr);
    }
    if (!isSubmenu) menus.append(QJsonObject{{"title", ""}, {"entries", entriesOf(*menu)}});
  }
  QSaveFile file(QString::fromLocal8Bit(qgetenv("TERVANO_MENUS")));
  if (!file.open(QIODevice::WriteOnly)) return;
  file.write(QJsonDocument(menus).toJson());
  file.commit();
}

}  // namespace

class MenuObserver : public QObject {
 public:
  MenuObserver() { QCoreApplication::instance()->installEventFilter(this); }

  bool eventFilter(QObject* object, QEvent* event) override {
    const auto type = event->type();
    if ((type == QEvent::Show || type == QEvent::Hide || type == QEvent::Resize) &&
        qobject_cast<QMenu*>(object) != nullptr) {
      // Once it has happened.
      QTimer::singleShot(0, this, writeOpenMenus);
    }
    return false;
  }
};

class MenuObserverPlugin : public QGenericPlugin {
  Q_OBJECT
  Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "menu_observer.json")

 public:
  QObject* create(const QString& /*name*/, const QString& /*specification*/) override {
    return new MenuObserver;
  }
};

#include "menu_observer.moc"
