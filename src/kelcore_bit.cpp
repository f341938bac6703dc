// Bit cursor: most significant bit first, whole words, no checks.

#include "kelcore_bit.h"

#include <stddef.h>
#include <string.h>

#include <bit>

#include "internal/alloc.h"
#include "internal/trace.h"

KEL_TRACE_SOURCE("kelbit", "kelcore_bit")

struct KEL_BIT {
  uint8_t *cur;
  uint32_t reserved;
  uint32_t bit_off;  // bits of *cur already consumed
  uint32_t processed;
  uint32_t total_bits;
  uint8_t *mark_cur;
  uint32_t mark_reserved;
  uint32_t mark_bit_off;
  uint32_t mark_processed;
  uint32_t mark_set;
};

namespace {

static_assert(sizeof(KEL_BIT) == 48);
static_assert(offsetof(KEL_BIT, bit_off) == 12 && offsetof(KEL_BIT, total_bits) == 20 &&
              offsetof(KEL_BIT, mark_cur) == 24 && offsetof(KEL_BIT, mark_set) == 44);

constexpr uint32_t kWordBits = 32;

struct Masks {
  uint32_t msk[kWordBits + 1];
  constexpr Masks() : msk{} {
    for (uint32_t i = 0; i <= kWordBits; ++i)
      msk[i] = static_cast<uint32_t>((uint64_t{1} << i) - 1);
  }
};

// Entry i has the low i bits set.
constexpr Masks kMasks;
constexpr const uint32_t (&msk)[kWordBits + 1] = kMasks.msk;

uint32_t swap_to_big(uint32_t word) {
  return std::endian::native == std::endian::little ? __builtin_bswap32(word) : word;
}

uint32_t load_word(const uint8_t *from) {
  uint32_t word;
  memcpy(&word, from, sizeof word);
  return swap_to_big(word);
}

void store_word(uint8_t *to, uint32_t word) {
  word = swap_to_big(word);
  memcpy(to, &word, sizeof word);
}

// The shift is arithmetic: a negative number of bits, wrapped, steps back.
void advance(KEL_BIT *cursor, uint32_t n) {
  const uint32_t t = cursor->bit_off + n;
  cursor->cur += static_cast<int32_t>(t) >> 3;
  cursor->bit_off = t % 8;
  cursor->processed += n;
}

uint32_t show(const KEL_BIT *cursor, uint32_t n) {
  const uint32_t left = kWordBits - cursor->bit_off;
  return (load_word(cursor->cur) & msk[left]) >> ((left - n) % kWordBits);
}

uint32_t get_bit(KEL_BIT *cursor) {
  const uint32_t bit = (*cursor->cur >> (7 - cursor->bit_off)) & 1u;
  advance(cursor, 1);
  return bit;
}

void put(KEL_BIT *cursor, uint32_t n, uint32_t value) {
  const uint32_t s = kWordBits - cursor->bit_off;
  // At a byte boundary the shift is by 0 and keeps the whole word: new bits are
  // OR-ed over what is there, so that a prepared buffer can be filled in.
  uint32_t word = load_word(cursor->cur) >> (s % kWordBits) << (s % kWordBits);
  word |= (value & msk[n]) << ((s - n) % kWordBits);
  store_word(cursor->cur, word);
  advance(cursor, n);
}

}  // namespace

KEL_BIT *KELBitOpen(const void *data, uint32_t size) {
  KEL_BIT *cursor = KEL_ALLOC(KEL_BIT);
  if (cursor == nullptr)
    return nullptr;
  // One cursor serves readers and writers; who writes has given writable bytes.
  cursor->cur = static_cast<uint8_t *>(const_cast<void *>(data));
  cursor->total_bits = size * 8;
  return cursor;
}

void KELBitClose(KEL_BIT *cursor) {
  KEL_Free(cursor, 0);
}

uint32_t KELBitGetBit(KEL_BIT *cursor, uint32_t n) {
  const uint32_t value = show(cursor, n);
  advance(cursor, n);
  return value;
}

uint32_t KELBitShow(const KEL_BIT *cursor, uint32_t n) {
  return show(cursor, n);
}

void KELBitFlush(KEL_BIT *cursor, uint32_t n) {
  advance(cursor, n);
}

uint32_t KELBitGetFast(KEL_BIT *cursor, uint32_t n) {
  const uint32_t first = cursor->cur[0];
  const uint32_t second = cursor->cur[1];
  const uint32_t window =
      ((first << cursor->bit_off) & 0xFF) | ((second << cursor->bit_off) >> 8);
  advance(cursor, n);
  return (window << n) >> 8;
}

uint32_t KELBitGet1Bit(KEL_BIT *cursor) {
  return get_bit(cursor);
}

void KELBitPutBit(KEL_BIT *cursor, uint32_t n, uint32_t value) {
  put(cursor, n, value);
}

void KELBitPutByte(KEL_BIT *cursor, int32_t count, const uint8_t *bytes) {
  for (int32_t i = 0; i < count; ++i)
    put(cursor, 8, bytes[i]);
}

KEL_BIT *KELBitBookmark(KEL_BIT *cursor, uint32_t set) {
  if (set != 0) {
    cursor->mark_cur = cursor->cur;
    cursor->mark_reserved = cursor->reserved;
    cursor->mark_bit_off = cursor->bit_off;
    cursor->mark_processed = cursor->processed;
    cursor->mark_set = 1;
  } else {
    cursor->cur = cursor->mark_cur;
    cursor->reserved = cursor->mark_reserved;
    cursor->bit_off = cursor->mark_bit_off;
    cursor->processed = cursor->mark_processed;
    cursor->mark_set = 0;
  }
  return cursor;
}

uint32_t KELBitGetProcessed(const KEL_BIT *cursor) {
  return cursor->processed;
}

uint32_t KELBitByteAlign(KEL_BIT *cursor) {
  uint32_t skipped = 0;
  while (cursor->bit_off != 0) {
    get_bit(cursor);
    ++skipped;
  }
  return skipped;
}

uint32_t KELBitCount(uint32_t value) {
  return static_cast<uint32_t>(std::popcount(value));
}
