// The checksums with the instructions of x86-64 processors.
//
// CRC-32 folds: carry-less multiplication moves a block of bits over the blocks
// behind it, so that four (or sixteen) blocks of 128 bits are carried along
// until one of them is left, which the tables finish.
//
// The 16-bit sum is linear, but no polynomial fits its bit order. Instead every
// byte lane of a vector has a register of its own that sees every n-th byte of
// the data. n steps at once are a 16 x 16 bit matrix, the same for all lanes:
// four affine transformations of bytes, or eight shuffles used as tables of
// nibbles. At the end the lanes are summed up as if they were data.

#if defined(__x86_64__)

// The header of GCC 12 warns of its own deliberately undefined values.
#pragma GCC diagnostic push
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#pragma GCC diagnostic ignored "-Wuninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop

#include "internal/checksum_arithmetic.h"

namespace kel::checksum {

namespace {

#define KEL_FOLDING [[gnu::target("pclmul,sse4.1,avx2")]]
#define KEL_WIDE [[gnu::target("pclmul,vpclmulqdq,avx512f,avx512bw,avx512vl,gfni,avx2,sse4.1")]]

// ---- CRC-32 ----

KEL_FOLDING __m128i fold(__m128i block, __m128i multipliers, __m128i data) {
  const __m128i low = _mm_clmulepi64_si128(block, multipliers, 0x00);
  const __m128i high = _mm_clmulepi64_si128(block, multipliers, 0x11);
  return _mm_xor_si128(_mm_xor_si128(low, high), data);
}

KEL_FOLDING __m128i load(const uint8_t *data) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(data));
}

KEL_FOLDING __m128i both(Multipliers multipliers) {
  return _mm_set_epi64x(static_cast<long long>(multipliers.high),
                        static_cast<long long>(multipliers.low));
}

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

// Folds the rest of the data into one block and divides.
KEL_FOLDING uint32_t finish(__m128i block, const uint8_t *data, size_t size) {
  const __m128i by_one = both(move_over(128));
  for (; size >= 16; data += 16, size -= 16)
    block = fold(block, by_one, load(data));
  return crc32_by_table(reduce(block), data, size);
}

constexpr size_t kFoldingBytes = 16;

KEL_FOLDING uint32_t crc32_folding(uint32_t r, const uint8_t *data, size_t size) {
  if (size < kFoldingBytes)
    return crc32_by_table(r, data, size);
  __m128i a = _mm_xor_si128(load(data), _mm_cvtsi32_si128(static_cast<int>(r)));
  if (size < 64)
    return finish(a, data + 16, size - 16);
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
  return finish(d, data, size);
}

KEL_WIDE __m512i fold_wide(__m512i block, __m512i multipliers, __m512i data) {
  constexpr int kXorOfAll = 0x96;
  return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(block, multipliers, 0x00),
                                   _mm512_clmulepi64_epi128(block, multipliers, 0x11), data,
                                   kXorOfAll);
}

KEL_WIDE __m512i load_wide(const uint8_t *data) {
  return _mm512_loadu_si512(data);
}

KEL_WIDE uint32_t crc32_wide(uint32_t r, const uint8_t *data, size_t size) {
  constexpr size_t kStep = 256;
  if (size < 2 * kStep)
    return crc32_folding(r, data, size);
  const __m512i first = _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(r)));
  __m512i a = _mm512_xor_si512(load_wide(data), first);
  __m512i b = load_wide(data + 64), c = load_wide(data + 128), d = load_wide(data + 192);
  const __m512i by_sixteen = _mm512_broadcast_i32x4(both(move_over(2048)));
  for (data += kStep, size -= kStep; size >= kStep; data += kStep, size -= kStep) {
    a = fold_wide(a, by_sixteen, load_wide(data));
    b = fold_wide(b, by_sixteen, load_wide(data + 64));
    c = fold_wide(c, by_sixteen, load_wide(data + 128));
    d = fold_wide(d, by_sixteen, load_wide(data + 192));
  }
  const __m512i by_four = _mm512_broadcast_i32x4(both(move_over(512)));
  b = fold_wide(a, by_four, b);
  c = fold_wide(b, by_four, c);
  d = fold_wide(c, by_four, d);
  const __m128i by_one = both(move_over(128));
  __m128i block = _mm512_extracti32x4_epi32(d, 0);
  block = fold(block, by_one, _mm512_extracti32x4_epi32(d, 1));
  block = fold(block, by_one, _mm512_extracti32x4_epi32(d, 2));
  block = fold(block, by_one, _mm512_extracti32x4_epi32(d, 3));
  return finish(block, data, size);
}

// ---- The 16-bit sum ----

constexpr size_t kShuffleLanes = 128;
constexpr NibbleTables kNibbles = nibble_tables(kShuffleLanes);

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

// A part of the matrix of so many steps, as an affine transformation takes it:
// byte 7 - i holds the bits of the source that make up bit i of the result.
constexpr long long matrix(const Crc16Map &map, int from, int to) {
  uint64_t rows = 0;
  for (int i = 0; i < 8; ++i)
    for (int j = 0; j < 8; ++j)
      if ((map.of_bit[from + j] >> (to + i) & 1) != 0)
        rows |= uint64_t{1} << (8 * (7 - i) + j);
  return static_cast<long long>(rows);
}

constexpr size_t kAffineLanes = 256;
constexpr Crc16Map kAffineSteps = crc16_steps(kAffineLanes);
constexpr long long kLowToLow = matrix(kAffineSteps, 0, 0);
constexpr long long kLowToHigh = matrix(kAffineSteps, 0, 8);
constexpr long long kHighToLow = matrix(kAffineSteps, 8, 0);
constexpr long long kHighToHigh = matrix(kAffineSteps, 8, 8);

// GCC's AddressSanitizer places these vectors at multiples of 32 bytes, where they
// need 64; clang's, which runs the fuzz targets, knows better.
#ifndef __clang__
[[gnu::no_sanitize_address]]
#endif
KEL_WIDE uint32_t
crc16_affine(uint32_t r, const uint8_t *data, size_t size) {
  constexpr size_t kVectors = kAffineLanes / 64;
  if (size < 4 * kAffineLanes)
    return crc16_shuffling(r, data, size);
  const __m512i low_to_low = _mm512_set1_epi64(kLowToLow);
  const __m512i low_to_high = _mm512_set1_epi64(kLowToHigh);
  const __m512i high_to_low = _mm512_set1_epi64(kHighToLow);
  const __m512i high_to_high = _mm512_set1_epi64(kHighToHigh);

  __m512i low[kVectors] = {}, high[kVectors] = {};
  low[0] = _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(r)));
  for (size_t i = 0; i < kVectors; ++i)
    low[i] = _mm512_xor_si512(low[i], load_wide(data + 64 * i));
  for (data += kAffineLanes, size -= kAffineLanes; size >= kAffineLanes;
       data += kAffineLanes, size -= kAffineLanes) {
    constexpr int kXorOfAll = 0x96;
    for (size_t i = 0; i < kVectors; ++i) {
      const __m512i next_low =
          _mm512_ternarylogic_epi64(_mm512_gf2p8affine_epi64_epi8(low[i], low_to_low, 0),
                                    _mm512_gf2p8affine_epi64_epi8(high[i], high_to_low, 0),
                                    load_wide(data + 64 * i), kXorOfAll);
      high[i] = _mm512_xor_si512(_mm512_gf2p8affine_epi64_epi8(low[i], low_to_high, 0),
                                 _mm512_gf2p8affine_epi64_epi8(high[i], high_to_high, 0));
      low[i] = next_low;
    }
  }
  return crc16_by_table(sum_lanes<kAffineLanes>(reinterpret_cast<const uint8_t *>(low),
                                                reinterpret_cast<const uint8_t *>(high)),
                        data, size);
}

#define HAS(feature) (__builtin_cpu_supports(feature) != 0)

// No short circuits: which one of them a processor lacks makes no difference.
bool has_folding() {
  return (HAS("pclmul") & HAS("sse4.1") & HAS("avx2")) != 0;
}

bool has_wide() {
  return (has_folding() & HAS("vpclmulqdq") & HAS("avx512f") & HAS("avx512bw") &
          HAS("avx512vl") & HAS("gfni")) != 0;
}

}  // namespace

extern const Way kWideWay, kFoldingWay;
const Way kWideWay = {"wide", has_wide, crc32_wide, crc16_affine};
const Way kFoldingWay = {"folding", has_folding, crc32_folding, crc16_shuffling};

}  // namespace kel::checksum

#endif
