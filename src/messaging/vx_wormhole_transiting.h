#pragma once

#include <optional>
#include <string>

#include "archive/value.h"

namespace tervano {

// Stores one message object per identifier where every process of the application group can read
// it. Synchronous, on the caller's thread; any thread. Failures show as false or null only and are
// never thrown.
class VXWormholeTransiting {
 public:
  virtual ~VXWormholeTransiting() = default;

  // Stores the object in place of an earlier one. A null object is a success that writes nothing
  // and leaves what is stored; a nil identifier is a failure.
  virtual bool writeMessageObject(const Value& messageObject,
                                  const std::optional<std::string>& identifier) = 0;
  // The stored object, equal to the one written; null when there is none or it cannot be read.
  // Reading does not consume it.
  virtual Value messageObjectForIdentifier(const std::optional<std::string>& identifier) = 0;
  // Nothing when nothing is stored.
  virtual void deleteContentForIdentifier(const std::optional<std::string>& identifier) = 0;
  virtual void deleteContentForAllMessages() = 0;
};

}  // namespace tervano
