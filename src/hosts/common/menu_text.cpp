#include "hosts/common/menu_text.h"

#include <glib.h>

#include <cstdint>

#include "platform/linux/glib_handles.h"

namespace tervano {

std::string menuLabel(std::string_view title, char mnemonic) {
  const GCharPtr valid(g_utf8_make_valid(title.data(), static_cast<gssize>(title.size())));
  std::string label;
  for (const char* character = valid.get(); *character != '\0'; ++character) {
    const auto byte = static_cast<unsigned char>(*character);
    if (byte < 0x20 || byte == 0x7f) {
      label += ' ';
    } else if (*character == mnemonic) {
      label.append(2, mnemonic);
    } else {
      label += *character;
    }
  }
  return label;
}

std::string distinctLabel(std::string_view label) {
  static std::uint64_t given = 0;
  std::string distinct(label);
  // A mark, then the number in two digits that nobody sees.
  distinct += "\u2060";
  for (std::uint64_t rest = ++given; rest != 0; rest >>= 1) {
    distinct += (rest & 1) != 0 ? "\u200b" : "\u200c";
  }
  return distinct;
}

}  // namespace tervano
