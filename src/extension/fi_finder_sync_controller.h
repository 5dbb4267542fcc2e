#pragma once

#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "archive/url.h"

namespace tervano {

// An item of a file manager and what the file manager knows of it without looking at the disk.
struct SelectedItem {
  Url url;
  // Nil: not known.
  std::optional<bool> isDirectory;
};

// Shared, so that a selection of any size is handed around and kept without copying it.
using SelectedItems = std::vector<SelectedItem>;
using SelectedItemsPtr = std::shared_ptr<const SelectedItems>;

struct UrlLess {
  bool operator()(const Url& left, const Url& right) const {
    return left.absoluteString() < right.absoluteString();
  }
};
using UrlSet = std::set<Url, UrlLess>;

// What a file manager offers to the extension. Main thread.
class FIFinderSyncController {
 public:
  virtual ~FIFinderSyncController() = default;
  // The selection of the front window, in its order; null or empty when nothing is selected. Items
  // that are no local files may be among them.
  virtual SelectedItemsPtr selectedItemURLs() const = 0;
  // The folder whose window or sidebar entry was clicked; nil when there is none.
  virtual std::optional<SelectedItem> targetedURL() const = 0;
  // The folders below which the file manager is to ask for menus.
  virtual void setDirectoryURLs(const UrlSet& urls) = 0;
};

}  // namespace tervano
