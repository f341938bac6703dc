// A media pool with one writer and up to eight readers that lag, quit and join. Some
// break the rules: they quit while they hold frames, or lag until the ring is full and
// they read as if they had read all.

#include <kelcore_buffer.h>
#include <kelcore_event.h>
#include <kelcore_mem.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "stress.h"

namespace {

constexpr int32_t kNoRoom = -28, kNothing = -25;

// Areas from outside, and what became of them.
std::atomic<int> areas_out{0};

void *TakeArea(uint32_t size) {
  ++areas_out;
  return KEL_Malloc(size, 0, KEL_NO_FILL, __FILE__, __LINE__, __func__);
}

void GiveArea(void *area) {
  --areas_out;
  KEL_Free(area, 0);
}

class Round {
 public:
  explicit Round(stress::Random &random) : random_(random), overruns_(random.OneIn(3)) {
    param_.minsize = random.Between(64, 2000);
    param_.bufsize = param_.minsize * random.Between(3, 20) + random.Below(100);
    param_.number = random.OneIn(2) ? random.Between(3, 10) : 1000;
    if (overruns_) {  // the ring is to be full before the area is
      param_.number = random.Between(4, 12);
      param_.bufsize = param_.minsize * (param_.number + 3);
    }
    param_.align = random.OneIn(2) ? 0 : random.Between(1, 16);
    param_.media = 1;
    switch (random.Below(3)) {
      case 0:
        param_.alloc = TakeArea;
        param_.free = GiveArea;
        break;
      case 1:  // goes with the pool
        param_.area =
            KEL_Malloc(param_.bufsize + 16, 0, KEL_NO_FILL, __FILE__, __LINE__, __func__);
        break;
      default:
        break;
    }
    deserters_ = random.OneIn(3);
    writer_ = KELBuf_Create(&param_, nullptr);
    stress::Expect(writer_ != nullptr, "no pool");
    space_ = KEL_EventCreate(nullptr);
    places_.resize(param_.number);
  }
  ~Round() {
    KELBuf_Destroy(writer_);
    KEL_EventDestroy(space_);
    stress::Expect(areas_out == 0, "an area is not given back");
  }
  Round(const Round &) = delete;
  Round &operator=(const Round &) = delete;

  void Run() {
    if (writer_ == nullptr)
      return;
    frames_ = random_.Between(50, 800);
    std::vector<stress::Random> randoms(kReaders);
    std::vector<std::thread> readers;
    for (uint32_t i = 0; i < kReaders; ++i)
      readers.emplace_back([&, i] { ReadLives(randoms[i]); });
    Write();
    for (std::thread &thread : readers)
      thread.join();
    CheckFilled();
    stress::Expect(KELBuf_GetBufRefCnt(writer_) == 1, "%d handles are left",
                   KELBuf_GetBufRefCnt(writer_));
    stress::Count("written", written_);
    stress::Count("read", read_);
    stress::Count("joined", joined_);
    stress::Count("deserted", deserted_);
    stress::Count("overrun", overrun_);
    stress::Count("stuck-frames", stuck_.size());
    stress::Count("clogged", clogged_ ? 1 : 0);
    stress::Count("no-room", no_room_);
  }

 private:
  static constexpr uint32_t kReaders = 8;

  // A frame that fills its room to the last byte could make write and read point
  // meet, and the area look empty.
  uint32_t LargestFrame() const {
    const uint32_t align = param_.align != 0 ? param_.align : 1;
    return (param_.minsize - 1) / align * align;
  }

  void Write() {
    while (written_ < frames_ && !clogged_ && stress::Going())
      if (!WriteOne()) {
        ++no_room_;
        writer_waits_ = true;
        TellTheLate();
        // The event comes as soon as a reader deletes; the limit is for the case
        // that the last one has done so just before.
        KEL_EventWait(space_, 20);
        NoteClogging();
      }
    const std::lock_guard<std::recursive_mutex> guard(members_);
    finished_ = true;
    TellTheLate();
    for (KEL_SEMA *event : listeners_)
      KEL_EventSend(event);
  }
  void TellTheLate() {
    ++shortages_;
    shortages_.notify_all();
  }
  // Frames that deserters hold stay: nothing but them is left, and yet no room.
  void NoteClogging() {
    const std::lock_guard<std::recursive_mutex> guard(members_);
    KEL_BUF_STATUS status;
    KELBuf_BufStatus(writer_, &status);
    KEL_BUF_DESC frame{};
    const bool full = status.filled + 1 >= param_.number && !overruns_;
    clogged_ = !stuck_.empty() && status.filled == stuck_.size() &&
               (full || KELBuf_GetWBuf(writer_, &frame) == kNoRoom);
  }
  // What is held is what somebody has left without deleting it.
  void CheckFilled() {
    KEL_BUF_STATUS status;
    stress::Expect(KELBuf_BufStatus(writer_, &status) == 0 && status.used == 0 &&
                       status.filled == stuck_.size() && status.span == 0,
                   "%u frames and %u bytes are left, %zu are stuck", status.filled, status.used,
                   stuck_.size());
  }
  bool WriteOne() {
    const std::lock_guard<std::recursive_mutex> guard(members_);
    // Behind by all frames, a reader takes itself for one that has read all: to be
    // avoided, unless readers know how to help themselves.
    KEL_BUF_STATUS status;
    KELBuf_BufStatus(writer_, &status);
    if (status.filled + 1 >= param_.number && !overruns_)
      return false;
    KEL_BUF_DESC frame{};
    const int32_t result = KELBuf_GetWBuf(writer_, &frame);
    stress::Expect(result == 0 || result == kNoRoom, "asking for room gives %d", result);
    stress::Expect(result == 0 || status.filled > 0, "no room in an empty pool");
    if (result != 0)
      return false;
    frame.size = random_.Between(1, LargestFrame());
    frame.time_stamp = written_;
    frame.second = frame.size;
    stress::Fill(frame.data, frame.size, written_);
    stress::Expect(KELBuf_FillWBuf(writer_, &frame) == 0, "a frame is refused");
    places_[written_ % param_.number] = frame.data;
    ++written_;
    // The writer's own handle reads, too; being done at once, it has a position
    // from which readers can join.
    KEL_BUF_DESC own{};
    stress::Expect(KELBuf_GetRBuf(writer_, &own) == 0 && own.data == frame.data,
                   "the writer reads another frame");
    stress::Expect(KELBuf_DelRBuf(writer_, &own) == 0, "the writer cannot delete");
    for (KEL_SEMA *event : listeners_)
      KEL_EventSend(event);
    return true;
  }

  // Joins, reads for a while, quits, and so on.
  void ReadLives(stress::Random &random) {
    bool last = false;
    while (!last) {
      KEL_SEMA *event = KEL_EventCreate(nullptr);
      uint64_t next;
      KEL_BUF *reader = Join(event, next);
      const uint64_t life = random.OneIn(3) ? UINT64_MAX : random.Below(300);
      for (uint64_t i = 0; i < life; ++i) {
        if (random.OneIn(30))
          Lag(random);
        // One event for each frame, and one for the end.
        KEL_EventWait(event, KEL_WAIT_FOREVER);
        if (!ReadOne(reader, next) && !CatchUp(reader, next))
          break;
        stress::Going();
      }
      const bool deserts = deserters_ && random.OneIn(4);
      if (deserts)
        Lag(random);
      last = Quit(reader, event, next, deserts);
    }
  }
  // For a while, or until the writer comes no further.
  void Lag(stress::Random &random) {
    const uint32_t before = shortages_;
    if (random.OneIn(4) && !writer_waits_ && !finished_)
      shortages_.wait(before);
    else
      for (uint32_t turns = random.Below(50); turns > 0; --turns)
        std::this_thread::yield();
  }
  KEL_BUF *Join(KEL_SEMA *event, uint64_t &next) {
    const std::lock_guard<std::recursive_mutex> guard(members_);
    KEL_BUF *reader = KELBuf_Create(&param_, writer_);
    next = written_;
    listeners_.push_back(event);
    if (finished_)
      KEL_EventSend(event);
    ++joined_;
    stress::Expect(KELBuf_GetBufRefCnt(writer_) == static_cast<int32_t>(listeners_.size()) + 1,
                   "%d handles with %zu readers", KELBuf_GetBufRefCnt(writer_),
                   listeners_.size());
    return reader;
  }
  // Reads what is left, so that no frame waits for the one that has gone; but a
  // deserter leaves at once.
  bool Quit(KEL_BUF *reader, KEL_SEMA *event, uint64_t &next, bool deserts) {
    const std::lock_guard<std::recursive_mutex> guard(members_);
    if (deserts && next < written_) {
      ++deserted_;
      while (next < written_)
        stuck_.insert(next++);
    } else {
      while (ReadOne(reader, next) || CatchUpLocked(reader, next)) {
      }
    }
    stress::Expect(next == written_, "frame %llu of %llu comes not",
                   static_cast<unsigned long long>(next),
                   static_cast<unsigned long long>(written_));
    KELBuf_Destroy(reader);
    std::erase(listeners_, event);
    KEL_EventDestroy(event);
    return finished_;
  }
  // A reader that gets nothing has read all, or none at all of a full ring. It knows
  // then that it loses a frame, goes on with the one behind, and reads that.
  bool CatchUp(KEL_BUF *reader, uint64_t &next) {
    const std::lock_guard<std::recursive_mutex> guard(members_);
    // The next frame may have come just now.
    return ReadOne(reader, next) || CatchUpLocked(reader, next);
  }
  bool CatchUpLocked(KEL_BUF *reader, uint64_t &next) {
    return next != written_ && StepOver(reader, next) && ReadOne(reader, next);
  }
  // From a frame that it can neither read nor delete any more to the one behind.
  bool StepOver(KEL_BUF *reader, uint64_t &next) {
    KEL_BUF_STATUS status;
    KELBuf_BufStatus(reader, &status);
    const bool behind_by_all = overruns_ && written_ - next == param_.number &&
                               status.filled == param_.number &&
                               status.read_index == status.write_index;
    stress::Expect(behind_by_all, "frame %llu of %llu cannot be read, the ring holds %u of %u",
                   static_cast<unsigned long long>(next),
                   static_cast<unsigned long long>(written_), status.filled, param_.number);
    if (!behind_by_all)
      return false;
    ++overrun_;
    stuck_.insert(next++);
    KEL_BUF_DESC found{};
    stress::Expect(KELBuf_FindRBuf(reader, places_[next % param_.number], &found) == 0 &&
                       found.time_stamp == next,
                   "frame %llu is not found", static_cast<unsigned long long>(next));
    return true;
  }
  // Each frame once, and in order.
  bool ReadOne(KEL_BUF *reader, uint64_t &next) {
    KEL_BUF_DESC frame{};
    const int32_t result = KELBuf_GetRBuf(reader, &frame);
    stress::Expect(result == 0 || result == kNothing, "reading gives %d", result);
    if (result != 0)
      return false;
    const bool whole = frame.time_stamp == next && frame.second == frame.size &&
                       frame.room == frame.size && stress::Holds(frame.data, frame.size, next);
    stress::Expect(whole, "frame %llu comes as %llu, or torn",
                   static_cast<unsigned long long>(next),
                   static_cast<unsigned long long>(frame.time_stamp));
    std::this_thread::yield();
    // It stays until it is deleted.
    stress::Expect(!whole || stress::Holds(frame.data, frame.size, next),
                   "frame %llu is overwritten while it is read",
                   static_cast<unsigned long long>(next));
    read_.fetch_add(1, std::memory_order_relaxed);
    const int32_t deleted = KELBuf_DelRBuf(reader, &frame);
    if (deleted == kNothing && overruns_) {  // the ring got full meanwhile
      const std::lock_guard<std::recursive_mutex> guard(members_);
      return StepOver(reader, next);
    }
    stress::Expect(deleted == 0, "deleting frame %llu gives %d",
                   static_cast<unsigned long long>(next), deleted);
    ++next;
    if (writer_waits_.exchange(false))
      KEL_EventSend(space_);
    return true;
  }

  stress::Random &random_;
  const bool overruns_;  // the ring may get full
  bool deserters_ = false;
  KEL_BUF_PARAM param_{};
  KEL_BUF *writer_;
  KEL_SEMA *space_;
  std::atomic<bool> writer_waits_{false}, finished_{false};
  std::atomic<uint32_t> shortages_{0};  // of room, and in the end one more
  uint32_t frames_ = 0;
  uint64_t no_room_ = 0;
  bool clogged_ = false;
  std::atomic<uint64_t> read_{0};
  std::recursive_mutex members_;  // held to write, to join, to catch up, to quit
  std::vector<KEL_SEMA *> listeners_;
  std::vector<void *> places_;  // of the newest frames, by number
  std::set<uint64_t> stuck_;    // frames that somebody did not delete
  uint64_t written_ = 0, joined_ = 0, deserted_ = 0, overrun_ = 0;
};

void Rounds() {
  stress::Random random;
  do {
    Round(random).Run();
    stress::Count("rounds", 1);
  } while (stress::Going());
}

}  // namespace

int main() {
  return stress::Main("buffer", "every reader gets every frame once, but those it knows of",
                      {{"readers", Rounds}});
}
