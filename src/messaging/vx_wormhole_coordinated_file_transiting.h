#pragma once

#include <cstdint>

#include "messaging/vx_wormhole_file_transiting.h"

namespace tervano {

// Options of writing a message file; the values are the published ones of the platform. The atomic
// one is always added; the others have no meaning here and are kept only.
inline constexpr std::uint64_t kDataWritingAtomic = 1;
inline constexpr std::uint64_t kDataWritingWithoutOverwriting = 2;

// The file transport under file coordination: readers and writers of one message file exclude each
// other across processes, so a call blocks while another process has the file. Deleting is not
// coordinated.
class VXWormholeCoordinatedFileTransiting : public VXWormholeFileTransiting {
 public:
  using VXWormholeFileTransiting::VXWormholeFileTransiting;

  bool writeMessageObject(const Value& messageObject,
                          const std::optional<std::string>& identifier) override;
  Value messageObjectForIdentifier(const std::optional<std::string>& identifier) override;

  // With kDataWritingWithoutOverwriting a message that is already stored makes a write fail.
  std::uint64_t additionalFileWritingOptions() const { return additionalFileWritingOptions_; }
  void setAdditionalFileWritingOptions(std::uint64_t options) {
    additionalFileWritingOptions_ = options;
  }

 private:
  std::uint64_t additionalFileWritingOptions_ = 0;
};

}  // namespace tervano
