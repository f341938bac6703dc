// The arithmetic behind the checksums, for tables made at compile time and for
// the ways that take many bytes at once.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "internal/checksum.h"

namespace kel::checksum {

// One byte of the 16-bit sum: shifts like a reflected CRC, through the table of
// the other orientation. It is linear: crc16_step(a ^ b) is the XOR of both.
constexpr uint32_t crc16_entry(uint32_t byte) {
  uint32_t r = byte << 8;
  for (int bit = 0; bit < 8; ++bit)
    r = (r << 1) ^ ((r & 0x8000) != 0 ? 0x1021u : 0u);
  return r & 0xFFFF;
}
constexpr uint32_t crc16_step(uint32_t r) {
  return crc16_entry(r & 0xFF) ^ (r >> 8);
}

// Many such steps at once, as what becomes of each bit of the register.
struct Crc16Map {
  uint16_t of_bit[16];

  constexpr uint32_t operator()(uint32_t r) const {
    uint32_t result = 0;
    for (int bit = 0; bit < 16; ++bit)
      if ((r >> bit & 1) != 0)
        result ^= of_bit[bit];
    return result;
  }
};

constexpr Crc16Map crc16_steps(uint32_t count) {
  Crc16Map power{};  // of one step, doubled on the way
  Crc16Map result{};
  for (int bit = 0; bit < 16; ++bit) {
    power.of_bit[bit] = static_cast<uint16_t>(crc16_step(1u << bit));
    result.of_bit[bit] = static_cast<uint16_t>(1u << bit);
  }
  for (; count != 0; count >>= 1) {
    Crc16Map doubled{};
    for (int bit = 0; bit < 16; ++bit) {
      if ((count & 1) != 0)
        result.of_bit[bit] = static_cast<uint16_t>(power(result.of_bit[bit]));
      doubled.of_bit[bit] = static_cast<uint16_t>(power(power.of_bit[bit]));
    }
    power = doubled;
  }
  return result;
}

// x to the power of `n` modulo the polynomial of CRC-32, the highest power in
// bit 0.
constexpr uint32_t crc32_power(uint32_t n) {
  constexpr uint32_t kPolynomial = 0xEDB88320;
  uint32_t r = 0x80000000;
  for (; n != 0; --n)
    r = (r >> 1) ^ ((r & 1) != 0 ? kPolynomial : 0);
  return r;
}

// Multipliers that move 128 bits over `bits` more, for their low and their high
// half. The product of two reflected numbers comes out one bit too low.
constexpr uint64_t over(uint32_t bits) {
  return uint64_t{crc32_power(bits)} << 1;
}
static_assert(over(512 + 32) == 0x154442BD4 && over(128 - 32) == 0x0CCAA009E);
struct Multipliers {
  uint64_t low, high;
};
constexpr Multipliers move_over(uint32_t bits) {
  return {over(bits + 32), over(bits - 32)};
}

// ---- One register per lane ----

// The lanes' registers, low and high bytes apart, become the register of all
// that they saw. A high byte counts like a low byte one place further on.
template <size_t kLanes>
inline uint32_t sum_lanes(const uint8_t *low, const uint8_t *high) {
  return crc16_by_table(0, low, kLanes) ^ crc16_by_table(0, high, kLanes - 1) ^
         high[kLanes - 1];
}

// A part of the matrix of so many steps, as tables of nibbles: what the low or
// high nibble of a low or high byte becomes, in its low or high byte.
struct NibbleTables {
  alignas(16) uint8_t table[4][2][16];
};
constexpr NibbleTables nibble_tables(uint32_t steps) {
  const Crc16Map map = crc16_steps(steps);
  NibbleTables tables{};
  for (uint32_t nibble = 0; nibble < 4; ++nibble)
    for (uint32_t value = 0; value < 16; ++value) {
      const uint32_t result = map(value << (4 * nibble));
      tables.table[nibble][0][value] = static_cast<uint8_t>(result);
      tables.table[nibble][1][value] = static_cast<uint8_t>(result >> 8);
    }
  return tables;
}

}  // namespace kel::checksum
