#pragma once

#include <functional>
#include <utility>

namespace tervano {

// Owns one registration (an observer, a handler) and ends it when destroyed. Move-only; empty after
// a move or `cancel`. To be destroyed on the thread that receives the calls, after which no further
// call arrives.
class [[nodiscard]] Subscription {
 public:
  Subscription() = default;
  explicit Subscription(std::function<void()> end) : end_(std::move(end)) {}
  Subscription(Subscription&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
  Subscription& operator=(Subscription&& other) noexcept {
    if (this != &other) {
      cancel();
      end_ = std::exchange(other.end_, nullptr);
    }
    return *this;
  }
  ~Subscription() { cancel(); }

  void cancel() {
    if (auto end = std::exchange(end_, nullptr)) end();
  }

 private:
  std::function<void()> end_;
};

}  // namespace tervano
