// The checksums by tables, and the choice among all ways.

#include "internal/checksum.h"

#include <string.h>

#include <bit>

#include "internal/checksum_arithmetic.h"
#include "internal/relaxed.h"

namespace kel::checksum {

#if defined(__x86_64__)
extern const Way kWideWay, kFoldingWay;
#elif defined(__aarch64__)
extern const Way kPolynomialWay, kInstructionWay;
#endif

namespace {

constexpr size_t kSlice = 16;  // bytes taken in one step
// Long data goes in five words side by side, each a sum of its own over the
// words that lie a braid further on: none waits for the other.
constexpr size_t kWords = 5;
constexpr size_t kBraid = 8 * kWords;

// What a byte becomes with 0 to 15 zero bytes behind it; and the bytes of a word,
// which look_up below takes from the last one, with a braid of zeros less their
// own place behind them.
struct Tables {
  uint32_t crc32[kSlice][256];
  uint16_t crc16[kSlice][256];
  uint32_t crc32_braid[8][256];
  uint16_t crc16_braid[8][256];
  constexpr Tables() : crc32{}, crc16{}, crc32_braid{}, crc16_braid{} {
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t r = i;
      for (int bit = 0; bit < 8; ++bit)
        r = (r >> 1) ^ ((r & 1) != 0 ? 0xEDB88320u : 0u);
      crc32[0][i] = r;
      crc16[0][i] = static_cast<uint16_t>(crc16_entry(i));
    }
    for (size_t k = 1; k < kSlice; ++k)
      for (uint32_t i = 0; i < 256; ++i) {
        crc32[k][i] = crc32[0][crc32[k - 1][i] & 0xFF] ^ (crc32[k - 1][i] >> 8);
        crc16[k][i] =
            static_cast<uint16_t>(crc16[0][crc16[k - 1][i] & 0xFF] ^ (crc16[k - 1][i] >> 8));
      }
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t r32 = i, r16 = i;
      for (size_t zeros = 1; zeros <= kBraid; ++zeros) {
        r32 = crc32[0][r32 & 0xFF] ^ (r32 >> 8);
        r16 = crc16[0][r16 & 0xFF] ^ (r16 >> 8);
        if (zeros > kBraid - 8) {
          crc32_braid[zeros - 1 - (kBraid - 8)][i] = r32;
          crc16_braid[zeros - 1 - (kBraid - 8)][i] = static_cast<uint16_t>(r16);
        }
      }
    }
  }
};

constexpr Tables kTables;
constexpr const uint16_t (&KEL_crc16_tab)[256] = kTables.crc16[0];
[[maybe_unused]] constexpr const uint32_t (&KEL_crc32_tab)[256] = kTables.crc32[0];
static_assert(KEL_crc16_tab[1] == 0x1021 && KEL_crc16_tab[128] == 0x9188);
static_assert(KEL_crc32_tab[1] == 0x77073096);

uint32_t little(uint32_t word) {
  return std::endian::native == std::endian::little ? word : __builtin_bswap32(word);
}

uint64_t load(const uint8_t *data) {
  uint64_t word;
  memcpy(&word, data, sizeof word);
  return std::endian::native == std::endian::little ? word : __builtin_bswap64(word);
}

// The sum of what the eight bytes of a word become, the first one with the most
// bytes behind it.
template <typename Table>
[[gnu::always_inline]] inline uint32_t look_up(const Table *table, uint64_t word) {
  // Written out: the compiler does not unroll it by itself.
  return table[7][word & 0xFF] ^ table[6][word >> 8 & 0xFF] ^ table[5][word >> 16 & 0xFF] ^
         table[4][word >> 24 & 0xFF] ^ table[3][word >> 32 & 0xFF] ^
         table[2][word >> 40 & 0xFF] ^ table[1][word >> 48 & 0xFF] ^ table[0][word >> 56];
}

// Takes braids as long as two are left, then all that the words hold.
template <typename Table>
uint32_t braids(const Table *slices, const Table *braid, uint32_t r, const uint8_t *&data,
                size_t &size) {
  uint64_t a = r, b = 0, c = 0, d = 0, e = 0;
  for (; size >= 2 * kBraid; data += kBraid, size -= kBraid) {
    a = look_up(braid, load(data) ^ a);
    b = look_up(braid, load(data + 8) ^ b);
    c = look_up(braid, load(data + 16) ^ c);
    d = look_up(braid, load(data + 24) ^ d);
    e = look_up(braid, load(data + 32) ^ e);
  }
  r = 0;
  const uint64_t words[kWords] = {a, b, c, d, e};
  for (const uint64_t word : words) {
    r = look_up(slices, load(data) ^ word ^ r);
    data += 8;
  }
  size -= kBraid;
  return r;
}

bool always() {
  return true;
}

}  // namespace

uint32_t crc32_by_table(uint32_t r, const uint8_t *data, size_t size) {
  if (size >= 2 * kBraid)
    r = braids(kTables.crc32, kTables.crc32_braid, r, data, size);
  for (; size >= kSlice; data += kSlice, size -= kSlice)
    r = look_up(kTables.crc32 + 8, load(data) ^ r) ^ look_up(kTables.crc32, load(data + 8));
  if (size >= 8) {
    r = look_up(kTables.crc32, load(data) ^ r);
    data += 8;
    size -= 8;
  }
  const auto &table = kTables.crc32;
  if (size >= 4) {
    uint32_t word;
    memcpy(&word, data, sizeof word);
    word = little(word) ^ r;
    r = table[3][word & 0xFF] ^ table[2][word >> 8 & 0xFF] ^ table[1][word >> 16 & 0xFF] ^
        table[0][word >> 24];
    data += 4;
    size -= 4;
  }
  // What is left goes side by side, too, rather than byte after byte: short keys
  // are hashed with this.
  switch (size) {
    case 3:
      return table[2][(r ^ data[0]) & 0xFF] ^ table[1][(r >> 8 ^ data[1]) & 0xFF] ^
             table[0][(r >> 16 ^ data[2]) & 0xFF] ^ r >> 24;
    case 2:
      return table[1][(r ^ data[0]) & 0xFF] ^ table[0][(r >> 8 ^ data[1]) & 0xFF] ^ r >> 16;
    case 1:
      return table[0][(r ^ data[0]) & 0xFF] ^ r >> 8;
    default:
      return r;
  }
}

uint32_t crc16_by_table(uint32_t r, const uint8_t *data, size_t size) {
  if (size >= 2 * kBraid)
    r = braids(kTables.crc16, kTables.crc16_braid, r, data, size);
  for (; size >= kSlice; data += kSlice, size -= kSlice)
    r = look_up(kTables.crc16 + 8, load(data) ^ r) ^ look_up(kTables.crc16, load(data + 8));
  if (size >= 8) {
    r = look_up(kTables.crc16, load(data) ^ r);
    data += 8;
    size -= 8;
  }
  for (; size > 0; --size)
    r = KEL_crc16_tab[(r ^ *data++) & 0xFF] ^ (r >> 8);
  return r;
}

const Way kWays[] = {
#if defined(__x86_64__)
    kWideWay,
    kFoldingWay,
#elif defined(__aarch64__)
    kPolynomialWay,
    kInstructionWay,
#endif
    {"tables", always, crc32_by_table, crc16_by_table},
};
const size_t kWayCount = sizeof kWays / sizeof kWays[0];

const Way &first_usable(const Way *ways) {
  while (!ways->usable())
    ++ways;
  return *ways;
}

const Way &best() {
  static const Way *chosen = nullptr;
  const Way *way = load_relaxed(chosen);
  if (way == nullptr) {
    way = &first_usable(kWays);
    store_relaxed(chosen, way);
  }
  return *way;
}

}  // namespace kel::checksum
