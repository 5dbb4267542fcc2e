#include "platform/linux/app_image.h"

#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "platform/linux/desktop_entry.h"
#include "platform/linux/regular_file.h"
#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

namespace fs = std::filesystem;

// The magic number: "AI" and the type, in the padding of the ELF identification.
constexpr int kMagicOffset = 8;
constexpr int kSquashfsType = 2;
// More than any user's folder of entries holds.
constexpr int kMostEntries = 10'000;
constexpr int kDeepestFolder = 8;

template <typename T>
bool readAt(int file, std::uint64_t offset, T& object) {
  if (offset > INT64_MAX) return false;
  return pread(file, &object, sizeof object, static_cast<off_t>(offset)) ==
         static_cast<ssize_t>(sizeof object);
}

// How long an ELF file is by its own account: to the end of its section table, or of the last
// section where that lies behind it. Nil when that is beyond `size`.
template <typename Header, typename Section>
std::optional<std::uint64_t> lengthOfProgram(int file, std::uint64_t size) {
  Header header{};
  Section last{};
  if (!readAt(file, 0, header) || header.e_shnum == 0 || header.e_shentsize != sizeof(Section) ||
      header.e_shoff > size) {
    return std::nullopt;
  }
  const std::uint64_t table = std::uint64_t{header.e_shnum} * sizeof(Section);
  if (table > size - header.e_shoff ||
      !readAt(file, header.e_shoff + table - sizeof(Section), last) || last.sh_offset > size ||
      last.sh_size > size - last.sh_offset) {
    return std::nullopt;
  }
  return std::max<std::uint64_t>(header.e_shoff + table, last.sh_offset + last.sh_size);
}

std::optional<std::string> embeddedIdentifier(int file, std::uint64_t size, unsigned char elfClass,
                                              SquashfsEntries* entries) {
  const auto length = elfClass == ELFCLASS64 ? lengthOfProgram<Elf64_Ehdr, Elf64_Shdr>(file, size)
                                             : lengthOfProgram<Elf32_Ehdr, Elf32_Shdr>(file, size);
  if (!length) return std::nullopt;
  std::vector<std::string> names;
  entries(file, *length, size - *length, names);
  if (names.size() != 1) return std::nullopt;
  return names.front().substr(0, names.front().size() - std::string_view(".desktop").size());
}

bool namesFile(const DesktopEntry& entry, const std::string& path) {
  for (const char* key : {G_KEY_FILE_DESKTOP_KEY_TRY_EXEC, G_KEY_FILE_DESKTOP_KEY_EXEC}) {
    for (const auto& word : entry.words(key)) {
      std::error_code error;
      if (word == path || (word.starts_with('/') && fs::equivalent(word, path, error))) return true;
    }
  }
  return false;
}

// Among several the first by its path.
std::optional<std::string> installedIdentifier(const std::string& path) {
  std::vector<std::string> entries;
  std::error_code error;
  auto item = fs::recursive_directory_iterator(
      dataHomeFolder() + "/applications", fs::directory_options::skip_permission_denied, error);
  for (int count = 0; !error && item != fs::recursive_directory_iterator() && count < kMostEntries;
       ++count, item.increment(error)) {
    if (item.depth() >= kDeepestFolder) item.disable_recursion_pending();
    if (item->path().extension() == ".desktop") entries.push_back(item->path().string());
  }
  std::sort(entries.begin(), entries.end());
  for (const auto& candidate : entries) {
    const auto entry = DesktopEntry::atPath(candidate);
    if (entry && namesFile(*entry, path)) return DesktopEntry::identifierAtPath(candidate);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> identifierOfAppImage(const std::string& path, SquashfsEntries* entries) {
  const Descriptor file = openRegularFile(path);
  struct stat status {};
  unsigned char identification[EI_NIDENT] = {};
  if (!file || fstat(file.get(), &status) != 0 || (status.st_mode & 0111) == 0 ||
      !readAt(file.get(), 0, identification) ||
      !std::equal(identification, identification + SELFMAG, ELFMAG) ||
      identification[kMagicOffset] != 'A' || identification[kMagicOffset + 1] != 'I' ||
      identification[kMagicOffset + 2] < 1 || identification[kMagicOffset + 2] > kSquashfsType) {
    return std::nullopt;
  }
  if (identification[kMagicOffset + 2] == kSquashfsType && entries != nullptr) {
    auto embedded = embeddedIdentifier(file.get(), static_cast<std::uint64_t>(status.st_size),
                                       identification[EI_CLASS], entries);
    if (embedded) return embedded;
  }
  return installedIdentifier(path);
}

}  // namespace tervano
