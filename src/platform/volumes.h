#pragma once

#include <vector>

#include "archive/url.h"

namespace tervano {

// The mounted volumes. Any thread; reads the mount table only, never the volumes themselves.
class Volumes {
 public:
  virtual ~Volumes() = default;
  // "/" and every mount that a user sees; `skipHidden` leaves out system mounts and those below a
  // hidden folder.
  virtual std::vector<Url> mountedVolumeURLs(bool skipHidden) const = 0;
};

class ForwardingVolumes : public Volumes {
 public:
  explicit ForwardingVolumes(Volumes& real) : real_(real) {}
  std::vector<Url> mountedVolumeURLs(bool skipHidden) const override {
    return real_.mountedVolumeURLs(skipHidden);
  }

 private:
  Volumes& real_;
};

}  // namespace tervano
