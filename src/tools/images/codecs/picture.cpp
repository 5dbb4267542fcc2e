#include "tools/images/codecs/picture.h"

#include <cmath>
#include <cstring>

namespace tervano {

std::optional<Density> densityPerInch(double across, double down) {
  constexpr double kLeast = 1;
  constexpr double kMost = 100000;
  const auto isPossible = [](double density) { return density >= kLeast && density <= kMost; };
  if (!isPossible(across) || !isPossible(down)) return std::nullopt;
  return Density{across, down};
}

std::optional<Density> densityPerMetre(double across, double down) {
  constexpr double kMetresPerInch = 0.0254;
  // The nearest whole number when the file cannot tell it from this one.
  const auto perInch = [](double perMetre) {
    const double exact = perMetre * kMetresPerInch;
    const double whole = std::round(exact);
    return whole > 0 && std::abs(exact - whole) <= kMetresPerInch ? whole : exact;
  };
  return densityPerInch(perInch(across), perInch(down));
}

bool profileFits(const Data& profile, Colour colour) {
  constexpr std::size_t kHeaderSize = 128;
  constexpr std::size_t kColourSpace = 16;
  const char* const space = colour == Colour::gray  ? "GRAY"
                            : colour == Colour::rgb ? "RGB "
                                                    : "CMYK";
  return profile.size() >= kHeaderSize && std::memcmp(profile.data() + kColourSpace, space, 4) == 0;
}

}  // namespace tervano
