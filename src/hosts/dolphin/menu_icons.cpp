#include "hosts/dolphin/menu_icons.h"

namespace tervano {

MenuIcons& MenuIcons::shared(HostExtension& extension) {
  static auto& icons = *new MenuIcons(extension);
  return icons;
}

MenuIcons::MenuIcons(HostExtension& extension) : extension_(extension) {
  extension.observeChanges([this] { iconsDidChange(); });
}

void MenuIcons::show(const ImagePtr& image, QAction& entry) {
  if (image == nullptr || set(image, entry)) return;
  std::erase_if(waiting_, [](const auto& waiting) { return waiting.second == nullptr; });
  waiting_.emplace_back(image, &entry);
}

bool MenuIcons::set(const ImagePtr& image, QAction& entry) {
  const QString path = QString::fromStdString(extension_.iconPathOf(image));
  if (path.isEmpty()) return false;
  auto icon = icons_.find(path);
  if (icon == icons_.end()) icon = icons_.insert(path, QIcon(path));
  entry.setIcon(*icon);
  // Whatever the desktop's style says about menus in general.
  entry.setIconVisibleInMenu(true);
  return true;
}

void MenuIcons::iconsDidChange() {
  icons_.clear();
  std::erase_if(waiting_, [this](const auto& waiting) {
    return waiting.second == nullptr || set(waiting.first, *waiting.second);
  });
}

}  // namespace tervano
