// The media buffer pool with several handles, against a ring of frames and the
// positions of its readers; and as long as these are used as meant, no frame is
// offered a place where another one is still being read.

#include <kelcore_buffer.h>

#include <algorithm>

#include "fuzz.h"

namespace {

constexpr int32_t kInvalid = -22, kNoRoom = -28, kNothing = -25, kNotFound = -1;
constexpr size_t kMostHandles = 4;

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
  }
  ~Run() {
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
    for (const Handle &each : handles_)
      Check(each);
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
    // What is committed anywhere makes any answer right.
    if (!predictable_)
      return;
    if (filled_ == 0 && area_ == nullptr)
      area_ = static_cast<uint8_t *>(desc.data);
    uint8_t *place = Place();
    FUZZ_EQUAL(result, place != nullptr ? 0 : kNoRoom);
    if (result != 0)
      return;
    FUZZ_CHECK(desc.data == place);
    FUZZ_EQUAL(desc.room, param_.minsize);
    FUZZ_CHECK(place >= area_ && place + desc.room <= area_ + param_.bufsize);
    if (Exhausted())
      orderly_ = false;
    CheckNobodyReads(place);
    if (input_.ConsumeBool())
      return;
    desc.size = input_.ConsumeIntegralInRange<uint32_t>(1, desc.room);
    memset(place, Fill(written_), desc.size);
    Describe(desc);
    FUZZ_EQUAL(KELBuf_FillWBuf(handle.buf, &desc), 0);
    Committed(handle, desc);
  }

  // Where the next frame may be written; null when there is no room.
  uint8_t *Place() const {
    if (filled_ == 0)
      return area_;
    if (filled_ == param_.number)
      return nullptr;
    const Frame &newest = frames_[Before(write_)];
    const auto *oldest = static_cast<uint8_t *>(frames_[oldest_].desc.data);
    const ptrdiff_t read = oldest != nullptr ? oldest - area_ : 0;
    const ptrdiff_t write =
        newest.desc.data == nullptr
            ? 0
            : static_cast<uint8_t *>(newest.desc.data) - area_ + newest.taken;
    const ptrdiff_t least = param_.minsize, size = param_.bufsize;
    if (write < read)
      return read - write >= least ? area_ + write : nullptr;
    if (size - (write - read) < least)
      return nullptr;
    if (size - write > least)
      return area_ + write;
    return read >= least ? area_ : nullptr;
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
    frames_[write_] = {desc, RoundedUp(desc.size), static_cast<uint32_t>(handles_.size())};
    newest_stamp_ = desc.time_stamp;
    write_ = After(write_);
    ++filled_;
    any_ = true;
  }

  // Frames up to the last byte: the write point that meets the read point counts
  // as all space free.
  bool Exhausted() const {
    const Frame &newest = frames_[Before(write_)];
    return filled_ != 0 && newest.desc.data != nullptr &&
           static_cast<uint8_t *>(newest.desc.data) + newest.taken ==
               frames_[oldest_].desc.data;
  }

  void CheckNobodyReads(const uint8_t *place) const {
    if (!orderly_)
      return;
    for (const Frame &frame : frames_) {
      if (frame.due == 0)
        continue;
      const auto *data = static_cast<const uint8_t *>(frame.desc.data);
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
    return reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(area_) + offset);
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

  void Check(const Handle &handle) const {
    FUZZ_EQUAL(KELBuf_GetBufRefCnt(handle.buf), handles_.size());
    KEL_BUF_STATUS status = {};
    FUZZ_EQUAL(KELBuf_BufStatus(handle.buf, &status), 0);
    FUZZ_EQUAL(status.used, handle.used);
    FUZZ_EQUAL(status.filled, filled_);
    FUZZ_EQUAL(status.write_index, write_);
    FUZZ_EQUAL(status.read_index, handle.read);
    const uint64_t span =
        handle.read == write_ ? 0 : newest_stamp_ - frames_[handle.read].desc.time_stamp;
    FUZZ_EQUAL(status.span, span);
  }

  FuzzedDataProvider &input_;
  KEL_BUF_PARAM param_ = {};
  std::vector<Handle> handles_;
  std::vector<Frame> frames_;
  uint8_t *area_ = nullptr;
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
