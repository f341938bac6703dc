// The checksums with the instructions of arm64 processors.
//
// CRC-32: the instruction for it takes eight bytes at a time but waits for the
// step before; for more than a few of them, polynomial multiplication carries
// four blocks of 128 bits along, as it does on other processors, and the
// instruction finishes. The 16-bit sum has a register in every byte lane, moved
// on by table look-ups of nibbles, which every arm64 processor has.

#if defined(__aarch64__)

#include <arm_acle.h>
#include <arm_neon.h>
#include <string.h>
#include <sys/auxv.h>

#include "internal/checksum_arithmetic.h"

namespace kel::checksum {

namespace {

#define KEL_CRC [[gnu::target("+crc")]]
#define KEL_POLYNOMIAL [[gnu::target("+crc+crypto")]]

// ---- CRC-32 ----

KEL_CRC uint32_t crc32_instruction(uint32_t r, const uint8_t *data, size_t size) {
  for (; size >= 8; data += 8, size -= 8) {
    uint64_t word;
    memcpy(&word, data, sizeof word);
    r = __crc32d(r, word);
  }
  if ((size & 4) != 0) {
    uint32_t word;
    memcpy(&word, data, sizeof word);
    r = __crc32w(r, word);
    data += 4;
  }
  if ((size & 2) != 0) {
    uint16_t word;
    memcpy(&word, data, sizeof word);
    r = __crc32h(r, word);
    data += 2;
  }
  return (size & 1) != 0 ? __crc32b(r, *data) : r;
}

KEL_POLYNOMIAL uint8x16_t fold(uint8x16_t block, poly64x2_t multipliers, uint8x16_t data) {
  const poly64x2_t halves = vreinterpretq_p64_u8(block);
  const poly128_t low = vmull_p64(vgetq_lane_p64(halves, 0), vgetq_lane_p64(multipliers, 0));
  const poly128_t high = vmull_high_p64(halves, multipliers);
  return veorq_u8(veorq_u8(vreinterpretq_u8_p128(low), vreinterpretq_u8_p128(high)), data);
}

KEL_POLYNOMIAL poly64x2_t both(Multipliers multipliers) {
  return vcombine_p64(vcreate_p64(multipliers.low), vcreate_p64(multipliers.high));
}

KEL_POLYNOMIAL uint32_t crc32_polynomial(uint32_t r, const uint8_t *data, size_t size) {
  constexpr size_t kStep = 64;
  if (size < 4 * kStep)
    return crc32_instruction(r, data, size);
  const uint32x4_t first = vsetq_lane_u32(r, vdupq_n_u32(0), 0);
  uint8x16_t a = veorq_u8(vld1q_u8(data), vreinterpretq_u8_u32(first));
  uint8x16_t b = vld1q_u8(data + 16), c = vld1q_u8(data + 32), d = vld1q_u8(data + 48);
  const poly64x2_t by_four = both(move_over(512));
  for (data += kStep, size -= kStep; size >= kStep; data += kStep, size -= kStep) {
    a = fold(a, by_four, vld1q_u8(data));
    b = fold(b, by_four, vld1q_u8(data + 16));
    c = fold(c, by_four, vld1q_u8(data + 32));
    d = fold(d, by_four, vld1q_u8(data + 48));
  }
  const poly64x2_t by_one = both(move_over(128));
  b = fold(a, by_one, b);
  c = fold(b, by_one, c);
  d = fold(c, by_one, d);
  // What the one block stands for is what its bytes would be as data.
  uint8_t block[16];
  vst1q_u8(block, d);
  return crc32_instruction(crc32_instruction(0, block, sizeof block), data, size);
}

// ---- The 16-bit sum ----

constexpr size_t kLanes = 64;
constexpr NibbleTables kNibbles = nibble_tables(kLanes);

uint32_t crc16_lanes(uint32_t r, const uint8_t *data, size_t size) {
  constexpr size_t kVectors = kLanes / 16;
  if (size < 4 * kLanes)
    return crc16_by_table(r, data, size);
  uint8x16_t tables[4][2];
  for (int nibble = 0; nibble < 4; ++nibble)
    for (int half = 0; half < 2; ++half)
      tables[nibble][half] = vld1q_u8(kNibbles.table[nibble][half]);
  const uint8x16_t mask = vdupq_n_u8(15);

  uint8x16_t low[kVectors], high[kVectors];
  for (size_t i = 0; i < kVectors; ++i) {
    low[i] = vld1q_u8(data + 16 * i);
    high[i] = vdupq_n_u8(0);
  }
  // Before the first byte the register is data that lies behind none.
  const uint16x8_t first = vsetq_lane_u16(static_cast<uint16_t>(r), vdupq_n_u16(0), 0);
  low[0] = veorq_u8(low[0], vreinterpretq_u8_u16(first));
  for (data += kLanes, size -= kLanes; size >= kLanes; data += kLanes, size -= kLanes) {
    for (size_t i = 0; i < kVectors; ++i) {
      const uint8x16_t nibbles[4] = {vandq_u8(low[i], mask), vshrq_n_u8(low[i], 4),
                                     vandq_u8(high[i], mask), vshrq_n_u8(high[i], 4)};
      uint8x16_t next_low = vld1q_u8(data + 16 * i);
      uint8x16_t next_high = vdupq_n_u8(0);
      for (int nibble = 0; nibble < 4; ++nibble) {
        next_low = veorq_u8(next_low, vqtbl1q_u8(tables[nibble][0], nibbles[nibble]));
        next_high = veorq_u8(next_high, vqtbl1q_u8(tables[nibble][1], nibbles[nibble]));
      }
      low[i] = next_low;
      high[i] = next_high;
    }
  }
  uint8_t low_bytes[kLanes], high_bytes[kLanes];
  for (size_t i = 0; i < kVectors; ++i) {
    vst1q_u8(low_bytes + 16 * i, low[i]);
    vst1q_u8(high_bytes + 16 * i, high[i]);
  }
  return crc16_by_table(sum_lanes<kLanes>(low_bytes, high_bytes), data, size);
}

bool has_instruction() {
  return (getauxval(AT_HWCAP) & HWCAP_CRC32) != 0;
}

bool has_polynomial() {
  return has_instruction() && (getauxval(AT_HWCAP) & HWCAP_PMULL) != 0;
}

}  // namespace

extern const Way kPolynomialWay, kInstructionWay;
const Way kPolynomialWay = {"polynomial", has_polynomial, crc32_polynomial, crc16_lanes};
const Way kInstructionWay = {"instruction", has_instruction, crc32_instruction, crc16_lanes};

}  // namespace kel::checksum

#endif
