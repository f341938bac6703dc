// CRC-32 of data that comes in parts, from the CRC-32 of each part.
#pragma once

#include <cstdint>

namespace kelstream {

// The CRC-32 of two texts in a row, from that of each and the length of the
// second.
uint32_t JoinCrc(uint32_t first, uint32_t second, uint64_t second_length);

// Adds up parts.
struct CrcSum {
  uint32_t value = 0;
  uint64_t length = 0;

  void Append(uint32_t crc, uint64_t size) {
    value = length == 0 ? crc : JoinCrc(value, crc, size);
    length += size;
  }
};

}  // namespace kelstream
