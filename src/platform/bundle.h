#pragma once

#include <optional>
#include <string>

namespace tervano {

// The product's resources, beside the program in a build tree as in an installation. Any thread.
class Bundle {
 public:
  virtual ~Bundle() = default;
  // The folder of all resources.
  virtual const std::string& resourcePath() const = 0;
  // The absolute path of a resource `name`.`type` at the top of the resources, nil when absent.
  virtual std::optional<std::string> pathForResource(const std::string& name,
                                                     const std::string& type) const = 0;
  // The same in a folder of the resources, such as "Default Scripts".
  virtual std::optional<std::string> pathForResource(const std::string& name,
                                                     const std::string& type,
                                                     const std::string& subdirectory) const = 0;
  // The drawing of a named application image such as "icon-move", nil when there is none.
  virtual std::optional<std::string> pathForImageNamed(const std::string& name) const = 0;
  // A program of our own in the libexec folder; the path is answered whether or not it exists.
  virtual std::string pathForAuxiliaryExecutable(const std::string& name) const = 0;
};

class ForwardingBundle : public Bundle {
 public:
  explicit ForwardingBundle(Bundle& real) : real_(real) {}
  const std::string& resourcePath() const override { return real_.resourcePath(); }
  std::optional<std::string> pathForResource(const std::string& name,
                                             const std::string& type) const override {
    return real_.pathForResource(name, type);
  }
  std::optional<std::string> pathForResource(const std::string& name, const std::string& type,
                                             const std::string& subdirectory) const override {
    return real_.pathForResource(name, type, subdirectory);
  }
  std::optional<std::string> pathForImageNamed(const std::string& name) const override {
    return real_.pathForImageNamed(name);
  }
  std::string pathForAuxiliaryExecutable(const std::string& name) const override {
    return real_.pathForAuxiliaryExecutable(name);
  }

 private:
  Bundle& real_;
};

}  // namespace tervano
