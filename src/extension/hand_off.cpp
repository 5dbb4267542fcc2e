#include "extension/hand_off.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "archive/utf.h"
#include "messaging/message_identifiers.h"
#include "platform/file_manager.h"
#include "platform/platform.h"

namespace tervano {
namespace {

constexpr std::string_view kActionPrefix = "tervano://runaction?action=";
constexpr std::string_view kFilePrefix = "&file=";
constexpr std::size_t kUidLength = 32;
constexpr std::string_view kUuidShape = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";

Error refusal(std::string message) {
  return {kHandOffErrorDomain, 1, std::move(message)};
}

void report(std::optional<Error>* error, Error cause) {
  if (error != nullptr) *error = std::move(cause);
}

bool isUpperHex(char character) {
  return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'F');
}

bool isUid(std::string_view text) {
  return text.size() == kUidLength && std::all_of(text.begin(), text.end(), isUpperHex);
}

bool isPlainAbsolutePath(std::string_view path) {
  if (!path.starts_with('/') || path.find('\0') != std::string_view::npos) return false;
  while (!path.empty()) {
    path.remove_prefix(1);
    const auto component = path.substr(0, path.find('/'));
    if (component == "." || component == "..") return false;
    path.remove_prefix(component.size());
  }
  return true;
}

// Takes {"paths": [strings]} out of a JSON text. Answers false to end the parse.
class PathsReader : public nlohmann::json_sax<nlohmann::json> {
 public:
  std::vector<std::string> paths;
  std::string complaint;
  bool sawPaths = false;

  bool null() override { return scalar(); }
  bool boolean(bool /*value*/) override { return scalar(); }
  bool number_integer(number_integer_t /*value*/) override { return scalar(); }
  bool number_unsigned(number_unsigned_t /*value*/) override { return scalar(); }
  bool number_float(number_float_t /*value*/, const string_t& /*text*/) override {
    return scalar();
  }
  bool binary(binary_t& /*value*/) override { return scalar(); }
  bool string(string_t& value) override {
    if (!isInPaths_) return scalar();
    if (!isPlainAbsolutePath(value)) return refuse("one of the paths is no absolute path");
    paths.push_back(std::move(value));
    return true;
  }
  bool start_object(std::size_t /*elements*/) override {
    if (depth_ > 0 && !scalar()) return false;
    ++depth_;
    return true;
  }
  bool key(string_t& value) override {
    isPathsNext_ = depth_ == 1 && value == "paths";
    if (isPathsNext_ && sawPaths) return refuse("\"paths\" stands there twice");
    return true;
  }
  bool end_object() override {
    --depth_;
    return true;
  }
  bool start_array(std::size_t /*elements*/) override {
    if (depth_ == 1 && isPathsNext_) {
      sawPaths = isInPaths_ = true;
      isPathsNext_ = false;
    } else if (!scalar()) {
      return false;
    }
    ++depth_;
    return true;
  }
  bool end_array() override {
    --depth_;
    if (depth_ == 1) isInPaths_ = false;
    return true;
  }
  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const nlohmann::json::exception& /*exception*/) override {
    return refuse("it is no JSON text (at byte " + std::to_string(position) + ")");
  }

 private:
  // Any value that is not what "paths" holds.
  bool scalar() {
    if (depth_ == 0) return refuse("it is no JSON object");
    if (isPathsNext_) return refuse("\"paths\" is no array");
    return !isInPaths_ || refuse("one of the paths is no text");
  }
  bool refuse(std::string why) {
    complaint = std::move(why);
    return false;
  }

  std::size_t depth_ = 0;
  bool isPathsNext_ = false;
  bool isInPaths_ = false;
};

class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  int get() const { return descriptor_; }
  bool isOpen() const { return descriptor_ >= 0; }

 private:
  int descriptor_;
};

int openFolder(const std::string& folder) {
  return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

// What is wrong with an opened hand-off file; nil when nothing is.
std::optional<std::string> objectionTo(const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return "it is no regular file";
  if (status.st_uid != geteuid()) return "it belongs to another user";
  if (status.st_nlink != 1) return "it has several names";
  if (static_cast<std::uintmax_t>(status.st_size) > kMaximumHandOffFileSize) {
    return "it is larger than " + std::to_string(kMaximumHandOffFileSize) + " bytes";
  }
  return std::nullopt;
}

// Nil with errno set when reading fails. Never reads more than one byte beyond the limit.
std::optional<std::string> readToEnd(int descriptor, std::size_t expectedSize) {
  std::string text;
  std::size_t length = 0;
  text.resize(expectedSize + 1);
  while (true) {
    const ssize_t count = read(descriptor, text.data() + length, text.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    length += static_cast<std::size_t>(count);
    if (count == 0 || length > kMaximumHandOffFileSize) break;
    if (length == text.size()) text.resize(std::min(length * 2, kMaximumHandOffFileSize + 1));
  }
  text.resize(length);
  return text;
}

}  // namespace

bool isHandOffFileName(std::string_view text) {
  return std::equal(text.begin(), text.end(), kUuidShape.begin(), kUuidShape.end(),
                    [](char character, char shape) {
                      return shape == '-' ? character == '-' : isUpperHex(character);
                    });
}

Url handOffURL(std::string_view uid, std::string_view fileName) {
  return Url(std::string(kActionPrefix).append(uid).append(kFilePrefix).append(fileName));
}

std::optional<HandOff> parseHandOffURL(std::string_view text, std::optional<Error>* error) {
  if (!text.starts_with(kActionPrefix)) {
    report(error, refusal("The URL does not begin with \"" + std::string(kActionPrefix) + "\"."));
    return std::nullopt;
  }
  text.remove_prefix(kActionPrefix.size());
  const auto uid = text.substr(0, kUidLength);
  if (!isUid(uid) || !text.substr(kUidLength).starts_with(kFilePrefix)) {
    report(error, refusal("The URL's action is not 32 upper-case hexadecimal characters, followed "
                          "by \"&file=\"."));
    return std::nullopt;
  }
  const auto file = text.substr(kUidLength + kFilePrefix.size());
  if (!isHandOffFileName(file)) {
    report(error, refusal("The URL's file is no upper-case UUID with nothing behind it."));
    return std::nullopt;
  }
  return HandOff{std::string(uid), std::string(file)};
}

std::optional<std::vector<std::string>> pathsOfHandOffJSON(std::string_view json,
                                                           std::optional<Error>* error) {
  PathsReader reader;
  const bool isWhole = nlohmann::json::sax_parse(json, &reader);
  if (isWhole && reader.sawPaths) return std::move(reader.paths);
  if (reader.complaint.empty()) reader.complaint = "it has no \"paths\"";
  report(error, refusal("The hand-off file cannot be used: " + reader.complaint + "."));
  return std::nullopt;
}

std::optional<std::string> handOffFolder() {
  const auto container = platform().fileManager->containerURLForSecurityApplicationGroupIdentifier(
      kApplicationGroupIdentifier);
  if (!container) return std::nullopt;
  return container->path();
}

std::optional<std::vector<std::string>> readHandOffFile(const std::string& fileName,
                                                        std::optional<Error>* error) {
  const auto folder = handOffFolder();
  if (!folder || !isHandOffFileName(fileName)) {
    report(error, refusal(folder ? "The name of the hand-off file is no upper-case UUID."
                                 : "There is no folder of hand-off files."));
    return std::nullopt;
  }
  const std::string path = appendingPathComponent(*folder, fileName);
  const Descriptor container(openFolder(*folder));
  // Without waiting: the name may have been given to a pipe.
  const Descriptor file(container.isOpen()
                            ? openat(container.get(), fileName.c_str(),
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)
                            : -1);
  struct stat status {};
  if (!file.isOpen() || fstat(file.get(), &status) != 0) {
    report(error, posixError(errno, path));
    return std::nullopt;
  }
  if (const auto objection = objectionTo(status)) {
    report(error, refusal("The hand-off file " + path + " cannot be used: " + *objection + "."));
    return std::nullopt;
  }
  const auto text = readToEnd(file.get(), static_cast<std::size_t>(status.st_size));
  if (!text) {
    report(error, posixError(errno, path));
    return std::nullopt;
  }
  if (text->size() > kMaximumHandOffFileSize) {
    report(error, refusal("The hand-off file " + path + " grew while it was read."));
    return std::nullopt;
  }
  return pathsOfHandOffJSON(*text, error);
}

std::optional<Error> removeHandOffFile(const std::string& fileName) {
  const auto folder = handOffFolder();
  if (!folder || !isHandOffFileName(fileName)) {
    return refusal("There is no hand-off file of that name.");
  }
  const std::string path = appendingPathComponent(*folder, fileName);
  const Descriptor container(openFolder(*folder));
  struct stat status {};
  if (!container.isOpen() ||
      fstatat(container.get(), fileName.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return posixError(errno, path);
  }
  if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) {
    return refusal("The hand-off file " + path + " is no regular file of this user.");
  }
  if (unlinkat(container.get(), fileName.c_str(), 0) != 0) return posixError(errno, path);
  return std::nullopt;
}

}  // namespace tervano
