#include "hosts/common/kept_defaults.h"

namespace tervano {

Value KeptDefaults::objectForKey(const std::string& key) const {
  const std::lock_guard lock(mutex_);
  auto kept = kept_.find(key);
  if (kept == kept_.end()) kept = kept_.emplace(key, real_->objectForKey(key)).first;
  return kept->second;
}

bool KeptDefaults::boolForKey(const std::string& key) const {
  return boolValue(objectForKey(key));
}

std::int64_t KeptDefaults::integerForKey(const std::string& key) const {
  return longLongValue(objectForKey(key));
}

float KeptDefaults::floatForKey(const std::string& key) const {
  return static_cast<float>(doubleForKey(key));
}

double KeptDefaults::doubleForKey(const std::string& key) const {
  return doubleValue(objectForKey(key));
}

void KeptDefaults::setObject(const Value& value, const std::string& key) {
  real_->setObject(value, key);
  forget();
}

void KeptDefaults::setBool(bool value, const std::string& key) {
  real_->setBool(value, key);
  forget();
}

void KeptDefaults::setInteger(std::int64_t value, const std::string& key) {
  real_->setInteger(value, key);
  forget();
}

void KeptDefaults::setFloat(float value, const std::string& key) {
  real_->setFloat(value, key);
  forget();
}

void KeptDefaults::setDouble(double value, const std::string& key) {
  real_->setDouble(value, key);
  forget();
}

void KeptDefaults::removeObjectForKey(const std::string& key) {
  real_->removeObjectForKey(key);
  forget();
}

void KeptDefaults::registerDefaults(const Value::Dictionary& defaults) {
  real_->registerDefaults(defaults);
  forget();
}

bool KeptDefaults::synchronize() {
  return real_->synchronize();
}

void KeptDefaults::forget() {
  const std::lock_guard lock(mutex_);
  kept_.clear();
}

}  // namespace tervano
