// The checksums with the instructions of most x86-64 processors.
//
// CRC-32 folds: carry-less multiplication moves a block of bits over the blocks
// behind it, so that four (or sixteen) blocks of 128 bits are carried along
// until one of them is left, which the tables finish.
//
// The 16-bit sum is linear, but no polynomial fits its bit order. Instead every
// byte lane of a vector has a register of its own that sees every n-th byte of
// the data. n steps at once are a 16 x 16 bit matrix, the same for all lanes:
// eight shuffles used as tables of nibbles, or four affine transformations of
// bytes. At the end the lanes are summed up as if they were data.

#if defined(__x86_64__)

#include "internal/checksum_x86.h"

namespace kel::checksum {

// ---- CRC-32 ----

namespace {

// Divides what 128 bits stand for, with 32 zeros behind them: first down to 64
// bits, then the quotient by the polynomial's inverse gives the remainder.
constexpr uint64_t kPolynomial = 0x1DB710641;
constexpr uint64_t kInverse = 0x1F7011641;

KEL_FOLDING uint32_t reduce(__m128i block) {
  const __m128i low_half = _mm_set_epi32(0, 0, -1, -1), low_word = _mm_set_epi32(0, 0, 0, -1);
  const __m128i to_64 =
      _mm_set_epi64x(static_cast<long long>(over(64)), static_cast<long long>(over(96)));
  block = _mm_xor_si128(_mm_clmulepi64_si128(block, to_64, 0x00), _mm_srli_si128(block, 8));
  block = _mm_xor_si128(_mm_clmulepi64_si128(_mm_and_si128(block, low_word), to_64, 0x10),
                        _mm_srli_si128(block, 4));
  block = _mm_and_si128(block, _mm_or_si128(low_half, _mm_slli_si128(low_word, 8)));
  const __m128i division =
      _mm_set_epi64x(static_cast<long long>(kInverse), static_cast<long long>(kPolynomial));
  __m128i quotient = _mm_clmulepi64_si128(_mm_and_si128(block, low_word), division, 0x10);
  quotient = _mm_clmulepi64_si128(_mm_and_si128(quotient, low_word), division, 0x00);
  return static_cast<uint32_t>(_mm_extract_epi32(_mm_xor_si128(block, quotient), 1));
}

}  // namespace

KEL_FOLDING uint32_t crc32_finish(__m128i block, const uint8_t *data, size_t size) {
  const __m128i by_one = both(move_over(128));
  for (; size >= 16; data += 16, size -= 16)
    block = fold(block, by_one, load(data));
  return crc32_by_table(reduce(block), data, size);
}

KEL_FOLDING uint32_t crc32_folding(uint32_t r, const uint8_t *data, size_t size) {
  constexpr size_t kBlock = 16;
  if (size < kBlock)
    return crc32_by_table(r, data, size);
  __m128i a = _mm_xor_si128(load(data), _mm_cvtsi32_si128(static_cast<int>(r)));
  if (size < 64)
    return crc32_finish(a, data + 16, size - 16);
  __m128i b = load(data + 16), c = load(data + 32), d = load(data + 48);
  const __m128i by_four = both(move_over(512));
  for (data += 64, size -= 64; size >= 64; data += 64, size -= 64) {
    a = fold(a, by_four, load(data));
    b = fold(b, by_four, load(data + 16));
    c = fold(c, by_four, load(data + 32));
    d = fold(d, by_four, load(data + 48));
  }
  const __m128i by_one = both(move_over(128));
  b = fold(a, by_one, b);
  c = fold(b, by_one, c);
  d = fold(c, by_one, d);
  return crc32_finish(d, data, size);
}

// ---- The 16-bit sum ----

namespace {

constexpr size_t kShuffleLanes = 128;
constexpr NibbleTables kNibbles = nibble_tables(kShuffleLanes);

}  // namespace

KEL_FOLDING uint32_t crc16_shuffling(uint32_t r, const uint8_t *data, size_t size) {
  constexpr size_t kVectors = kShuffleLanes / 32;
  if (size < 4 * kShuffleLanes)
    return crc16_by_table(r, data, size);
  __m256i tables[4][2];
  for (int nibble = 0; nibble < 4; ++nibble)
    for (int half = 0; half < 2; ++half)
      tables[nibble][half] = _mm256_broadcastsi128_si256(
          _mm_load_si128(reinterpret_cast<const __m128i *>(kNibbles.table[nibble][half])));
  const __m256i mask = _mm256_set1_epi8(15);

  __m256i low[kVectors] = {}, high[kVectors] = {};
  // Before the first byte the register is data that lies behind none.
  low[0] = _mm256_zextsi128_si256(_mm_cvtsi32_si128(static_cast<int>(r)));
  for (size_t i = 0; i < kVectors; ++i)
    low[i] = _mm256_xor_si256(low[i],
                              _mm256_loadu_si256(reinterpret_cast<const __m256i *>(data) + i));
  for (data += kShuffleLanes, size -= kShuffleLanes; size >= kShuffleLanes;
       data += kShuffleLanes, size -= kShuffleLanes) {
    for (size_t i = 0; i < kVectors; ++i) {
      const __m256i nibbles[4] = {
          _mm256_and_si256(low[i], mask),
          _mm256_and_si256(_mm256_srli_epi16(low[i], 4), mask),
          _mm256_and_si256(high[i], mask),
          _mm256_and_si256(_mm256_srli_epi16(high[i], 4), mask),
      };
      __m256i next_low = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(data) + i);
      __m256i next_high = _mm256_setzero_si256();
      for (int nibble = 0; nibble < 4; ++nibble) {
        next_low =
            _mm256_xor_si256(next_low, _mm256_shuffle_epi8(tables[nibble][0], nibbles[nibble]));
        next_high = _mm256_xor_si256(next_high,
                                     _mm256_shuffle_epi8(tables[nibble][1], nibbles[nibble]));
      }
      low[i] = next_low;
      high[i] = next_high;
    }
  }
  return crc16_by_table(sum_lanes<kShuffleLanes>(reinterpret_cast<const uint8_t *>(low),
                                                 reinterpret_cast<const uint8_t *>(high)),
                        data, size);
}

bool has_folding() {
  return (KEL_HAS("pclmul") & KEL_HAS("sse4.1") & KEL_HAS("avx2")) != 0;
}

extern const Way kFoldingWay;
const Way kFoldingWay = {"folding", has_folding, crc32_folding, crc16_shuffling};

}  // namespace kel::checksum

#endif
