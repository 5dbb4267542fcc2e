#pragma once

#include <string>
#include <vector>

namespace tervano::test {

// A disk that is a file: a file system that a test makes, mounts and reads the raw blocks of.
class DiskImage {
 public:
  // Makes the file and, by the words of a mkfs program, the file system in it. Throws
  // std::runtime_error.
  DiskImage(std::string path, std::size_t megabytes, std::vector<std::string> mkfs);

  // Whether this machine has loop devices at all.
  static bool isPossible();

  // Mounts it on a folder, in a child that has its mounts to itself. Throws std::runtime_error.
  void mount(const std::string& folder, const std::string& type, const std::string& options = "");

  // How often the text stands anywhere on the disk. Not while it is mounted.
  std::size_t countOf(const std::string& text) const;
  // The first place of the text; throws std::runtime_error when it is nowhere.
  std::size_t placeOf(const std::string& text) const;
  void write(const std::string& text, std::size_t place) const;

 private:
  std::string contents() const;

  std::string path_;
};

}  // namespace tervano::test
