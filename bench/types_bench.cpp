#include <gio/gio.h>

#include <array>
#include <unordered_map>

#include "bench/support.h"
#include "bench/topics.h"
#include "platform/linux/uniform_type_index.h"
#include "platform/linux/uniform_type_table.h"
#include "platform/platform.h"

namespace tervano::bench {

namespace {

constexpr std::array kNames = {"picture.jpg", "drawing.png", "letter.pdf",  "notes.txt",
                               "page.html",   "source.cpp",  "archive.zip", "song.mp3",
                               "film.mov",    "table.csv",   "README.md",   "Photo.JPEG",
                               "script.py",   "archive.tar", "letter.docx", "x.unknownkind"};

struct Pair {
  const char* identifier;
  const char* type;
  const char* contentType;
  const char* superType;
};
constexpr std::array kPairs = {
    Pair{"public.jpeg", "public.image", "image/jpeg", "image/*"},
    Pair{"public.png", "public.data", "image/png", "application/octet-stream"},
    Pair{"public.html", "public.text", "text/html", "text/plain"},
    Pair{"public.c-plus-plus-source", "public.text", "text/x-c++src", "text/plain"},
    Pair{"com.adobe.pdf", "public.image", "application/pdf", "image/*"},
    Pair{"public.mp3", "public.audio", "audio/mpeg", "audio/*"},
    Pair{"com.pkware.zip-archive", "public.text", "application/zip", "text/plain"},
    Pair{"public.python-script", "public.source-code", "text/x-python", "text/plain"}};

std::string_view extensionOf(std::string_view name) {
  return name.substr(name.rfind('.') + 1);
}

void perItem(benchmark::State& state, std::size_t items) {
  state.counters["ns_each"] = benchmark::Counter(
      static_cast<double>(state.iterations() * static_cast<std::int64_t>(items)) / 1e9,
      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void loadDesktopTypes() {
  dynamic_cast<UniformTypeTable&>(*platform().uniformTypes).loadDesktopTypes();
}

void addTypeOfName() {
  const std::string name = "types/type of " + std::to_string(kNames.size()) + " names/";
  add(name + "tervano", [](benchmark::State& state) {
    loadDesktopTypes();
    const UniformTypes& types = *platform().uniformTypes;
    for (auto _ : state) {
      for (const std::string_view file : kNames) {
        benchmark::DoNotOptimize(types.preferredIdentifierForExtension(extensionOf(file)));
      }
    }
    perItem(state, kNames.size());
  });
  add(name + "peer g_content_type_guess", [](benchmark::State& state) {
    for (auto _ : state) {
      for (const char* file : kNames) {
        gchar* const type = g_content_type_guess(file, nullptr, 0, nullptr);
        benchmark::DoNotOptimize(type);
        g_free(type);
      }
    }
    perItem(state, kNames.size());
  });
  add(name + "floor hash table", [](benchmark::State& state) {
    std::unordered_map<std::string_view, const char*> table;
    for (std::size_t i = 0; i + 1 < kNames.size(); ++i) {
      table.emplace(extensionOf(kNames[i]), kNames[i]);
    }
    for (auto _ : state) {
      for (const std::string_view file : kNames) {
        const auto found = table.find(extensionOf(file));
        benchmark::DoNotOptimize(found);
      }
    }
    perItem(state, kNames.size());
  });
}

void addConformance() {
  const std::string name = "types/conformance of " + std::to_string(kPairs.size()) + " pairs/";
  add(name + "tervano", [](benchmark::State& state) {
    const UniformTypes& types = *platform().uniformTypes;
    for (auto _ : state) {
      for (const Pair& pair : kPairs) {
        benchmark::DoNotOptimize(types.conformsTo(pair.identifier, pair.type));
      }
    }
    perItem(state, kPairs.size());
  });
  add(name + "peer g_content_type_is_a", [](benchmark::State& state) {
    for (auto _ : state) {
      for (const Pair& pair : kPairs) {
        benchmark::DoNotOptimize(g_content_type_is_a(pair.contentType, pair.superType));
      }
    }
    perItem(state, kPairs.size());
  });
  // Both names already looked up.
  add(name + "floor one bit of a table", [](benchmark::State& state) {
    std::array<std::pair<std::uint16_t, std::uint16_t>, kPairs.size()> indices{};
    for (std::size_t i = 0; i < kPairs.size(); ++i) {
      indices[i] = {kUniformTypesByIdentifier.find(kPairs[i].identifier),
                    kUniformTypesByIdentifier.find(kPairs[i].type)};
      if (indices[i].first == kNoUniformType || indices[i].second == kNoUniformType) {
        state.SkipWithError("a type is not in the table");
        return;
      }
    }
    for (auto _ : state) {
      benchmark::DoNotOptimize(indices);
      for (const auto& [source, target] : indices) {
        benchmark::DoNotOptimize(kUniformTypeConformance[source].contains(target));
      }
    }
    perItem(state, kPairs.size());
  });
}

}  // namespace

void addTypeBenchmarks() {
  addTypeOfName();
  addConformance();
}

}  // namespace tervano::bench
