/// @file
/// Checksums, and kel::hash_table<V>: small values by text.
///
///     auto pids = kel::hash_table<uint16_t>::create(32).value_or_throw();
///     pids.insert("video", 256).or_throw();
///     if (std::optional<uint16_t> pid = pids.find("video")) ...
///
/// The table takes no lock: threads that share one guard it. Nothing blocks.
///
/// Where it differs from the C calls:
///  - insert() refuses a key that is there; KEL_Hashmap_Hash makes a second entry.
///  - An entry that was stored where no lookup reaches is told as a failure.
///  - create() takes the number of entries, and makes the table large enough for them:
///    one that grows leaves copies of its keys behind.
///  - The table's end frees the copies of the keys.
#ifndef KELCORE_HPP_HASH_HPP
#define KELCORE_HPP_HASH_HPP

#include <cassert>
#include <cstdint>
#include <cstring>
#include <optional>
#include <type_traits>

#include "../kelcore_hash.h"
#include "owner.hpp"
#include "result.hpp"
#include "span.hpp"

namespace kel {

/// CRC-32 (reflected polynomial 0xEDB88320) of at most 2^32 - 1 bytes.
inline uint32_t crc32(bytes data) {
  assert(detail::countable(data.size()));
  return KEL_Hash_crc32(data.data(), static_cast<uint32_t>(data.size()));
}

/// The system's own 16-bit checksum, which no published variant equals.
inline uint16_t crc16(bytes data) {
  assert(detail::countable(data.size()));
  return static_cast<uint16_t>(KEL_Hash_crc16(data.data(), static_cast<uint32_t>(data.size())));
}

namespace detail {

inline void destroy_table(KEL_HASHMAP *table) {
  KEL_Hashmap_DestroyFull(table, nullptr);
}

}  // namespace detail

/// @tparam V  plain values of at most 8 bytes: numbers, enumerators, pointers.
template <class V>
class hash_table : public owner<KEL_HASHMAP, &detail::destroy_table> {
  static_assert(std::is_trivially_copyable_v<V> && sizeof(V) <= sizeof(uint64_t));

 public:
  using owner::owner;

  /// A table for `capacity` entries. Fails when memory is short, or for a capacity above
  /// 2^29.
  static result<hash_table> create(uint32_t capacity) {
    constexpr uint32_t kMostEntries = 1u << 29;
    if (capacity > kMostEntries)
      return std::errc::value_too_large;
    // Half of the slots can be used, and powers of two are looked up fastest.
    uint32_t slots = 16;
    while (slots / 2 < capacity)
      slots *= 2;
    return detail::owned<hash_table>(KEL_Hashmap_Create(slots, 0));
  }

  /// Stores `value` under a copy of `key`. Fails with std::errc::file_exists when the
  /// key is there, with std::errc::no_buffer_space when the table is full or every
  /// place that a lookup would reach is taken: with many colliding keys that comes
  /// before the capacity.
  [[nodiscard]] status insert(const char *key, V value) {
    if (key == nullptr)
      return std::errc::invalid_argument;
    if (find(key))
      return std::errc::file_exists;
    if (KEL_Hashmap_Hash(native_handle(), key, word(value)) < 0 || !find(key))
      return std::errc::no_buffer_space;
    return {};
  }

  /// Stores `value` under `key` whether it is there or not; fails as insert().
  [[nodiscard]] status assign(const char *key, V value) {
    if (key != nullptr && find(key))
      erase(key);
    return insert(key, value);
  }

  /// The value under `key`, if there is one.
  std::optional<V> find(const char *key) const {
    uint64_t stored = 0;
    if (KEL_Hashmap_Get(native_handle(), key, &stored) != 0)
      return std::nullopt;
    V value;
    std::memcpy(&value, &stored, sizeof value);
    return value;
  }

  /// Removes the entry of `key`; tells whether there was one.
  bool erase(const char *key) { return KEL_Hashmap_Del(native_handle(), key) == 0; }

  /// Removes every entry.
  void clear() { KEL_Hashmap_reset(native_handle()); }

  /// The entries that it holds.
  uint32_t size() const { return KEL_Hashmap_size(native_handle()); }

 private:
  static uint64_t word(const V &value) noexcept {
    uint64_t stored = 0;
    std::memcpy(&stored, &value, sizeof value);
    return stored;
  }
};

}  // namespace kel

#endif
