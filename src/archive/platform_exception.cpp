#include "archive/platform_exception.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace tervano {
namespace {

std::string symbolOf(const char* mangled) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> readable(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), std::free);
  return status == 0 && readable != nullptr ? readable.get() : mangled;
}

// "index module address symbol + offset".
std::string describeFrame(std::size_t index, void* frame) {
  std::string module = "???";
  std::string symbol;
  const auto address = reinterpret_cast<std::uintptr_t>(frame);
  std::uintptr_t offset = 0;
  Dl_info info{};
  if (dladdr(frame, &info) != 0 && info.dli_fname != nullptr) {
    module = info.dli_fname;
    module.erase(0, module.rfind('/') + 1);
    symbol = info.dli_sname != nullptr ? symbolOf(info.dli_sname) : module;
    const void* base = info.dli_saddr != nullptr ? info.dli_saddr : info.dli_fbase;
    offset = address - reinterpret_cast<std::uintptr_t>(base);
  }
  std::array<char, 96> numbers{};
  std::snprintf(numbers.data(), numbers.size(), "%-3zu %-24s 0x%016jx ", index,
                module.substr(0, 24).c_str(), static_cast<std::uintmax_t>(address));
  std::string line = numbers.data();
  if (!symbol.empty()) line += symbol + " + " + std::to_string(offset);
  return line;
}

}  // namespace

PlatformException::PlatformException(std::string name, std::string reason)
    : name_(std::move(name)), reason_(std::move(reason)), what_(name_ + ": " + reason_) {
  std::array<void*, 128> frames{};
  const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
  // Without this constructor's own frame.
  if (count > 1) frames_.assign(frames.begin() + 1, frames.begin() + count);
}

std::vector<std::string> PlatformException::callStackSymbols() const {
  std::vector<std::string> lines;
  lines.reserve(frames_.size());
  for (std::size_t i = 0; i < frames_.size(); ++i) lines.push_back(describeFrame(i, frames_[i]));
  return lines;
}

}  // namespace tervano
