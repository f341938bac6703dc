/// @file
/// kel::ipc<P> and kel::ipc_blocks: messages between processes.
///
///     struct command { int32_t what; char name[24]; };
///     auto in = kel::ipc<command>::open("/player", 8).value_or_throw();
///     in.send(1, {2, "pause"}, 100ms).or_throw();              // this process
///     if (auto got = in.receive(5s)) use(got->payload);        // another one
///
/// Queues belong to the system, which limits their number, depth and message size:
/// they stay until remove(). Names begin with '/'. Safe from any thread. Failures of a
/// send, and of a receive other than a time-out, are traced.
///
/// Where it differs from the C calls:
///  - Time-outs may be of any length; those of the C calls wrap around above 4294 ms.
///    no_wait waits for a millisecond: the C calls have no other word for it.
///  - A failure has its reason; KEL_IPCSend has one number for all.
///  - A message of another length than P's is refused.
///  - The handle's message buffer goes with the handle; KEL_IPCClose leaves it.
#ifndef KELCORE_HPP_IPC_HPP
#define KELCORE_HPP_IPC_HPP

#include <mqueue.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "../kelcore_ipc.h"
#include "../kelcore_mem.h"
#include "owner.hpp"
#include "result.hpp"
#include "span.hpp"
#include "timeout.hpp"

namespace kel {

/// A message between processes: the header that all have, and the payload.
template <class P>
struct ipc_message {
  KEL_IPC_MSG_HEADER header;  ///< the word, and the length of the payload
  P payload;                  ///< what the sender wrote
};

/// Removes the queue of that name from the system; who has it open keeps it.
inline status remove_ipc(const char *name) {
  return mq_unlink(name) == 0 ? status() : status(-errno);
}

namespace detail {

inline void close_ipc(KEL_IPC *ipc) {
  void *message = KEL_IPCGetMsg(ipc, nullptr);
  KEL_IPCClose(ipc);
  KEL_Free(message, 0);
}

/// Calls `attempt(milliseconds)`, which gives an errno value or 0, until it does not
/// time out or the limit is reached.
template <class Attempt>
status in_slices(timeout limit, Attempt &&attempt) {
  constexpr uint32_t kNoLimit = 0;  // to the C calls, on a handle that may block
  constexpr uint32_t kShortest = 1;
  constexpr uint32_t kLongest = 4000;  // above 4294 they wrap around
  if (limit.is_infinite())
    return status(-attempt(kNoLimit));
  const countdown countdown(limit);
  for (;;) {
    const uint32_t left = countdown.left().native();
    const uint32_t slice = left < kShortest ? kShortest : left < kLongest ? left : kLongest;
    const int32_t error = attempt(slice);
    if (error != ETIMEDOUT || countdown.left().native() == 0)
      return status(-error);
  }
}

}  // namespace detail

/// @tparam P  the payload: plain data, the same in all processes that use the queue.
template <class P>
class ipc : public owner<KEL_IPC, &detail::close_ipc> {
  static_assert(std::is_trivially_copyable_v<P>, "a payload is copied as bytes");
  static_assert(alignof(P) <= alignof(KEL_IPC_MSG_HEADER),
                "a payload stands right behind the header");

 public:
  using owner::owner;  // from a handle that may block, for messages of P's size

  /// Opens the queue, or makes it for `depth` messages.
  static result<ipc> open(const char *name, int32_t depth) {
    return detail::opened<ipc>([&] { return KEL_IPCOpen(name, depth, int32_t{sizeof(P)}, 0); });
  }

  /// Sends a message with that word, waiting at most `wait` for room. Of those that wait
  /// to be received the ones of the highest priority come first.
  [[nodiscard]] status send(uint32_t word, const P &payload, timeout wait,
                            uint32_t priority = 0) {
    ipc_message<P> message{};
    message.header = {word, int32_t{sizeof(P)}, 0};
    message.payload = payload;
    return detail::in_slices(wait, [&](uint32_t ms) -> int32_t {
      errno = 0;
      if (KEL_IPCSend(this->native_handle(), &message, priority, ms) == 0)
        return 0;
      return errno != 0 ? errno : EINVAL;
    });
  }

  /// Receives a message, waiting at most `wait`. Fails with std::errc::timed_out, or
  /// with std::errc::bad_message for one of another length.
  result<ipc_message<P>> receive(timeout wait) {
    ipc_message<P> message{};
    const status received = detail::in_slices(wait, [&](uint32_t ms) -> int32_t {
      errno = 0;
      const int32_t outcome = KEL_IPCReceive(this->native_handle(), &message, ms);
      if (outcome == 0 || outcome < -1)
        return -outcome;
      return errno != 0 ? errno : EIO;
    });
    if (!received)
      return received;
    if (message.header.length != int32_t{sizeof(P)})
      return std::errc::bad_message;
    return message;
  }
};

/// Raw blocks, without header, lock or priority.
class ipc_blocks : public owner<KEL_IPC_MSG, &KEL_IPC_MsgClose> {
 public:
  using owner::owner;

  /// Opens the queue, or makes it for `depth` blocks of at most `max_size` bytes.
  static result<ipc_blocks> open(const char *name, uint32_t depth, uint32_t max_size) {
    return detail::opened<ipc_blocks>(
        [&] { return KEL_IPC_MsgOpen(name, depth, max_size, 1); });
  }

  /// The largest block in bytes.
  uint32_t max_size() const { return KEL_IPC_MsgGetMaxSize(native_handle()); }

  /// Sends a block, waiting for room without limit.
  [[nodiscard]] status send(bytes block) {
    if (block.size() > max_size())
      return std::errc::message_size;
    const uint8_t nothing = 0;  // an empty block, too, has to lie somewhere
    const uint8_t *data = block.empty() ? &nothing : block.data();
    errno = 0;
    if (KEL_IPC_MsgSend(native_handle(), data, static_cast<uint32_t>(block.size())) == 0)
      return {};
    return errno != 0 ? status(-errno) : status(errc::fail);
  }

  /// Receives a block into `to`, which has room for max_size() bytes; gives its length.
  /// Waits at most `wait`.
  result<uint32_t> receive(writable_bytes to, timeout wait) {
    if (to.size() < max_size())
      return std::errc::no_buffer_space;
    const uint32_t ms = wait.native();
    const int32_t limit = wait.is_infinite() ? 0 : ms == 0 ? 1 : static_cast<int32_t>(ms);
    errno = 0;
    const int32_t length = KEL_IPC_MsgRecv(native_handle(), to.data(), max_size(), limit);
    if (length < 0)
      return std::errc::invalid_argument;
    // An empty block and a failure are the same 0.
    if (length == 0 && errno != 0)
      return status(-errno);
    return static_cast<uint32_t>(length);
  }
};

}  // namespace kel

#endif
