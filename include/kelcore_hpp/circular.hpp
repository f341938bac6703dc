/// @file
/// kel::circular: a copying byte FIFO of fixed capacity.
///
///     auto fifo = kel::circular::create(1024).value_or_throw();
///     if (fifo.push(packet)) ...
///     if (fifo.pop(packet)) ...
///
/// Push and pop move all bytes or none. No lock; nothing blocks.
#ifndef KELCORE_HPP_CIRCULAR_HPP
#define KELCORE_HPP_CIRCULAR_HPP

#include <cstdint>

#include "../kelcore_circular.h"
#include "owner.hpp"
#include "result.hpp"
#include "span.hpp"

namespace kel {

class circular : public owner<KEL_CIRCULAR, &KELCircular_Destroy> {
 public:
  using owner::owner;

  /// An empty buffer for `size` bytes. Fails when memory is short.
  static result<circular> create(uint32_t size) {
    return detail::owned<circular>(KELCircular_Create(size));
  }

  /// Appends all of `from`, or fails when it does not fit.
  [[nodiscard]] status push(bytes from) {
    if (!detail::countable(from.size()))
      return std::errc::no_buffer_space;
    return status(
        KELCircular_Push(native_handle(), from.data(), static_cast<uint32_t>(from.size())));
  }

  /// Fills all of `to` with the oldest bytes, or fails when there are fewer.
  [[nodiscard]] status pop(writable_bytes to) {
    if (!detail::countable(to.size()))
      return errc::end_of_data;
    return status(
        KELCircular_Pop(native_handle(), to.data(), static_cast<uint32_t>(to.size())));
  }
};

}  // namespace kel

#endif
