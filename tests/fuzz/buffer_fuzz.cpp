// The media buffer pool with several handles, against a ring of frames and the
// positions of its readers; and as long as these are used as meant, no frame is
// offered a place where another one is still being read. The table of usage is
// the process's: it goes on from run to run, in the model, too.

#include <kelcore_buffer.h>
#include <malloc.h>

#include <algorithm>
#include <cmath>

#include "fuzz.h"

namespace {

constexpr int32_t kInvalid = -22, kNoRoom = -28, kNothing = -25, kNotFound = -1;
constexpr size_t kMostHandles = 4;
constexpr uint32_t kMostCounted = 3;

KEL_BUF_USAGE usage;

struct Frame {
  KEL_BUF_DESC desc;
  uint32_t taken;  // bytes, rounded up
  uint32_t due;    // deletions
};

struct Handle {
  KEL_BUF *buf;
  uint32_t read;
  uint32_t used;
};

bool Same(const KEL_BUF_DESC &a, const KEL_BUF_DESC &b) {
  return a.data == b.data && a.size == b.size && a.room == b.room &&
         a.time_stamp == b.time_stamp && a.second == b.second && a.value == b.value &&
         a.index == b.index && a.further == b.further;
}

bool Same(const KEL_BUF_USAGE &a, const KEL_BUF_USAGE &b) {
  return std::equal(std::begin(a.media1), std::end(a.media1), b.media1) &&
         a.media2 == b.media2 && a.media3 == b.media3 && a.high == b.high;
}

class Run {
 public:
  explicit Run(FuzzedDataProvider &input) : input_(input) {
    param_.bufsize = input.ConsumeIntegralInRange<uint32_t>(1, 600);
    param_.minsize = input.ConsumeIntegralInRange<uint32_t>(1, param_.bufsize);
    param_.number = input.ConsumeIntegralInRange<uint32_t>(1, 8);
    param_.align = input.ConsumeIntegralInRange<uint32_t>(0, 16);
    param_.index = input.ConsumeIntegralInRange<uint32_t>(0, 20);
    param_.media = input.ConsumeIntegralInRange<uint32_t>(0, 4);
    frames_.resize(param_.number);
    ChooseArea(input.ConsumeIntegralInRange<int>(0, 2));
    handles_.push_back({KELBuf_Create(&param_, nullptr), 0, 0});
    FUZZ_CHECK(handles_[0].buf != nullptr);
    // An empty pool offers its beginning.
    KEL_BUF_DESC desc = {};
    FUZZ_EQUAL(KELBuf_GetWBuf(handles_[0].buf, &desc), 0);
    area_ = Address(desc.data);
    FUZZ_CHECK(area_ != 0 && (param_.area == nullptr || param_.area == desc.data));
  }
  ~Run() {
    while (counted_ > 0)
      DestroyCopy();
    for (const Handle &handle : handles_)
      KELBuf_Destroy(handle.buf);
  }
  Run(const Run &) = delete;
  Run &operator=(const Run &) = delete;

  void Step() {
    Handle &handle = handles_[input_.ConsumeIntegralInRange<size_t>(0, handles_.size() - 1)];
    const auto choice = input_.ConsumeIntegral<uint8_t>();
    if (choice < 100)
      Write(handle);
    else if (choice < 130)
      Read(handle);
    else if (choice < 220)
      Delete(handle);
    else if (choice < 230)
      Find(handle);
    else if (choice < 236)
      CommitAnything(handle);
    else if (choice < 246)
      Duplicate(handle);
    else if (choice < 250)
      Drop();
    else if (choice < 252)
      Count(handle);
    else if (choice < 253)
      Uncount();
    else if (choice < 254)
      Compare(handle);
    else
      Enter(handle);
    for (const Handle &each : handles_)
      Check(each);
    FUZZ_CHECK(Same(*KELBuf_GetUsage(), usage));
  }

 private:
  // The pool's own, the caller's, or one from outside; all end with the pool.
  void ChooseArea(int kind) {
    if (kind == 1)
      param_.area = malloc(param_.bufsize);
    if (kind == 2) {
      param_.alloc = [](uint32_t size) { return malloc(size); };
      param_.free = free;
    }
  }

  uint32_t After(uint32_t index) const { return (index + 1) % param_.number; }
  uint32_t Before(uint32_t index) const { return (index + param_.number - 1) % param_.number; }
  uint32_t RoundedUp(uint32_t size) const {
    const uint32_t align = std::max(param_.align, 1u);
    return (size + align - 1) / align * align;
  }

  void Write(Handle &handle) {
    KEL_BUF_DESC desc = {};
    const int32_t result = KELBuf_GetWBuf(handle.buf, &desc);
    uintptr_t place = 0;
    FUZZ_EQUAL(result, Offer(&place));
    if (result != 0)
      return;
    FUZZ_EQUAL(Address(desc.data), place);
    FUZZ_EQUAL(desc.room, param_.minsize);
    // Where something was committed that was not offered, this may be anywhere.
    if (!predictable_)
      return;
    FUZZ_CHECK(place >= area_ && place + desc.room <= area_ + param_.bufsize);
    if (Exhausted())
      orderly_ = false;
    CheckNobodyReads(place);
    if (input_.ConsumeBool())
      return;
    desc.size = input_.ConsumeIntegralInRange<uint32_t>(1, desc.room);
    memset(desc.data, Fill(written_), desc.size);
    Describe(desc);
    FUZZ_EQUAL(KELBuf_FillWBuf(handle.buf, &desc), 0);
    Committed(handle, desc);
  }

  // Where the next frame may be written, and what that makes of the usage.
  int32_t Offer(uintptr_t *place) {
    *place = area_;
    if (filled_ == 0)
      return 0;
    if (filled_ == param_.number)
      return kNoRoom;
    const Frame &newest = frames_[Before(write_)];
    const uintptr_t oldest = Address(frames_[oldest_].desc.data);
    const uintptr_t read = oldest != 0 ? oldest : area_;
    const uintptr_t write = Address(newest.desc.data) + newest.taken;
    const int64_t least = param_.minsize, size = param_.bufsize;
    const int64_t ahead = Distance(read, write);
    const int64_t remain = ahead >= 0 ? size - ahead : -ahead;
    if (remain < least)
      return kNoRoom;
    *place = write;
    if (ahead >= 0 && Distance(write, area_) + size <= least) {
      if (Distance(area_, read) < least)
        return kNoRoom;
      *place = area_;
    }
    NoteUsage(size + least - remain);
    return 0;
  }

  static uintptr_t Address(const void *pointer) { return reinterpret_cast<uintptr_t>(pointer); }
  static int64_t Distance(uintptr_t from, uintptr_t to) {
    return static_cast<int64_t>(to - from);
  }

  void NoteUsage(int64_t used) {
    const float exact = static_cast<float>(used) / static_cast<float>(param_.bufsize) * 100.0F;
    // Of frames that lie farther apart than any area is long, some percentage.
    if (std::fabs(exact) > 9.0e18F) {
      usage = *KELBuf_GetUsage();
      return;
    }
    const auto percent = static_cast<uint32_t>(static_cast<int64_t>(exact));
    if (param_.media == 1 && param_.index < std::size(usage.media1))
      usage.media1[param_.index] = percent;
    if (param_.media == 2)
      usage.media2 = percent;
    if (param_.media == 3)
      usage.media3 = percent;
    usage.high = percent > 79 ? 1 : 0;
  }

  static uint8_t Fill(uint64_t number) { return static_cast<uint8_t>(number * 7 + 1); }

  void Describe(KEL_BUF_DESC &desc) {
    desc.time_stamp = input_.ConsumeIntegral<uint16_t>();
    desc.second = written_++;
    desc.value = 3;
    desc.further = 5;
    desc.index = 77;  // the handle's own counts
  }

  void Committed(Handle &handle, KEL_BUF_DESC desc) {
    handle.used += RoundedUp(desc.size);
    desc.room = desc.size;
    desc.index = param_.index;
    frames_[write_] = {desc, RoundedUp(desc.size), References()};
    newest_stamp_ = desc.time_stamp;
    write_ = After(write_);
    ++filled_;
    any_ = true;
  }

  // Frames up to the last byte: the write point that meets the read point counts
  // as all space free.
  bool Exhausted() const {
    const Frame &newest = frames_[Before(write_)];
    return filled_ != 0 &&
           Address(newest.desc.data) + newest.taken == Address(frames_[oldest_].desc.data);
  }

  void CheckNobodyReads(uintptr_t place) const {
    if (!orderly_)
      return;
    for (const Frame &frame : frames_) {
      if (frame.due == 0)
        continue;
      const uintptr_t data = Address(frame.desc.data);
      FUZZ_CHECK(data + frame.desc.size <= place || place + param_.minsize <= data);
    }
  }

  void Read(const Handle &handle) {
    KEL_BUF_DESC desc = {};
    const bool nothing = handle.read == write_;
    FUZZ_EQUAL(KELBuf_GetRBuf(handle.buf, &desc), nothing ? kNothing : 0);
    if (nothing)
      return;
    const Frame &frame = frames_[handle.read];
    FUZZ_CHECK(Same(desc, frame.desc));
    if (!orderly_)
      return;
    FUZZ_CHECK(
        fuzz::Filled(static_cast<const uint8_t *>(desc.data), desc.size, Fill(desc.second)));
  }

  void Delete(Handle &handle) {
    const bool nothing = handle.read == write_;
    FUZZ_EQUAL(KELBuf_DelRBuf(handle.buf, nullptr), nothing ? kNothing : 0);
    if (nothing)
      return;
    Frame &frame = frames_[handle.read];
    handle.read = After(handle.read);
    handle.used -= frame.taken;
    if (--frame.due == 0) {
      oldest_ = handle.read;
      --filled_;
    }
  }

  void Find(Handle &handle) {
    orderly_ = false;
    const auto at = input_.ConsumeIntegralInRange<uint32_t>(0, param_.number - 1);
    const void *data = input_.ConsumeBool() ? frames_[at].desc.data : &input_;
    KEL_BUF_DESC desc = {};
    const int32_t result = KELBuf_FindRBuf(handle.buf, data, &desc);
    const auto found = FindFrame(handle.read, data);
    FUZZ_EQUAL(result, found < param_.number ? 0 : kNotFound);
    if (result != 0)
      return;
    FUZZ_CHECK(Same(desc, frames_[found].desc));
    handle.read = found;
  }

  // Forward to the end, then backward to the beginning.
  uint32_t FindFrame(uint32_t from, const void *data) const {
    for (uint32_t at = from; at < param_.number; ++at)
      if (frames_[at].desc.data == data)
        return at;
    for (uint32_t at = from; at-- > 0;)
      if (frames_[at].desc.data == data)
        return at;
    return param_.number;
  }

  // Any address, most of them near the area.
  void *Anywhere() {
    const uintptr_t offset = input_.ConsumeIntegral<uint32_t>();
    if (offset % 16 == 0)
      return nullptr;
    if (offset % 16 == 1)
      return reinterpret_cast<void *>(input_.ConsumeIntegral<uintptr_t>());
    return reinterpret_cast<void *>(area_ + offset);
  }

  void CommitAnything(Handle &handle) {
    KEL_BUF_DESC desc = {};
    desc.data = Anywhere();
    desc.size = input_.ConsumeIntegral<uint16_t>() % (param_.minsize + 2);
    desc.room = input_.ConsumeIntegral<uint16_t>() % (param_.minsize + 2);
    Describe(desc);
    const bool invalid = desc.size == 0 || desc.data == nullptr || desc.room > param_.minsize ||
                         desc.room < desc.size;
    const int32_t result = KELBuf_FillWBuf(handle.buf, &desc);
    FUZZ_EQUAL(result, invalid ? kInvalid : filled_ == param_.number ? kNoRoom : 0);
    if (result != 0)
      return;
    orderly_ = predictable_ = false;
    Committed(handle, desc);
  }

  void Duplicate(const Handle &handle) {
    if (handles_.size() == kMostHandles)
      return;
    // A handle made late counts for no earlier frame.
    orderly_ = orderly_ && !any_;
    handles_.push_back({KELBuf_Create(&param_, handle.buf), handle.read, handle.used});
    FUZZ_CHECK(handles_.back().buf != nullptr);
  }

  void Drop() {
    if (handles_.size() == 1)
      return;
    orderly_ = orderly_ && !any_;
    KELBuf_Destroy(handles_.back().buf);
    handles_.pop_back();
  }

  uint32_t References() const { return static_cast<uint32_t>(handles_.size()) + counted_; }

  // One that is counted without a handle of its own never deletes.
  void Count(const Handle &handle) {
    if (counted_ == kMostCounted)
      return;
    FUZZ_EQUAL(KELBuf_AddBufRefCnt(handle.buf), 0);
    ++counted_;
  }

  void Uncount() {
    if (counted_ == 0)
      return;
    // Frames committed before are due once more than anybody deletes.
    orderly_ = orderly_ && !any_;
    DestroyCopy();
  }

  // A copy of a handle's record is what the one who was counted may destroy.
  void DestroyCopy() {
    const size_t bytes = malloc_usable_size(handles_[0].buf);
    void *copy = malloc(bytes);
    memcpy(copy, handles_[0].buf, bytes);
    KELBuf_Destroy(static_cast<KEL_BUF *>(copy));
    --counted_;
  }

  void Compare(const Handle &handle) {
    const auto at = input_.ConsumeIntegralInRange<uint32_t>(0, param_.number - 1);
    const KEL_BUF_DESC &desc = frames_[at].desc;
    const void *data = input_.ConsumeBool() ? desc.data : Anywhere();
    FUZZ_EQUAL(KELBuf_CheckBuf(handle.buf, &desc, data), data == desc.data ? 1 : 0);
  }

  // The callers' own lock keeps nobody from the pool.
  void Enter(Handle &handle) {
    FUZZ_EQUAL(KELBuf_LockEnter(handle.buf), 0);
    Delete(handle);
    FUZZ_EQUAL(KELBuf_LockLeave(handle.buf), 0);
  }

  void Check(const Handle &handle) const {
    FUZZ_EQUAL(KELBuf_GetBufRefCnt(handle.buf), References());
    KEL_BUF_STATUS status = {};
    FUZZ_EQUAL(KELBuf_BufStatus(handle.buf, &status), 0);
    FUZZ_EQUAL(status.used, handle.used);
    FUZZ_EQUAL(status.filled, filled_);
    FUZZ_EQUAL(status.write_index, write_);
    FUZZ_EQUAL(status.read_index, handle.read);
    const uint64_t span =
        handle.read == write_ ? 0 : newest_stamp_ - frames_[handle.read].desc.time_stamp;
    FUZZ_EQUAL(status.span, span);
    FUZZ_CHECK(status.bufsize == param_.bufsize && status.minsize == param_.minsize &&
               status.index == param_.index && status.media == param_.media);
  }

  FuzzedDataProvider &input_;
  KEL_BUF_PARAM param_ = {};
  std::vector<Handle> handles_;
  std::vector<Frame> frames_;
  uintptr_t area_ = 0;
  uint32_t counted_ = 0;  // references beyond the handles
  uint32_t write_ = 0;
  uint32_t oldest_ = 0;
  uint32_t filled_ = 0;
  uint64_t written_ = 0;
  uint64_t newest_stamp_ = 0;
  bool any_ = false;         // a frame was committed
  bool orderly_ = true;      // every handle counts for every frame, in order
  bool predictable_ = true;  // frames lie where they were offered
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  Run run(input);
  for (int steps = 0; steps < 300 && input.remaining_bytes() > 0; ++steps)
    run.Step();
  return 0;
}
