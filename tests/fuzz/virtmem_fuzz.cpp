// The region heap as a sequence of operations. After each of them the whole
// region is what the model made of its copy: headers of used and free blocks,
// and contents. As long as applications keep to their blocks, these also form
// one chain whose sizes add up, and no two of them meet. Once one scribbles over
// headers, or the heap has lost its way by design, the model goes on alone.

#include <kelcore_virtmem.h>

#include <algorithm>

#include "fuzz.h"
#include "virtmem_model.h"

namespace {

using fuzz::RegionModel;
using Header = RegionModel::Header;
using Place = RegionModel::Place;

constexpr uint32_t kHeaderBytes = RegionModel::kHeaderBytes;
constexpr uint32_t kMostSize = 4000;

Place Address(const void *pointer) {
  return reinterpret_cast<Place>(pointer);
}

struct Block {
  Place data;
  uint32_t size;  // asked for
  uint8_t fill;
};

// How the blocks hang together.
enum class Chain {
  kRing,  // the last one links to the first one
  kLine,  // the last one links to the end
  kLost,  // headers and blocks may lie over each other
};

class Run {
 public:
  explicit Run(FuzzedDataProvider &input)
      : input_(input),
        size_(input.ConsumeIntegralInRange<uint32_t>(1, kMostSize)),
        region_(static_cast<uint8_t *>(malloc(size_))),
        heap_(KEL_VMemCreate(region_, size_)),
        model_(Address(region_), size_, Address(heap_)),
        live_(size_ + 1),
        only_free_(model_.start()),
        total_(size_) {
    FUZZ_CHECK(heap_ != nullptr);
    // Too small for a header; or below the record, where nothing is handed out.
    if (!model_.Inside(model_.start()) || region_ < reinterpret_cast<uint8_t *>(heap_))
      chain_ = Chain::kLost;
    Check();
  }
  ~Run() {
    Lose();
    KEL_VMemDestroy(heap_);
  }
  Run(const Run &) = delete;
  Run &operator=(const Run &) = delete;

  void Step() {
    const auto choice = input_.ConsumeIntegral<uint8_t>();
    if (choice < 116)
      Allocate();
    else if (choice < 216)
      Free();
    else if (choice < 240)
      Reallocate();
    else if (choice < 244)
      FreeAnything();
    else if (choice < 248)
      Scribble();
    else if (choice < 252)
      Reset();
    Check();
  }

 private:
  bool Lost() const { return chain_ == Chain::kLost; }

  // What was in order until now still has its contents.
  void Lose() {
    if (!Lost())
      for (const Block &block : blocks_)
        CheckContents(block, block.size);
    chain_ = Chain::kLost;
  }

  void CheckContents(const Block &block, uint32_t bytes) const {
    FUZZ_CHECK(fuzz::Filled(reinterpret_cast<const uint8_t *>(block.data), bytes, block.fill));
  }

  Block TakeAny() {
    const auto at = input_.ConsumeIntegralInRange<size_t>(0, blocks_.size() - 1);
    std::swap(blocks_[at], blocks_.back());
    const Block block = blocks_.back();
    blocks_.pop_back();
    live_[block.data - model_.start()] = 0;
    return block;
  }

  // In the library's region and in the model's.
  void Write(Place to, const void *data, size_t bytes) {
    memcpy(reinterpret_cast<void *>(to), data, bytes);
    memcpy(model_.image() + (to - model_.start()), data, bytes);
  }

  void Keep(Place data, uint32_t size) {
    if (!Lost())
      CheckPlace(data, size);
    const auto fill = static_cast<uint8_t>(data - model_.start() + size);
    // Blocks may reach beyond the region where the ring merged with itself.
    const uint32_t bytes = static_cast<uint32_t>(std::min<uint64_t>(size, model_.end() - data));
    uint8_t contents[kMostSize];
    memset(contents, fill, bytes);
    Write(data, contents, bytes);
    Add({data, bytes, fill});
  }

  void Add(const Block &block) {
    blocks_.push_back(block);
    live_[block.data - model_.start()] = RegionModel::Rounded(block.size);
  }

  void CheckPlace(Place data, uint32_t size) const {
    FUZZ_CHECK(model_.Inside(data - kHeaderBytes));
    FUZZ_CHECK(size <= model_.end() - data);
    for (const Block &block : blocks_)
      FUZZ_CHECK(data + size <= block.data - kHeaderBytes ||
                 block.data + block.size <= data - kHeaderBytes);
  }

  void Allocate() {
    const uint32_t size = input_.ConsumeBool()
                              ? input_.ConsumeIntegral<uint8_t>()
                              : input_.ConsumeIntegral<uint32_t>() >>
                                    input_.ConsumeIntegralInRange<uint32_t>(0, 31);
    const Place data = Address(KEL_VMalloc(heap_, size));
    FUZZ_EQUAL(data, model_.Allocate(size));
    // The last block, taken whole, links to the end instead of the first one,
    // and is not handed out.
    const Place taken = model_.taken();
    if (taken != 0 && !model_.Inside(model_.Get(taken).next)) {
      if (chain_ == Chain::kRing && !wrapped_)
        chain_ = Chain::kLine;
      else if (chain_ == Chain::kRing)
        Lose();
    }
    if (data != 0)
      Keep(data, size);
  }

  void Free() {
    if (blocks_.empty())
      return;
    const Block block = TakeAny();
    if (!Lost())
      CheckContents(block, block.size);
    // The first block of a ring that became a line still links back to the last.
    const bool refused = chain_ == Chain::kLine &&
                         block.data - kHeaderBytes == model_.start() &&
                         model_.Inside(model_.Get(model_.start()).prev);
    const int32_t result = KEL_VFree(heap_, reinterpret_cast<void *>(block.data));
    FUZZ_EQUAL(result, model_.Free(block.data));
    if (!Lost())
      FUZZ_EQUAL(result, refused ? -1 : 0);
    MergedWithItself(block.data - kHeaderBytes);
  }

  // Nothing but free space does so, and its size says twice too much then.
  void MergedWithItself(Place header) {
    if (chain_ != Chain::kRing || model_.Get(header).next != header)
      return;
    only_free_ = header;
    total_ *= 2;
    if (total_ > UINT32_MAX / 4)
      Lose();
  }

  void Reallocate() {
    if (blocks_.empty())
      return;
    const Block block = TakeAny();
    const uint32_t size = input_.ConsumeIntegral<uint16_t>() % (size_ + 100);
    const bool tried = KEL_VGetFree(heap_) >= RegionModel::Rounded(size);
    const Place result =
        Address(KEL_VReAlloc(heap_, reinterpret_cast<void *>(block.data), size));
    FUZZ_EQUAL(result, model_.Reallocate(block.data, size));
    if (!tried) {
      FUZZ_CHECK(result == 0);
      Add(block);
      return;
    }
    lost_headers_ += kHeaderBytes;
    // A block that is only freed keeps the copy of its allocated size.
    if (result == 0) {
      copies_of_free_agree_ = false;
      return;
    }
    CheckReallocated(block, result, size);
    // Contents that moved lie over the new block's header, a block of no bytes
    // counts as free, and one that reached the end has cut the chain.
    if (model_.moved() || size == 0 || !model_.Inside(model_.Get(result).next))
      Lose();
    if (!model_.moved())
      Keep(block.data, size);
  }

  void CheckReallocated(const Block &block, Place header, uint32_t size) const {
    const Place contents = model_.moved() ? header : block.data;
    FUZZ_CHECK(model_.moved() || block.data == header + kHeaderBytes);
    // The header of what was left over may have been cut out of them.
    const Place rest = header + kHeaderBytes + RegionModel::Rounded(size);
    const bool kept =
        !model_.moved() || rest + kHeaderBytes <= block.data || rest >= block.data + block.size;
    if (Lost() || !kept)
      return;
    const uint64_t bytes = std::min<uint64_t>({size, block.size, model_.end() - contents});
    CheckContents({contents, size, block.fill}, static_cast<uint32_t>(bytes));
  }

  void FreeAnything() {
    Lose();
    const Place data = model_.start() + input_.ConsumeIntegral<uint16_t>() % (size_ + 200) - 50;
    FUZZ_EQUAL(KEL_VFree(heap_, reinterpret_cast<void *>(data)), model_.Free(data));
  }

  void Scribble() {
    Lose();
    const Place from = model_.start() + input_.ConsumeIntegral<uint16_t>() % size_;
    const size_t room = std::min<size_t>(model_.end() - from, kHeaderBytes);
    const auto noise =
        input_.ConsumeBytes<uint8_t>(input_.ConsumeIntegralInRange<size_t>(0, room));
    if (!noise.empty())
      Write(from, noise.data(), noise.size());
    // Links that lead somewhere do more harm than noise.
    const Place link = model_.start() + input_.ConsumeIntegral<uint16_t>() % (size_ + 100);
    const Place to = model_.start() + input_.ConsumeIntegral<uint16_t>() % size_;
    Write(to, &link, std::min<size_t>(sizeof link, model_.end() - to));
  }

  void Reset() {
    Lose();
    KEL_VMemReset(heap_);
    model_.Reset();
    blocks_.clear();
    std::fill(live_.begin(), live_.end(), 0);
    FUZZ_EQUAL(KEL_VGetFree(heap_), size_ - kHeaderBytes);
    // All is in order again, were it not for what still leads to the old blocks:
    // the place where the search goes on, and the first block's previous one.
    const Place start = model_.start();
    if (!model_.Inside(start) || (model_.cursor() != 0 && model_.cursor() != start) ||
        model_.Inside(model_.Get(start).prev))
      return;
    chain_ = Chain::kLine;
    total_ = size_;
    lost_headers_ = 0;
    copies_of_free_agree_ = false;
  }

  void Check() {
    FUZZ_EQUAL(KEL_VGetFree(heap_), model_.free());
    FUZZ_CHECK(memcmp(region_, model_.image(), size_) == 0);
    if (!Lost())
      CheckChain();
  }

  Header At(Place place) const {
    Header header;
    memcpy(&header, reinterpret_cast<const void *>(place), sizeof header);
    return header;
  }

  void CheckChain() {
    const Place start = model_.start();
    const bool ring = chain_ == Chain::kRing;
    const Place first = ring ? AnyOfRing() : start;
    const Place last = ring ? first : model_.end();
    bool met_cursor = model_.cursor() == 0;
    uint32_t sum = 0, used = 0;
    size_t live = 0;
    wrapped_ = false;
    Place at = first;
    do {
      FUZZ_CHECK(model_.Inside(at));
      const Header header = At(at);
      CheckHeader(at, header);
      met_cursor = met_cursor || at == model_.cursor();
      wrapped_ = wrapped_ || header.size > model_.end() - at;
      sum += header.size;
      FUZZ_CHECK(sum <= total_);
      if (header.allocated != 0) {
        used += header.size;
        live += live_[at + kHeaderBytes - start] == header.allocated ? 1 : 0;
      }
      at = header.next;
    } while (at != last);
    FUZZ_EQUAL(sum, total_);
    FUZZ_EQUAL(live, blocks_.size());
    FUZZ_EQUAL(model_.free(), size_ - kHeaderBytes - lost_headers_ - used);
    // The search may go on from a header that was merged into another one; such
    // a heap may hand out what is taken.
    if (!met_cursor)
      Lose();
  }

  // The region's first block may have merged with the last one.
  Place AnyOfRing() const {
    return blocks_.empty() ? only_free_ : blocks_.front().data - kHeaderBytes;
  }

  void CheckHeader(Place at, const Header &header) const {
    const bool used = header.allocated != 0;
    if (used || copies_of_free_agree_)
      FUZZ_CHECK(header.AgreesWithCopy());
    FUZZ_CHECK(header.size >= header.allocated + kHeaderBytes);
    // Next to each other, and round the end of the region.
    FUZZ_EQUAL((at - model_.start() + header.size) % size_,
               (header.next - model_.start()) % size_);
    if (!model_.Inside(header.next) || header.next == at)
      return;
    const Header next = At(header.next);
    FUZZ_EQUAL(next.prev, at);
    FUZZ_CHECK(used || next.allocated != 0);
  }

  FuzzedDataProvider &input_;
  uint32_t size_;
  uint8_t *region_;
  KEL_VMEM *heap_;
  RegionModel model_;
  std::vector<Block> blocks_;
  std::vector<uint32_t> live_;  // allocated size, by the offset of the data
  Chain chain_ = Chain::kRing;
  Place only_free_;            // the last header, when no block is in use
  uint32_t total_;             // what the sizes in the chain add up to
  uint32_t lost_headers_ = 0;  // bytes that reallocation does not count back
  bool wrapped_ = false;       // a block claims to reach beyond the region
  bool copies_of_free_agree_ = true;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  Run run(input);
  for (int steps = 0; steps < 300 && input.remaining_bytes() > 0; ++steps)
    run.Step();
  return 0;
}
