#pragma once

#include <KAbstractFileItemActionPlugin>
#include <QPointer>
#include <QVariant>
#include <vector>

class QMenu;

namespace tervano {

// Gives the entries of our menu to whoever shows a menu of files. Main thread.
class DolphinMenu : public KAbstractFileItemActionPlugin {
 public:
  DolphinMenu(QObject* parent, const QVariantList& arguments);
  DolphinMenu(const DolphinMenu&) = delete;
  DolphinMenu& operator=(const DolphinMenu&) = delete;
  ~DolphinMenu() override;

  // The background of a folder is asked for as if the folder were selected. The entries are ours:
  // they live as long as a menu holds them, and at least until the next request. None after a
  // failure, which is logged.
  QList<QAction*> actions(const KFileItemListProperties& selection, QWidget* window) override;

 private:
  void removeUnused();

  // What was answered, each the owner of its entries, itself never shown. A window takes what it is
  // the parent of with it.
  std::vector<QPointer<QMenu>> answers_;
};

}  // namespace tervano
