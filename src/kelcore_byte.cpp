// Byte reader: a cursor over the caller's bytes.

#include "kelcore_byte.h"

#include <stddef.h>
#include <string.h>

#include <bit>
#include <type_traits>

#include "internal/alloc.h"
#include "internal/trace.h"

KEL_TRACE_SOURCE("kelbyte", "kelcore_byte")

struct KEL_BYTE {
  const uint8_t *data;
  uint32_t size;
  uint32_t pos;
};

namespace {

static_assert(sizeof(KEL_BYTE) == 16);
static_assert(offsetof(KEL_BYTE, size) == 8 && offsetof(KEL_BYTE, pos) == 12);

enum class Move { kGet, kPeek };

void report(uint32_t *end, uint32_t value) {
  if (end != nullptr)
    *end = value;
}

bool at_end(const KEL_BYTE *reader, uint32_t *end) {
  const bool ended = reader->pos >= reader->size;
  report(end, ended ? 1 : 0);
  return ended;
}

// The value of `Width` bytes at any address, in either order. Written as one
// load and a swap, which compilers do not always make of single bytes.
template <typename T, std::endian Order, uint32_t Width = sizeof(T)>
T assemble(const uint8_t *bytes) {
  std::make_unsigned_t<T> value = 0;
  if constexpr (Width == sizeof(T)) {
    memcpy(&value, bytes, Width);
    if constexpr (Order != std::endian::native && Width == 2)
      value = __builtin_bswap16(value);
    else if constexpr (Order != std::endian::native && Width == 4)
      value = __builtin_bswap32(value);
    else if constexpr (Order != std::endian::native && Width == 8)
      value = __builtin_bswap64(value);
  } else {
    for (uint32_t i = 0; i < Width; ++i) {
      const uint32_t shift = 8 * (Order == std::endian::little ? i : Width - 1 - i);
      value |= static_cast<std::make_unsigned_t<T>>(bytes[i]) << shift;
    }
  }
  return static_cast<T>(value);
}

// Only the first byte is checked: one that straddles the end is assembled from
// what follows, for buffers with slack.
template <typename T, std::endian Order, Move M, uint32_t Width = sizeof(T)>
T read_integer(KEL_BYTE *reader, uint32_t *end) {
  const uint32_t pos = reader->pos;
  if (__builtin_expect(pos >= reader->size, 0)) {
    report(end, 1);
    return 0;
  }
  const T value = assemble<T, Order, Width>(reader->data + pos);
  // Before the flag is written: it might be thought to change the reader.
  if constexpr (M == Move::kGet)
    reader->pos = pos + Width;
  report(end, 0);
  return value;
}

// Byte after byte, which shows when the destination lies in the data itself.
void copy_forward(uint8_t *to, const uint8_t *from, uint32_t count) {
  if (to <= from || to >= from + count) {
    memmove(to, from, count);
    return;
  }
  for (uint32_t i = 0; i < count; ++i)
    to[i] = from[i];
}

// Copies what there is; the position ends at the end when that is too little.
void *copy(KEL_BYTE *reader, void *to, uint32_t count, uint32_t *end) {
  if (at_end(reader, end))
    return nullptr;
  const uint32_t left = reader->size - reader->pos;
  const bool enough = count <= left;
  const uint32_t taken = enough ? count : left;
  copy_forward(static_cast<uint8_t *>(to), reader->data + reader->pos, taken);
  reader->pos += taken;
  if (!enough) {
    report(end, 1);
    return nullptr;
  }
  return to;
}

// A peek that fails has moved to the end like a read.
void *copy_back(KEL_BYTE *reader, void *to, uint32_t count, uint32_t *end) {
  void *copied = copy(reader, to, count, end);
  if (copied != nullptr)
    reader->pos -= count;
  return copied;
}

}  // namespace

KEL_BYTE *KELByte_Open(const void *data, uint32_t size) {
  KEL_BYTE *reader = KEL_ALLOC(KEL_BYTE);
  if (reader != nullptr)
    *reader = {static_cast<const uint8_t *>(data), size, 0};
  return reader;
}

void KELByte_Close(KEL_BYTE *reader) {
  KEL_Free(reader, 0);
}

uint32_t KELByte_Remain(const KEL_BYTE *reader) {
  return reader->size - reader->pos;
}
uint32_t KELByte_Size(const KEL_BYTE *reader) {
  return reader->size;
}
uint32_t KELByte_Pos(const KEL_BYTE *reader) {
  return reader->pos;
}

uint32_t KELByte_Skip(KEL_BYTE *reader, uint32_t count, uint32_t *end) {
  if (uint64_t{reader->pos} + count >= reader->size) {
    reader->pos = reader->size;
    *end = 1;
    return 0;
  }
  *end = 0;
  return reader->pos += count;
}

void *KELByte_Get_3char(KEL_BYTE *reader, void *to, uint32_t *end) {
  return copy(reader, to, 3, end);
}

// Consumes its bytes, unlike the 4-byte one: parsers rely on it.
void *KELByte_Peek_3char(KEL_BYTE *reader, void *to, uint32_t *end) {
  return copy(reader, to, 3, end);
}

void *KELByte_Get_4char(KEL_BYTE *reader, void *to, uint32_t *end) {
  return copy(reader, to, 4, end);
}

void *KELByte_Peek_4char(KEL_BYTE *reader, void *to, uint32_t *end) {
  return copy_back(reader, to, 4, end);
}

void *KELByte_Get_string(KEL_BYTE *reader, void *to, uint32_t count, uint32_t *end) {
  return count == 0 ? to : copy(reader, to, count, end);
}

void *KELByte_Peek_string(KEL_BYTE *reader, void *to, uint32_t count, uint32_t *end) {
  return count == 0 ? to : copy_back(reader, to, count, end);
}

uint32_t KELByte_Get_char(KEL_BYTE *reader, uint32_t *end) {
  return read_integer<uint8_t, std::endian::big, Move::kGet>(reader, end);
}

uint32_t KELByte_Peek_char(KEL_BYTE *reader, uint32_t *end) {
  return read_integer<uint8_t, std::endian::big, Move::kPeek>(reader, end);
}

uint32_t KELByte_Get_3char_be_uint32(KEL_BYTE *reader, uint32_t *end) {
  return read_integer<uint32_t, std::endian::big, Move::kGet, 3>(reader, end);
}

// The doors of the integer family: result type, name, and the type read.
#define DOOR(move, order, from, result, name, type)                           \
  result KELByte_##move##_##order##_##name(KEL_BYTE *reader, uint32_t *end) { \
    return read_integer<type, std::endian::from, Move::k##move>(reader, end); \
  }
#define DOORS(result, name, type)            \
  DOOR(Get, le, little, result, name, type)  \
  DOOR(Peek, le, little, result, name, type) \
  DOOR(Get, be, big, result, name, type)     \
  DOOR(Peek, be, big, result, name, type)

DOORS(int32_t, int16, int16_t)
DOORS(uint32_t, uint16, uint16_t)
DOORS(int32_t, int32, int32_t)
DOORS(uint32_t, uint32, uint32_t)
DOORS(int64_t, int64, int64_t)
DOORS(uint64_t, uint64, uint64_t)
