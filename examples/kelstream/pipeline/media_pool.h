// The way from the parser to those who read what it found: a media buffer pool
// with one writer and two reader handles, and a message channel to wake each
// reader. Records and frames are all there are, so neither channel nor pool can
// ever be full, and memory is fixed however large a file is.
//
// Frames are small and come by the hundred thousand. Waking another thread for
// each would cost several times the work that it does with it, so both sides
// hand on batches: messages are sent one by one, and announced by one event for
// many.
#pragma once

#include <kelcore_buffer.h>
#include <kelcore_event.h>
#include <kelcore_msg.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "messages.h"

namespace kelstream {

// Who reads the frames.
enum class Consumer : uint8_t { kDigest, kStatistics };

class MediaPool {
 public:
  MediaPool();
  MediaPool(const MediaPool &) = delete;
  MediaPool &operator=(const MediaPool &) = delete;

  // False when the system had not the means; nothing else may be called then.
  bool ok() const { return ok_; }

  // The most bytes of one frame.
  static constexpr uint32_t kMaxFrame = 16 * 1024;

  // The producer's side. An empty message, waiting until there is one.
  Message &Begin();
  // Sends it, with a copy of these bytes if there are any. It may be a while
  // until the readers look, unless Flush is called.
  void Send(Message &message, const uint8_t *data, size_t size);
  void Flush();

  // A reader's side. The oldest message not received, waiting until there is
  // one; null when a signal ended the wait.
  const Message *Receive(Consumer consumer);
  // Receive would wait.
  bool Drained(Consumer consumer) const;
  // Is done with the oldest message received and not yet released, and its
  // frame.
  void Release(Consumer consumer, const Message &message);

 private:
  static constexpr uint32_t kMessages = 256;
  // While the producer fills one batch the other is free or on its way back:
  // it never waits for messages that only its own announcement would free.
  static constexpr uint32_t kBatch = kMessages / 4;
  static constexpr size_t kConsumers = 2;

  struct Destroy {
    void operator()(KEL_MSG *channel) const { KEL_MsgDestroy(channel); }
    void operator()(KEL_BUF *pool) const { KELBuf_Destroy(pool); }
    void operator()(KEL_SEMA *event) const { KEL_EventDestroy(event); }
  };

  struct Side {
    std::unique_ptr<KEL_BUF, Destroy> frames;
    std::unique_ptr<KEL_MSG, Destroy> channel;
    std::unique_ptr<KEL_SEMA, Destroy> announced;  // to be looked at: waiting
    std::atomic<uint32_t> waiting = 0;             // announced and not yet seen
    uint32_t ready = 0;                            // the reader's: seen, not yet received
    uint32_t unreturned = 0;                       // the reader's: released, not yet told
    std::atomic<uint64_t> returned = 0;            // messages released since the start
  };

  bool Open(Side &side);
  bool HasRoom() const;
  void ReturnReleased(Side &side);
  Side &Of(Consumer consumer) { return sides_[static_cast<size_t>(consumer)]; }

  // A frame is smaller than the room offered for it, so that the place to write
  // never meets the place to read: to the pool that would mean "empty".
  static constexpr uint32_t kAlign = 8;
  static constexpr uint32_t kRoom = kMaxFrame + kAlign;

  std::vector<Message> messages_;
  std::unique_ptr<KEL_BUF, Destroy> writer_;
  std::array<Side, kConsumers> sides_;
  std::unique_ptr<KEL_SEMA, Destroy> room_;  // messages came back
  bool ok_ = false;

  uint64_t sent_ = 0;         // messages since the start
  uint32_t unannounced_ = 0;  // sent and not yet announced
};

}  // namespace kelstream
