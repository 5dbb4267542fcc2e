#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tervano {

inline constexpr char kUTTypeFolder[] = "public.folder";
inline constexpr char kUTTypeImage[] = "public.image";

// Uniform type identifiers: a table of file-name extensions and a conformance graph, extended by
// the desktop's shared MIME database. Any thread; after the first use no disk access.
class UniformTypes {
 public:
  virtual ~UniformTypes() = default;
  // The preferred identifier of an extension, without regard to case; an unknown or empty one gets
  // a stable dynamic identifier that conforms to public.data only.
  virtual std::string preferredIdentifierForExtension(std::string_view extension) const = 0;
  // Whether `identifier` is `type` or reaches it in the conformance graph.
  virtual bool conformsTo(std::string_view identifier, std::string_view type) const = 0;
  // All types that `identifier` conforms to, itself first, nearest first.
  virtual std::vector<std::string> conformanceOf(std::string_view identifier) const = 0;
  // Whether the identifier is declared at all (dynamic ones count as declared).
  virtual bool isDeclared(std::string_view identifier) const = 0;
};

class ForwardingUniformTypes : public UniformTypes {
 public:
  explicit ForwardingUniformTypes(UniformTypes& real) : real_(real) {}
  std::string preferredIdentifierForExtension(std::string_view extension) const override {
    return real_.preferredIdentifierForExtension(extension);
  }
  bool conformsTo(std::string_view identifier, std::string_view type) const override {
    return real_.conformsTo(identifier, type);
  }
  std::vector<std::string> conformanceOf(std::string_view identifier) const override {
    return real_.conformanceOf(identifier);
  }
  bool isDeclared(std::string_view identifier) const override {
    return real_.isDeclared(identifier);
  }

 private:
  UniformTypes& real_;
};

}  // namespace tervano
