#pragma once

#include <string>

#include "platform/linux/descriptor.h"

namespace tervano {

// A file that appears under its name when it is complete, and never in place of another. Until then
// it has no name at all; where the file system knows no nameless files, a hidden name beside the
// target, which is removed on every failure and when a signal ends the process.
//
// Functions answer 0 or the errno value of the failure. One at a time in a process.
class ResultFile {
 public:
  explicit ResultFile(const std::string& path);
  ResultFile(const ResultFile&) = delete;
  ResultFile& operator=(const ResultFile&) = delete;
  ~ResultFile();

  // Whether the folder is there and the name is free. Changes nothing.
  int checkPlace() const;
  // Makes the empty file, for reading and writing.
  int begin();
  int descriptor() const { return file_.get(); }
  // Gives the file its name; EEXIST when something has taken it.
  int publish();

 private:
  int publishNamed();
  int copyIntoPlace();

  std::string name_;
  std::string temporary_;
  Descriptor folder_;
  Descriptor file_;
  int code_ = 0;
};

}  // namespace tervano
