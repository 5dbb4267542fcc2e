#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tervano {

class Archiver;
class Unarchiver;

// An object that a keyed archive can hold. Decoding is two births: the registry makes a blank
// object, then `initWithCoder` fills it; both are called by the unarchiver only. An override of
// either calls its base class first. `initWithCoder` throws PlatformException when a key holds a
// value of a wrong type.
class Coding {
 public:
  virtual ~Coding() = default;
  // The name under which the class is registered, e.g. "TVMoveToAction".
  virtual std::string_view className() const = 0;
  virtual void initWithCoder(Unarchiver& coder) = 0;
  virtual void encodeWithCoder(Archiver& coder) const = 0;

 protected:
  Coding() = default;
  Coding(const Coding&) = default;
  Coding& operator=(const Coding&) = default;
};

// The explicit table of archivable classes: the archiver takes each class's chain from it, and it
// is the allow-list of the decoder. Filled by main or a module's entry before any archive is
// touched, then only read, from any thread.
class ClassRegistry {
 public:
  using Factory = std::function<std::shared_ptr<Coding>()>;

  // `chain` runs from the class itself to "NSObject". A null `factory` registers an abstract class,
  // which can be named in chains but not decoded.
  void registerClass(std::vector<std::string> chain, Factory factory);

  // Null when the class is unknown.
  const std::vector<std::string>* chain(std::string_view className) const;
  // Null when the class is unknown or abstract.
  std::shared_ptr<Coding> makeBlank(std::string_view className) const;

 private:
  struct Entry {
    std::vector<std::string> chain;
    Factory factory;
  };
  std::map<std::string, Entry, std::less<>> entries_;
};

}  // namespace tervano
