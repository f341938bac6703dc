// What both files of checksums for x86-64 processors share.
#pragma once

// The header of GCC 12 warns of its own deliberately undefined values.
#pragma GCC diagnostic push
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#pragma GCC diagnostic ignored "-Wuninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop

#include "internal/checksum_arithmetic.h"

#define KEL_FOLDING [[gnu::target("pclmul,sse4.1,avx2")]]
// No short circuits where several are asked for: which one of them a processor lacks
// makes no difference.
#define KEL_HAS(feature) (__builtin_cpu_supports(feature) != 0)

namespace kel::checksum {

bool has_folding();
uint32_t crc32_folding(uint32_t r, const uint8_t *data, size_t size);
uint32_t crc16_shuffling(uint32_t r, const uint8_t *data, size_t size);

// Folds the rest of the data into one block and divides.
KEL_FOLDING uint32_t crc32_finish(__m128i block, const uint8_t *data, size_t size);

KEL_FOLDING inline __m128i fold(__m128i block, __m128i multipliers, __m128i data) {
  const __m128i low = _mm_clmulepi64_si128(block, multipliers, 0x00);
  const __m128i high = _mm_clmulepi64_si128(block, multipliers, 0x11);
  return _mm_xor_si128(_mm_xor_si128(low, high), data);
}

KEL_FOLDING inline __m128i load(const uint8_t *data) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(data));
}

KEL_FOLDING inline __m128i both(Multipliers multipliers) {
  return _mm_set_epi64x(static_cast<long long>(multipliers.high),
                        static_cast<long long>(multipliers.low));
}

}  // namespace kel::checksum
