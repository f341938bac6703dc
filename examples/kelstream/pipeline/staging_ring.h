// The ring buffer between the thread that reads a file and the one that parses
// it, with the lock and the waiting that the ring itself leaves to its users.
#pragma once

#include <kelcore_event.h>
#include <kelcore_mutex.h>
#include <kelcore_ring.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kelstream {

class StagingRing {
 public:
  StagingRing();
  StagingRing(const StagingRing &) = delete;
  StagingRing &operator=(const StagingRing &) = delete;

  // False when the system had not the means; nothing else may be called then.
  bool ok() const { return ok_; }

  // Before a new file, while neither side is at work.
  void Reset();

  // The reading thread's side. A place for kPiece bytes, waiting until there is
  // one; null when nobody wants them any more. What was written there is told
  // with EndWrite; 0 bytes end the file.
  static constexpr uint32_t kPiece = 128 * 1024;
  uint8_t *BeginWrite();
  void EndWrite(uint32_t count);

  // The parser's side. What is unread, waiting until it is `wanted` bytes or
  // all that the file has left (`whole`).
  struct View {
    const uint8_t *data;
    size_t size;
    bool whole;
  };
  static constexpr size_t kMaxWanted = size_t{4} * kPiece;
  View Read(size_t wanted);
  // The first bytes of what was read are done with, and may move.
  void Release(size_t count);
  // Nothing more is wanted.
  void Abandon();

 private:
  static constexpr uint32_t kSize = 8 * kPiece;

  struct Destroy {
    void operator()(KEL_RING *ring) const { KELRing_Destroy(ring); }
    void operator()(KEL_MUTEX *mutex) const { KEL_MutexDestroy(mutex); }
    void operator()(KEL_SEMA *event) const { KEL_EventDestroy(event); }
  };

  std::unique_ptr<KEL_RING, Destroy> ring_;
  std::unique_ptr<KEL_MUTEX, Destroy> lock_;
  std::unique_ptr<KEL_SEMA, Destroy> filled_;   // something came, or the writing ended
  std::unique_ptr<KEL_SEMA, Destroy> emptied_;  // something went
  bool ok_ = false;

  // Under the lock.
  uint32_t held_ = 0;
  bool writing_ = false;
  bool releasing_ = false;
  bool at_end_ = false;
  bool abandoned_ = false;
};

}  // namespace kelstream
