#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "model/tv_action.h"
#include "platform/image.h"
#include "platform/run_loop.h"

namespace tervano {

// Icons as files, for file managers that take nothing else: an application image is the file of its
// drawing, any other icon a picture in a private folder ("icons" in the user's runtime folder),
// named by its content, so that all file managers share it. Pictures that no list has needed for a
// day are removed. Main thread.
class IconFiles : public std::enable_shared_from_this<IconFiles> {
 public:
  // `changed` is called on the main thread when more icons have got their files.
  explicit IconFiles(std::function<void()> changed) : changed_(std::move(changed)) {}

  // Draws the icons of a list and its groups, on a thread of its own. Icons of former lists are
  // forgotten.
  void prepare(const std::optional<ActionList>& actions);
  // The absolute path of the icon's file; empty for none, and while it is not there yet. Looks at
  // the disk once for each application image.
  std::string pathOf(const ImagePtr& image) const;

 private:
  using Paths = std::map<ImagePtr, std::string>;

  std::function<void()> changed_;
  std::shared_ptr<SerialQueue> queue_;
  Paths paths_;
  // Of application images, by their names.
  mutable std::map<std::string, std::string> drawings_;
  // The list whose icons are being drawn; results for an older one are dropped.
  std::uint64_t generation_ = 0;
};

}  // namespace tervano
