#pragma once

#include <cstddef>
#include <memory>

#include "platform/notify_channel.h"

namespace tervano {

// The system-wide channel on inotify(7): a folder "tervano/notify" in the user's runtime folder
// holds one empty file for each name, a post sets that file's time, and listeners watch the folder.
//
// A post costs the same with any number of listeners, never waits, and leaves nothing behind when a
// listener dies. The file's time, in nanoseconds, is the name's generation: when the kernel's event
// queue overflows, or the folder had to be made anew, the names whose generation changed are
// delivered, so the last post is never lost and no other name is reported. Names are any bytes of
// any length (escapedFileName).
//
// A listener watches the first runtime folder that it can use; a sender posts there and to the
// others that exist. The inotify instance is made by the first observation; while none can be had
// (the user's limit), one line is logged and it is tried again every second.
//
// A callback may add and remove observations, its own too; an observation that is removed before
// its turn is not called. To be destroyed on the main thread.
class InotifyChannel : public NotifyChannel {
 public:
  InotifyChannel();
  InotifyChannel(const InotifyChannel&) = delete;
  InotifyChannel& operator=(const InotifyChannel&) = delete;
  ~InotifyChannel() override;

  void post(const std::string& name) override;
  void addObserver(const void* observer, const std::string& name, Callback callback) override;
  void addObserverOfEveryName(const void* observer, Callback callback) override;
  void removeObserver(const void* observer, const std::string& name) override;
  void removeEveryObserver(const void* observer) override;

  std::size_t observationCount() const;

 private:
  struct Listener;
  std::shared_ptr<Listener> listener_;
};

}  // namespace tervano
