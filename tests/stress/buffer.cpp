// A media pool with one writer and up to eight readers that lag, quit and join.

#include <kelcore_buffer.h>
#include <kelcore_event.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "stress.h"

namespace {

constexpr int32_t kNoRoom = -28, kNothing = -25;

class Round {
 public:
  explicit Round(stress::Random &random) : random_(random) {
    param_.minsize = random.Between(64, 2000);
    param_.bufsize = param_.minsize * random.Between(3, 20) + random.Below(100);
    param_.number = random.OneIn(2) ? random.Between(3, 10) : 1000;
    param_.align = random.OneIn(2) ? 0 : random.Between(1, 16);
    param_.media = 1;
    writer_ = KELBuf_Create(&param_, nullptr);
    stress::Expect(writer_ != nullptr, "no pool");
    space_ = KEL_EventCreate(nullptr);
  }
  ~Round() {
    KELBuf_Destroy(writer_);
    KEL_EventDestroy(space_);
  }
  Round(const Round &) = delete;
  Round &operator=(const Round &) = delete;

  void Run() {
    if (writer_ == nullptr)
      return;
    frames_ = random_.Between(100, 5000);
    std::vector<stress::Random> randoms(kReaders);
    std::vector<std::thread> readers;
    for (uint32_t i = 0; i < kReaders; ++i)
      readers.emplace_back([&, i] { ReadLives(randoms[i]); });
    Write();
    for (std::thread &thread : readers)
      thread.join();
    KEL_BUF_STATUS status;
    stress::Expect(
        KELBuf_BufStatus(writer_, &status) == 0 && status.filled == 0 && status.used == 0,
        "%u frames and %u bytes are left", status.filled, status.used);
    stress::Expect(KELBuf_GetBufRefCnt(writer_) == 1, "%d handles are left",
                   KELBuf_GetBufRefCnt(writer_));
    stress::Count("written", written_);
    stress::Count("read", read_);
    stress::Count("joined", joined_);
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
    while (written_ < frames_ && stress::Going())
      if (!WriteOne()) {
        ++no_room_;
        writer_waits_ = true;
        // The event comes as soon as a reader deletes; the limit is for the case
        // that the last one has done so just before.
        KEL_EventWait(space_, 20);
      }
    const std::lock_guard<std::mutex> guard(members_);
    finished_ = true;
    for (KEL_SEMA *event : listeners_)
      KEL_EventSend(event);
  }
  bool WriteOne() {
    const std::lock_guard<std::mutex> guard(members_);
    // Behind by all frames, a reader would take itself for one that has read all.
    KEL_BUF_STATUS status;
    KELBuf_BufStatus(writer_, &status);
    if (status.filled + 1 >= param_.number)
      return false;
    KEL_BUF_DESC frame{};
    const int32_t result = KELBuf_GetWBuf(writer_, &frame);
    stress::Expect(result == 0 || result == kNoRoom, "asking for room gives %d", result);
    if (result != 0)
      return false;
    frame.size = random_.Between(1, LargestFrame());
    frame.time_stamp = written_;
    frame.second = frame.size;
    stress::Fill(frame.data, frame.size, written_);
    stress::Expect(KELBuf_FillWBuf(writer_, &frame) == 0, "a frame is refused");
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
          for (uint32_t lag = random.Below(50); lag > 0; --lag)
            std::this_thread::yield();
        // One event for each frame, and one for the end.
        KEL_EventWait(event, KEL_WAIT_FOREVER);
        if (!ReadOne(reader, next))
          break;
        stress::Going();
      }
      last = Quit(reader, event, next);
    }
  }
  KEL_BUF *Join(KEL_SEMA *event, uint64_t &next) {
    const std::lock_guard<std::mutex> guard(members_);
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
  // Reads what is left, so that no frame waits for the one that has gone.
  bool Quit(KEL_BUF *reader, KEL_SEMA *event, uint64_t &next) {
    const std::lock_guard<std::mutex> guard(members_);
    while (ReadOne(reader, next)) {
    }
    stress::Expect(next == written_, "frame %llu of %llu comes not",
                   static_cast<unsigned long long>(next),
                   static_cast<unsigned long long>(written_));
    KELBuf_Destroy(reader);
    std::erase(listeners_, event);
    KEL_EventDestroy(event);
    return finished_;
  }
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
    ++next;
    read_.fetch_add(1, std::memory_order_relaxed);
    stress::Expect(KELBuf_DelRBuf(reader, &frame) == 0, "a frame cannot be deleted");
    if (writer_waits_.exchange(false))
      KEL_EventSend(space_);
    return true;
  }

  stress::Random &random_;
  KEL_BUF_PARAM param_{};
  KEL_BUF *writer_;
  KEL_SEMA *space_;
  std::atomic<bool> writer_waits_{false};
  uint32_t frames_ = 0;
  uint64_t no_room_ = 0;
  std::atomic<uint64_t> read_{0};
  std::mutex members_;  // held while somebody writes, joins or quits
  std::vector<KEL_SEMA *> listeners_;
  uint64_t written_ = 0, joined_ = 0;
  bool finished_ = false;
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
  return stress::Main("buffer", {{"readers", Rounds}});
}
