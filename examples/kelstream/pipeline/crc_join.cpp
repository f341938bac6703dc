// CRC-32 of data that comes in parts.
//
// A CRC is the remainder of the data, taken as a polynomial over GF(2), divided
// by the generator. Data behind it multiply that polynomial by x to the power
// of their bits, so the two remainders add up when the first is multiplied by
// the same power.

#include "crc_join.h"

#include <array>
#include <bit>
#include <cstddef>

namespace kelstream {

namespace {

// The generator and all polynomials with the bits of a CRC: the highest power
// (31) is bit 0.
constexpr uint32_t kGenerator = 0xEDB88320;
constexpr uint32_t kOne = 0x80000000;
constexpr uint32_t kX = 0x40000000;

constexpr uint32_t Multiply(uint32_t a, uint32_t b) {
  uint32_t product = 0;
  for (uint32_t bit = kOne; bit != 0; bit >>= 1) {
    if ((a & bit) != 0)
      product ^= b;
    b = (b & 1) != 0 ? b >> 1 ^ kGenerator : b >> 1;
  }
  return product;
}

// x to the power of 8 * 2^n.
constexpr std::array<uint32_t, 64> kBytePowers = [] {
  std::array<uint32_t, 64> powers{};
  uint32_t power = kX;
  for (int i = 0; i < 3; ++i)
    power = Multiply(power, power);
  for (uint32_t &entry : powers) {
    entry = power;
    power = Multiply(power, power);
  }
  return powers;
}();

}  // namespace

uint32_t JoinCrc(uint32_t first, uint32_t second, uint64_t second_length) {
  for (; second_length != 0; second_length &= second_length - 1)
    first = Multiply(first, kBytePowers[static_cast<size_t>(std::countr_zero(second_length))]);
  return first ^ second;
}

}  // namespace kelstream
