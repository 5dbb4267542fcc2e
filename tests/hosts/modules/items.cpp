#include "tests/hosts/modules/items.h"

#include "platform/linux/glib_handles.h"
#include "tests/support/run_program.h"

#include TERVANO_MANAGER

namespace tervano::test {

namespace {

using ObjectPtr = GObjectPtr<GObject>;

std::string textOf(gpointer item, const char* property) {
  char* text = nullptr;
  g_object_get(item, property, &text, nullptr);
  const GCharPtr owned(text);
  return text == nullptr ? "" : text;
}

// What a label reads like.
std::string labelOf(gpointer item) {
  std::string label = textOf(item, "label");
  const auto end = label.find("\u2060");
  if (end != std::string::npos) label.resize(end);
  return label;
}

ObjectPtr submenuOf(gpointer item) {
  GObject* submenu = nullptr;
  g_object_get(item, "menu", &submenu, nullptr);
  return ObjectPtr(submenu);
}

// Calls `visit` for each item of a submenu; nothing for null.
template <typename Visit>
void forEachItemOf(const ObjectPtr& submenu, const Visit& visit) {
  if (submenu == nullptr) return;
  const Items items(Manager::itemsOfSubmenu(submenu.get()));
  for (GList* one = items.list(); one != nullptr; one = one->next) visit(one->data);
}

std::string textOf(gpointer item) {
  gboolean isEnabled = FALSE;
  g_object_get(item, "sensitive", &isEnabled, nullptr);
  std::string text = (isEnabled != FALSE ? "" : "-") + labelOf(item);
  if (const std::string icon = textOf(item, "icon"); !icon.empty()) {
    text += icon.starts_with('/') && exists(icon) ? '@' : '!';
  }
  const auto submenu = submenuOf(item);
  if (submenu == nullptr) return text;
  std::string members;
  forEachItemOf(submenu, [&](gpointer member) {
    if (!members.empty()) members += ',';
    members += textOf(member);
  });
  return text + '[' + members + ']';
}

bool chooseIn(gpointer item, const std::string& label) {
  if (labelOf(item) == label) {
    g_signal_emit_by_name(item, "activate");
    return true;
  }
  bool isFound = false;
  forEachItemOf(submenuOf(item),
                [&](gpointer member) { isFound = isFound || chooseIn(member, label); });
  return isFound;
}

void count(gpointer object, int& living) {
  ++living;
  g_object_weak_ref(
      static_cast<GObject*>(object), [](gpointer data, GObject*) { --*static_cast<int*>(data); },
      &living);
}

void countWithMembers(gpointer item, int& living) {
  count(item, living);
  const auto submenu = submenuOf(item);
  if (submenu != nullptr) count(submenu.get(), living);
  forEachItemOf(submenu, [&](gpointer member) { countWithMembers(member, living); });
}

}  // namespace

std::string Items::text() const {
  std::string text;
  for (GList* one = items_; one != nullptr; one = one->next) {
    if (!text.empty()) text += ',';
    text += textOf(one->data);
  }
  return text;
}

bool Items::choose(const std::string& label) const {
  for (GList* one = items_; one != nullptr; one = one->next) {
    if (chooseIn(one->data, label)) return true;
  }
  return false;
}

void Items::countIn(int& living) const {
  for (GList* one = items_; one != nullptr; one = one->next) countWithMembers(one->data, living);
}

}  // namespace tervano::test
