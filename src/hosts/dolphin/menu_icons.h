#pragma once

#include <QAction>
#include <QHash>
#include <QIcon>
#include <QPointer>
#include <utility>
#include <vector>

#include "hosts/common/host_extension.h"

namespace tervano {

// The icons of entries, each file read once. Main thread.
class MenuIcons {
 public:
  static MenuIcons& shared(HostExtension& extension);

  // Gives the entry its icon, as soon as there is one.
  void show(const ImagePtr& image, QAction& entry);

 private:
  explicit MenuIcons(HostExtension& extension);
  // Whether the icon has got its file.
  bool set(const ImagePtr& image, QAction& entry);
  void iconsDidChange();

  const HostExtension& extension_;
  QHash<QString, QIcon> icons_;
  std::vector<std::pair<ImagePtr, QPointer<QAction>>> waiting_;
};

}  // namespace tervano
