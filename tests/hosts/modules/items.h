#pragma once

#include <glib-object.h>

#include <string>

namespace tervano::test {

// The answer to a menu request, as a file manager uses it: owned, read by the items' properties,
// freed with its last reference.
class Items {
 public:
  explicit Items(GList* items) : items_(items) {}
  Items(const Items&) = delete;
  Items& operator=(const Items&) = delete;
  ~Items() { g_list_free_full(items_, g_object_unref); }

  bool isNull() const { return items_ == nullptr; }
  GList* list() const { return items_; }
  // Labels without their invisible ends, separated by commas; "-" before a disabled one, "@" behind
  // one whose icon is a file that is there and "!" behind one whose icon is not, and the members of
  // a submenu in brackets.
  std::string text() const;
  // Chooses the first entry of that label, wherever it is; false without one.
  bool choose(const std::string& label) const;
  // Tells how many objects, submenus and their items included, are alive once this is gone; the
  // count must outlive them.
  void countIn(int& living) const;

 private:
  GList* items_;
};

}  // namespace tervano::test
