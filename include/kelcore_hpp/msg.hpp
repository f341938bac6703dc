/// @file
/// kel::channel<M *>: messages between the threads of one process.
///
///     struct frame_ready : kel::message { frame *what; };
///     auto frames = kel::channel<frame_ready *>::create(16).value_or_throw();
///     frame_ready ready;
///     frames.send(&ready).or_throw();                  // any thread
///     if (auto got = frames.receive(1s)) use((*got)->what);
///
/// Only pointers travel: the receiver gets the very message that was sent. The
/// sender keeps it alive and unchanged until then, and the two sides agree who
/// releases it.
///
/// Where it differs from the C calls:
///  - Every receive brings a message or a failure. The first receives of a new C
///    channel come back empty-handed, as often as it has places: create() takes
///    those wake-ups itself.
///  - An endless receive goes on when a signal interrupts it.
///  - A receive with no_wait that finds nothing is a time-out (-1 from KEL_MsgReceive).
#ifndef KELCORE_HPP_MSG_HPP
#define KELCORE_HPP_MSG_HPP

#include <cstdint>
#include <type_traits>

#include "../kelcore_msg.h"
#include "owner.hpp"
#include "result.hpp"
#include "sema.hpp"
#include "span.hpp"
#include "timeout.hpp"

namespace kel {

/// What every message begins with: a word of the application's own, and bytes that
/// go with it (none at first). Derive a message from it to send more.
struct message : KEL_MSG_DESC {
  /// A message with that word, or 0, that carries nothing.
  constexpr message() noexcept : KEL_MSG_DESC{0, 0, nullptr} {}
  constexpr explicit message(uint32_t a_word) noexcept : KEL_MSG_DESC{a_word, 0, nullptr} {}

  /// Lets the message carry `bytes`, which stay the sender's and outlive it; no more
  /// than the channel's largest payload (and than 32 bits count).
  void carry(writable_bytes payload) noexcept {
    data = payload.empty() ? nullptr : payload.data();
    size = static_cast<uint32_t>(payload.size());
  }
  /// What it carries.
  writable_bytes payload() const noexcept { return {static_cast<uint8_t *>(data), size}; }
};

template <class Pointer>
class channel;

/// @tparam M  kel::message, or what is derived from it.
template <class M>
class channel<M *> : public owner<KEL_MSG, &KEL_MsgDestroy> {
  static_assert(std::is_base_of_v<message, M>, "a channel's messages derive from kel::message");

 public:
  using owner::owner;  // from a C handle: without what create() does

  /// A channel for at most `capacity` (at least 1) pending messages that carry at most
  /// `max_payload` bytes each. Takes capacity x max_payload bytes.
  static result<channel> create(uint32_t capacity, uint32_t max_payload = 0) {
    if (capacity == 0)
      return std::errc::invalid_argument;
    channel made(KEL_MsgCreate(0, capacity, max_payload));
    if (!made)
      return errc::out_of_memory;
    for (uint32_t unit = 0; unit < capacity; ++unit) {
      KEL_MSG_DESC *none = nullptr;
      KEL_MsgReceive(made.native_handle(), &none, 0);
    }
    return made;
  }

  /// Posts a message; never waits for room. Fails with std::errc::device_or_resource_busy
  /// when the channel is full, std::errc::invalid_argument for null or for too much
  /// payload. Any number of threads may send.
  [[nodiscard]] status send(M *what) { return status(KEL_MsgSend(native_handle(), what)); }

  /// Takes the oldest message, waiting at most `wait` for one. Fails with
  /// std::errc::timed_out, for no_wait at once; each failure is traced. Any number of
  /// threads may receive.
  result<M *> receive(timeout wait) {
    KEL_MSG_DESC *got = nullptr;
    const auto take = [&] { return KEL_MsgReceive(native_handle(), &got, wait.native()); };
    const status taken =
        wait.is_infinite() ? detail::wait_through_signals(take) : detail::waited(take(), wait);
    if (taken.code() == KEL_MSG_RECEIVED)
      return static_cast<M *>(got);
    // Woken for nothing; cannot be but on a channel that C code made.
    return taken.ok() ? status(std::errc::resource_unavailable_try_again) : taken;
  }
};

}  // namespace kel

#endif
