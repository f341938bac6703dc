// The region heap as a sequence of operations. As long as applications keep to
// their blocks: no two blocks meet, contents stay, headers agree with each other
// and the free count with the headers. Once one scribbles over headers, or the
// heap has lost its way by design, nothing outside the region is touched.

#include <kelcore_virtmem.h>

#include <algorithm>
#include <map>

#include "fuzz.h"

namespace {

constexpr uint32_t kHeaderBytes = 56;

struct [[gnu::packed]] Header {
  uint32_t copy_size;
  uint32_t padding;
  uint8_t *copy_prev;
  uint8_t *copy_next;
  uint32_t copy_allocated;
  uint32_t size;
  uint8_t *prev;
  uint8_t *next;
  uint32_t allocated;
  uint32_t more_padding;
};
static_assert(sizeof(Header) == kHeaderBytes);

struct Block {
  uint32_t size;  // asked for
  uint8_t fill;
};

class Run {
 public:
  explicit Run(FuzzedDataProvider &input) : input_(input) {
    size_ = input.ConsumeIntegralInRange<uint32_t>(kHeaderBytes, 4000);
    region_ = static_cast<uint8_t *>(malloc(size_));
    heap_ = KEL_VMemCreate(region_, size_);
    FUZZ_CHECK(heap_ != nullptr);
    // Below the record no block is handed out.
    useful_ = region_ > reinterpret_cast<uint8_t *>(heap_);
    free_ = size_ - kHeaderBytes;
  }
  ~Run() { KEL_VMemDestroy(heap_); }
  Run(const Run &) = delete;
  Run &operator=(const Run &) = delete;

  void Step() {
    const auto choice = input_.ConsumeIntegral<uint8_t>();
    if (choice < 120)
      Allocate();
    else if (choice < 230)
      Free();
    else if (choice < 240)
      Reallocate();
    else if (choice < 248)
      FreeAnything();
    else if (choice < 252)
      Scribble();
    else if (choice < 254)
      Reset();
    Check();
  }

 private:
  Header At(const uint8_t *place) const {
    Header header;
    memcpy(&header, place, sizeof header);
    return header;
  }
  bool Inside(const uint8_t *header) const {
    return header >= region_ && header <= region_ + size_ - kHeaderBytes;
  }
  uint8_t *Any() {
    auto at = blocks_.begin();
    std::advance(at, input_.ConsumeIntegralInRange<size_t>(0, blocks_.size() - 1));
    return at->first;
  }

  void Allocate() {
    const uint32_t size = input_.ConsumeBool()
                              ? input_.ConsumeIntegral<uint8_t>()
                              : input_.ConsumeIntegral<uint32_t>() >>
                                    input_.ConsumeIntegralInRange<uint32_t>(0, 31);
    auto *data = static_cast<uint8_t *>(KEL_VMalloc(heap_, size));
    if (!orderly_)
      return;
    if (data == nullptr) {
      // A block that is found but not handed out still counts. The count misses
      // the first header: when all is taken, it wraps around.
      FUZZ_CHECK(static_cast<int32_t>(free_ - KEL_VGetFree(heap_)) >= 0);
      // Taken whole, the last block links to the end instead of the first one,
      // which then cannot be freed any more.
      ring_closed_ = ring_closed_ && free_ == KEL_VGetFree(heap_);
      free_ = KEL_VGetFree(heap_);
      return;
    }
    FUZZ_CHECK(size > 0 && useful_);
    CheckPlace(data, size);
    Keep(data, size);
    free_ -= At(data - kHeaderBytes).size;
    cursor_ = data - kHeaderBytes;
    ring_closed_ = ring_closed_ && Inside(At(cursor_).next);
  }

  void CheckPlace(const uint8_t *data, uint32_t size) const {
    FUZZ_CHECK(Inside(data - kHeaderBytes));
    FUZZ_CHECK(size <= static_cast<size_t>(region_ + size_ - data));
    const auto after = blocks_.lower_bound(const_cast<uint8_t *>(data));
    FUZZ_CHECK(after == blocks_.end() || data + size <= after->first - kHeaderBytes);
    if (after == blocks_.begin())
      return;
    const auto &[before, block] = *std::prev(after);
    FUZZ_CHECK(before + block.size <= data - kHeaderBytes);
  }

  void Keep(uint8_t *data, uint32_t size) {
    const auto fill = static_cast<uint8_t>(data - region_ + size);
    memset(data, fill, size);
    blocks_[data] = {size, fill};
  }

  void Free() {
    if (blocks_.empty())
      return;
    uint8_t *data = Any();
    const uint32_t freed = At(data - kHeaderBytes).size;
    blocks_.erase(data);
    const int32_t result = KEL_VFree(heap_, data);
    if (!orderly_)
      return;
    FUZZ_CHECK(result == 0 || (result == -1 && !ring_closed_));
    if (result == 0)
      free_ += freed;
    // Nothing but free space merges with itself, and its size says too much.
    ring_closed_ = ring_closed_ && !blocks_.empty();
    // The search may go on from a header that was merged into another one; such
    // a heap may hand out what is taken.
    if (!CursorIsLinked())
      orderly_ = false;
  }

  bool CursorIsLinked() const {
    if (cursor_ == nullptr || blocks_.count(cursor_ + kHeaderBytes) != 0)
      return true;
    if (!ring_closed_ && blocks_.empty())
      return false;
    const uint8_t *first = blocks_.empty() ? region_ : blocks_.begin()->first - kHeaderBytes;
    const uint8_t *at = first;
    for (uint32_t steps = 0; steps <= size_ / kHeaderBytes && Inside(at); ++steps) {
      if (at == cursor_)
        return true;
      at = At(at).next;
      if (at == first)
        break;
    }
    return false;
  }

  // Whatever the block was, its header is overwritten when it moves.
  void Reallocate() {
    if (blocks_.empty())
      return;
    uint8_t *data = Any();
    blocks_.erase(data);
    orderly_ = false;
    KEL_VReAlloc(heap_, data, input_.ConsumeIntegral<uint16_t>() % (size_ + 100));
  }

  void FreeAnything() {
    orderly_ = false;
    const auto offset = input_.ConsumeIntegral<uint16_t>() % (size_ + 200);
    KEL_VFree(heap_, region_ + offset - 50);
  }

  void Scribble() {
    orderly_ = false;
    const auto offset = input_.ConsumeIntegral<uint16_t>() % size_;
    const size_t room = std::min(size_ - offset, kHeaderBytes);
    const auto count = input_.ConsumeIntegralInRange<size_t>(0, room);
    input_.ConsumeData(region_ + offset, count);
    // Links that lead somewhere do more harm than noise.
    const uint8_t *link = region_ + input_.ConsumeIntegral<uint16_t>() % (size_ + 100);
    const auto place = input_.ConsumeIntegral<uint16_t>() % size_;
    memcpy(region_ + place, &link, std::min<size_t>(sizeof link, size_ - place));
  }

  void Reset() {
    KEL_VMemReset(heap_);
    FUZZ_EQUAL(KEL_VGetFree(heap_), size_ - kHeaderBytes);
    blocks_.clear();
    // The search goes on from the block handed out last, which is none any more.
    orderly_ = orderly_ && cursor_ == nullptr;
    free_ = size_ - kHeaderBytes;
    ring_closed_ = false;
  }

  void Check() const {
    if (!orderly_)
      return;
    FUZZ_EQUAL(KEL_VGetFree(heap_), free_);
    for (const auto &[data, block] : blocks_) {
      FUZZ_CHECK(fuzz::Filled(data, block.size, block.fill));
      if (ring_closed_)
        CheckHeader(data - kHeaderBytes, block.size);
    }
  }

  void CheckHeader(const uint8_t *place, uint32_t size) const {
    const Header header = At(place);
    FUZZ_EQUAL(header.allocated, (size + 7) / 8 * 8);
    FUZZ_CHECK(header.size >= header.allocated + kHeaderBytes);
    FUZZ_EQUAL(header.copy_size, header.size);
    FUZZ_EQUAL(header.copy_allocated, header.allocated);
    FUZZ_CHECK(header.copy_prev == header.prev && header.copy_next == header.next);
    FUZZ_CHECK(!Inside(header.prev) || At(header.prev).next == place);
    FUZZ_CHECK(!Inside(header.next) || At(header.next).prev == place);
  }

  FuzzedDataProvider &input_;
  KEL_VMEM *heap_;
  uint8_t *region_;
  uint32_t size_;
  uint32_t free_;
  std::map<uint8_t *, Block> blocks_;
  uint8_t *cursor_ = nullptr;  // header of the block handed out last
  bool useful_;
  bool orderly_ = true;
  bool ring_closed_ = true;  // the last block links to the first one
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  Run run(input);
  for (int steps = 0; steps < 300 && input.remaining_bytes() > 0; ++steps)
    run.Step();
  return 0;
}
