#include <gio/gio.h>

#include <cstdlib>
#include <functional>
#include <memory>

#include "bench/listener.h"
#include "bench/support.h"
#include "bench/topics.h"
#include "platform/notify_channel.h"
#include "platform/platform.h"

namespace tervano::bench {

namespace {

constexpr int kPosts = 100'000;

// A bus of this process's own.
class Bus {
 public:
  Bus() : address_("unix:path=" + std::string(std::getenv("XDG_RUNTIME_DIR")) + "/bench-bus") {
    daemon_ = start({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog",
                     "--address=" + address_});
    const auto begin = monotonicNanoseconds();
    while (connection_ == nullptr) {
      connection_ = g_dbus_connection_new_for_address_sync(
          address_.c_str(),
          static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                            G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
          nullptr, nullptr, nullptr);
      if (connection_ != nullptr) break;
      if (monotonicNanoseconds() - begin > 10'000'000'000) throw SetupError("no dbus-daemon");
      g_usleep(1000);
    }
    g_dbus_connection_set_exit_on_close(connection_, FALSE);
  }
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  ~Bus() {
    g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    g_object_unref(connection_);
    stop(daemon_);
  }

  const std::string& address() const { return address_; }
  void emit(const char* name) {
    g_dbus_connection_emit_signal(connection_, nullptr, "/", "com.vessok.Bench", name, nullptr,
                                  nullptr);
  }

 private:
  std::string address_;
  pid_t daemon_ = 0;
  GDBusConnection* connection_ = nullptr;
};

// A sender with its listeners.
struct Sender {
  std::unique_ptr<Bus> bus;
  std::unique_ptr<Audience> audience;
  std::function<void()> ping;
  std::function<void()> end;
};

std::unique_ptr<Sender> senderTo(Way way, std::size_t listeners) {
  auto sender = std::make_unique<Sender>();
  if (way == Way::dbus) sender->bus = std::make_unique<Bus>();
  sender->audience = std::make_unique<Audience>(
      way, listeners, sender->bus == nullptr ? std::string() : sender->bus->address());
  if (way == Way::dbus) {
    sender->ping = [bus = sender->bus.get()] { bus->emit("Ping"); };
    sender->end = [bus = sender->bus.get()] { bus->emit("End"); };
  } else if (way == Way::eventfd) {
    Audience* const audience = sender->audience.get();
    sender->ping = [audience] { audience->count(&Board::Listener::pingDescriptor); };
    sender->end = [audience] { audience->count(&Board::Listener::endDescriptor); };
  } else {
    sender->ping = [] { platform().notifyChannel->post(kPing); };
    sender->end = [] { platform().notifyChannel->post(kEnd); };
  }
  return sender;
}

// From the post until the last listener's callback has begun.
void latency(benchmark::State& state, Way way, std::size_t listeners) {
  const auto sender = senderTo(way, listeners);
  const auto post = [&] {
    const auto begin = monotonicNanoseconds();
    sender->ping();
    return sender->audience->waitForAll(&Board::Listener::ping, begin) - begin;
  };
  constexpr int kWarmUp = 20;
  for (int i = 0; i < kWarmUp; ++i) post();
  for (auto _ : state) state.SetIterationTime(static_cast<double>(post()) / 1e9);
}

// From the first of many posts until a last one of another name has arrived.
void flood(benchmark::State& state, Way way) {
  const auto sender = senderTo(way, 1);
  for (auto _ : state) {
    const auto begin = monotonicNanoseconds();
    for (int i = 0; i < kPosts; ++i) sender->ping();
    sender->end();
    const auto end = sender->audience->waitForAll(&Board::Listener::end, begin);
    state.SetIterationTime(static_cast<double>(end - begin) / 1e9);
  }
  state.counters["callbacks"] = static_cast<double>(sender->audience->pings());
}

void addRole(const std::string& role, Way way) {
  constexpr int kPings = 2000;
  constexpr int kPingsToMany = 300;
  add("signal/post to callback, 1 listener/" + role,
      [way](benchmark::State& state) { latency(state, way, 1); })
      ->UseManualTime()
      ->Iterations(kPings)
      ->Unit(benchmark::kMicrosecond);
  add("signal/post to last callback, 20 listeners/" + role,
      [way](benchmark::State& state) { latency(state, way, kMostListeners); })
      ->UseManualTime()
      ->Iterations(kPingsToMany)
      ->Unit(benchmark::kMicrosecond);
  add("signal/100000 posts, 1 listener/" + role,
      [way](benchmark::State& state) { flood(state, way); })
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

void addSignalBenchmarks() {
  addRole("tervano", Way::channel);
  addRole("peer D-Bus signal", Way::dbus);
  addRole("floor eventfd", Way::eventfd);
}

}  // namespace tervano::bench
