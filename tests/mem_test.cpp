// The allocation layer and its announcements.

#include "kelcore_mem.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "alloc_hooks.h"
#include "faults.h"
#include "new_process.h"
#include "thread_sleeps.h"
#include "trace_capture.h"

namespace {

std::string Bytes(const void *block, size_t size) {
  return {static_cast<const char *>(block), size};
}

// malloc gives blocks that are visibly dirty.
void DirtyMalloc() {
  faults::malloc.Replace([](size_t size) {
    void *block = faults::malloc.Real(size);
    return memset(block, 0x5C, size);
  });
}

// ---- KEL_Malloc

struct Fill {
  uint32_t fill;
  char byte;
};

TEST(Malloc, FillsTheWholeBlockWithTheLowByteOfTheFill) {
  for (const Fill &row : {Fill{0, 0}, Fill{0xAB, '\xAB'}, Fill{0x1FF, '\xFF'},
                          Fill{0xFF, '\xFF'}, Fill{0xFFFFFF00, 0}, Fill{0xFFFFFFFE, '\xFE'}}) {
    DirtyMalloc();
    void *block = KEL_Malloc(16, 0, row.fill, "file", 1, "func");
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Bytes(block, 16), std::string(16, row.byte)) << row.fill;
    KEL_Free(block, 0);
  }
}

TEST(Malloc, NoFillLeavesTheBlockAsItCame) {
  DirtyMalloc();
  void *block = KEL_Malloc(16, 0, 0xFFFFFFFF, "file", 1, "func");
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(Bytes(block, 16), std::string(16, '\x5C'));
  KEL_Free(block, 0);
}

TEST(Malloc, NoFillIsNamed) {
  EXPECT_EQ(KEL_NO_FILL, 0xFFFFFFFFu);
}

TEST(Malloc, FillsNothingBehindTheBlock) {
  faults::malloc.Replace([](size_t size) {
    void *block = faults::malloc.Real(size + 8);
    return memset(block, 0x5C, size + 8);
  });
  void *block = KEL_Malloc(16, 0, 0, "file", 1, "func");
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(Bytes(block, 24), std::string(16, '\0') + std::string(8, '\x5C'));
  KEL_Free(block, 0);
}

TEST(Malloc, WithoutAlignmentAsksMallocForTheSize) {
  size_t asked = 0;
  faults::malloc.Replace([&](size_t size) {
    asked = size;
    return faults::malloc.Real(size);
  });
  faults::aligned_alloc.Fail(nullptr, ENOMEM);
  void *block = KEL_Malloc(37, 0, 0, "file", 1, "func");
  EXPECT_EQ(asked, 37u);
  EXPECT_EQ(faults::aligned_alloc.Count(), 0);
  KEL_Free(block, 0);
}

TEST(Malloc, WithAlignmentGivesAnAlignedZeroedBlock) {
  void *block = KEL_Malloc(64, 32, 0, "file", 1, "func");
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 32, 0u);
  EXPECT_EQ(Bytes(block, 64), std::string(64, '\0'));
  KEL_Free(block, 0);
}

TEST(Malloc, WithAlignmentDoesNotRoundTheSizeUp) {
  size_t asked_align = 0;
  size_t asked_size = 0;
  faults::malloc.Fail(nullptr, ENOMEM);
  faults::aligned_alloc.Replace([&](size_t align, size_t size) {
    asked_align = align;
    asked_size = size;
    return faults::aligned_alloc.Real(align, 64);
  });
  void *block = KEL_Malloc(33, 32, 0, "file", 1, "func");
  EXPECT_EQ(asked_align, 32u);
  EXPECT_EQ(asked_size, 33u);
  EXPECT_EQ(faults::malloc.Count(), 0);
  KEL_Free(block, 0);
}

TEST(Malloc, AnnouncesTheBlockUnderTheCallersPosition) {
  AllocHooks hooks;
  void *block = KEL_Malloc(64, 32, 0, "some_file", 68, "some_func");
  ASSERT_EQ(hooks.adds.size(), 1u);
  const AllocHooks::Add &add = hooks.adds[0];
  EXPECT_EQ(add.block, block);
  EXPECT_EQ(add.size, 64u);
  EXPECT_EQ(add.align, 32u);
  EXPECT_EQ(add.file, "some_file");
  EXPECT_EQ(add.line, 68);
  EXPECT_EQ(add.func, "some_func");
  KEL_Free(block, 0);
}

TEST(Malloc, AnnouncesTheBlockAfterFillingIt) {
  AllocHooks hooks;
  std::string held;
  hooks.on_add = [&](void *block, uint32_t size) {
    held = Bytes(block, size);
    memset(block, 'H', size);
  };
  void *block = KEL_Malloc(4, 0, 0xAB, "file", 1, "func");
  EXPECT_EQ(held, "\xAB\xAB\xAB\xAB");
  EXPECT_EQ(Bytes(block, 4), "HHHH");
  KEL_Free(block, 0);
}

TEST(Malloc, FailureGivesNullAndAnnouncesNothing) {
  AllocHooks hooks;
  faults::malloc.Fail(nullptr, ENOMEM);
  errno = 0;
  EXPECT_EQ(KEL_Malloc(16, 0, 0, "file", 1, "func"), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(hooks.adds.empty());
}

TEST(Malloc, AlignedFailureGivesNullAndAnnouncesNothing) {
  AllocHooks hooks;
  faults::aligned_alloc.Fail(nullptr, EINVAL);
  EXPECT_EQ(KEL_Malloc(16, 3, 0, "file", 1, "func"), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(hooks.adds.empty());
}

TEST(Malloc, BlocksAreThoseOfTheCLibrary) {
  void *block = KEL_Malloc(16, 0, 0, "file", 1, "func");
  ASSERT_NE(block, nullptr);
  free(block);
}

// ---- KEL_Calloc

TEST(Calloc, GivesZeroedElements) {
  size_t asked_count = 0;
  size_t asked_size = 0;
  faults::calloc.Replace([&](size_t count, size_t size) {
    asked_count = count;
    asked_size = size;
    return faults::calloc.Real(count, size);
  });
  void *block = KEL_Calloc(3, 10, 0, "file", 1, "func");
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(asked_count, 3u);
  EXPECT_EQ(asked_size, 10u);
  EXPECT_EQ(Bytes(block, 30), std::string(30, '\0'));
  KEL_Free(block, 0);
}

TEST(Calloc, IgnoresItsReservedArgument) {
  void *block = KEL_Calloc(1, 10, 0xFFFFFFFF, "file", 1, "func");
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(Bytes(block, 10), std::string(10, '\0'));
  KEL_Free(block, 0);
}

TEST(Calloc, AnnouncesTheSizeOfOneElement) {
  AllocHooks hooks;
  void *block = KEL_Calloc(3, 10, 5, "some_file", 99, "some_func");
  ASSERT_EQ(hooks.adds.size(), 1u);
  const AllocHooks::Add &add = hooks.adds[0];
  EXPECT_EQ(add.block, block);
  EXPECT_EQ(add.size, 10u);
  EXPECT_EQ(add.align, 0u);
  EXPECT_EQ(add.file, "some_file");
  EXPECT_EQ(add.line, 99);
  EXPECT_EQ(add.func, "some_func");
  KEL_Free(block, 0);
}

TEST(Calloc, FailureGivesNullAndAnnouncesNothing) {
  AllocHooks hooks;
  faults::calloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_Calloc(3, 10, 0, "file", 1, "func"), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(hooks.adds.empty());
}

// ---- KEL_ReAlloc

TEST(ReAlloc, KeepsTheContents) {
  void *block = KEL_Malloc(4, 0, 'x', "file", 1, "func");
  void *larger = KEL_ReAlloc(block, 4096);
  ASSERT_NE(larger, nullptr);
  EXPECT_EQ(Bytes(larger, 4), "xxxx");
  KEL_Free(larger, 0);
}

TEST(ReAlloc, AnnouncesOldNewAndSize) {
  AllocHooks hooks;
  void *block = KEL_Malloc(4, 0, 0, "file", 1, "func");
  void *larger = KEL_ReAlloc(block, 4096);
  ASSERT_EQ(hooks.updates.size(), 1u);
  EXPECT_EQ(hooks.updates[0].old_block, block);
  EXPECT_EQ(hooks.updates[0].new_block, larger);
  EXPECT_EQ(hooks.updates[0].size, 4096u);
  EXPECT_EQ(hooks.adds.size(), 1u);
  EXPECT_TRUE(hooks.removes.empty());
  KEL_Free(larger, 0);
}

TEST(ReAlloc, OfNullAllocatesAndAnnouncesNothing) {
  AllocHooks hooks;
  void *block = KEL_ReAlloc(nullptr, 8);
  ASSERT_NE(block, nullptr);
  memset(block, 0, 8);
  EXPECT_TRUE(hooks.adds.empty());
  EXPECT_TRUE(hooks.updates.empty());
  free(block);
}

TEST(ReAlloc, FailureKeepsTheOldBlock) {
  void *block = KEL_Malloc(4, 0, 'x', "file", 1, "func");
  faults::realloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_ReAlloc(block, 4096), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(Bytes(block, 4), "xxxx");
  KEL_Free(block, 0);
}

TEST(ReAlloc, FailureIsAnnouncedWithNull) {
  AllocHooks hooks;
  void *block = KEL_Malloc(4, 0, 0, "file", 1, "func");
  faults::realloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_ReAlloc(block, 4096), nullptr);
  ASSERT_EQ(hooks.updates.size(), 1u);
  EXPECT_EQ(hooks.updates[0].old_block, block);
  EXPECT_EQ(hooks.updates[0].new_block, nullptr);
  EXPECT_EQ(hooks.updates[0].size, 4096u);
  KEL_Free(block, 0);
}

TEST(ReAlloc, FailureOfNullAnnouncesNothing) {
  AllocHooks hooks;
  faults::realloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_ReAlloc(nullptr, 4096), nullptr);
  EXPECT_TRUE(hooks.updates.empty());
}

// ---- Sizes of 0, where the C library decides what it gives

TEST(Malloc, OfNothingIsAnnouncedIfABlockCame) {
  AllocHooks hooks;
  void *block = KEL_Malloc(0, 0, 0xAB, "file", 1, "func");
  ASSERT_NE(block, nullptr);
  ASSERT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.adds[0].block, block);
  EXPECT_EQ(hooks.adds[0].size, 0u);
  KEL_Free(block, 0);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(Calloc, OfNothingIsAnnouncedIfABlockCame) {
  AllocHooks hooks;
  void *none = KEL_Calloc(0, 8, 0, "file", 1, "func");
  void *empty = KEL_Calloc(8, 0, 0, "file", 1, "func");
  ASSERT_EQ(hooks.adds.size(), 2u);
  EXPECT_EQ(hooks.adds[0].size, 8u);
  EXPECT_EQ(hooks.adds[1].size, 0u);
  KEL_Free(none, 0);
  KEL_Free(empty, 0);
}

TEST(ReAlloc, ToNothingReleasesAndAnnouncesNull) {
  AllocHooks hooks;
  void *block = KEL_Malloc(4, 0, 0, "file", 1, "func");
  void *left = KEL_ReAlloc(block, 0);
  ASSERT_EQ(hooks.updates.size(), 1u);
  EXPECT_EQ(hooks.updates[0].old_block, block);
  EXPECT_EQ(hooks.updates[0].new_block, left);
  EXPECT_EQ(hooks.updates[0].size, 0u);
  free(left);  // null with this C library, an empty block with others
}

// ---- KEL_Free

TEST(Free, OfNullAnnouncesNothing) {
  AllocHooks hooks;
  KEL_Free(nullptr, 0);
  EXPECT_TRUE(hooks.removes.empty());
}

TEST(Free, AnnouncesTheBlockAndTheFlag) {
  AllocHooks hooks;
  void *first = KEL_Malloc(4, 0, 0, "file", 1, "func");
  void *second = KEL_Malloc(4, 0, 0, "file", 1, "func");
  KEL_Free(first, 0);
  KEL_Free(second, 7);
  ASSERT_EQ(hooks.removes.size(), 2u);
  EXPECT_EQ(hooks.removes[0].block, first);
  EXPECT_EQ(hooks.removes[0].flag, 0u);
  EXPECT_EQ(hooks.removes[1].block, second);
  EXPECT_EQ(hooks.removes[1].flag, 7u);
}

TEST(Free, TakesBlocksOfTheCLibrary) {
  void *block = malloc(16);
  ASSERT_NE(block, nullptr);
  KEL_Free(block, 0);
}

// The announcement is held up while the block is looked at: whoever follows
// the allocations may still read a block that is about to go.
TEST(Free, AnnouncesTheBlockBeforeItGoes) {
  AllocHooks hooks;
  auto *block = static_cast<char *>(malloc(64));
  ASSERT_NE(block, nullptr);
  memset(block, 'x', 64);
  std::unique_lock<std::mutex> held_up(hooks.mutex);
  std::atomic<pid_t> id{0};
  std::thread freeing([&] {
    id = ThreadId();
    KEL_Free(block, 0);
  });
  EXPECT_TRUE(AwaitSleep(id)) << "it was not held up";
  EXPECT_EQ(Bytes(block, 64), std::string(64, 'x'));
  held_up.unlock();
  freeing.join();
  EXPECT_EQ(hooks.removes.size(), 1u);
}

// ---- Non-cache memory

struct PairRecord {
  int allocations = 0, releases = 0;
  uint32_t size = 0;
  uint32_t extra = 99;
  void *released = nullptr;
  uint32_t release_extra = 99;
};
PairRecord pair;
char pair_block[64];

void *PairMalloc(uint32_t size, uint32_t extra) {
  ++pair.allocations;
  pair.size = size;
  pair.extra = extra;
  return pair_block;
}
void PairFree(void *block, uint32_t extra) {
  ++pair.releases;
  pair.released = block;
  pair.release_extra = extra;
}
void *OneArgumentMalloc(uint32_t size) {
  pair.size = size;
  return pair_block + 1;
}
void OneArgumentFree(void *block) {
  pair.released = block;
}

// The pair at start cannot be had back once it was replaced; these two behave
// like it.
void *LikeDefaultMalloc(uint32_t size, uint32_t) {
  return KEL_DefaultNCMalloc(size);
}
void LikeDefaultFree(void *block, uint32_t) {
  KEL_DefaultNCFree(block);
}

class NonCache : public testing::Test {
 protected:
  NonCache() { pair = {}; }
  ~NonCache() override { KEL_MemInit(LikeDefaultMalloc, LikeDefaultFree); }
};

void CheckDefaultPair() {
  size_t asked = 0;
  faults::malloc.Replace([&](size_t size) {
    asked = size;
    return faults::malloc.Real(size);
  });
  void *block = KEL_NonCacheMalloc(48);
  faults::malloc.Reset();
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(asked, 48u);
  KEL_NonCacheFree(block);
}

TEST(NonCacheDeathTest, AtStartThePairIsMallocAndFree) {
  EXPECT_IN_NEW_PROCESS(CheckDefaultPair());
}

TEST(NonCacheDeathTest, InstallingNothingKeepsTheDefaults) {
  EXPECT_IN_NEW_PROCESS({
    EXPECT_EQ(KEL_MemInit(nullptr, nullptr), 0);
    CheckDefaultPair();
  });
}

TEST(NonCacheDeathTest, InstallingOnlyTheAllocatorKeepsTheDefaultRelease) {
  EXPECT_IN_NEW_PROCESS({
    EXPECT_EQ(KEL_MemInit(PairMalloc, nullptr), 0);
    EXPECT_EQ(KEL_NonCacheMalloc(8), static_cast<void *>(pair_block));
    KEL_NonCacheFree(malloc(8));
    KEL_NonCacheFree(nullptr);
    EXPECT_EQ(pair.releases, 0);
  });
}

TEST(NonCacheDeathTest, InstallingOnlyTheReleaseKeepsTheDefaultAllocator) {
  EXPECT_IN_NEW_PROCESS({
    EXPECT_EQ(KEL_MemInit(nullptr, PairFree), 0);
    void *block = KEL_NonCacheMalloc(8);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(pair.allocations, 0);
    KEL_NonCacheFree(block);
    EXPECT_EQ(pair.released, block);
    free(block);
  });
}

TEST_F(NonCache, InstalledPairServesWithAnExtraZero) {
  EXPECT_EQ(KEL_MemInit(PairMalloc, PairFree), 0);
  EXPECT_EQ(KEL_NonCacheMalloc(0xFFFFFFF0), static_cast<void *>(pair_block));
  EXPECT_EQ(pair.size, 0xFFFFFFF0u);
  EXPECT_EQ(pair.extra, 0u);
  KEL_NonCacheFree(pair_block + 3);
  EXPECT_EQ(pair.released, pair_block + 3);
  EXPECT_EQ(pair.release_extra, 0u);
}

TEST_F(NonCache, NullArgumentsLeaveTheInstalledPairInPlace) {
  KEL_MemInit(PairMalloc, PairFree);
  EXPECT_EQ(KEL_MemInit(nullptr, nullptr), 0);
  EXPECT_EQ(KEL_NonCacheMalloc(8), static_cast<void *>(pair_block));
  KEL_NonCacheFree(pair_block);
  EXPECT_EQ(pair.releases, 1);
}

TEST_F(NonCache, InstalledReleaseIsGivenNullToo) {
  KEL_MemInit(PairMalloc, PairFree);
  pair.released = pair_block;
  KEL_NonCacheFree(nullptr);
  EXPECT_EQ(pair.releases, 1);
  EXPECT_EQ(pair.released, nullptr);
}

TEST_F(NonCache, FunctionsOfOneArgumentMayBeInstalled) {
  using Any = void (*)();
  KEL_MemInit(reinterpret_cast<KEL_NC_MALLOC>(reinterpret_cast<Any>(OneArgumentMalloc)),
              reinterpret_cast<KEL_NC_FREE>(reinterpret_cast<Any>(OneArgumentFree)));
  EXPECT_EQ(KEL_NonCacheMalloc(5), static_cast<void *>(pair_block + 1));
  EXPECT_EQ(pair.size, 5u);
  KEL_NonCacheFree(pair_block + 1);
  EXPECT_EQ(pair.released, pair_block + 1);
}

TEST_F(NonCache, BlocksAreNotAnnounced) {
  AllocHooks hooks;
  KEL_NonCacheFree(KEL_NonCacheMalloc(8));
  EXPECT_TRUE(hooks.adds.empty());
  EXPECT_TRUE(hooks.removes.empty());
}

TEST(DefaultNonCache, IsMallocAndFree) {
  size_t asked = 0;
  faults::malloc.Replace([&](size_t size) {
    asked = size;
    return faults::malloc.Real(size);
  });
  void *block = KEL_DefaultNCMalloc(40);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(asked, 40u);
  KEL_DefaultNCFree(block);
}

TEST(DefaultNonCache, FailureGivesNull) {
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_DefaultNCMalloc(40), nullptr);
  EXPECT_EQ(errno, ENOMEM);
}

TEST(DefaultNonCache, FreeOfNullDoesNothing) {
  KEL_DefaultNCFree(nullptr);
}

TEST(NonCachePhys, IsZeroForEveryPointer) {
  int here = 0;
  EXPECT_EQ(KEL_NonCacheGetPhys(&here), 0u);
  EXPECT_EQ(KEL_NonCacheGetPhys(nullptr), 0u);
}

// ---- Entry points that do nothing

TEST(EmptyEntries, LeaveTheirArgumentAlone) {
  char bytes[] = "untouched";
  faults::Record();
  KEL_NonCacheFlush(bytes, sizeof bytes);
  KEL_MemTrace(bytes, sizeof bytes);
  EXPECT_EQ(KEL_Memcleanup(bytes, sizeof bytes), 0);
  EXPECT_EQ(KEL_Memcleanup(nullptr, 0), 0);
  EXPECT_TRUE(faults::Log().empty());
  EXPECT_STREQ(bytes, "untouched");
}

// ---- KEL_Memmem

TEST(Memmem, FindsTheFirstOccurrence) {
  const char hay[] = "xxabcxabc";
  EXPECT_EQ(KEL_Memmem(hay, 9, "abc", 3), hay + 2);
}

TEST(Memmem, FindsBytesThatHoldZeros) {
  const char hay[] = "\0\0\1\0\0\2";
  EXPECT_EQ(KEL_Memmem(hay, 6, "\0\0\2", 3), hay + 3);
}

TEST(Memmem, AbsentNeedleGivesNull) {
  EXPECT_EQ(KEL_Memmem("abcdef", 6, "xyz", 3), nullptr);
}

TEST(Memmem, LooksNoFurtherThanTheLength) {
  const char hay[] = "abcdef";
  EXPECT_EQ(KEL_Memmem(hay, 5, "def", 3), nullptr);
  EXPECT_EQ(KEL_Memmem(hay, 6, "def", 3), hay + 3);
}

TEST(Memmem, ComparesNoMoreThanTheNeedlesLength) {
  const char hay[] = "abcdef";
  EXPECT_EQ(KEL_Memmem(hay, 6, "cdX", 2), hay + 2);
}

TEST(Memmem, EmptyNeedleIsFoundAtTheStart) {
  const char hay[] = "abc";
  EXPECT_EQ(KEL_Memmem(hay, 3, "x", 0), hay);
}

TEST(Memmem, NeedleLongerThanTheHaystackGivesNull) {
  EXPECT_EQ(KEL_Memmem("ab", 2, "abc", 3), nullptr);
}

// ---- Silence

TEST(Mem, TracesNothingOnFailure) {
  TraceCapture trace;
  faults::malloc.Fail(nullptr, ENOMEM);
  faults::aligned_alloc.Fail(nullptr, ENOMEM);
  faults::calloc.Fail(nullptr, ENOMEM);
  faults::realloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_Malloc(1, 0, 0, "file", 1, "func"), nullptr);
  EXPECT_EQ(KEL_Malloc(16, 16, 0, "file", 1, "func"), nullptr);
  EXPECT_EQ(KEL_Calloc(1, 1, 0, "file", 1, "func"), nullptr);
  EXPECT_EQ(KEL_ReAlloc(nullptr, 1), nullptr);
  EXPECT_EQ(trace.Take(), Lines{});
}

}  // namespace
