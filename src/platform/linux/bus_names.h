#pragma once

#include <functional>
#include <string>

#include "platform/linux/session_bus.h"

namespace tervano {

// The object path of an application: its name with slashes, and "_" for the "-" that a path cannot
// hold.
std::string applicationObjectPath(const std::string& name);

// Passes on whether the name has an owner on the session bus or the bus can start one; false when
// that is not known in time. Bus thread.
void askWhetherReachable(SessionBus& bus, const std::string& name, int timeoutMilliseconds,
                         std::function<void(bool isReachable)> handler);

// The same, waited for. Any thread but the bus thread; needs no main loop.
bool isReachable(SessionBus& bus, const std::string& name, int timeoutMilliseconds);

// Whether an error of a call says that it cannot have reached anybody: the bus is not there, or
// nobody could be started by it. Only then may the request be made again in another way.
bool wasNotDelivered(const GError& error);

}  // namespace tervano
