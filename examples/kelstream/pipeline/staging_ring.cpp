// The ring buffer between the thread that reads a file and the one that parses
// it.

#include "staging_ring.h"

namespace kelstream {

namespace {

class Locked {
 public:
  explicit Locked(KEL_MUTEX *lock) : lock_(lock) { KEL_MutexLock(lock_, KEL_WAIT_FOREVER); }
  ~Locked() { KEL_MutexUnLock(lock_); }
  Locked(const Locked &) = delete;
  Locked &operator=(const Locked &) = delete;

  // Lets go of the lock until the event comes.
  void WaitFor(KEL_SEMA *event) {
    KEL_MutexUnLock(lock_);
    KEL_EventWait(event, KEL_WAIT_FOREVER);
    KEL_MutexLock(lock_, KEL_WAIT_FOREVER);
  }

 private:
  KEL_MUTEX *lock_;
};

}  // namespace

StagingRing::StagingRing()
    : ring_(KELRing_Create(kSize)),
      lock_(KEL_MutexCreate()),
      filled_(KEL_EventCreate(nullptr)),
      emptied_(KEL_EventCreate(nullptr)) {
  ok_ = ring_ != nullptr && lock_ != nullptr && filled_ != nullptr && emptied_ != nullptr;
}

void StagingRing::Reset() {
  KELRing_DelRBuf(ring_.get(), held_);
  held_ = 0;
  writing_ = releasing_ = at_end_ = abandoned_ = false;
}

uint8_t *StagingRing::BeginWrite() {
  Locked locked(lock_.get());
  // The parser goes first: it may have waited for the last write to end.
  while (!abandoned_ && (releasing_ || held_ + kPiece > kSize))
    locked.WaitFor(emptied_.get());
  if (abandoned_)
    return nullptr;
  writing_ = true;
  uint32_t size = 0;
  return KELRing_GetWBuf(ring_.get(), &size);
}

void StagingRing::EndWrite(uint32_t count) {
  {
    const Locked locked(lock_.get());
    writing_ = false;
    at_end_ = count == 0;
    held_ = KELRing_FillWBuf(ring_.get(), static_cast<int32_t>(count));
  }
  KEL_EventSend(filled_.get());
}

StagingRing::View StagingRing::Read(size_t wanted) {
  Locked locked(lock_.get());
  while (!at_end_ && held_ < wanted)
    locked.WaitFor(filled_.get());
  uint32_t size = 0;
  const uint8_t *const data = KELRing_GetRBuf(ring_.get(), &size);
  return {data, size, at_end_};
}

// Releasing may slide the ring's contents, and the place to write with them:
// not while somebody writes there.
void StagingRing::Release(size_t count) {
  {
    Locked locked(lock_.get());
    releasing_ = true;
    while (writing_)
      locked.WaitFor(filled_.get());
    held_ = KELRing_DelRBuf(ring_.get(), static_cast<uint32_t>(count));
    releasing_ = false;
  }
  KEL_EventSend(emptied_.get());
}

void StagingRing::Abandon() {
  {
    const Locked locked(lock_.get());
    abandoned_ = true;
  }
  KEL_EventSend(emptied_.get());
}

}  // namespace kelstream
