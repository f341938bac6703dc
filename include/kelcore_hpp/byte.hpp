/// @file
/// kel::byte_reader: a cursor over bytes, for parsing binary headers.
///
///     auto r = kel::byte_reader::open(bytes).value_or_throw();
///     kel::result<uint32_t> tag = r.get_be<uint32_t>();
///     if (!tag) ...                       // fewer than four bytes are left
///
/// Nothing is copied or owned, nothing is traced or blocks; one thread uses a
/// reader at a time.
///
/// Where it differs from the C calls:
///  - No read goes behind the end, and one that fails leaves the position where it
///    is. The C calls look at an integer's first byte only, and a failed copy
///    consumes what there was.
///  - skip() to exactly the end succeeds; KELByte_Skip flags the end then.
///  - No peek moves the position; KELByte_Peek_3char does.
///  - A reader that an unchecked read has carried behind the end has nothing left, and
///    every checked call says so. KELByte_Remain wraps around then.
/// The _unchecked reads are the C calls as they are, for loops that have asked
/// remaining() once.
#ifndef KELCORE_HPP_BYTE_HPP
#define KELCORE_HPP_BYTE_HPP

#include <cstdint>
#include <type_traits>

#include "../kelcore_byte.h"
#include "owner.hpp"
#include "result.hpp"
#include "span.hpp"

namespace kel {

namespace detail {

/// The C reader of an integer type: which call for which width, sign and order.
template <class T>
struct byte_calls;

#define KEL_HPP_BYTE_CALLS(type, name)                                                         \
  template <>                                                                                  \
  struct byte_calls<type> {                                                                    \
    static auto get_le(KEL_BYTE *r, uint32_t *end) { return KELByte_Get_le_##name(r, end); }   \
    static auto get_be(KEL_BYTE *r, uint32_t *end) { return KELByte_Get_be_##name(r, end); }   \
    static auto peek_le(KEL_BYTE *r, uint32_t *end) { return KELByte_Peek_le_##name(r, end); } \
    static auto peek_be(KEL_BYTE *r, uint32_t *end) { return KELByte_Peek_be_##name(r, end); } \
  }
KEL_HPP_BYTE_CALLS(int16_t, int16);
KEL_HPP_BYTE_CALLS(uint16_t, uint16);
KEL_HPP_BYTE_CALLS(int32_t, int32);
KEL_HPP_BYTE_CALLS(uint32_t, uint32);
KEL_HPP_BYTE_CALLS(int64_t, int64);
KEL_HPP_BYTE_CALLS(uint64_t, uint64);
#undef KEL_HPP_BYTE_CALLS

}  // namespace detail

class byte_reader : public owner<KEL_BYTE, &KELByte_Close> {
 public:
  using owner::owner;

  /// A reader at the first of `data`, which stays the caller's and outlives it. Fails
  /// when memory is short, or for more than 32 bits can count.
  static result<byte_reader> open(bytes data) {
    if (!detail::countable(data.size()))
      return std::errc::value_too_large;
    return detail::owned<byte_reader>(
        KELByte_Open(data.data(), static_cast<uint32_t>(data.size())));
  }

  /// Bytes not yet read, all bytes, and the index of the next one, which may lie behind
  /// the end after an unchecked read.
  uint32_t remaining() const {
    const uint32_t left = KELByte_Remain(native_handle());
    return left <= size() ? left : 0;
  }
  uint32_t size() const { return KELByte_Size(native_handle()); }
  uint32_t position() const { return KELByte_Pos(native_handle()); }

  /// The next byte; `end` becomes true at the end of the data, where it is 0. A single
  /// byte cannot straddle the end: the C call as it is.
  uint8_t get_byte(uint32_t &end) {
    return static_cast<uint8_t>(KELByte_Get_char(native_handle(), &end));
  }
  uint8_t peek_byte(uint32_t &end) const {
    return static_cast<uint8_t>(KELByte_Peek_char(native_handle(), &end));
  }

  /// The next integer of 16, 32 or 64 bits, most (be) or least (le) significant byte
  /// first. Fails with errc::end_of_data when fewer bytes are left.
  template <class T>
  result<T> get_be() {
    return checked<T>(detail::byte_calls<T>::get_be);
  }
  template <class T>
  result<T> get_le() {
    return checked<T>(detail::byte_calls<T>::get_le);
  }

  /// As get_be and get_le; the position stays.
  template <class T>
  result<T> peek_be() const {
    return checked<T>(detail::byte_calls<T>::peek_be);
  }
  template <class T>
  result<T> peek_le() const {
    return checked<T>(detail::byte_calls<T>::peek_le);
  }

  /// The C calls: `end` tells only whether the first byte was there, so the data needs
  /// 7 bytes of slack, or remaining() has been asked.
  template <class T>
  T get_be_unchecked(uint32_t &end) {
    return static_cast<T>(detail::byte_calls<T>::get_be(native_handle(), &end));
  }
  template <class T>
  T get_le_unchecked(uint32_t &end) {
    return static_cast<T>(detail::byte_calls<T>::get_le(native_handle(), &end));
  }

  /// The next 3 bytes as a number, first byte highest.
  result<uint32_t> get_be24() {
    if (remaining() < 3)
      return errc::end_of_data;
    uint32_t end = 0;
    return KELByte_Get_3char_be_uint32(native_handle(), &end);
  }

  /// Fills `to` with the next bytes: all of it, or, with errc::end_of_data, nothing.
  [[nodiscard]] status get(writable_bytes to) { return copied(to, KELByte_Get_string); }
  /// As get(); the position stays.
  [[nodiscard]] status peek(writable_bytes to) const { return copied(to, KELByte_Peek_string); }

  /// Moves on by `count` bytes, up to the very end; not at all, with
  /// errc::end_of_data, when there are fewer.
  [[nodiscard]] status skip(uint32_t count) {
    if (count > remaining())
      return errc::end_of_data;
    uint32_t end = 0;
    if (count != 0)  // KELByte_Skip would go back to the end from behind it
      KELByte_Skip(native_handle(), count, &end);
    return {};
  }

 private:
  template <class T, class Call>
  result<T> checked(Call call) const {
    if (__builtin_expect(KELByte_Remain(native_handle()) < sizeof(T), 0))
      return errc::end_of_data;
    // Behind the end what remains has wrapped around, but the call sees it.
    uint32_t end = 0;
    const auto value = static_cast<T>(call(native_handle(), &end));
    if (__builtin_expect(end != 0, 0))
      return errc::end_of_data;
    return value;
  }

  template <class Call>
  status copied(writable_bytes to, Call call) const {
    if (to.size() > remaining())
      return errc::end_of_data;
    uint32_t end = 0;
    call(native_handle(), to.data(), static_cast<uint32_t>(to.size()), &end);
    return {};
  }
};

}  // namespace kel

#endif
