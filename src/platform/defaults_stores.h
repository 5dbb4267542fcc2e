#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "archive/value.h"

namespace tervano {

// A user-defaults store: the values of one suite on disk, over registered defaults that are never
// written. Any thread. Reads see what other processes have flushed; a write is kept in memory at
// once and merged key by key into the file by `synchronize`, so that two processes never lose each
// other's keys.
class DefaultsStore {
 public:
  virtual ~DefaultsStore() = default;

  // The stored value, else the registered default, else null.
  virtual Value objectForKey(const std::string& key) const = 0;
  // Conversions of objectForKey: true for YES-like texts and non-zero numbers, 0 when absent.
  virtual bool boolForKey(const std::string& key) const = 0;
  virtual std::int64_t integerForKey(const std::string& key) const = 0;
  virtual float floatForKey(const std::string& key) const = 0;
  virtual double doubleForKey(const std::string& key) const = 0;

  // Only values that a property list can hold; others throw PlatformException.
  virtual void setObject(const Value& value, const std::string& key) = 0;
  virtual void setBool(bool value, const std::string& key) = 0;
  virtual void setInteger(std::int64_t value, const std::string& key) = 0;
  virtual void setFloat(float value, const std::string& key) = 0;
  virtual void setDouble(double value, const std::string& key) = 0;
  virtual void removeObjectForKey(const std::string& key) = 0;

  // Adds volatile fallbacks. Neither writes nor announces.
  virtual void registerDefaults(const Value::Dictionary& defaults) = 0;
  // Writes pending changes atomically; answers whether they are on disk now.
  virtual bool synchronize() = 0;
};

// Makes stores. Any thread.
class DefaultsStores {
 public:
  virtual ~DefaultsStores() = default;
  // A new store object on the named suite.
  virtual std::shared_ptr<DefaultsStore> initWithSuiteName(const std::string& suiteName) = 0;
  // The process's own store, the same object every time.
  virtual std::shared_ptr<DefaultsStore> standardUserDefaults() = 0;
};

class ForwardingDefaultsStores : public DefaultsStores {
 public:
  explicit ForwardingDefaultsStores(DefaultsStores& real) : real_(real) {}
  std::shared_ptr<DefaultsStore> initWithSuiteName(const std::string& suiteName) override {
    return real_.initWithSuiteName(suiteName);
  }
  std::shared_ptr<DefaultsStore> standardUserDefaults() override {
    return real_.standardUserDefaults();
  }

 private:
  DefaultsStores& real_;
};

}  // namespace tervano
