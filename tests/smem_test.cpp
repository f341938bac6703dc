// Pool allocator: registration, chunks, recycling, status, corruption.

#include "kelcore_smem.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <set>
#include <thread>
#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "trace_capture.h"

namespace {

constexpr uint32_t kBlocksPerChunk = 4096;
constexpr uint32_t kNodeArrayBytes = 24, kRecordArrayBytes = 32;

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelsmem", "kelcore_smem", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}

class Pool : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(KEL_SMalloc_Init(), 0); }
  void TearDown() override {
    faults::ResetAll();
    for (uint32_t size : sizes_)
      KEL_SMalloc_UnRegister(size);
    KEL_SMalloc_Deinit();
  }
  void Register(uint32_t size, const char *name = nullptr) {
    ASSERT_EQ(KEL_SMalloc_Register(size, name), 0);
    sizes_.insert(size);
  }
  // To be unregistered at the end, however it came to its slot.
  void Forget(uint32_t size) { sizes_.insert(size); }
  bool LockIsFree() {
    // Another thread: this one might hold it.
    bool free = false;
    std::thread([&] {
      faults::pthread_mutex_timedlock.Fail(EDEADLK, 0);
      free = KEL_SMalloc_Lock() == 0;
      if (free)
        KEL_SMalloc_UnLock();
      faults::pthread_mutex_timedlock.Reset();
    }).join();
    return free;
  }
  std::set<uint32_t> sizes_;
};

TEST_F(Pool, InitMakesANewLockInPlaceOfTheOld) {
  AllocHooks hooks;
  EXPECT_EQ(KEL_SMalloc_Init(), 0);
  ASSERT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.adds[0].func, "KEL_MutexCreate");
  EXPECT_EQ(hooks.removes.size(), 1u);
}

TEST_F(Pool, InitWithoutALockFails) {
  TraceCapture trace("kelsmem:4");
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_SMalloc_Init(), -1);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_SMalloc_Init", "KEL_MutexCreate fail.\n")}));
}

TEST_F(Pool, InitForgetsSizesAndNames) {
  std::vector<std::pair<void *, uint32_t>> kept;
  AllocHooks hooks;
  Register(8, "eight");
  std::vector<void *> blocks;
  for (const auto &add : hooks.adds)
    blocks.push_back(add.block);
  EXPECT_EQ(KEL_SMalloc_Init(), 0);
  EXPECT_EQ(KEL_SMemIsReg(8), 0);
  EXPECT_EQ(KEL_SMemGetName(8), nullptr);
  Register(8, "again");
  EXPECT_STREQ(KEL_SMemGetName(8), "again") << "the old name does not show through";
  for (void *block : blocks)
    free(block);  // what was registered before Init is not released by it
}

TEST_F(Pool, DeinitReturnsTheDestroyCallsResultOr0) {
  faults::pthread_mutex_destroy.Replace([](pthread_mutex_t *m) {
    faults::pthread_mutex_destroy.Real(m);
    return EBUSY;
  });
  EXPECT_EQ(KEL_SMalloc_Deinit(), EBUSY);
  EXPECT_EQ(KEL_SMalloc_Deinit(), 0) << "there is none any more";
}

TEST_F(Pool, DeinitKeepsRegisteredSizes) {
  Register(8);
  KEL_SMalloc_Deinit();
  EXPECT_EQ(KEL_SMemIsReg(8), 1);
  void *block = KEL_SMalloc(8);
  EXPECT_NE(block, nullptr) << "unlocked, as before Init";
  EXPECT_EQ(KEL_SFree(block, 8), 0);
}

TEST_F(Pool, LockAndUnlockReturnTheMutexsResults) {
  EXPECT_EQ(KEL_SMalloc_Lock(), 0);
  EXPECT_FALSE(LockIsFree());
  EXPECT_EQ(KEL_SMalloc_UnLock(), 0);
  EXPECT_TRUE(LockIsFree());
  KEL_SMalloc_Deinit();
  EXPECT_EQ(KEL_SMalloc_Lock(), -1);
  EXPECT_EQ(KEL_SMalloc_UnLock(), -1);
}

// ---- Registration ----

TEST_F(Pool, RegistrationBuildsTheFirstChunk) {
  TraceCapture trace("kelsmem:4");
  AllocHooks hooks;
  Register(6, "six");
  EXPECT_EQ(trace.Take(),
            (Lines{Line("DEBUG", "KEL_SMalloc_Register", "size(6)\n"),
                   Line("DEBUG", "KEL_SMallocAdd", "size(8) initsize(32768)\n"),
                   Line("DEBUG", "KEL_SMalloc_Register", "success size(8) index(0)\n")}));
  std::vector<std::pair<uint32_t, std::string>> sizes;
  for (const auto &add : hooks.adds)
    sizes.emplace_back(add.size, add.func);
  EXPECT_EQ(sizes, (std::vector<std::pair<uint32_t, std::string>>{{24, "KEL_NListCreate"},
                                                                  {24, "KEL_NListCreate"},
                                                                  {24, "KEL_NListCreate"},
                                                                  {24, "KEL_SMallocAdd"},
                                                                  {32, "KEL_SMallocAdd"},
                                                                  {8, "KEL_SMallocAdd"},
                                                                  {32, "KEL_SMallocAdd"},
                                                                  {24, "KEL_SMallocAdd"}}))
      << "three lists, node, chunk, memory, records, nodes";
  EXPECT_STREQ(KEL_SMemGetName(8), "six");
  EXPECT_TRUE(LockIsFree());
}

TEST_F(Pool, TheChunksAreCallocatedFor4096Blocks) {
  std::vector<std::pair<size_t, size_t>> calls;
  faults::calloc.Replace([&](size_t count, size_t size) {
    if (size == 100 || size == kRecordArrayBytes || size == kNodeArrayBytes)
      calls.emplace_back(count, size);
    return faults::calloc.Real(count, size);
  });
  Register(100);
  EXPECT_EQ(calls,
            (std::vector<std::pair<size_t, size_t>>{{4096, 100}, {4096, 32}, {4096, 24}}));
}

TEST_F(Pool, ANameMayBeLeftOut) {
  Register(16);
  EXPECT_STREQ(KEL_SMemGetName(16), "smem");
  EXPECT_STREQ(KEL_SMemGetName(13), "smem") << "rounded like every size";
  EXPECT_EQ(KEL_SMemGetName(20), nullptr);
}

TEST_F(Pool, AnAlreadyRegisteredSizeChangesNothing) {
  Register(8, "first");
  TraceCapture trace("kelsmem:4");
  AllocHooks hooks;
  EXPECT_EQ(KEL_SMalloc_Register(5, "second"), 0);
  EXPECT_EQ(trace.Take(), (Lines{Line("DEBUG", "KEL_SMalloc_Register", "size(5)\n"),
                                 Line("INFO ", "KEL_SMalloc_Register",
                                      "already registered regsize(8) size(8)\n")}));
  EXPECT_EQ(hooks.adds.size(), 0u);
  EXPECT_STREQ(KEL_SMemGetName(8), "first");
  EXPECT_TRUE(LockIsFree());
}

TEST_F(Pool, TheEleventhSizeIsRefused) {
  for (uint32_t i = 1; i <= 10; ++i)
    Register(4 * i);
  TraceCapture trace("kelsmem:1");
  EXPECT_EQ(KEL_SMalloc_Register(100, nullptr), -1);
  EXPECT_EQ(KEL_SMalloc_Register(4, nullptr), -1) << "asked before the table is looked at";
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_SMalloc_Register", "No more smemory register cur(10)\n"),
                   Error("KEL_SMalloc_Register", "No more smemory register cur(10)\n")}));
  EXPECT_TRUE(LockIsFree());
}

TEST_F(Pool, SizesThatRoundTo0AreNoClass) {
  Register(8);
  TraceCapture trace("kelsmem:1");
  for (uint32_t size : {0u, 0xFFFFFFFDu, 0xFFFFFFFFu}) {
    EXPECT_EQ(KEL_SMalloc_Register(size, nullptr), -1);
    EXPECT_EQ(KEL_SMemIsReg(size), 0);
    EXPECT_EQ(KEL_SMemGetName(size), nullptr);
    EXPECT_EQ(KEL_SMalloc(size), nullptr);
  }
  EXPECT_TRUE(LockIsFree());
}

struct RegisterFailure {
  const char *what;
  int failing_malloc;  // which malloc fails, or -1
  int failing_calloc;  // which calloc fails, or -1
  Lines lines;
  int left_behind;  // blocks that stay with the slot
};
void PrintTo(const RegisterFailure &failure, std::ostream *out) {
  *out << failure.what;
}

class PoolRegisterFailure : public Pool, public testing::WithParamInterface<RegisterFailure> {};

TEST_P(PoolRegisterFailure, IsTracedAndLeavesTheSlotWithItsSize) {
  Register(4);
  TraceCapture trace("kelsmem:1");
  AllocHooks hooks;
  const RegisterFailure &failure = GetParam();
  if (failure.failing_malloc >= 0)
    faults::malloc.Fail(nullptr, ENOMEM, failure.failing_malloc, 1);
  if (failure.failing_calloc >= 0)
    faults::calloc.Fail(nullptr, ENOMEM, failure.failing_calloc, 1);
  errno = 0;
  EXPECT_EQ(KEL_SMalloc_Register(50, "fifty"), -1);
  EXPECT_EQ(errno, ENOMEM);
  faults::ResetAll();
  EXPECT_EQ(trace.Take(), failure.lines);
  EXPECT_EQ(hooks.live(), failure.left_behind);
  EXPECT_TRUE(LockIsFree());
  // The slot keeps its size: it counts as registered while another one is.
  EXPECT_EQ(KEL_SMemIsReg(50), 1);
  EXPECT_EQ(KEL_SMalloc_Register(50, "again"), 0) << "taken for registered";
  // Unregistering releases all that it kept (and lowers the count, for good or ill).
  EXPECT_EQ(KEL_SMalloc_UnRegister(50), 0);
  EXPECT_EQ(hooks.live(), 0);
}

TraceLine Registering(const std::string &message) {
  return Error("KEL_SMalloc_Register", message);
}
Lines Adding(const std::string &message) {
  return {Error("KEL_SMallocAdd", message), Registering("KEL_SMallocAdd failed.\n")};
}

INSTANTIATE_TEST_SUITE_P(
    Step, PoolRegisterFailure,
    testing::Values(
        RegisterFailure{"chunk list", 0, -1, {Registering("can not alloc clist\n")}, 0},
        RegisterFailure{"allocated list", 1, -1, {Registering("can not alloc alist\n")}, 1},
        RegisterFailure{"free list", 2, -1, {Registering("can not alloc flist\n")}, 1},
        RegisterFailure{"chunk node", 3, -1, Adding("Out of memory\n"), 3},
        RegisterFailure{"chunk record", 4, -1, Adding("Out of memory\n"), 3},
        RegisterFailure{"memory", -1, 0, Adding("Out of memory size(212992)\n"), 3},
        RegisterFailure{"records", -1, 1, Adding("Out of memory size(131072)\n"), 3},
        RegisterFailure{"nodes", -1, 2, Adding("Out of memory size(98304)\n"), 3}));

TEST_F(Pool, ASlotWithoutListsRefusesToAllocateAndFree) {
  Register(4);
  faults::malloc.Fail(nullptr, ENOMEM, 2, 1);
  EXPECT_EQ(KEL_SMalloc_Register(50, nullptr), -1);
  Forget(50);
  TraceCapture trace("kelsmem:4");
  EXPECT_EQ(KEL_SMalloc(50), nullptr);
  EXPECT_EQ(KEL_SFree(&trace, 50), 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_SMalloc", "can not find registerd memroy size(50)\n"),
                   Error("KEL_SFree", "can not find registerd memroy size(50)\n")}));
}

TEST_F(Pool, EachMissingListRefusesToAllocate) {
  Register(4);
  for (const int failing : {0, 1}) {
    faults::malloc.Fail(nullptr, ENOMEM, failing, 1);
    EXPECT_EQ(KEL_SMalloc_Register(50, nullptr), -1);
    faults::ResetAll();
    TraceCapture trace("kelsmem:1");
    EXPECT_EQ(KEL_SMalloc(50), nullptr);
    EXPECT_EQ(trace.Take(),
              (Lines{Error("KEL_SMalloc", "can not find registerd memroy size(50)\n")}));
    KEL_SMalloc_UnRegister(50);
    KEL_SMalloc_UnRegister(4);
    KEL_SMalloc_Init();
    KEL_SMalloc_Register(4, nullptr);
  }
}

// Sizes are looked up without the lock, so a class can be seen half made.
TEST_F(Pool, AClassInTheMakingRefusesToAllocate) {
  AllocHooks hooks;
  int lists = 0;
  void *early = nullptr;
  hooks.on_add = [&](void *, uint32_t) {
    if (++lists == 3)  // its free list has memory, but is not in the table yet
      early = KEL_SMalloc(8);
  };
  TraceCapture trace("kelsmem:1");
  Register(8);
  hooks.on_add = nullptr;
  EXPECT_EQ(early, nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_SMalloc", "can not find registerd memroy size(8)\n")}));
}

TEST_F(Pool, SlotsLostToFailuresCanRunOut) {
  for (uint32_t i = 1; i <= 10; ++i) {
    faults::calloc.Fail(nullptr, ENOMEM);
    EXPECT_EQ(KEL_SMalloc_Register(4 * i, nullptr), -1);
    Forget(4 * i);
  }
  faults::ResetAll();
  TraceCapture trace("kelsmem:4");
  EXPECT_EQ(KEL_SMalloc_Register(100, nullptr), -1) << "although none is registered";
  EXPECT_EQ(trace.Take(), (Lines{Line("DEBUG", "KEL_SMalloc_Register", "size(100)\n")}));
  EXPECT_EQ(KEL_SMemIsReg(4), 0) << "nothing counts as registered at 0";
}

TEST_F(Pool, ANameThatCannotBeCopiedStaysNull) {
  faults::strdup.Fail(nullptr, ENOMEM);
  Register(8, "name");
  EXPECT_EQ(KEL_SMemGetName(8), nullptr);
  EXPECT_EQ(KEL_SMemIsReg(8), 1);
}

TEST_F(Pool, UnregisteringReleasesEverything) {
  AllocHooks hooks;
  Register(8);
  void *one = KEL_SMalloc(8);
  void *other = KEL_SMalloc(8);
  KEL_SFree(one, 8);
  (void)other;  // becomes invalid
  TraceCapture trace("kelsmem:4");
  EXPECT_EQ(KEL_SMalloc_UnRegister(7), 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("DEBUG", "KEL_SMalloc_UnRegister", "size(7)\n"),
                   Line("DEBUG", "KEL_SMalloc_UnRegister", "registered size(7)\n")}));
  EXPECT_EQ(hooks.live(), 0);
  EXPECT_EQ(KEL_SMemIsReg(8), 0);
  EXPECT_EQ(KEL_SMemGetName(8), nullptr);
  EXPECT_TRUE(LockIsFree());
  KEL_SMemStatus(nullptr, nullptr, nullptr);
  EXPECT_EQ(trace.Messages()[0], "total registered (0)\n");
  Register(8, "anew");
  EXPECT_STREQ(KEL_SMemGetName(8), "anew");
}

// Which of the blocks added, by their order, went first, second, ...
std::vector<size_t> OrderOfRemoval(const AllocHooks &hooks) {
  std::vector<size_t> order;
  for (const auto &remove : hooks.removes)
    for (size_t i = 0; i < hooks.adds.size(); ++i)
      if (hooks.adds[i].block == remove.block)
        order.push_back(i);
  return order;
}

TEST_F(Pool, UnregisteringReleasesEachChunkAndThenTheListsInOrder) {
  AllocHooks hooks;
  Register(8);
  // Chunk list, allocated list, free list, chunk node, chunk, memory, records, nodes.
  ASSERT_EQ(hooks.adds.size(), 8u);
  KEL_SMalloc_UnRegister(8);
  EXPECT_EQ(OrderOfRemoval(hooks), (std::vector<size_t>{3, 5, 6, 7, 4, 2, 1, 0}));
}

TEST_F(Pool, UnregisteringReleasesTheChunksInTheOrderOfTheirMaking) {
  AllocHooks hooks;
  Register(8);
  for (uint32_t i = 0; i <= kBlocksPerChunk; ++i)
    ASSERT_NE(KEL_SMalloc(8), nullptr);
  ASSERT_EQ(hooks.adds.size(), 13u);
  KEL_SMalloc_UnRegister(8);
  EXPECT_EQ(OrderOfRemoval(hooks),
            (std::vector<size_t>{3, 5, 6, 7, 4, 8, 10, 11, 12, 9, 2, 1, 0}));
}

TEST_F(Pool, AnUnknownSizeCannotBeUnregistered) {
  TraceCapture trace("kelsmem:4");
  EXPECT_EQ(KEL_SMalloc_UnRegister(12), -1);
  EXPECT_EQ(trace.Take(), (Lines{Line("DEBUG", "KEL_SMalloc_UnRegister", "size(12)\n")}));
  EXPECT_TRUE(LockIsFree());
}

TEST_F(Pool, UnregisteringTheMiddleLeavesTheOthers) {
  Register(8);
  Register(16);
  Register(32);
  EXPECT_EQ(KEL_SMalloc_UnRegister(16), 0);
  EXPECT_EQ(KEL_SMemIsReg(8), 1);
  EXPECT_EQ(KEL_SMemIsReg(16), 0);
  EXPECT_EQ(KEL_SMemIsReg(32), 1);
  Register(64);  // takes the empty slot before 32
  EXPECT_EQ(KEL_SMalloc_Register(32, nullptr), 0);
}

// Slots are searched up to the first empty one: behind it nobody looks.
TEST_F(Pool, ASizeBehindAHoleIsRegisteredASecondTime) {
  Register(8);
  Register(16);
  Register(32, "behind");
  EXPECT_EQ(KEL_SMalloc_UnRegister(16), 0);
  TraceCapture trace("kelsmem:3");
  EXPECT_EQ(KEL_SMalloc_Register(32, "before"), 0);
  EXPECT_EQ(trace.Messages().back(), "success size(32) index(2)\n");
  EXPECT_STREQ(KEL_SMemGetName(32), "before");
  EXPECT_EQ(KEL_SMalloc_UnRegister(32), 0);
  EXPECT_EQ(KEL_SMemIsReg(32), 1);
  EXPECT_STREQ(KEL_SMemGetName(32), "behind");
}

TEST_F(Pool, StatusStopsAtTheCountAlsoWithAHole) {
  Register(8);
  Register(16);
  EXPECT_EQ(KEL_SMalloc_UnRegister(8), 0);
  TraceCapture trace("kelsmem:2");
  KEL_SMemStatus(nullptr, nullptr, nullptr);
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{
                "total registered (1)\n", "### index(0) size:0 alist:0 flist:0\n",
                "smem(0) total alloc list count:0 reseve:0(bytes) used:0(bytes) "
                "free:0(bytes)\n\n"}));
}

TEST_F(Pool, AClassWithoutItsFirstChunkGetsItAtTheFirstAllocation) {
  Register(4);
  faults::calloc.Fail(nullptr, ENOMEM, 0, 1);
  EXPECT_EQ(KEL_SMalloc_Register(50, nullptr), -1);
  Forget(50);
  faults::calloc.Reset();
  TraceCapture trace("kelsmem:4");
  EXPECT_NE(KEL_SMalloc(50), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("DEBUG", "KEL_SMallocAdd", "size(52) initsize(212992)\n")}));
}

TEST_F(Pool, TheLockIsWaitedForWithoutLimit) {
  int calls = 0;
  faults::pthread_mutex_trylock.Fail(EBUSY, 0);
  faults::pthread_mutex_timedlock.Replace(
      [&](pthread_mutex_t *, const timespec *) { return ++calls < 3 ? ETIMEDOUT : 0; });
  EXPECT_EQ(KEL_SMalloc_Lock(), 0);
  EXPECT_EQ(calls, 3);
}

TEST_F(Pool, EveryChangeIsMadeUnderTheLockOnce) {
  const auto locks = [](auto call) {
    faults::pthread_mutex_trylock.Replace(
        [](pthread_mutex_t *mutex) { return faults::pthread_mutex_trylock.Real(mutex); });
    call();
    return faults::pthread_mutex_trylock.Count();
  };
  void *block = nullptr;
  EXPECT_EQ(locks([] { EXPECT_EQ(KEL_SMalloc_Register(8, nullptr), 0); }), 1);
  EXPECT_EQ(locks([&] { block = KEL_SMalloc(8); }), 1);
  EXPECT_EQ(locks([&] { KEL_SFree(block, 8); }), 1);
  EXPECT_EQ(locks([] { KEL_SMemStatus(nullptr, nullptr, nullptr); }), 1);
  EXPECT_EQ(locks([] { EXPECT_EQ(KEL_SMalloc_UnRegister(8), 0); }), 1);
}

TEST_F(Pool, IsRegisteredTakesNoLock) {
  Register(8);
  ASSERT_EQ(KEL_SMalloc_Lock(), 0);
  EXPECT_EQ(KEL_SMemIsReg(5), 1);
  EXPECT_EQ(KEL_SMemIsReg(9), 0);
  EXPECT_STREQ(KEL_SMemGetName(5), "smem");
  KEL_SMalloc_UnLock();
}

// ---- Allocation ----

TEST_F(Pool, BlocksOfAClassAreAlikeAndSizesAreNotFitted) {
  Register(5);
  TraceCapture trace("kelsmem:4");
  void *block = KEL_SMalloc(6);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(trace.Take(), Lines{});
  EXPECT_EQ(KEL_SMalloc(9), nullptr);
  EXPECT_EQ(KEL_SMalloc(4), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_SMalloc", "can not find registerd memroy size(9)\n"),
                   Error("KEL_SMalloc", "can not find registerd memroy size(4)\n")}));
  KEL_SFree(block, 7);
}

TEST_F(Pool, BlocksAreCarvedInOrderAndZeroed) {
  Register(64);
  auto *first = static_cast<char *>(KEL_SMalloc(64));
  memset(first, 0xEE, 64);
  auto *second = static_cast<char *>(KEL_SMalloc(64));
  EXPECT_EQ(second, first + 64);
  EXPECT_EQ(std::string(second, 64), std::string(64, '\0'));
}

TEST_F(Pool, AFreedBlockComesBackNextZeroed) {
  Register(64);
  auto *block = static_cast<char *>(KEL_SMalloc(64));
  ASSERT_NE(KEL_SMalloc(64), nullptr);
  memset(block, 0xEE, 64);
  EXPECT_EQ(KEL_SFree(block, 64), 0);
  EXPECT_EQ(KEL_SMalloc(64), block);
  EXPECT_EQ(std::string(block, 64), std::string(64, '\0'));
}

TEST_F(Pool, FreedBlocksComeBackInTheOrderOfFreeing) {
  Register(8);
  void *blocks[3] = {KEL_SMalloc(8), KEL_SMalloc(8), KEL_SMalloc(8)};
  KEL_SFree(blocks[1], 8);
  KEL_SFree(blocks[2], 8);
  KEL_SFree(blocks[0], 8);
  EXPECT_EQ(KEL_SMalloc(8), blocks[1]);
  EXPECT_EQ(KEL_SMalloc(8), blocks[2]);
  EXPECT_EQ(KEL_SMalloc(8), blocks[0]);
}

TEST_F(Pool, TheBlockAfterAFullChunkAddsOne) {
  Register(4);
  AllocHooks hooks;
  std::set<void *> blocks;
  for (uint32_t i = 0; i < kBlocksPerChunk; ++i)
    blocks.insert(KEL_SMalloc(4));
  EXPECT_EQ(blocks.size(), kBlocksPerChunk);
  EXPECT_EQ(hooks.adds.size(), 0u);
  TraceCapture trace("kelsmem:4");
  void *next = KEL_SMalloc(4);
  EXPECT_NE(next, nullptr);
  EXPECT_EQ(blocks.count(next), 0u);
  EXPECT_EQ(hooks.adds.size(), 5u);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("DEBUG", "KEL_SMallocAdd", "size(4) initsize(16384)\n")}));
  EXPECT_NE(KEL_SMalloc(4), nullptr);
  EXPECT_EQ(hooks.adds.size(), 5u);
}

TEST_F(Pool, WithoutMemoryForAChunkGivesNullAndUnlocks) {
  Register(4);
  for (uint32_t i = 0; i < kBlocksPerChunk; ++i)
    ASSERT_NE(KEL_SMalloc(4), nullptr);
  faults::calloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_SMalloc(4), nullptr);
  faults::ResetAll();
  EXPECT_TRUE(LockIsFree());
  EXPECT_NE(KEL_SMalloc(4), nullptr) << "usable afterwards";
}

TEST_F(Pool, FreeOfAnUnknownSizeIsTracedAndReturns0) {
  TraceCapture trace("kelsmem:4");
  int block = 0;
  EXPECT_EQ(KEL_SFree(&block, 44), 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_SFree", "can not find registerd memroy size(44)\n")}));
}

TEST_F(Pool, FreeWithoutAllocatedBlocksDoesNothing) {
  Register(8);
  int block[2] = {};
  EXPECT_EQ(KEL_SFree(block, 8), 0);
  EXPECT_NE(KEL_SMalloc(8), static_cast<void *>(block));
  EXPECT_TRUE(LockIsFree());
}

TEST_F(Pool, ARecordOfAnotherSizeStopsThePoolWithItsLockHeld) {
  char *records = nullptr;
  faults::calloc.Replace([&](size_t count, size_t size) {
    void *block = faults::calloc.Real(count, size);
    if (count == kBlocksPerChunk && size == kRecordArrayBytes)
      records = static_cast<char *>(block);
    return block;
  });
  Register(64);
  faults::ResetAll();
  void *block = KEL_SMalloc(64);
  KEL_SFree(block, 64);
  ASSERT_NE(records, nullptr);
  const uint32_t wrong = 60, right = 64;
  memcpy(records + 16, &wrong, sizeof wrong);
  TraceCapture trace("kelsmem:4");
  EXPECT_EQ(KEL_SMalloc(64), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_SMalloc", "invalid mem block size\n")}));
  EXPECT_FALSE(LockIsFree());
  memcpy(records + 16, &right, sizeof right);
  EXPECT_EQ(KEL_SMalloc_UnLock(), 0);
  EXPECT_EQ(KEL_SMalloc(64), block);
}

TEST_F(Pool, BlockRecordsAreFilledIn) {
  char *records = nullptr;
  faults::calloc.Replace([&](size_t count, size_t size) {
    void *block = faults::calloc.Real(count, size);
    if (count == kBlocksPerChunk && size == kRecordArrayBytes)
      records = static_cast<char *>(block);
    return block;
  });
  AllocHooks hooks;
  Register(64);
  const void *const owner = hooks.adds.at(0).block;  // the list of chunks comes first
  ASSERT_NE(KEL_SMalloc(64), nullptr);
  void *second = KEL_SMalloc(64);
  struct {
    void *owner, *block;
    uint32_t size, index, in_use;
  } record;
  static_assert(sizeof record == 32);
  memcpy(&record, records + 32, sizeof record);
  EXPECT_EQ(record.block, second);
  EXPECT_EQ(record.size, 64u);
  EXPECT_EQ(record.index, 1u);
  EXPECT_EQ(record.in_use, 1u);
  KEL_SFree(second, 64);
  memcpy(&record, records, sizeof record);
  EXPECT_EQ(record.in_use, 0u) << "the first allocated record takes the freed address";
  EXPECT_EQ(record.block, second);
  EXPECT_EQ(record.owner, owner);
  // Taken again it goes behind the others that are allocated.
  EXPECT_EQ(KEL_SMalloc(64), second);
  memcpy(&record, records, sizeof record);
  EXPECT_EQ(record.in_use, 1u);
  KEL_SFree(second, 64);
  memcpy(&record, records, sizeof record);
  EXPECT_EQ(record.in_use, 1u);
  memcpy(&record, records + 32, sizeof record);
  EXPECT_EQ(record.in_use, 0u);
}

// ---- Status ----

TEST_F(Pool, StatusOfAnEmptyTableShowsOneSlot) {
  TraceCapture trace("kelsmem:4");
  uint32_t reserved = 1, used = 2, free_bytes = 3;
  EXPECT_EQ(KEL_SMemStatus(&reserved, &used, &free_bytes), 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("INFO ", "KEL_SMemStatus", "total registered (0)\n"),
                   Line("INFO ", "KEL_SMemStatus", "### index(0) size:0 alist:0 flist:0\n"),
                   Line("INFO ", "KEL_SMemStatus",
                        "smem(0) total alloc list count:0 reseve:0(bytes) used:0(bytes) "
                        "free:0(bytes)\n\n")}));
  EXPECT_EQ(reserved, 1u);
  EXPECT_EQ(used, 2u);
  EXPECT_EQ(free_bytes, 3u);
  EXPECT_TRUE(LockIsFree());
}

TEST_F(Pool, StatusAddsEachSizesBytes) {
  AllocHooks hooks;
  Register(8);
  Register(16);
  std::vector<void *> blocks;
  for (int i = 0; i < 5; ++i)
    blocks.push_back(KEL_SMalloc(8));
  for (int i = 0; i < 3; ++i)
    KEL_SFree(blocks[static_cast<size_t>(i)], 8);
  ASSERT_NE(KEL_SMalloc(16), nullptr);
  // The lists are the first three blocks of each registration.
  const auto list = [&](size_t i) { return Low32(hooks.adds[i].block); };
  TraceCapture trace("kelsmem:4");
  uint32_t reserved = 10, used = 20, free_bytes = 30;
  EXPECT_EQ(KEL_SMemStatus(&reserved, &used, &free_bytes), 0);
  const uint32_t reserved8 = 2 * 8 * 4096, reserved16 = 1 * 16 * 4096;
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{
                "total registered (2)\n",
                Format("### index(0) size:8 alist:%x flist:%x\n", list(1), list(2)),
                Format("smem(8) total alloc list count:2 reseve:%u(bytes) used:%u(bytes) "
                       "free:24(bytes)\n\n",
                       reserved8, reserved8 - 24),
                Format("### index(1) size:16 alist:%x flist:%x\n", list(9), list(10)),
                Format("smem(16) total alloc list count:1 reseve:%u(bytes) used:%u(bytes) "
                       "free:0(bytes)\n\n",
                       reserved16, reserved16)}));
  EXPECT_EQ(reserved, 10 + reserved8 + reserved16);
  EXPECT_EQ(used, 20 + reserved8 - 24 + reserved16);
  EXPECT_EQ(free_bytes, 30u + 8 + 16 + 24) << "a running sum";
}

TEST_F(Pool, StatusNeedsNoWords) {
  Register(8);
  EXPECT_EQ(KEL_SMemStatus(nullptr, nullptr, nullptr), 0);
  KEL_SMalloc_Deinit();
  EXPECT_EQ(KEL_SMemStatus(nullptr, nullptr, nullptr), -1) << "the unlock's result";
}

// ---- Threads ----

TEST_F(Pool, ThreadsNeverShareABlock) {
  Register(16);
  constexpr int kThreads = 4, kRounds = 3000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t] {
      std::vector<int *> held;
      for (int i = 0; i < kRounds; ++i) {
        auto *block = static_cast<int *>(KEL_SMalloc(16));
        ASSERT_NE(block, nullptr);
        ASSERT_EQ(block[0], 0);
        block[0] = t + 1;
        held.push_back(block);
        if (held.size() > 8) {
          ASSERT_EQ(held.front()[0], t + 1);
          KEL_SFree(held.front(), 16);
          held.erase(held.begin());
        }
      }
      for (int *block : held)
        KEL_SFree(block, 16);
    });
  for (std::thread &thread : threads)
    thread.join();
}

}  // namespace
