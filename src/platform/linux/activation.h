#pragma once

#include <gio/gio.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tervano {

// With what a desktop lets a window come to the front that somebody asked for: the token of
// Wayland's xdg-activation and the identifier of the Startup Notification Protocol. Either may be
// empty.
struct ActivationToken {
  std::string token;
  std::string startupIdentifier;

  bool isEmpty() const { return token.empty() && startupIdentifier.empty(); }
  // What a program takes that knows one text only: the token, else the identifier.
  const std::string& text() const { return token.empty() ? startupIdentifier : token; }
  // As the platform data of org.freedesktop.Application, an a{sv}; floating.
  GVariant* platformData() const;
  // That of an a{sv}. What is no text that a desktop makes, such as one of a megabyte, is left out.
  static ActivationToken fromPlatformData(GVariant* data);
  // Such texts, likewise.
  static ActivationToken fromTexts(const std::string& token, const std::string& startupIdentifier);

  friend bool operator==(const ActivationToken&, const ActivationToken&) = default;
};

// One request and its token, which whoever first opens something for the request takes. Any thread.
class Activation {
 public:
  explicit Activation(ActivationToken token) : token_(std::move(token)) {}
  Activation(const Activation&) = delete;
  Activation& operator=(const Activation&) = delete;

  // Empty the second time.
  ActivationToken take();

 private:
  std::atomic<bool> isTaken_{false};
  ActivationToken token_;
};

// The request on whose behalf this thread works; null for none. What is posted to a queue, a timer,
// and the end of a process belong to the request in which they were made.
std::shared_ptr<Activation> currentActivation();

// For as long as it lives the calling thread works for that request, or for none when it is null.
class ActivationScope {
 public:
  explicit ActivationScope(std::shared_ptr<Activation> activation);
  ActivationScope(const ActivationScope&) = delete;
  ActivationScope& operator=(const ActivationScope&) = delete;
  ~ActivationScope();

 private:
  const std::shared_ptr<Activation> activation_;
  const ActivationScope* const outer_;

  friend std::shared_ptr<Activation> currentActivation();
};

// Takes the token of the current request. Without a request it is the one with which the session
// started this process, once. Any thread.
ActivationToken takeActivationToken();

// The environment of this process for a program that gets this token and no other one.
std::vector<std::string> environmentWithToken(const ActivationToken& token);

}  // namespace tervano
