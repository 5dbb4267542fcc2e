#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "hosts/common/host_extension.h"
#include "hosts/common/menu_text.h"
#include "platform/linux/glib_handles.h"
#include "platform/linux/guard.h"

namespace tervano {

// From a file manager's types to ours and back, for the ones that share the shape of their C
// interface. `Host` is a trait that names that file manager's types and calls:
//
//   struct Host {
//     using FileInfo, Item, Submenu;                         // GObject types
//     static GFile* location(FileInfo*);                     // a new reference, or null
//     static char* targetURI(FileInfo*);                     // what it stands for, or null
//     static bool isDirectory(FileInfo*);
//     static Item* newItem(const char* name, const char* label, const char* iconPath);
//     static void disable(Item*);
//     static Submenu* newSubmenu();                          // a new reference
//     static void append(Submenu*, Item*);                   // with a reference of its own
//     static void setSubmenu(Item*, Submenu*);
//     static constexpr bool kNeedsDistinctLabels;            // of submenus, ever
//     static constexpr HostExtension::Icons kIcons;
//   };

// The path that a URL of this machine stands for; null for any other URL. Reads the text only.
inline GCharPtr localPathOfURI(const char* uri) {
  if (uri == nullptr) return nullptr;
  char* host = nullptr;
  GCharPtr path(g_filename_from_uri(uri, &host, nullptr));
  const GCharPtr owned(host);
  const bool isThisMachine =
      host == nullptr || *host == '\0' || g_ascii_strcasecmp(host, "localhost") == 0;
  return isThisMachine ? std::move(path) : nullptr;
}

// The path on this machine; null without one. A share that is mounted has one, which the file
// manager that shows it knows without asking. What lies in the trash belongs to the trash alone,
// even where its place is a folder as well. An entry of a list of files stands for one elsewhere,
// whose file system may have to be asked: only a file of this machine is used.
template <typename Host>
GCharPtr localPathOf(typename Host::FileInfo* file, GFile* location) {
  if (g_file_has_uri_scheme(location, "trash") != FALSE) return nullptr;
  if (g_file_has_uri_scheme(location, "recent") == FALSE &&
      g_file_has_uri_scheme(location, "favorites") == FALSE) {
    return GCharPtr(g_file_get_path(location));
  }
  return localPathOfURI(GCharPtr(Host::targetURI(file)).get());
}

// The item of a file; what has no path on this machine keeps its own URL, which no menu acts on.
template <typename Host>
SelectedItem selectedItemOf(typename Host::FileInfo* file) {
  const GObjectPtr<GFile> location(Host::location(file));
  if (location == nullptr) return {Url("about:blank"), std::nullopt};
  const GCharPtr path = localPathOf<Host>(file, location.get());
  const bool isDirectory = Host::isDirectory(file);
  if (path != nullptr) return {Url::fileURLWithPath(path.get(), isDirectory), isDirectory};
  const GCharPtr uri(g_file_get_uri(location.get()));
  return {Url(uri == nullptr ? "about:blank" : uri.get()), isDirectory};
}

template <typename Host>
SelectedItems selectedItemsOf(GList* files) {
  SelectedItems items;
  for (; files != nullptr; files = files->next) {
    items.push_back(selectedItemOf<Host>(static_cast<typename Host::FileInfo*>(files->data)));
  }
  return items;
}

// Whether the file manager's library never lets go of a submenu's members, as some versions do;
// asked of the library itself.
template <typename Host>
bool keepsMembersForEver() {
  static const bool keeps = [] {
    gpointer member = Host::newItem("Tervano::member", "", nullptr);
    auto* const item = static_cast<typename Host::Item*>(member);
    g_object_add_weak_pointer(G_OBJECT(item), &member);
    auto* const submenu = Host::newSubmenu();
    Host::append(submenu, item);
    g_object_unref(item);
    g_object_unref(submenu);
    if (member == nullptr) return false;
    g_object_remove_weak_pointer(G_OBJECT(item), &member);
    g_object_unref(item);
    return true;
  }();
  return keeps;
}

// Builds one menu's items. File managers know an item by its name, and some keep the items of the
// selection and of the folder in one table: `kind` is the part of the name that tells them apart.
template <typename Host>
class HostMenuBuilder {
 public:
  using Item = typename Host::Item;

  HostMenuBuilder(const HostExtension& extension, std::string kind)
      : extension_(extension), kind_(std::move(kind)) {}

  // A list of new items, owned by the caller.
  GList* itemsOf(const Menu& menu) {
    std::unique_ptr<GList, FreeItems> items;
    for (const auto& item : menu.items) {
      if (isEmpty(item)) continue;
      ItemPtr made = itemOf(item);
      items.reset(g_list_prepend(items.release(), made.release()));
    }
    return g_list_reverse(items.release());
  }

 private:
  using ItemPtr = GObjectPtr<Item>;
  struct FreeItems {
    void operator()(GList* items) const { g_list_free_full(items, g_object_unref); }
  };

  // A submenu in which nothing fits, which file managers show in different odd ways.
  static bool isEmpty(const MenuItem& item) {
    return item.submenu != nullptr && item.submenu->items.empty();
  }

  ItemPtr itemOf(const MenuItem& item) {
    std::string label = menuLabel(item.title);
    if (Host::kNeedsDistinctLabels && item.submenu != nullptr) label = distinctLabel(label);
    const std::string name = "Tervano::" + kind_ + "::" + std::to_string(++count_) +
                             (item.action ? "::" + *item.action : std::string());
    const std::string icon = extension_.iconPathOf(item.image);
    ItemPtr made(Host::newItem(name.c_str(), label.c_str(), icon.empty() ? nullptr : icon.c_str()));
    if (!item.enabled) Host::disable(made.get());
    if (item.submenu != nullptr) {
      const GObjectPtr<typename Host::Submenu> submenu(Host::newSubmenu());
      appendMembers(*item.submenu, submenu.get());
      Host::setSubmenu(made.get(), submenu.get());
    } else if (item.action) {
      g_signal_connect_data(made.get(), "activate", G_CALLBACK(activated),
                            new Choice{&extension_, item}, freeChoice,
                            static_cast<GConnectFlags>(0));
    }
    return made;
  }

  void appendMembers(const Menu& menu, typename Host::Submenu* submenu) {
    // References that the library forgets go with the submenu.
    GPtrArray* forgotten = nullptr;
    if (keepsMembersForEver<Host>()) {
      forgotten = g_ptr_array_new_with_free_func(g_object_unref);
      g_object_set_data_full(G_OBJECT(submenu), "tervano-members", forgotten, [](gpointer members) {
        g_ptr_array_unref(static_cast<GPtrArray*>(members));
      });
    }
    for (const auto& member : menu.items) {
      if (isEmpty(member)) continue;
      const ItemPtr child = itemOf(member);
      Host::append(submenu, child.get());
      if (forgotten != nullptr) g_ptr_array_add(forgotten, child.get());
    }
  }

  // What an item does, with the selection that it was built for.
  struct Choice {
    const HostExtension* extension;
    MenuItem item;
  };
  static void activated(GObject* /*item*/, gpointer data) {
    guarded("a choice", [data] {
      const auto* choice = static_cast<const Choice*>(data);
      choice->extension->choose(choice->item);
    });
  }
  static void freeChoice(gpointer data, GClosure* /*closure*/) {
    delete static_cast<Choice*>(data);
  }

  const HostExtension& extension_;
  const std::string kind_;
  int count_ = 0;
};

// The items for a selection; null for an empty one, and after a failure, which is logged.
// `converted` is told what the files were turned into.
template <typename Host>
GList* menuForFiles(GList* files,
                    const std::function<void(const SelectedItemsPtr&)>& converted = nullptr) {
  GList* items = nullptr;
  guarded("a context menu", [&] {
    const auto* extension = HostExtension::shared(Host::kIcons);
    if (extension == nullptr || files == nullptr) return;
    const auto selection = std::make_shared<const SelectedItems>(selectedItemsOf<Host>(files));
    if (converted != nullptr) converted(selection);
    items = HostMenuBuilder<Host>(*extension, "items").itemsOf(extension->menuForItems(selection));
  });
  return items;
}

// The items of a folder's background.
template <typename Host>
GList* menuForBackground(typename Host::FileInfo* folder) {
  GList* items = nullptr;
  guarded("a background menu", [&] {
    const auto* extension = HostExtension::shared(Host::kIcons);
    if (extension == nullptr || folder == nullptr) return;
    items = HostMenuBuilder<Host>(*extension, "folder")
                .itemsOf(extension->menuForFolder(selectedItemOf<Host>(folder)));
  });
  return items;
}

}  // namespace tervano
