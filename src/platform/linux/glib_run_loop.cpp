#include "platform/linux/glib_run_loop.h"

#include <glib.h>
#include <pthread.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/linux/activation.h"
#include "platform/linux/blocked_signals.h"
#include "platform/linux/guard.h"

namespace tervano {

namespace {

// What is called later, for the request in which it was made.
class Item {
 public:
  Item() = default;
  explicit Item(std::function<void()> call)
      : call_(std::move(call)), activation_(currentActivation()) {}

  void operator()() const {
    const ActivationScope scope(activation_);
    call_();
  }

 private:
  std::function<void()> call_;
  std::shared_ptr<Activation> activation_;
};

constexpr std::size_t kLongestThreadName = 15;
constexpr double kShortestInterval = 0.0001;
constexpr double kLongestInterval = 1e12;  // in microseconds still far inside 64 bits

// The items of the main queue and the source that runs them.
struct MainQueue {
  std::mutex mutex;
  std::deque<Item> items;
  GSource* source = nullptr;  // guarded by mutex until it is made, then constant
};

struct MainQueueSource {
  GSource base;
  // Atomic, since the loop's thread learns of the source through GLib alone.
  std::atomic<MainQueue*> queue;
};

gboolean dispatchMainQueue(GSource* source, GSourceFunc, gpointer) {
  MainQueue& queue = *reinterpret_cast<MainQueueSource*>(source)->queue.load();
  std::unique_lock lock(queue.mutex);
  for (std::size_t left = queue.items.size(); left > 0 && !queue.items.empty(); --left) {
    Item item = std::move(queue.items.front());
    queue.items.pop_front();
    lock.unlock();
    guarded("the main queue", [&] { item(); });
    guarded("the main queue", [&] { item = Item(); });
    lock.lock();
  }
  if (queue.items.empty()) g_source_set_ready_time(source, -1);
  return G_SOURCE_CONTINUE;
}

GSourceFuncs mainQueueFunctions = {nullptr, nullptr, dispatchMainQueue, nullptr, nullptr, nullptr};

class GlibTimer : public RunLoopTimer, public std::enable_shared_from_this<GlibTimer> {
 public:
  GlibTimer(double interval, bool repeats, Item handler,
            std::shared_ptr<std::atomic<int>> activeTimers)
      : microseconds_(static_cast<gint64>(interval * G_USEC_PER_SEC)),
        repeats_(repeats),
        handler_(std::make_shared<Item>(std::move(handler))),
        activeTimers_(std::move(activeTimers)) {
    ++*activeTimers_;
  }
  GlibTimer(const GlibTimer&) = delete;
  GlibTimer& operator=(const GlibTimer&) = delete;
  ~GlibTimer() override { disarm(); }

  void attach(GMainContext* context) {
    source_ = g_source_new(&functions(), sizeof(GSource));
    g_source_set_callback(
        source_, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; },
        new std::shared_ptr<GlibTimer>(shared_from_this()), release);
    due_ = g_get_monotonic_time() + microseconds_;
    g_source_set_ready_time(source_, due_);
    g_source_attach(source_, context);
  }

  void invalidate() override {
    const auto keep = shared_from_this();
    disarm();
  }

 private:
  static GSourceFuncs& functions() {
    static GSourceFuncs table = {nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
    return table;
  }

  static void release(gpointer holder) {
    const auto* timer = static_cast<std::shared_ptr<GlibTimer>*>(holder);
    // The context may go away while the timer is armed: then it can fire no more.
    guarded("a timer", [&] { (*timer)->contextIsGone(); });
    guarded("a timer", [&] { delete timer; });
  }

  static gboolean dispatch(GSource*, GSourceFunc, gpointer holder) {
    const std::shared_ptr<GlibTimer> timer = *static_cast<std::shared_ptr<GlibTimer>*>(holder);
    timer->fire();
    return timer->source_ == nullptr ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
  }

  void fire() {
    const std::shared_ptr<Item> handler = handler_;
    if (handler == nullptr) return;
    if (repeats_) {
      const gint64 now = g_get_monotonic_time();
      due_ += microseconds_;
      if (due_ <= now) due_ += (now - due_) / microseconds_ * microseconds_ + microseconds_;
      g_source_set_ready_time(source_, due_);
    } else {
      disarm();
    }
    guarded("a timer", [&] { (*handler)(); });
  }

  void disarm() {
    if (handler_ == nullptr) return;
    --*activeTimers_;
    // Kept to the end, since letting the handler go may let go of anything.
    const std::shared_ptr<Item> handler = std::move(handler_);
    GSource* const source = std::exchange(source_, nullptr);
    if (source != nullptr) {
      g_source_destroy(source);
      g_source_unref(source);
    }
  }

  void contextIsGone() { disarm(); }

  const gint64 microseconds_;
  const bool repeats_;
  std::shared_ptr<Item> handler_;
  const std::shared_ptr<std::atomic<int>> activeTimers_;
  GSource* source_ = nullptr;
  gint64 due_ = 0;
};

// What a serial queue's handle and its thread share.
struct QueueState {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Item> items;
  bool running = false;
  bool abandoned = false;
  std::string label;
  std::shared_ptr<std::atomic<int>> activeThreads;

  void run() {
    std::unique_lock lock(mutex);
    while (true) {
      changed.wait(lock, [this] { return abandoned || !items.empty(); });
      if (items.empty()) break;
      Item item = std::move(items.front());
      items.pop_front();
      lock.unlock();
      guarded("a serial queue", [&] { item(); });
      guarded("a serial queue", [&] { item = Item(); });
      lock.lock();
    }
    running = false;
  }
};

class ThreadQueue : public SerialQueue {
 public:
  explicit ThreadQueue(std::shared_ptr<QueueState> state) : state_(std::move(state)) {}
  ThreadQueue(const ThreadQueue&) = delete;
  ThreadQueue& operator=(const ThreadQueue&) = delete;
  ~ThreadQueue() override {
    const std::lock_guard lock(state_->mutex);
    state_->abandoned = true;
    state_->changed.notify_one();
  }

  void dispatchAsync(std::function<void()> item) override {
    const std::lock_guard lock(state_->mutex);
    state_->items.emplace_back(std::move(item));
    if (state_->running) {
      state_->changed.notify_one();
      return;
    }
    try {
      const BlockedSignals blocked;
      ++*state_->activeThreads;
      std::thread([state = state_]() mutable {
        const auto activeThreads = state->activeThreads;
        if (!state->label.empty()) pthread_setname_np(pthread_self(), state->label.c_str());
        state->run();
        state.reset();
        --*activeThreads;
      }).detach();
      state_->running = true;
    } catch (const std::system_error&) {
      --*state_->activeThreads;
      state_->items.pop_back();
      throw;
    }
  }

 private:
  const std::shared_ptr<QueueState> state_;
};

// A source that does nothing but wake its loop.
gboolean dispatchAlarm(GSource*, GSourceFunc, gpointer) {
  return G_SOURCE_REMOVE;
}

GSourceFuncs alarmFunctions = {nullptr, nullptr, dispatchAlarm, nullptr, nullptr, nullptr};

}  // namespace

struct GlibRunLoop::State {
  MainQueue mainQueue;
  std::shared_ptr<std::atomic<int>> activeTimers = std::make_shared<std::atomic<int>>(0);
  std::shared_ptr<std::atomic<int>> activeThreads = std::make_shared<std::atomic<int>>(0);
};

GlibRunLoop::GlibRunLoop() : state_(std::make_shared<State>()) {}

GlibRunLoop::~GlibRunLoop() {
  if (state_->mainQueue.source == nullptr) return;
  g_source_destroy(state_->mainQueue.source);
  g_source_unref(state_->mainQueue.source);
}

void GlibRunLoop::dispatchAsyncOnMainQueue(std::function<void()> item) {
  MainQueue& queue = state_->mainQueue;
  const std::lock_guard lock(queue.mutex);
  queue.items.emplace_back(std::move(item));
  if (queue.source == nullptr) {
    queue.source = g_source_new(&mainQueueFunctions, sizeof(MainQueueSource));
    reinterpret_cast<MainQueueSource*>(queue.source)->queue.store(&queue);
    g_source_set_name(queue.source, "tervano main queue");
    g_source_set_can_recurse(queue.source, TRUE);
    g_source_attach(queue.source, g_main_context_default());
  }
  if (queue.items.size() == 1) g_source_set_ready_time(queue.source, 0);
}

std::shared_ptr<RunLoopTimer> GlibRunLoop::scheduleTimer(double interval, bool repeats,
                                                         std::function<void()> handler) {
  const double seconds =
      interval > kShortestInterval ? std::fmin(interval, kLongestInterval) : kShortestInterval;
  const auto timer =
      std::make_shared<GlibTimer>(seconds, repeats, Item(std::move(handler)), state_->activeTimers);
  GMainContext* const context = g_main_context_ref_thread_default();
  timer->attach(context);
  g_main_context_unref(context);
  return timer;
}

std::shared_ptr<SerialQueue> GlibRunLoop::createSerialQueue(const std::string& label) {
  auto state = std::make_shared<QueueState>();
  state->label = label.substr(0, kLongestThreadName);
  state->activeThreads = state_->activeThreads;
  return std::make_shared<ThreadQueue>(std::move(state));
}

bool GlibRunLoop::runMainLoopUntil(const std::function<bool()>& done, double timeout) {
  if (done()) return true;
  const gint64 deadline =
      timeout < 0 ? -1
                  : g_get_monotonic_time() +
                        static_cast<gint64>(std::fmin(timeout, kLongestInterval) * G_USEC_PER_SEC);
  const auto finish = [](GSource* source) {
    g_source_destroy(source);
    g_source_unref(source);
  };
  // The loop sleeps until something happens; this source makes the deadline happen.
  std::unique_ptr<GSource, decltype(finish)> alarm(g_source_new(&alarmFunctions, sizeof(GSource)),
                                                   finish);
  g_source_set_ready_time(alarm.get(), deadline);
  g_source_attach(alarm.get(), g_main_context_default());
  while (true) {
    g_main_context_iteration(g_main_context_default(), TRUE);
    if (done()) return true;
    if (deadline >= 0 && g_get_monotonic_time() >= deadline) return false;
  }
}

int GlibRunLoop::activeTimers() const {
  return *state_->activeTimers;
}

int GlibRunLoop::pendingMainItems() const {
  const std::lock_guard lock(state_->mainQueue.mutex);
  return static_cast<int>(state_->mainQueue.items.size());
}

int GlibRunLoop::activeQueueThreads() const {
  return *state_->activeThreads;
}

}  // namespace tervano
