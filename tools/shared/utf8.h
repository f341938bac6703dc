// Walks through a text that should be UTF-8 and may be anything. Shared by the
// programs that print and escape such texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace shared {

// The length of the well-formed character that `text` (not empty) begins with;
// 0 when it begins with none.
inline size_t Utf8Length(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
  const uint8_t lead = byte(0);
  if (lead < 0x80)
    return 1;
  // Overlong forms, surrogates and what lies beyond U+10FFFF show in the
  // second byte.
  size_t length = 0;
  uint8_t low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    low = lead == 0xE0 ? 0xA0 : low;
    high = lead == 0xED ? 0x9F : high;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    low = lead == 0xF0 ? 0x90 : low;
    high = lead == 0xF4 ? 0x8F : high;
  }
  if (length == 0 || text.size() < length || byte(1) < low || byte(1) > high)
    return 0;
  for (size_t i = 2; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80)
      return 0;
  return length;
}

}  // namespace shared
