/// @file
/// kel::media_pool and kel::media_reader: frames in one area, one writer, many readers.
///
///     auto pool = kel::media_pool::create({1 << 20, 1 << 16, 64}).value_or_throw();
///     auto reader = pool.attach().value_or_throw();        // one for each reader
///
///     if (auto room = pool.offer()) {                      // where to write
///       room->size = fill(room->data, room->room);
///       pool.commit(*room).or_throw();
///     }
///     if (auto frame = reader.next()) {                    // the reader's next frame
///       use(frame->contents());
///       reader.done();
///     }
///
/// A frame's place is used again once every reader that was attached when it was
/// committed is done with it. The writer's thread offers, commits and attaches; each
/// reader has a thread of its own. The pool outlives its readers. Locks are taken
/// without a time limit, and held briefly; the pool's user lock (KELBuf_LockEnter) is
/// taken by these classes.
///
/// Where it differs from the C calls:
///  - The writer does not read: its own handle is done with each frame at once.
///  - A pool of n frames holds n; a reader that is n behind sees them. (To the C calls
///    such a reader has read all.)
///  - A frame may fill its room. (Where such frames meet in the area, the C calls take it
///    for free, and overwrite what is unread.) An area of n times the room holds n - 1 of
///    them.
///  - A reader starts with the first frame that is committed after it was attached, and
///    is done with all others when it ends, so that none waits for it.
///  - Frames are read in their order. KELBuf_FindRBuf jumps, and what it jumps over
///    nobody is ever done with.
#ifndef KELCORE_HPP_BUFFER_HPP
#define KELCORE_HPP_BUFFER_HPP

#include <cerrno>
#include <cstdint>
#include <utility>

#include "../kelcore_buffer.h"
#include "owner.hpp"
#include "result.hpp"
#include "span.hpp"

namespace kel {

/// How large a pool is. The first three amounts are not 0.
struct media_options {
  uint32_t area_bytes = 0;  ///< all frames together
  uint32_t frame_room = 0;  ///< bytes offered for each
  uint32_t frames = 0;      ///< most frames held at once
  uint32_t align = 0;       ///< of frame sizes; 0 is 1
  uint32_t index = 0;       ///< stream index
  uint32_t media = 0;       ///< 1, 2 and 3 are in the usage table
};

/// A frame: what to write, or what was read. `data` and `size`; `room` when writing;
/// `time_stamp`; `second`, `value` and `further` are the application's.
struct media_frame : KEL_BUF_DESC {
  constexpr media_frame() noexcept : KEL_BUF_DESC{} {}

  /// Where to write, and what was read.
  writable_bytes writable() const noexcept { return {static_cast<uint8_t *>(data), room}; }
  bytes contents() const noexcept { return {static_cast<const uint8_t *>(data), size}; }
};

namespace detail {

class media_guard {
 public:
  explicit media_guard(KEL_BUF *pool) : pool_(pool) { KELBuf_LockEnter(pool_); }
  ~media_guard() { KELBuf_LockLeave(pool_); }
  media_guard(const media_guard &) = delete;
  media_guard &operator=(const media_guard &) = delete;

 private:
  KEL_BUF *pool_;
};

}  // namespace detail

/// One reader of a pool. Used by one thread at a time.
class media_reader : public owner<KEL_BUF, &KELBuf_Destroy> {
 public:
  media_reader() noexcept = default;
  /// Takes over a handle of the pool that `writer` is the first handle of.
  media_reader(KEL_BUF *handle, KEL_BUF *writer) noexcept : owner(handle), writer_(writer) {}
  media_reader(media_reader &&) noexcept = default;
  media_reader &operator=(media_reader &&other) noexcept {
    if (this != &other) {
      detach();
      writer_ = other.writer_;
      owner::operator=(std::move(other));
    }
    return *this;
  }
  ~media_reader() { detach(); }

  /// The next frame, which stays until done(). Fails with
  /// std::errc::resource_unavailable_try_again when all are read.
  result<media_frame> next() {
    media_frame frame;
    const status outcome(KELBuf_GetRBuf(native_handle(), &frame));
    if (outcome)
      return frame;
    return outcome.code() == -ENOTTY ? status(std::errc::resource_unavailable_try_again)
                                     : outcome;
  }

  /// Is done with the next frame.
  status done() { return status(KELBuf_DelRBuf(native_handle(), nullptr)); }

  /// Is done with everything, and with the pool.
  void detach() noexcept {
    if (!*this)
      return;
    // The writer waits: a frame that it commits in between would count this reader.
    const detail::media_guard hold(writer_);
    while (done().ok()) {
    }
    reset();
  }

 private:
  KEL_BUF *writer_ = nullptr;
};

/// The pool and its writer.
class media_pool : public owner<KEL_BUF, &KELBuf_Destroy> {
 public:
  media_pool() noexcept = default;

  /// Fails with std::errc::invalid_argument when an amount is 0 or the room more than the
  /// area has, else when memory is short.
  static result<media_pool> create(const media_options &options) {
    if (options.area_bytes == 0 || options.frame_room == 0 || options.frames == 0 ||
        options.frames == UINT32_MAX || options.frame_room > options.area_bytes)
      return std::errc::invalid_argument;
    const uint32_t step = options.align != 0 ? options.align : 1;
    const uint64_t room = (uint64_t{options.frame_room} + step - 1) / step * step;
    if (room >= UINT32_MAX)
      return std::errc::invalid_argument;
    KEL_BUF_PARAM param{};
    param.bufsize = options.area_bytes;
    param.minsize = static_cast<uint32_t>(room + 1);  // which no frame has
    param.number = options.frames + 1;                // so that a full pool does not look read
    param.align = options.align;
    param.index = options.index;
    param.media = options.media;
    media_pool made;
    made.reset(KELBuf_Create(&param, nullptr));
    if (!made)
      return errc::out_of_memory;
    made.frames_ = options.frames;
    made.frame_room_ = options.frame_room;
    return made;
  }

  /// Another reader.
  result<media_reader> attach() {
    const KEL_BUF_PARAM unused{};
    const detail::media_guard hold(native_handle());
    media_reader made(KELBuf_Create(&unused, native_handle()), native_handle());
    if (!made)
      return errc::out_of_memory;
    return made;
  }

  /// Where the next frame may be written: data and room. Fails with
  /// std::errc::no_space_on_device until readers are done with older ones.
  result<media_frame> offer() {
    if (held() >= frames_)
      return std::errc::no_space_on_device;
    media_frame frame;
    const status offered(KELBuf_GetWBuf(native_handle(), &frame));
    if (!offered)
      return offered;
    frame.room = frame_room_;
    return frame;
  }

  /// Commits the frame that was offered last, its size being set (1 to room). Without
  /// a reader it is gone at once.
  [[nodiscard]] status commit(const media_frame &frame) {
    const detail::media_guard hold(native_handle());
    const status committed(KELBuf_FillWBuf(native_handle(), &frame));
    if (committed)
      KELBuf_DelRBuf(native_handle(), &frame);
    return committed;
  }

  /// Frames that some reader is not done with.
  uint32_t held() const {
    KEL_BUF_STATUS now{};
    KELBuf_BufStatus(native_handle(), &now);
    return now.filled;
  }

 private:
  uint32_t frames_ = 0;
  uint32_t frame_room_ = 0;
};

}  // namespace kel

#endif
