/// @file
/// kel::bit_reader and kel::bit_writer: fields of bits, most significant first, as the
/// syntaxes of media codecs need them.
///
///     auto b = kel::bit_reader::open(padded).value_or_throw();   // 3 bytes of slack
///     uint32_t profile = b.get(8);                               // fast, unchecked
///     kel::result<uint32_t> level = b.try_get(8);                // checked
///
/// The C calls touch up to 3 bytes behind the last one. Here the slack is part of what
/// is handed in: the last three bytes are never data. Nothing blocks or traces; one
/// thread uses a cursor at a time.
///
/// Where it differs from the C calls: try_get() and bits_left() know where the data
/// ends; a writer zeroes its bytes, over which KELBitPutBit only sets bits.
#ifndef KELCORE_HPP_BIT_HPP
#define KELCORE_HPP_BIT_HPP

#include <cassert>
#include <cstdint>
#include <cstring>

#include "../kelcore_bit.h"
#include "owner.hpp"
#include "result.hpp"
#include "span.hpp"

namespace kel {

/// Bytes behind the data that a cursor may touch.
inline constexpr uint32_t bit_slack = 3;

/// What reader and writer share: a cursor that knows its end.
class bit_cursor : public owner<KEL_BIT, &KELBitClose> {
 public:
  /// Bits read, skipped and written so far, which unchecked calls may carry behind the
  /// end, and those that are left.
  uint32_t position() const { return KELBitGetProcessed(native_handle()); }
  uint32_t bits_left() const {
    const uint32_t processed = position();
    return processed < size_ ? size_ - processed : 0;
  }

  /// Moves on to the next byte boundary; gives the bits skipped, 0 to 7.
  uint32_t align() { return KELBitByteAlign(native_handle()); }

 protected:
  constexpr bit_cursor() noexcept = default;
  bit_cursor(KEL_BIT *cursor, uint32_t bits) noexcept : owner(cursor), size_(bits) {}

  template <class Cursor>
  static result<Cursor> over(const void *data, std::size_t padded) {
    constexpr uint32_t kMostBytes = UINT32_MAX / 8;
    if (padded < bit_slack || padded - bit_slack > kMostBytes)
      return std::errc::invalid_argument;
    const auto size = static_cast<uint32_t>(padded - bit_slack);
    Cursor made(KELBitOpen(data, size), size * 8);
    if (!made)
      return errc::out_of_memory;
    return made;
  }

 private:
  uint32_t size_ = 0;
};

class bit_reader : public bit_cursor {
 public:
  constexpr bit_reader() noexcept = default;
  /// Takes over a C cursor over `bits` bits.
  bit_reader(KEL_BIT *cursor, uint32_t bits) noexcept : bit_cursor(cursor, bits) {}

  /// A reader at the first bit of `padded`, whose last bit_slack bytes are not data. It
  /// stays the caller's and outlives the reader.
  static result<bit_reader> open(bytes padded) {
    return over<bit_reader>(padded.data(), padded.size());
  }

  /// The next `n` bits, 1 to 25. Unchecked, as the C call.
  uint32_t get(uint32_t n) { return KELBitGetBit(native_handle(), n); }
  uint32_t get_bit() { return KELBitGet1Bit(native_handle()); }

  /// As get(); the position stays.
  uint32_t show(uint32_t n) const { return KELBitShow(native_handle(), n); }

  /// The next `n` bits, 1 to 32; errc::end_of_data, the position staying, when there
  /// are fewer.
  result<uint32_t> try_get(uint32_t n) {
    constexpr uint32_t kAlwaysFit = 25;
    assert(n >= 1 && n <= 32);
    if (n > bits_left())
      return errc::end_of_data;
    if (n <= kAlwaysFit)
      return get(n);
    const uint32_t high = get(16);
    return high << (n - 16) | get(n - 16);
  }

  /// Skips `n` bits. Unchecked, as the C call.
  void skip(uint32_t n) { KELBitFlush(native_handle(), n); }

  /// Remembers the position, one at a time; goes back to it, as often as wanted.
  void mark() { KELBitBookmark(native_handle(), 1); }
  void back_to_mark() { KELBitBookmark(native_handle(), 0); }
};

class bit_writer : public bit_cursor {
 public:
  constexpr bit_writer() noexcept = default;
  /// Takes over a C cursor over `bits` bits, which are zero.
  bit_writer(KEL_BIT *cursor, uint32_t bits) noexcept : bit_cursor(cursor, bits) {}

  /// A writer at the first bit of `padded`, whose last bit_slack bytes are not for data.
  /// All of it is set to zero.
  static result<bit_writer> open(writable_bytes padded) {
    if (!padded.empty())
      std::memset(padded.data(), 0, padded.size());
    return over<bit_writer>(padded.data(), padded.size());
  }

  /// Writes the low `n` bits, 1 to 25, of `value`. Unchecked, as the C call.
  void put(uint32_t n, uint32_t value) { KELBitPutBit(native_handle(), n, value); }

  /// As put(); errc::buffer_overflow, nothing being written, when there is no room.
  [[nodiscard]] status try_put(uint32_t n, uint32_t value) {
    if (n > bits_left())
      return errc::buffer_overflow;
    put(n, value);
    return {};
  }
};

}  // namespace kel

#endif
