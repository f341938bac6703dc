// The two checksums at full speed: tables everywhere, and the processor's own
// instructions where it has them. All ways give the same results.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace kel::checksum {

// One way to compute them. Both take the register and return it; the caller
// does the inversions. `crc16` takes a register of 16 bits.
struct Way {
  const char *name;
  bool (*usable)();  // on this processor
  uint32_t (*crc32)(uint32_t r, const uint8_t *data, size_t size);
  uint32_t (*crc16)(uint32_t r, const uint8_t *data, size_t size);
};

// Best first; the last one is tables and always usable.
extern const Way kWays[];
extern const size_t kWayCount;

// The best one of this processor.
const Way &best();

// By tables.
uint32_t crc32_by_table(uint32_t r, const uint8_t *data, size_t size);
uint32_t crc16_by_table(uint32_t r, const uint8_t *data, size_t size);

// ---- The arithmetic behind it, for tables made at compile time ----

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

}  // namespace kel::checksum
