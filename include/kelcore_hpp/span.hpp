/// @file
/// kel::span: a view of items that lie in one piece, for C++17.
#ifndef KELCORE_HPP_SPAN_HPP
#define KELCORE_HPP_SPAN_HPP

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

namespace kel {

/// Items that somebody else owns: where they begin, and how many they are. Made
/// from arrays, from anything with data() and size(), and from pointer and count.
template <class T>
class span {
 public:
  using element_type = T;
  using value_type = std::remove_cv_t<T>;
  using size_type = std::size_t;
  using iterator = T *;

  constexpr span() noexcept = default;
  constexpr span(T *data, size_type size) noexcept : data_(data), size_(size) {}
  template <size_type N>
  constexpr span(T (&array)[N]) noexcept : data_(array), size_(N) {}
  /// From vectors, strings, arrays and spans of T or of what T only makes const.
  template <class Range,
            class Item = std::remove_pointer_t<decltype(std::declval<Range &>().data())>,
            class = decltype(std::declval<Range &>().size()),
            class = std::enable_if_t<
                std::is_convertible_v<Item (*)[], T (*)[]> &&
                !std::is_same_v<std::remove_cv_t<std::remove_reference_t<Range>>, span>>>
  constexpr span(Range &&range) noexcept : data_(range.data()), size_(range.size()) {}

  /// What std::span offers; indexes and counts are asserted to be within.
  constexpr T *data() const noexcept { return data_; }
  constexpr size_type size() const noexcept { return size_; }
  constexpr size_type size_bytes() const noexcept { return size_ * sizeof(T); }
  constexpr bool empty() const noexcept { return size_ == 0; }
  constexpr T *begin() const noexcept { return data_; }
  constexpr T *end() const noexcept { return data_ + size_; }
  constexpr T &operator[](size_type index) const noexcept {
    assert(index < size_);
    return data_[index];
  }
  constexpr span first(size_type count) const noexcept {
    assert(count <= size_);
    return {data_, count};
  }
  constexpr span last(size_type count) const noexcept {
    assert(count <= size_);
    return {data_ + (size_ - count), count};
  }
  constexpr span subspan(size_type offset) const noexcept {
    assert(offset <= size_);
    return {data_ + offset, size_ - offset};
  }

 private:
  T *data_ = nullptr;
  size_type size_ = 0;
};

/// What is read, and what may be written over.
using bytes = span<const uint8_t>;
using writable_bytes = span<uint8_t>;

/// The bytes of a plain object.
template <class T>
bytes bytes_of(const T &object) noexcept {
  static_assert(std::is_trivially_copyable_v<T>);
  return {reinterpret_cast<const uint8_t *>(&object), sizeof object};
}

namespace detail {

/// Whether the C calls, which count in 32 bits, can take it.
constexpr bool countable(std::size_t size) noexcept {
  return size <= std::numeric_limits<uint32_t>::max();
}

}  // namespace detail

}  // namespace kel

#endif
