// Region heap: headers byte by byte, splitting, merging, corruption, limits.

#include "kelcore_virtmem.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <atomic>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_mutex.h"
#include "trace_capture.h"

namespace {

constexpr uint32_t kHeader = 56;

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelvirtmem", "kelcore_virtmem", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}

// A block's header, read field by field at its place.
struct Header {
  uint32_t copy_size, pad0;
  uint64_t copy_prev, copy_next;
  uint32_t copy_allocated, size;
  uint64_t prev, next;
  uint32_t allocated, pad1;
};
static_assert(sizeof(Header) == kHeader);
static_assert(offsetof(Header, size) == 28 && offsetof(Header, next) == 40 &&
              offsetof(Header, allocated) == 48);

// One arena for all threads: a heap's record from another one could lie above its region.
[[maybe_unused]] const int one_arena = mallopt(M_ARENA_MAX, 1);

// Region memory above the heap of the process, where blocks are handed out.
class Region {
 public:
  explicit Region(size_t size) : size_(size) {
    memory_ = static_cast<uint8_t *>(
        mmap(nullptr, size + 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  }
  ~Region() { munmap(memory_, size_ + 4096); }
  Region(const Region &) = delete;
  Region &operator=(const Region &) = delete;
  uint8_t *data() const { return memory_; }

 private:
  size_t size_;
  uint8_t *memory_;
};

class Heap : public testing::Test {
 protected:
  static constexpr uint32_t kSize = 1024;
  void SetUp() override {
    memset(region.data(), 0xEE, kSize + 64);
    heap = KEL_VMemCreate(region.data(), kSize);
    ASSERT_NE(heap, nullptr);
    ASSERT_LT(reinterpret_cast<uintptr_t>(heap), reinterpret_cast<uintptr_t>(region.data()));
    trace.Take();
  }
  void TearDown() override {
    for (uint32_t i = kSize; i < kSize + 64; ++i)
      ASSERT_EQ(region.data()[i], 0xEE) << "written behind the end";
    // The region is not malloc's, so the heap is taken apart by hand.
    KEL_MUTEX *mutex;
    memcpy(&mutex, reinterpret_cast<char *>(heap) + 32, sizeof mutex);
    KEL_MutexDestroy(mutex);
    free(heap);
  }
  Header At(uint32_t offset) {
    Header header;
    memcpy(&header, region.data() + offset, sizeof header);
    return header;
  }
  Header Of(void *data) { return At(OffsetOf(data)); }
  void Set(uint32_t offset, const Header &header) {
    memcpy(region.data() + offset, &header, sizeof header);
  }
  uint32_t OffsetOf(void *data) {
    return static_cast<uint32_t>(static_cast<uint8_t *>(data) - region.data()) - kHeader;
  }
  uint64_t Address(uint32_t offset) {
    return reinterpret_cast<uintptr_t>(region.data()) + offset;
  }
  void ExpectHeader(uint32_t offset, uint32_t size, uint64_t prev, uint64_t next,
                    uint32_t allocated) {
    const Header h = At(offset);
    EXPECT_EQ(h.size, size);
    EXPECT_EQ(h.prev, prev);
    EXPECT_EQ(h.next, next);
    EXPECT_EQ(h.allocated, allocated);
    EXPECT_EQ(h.copy_size, size);
    EXPECT_EQ(h.copy_prev, prev);
    EXPECT_EQ(h.copy_next, next);
    EXPECT_EQ(h.copy_allocated, allocated);
  }
  void *Alloc(uint32_t size) { return KEL_VMalloc(heap, size); }
  void SetCursor(uint32_t offset) {
    const uint64_t cursor = Address(offset);
    memcpy(reinterpret_cast<char *>(heap) + 24, &cursor, sizeof cursor);
  }

  Region region{kSize};
  KEL_VMEM *heap = nullptr;
  TraceCapture trace{"kelvirtmem:4"};
};

// ---- Creation ----

TEST_F(Heap, BeginsAsOneFreeBlockLinkedToItself) {
  ExpectHeader(0, kSize, 0, Address(0), 0);
  for (uint32_t i = kHeader; i < kSize; ++i)
    ASSERT_EQ(region.data()[i], 0) << "zeroed";
  EXPECT_EQ(KEL_VGetFree(heap), 968u);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("DEBUG", "KEL_VGetFree", "total(1024) free(968) (94)%\n")}));
}

TEST_F(Heap, TheRecordIsLaidOutInOrder) {
  const char *record = reinterpret_cast<char *>(heap);
  uint64_t start, end, cursor;
  uint32_t total, free_bytes;
  memcpy(&start, record, 8);
  memcpy(&end, record + 8, 8);
  memcpy(&total, record + 16, 4);
  memcpy(&free_bytes, record + 20, 4);
  memcpy(&cursor, record + 24, 8);
  EXPECT_EQ(start, Address(0));
  EXPECT_EQ(end, Address(kSize));
  EXPECT_EQ(total, kSize);
  EXPECT_EQ(free_bytes, 968u);
  EXPECT_EQ(cursor, 0u);
  void *data = Alloc(8);
  memcpy(&cursor, record + 24, 8);
  EXPECT_EQ(cursor, Address(0));
  EXPECT_NE(data, nullptr);
}

TEST(HeapCreate, AllocatesARegionWithoutOne) {
  AllocHooks hooks;
  TraceCapture trace("kelvirtmem:4");
  KEL_VMEM *heap = KEL_VMemCreate(nullptr, 1 << 20);
  ASSERT_NE(heap, nullptr);
  ASSERT_EQ(hooks.adds.size(), 3u);
  EXPECT_EQ(hooks.adds[0].size, 1u << 20);
  EXPECT_EQ(hooks.adds[1].size, 40u);
  EXPECT_EQ(trace.Take(), (Lines{Line("DEBUG", "KEL_VMemCreate", "alloc heap size(1048576)\n"),
                                 Line("DEBUG", "KEL_VMemCreate",
                                      Format("virtual memory created (%x)\n", Low32(heap)))}));
  EXPECT_NE(KEL_VMalloc(heap, 100), nullptr);
  KEL_VMemDestroy(heap);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(HeapCreate, FailuresGiveNull) {
  AllocHooks hooks;
  TraceCapture trace("kelvirtmem:4");
  EXPECT_EQ(KEL_VMemCreate(nullptr, 0), nullptr);
  EXPECT_EQ(trace.Take(), Lines{});
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_VMemCreate(nullptr, 1024), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("DEBUG", "KEL_VMemCreate", "alloc heap size(1024)\n"),
                   Line("DEBUG", "KEL_VMemCreate", "alloc failed size(1024)\n")}));
  faults::malloc.Fail(nullptr, ENOMEM, 1);
  EXPECT_EQ(KEL_VMemCreate(nullptr, 1024), nullptr);
  faults::ResetAll();
  ASSERT_EQ(hooks.live(), 1) << "the region stays behind";
  free(hooks.adds[0].block);
}

TEST(HeapNull, IsHarmless) {
  KEL_VMemDestroy(nullptr);
  KEL_VMemReset(nullptr);
  EXPECT_EQ(KEL_VMalloc(nullptr, 8), nullptr);
  EXPECT_EQ(KEL_VFree(nullptr, nullptr), -1);
  EXPECT_EQ(KEL_VReAlloc(nullptr, nullptr, 8), nullptr);
  EXPECT_EQ(KEL_VGetFree(nullptr), 0u);
}

TEST(HeapTiny, BelowAHeaderHoldsNothingAndWritesNothingOutside) {
  for (uint32_t size : {1u, 8u, 55u}) {
    std::vector<uint8_t> region(size + 64, 0xEE);
    KEL_VMEM *heap = KEL_VMemCreate(region.data(), size);
    ASSERT_NE(heap, nullptr);
    EXPECT_EQ(KEL_VMalloc(heap, 8), nullptr);
    KEL_VMemReset(heap);
    for (size_t i = size; i < region.size(); ++i)
      ASSERT_EQ(region[i], 0xEE);
    KEL_MUTEX *mutex;
    memcpy(&mutex, reinterpret_cast<char *>(heap) + 32, sizeof mutex);
    KEL_MutexDestroy(mutex);
    free(heap);
  }
}

TEST(HeapBelow, ARegionBelowTheRecordNeverYieldsABlock) {
  static uint8_t region[1024];
  KEL_VMEM *heap = KEL_VMemCreate(region, sizeof region);
  if (reinterpret_cast<uintptr_t>(heap) < reinterpret_cast<uintptr_t>(region)) {
    KEL_MUTEX *mutex;
    memcpy(&mutex, reinterpret_cast<char *>(heap) + 32, sizeof mutex);
    KEL_MutexDestroy(mutex);
    free(heap);
    GTEST_SKIP() << "static memory lies above the heap of the process here";
  }
  EXPECT_EQ(KEL_VMalloc(heap, 8), nullptr);
  EXPECT_EQ(KEL_VGetFree(heap), 904u) << "though the free count drops";
  KEL_MUTEX *mutex;
  memcpy(&mutex, reinterpret_cast<char *>(heap) + 32, sizeof mutex);
  KEL_MutexDestroy(mutex);
  free(heap);
}

// ---- Allocation ----

TEST_F(Heap, TheFirstBlockIsSplitOff) {
  void *data = Alloc(1);
  ASSERT_EQ(data, region.data() + kHeader);
  ExpectHeader(0, 64, Address(64), Address(64), 8);
  ExpectHeader(64, 960, Address(0), Address(0), 0);
  EXPECT_EQ(KEL_VGetFree(heap), 904u);
  const unsigned start = Low32(region.data()), block = Low32(data);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("TRACE", "KEL_VMalloc",
                        Format("start(%x) free(968) size(1) asize(8)\n", start)),
                   Line("TRACE", "allocHeapBlock",
                        Format("blk(%x) ptr(%x) prv(%x) next(%x) size(64)\n", start, block,
                               start + 64, start + 64)),
                   Line("TRACE", "KEL_VMalloc",
                        Format("allocated. pAlloc(%x) start(%x) free(904) size(1) asize(8)\n",
                               block, start)),
                   Line("DEBUG", "KEL_VGetFree", "total(1024) free(904) (88)%\n")}));
}

TEST_F(Heap, SizesAreRoundedTo8) {
  for (const auto &[size, rounded] :
       std::map<uint32_t, uint32_t>{{1, 8}, {8, 8}, {9, 16}, {63, 64}}) {
    void *data = Alloc(size);
    EXPECT_EQ(Of(data).allocated, rounded);
    EXPECT_EQ(Of(data).size, rounded + kHeader);
  }
}

TEST_F(Heap, ARemainderOf63OrLessGoesWithTheBlock) {
  Alloc(8);  // stays: the first block's previous one is the free last one
  void *first = Alloc(136);
  ASSERT_NE(Alloc(8), nullptr);
  KEL_VFree(heap, first);
  // 192 bytes are free: 80 + 56 leave 56, 72 + 56 leave 64, which is a block.
  SetCursor(64);
  void *whole = Alloc(80);
  EXPECT_EQ(whole, first);
  EXPECT_EQ(Of(whole).size, 192u);
  EXPECT_EQ(Of(whole).allocated, 80u);
  KEL_VFree(heap, whole);
  SetCursor(64);
  void *cut = Alloc(72);
  EXPECT_EQ(cut, first);
  EXPECT_EQ(Of(cut).size, 128u);
  ExpectHeader(192, 64, Address(64), Address(256), 0);
  EXPECT_EQ(At(256).prev, Address(192));
}

TEST_F(Heap, TheLastBlockHandedOutWholeIsRefused) {
  const uint32_t free_before = KEL_VGetFree(heap);
  trace.Take();
  EXPECT_EQ(Alloc(960), nullptr);
  EXPECT_EQ(KEL_VGetFree(heap), free_before - 1024) << "though the free count drops";
  const unsigned start = Low32(region.data());
  const Lines lines = trace.Take();
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      Error("KEL_VMalloc",
                            Format("pHeap(%x) newblk(%x) p(%x) end(%x) next(%x)\n", Low32(heap),
                                   start, start + 56, start + 1024, start + 1024))),
            lines.end());
}

// It links to the region's end then, which is no block: no search gets past it.
TEST_F(Heap, ALastBlockTakenWholeCutsOffWhatLiesInFront) {
  ASSERT_NE(Alloc(8), nullptr);
  void *front = Alloc(200);
  ASSERT_NE(Alloc(8), nullptr);
  EXPECT_EQ(Alloc(KEL_VGetFree(heap)), nullptr);
  EXPECT_EQ(KEL_VFree(heap, front), 0);
  EXPECT_GE(KEL_VGetFree(heap), 200u);
  EXPECT_EQ(Alloc(200), nullptr);
  EXPECT_EQ(Alloc(8), nullptr);
}

TEST_F(Heap, NothingAndTooMuchAreRefused) {
  EXPECT_EQ(Alloc(0), nullptr);
  EXPECT_EQ(trace.Messages("", "ERROR"),
            (std::vector<std::string>{"invalid argument size(0) asize(0)\n"}));
  EXPECT_EQ(Alloc(0xFFFFFFFF), nullptr) << "rounds to 0";
  EXPECT_EQ(trace.Messages("", "ERROR"),
            (std::vector<std::string>{"invalid argument size(-1) asize(0)\n"}));
  EXPECT_EQ(Alloc(969), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_VMalloc", "out of memory alloc size(969)\n"),
                   Line("DEBUG", "KEL_VGetFree", "total(1024) free(968) (94)%\n")}));
}

TEST_F(Heap, TheSearchEndsWhereItBegan) {
  Alloc(8);
  void *hole = Alloc(300);
  Alloc(8);
  ASSERT_NE(Alloc(300), nullptr);
  KEL_VFree(heap, hole);
  trace.Take();
  EXPECT_EQ(Alloc(400), nullptr) << "480 bytes are free, in two pieces";
  const Lines lines = trace.Take();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines[lines.size() - 3], Error("KEL_VMalloc", "out of memory alloc size(400)\n"));
  const unsigned start = Low32(region.data());
  EXPECT_EQ(
      lines[lines.size() - 2],
      Error("KEL_VMalloc", Format("prvblk(%x) blk(%x) pHeap(%x) pStart(%x) m_pEnd(%x)\n",
                                  start + 424, start + 488, Low32(heap), start, start + 1024)));
  EXPECT_EQ(lines.back(), Line("DEBUG", "KEL_VGetFree", "total(1024) free(480) (46)%\n"));
}

TEST_F(Heap, SmallBlocksAreSteppedOverWithATrace) {
  Alloc(8);
  void *hole = Alloc(8);
  ASSERT_NE(Alloc(8), nullptr);
  KEL_VFree(heap, hole);
  SetCursor(64);
  trace.Take();
  EXPECT_NE(Alloc(100), nullptr);
  EXPECT_EQ(trace.Take()[1],
            Line("DEBUG", "allocHeapBlock", "small blksize(64) need(160). move to next\n"));
}

TEST_F(Heap, TheNextSearchBeginsAtTheLastBlock) {
  void *first = Alloc(8);
  void *second = Alloc(8);
  KEL_VFree(heap, first);
  void *third = Alloc(8);
  EXPECT_EQ(static_cast<uint8_t *>(third), static_cast<uint8_t *>(second) + 64)
      << "not the hole before it";
}

// ---- Freeing ----

TEST_F(Heap, FreeingMergesWithBothNeighbours) {
  Alloc(8);
  void *a = Alloc(8), *b = Alloc(8), *c = Alloc(8);
  ASSERT_NE(Alloc(8), nullptr);
  EXPECT_EQ(KEL_VFree(heap, a), 0);
  ExpectHeader(64, 64, Address(0), Address(128), 0);
  EXPECT_EQ(KEL_VFree(heap, c), 0);
  ExpectHeader(192, 64, Address(128), Address(256), 0);
  EXPECT_EQ(KEL_VFree(heap, b), 0);
  ExpectHeader(64, 192, Address(0), Address(256), 0);
  EXPECT_EQ(At(256).prev, Address(64));
  EXPECT_EQ(KEL_VGetFree(heap), 968u - 64 - 64);
}

TEST_F(Heap, TheFirstBlockMergesIntoTheLastAroundTheRing) {
  void *first = Alloc(8);
  ASSERT_NE(Alloc(8), nullptr);
  EXPECT_EQ(KEL_VFree(heap, first), 0);
  // By links, not by addresses: the last block now claims the first one's bytes.
  ExpectHeader(128, 896 + 64, Address(64), Address(64), 0);
}

// The search goes on from the block handed out last, also when that was absorbed by
// the free one before it: its old header is used again, inside the other block.
TEST_F(Heap, AnAbsorbedBlockCanBeHandedOutTwice) {
  ASSERT_NE(Alloc(8), nullptr);
  void *before = Alloc(8), *last = Alloc(8);
  EXPECT_EQ(KEL_VFree(heap, before), 0);
  EXPECT_EQ(KEL_VFree(heap, last), 0);
  auto *inner = static_cast<uint8_t *>(Alloc(8));
  EXPECT_EQ(inner, last);
  auto *outer = static_cast<uint8_t *>(Alloc(840));
  EXPECT_EQ(outer, before);
  EXPECT_LT(inner, outer + 840) << "one lies inside the other";
}

TEST_F(Heap, ABrokenHeaderIsRefusedAndReported) {
  void *data = Alloc(8);
  ASSERT_NE(Alloc(8), nullptr);
  const Header good = At(0);
  struct {
    const char *what;
    void (*damage)(Header &);
  } const damages[] = {
      {"copy of size", [](Header &h) { h.copy_size ^= 4; }},
      {"copy of prev", [](Header &h) { h.copy_prev ^= 4; }},
      {"copy of next", [](Header &h) { h.copy_next ^= 4; }},
      {"copy of allocated", [](Header &h) { h.copy_allocated ^= 4; }},
      {"size", [](Header &h) { h.size ^= 4; }},
      {"prev", [](Header &h) { h.prev ^= 4; }},
      {"next", [](Header &h) { h.next ^= 4; }},
      {"allocated", [](Header &h) { h.allocated ^= 4; }},
  };
  for (const auto &[what, damage] : damages) {
    Header bad = good;
    damage(bad);
    Set(0, bad);
    trace.Take();
    EXPECT_EQ(KEL_VFree(heap, data), -1) << what;
    EXPECT_EQ(trace.Take(),
              (Lines{Line("TRACE", "KEL_VFree",
                          Format("mem(%x) asize(%u) bsize(%u)\n", Low32(data), bad.allocated,
                                 bad.size)),
                     Error("checkBlockHeader",
                           Format("heap header is broken blksize(%u)(%u) prvaddr(%x)(%x) "
                                  "next(%x)(%x) alocsize(%u)(%u)\n",
                                  bad.size, bad.copy_size, Low32(bad.prev),
                                  Low32(bad.copy_prev), Low32(bad.next), Low32(bad.copy_next),
                                  bad.allocated, bad.copy_allocated))}));
  }
  Set(0, good);
  EXPECT_EQ(KEL_VFree(heap, data), 0);
}

TEST_F(Heap, AnEmptyHeaderIsRefused) {
  void *data = Alloc(8);
  Set(0, Header{});
  trace.Take();
  EXPECT_EQ(KEL_VFree(heap, data), -1);
  EXPECT_EQ(trace.Take()[1],
            Error("checkBlockHeader", Format("heap header is broken (0x%x)!!! blksize(0)\n",
                                             Low32(region.data()))));
}

TEST_F(Heap, NeighboursMustPointBack) {
  void *a = Alloc(8), *b = Alloc(8), *c = Alloc(8);
  ASSERT_NE(c, nullptr);
  Header previous = Of(a);
  const Header kept = previous;
  previous.next = previous.copy_next = Address(512);
  Set(0, previous);
  trace.Take();
  EXPECT_EQ(KEL_VFree(heap, b), -1);
  EXPECT_EQ(trace.Messages("", "ERROR"),
            (std::vector<std::string>{
                Format("heap header is broken !!! next(%x) of prev blk is not me(%x)\n",
                       Low32(Address(512)), Low32(Address(64)))}));
  Set(0, kept);
  Header next = Of(c);
  next.prev = next.copy_prev = Address(0);
  Set(128, next);
  EXPECT_EQ(KEL_VFree(heap, b), -1);
  EXPECT_EQ(trace.Messages("", "ERROR"),
            (std::vector<std::string>{
                Format("heap header is broken !!! prev(%x) of next blk is not me(%x)\n",
                       Low32(Address(0)), Low32(Address(64)))}));
}

TEST_F(Heap, DataOutsideTheRegionIsABrokenHeader) {
  int elsewhere = 0;
  EXPECT_EQ(KEL_VFree(heap, &elsewhere), -1);
  EXPECT_EQ(KEL_VFree(heap, region.data()), -1);
  EXPECT_EQ(KEL_VReAlloc(heap, &elsewhere, 8), nullptr);
}

TEST_F(Heap, LinksThatLeadOutsideAreNeverFollowed) {
  void *a = Alloc(8);
  ASSERT_NE(Alloc(8), nullptr);
  for (uint64_t link : {uint64_t{8}, Address(kSize), Address(kSize - 8), ~uint64_t{0}}) {
    Header header = At(0);
    const Header kept = header;
    header.next = header.copy_next = link;
    header.prev = header.copy_prev = link;
    Set(0, header);
    KEL_VFree(heap, a);
    Alloc(900);
    Set(0, kept);
  }
}

TEST_F(Heap, AllocationReportsABrokenHeaderAndCarriesOn) {
  Header header = At(0);
  header.copy_size = 7;
  Set(0, header);
  EXPECT_NE(Alloc(8), nullptr);
  const Lines lines = trace.Take();
  EXPECT_EQ(lines[2], Error("allocHeapBlock", "checkBlockHeader failed\n"));
}

// ---- Reset and reallocation ----

TEST_F(Heap, ResetLeavesTheCopiesAndTheCursor) {
  Alloc(8);
  Alloc(8);
  const Header before = At(0);
  KEL_VMemReset(heap);
  const Header header = At(0);
  EXPECT_EQ(header.size, kSize);
  EXPECT_EQ(header.next, Address(kSize));
  EXPECT_EQ(header.allocated, 0u);
  EXPECT_EQ(header.prev, before.prev);
  EXPECT_EQ(header.copy_size, before.copy_size);
  EXPECT_EQ(header.copy_allocated, before.copy_allocated);
  EXPECT_EQ(KEL_VGetFree(heap), 968u);
  uint64_t cursor;
  memcpy(&cursor, reinterpret_cast<char *>(heap) + 24, 8);
  EXPECT_EQ(cursor, Address(64));
}

TEST_F(Heap, ReallocInPlaceReturnsTheHeader) {
  void *data = Alloc(8);
  void *again = KEL_VReAlloc(heap, data, 200);
  EXPECT_EQ(again, region.data());
  EXPECT_EQ(At(0).allocated, 200u);
  EXPECT_EQ(At(0).size, 256u);
}

TEST_F(Heap, ReallocCountsAllButTheHeaderBack) {
  void *data = Alloc(8);
  const uint32_t before = KEL_VGetFree(heap);
  KEL_VReAlloc(heap, data, 8);
  EXPECT_EQ(KEL_VGetFree(heap), before + 8 - 64);
}

TEST_F(Heap, ReallocElsewhereCopiesToTheHeader) {
  auto *first = static_cast<char *>(Alloc(16));
  void *second = Alloc(16);
  ASSERT_NE(second, nullptr);
  strcpy(first, "contents");
  auto *moved = static_cast<char *>(KEL_VReAlloc(heap, first, 200));
  ASSERT_NE(moved, nullptr);
  EXPECT_EQ(reinterpret_cast<uint8_t *>(moved), region.data() + 144);
  EXPECT_STREQ(moved, "contents") << "over the header itself";
}

// Each reallocation in place counts its header twice: the free count ends up
// below nothing, which reads as nearly 4 GiB.
TEST_F(Heap, AHugeRequestIsRefusedWhateverTheCountSays) {
  void *data = KEL_VMalloc(heap, 100);
  ASSERT_NE(data, nullptr);
  constexpr uint32_t kHuge = 0xFFFFFFC8;  // with its header: 0 in 32 bits
  for (int i = 0; i < 100000 && KEL_VGetFree(heap) < kHuge; ++i)
    ASSERT_NE(KEL_VReAlloc(heap, data, 1), nullptr);
  ASSERT_GE(KEL_VGetFree(heap), kHuge);
  EXPECT_EQ(KEL_VMalloc(heap, kHuge), nullptr);
}

TEST_F(Heap, ReallocThatFindsNothingGivesNull) {
  void *data = Alloc(300);
  ASSERT_NE(Alloc(300), nullptr);
  EXPECT_EQ(KEL_VReAlloc(heap, data, 500), nullptr);
  EXPECT_EQ(KEL_VReAlloc(heap, data, 5000), nullptr);
}

// ---- Forged headers: nothing outside the region is ever touched ----

class ForgedHeap : public Heap {
 protected:
  // A header that passes its own check.
  void Forge(uint32_t offset, uint32_t size, uint64_t prev, uint64_t next, uint32_t allocated) {
    Header header = {};
    header.copy_size = header.size = size;
    header.copy_prev = header.prev = prev;
    header.copy_next = header.next = next;
    header.copy_allocated = header.allocated = allocated;
    Set(offset, header);
  }
  std::vector<std::string> Errors() { return trace.Messages("kelvirtmem", "ERROR"); }
};

TEST_F(ForgedHeap, WithAPreviousBlockAndNoNextOneAHeaderIsGood) {
  Forge(0, 64, 0, Address(64), 8);
  Forge(64, 64, Address(0), Address(kSize), 8);
  EXPECT_EQ(KEL_VFree(heap, region.data() + 64 + kHeader), 0);
  EXPECT_EQ(Errors(), std::vector<std::string>{});
  ExpectHeader(64, 64, Address(0), Address(kSize), 0);
}

TEST_F(ForgedHeap, AFreePredecessorAbsorbsABlockWithoutANextOne) {
  Forge(0, 64, 0, Address(64), 0);
  Forge(64, 64, Address(0), Address(kSize), 8);
  EXPECT_EQ(KEL_VFree(heap, region.data() + 64 + kHeader), 0);
  ExpectHeader(0, 128, 0, Address(kSize), 0);
}

TEST_F(ForgedHeap, ARemainderBehindTheEndIsNotWritten) {
  Forge(856, 5000, 0, Address(856), 0);
  SetCursor(856);
  EXPECT_EQ(Alloc(104), region.data() + 856 + kHeader);
  ExpectHeader(856, 160, 0, Address(856 + 160), 104);
}

TEST_F(ForgedHeap, ABlockWhoseDataBeginsAtTheEndIsRefused) {
  Forge(968, 64, 0, Address(968), 0);
  SetCursor(968);
  EXPECT_EQ(Alloc(8), nullptr);
  EXPECT_EQ(
      Errors(),
      (std::vector<std::string>{Format("pHeap(%x) newblk(%x) p(%x) end(%x) next(%x)\n",
                                       Low32(heap), Low32(Address(968)), Low32(Address(kSize)),
                                       Low32(Address(kSize)), Low32(Address(1032)))}));
}

TEST_F(ForgedHeap, TheSearchEndsQuietlyWithoutANextBlock) {
  Forge(0, 64, 0, 0, 8);
  EXPECT_EQ(Alloc(8), nullptr);
  EXPECT_EQ(Errors(), std::vector<std::string>{});
}

TEST_F(ForgedHeap, TheSearchEndsAtALinkThatLeadsOutside) {
  for (const uint64_t outside : {Address(kSize) + 8, Address(0) - 8}) {
    Forge(0, 64, 0, outside, 8);
    EXPECT_EQ(Alloc(8), nullptr);
    EXPECT_EQ(Errors(), (std::vector<std::string>{
                            "out of memory alloc size(8)\n",
                            Format("prvblk(%x) blk(%x) pHeap(%x) pStart(%x) m_pEnd(%x)\n",
                                   Low32(Address(0)), Low32(outside), Low32(heap),
                                   Low32(Address(0)), Low32(Address(kSize)))}));
  }
}

TEST_F(ForgedHeap, TheSearchLooksAtEachBlockOnce) {
  ASSERT_NE(Alloc(8), nullptr);
  void *between = Alloc(300);
  ASSERT_NE(Alloc(8), nullptr);
  KEL_VFree(heap, between);
  trace.Take();
  EXPECT_EQ(Alloc(600), nullptr);
  size_t small = 0;
  for (const std::string &message : trace.Messages("kelvirtmem", "DEBUG"))
    small += message.starts_with("small blksize");
  EXPECT_EQ(small, 2u) << "the one between and the last";
}

// From the first block into a circle that never comes back to it.
TEST_F(ForgedHeap, TheSearchEndsInACircle) {
  Forge(0, 64, 0, Address(64), 8);
  Forge(64, 64, Address(128), Address(128), 8);
  Forge(128, 64, Address(64), Address(64), 8);
  EXPECT_EQ(Alloc(8), nullptr);
  EXPECT_EQ(Errors()[0], "out of memory alloc size(8)\n");
}

TEST_F(ForgedHeap, ReallocationEndsInACircle) {
  Forge(0, 64, 0, Address(64), 8);
  Forge(64, 64, Address(128), Address(128), 8);
  Forge(128, 64, Address(64), Address(64), 8);
  Forge(512, 64, 0, 0, 8);
  EXPECT_EQ(KEL_VReAlloc(heap, region.data() + 512 + kHeader, 200), nullptr);
}

TEST_F(ForgedHeap, ReallocationEndsAtALinkThatLeadsOutside) {
  Forge(0, 64, 0, Address(kSize), 8);
  Forge(512, 64, 0, 0, 8);
  EXPECT_EQ(KEL_VReAlloc(heap, region.data() + 512 + kHeader, 200), nullptr);
}

TEST_F(ForgedHeap, ReallocationCopiesNoMoreThanTheRegionHolds) {
  // Forward: the new place has less room up to the end than the header claims.
  Forge(0, 64, 0, Address(64), 5000);
  Forge(64, 64, Address(0), Address(128), 8);
  Forge(128, 896, Address(64), Address(0), 0);
  memset(region.data() + kHeader, 'a', 8);
  auto *moved = static_cast<uint8_t *>(KEL_VReAlloc(heap, region.data() + kHeader, 200));
  ASSERT_EQ(moved, region.data() + 128);
  EXPECT_EQ(moved[0], 'a');
  // Backward: the old place has less.
  Forge(0, 512, 0, Address(512), 0);
  Forge(512, 64, Address(0), Address(576), 8);
  Forge(576, 64, Address(512), Address(kSize), 5000);
  memset(region.data() + 576 + kHeader, 'b', 8);
  moved = static_cast<uint8_t *>(KEL_VReAlloc(heap, region.data() + 576 + kHeader, 200));
  ASSERT_EQ(moved, region.data());
  EXPECT_EQ(moved[0], 'b');
  EXPECT_EQ(moved[kSize - 576 - kHeader], 0) << "copied from behind the end";
}

// The sizes of a block and of the one that absorbs it can wrap to nothing.
TEST_F(ForgedHeap, AnEmptyPredecessorFailsTheFree) {
  Forge(0, 0u - 64, 0, Address(64), 0);
  Forge(64, 64, Address(0), Address(kSize), 8);
  EXPECT_EQ(KEL_VFree(heap, region.data() + 64 + kHeader), -1);
  Forge(0, 0, 0, Address(64), 8);
  Forge(64, 64, Address(0), Address(kSize), 8);
  EXPECT_EQ(KEL_VFree(heap, region.data() + 64 + kHeader), 0) << "unless it is in use";
}

TEST_F(Heap, WithoutARegionThereIsNothing) {
  const uint64_t none = 0;
  uint64_t start;
  memcpy(&start, heap, sizeof start);
  memcpy(static_cast<void *>(heap), &none, sizeof none);
  EXPECT_EQ(KEL_VMalloc(heap, 8), nullptr);
  EXPECT_EQ(trace.Messages("kelvirtmem", "ERROR"),
            (std::vector<std::string>{"out of memory alloc size(8)\n"}));
  EXPECT_EQ(KEL_VFree(heap, region.data() + kHeader), 0);
  EXPECT_EQ(KEL_VReAlloc(heap, region.data() + kHeader, 8), nullptr);
  KEL_VMemReset(heap);
  memcpy(static_cast<void *>(heap), &start, sizeof start);
}

TEST(HeapTiny, OfNothingIsZeroPercentFree) {
  uint64_t region = 0;
  KEL_VMEM *heap = KEL_VMemCreate(&region, 0);
  ASSERT_NE(heap, nullptr);
  TraceCapture trace("kelvirtmem:3");
  EXPECT_EQ(KEL_VGetFree(heap), 0u - kHeader);
  EXPECT_EQ(trace.Messages(), (std::vector<std::string>{"total(0) free(-56) (0)%\n"}));
  KEL_MUTEX *mutex;
  memcpy(&mutex, reinterpret_cast<char *>(heap) + 32, sizeof mutex);
  KEL_MutexDestroy(mutex);
  free(heap);
}

// ---- Threads ----

// The count is read without the lock. Only ThreadSanitizer sees what that takes; that
// each value is one that the count had can be seen anywhere.
TEST(HeapThreads, TheFreeCountIsReadWhileOthersChangeIt) {
  constexpr uint32_t kSize = 1 << 20, kBlock = 64;
  KEL_VMEM *heap = KEL_VMemCreate(nullptr, kSize);
  ASSERT_NE(KEL_VMalloc(heap, 8), nullptr);
  const uint32_t most = KEL_VGetFree(heap);
  std::atomic<bool> done{false};
  std::thread other([&] {
    for (int i = 0; i < 1000; ++i)
      EXPECT_EQ(KEL_VFree(heap, KEL_VMalloc(heap, 8)), 0);
    done = true;
  });
  do {
    const uint32_t free = KEL_VGetFree(heap);
    EXPECT_TRUE(free == most || free == most - kBlock) << free;
  } while (!done);
  other.join();
  EXPECT_EQ(KEL_VGetFree(heap), most);
  KEL_VMemDestroy(heap);
}

// ---- Many operations ----

TEST(HeapLoad, WhatIsHeldIsNeverWrittenTo) {
  // The first block stays: freed, it would merge around the ring, and the last
  // block would then reach behind the end.
  constexpr uint32_t kSize = 1 << 20;
  KEL_VMEM *heap = KEL_VMemCreate(nullptr, kSize);
  ASSERT_NE(KEL_VMalloc(heap, 8), nullptr);
  std::mt19937 random(21);
  std::vector<std::pair<uint8_t *, uint32_t>> held;
  TraceCapture trace("kelvirtmem:1");
  for (int round = 0; round < 5000; ++round) {
    if (held.size() < 100 && random() % 3 != 0) {
      const auto size = static_cast<uint32_t>(random() % 2000 + 1);
      auto *data = static_cast<uint8_t *>(KEL_VMalloc(heap, size));
      ASSERT_NE(data, nullptr);
      memset(data, static_cast<int>(size & 0xFF), size);
      held.emplace_back(data, size);
    } else if (!held.empty()) {
      const size_t i = random() % held.size();
      const auto [data, size] = held[i];
      for (uint32_t at = 0; at < size; ++at)
        ASSERT_EQ(data[at], size & 0xFF);
      ASSERT_EQ(KEL_VFree(heap, data), 0);
      held[i] = held.back();
      held.pop_back();
    }
  }
  EXPECT_EQ(trace.Take(), Lines{}) << "no header was ever found broken";
  KEL_VMemDestroy(heap);
}

}  // namespace
