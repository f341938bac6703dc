/// @file
/// kel::ring: a byte stream that parsers read in place.
///
///     auto ring = kel::ring::create(65536).value_or_throw();
///     kel::writable_bytes to = ring.writable();
///     ssize_t got = read(fd, to.data(), to.size());
///     if (got > 0) ring.commit(got);
///     ring.consume(parse(ring.readable()));
///
/// Unread data lies in one piece. No lock: one thread, or a lock of the caller's.
/// Nothing blocks.
///
/// Where it differs from the C calls: writable() offers what there is room for;
/// KELRing_GetWBuf offers the whole size whatever is held.
#ifndef KELCORE_HPP_RING_HPP
#define KELCORE_HPP_RING_HPP

#include <cassert>
#include <cstdint>

#include "../kelcore_ring.h"
#include "owner.hpp"
#include "result.hpp"
#include "span.hpp"

namespace kel {

class ring : public owner<KEL_RING, &KELRing_Destroy> {
 public:
  using owner::owner;

  /// An empty ring for `size` bytes; twice as many are taken. Fails when memory is
  /// short.
  static result<ring> create(uint32_t size) {
    return detail::owned<ring>(KELRing_Create(size));
  }

  /// Where the next bytes go, as many as there is room for. Valid until consume().
  writable_bytes writable() {
    uint32_t held;
    uint32_t size;
    static_cast<void>(KELRing_GetRBuf(native_handle(), &held));
    uint8_t *to = KELRing_GetWBuf(native_handle(), &size);
    return {to, size - held};
  }

  /// Tells that the first `count` bytes of writable() were written. Returns the unread
  /// bytes.
  uint32_t commit(uint32_t count) {
    return KELRing_FillWBuf(native_handle(), static_cast<int32_t>(count));
  }

  /// All unread bytes. Valid until consume().
  writable_bytes readable() {
    uint32_t held;
    uint8_t *from = KELRing_GetRBuf(native_handle(), &held);
    return {from, held};
  }

  /// Tells that the first `count` bytes of readable() are done with; no more than those.
  /// Returns what is left.
  uint32_t consume(uint32_t count) { return KELRing_DelRBuf(native_handle(), count); }

  /// Forgets what is unread.
  void clear() { KELRing_Reset(native_handle()); }
};

}  // namespace kel

#endif
