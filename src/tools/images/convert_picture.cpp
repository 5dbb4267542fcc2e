#include "tools/images/convert_picture.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <system_error>

#include "archive/utf.h"
#include "tools/images/abrupt_end.h"
#include "tools/images/converter.h"
#include "tools/images/image_slots.h"
#include "tools/images/picture_file.h"
#include "tools/images/result_file.h"

namespace tervano {

namespace {

// One line, whatever bytes a name or a library's message has.
std::string asOneLine(const std::string& text) {
  std::string line;
  for (const char character : validUtf8(text)) {
    const bool control = static_cast<unsigned char>(character) < 0x20 || character == '\x7f';
    line += control ? "\xef\xbf\xbd" : std::string(1, character);
  }
  return line;
}

// What libraries say by themselves goes nowhere.
void silenceStandardStreams() {
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (nowhere < 0) return;
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
}

std::uint64_t dataInUse() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("VmData:")) return std::stoull(line.substr(std::strlen("VmData:"))) << 10;
  }
  return 0;
}

// A picture that claims to be enormous fails to get its memory before the machine suffers.
void boundMemory() {
  const std::uint64_t inUse = dataInUse();
  rlimit limit{};
  if (inUse == 0 || getrlimit(RLIMIT_DATA, &limit) != 0) return;
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, inUse + imageSlotMemory());
  setrlimit(RLIMIT_DATA, &limit);
}

ConversionResult convertWith(const char* module, const Conversion& conversion) {
  std::string reason;
  const PictureConverter* const converter = loadConverter(module, reason);
  return converter == nullptr ? ConversionResult::failed(reason) : converter->convert(conversion);
}

ConversionResult convertOpened(const Conversion& conversion) {
  ConversionResult result = convertWith(kQuickModule, conversion);
  if (result.kind == ConversionResult::Kind::declined) {
    result = convertWith(kFullModule, conversion);
  }
  return result;
}

std::string textOf(int code) {
  return std::generic_category().message(code);
}

}  // namespace

std::string convertPicture(const std::string& format, const std::string& input,
                           const std::string& output, int complaints) {
  const auto sentence = [&](const std::string& reason) {
    return asOneLine("Could not convert " + input + " to " + output + ": " + reason);
  };
  const auto target = formatOfWord(format);
  if (!target) {
    return sentence("no pictures can be written as '" + format + "', only as " + listOfWords());
  }
  std::string reason;
  const Descriptor picture = openPictureFile(input, reason);
  if (!picture) return sentence(reason);
  ResultFile result(output);
  if (const int code = result.checkPlace()) return sentence(textOf(code));

  if (!takeImageSlot(imageSlotCount(), reason)) return sentence(reason);
  silenceStandardStreams();
  saySentenceAtCrash(complaints,
                     "tervano-images: " + sentence("a picture library failed on it") + "\n");
  boundMemory();
  if (const int code = result.begin()) return sentence(textOf(code));
  const ConversionResult end = convertOpened({picture.get(), result.descriptor(), *target});
  if (end.kind == ConversionResult::Kind::declined) {
    return sentence("it is no picture of a kind that can be read");
  }
  if (end.kind == ConversionResult::Kind::failed) return sentence(end.reason);
  if (const int code = result.publish()) return sentence(textOf(code));
  return {};
}

std::string writableFormatWords(std::string& complaint) {
  silenceStandardStreams();
  const PictureConverter* const converter = loadConverter(kFullModule, complaint);
  if (converter == nullptr) return {};
  std::string words;
  for (const PictureFormat format : converter->writableFormats()) {
    words += wordOf(format);
    words += '\n';
  }
  if (words.empty()) complaint = "The picture library does not start.";
  return words;
}

}  // namespace tervano
