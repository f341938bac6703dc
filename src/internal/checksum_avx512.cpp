// The checksums with the widest vectors of x86-64 processors, as checksum_x86.cpp
// tells: four blocks are folded at once, and the 16-bit sum is transformed.

#if defined(__x86_64__)

#include "internal/checksum_x86.h"

namespace kel::checksum {

namespace {

#define KEL_WIDE [[gnu::target("pclmul,vpclmulqdq,avx512f,avx512bw,avx512vl,gfni,avx2,sse4.1")]]

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
  return crc32_finish(block, data, size);
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

bool has_wide() {
  return (has_folding() & KEL_HAS("vpclmulqdq") & KEL_HAS("avx512f") & KEL_HAS("avx512bw") &
          KEL_HAS("avx512vl") & KEL_HAS("gfni")) != 0;
}

}  // namespace

extern const Way kWideWay;
const Way kWideWay = {"wide", has_wide, crc32_wide, crc16_affine};

}  // namespace kel::checksum

#endif
