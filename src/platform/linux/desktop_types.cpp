#include "platform/linux/desktop_types.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>

#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

constexpr std::string_view kMimeIdentifierPrefix = "org.freedesktop.mime.";
// More than any real database; a larger file is left alone.
constexpr std::streamoff kLargestTypesFile = std::streamoff{32} << 20;

std::string textOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file || file.tellg() > kLargestTypesFile) return {};
  file.seekg(0);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

template <typename Handler>
void forEachLine(std::string_view text, const Handler& handler) {
  while (!text.empty()) {
    const auto end = text.find('\n');
    const auto line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (!line.empty() && line.front() != '#') handler(line);
  }
}

// The part before `separator`, taken off `text` with it; all of it when there is none.
std::string_view takeField(std::string_view& text, char separator) {
  const auto end = text.find(separator);
  const auto field = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return field;
}

// "*.ext" with a plain extension; empty for every other pattern. Names are matched without regard
// to case here, so a pattern that insists on capitals says nothing.
std::string_view extensionOf(std::string_view glob, bool isCaseSensitive) {
  if (!glob.starts_with("*.")) return {};
  glob.remove_prefix(2);
  if (glob.find_first_of(".*?[]\\/ ") != std::string_view::npos) return {};
  const bool hasCapitals = std::any_of(glob.begin(), glob.end(),
                                       [](char letter) { return letter >= 'A' && letter <= 'Z'; });
  if (hasCapitals && isCaseSensitive) return {};
  return glob;
}

std::string inLowerCase(std::string_view text) {
  std::string result(text);
  for (char& letter : result) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return result;
}

std::string mimeIdentifier(std::string_view mimeType) {
  std::string identifier(kMimeIdentifierPrefix);
  for (const char character : mimeType) identifier += character == '/' ? '.' : character;
  return identifier;
}

// The uniform type that the first part of a MIME type stands for.
std::string_view typeOfMajorPart(std::string_view mimeType) {
  const auto major = mimeType.substr(0, mimeType.find('/'));
  if (major == "image") return "public.image";
  if (major == "text") return "public.text";
  if (major == "audio") return "public.audio";
  if (major == "video") return "public.movie";
  if (major == "font") return "public.font";
  if (major == "message") return "public.message";
  if (major == "model") return "public.3d-content";
  return {};
}

}  // namespace

// Collects the files' lines, then makes types of those that an extension needs.
struct DesktopTypes::Reader {
  struct Glob {
    int weight = 0;
    std::string mimeType;
  };

  DesktopTypes result;
  std::map<std::string, Glob, std::less<>> globs;
  std::map<std::string, std::string, std::less<>> aliases;
  std::multimap<std::string, std::string, std::less<>> subclasses;

  void readFolder(const std::string& folder) {
    // weight:type:glob[:flags]; folders come with the less important ones first.
    forEachLine(textOf(folder + "/globs2"), [&](std::string_view line) {
      int weight = 0;
      const auto number = takeField(line, ':');
      if (std::from_chars(number.data(), number.data() + number.size(), weight).ec != std::errc{}) {
        return;
      }
      const auto mimeType = takeField(line, ':');
      const auto glob = takeField(line, ':');
      if (mimeType.find('/') == std::string_view::npos) return;
      if (glob == "__NOGLOBS__") {
        std::erase_if(globs, [&](const auto& entry) { return entry.second.mimeType == mimeType; });
        return;
      }
      const auto extension = extensionOf(glob, takeField(line, ':') == "cs");
      if (extension.empty()) return;
      auto& known = globs[inLowerCase(extension)];
      if (known.mimeType.empty() || weight > known.weight) known = {weight, std::string(mimeType)};
    });
    forEachLine(textOf(folder + "/aliases"), [&](std::string_view line) {
      const auto alias = takeField(line, ' ');
      if (!line.empty()) aliases[std::string(alias)] = line;
    });
    forEachLine(textOf(folder + "/subclasses"), [&](std::string_view line) {
      const auto mimeType = takeField(line, ' ');
      if (!line.empty()) subclasses.emplace(mimeType, line);
    });
  }

  std::string_view resolved(std::string_view mimeType) const {
    const auto alias = aliases.find(mimeType);
    return alias == aliases.end() ? mimeType : std::string_view(alias->second);
  }

  static std::uint16_t builtInType(std::string_view mimeType) {
    return kUniformTypesByMimeType.find(mimeType);
  }

  std::string identifierFor(std::string_view mimeType) {
    for (const auto name : {mimeType, resolved(mimeType)}) {
      const auto type = builtInType(name);
      if (type != kNoUniformType) return std::string(kUniformTypes[type].identifier);
    }
    std::string identifier = mimeIdentifier(resolved(mimeType));
    declare(identifier, resolved(mimeType));
    return identifier;
  }

  // Documents that are zip files inside are no archives to a person.
  static bool isContainerOnly(std::string_view mimeType) { return mimeType == "application/zip"; }

  void declare(const std::string& identifier, std::string_view mimeType) {
    if (result.types_.contains(identifier)) return;
    // Before its parents, so that a circle in the database ends here.
    result.types_[identifier].identifier = identifier;
    std::vector<std::string> parents;
    const auto add = [&parents, &identifier](std::string parent) {
      if (parent != identifier &&
          std::find(parents.begin(), parents.end(), parent) == parents.end()) {
        parents.push_back(std::move(parent));
      }
    };
    const auto [first, last] = subclasses.equal_range(std::string(mimeType));
    for (auto entry = first; entry != last; ++entry) {
      if (!isContainerOnly(resolved(entry->second))) add(identifierFor(entry->second));
    }
    if (const auto major = typeOfMajorPart(mimeType); !major.empty()) add(std::string(major));
    add("public.data");

    UniformTypeSet builtIn;
    std::vector<std::string> others{identifier};
    for (const auto& parent : parents) {
      const auto type = kUniformTypesByIdentifier.find(parent);
      if (type != kNoUniformType) {
        builtIn.insertAll(kUniformTypeConformance[type]);
        continue;
      }
      const auto& known = result.types_[parent];
      builtIn.insertAll(known.builtIn);
      others.insert(others.end(), known.others.begin(), known.others.end());
    }
    auto& type = result.types_[identifier];
    type.parents = std::move(parents);
    type.builtIn = builtIn;
    type.others = std::move(others);
  }

  void finish() {
    for (const auto& [extension, glob] : globs) {
      if (kUniformTypesByExtension.find(extension) == kNoUniformType) {
        result.extensions_.emplace(extension, identifierFor(glob.mimeType));
      }
    }
  }
};

DesktopTypes DesktopTypes::read() {
  auto folders = dataFolders();
  for (auto& folder : folders) folder += "/mime";
  return read(folders);
}

DesktopTypes DesktopTypes::read(const std::vector<std::string>& folders) {
  Reader reader;
  std::for_each(folders.rbegin(), folders.rend(),
                [&](const std::string& folder) { reader.readFolder(folder); });
  reader.finish();
  return std::move(reader.result);
}

const std::string* DesktopTypes::identifierForExtension(std::string_view extension) const {
  const auto entry = extensions_.find(extension);
  return entry == extensions_.end() ? nullptr : &entry->second;
}

const DesktopTypes::Type* DesktopTypes::typeWithIdentifier(std::string_view identifier) const {
  const auto entry = types_.find(identifier);
  return entry == types_.end() ? nullptr : &entry->second;
}

}  // namespace tervano
