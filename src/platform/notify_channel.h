#pragma once

#include <functional>
#include <string>

namespace tervano {

// System-wide notifications between the processes of one user: names only, no payload, no daemon,
// no session bus.
//
// A post reaches every observation of that name in every running process, the posting one included,
// once; posts not yet delivered may merge, the last one is never lost. Callbacks run on the main
// loop of the observing process. A post never waits for a listener. Any thread may post, add and
// remove.
class NotifyChannel {
 public:
  using Callback = std::function<void(const std::string& name)>;

  virtual ~NotifyChannel() = default;
  virtual void post(const std::string& name) = 0;
  // One observation per observer and name: a second one replaces the first. `observer` is an
  // identity only.
  virtual void addObserver(const void* observer, const std::string& name, Callback callback) = 0;
  // Observes every name, for tools that show what goes on; ended by removeEveryObserver alone. A
  // name of more than about 60 bytes may be told in an abbreviated form.
  virtual void addObserverOfEveryName(const void* observer, Callback callback) = 0;
  virtual void removeObserver(const void* observer, const std::string& name) = 0;
  virtual void removeEveryObserver(const void* observer) = 0;
};

class ForwardingNotifyChannel : public NotifyChannel {
 public:
  explicit ForwardingNotifyChannel(NotifyChannel& real) : real_(real) {}
  void post(const std::string& name) override { real_.post(name); }
  void addObserver(const void* observer, const std::string& name, Callback callback) override {
    real_.addObserver(observer, name, std::move(callback));
  }
  void addObserverOfEveryName(const void* observer, Callback callback) override {
    real_.addObserverOfEveryName(observer, std::move(callback));
  }
  void removeObserver(const void* observer, const std::string& name) override {
    real_.removeObserver(observer, name);
  }
  void removeEveryObserver(const void* observer) override { real_.removeEveryObserver(observer); }

 private:
  NotifyChannel& real_;
};

}  // namespace tervano
