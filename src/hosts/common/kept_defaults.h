#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/defaults_stores.h"

namespace tervano {

// A defaults store that asks another one for each key once and keeps the answer: whoever reads a
// preference again looks at nothing but memory. What is set here goes through and is asked for
// anew. Any thread.
class KeptDefaults : public DefaultsStore {
 public:
  explicit KeptDefaults(std::shared_ptr<DefaultsStore> real) : real_(std::move(real)) {}

  Value objectForKey(const std::string& key) const override;
  bool boolForKey(const std::string& key) const override;
  std::int64_t integerForKey(const std::string& key) const override;
  float floatForKey(const std::string& key) const override;
  double doubleForKey(const std::string& key) const override;
  void setObject(const Value& value, const std::string& key) override;
  void setBool(bool value, const std::string& key) override;
  void setInteger(std::int64_t value, const std::string& key) override;
  void setFloat(float value, const std::string& key) override;
  void setDouble(double value, const std::string& key) override;
  void removeObjectForKey(const std::string& key) override;
  void registerDefaults(const Value::Dictionary& defaults) override;
  bool synchronize() override;

 private:
  void forget();

  const std::shared_ptr<DefaultsStore> real_;
  mutable std::mutex mutex_;
  mutable std::map<std::string, Value> kept_;
};

}  // namespace tervano
