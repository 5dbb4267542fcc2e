#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/error.h"

namespace tervano {

// Serialises readers and writers of one file across processes by advisory locks kept outside the
// file's folder. Any thread; blocks while another process holds the file. The accessor receives the
// path to use, does not run when an error is returned, and must not coordinate the same file again.
class FileCoordinator {
 public:
  using Accessor = std::function<void(const std::string& path)>;

  virtual ~FileCoordinator() = default;
  virtual std::optional<Error> coordinateWriting(const std::string& path,
                                                 const Accessor& accessor) = 0;
  virtual std::optional<Error> coordinateReading(const std::string& path,
                                                 const Accessor& accessor) = 0;
};

class ForwardingFileCoordinator : public FileCoordinator {
 public:
  explicit ForwardingFileCoordinator(FileCoordinator& real) : real_(real) {}
  std::optional<Error> coordinateWriting(const std::string& path,
                                         const Accessor& accessor) override {
    return real_.coordinateWriting(path, accessor);
  }
  std::optional<Error> coordinateReading(const std::string& path,
                                         const Accessor& accessor) override {
    return real_.coordinateReading(path, accessor);
  }

 private:
  FileCoordinator& real_;
};

}  // namespace tervano
