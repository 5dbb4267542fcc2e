#include "hosts/gtk3/view_selection.h"

#include <atk/atk.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace tervano {

namespace {

struct FreeList {
  void operator()(GList* list) const { g_list_free(list); }
};
struct FreePaths {
  void operator()(GList* paths) const {
    g_list_free_full(paths,
                     [](gpointer path) { gtk_tree_path_free(static_cast<GtkTreePath*>(path)); });
  }
};

// Calls `visit` for a widget and everything inside it, until it answers false.
bool walkWidgets(GtkWidget* widget, const std::function<bool(GtkWidget*)>& visit) {
  if (!visit(widget)) return false;
  if (!GTK_IS_CONTAINER(widget)) return true;
  const std::unique_ptr<GList, FreeList> children(
      gtk_container_get_children(GTK_CONTAINER(widget)));
  for (const GList* child = children.get(); child != nullptr; child = child->next) {
    if (!walkWidgets(static_cast<GtkWidget*>(child->data), visit)) return false;
  }
  return true;
}

std::vector<GtkWidget*> viewsIn(GtkWidget* container, GType viewType) {
  std::vector<GtkWidget*> views;
  walkWidgets(container, [&](GtkWidget* widget) {
    if (g_type_is_a(G_OBJECT_TYPE(widget), viewType) != FALSE) views.push_back(widget);
    return true;
  });
  return views;
}

// Null without one or with several.
GtkWidget* viewBeside(GtkWidget* widget, GType viewType) {
  for (GtkWidget* around = gtk_widget_get_parent(widget); around != nullptr;
       around = gtk_widget_get_parent(around)) {
    const auto views = viewsIn(around, viewType);
    if (!views.empty()) return views.size() == 1 ? views.front() : nullptr;
  }
  return nullptr;
}

std::optional<ViewSelection> selectedRows(GtkTreeView* list, GType fileType) {
  GtkTreeModel* const model = gtk_tree_view_get_model(list);
  if (model == nullptr || gtk_tree_model_get_n_columns(model) < 1 ||
      g_type_is_a(gtk_tree_model_get_column_type(model, 0), fileType) == FALSE) {
    return std::nullopt;
  }
  const std::unique_ptr<GList, FreePaths> paths(
      gtk_tree_selection_get_selected_rows(gtk_tree_view_get_selection(list), nullptr));
  ViewSelection selection;
  for (const GList* path = paths.get(); path != nullptr; path = path->next) {
    GtkTreeIter row;
    GObject* file = nullptr;
    if (gtk_tree_model_get_iter(model, &row, static_cast<GtkTreePath*>(path->data)) == FALSE) {
      continue;
    }
    gtk_tree_model_get(model, &row, 0, &file, -1);
    // A row that says that a folder is empty has none.
    if (file != nullptr) selection.files.emplace_back(file);
  }
  return selection;
}

std::string nameOf(AtkObject* accessible) {
  const char* const name = accessible == nullptr ? nullptr : atk_object_get_name(accessible);
  return name == nullptr ? "" : name;
}

ViewSelection selectedIcons(AtkObject* icons) {
  ViewSelection selection;
  const int selected = atk_selection_get_selection_count(ATK_SELECTION(icons));
  if (selected <= 0) return selection;
  std::map<std::string, int> shown;
  const int count = atk_object_get_n_accessible_children(icons);
  for (int i = 0; i < count; ++i) {
    const GObjectPtr<AtkObject> icon(atk_object_ref_accessible_child(icons, i));
    ++shown[nameOf(icon.get())];
  }
  for (int i = 0; i < selected; ++i) {
    const GObjectPtr<AtkObject> icon(atk_selection_ref_selection(ATK_SELECTION(icons), i));
    std::string name = nameOf(icon.get());
    if (shown[name] != 1) name.clear();
    selection.names.push_back(std::move(name));
  }
  return selection;
}

}  // namespace

std::optional<ViewSelection> selectionBeside(GtkWidget* widget, const ViewTypes& types) {
  const GType viewType = g_type_from_name(types.view);
  GtkWidget* const view = viewType == 0 ? nullptr : viewBeside(widget, viewType);
  if (view == nullptr) return std::nullopt;
  std::optional<ViewSelection> selection;
  walkWidgets(view, [&](GtkWidget* part) {
    if (GTK_IS_TREE_VIEW(part)) {
      selection = selectedRows(GTK_TREE_VIEW(part), types.file);
      return false;
    }
    AtkObject* const accessible = gtk_widget_get_accessible(part);
    if (!ATK_IS_SELECTION(accessible)) return true;
    selection = selectedIcons(accessible);
    return false;
  });
  return selection;
}

}  // namespace tervano
