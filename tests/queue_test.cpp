// Queue: both kinds of storage, both ends, waiting and waking, failures.

#include "kelcore_queue.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>

#include <atomic>
#include <thread>
#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_event.h"
#include "kelcore_list.h"
#include "kelcore_mutex.h"
#include "kelcore_smem.h"
#include "kelcore_time.h"
#include "kelcore_trace.h"
#include "trace_capture.h"

namespace {

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelqueue", "kelcore_queue", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}

// The record's fields by their offsets.
template <typename T>
T FieldOf(const KEL_QUEUE *queue, size_t offset) {
  T value;
  memcpy(&value, reinterpret_cast<const char *>(queue) + offset, sizeof value);
  return value;
}
KEL_MUTEX *LockOf(const KEL_QUEUE *queue) {
  return FieldOf<KEL_MUTEX *>(queue, 24);
}
KEL_SEMA *DataEventOf(const KEL_QUEUE *queue) {
  return FieldOf<KEL_SEMA *>(queue, 48);
}
KEL_NLIST *FreeListOf(const KEL_QUEUE *queue) {
  return FieldOf<KEL_NLIST *>(queue, 72);
}
KEL_NLIST *BusyListOf(const KEL_QUEUE *queue) {
  return FieldOf<KEL_NLIST *>(queue, 80);
}
int32_t *WaitingOf(KEL_QUEUE *queue) {
  return reinterpret_cast<int32_t *>(reinterpret_cast<char *>(queue) + 32);
}
int32_t Waiting(KEL_QUEUE *queue) {
  return __atomic_load_n(WaitingOf(queue), __ATOMIC_RELAXED);
}
int32_t PendingEvents(const KEL_QUEUE *queue) {
  int32_t count = -1;
  KEL_EventStatus(DataEventOf(queue), &count);
  return count;
}
bool LockIsFree(const KEL_QUEUE *queue) {
  if (KEL_MutexLock(LockOf(queue), 0) != 0)
    return false;
  KEL_MutexUnLock(LockOf(queue));
  return true;
}
// Until a popper has published that it waits.
void AwaitSleeper(KEL_QUEUE *queue) {
  const uint64_t limit = KEL_GetSystemTick() + 60'000;
  while (Waiting(queue) == 0 && KEL_GetSystemTick() < limit)
    std::this_thread::yield();
  ASSERT_EQ(Waiting(queue), 1);
}

int items[8];

constexpr uint32_t kUnbounded = 0;
constexpr uint32_t kBounded = 4;

// Each test runs on an unbounded and on a bounded queue.
class Queue : public testing::TestWithParam<uint32_t> {
 protected:
  ~Queue() override {
    faults::ResetAll();
    KEL_QueueDestroy(queue);
  }
  bool bounded() const { return GetParam() != kUnbounded; }
  void Push(int from, int to) {
    for (int i = from; i <= to; ++i)
      ASSERT_EQ(KEL_QueuePush(queue, &items[i], 100 + i), 0);
  }
  // Pops item i with its number and nothing else.
  void ExpectPop(int i) {
    int32_t param = -1;
    EXPECT_EQ(KEL_QueuePop(queue, &param, 0), &items[i]);
    EXPECT_EQ(param, 100 + i);
  }
  KEL_QUEUE *queue = KEL_QueueCreate("test", GetParam());
};
INSTANTIATE_TEST_SUITE_P(Kinds, Queue, testing::Values(kUnbounded, kBounded),
                         [](const auto &kind) {
                           return kind.param == kUnbounded ? "Unbounded" : "Bounded";
                         });

// ---- Creation and destruction ----

TEST(QueueCreate, TheRecordHas104BytesLaidOutInOrder) {
  AllocHooks hooks;
  KEL_QUEUE *queue = KEL_QueueCreate("name", 3);
  ASSERT_NE(queue, nullptr);
  EXPECT_EQ(hooks.adds[0].block, queue);
  EXPECT_EQ(hooks.adds[0].size, 104u);
  EXPECT_EQ(hooks.adds[0].file, "kelcore_queue");
  EXPECT_EQ(hooks.adds[0].func, "KEL_QueueCreate");
  EXPECT_STREQ(FieldOf<char *>(queue, 0), "name");
  EXPECT_EQ(FieldOf<void *>(queue, 8), nullptr) << "head";
  EXPECT_EQ(FieldOf<void *>(queue, 16), nullptr) << "tail";
  EXPECT_TRUE(LockIsFree(queue));
  EXPECT_EQ(Waiting(queue), 0);
  EXPECT_NE(FieldOf<void *>(queue, 40), nullptr) << "space event";
  EXPECT_EQ(PendingEvents(queue), 0);
  EXPECT_EQ(FieldOf<uint8_t>(queue, 56), 0) << "release flag";
  EXPECT_EQ(FieldOf<int32_t>(queue, 60), 0) << "count";
  EXPECT_EQ(FieldOf<uint32_t>(queue, 64), 3u) << "maxnode";
  EXPECT_EQ(FreeListOf(queue)->count, 3u);
  EXPECT_EQ(BusyListOf(queue)->count, 0u);
  const auto *entries = FieldOf<char *>(queue, 88);
  const auto *nodes = FieldOf<KEL_NLIST_NODE *>(queue, 96);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(nodes[i].data, entries + 32 * i);
  EXPECT_EQ(FreeListOf(queue)->head, nodes);
  KEL_QueueDestroy(queue);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(QueueCreate, TracesItsParts) {
  TraceCapture trace("kelqueue:4");
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 2);
  const char *func = "KEL_QueueCreate";
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("TRACE", func, Format("kelqueue lock created (%x)\n", Low32(LockOf(queue)))),
             Line("TRACE", func,
                  Format("kelqueue event created (%x)\n", Low32(FieldOf<void *>(queue, 48)))),
             Line("TRACE", func,
                  Format("kelqueue event created (%x)\n", Low32(FieldOf<void *>(queue, 40)))),
             Line("TRACE", func, Format("kelqueue handle(%x) maxnode(2)\n", Low32(queue)))}));
  KEL_QueueDestroy(queue);
}

TEST(QueueCreate, BoundedEntriesAndNodesAreAllocatedAtOnce) {
  AllocHooks hooks;
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 10);
  const size_t at_creation = hooks.adds.size();
  std::vector<uint32_t> sizes;
  for (const auto &add : hooks.adds)
    if (add.file == "kelcore_queue")
      sizes.push_back(add.size);
  EXPECT_EQ(sizes, (std::vector<uint32_t>{104, 320, 240}));
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 8; ++i)
      KEL_QueuePush(queue, &items[i], i);
    for (int i = 0; i < 8; ++i)
      KEL_QueuePop(queue, nullptr, 0);
  }
  EXPECT_EQ(hooks.adds.size(), at_creation) << "nothing is allocated afterwards";
  KEL_QueueDestroy(queue);
  EXPECT_EQ(hooks.live(), 0);
}

struct CreateFailure {
  const char *what;
  int failing_malloc;
  const char *message;  // null for none of the queue's own
  const char *level = "ERROR";
};
void PrintTo(const CreateFailure &failure, std::ostream *out) {
  *out << failure.what;
}

class QueueCreateFailure : public testing::TestWithParam<CreateFailure> {};

TEST_P(QueueCreateFailure, IsTracedAndReleasesEverything) {
  AllocHooks hooks;
  TraceCapture trace("kelqueue:1");
  faults::malloc.Fail(nullptr, ENOMEM, GetParam().failing_malloc, 1);
  errno = 0;
  EXPECT_EQ(KEL_QueueCreate("name", 4), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  Lines expected;
  if (GetParam().message != nullptr)
    expected.push_back(Error("KEL_QueueCreate", GetParam().message));
  EXPECT_EQ(trace.Take(), expected);
  EXPECT_EQ(hooks.live(), 0);
}

// Allocations in order: record, mutex, data event (two), space event (two),
// free list, busy list, entries, nodes.
INSTANTIATE_TEST_SUITE_P(
    Step, QueueCreateFailure,
    testing::Values(CreateFailure{"record", 0, "kelqueue alloc failed. size(104)\n"},
                    CreateFailure{"mutex", 1, "kelqueue lock create failed.\n"},
                    CreateFailure{"data event record", 2, "kelqueue event create failed.\n"},
                    CreateFailure{"data event semaphore", 3, "kelqueue event create failed.\n"},
                    CreateFailure{"space event record", 4, "kelqueue event create failed.\n"},
                    CreateFailure{"space event semaphore", 5,
                                  "kelqueue event create failed.\n"},
                    CreateFailure{"free list", 6, nullptr},
                    CreateFailure{"busy list", 7, nullptr},
                    CreateFailure{"entries", 8, nullptr}, CreateFailure{"nodes", 9, nullptr}));

TEST(QueueCreate, TheFirstEventGoesWhenTheSecondFails) {
  TraceCapture trace("kelevent:4");
  faults::malloc.Fail(nullptr, ENOMEM, 4, 1);
  EXPECT_EQ(KEL_QueueCreate(nullptr, 0), nullptr);
  std::vector<std::string> funcs;
  for (const TraceLine &line : trace.Take())
    funcs.push_back(line.func);
  EXPECT_EQ(funcs, (std::vector<std::string>{"KEL_EventCreate", "KEL_EventCreate",
                                             "KEL_EventCreate", "KEL_EventCreate",
                                             "KEL_EventDestroy", "KEL_EventDestroy"}));
}

TEST(QueueCreate, ANodeThatCannotBeAddedIsTracedAndReleasesEverything) {
  AllocHooks hooks;
  KEL_NLIST_NODE stray = {};
  hooks.on_add = [&](void *block, uint32_t size) {
    if (size == 4 * 24)
      static_cast<KEL_NLIST_NODE *>(block)[0].next = &stray;
  };
  TraceCapture trace("kelqueue:4");
  EXPECT_EQ(KEL_QueueCreate(nullptr, 4), nullptr);
  EXPECT_EQ(trace.Take().back(),
            Line("TRACE", "KEL_QueueCreate", "queue node pool add fail.\n"));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(QueueCreate, SizesThatDoNotFitFailAsAllocationsDo) {
  AllocHooks hooks;
  errno = 0;
  EXPECT_EQ(KEL_QueueCreate(nullptr, 0x08000000), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(QueueCreate, ANameThatCannotBeCopiedStaysNull) {
  faults::strdup.Fail(nullptr, ENOMEM);
  KEL_QUEUE *queue = KEL_QueueCreate("name", 1);
  ASSERT_NE(queue, nullptr);
  EXPECT_EQ(KEL_QueueGetName(queue), nullptr);
  KEL_QueueDestroy(queue);
}

TEST_P(Queue, DestroyTracesEnterAndLeaveAndDropsEntries) {
  AllocHooks hooks;
  KEL_QUEUE *other = KEL_QueueCreate("other", GetParam());
  for (int i = 0; i < 3; ++i)
    KEL_QueuePush(other, &items[i], i);
  TraceCapture trace("kelqueue:4");
  const std::string enter = Format("Enter queue(%x)\n", Low32(other));
  KEL_QueueDestroy(other);
  EXPECT_EQ(trace.Take(), (Lines{Line("DEBUG", "KEL_QueueDestroy", enter),
                                 Line("DEBUG", "KEL_QueueDestroy", "Leave.\n")}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(QueueNull, IsRefusedByEveryCall) {
  TraceCapture trace;
  KEL_QueueDestroy(nullptr);
  EXPECT_EQ(KEL_QueueReset(nullptr), -1);
  EXPECT_EQ(trace.Take(), (Lines{Line("DEBUG", "KEL_QueueDestroy", "Enter queue(0)\n"),
                                 Error("KEL_QueueDestroy", "invalid queue handle\n"),
                                 Error("KEL_QueueReset", "invalid queue handle\n")}));
  EXPECT_EQ(KEL_QueuePush(nullptr, items, 1), -1);
  EXPECT_EQ(KEL_QueuePush2Head(nullptr, items, 1), -1);
  EXPECT_EQ(KEL_QueuePop(nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(KEL_QueuePopTail(nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(KEL_QueuePeek(nullptr, nullptr), nullptr);
  EXPECT_EQ(KEL_QueuePopRelease(nullptr), 0);
  EXPECT_EQ(KEL_QueueGetSize(nullptr), 0);
  EXPECT_EQ(KEL_QueueGetName(nullptr), nullptr);
  EXPECT_EQ(KEL_QueueFull(nullptr), -1);
  EXPECT_EQ(KEL_QueueEmpty(nullptr), -1);
}

// ---- Order ----

TEST_P(Queue, FirstInIsFirstOut) {
  Push(0, 3);
  EXPECT_EQ(KEL_QueueGetSize(queue), 4);
  for (int i = 0; i < 4; ++i)
    ExpectPop(i);
  EXPECT_EQ(KEL_QueueGetSize(queue), 0);
  Push(4, 5);
  ExpectPop(4);
  ExpectPop(5);
}

TEST_P(Queue, PushedToTheHeadComesFirst) {
  Push(0, 1);
  EXPECT_EQ(KEL_QueuePush2Head(queue, &items[2], 102), 0);
  ExpectPop(2);
  ExpectPop(0);
  ExpectPop(1);
  EXPECT_EQ(KEL_QueuePush2Head(queue, &items[3], 103), 0) << "also into an empty one";
  ExpectPop(3);
}

TEST_P(Queue, PoppedFromTheTailComesNewestFirst) {
  Push(0, 2);
  for (int i = 2; i >= 0; --i) {
    int32_t param = -1;
    EXPECT_EQ(KEL_QueuePopTail(queue, &param, 0), &items[i]);
    EXPECT_EQ(param, 100 + i);
  }
  EXPECT_EQ(KEL_QueueEmpty(queue), 1);
  Push(3, 4);
  ExpectPop(3);
  ExpectPop(4);
}

TEST_P(Queue, TheTailFindsWhatWasPushedToTheHead) {
  Push(0, 0);
  KEL_QueuePush2Head(queue, &items[1], 101);
  KEL_QueuePush2Head(queue, &items[2], 102);
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 0), &items[0]);
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 0), &items[1]);
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 0), &items[2]);
}

TEST_P(Queue, MixedEndsNeverTouchFreedEntries) {
  Push(0, 2);
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 0), &items[2]);
  ExpectPop(0);
  ExpectPop(1);  // its next link, unbounded, is stale
  EXPECT_EQ(KEL_QueueEmpty(queue), 1);
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 0), nullptr);
  Push(3, 4);
  ExpectPop(3);
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 0), &items[4]);
  EXPECT_EQ(KEL_QueueEmpty(queue), 1);
}

// Emptiness is read without the lock, so it may be asked between two steps of a
// pop: while that traces, for instance.
KEL_QUEUE *asked = nullptr;
int32_t answer = -2;
void Ask(const char *) {
  answer = KEL_QueueEmpty(asked);
}

TEST_P(Queue, IsEmptyAsSoonAsItsLastEntryIsUnlinked) {
  Push(0, 0);
  asked = queue;
  answer = -2;
  {
    TraceCapture trace("kelqueue:4");
    KEL_TraceSetCB(Ask, 0);
    ExpectPop(0);
  }
  EXPECT_EQ(answer, bounded() ? -2 : 1) << "only the unbounded one traces here";
}

TEST_P(Queue, NumbersAreOptional) {
  Push(0, 2);
  EXPECT_EQ(KEL_QueuePeek(queue, nullptr), &items[0]);
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 0), &items[0]);
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 0), &items[2]);
}

TEST_P(Queue, ANullPointerIsALegalPush) {
  EXPECT_EQ(KEL_QueuePush(queue, nullptr, 5), 0);
  EXPECT_EQ(KEL_QueueGetSize(queue), 1);
  int32_t param = 0;
  EXPECT_EQ(KEL_QueuePop(queue, &param, 0), nullptr);
  EXPECT_EQ(param, 5);
  EXPECT_EQ(KEL_QueueGetSize(queue), 0);
}

TEST_P(Queue, ResetDropsEverythingAndKeepsTheQueue) {
  AllocHooks hooks;
  Push(0, 3);
  KEL_QueuePopRelease(queue);
  EXPECT_EQ(KEL_QueueReset(queue), 0);
  EXPECT_EQ(KEL_QueueGetSize(queue), 0);
  EXPECT_EQ(KEL_QueueEmpty(queue), 1);
  EXPECT_EQ(FieldOf<void *>(queue, 8), nullptr);
  EXPECT_EQ(FieldOf<void *>(queue, 16), nullptr);
  EXPECT_EQ(FieldOf<uint8_t>(queue, 56), 1) << "the release flag is left";
  EXPECT_EQ(hooks.live(), 0);
  if (bounded()) {
    EXPECT_EQ(FreeListOf(queue)->count, 4u);
  }
  Push(0, 3);
  EXPECT_EQ(KEL_QueueGetSize(queue), 4);
  EXPECT_TRUE(LockIsFree(queue));
}

// ---- Being full, being empty ----

TEST_P(Queue, TellsItsNameAndWhetherItIsEmpty) {
  EXPECT_STREQ(KEL_QueueGetName(queue), "test");
  EXPECT_EQ(KEL_QueueEmpty(queue), 1);
  Push(0, 0);
  EXPECT_EQ(KEL_QueueEmpty(queue), 0);
}

TEST(QueueName, IsTheQueuesOwnCopy) {
  char name[] = "abc";
  KEL_QUEUE *queue = KEL_QueueCreate(name, 0);
  name[0] = 'x';
  EXPECT_STREQ(KEL_QueueGetName(queue), "abc");
  KEL_QueueDestroy(queue);
}

TEST_P(Queue, OnlyABoundedOneIsEverFull) {
  Push(0, 3);
  EXPECT_EQ(KEL_QueueFull(queue), bounded() ? 1 : 0);
  TraceCapture trace("kelqueue:4");
  EXPECT_EQ(KEL_QueuePush(queue, &items[4], 0), bounded() ? -1 : 0);
  EXPECT_EQ(KEL_QueuePush2Head(queue, &items[5], 0), bounded() ? -1 : 0);
  if (bounded()) {
    EXPECT_EQ(trace.Take(),
              (Lines{Error("KEL_QueuePush", "test freenode list is empty busy(4) free(0)\n"),
                     Error("KEL_QueuePush2Head", "freenode list is empty busy(4) free(0)\n")}));
  } else {
    EXPECT_EQ(trace.Take(), Lines{});
  }
  EXPECT_TRUE(LockIsFree(queue));
  EXPECT_EQ(KEL_QueueGetSize(queue), bounded() ? 4 : 6);
  KEL_QueuePop(queue, nullptr, 0);
  EXPECT_EQ(KEL_QueueFull(queue), 0);
}

TEST(QueueFull, WithoutANameTheMessageBeginsEmpty) {
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 1);
  KEL_QueuePush(queue, items, 0);
  TraceCapture trace("kelqueue:4");
  KEL_QueuePush(queue, items, 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_QueuePush", " freenode list is empty busy(1) free(0)\n")}));
  KEL_QueueDestroy(queue);
}

TEST_P(Queue, PoppingAnEmptyOneWithoutTimeoutReturnsAtOnceWithoutTrace) {
  TraceCapture trace;
  int32_t param = 77;
  EXPECT_EQ(KEL_QueuePop(queue, &param, 0), nullptr);
  EXPECT_EQ(KEL_QueuePopTail(queue, &param, 0), nullptr);
  EXPECT_EQ(param, 77);
  EXPECT_EQ(trace.Take(), Lines{});
  EXPECT_TRUE(LockIsFree(queue));
}

TEST_P(Queue, PeekLeavesTheOldest) {
  Push(0, 1);
  int32_t param = 0;
  EXPECT_EQ(KEL_QueuePeek(queue, &param), &items[0]);
  EXPECT_EQ(param, 100);
  EXPECT_EQ(KEL_QueueGetSize(queue), 2);
  EXPECT_TRUE(LockIsFree(queue));
}

TEST_P(Queue, PeekingAnEmptyOneKeepsTheLock) {
  TraceCapture trace;
  EXPECT_EQ(KEL_QueuePeek(queue, nullptr), nullptr);
  EXPECT_EQ(trace.Take(), Lines{});
  EXPECT_FALSE(LockIsFree(queue));
  KEL_MutexUnLock(LockOf(queue));
}

TEST_P(Queue, EmptinessAndSizeAreReadWithoutTheLock) {
  Push(0, 0);
  ASSERT_EQ(KEL_MutexLock(LockOf(queue), 0), 0u);
  EXPECT_EQ(KEL_QueueGetSize(queue), 1);
  EXPECT_EQ(KEL_QueueEmpty(queue), 0);
  EXPECT_EQ(KEL_QueueFull(queue), 0);
  EXPECT_STREQ(KEL_QueueGetName(queue), "test");
  EXPECT_EQ(KEL_QueuePopRelease(queue), 0);
  KEL_MutexUnLock(LockOf(queue));
}

// ---- Failures ----

TEST_P(Queue, ALockThatFailsIsTracedByEveryOperation) {
  Push(0, 0);
  TraceCapture trace("kelqueue:4");
  faults::pthread_mutex_trylock.Fail(EINVAL, 0);
  faults::pthread_mutex_timedlock.Fail(EINVAL, 0);
  EXPECT_EQ(KEL_QueuePush(queue, items, 0), -1);
  EXPECT_EQ(KEL_QueuePush2Head(queue, items, 0), -1);
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 0), nullptr);
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 0), nullptr);
  EXPECT_EQ(KEL_QueuePeek(queue, nullptr), nullptr);
  EXPECT_EQ(KEL_QueueReset(queue), -1);
  faults::ResetAll();
  Lines expected;
  for (const char *func : {"KEL_QueuePush", "KEL_QueuePush2Head", "KEL_QueuePop",
                           "KEL_QueuePopTail", "KEL_QueuePeek", "KEL_QueueReset"})
    expected.push_back(Error(func, "mutex lock failed\n"));
  EXPECT_EQ(trace.Take(), expected);
  EXPECT_EQ(KEL_QueueGetSize(queue), 1);
}

TEST(QueueUnbounded, AnEntryThatCannotBeHadFailsThePush) {
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 0);
  TraceCapture trace("kelqueue:4");
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_QueuePush(queue, items, 0), -1);
  EXPECT_EQ(KEL_QueuePush2Head(queue, items, 0), -1);
  faults::ResetAll();
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_QueuePush", "kelqueue node alloc failed. size(32)\n"),
                   Error("KEL_QueuePush2Head", "kelqueue node alloc failed. size(32)\n")}));
  EXPECT_TRUE(LockIsFree(queue));
  EXPECT_EQ(KEL_QueueGetSize(queue), 0);
  KEL_QueueDestroy(queue);
}

TEST(QueueUnbounded, EntriesHave32BytesLaidOutInOrder) {
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 0);
  AllocHooks hooks;
  KEL_QueuePush(queue, &items[0], -3);
  KEL_QueuePush(queue, &items[1], 4);
  ASSERT_EQ(hooks.adds.size(), 2u);
  EXPECT_EQ(hooks.adds[0].size, 32u);
  EXPECT_EQ(hooks.adds[0].func, "KEL_QueuePush");
  struct {
    int32_t param;
    void *data, *next, *prev;
  } entry;
  static_assert(sizeof entry == 32);
  memcpy(&entry, hooks.adds[1].block, sizeof entry);
  EXPECT_EQ(entry.param, 4);
  EXPECT_EQ(entry.data, &items[1]);
  EXPECT_EQ(entry.next, nullptr);
  EXPECT_EQ(entry.prev, hooks.adds[0].block);
  KEL_QueueDestroy(queue);
}

TEST(QueueUnbounded, EntriesComeFromThePoolWhenItServes32Bytes) {
  KEL_SMalloc_Init();
  KEL_SMalloc_Register(32, nullptr);
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 0);
  {
    AllocHooks hooks;
    KEL_QueuePush(queue, &items[0], 0);
    KEL_QueuePush(queue, &items[1], 0);
    KEL_QueuePush(queue, &items[2], 0);
    EXPECT_EQ(KEL_QueuePop(queue, nullptr, 0), &items[0]);
    EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 0), &items[2]);
    KEL_QueueReset(queue);
    EXPECT_EQ(hooks.adds.size() + hooks.removes.size(), 0u);
  }
  KEL_QueueDestroy(queue);
  KEL_SMalloc_UnRegister(32);
  KEL_SMalloc_Deinit();
}

TEST(QueueUnbounded, AnEntryThatWentFromTheTailIsNotWrittenToAnyMore) {
  KEL_SMalloc_Init();
  KEL_SMalloc_Register(32, nullptr);
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 0);
  KEL_QueuePush(queue, &items[0], 0);
  KEL_QueuePush(queue, &items[1], 0);
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 0), &items[1]);
  auto *reused = static_cast<char *>(KEL_SMalloc(32));  // by somebody else
  memset(reused, 0xEE, 32);
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 0), &items[0]);
  EXPECT_EQ(std::string(reused, 32), std::string(32, '\xEE'));
  KEL_SFree(reused, 32);
  KEL_QueueDestroy(queue);
  KEL_SMalloc_UnRegister(32);
  KEL_SMalloc_Deinit();
}

TEST(QueueUnbounded, TakingTheLastFromTheHeadIsTraced) {
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 0);
  KEL_QueuePush(queue, &items[0], 0);
  KEL_QueuePush(queue, &items[1], 0);
  TraceCapture trace("kelqueue:4");
  KEL_QueuePop(queue, nullptr, 0);
  EXPECT_EQ(trace.Take(), Lines{});
  KEL_QueuePop(queue, nullptr, 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("TRACE", "KEL_QueuePop",
                        Format("got a node. queue(%x) is a empty.\n", Low32(queue)))}));
  EXPECT_EQ(FieldOf<void *>(queue, 8), nullptr);
  EXPECT_EQ(FieldOf<void *>(queue, 16), nullptr);
  KEL_QueueDestroy(queue);
}

TEST(QueueUnbounded, TakingTheLastFromTheTailIsNot) {
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 0);
  KEL_QueuePush(queue, &items[0], 0);
  void *entry = FieldOf<void *>(queue, 8);
  TraceCapture trace("kelqueue:4");
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 0), &items[0]);
  EXPECT_EQ(trace.Take(), Lines{});
  EXPECT_EQ(FieldOf<void *>(queue, 8), entry) << "the head stays";
  EXPECT_EQ(FieldOf<void *>(queue, 16), nullptr);
  KEL_QueueDestroy(queue);
}

TEST(QueueBounded, ABusyListThatRefusesFailsThePushInTheOtherListsName) {
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 4);
  KEL_QueuePush(queue, &items[0], 0);
  KEL_NLIST_NODE stray = {};
  KEL_NLIST_NODE *busy = BusyListOf(queue)->head;
  TraceCapture trace("kelqueue:4");
  busy->next = &stray;
  EXPECT_EQ(KEL_QueuePush(queue, &items[1], 0), -1);
  busy->next = nullptr;
  busy->prev = &stray;
  EXPECT_EQ(KEL_QueuePush2Head(queue, &items[1], 0), -1);
  busy->prev = nullptr;
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_QueuePush", "add fail to freenode list\n"),
                                 Error("KEL_QueuePush2Head", "add fail to freenode list\n")}));
  EXPECT_EQ(KEL_QueueGetSize(queue), 1);
  EXPECT_TRUE(LockIsFree(queue));
  KEL_QueueDestroy(queue);
}

TEST(QueueBounded, AFreeListThatRefusesLosesTheNode) {
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 4);
  KEL_QueuePush(queue, &items[0], 7);
  KEL_QueuePush(queue, &items[1], 8);
  KEL_NLIST_NODE stray = {};
  KEL_NLIST_NODE *last = FreeListOf(queue)->tail;
  last->next = &stray;
  TraceCapture trace("kelqueue:4");
  int32_t param = 0;
  EXPECT_EQ(KEL_QueuePop(queue, &param, 0), nullptr);
  EXPECT_EQ(param, 7) << "copied out before";
  EXPECT_EQ(KEL_QueuePopTail(queue, &param, 0), nullptr);
  EXPECT_EQ(param, 8);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_QueuePop", "add tail failed to freenode.\n"),
                                 Error("KEL_QueuePopTail", "add tail failed to freenode.\n")}));
  EXPECT_EQ(KEL_QueueGetSize(queue), 2) << "the count is left";
  EXPECT_EQ(KEL_QueueEmpty(queue), 1);
  EXPECT_TRUE(LockIsFree(queue));
  last->next = nullptr;
  KEL_QueueDestroy(queue);
}

// ---- Waiting and waking ----

TEST_P(Queue, AWaitThatExpiresLeavesNobodyWaiting) {
  TraceCapture trace("kelqueue:4");
  const uint64_t before = KEL_GetSystemTick();
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 30), nullptr);
  EXPECT_GE(KEL_GetSystemTick() - before, 28u);
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 1), nullptr);
  EXPECT_EQ(Waiting(queue), 0);
  EXPECT_TRUE(LockIsFree(queue));
  if (bounded()) {
    EXPECT_EQ(trace.Take(),
              (Lines{Line("DEBUG", "KEL_QueuePop", "queue wait timeout (30)ms\n"),
                     Line("DEBUG", "KEL_QueuePopTail", "queue wait timeout (1)ms\n")}));
  } else {
    EXPECT_EQ(trace.Take(), Lines{});
  }
}

TEST_P(Queue, APushWakesTheSleeper) {
  for (auto pop : {KEL_QueuePop, KEL_QueuePopTail}) {
    for (auto push : {KEL_QueuePush, KEL_QueuePush2Head}) {
      std::thread sleeper([&] {
        int32_t param = 0;
        EXPECT_EQ(pop(queue, &param, KEL_WAIT_FOREVER), &items[1]);
        EXPECT_EQ(param, 5);
      });
      AwaitSleeper(queue);
      // A sleeper does not hold it; it lets go just after it has said so.
      ASSERT_EQ(KEL_MutexLock(LockOf(queue), 60'000), 0u);
      KEL_MutexUnLock(LockOf(queue));
      EXPECT_EQ(push(queue, &items[1], 5), 0);
      sleeper.join();
      EXPECT_EQ(Waiting(queue), 0);
      EXPECT_EQ(PendingEvents(queue), 0);
    }
  }
}

TEST_P(Queue, PushesWithoutASleeperSendNoEvent) {
  Push(0, 3);
  EXPECT_EQ(PendingEvents(queue), 0);
}

TEST_P(Queue, APushThatSeesASleeperClearsTheFlagAndSendsOnce) {
  __atomic_store_n(WaitingOf(queue), 1, __ATOMIC_SEQ_CST);
  Push(0, 1);
  EXPECT_EQ(Waiting(queue), 0);
  EXPECT_EQ(PendingEvents(queue), 1);
}

TEST_P(Queue, OfTwoSleepersAPushWakesOne) {
  std::atomic<int> got{0}, back{0};
  const auto sleep = [&] {
    if (KEL_QueuePop(queue, nullptr, 600'000) != nullptr)
      ++got;
    ++back;
  };
  faults::Record();
  std::thread one(sleep), other(sleep);
  while (faults::sem_timedwait.Count() < 2)  // both are past the queue's lock
    std::this_thread::yield();
  faults::ResetAll();
  Push(0, 0);
  while (back == 0)
    std::this_thread::yield();
  EXPECT_EQ(got, 1);
  EXPECT_EQ(PendingEvents(queue), 0) << "nothing is left to wake the other";
  KEL_QueuePopRelease(queue);
  one.join();
  other.join();
  EXPECT_EQ(got, 1);
}

TEST(QueueBounded, WokenWithoutDataReturnsNothingAndTraces) {
  KEL_QUEUE *queue = KEL_QueueCreate("sleepy", 2);
  TraceCapture trace("kelqueue:4");
  KEL_QueuePopRelease(queue);
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 60'000), nullptr);
  EXPECT_EQ(Waiting(queue), 1) << "left so by a wake-up without data";
  KEL_QueuePopRelease(queue);
  EXPECT_EQ(KEL_QueuePopTail(queue, nullptr, 60'000), nullptr);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("INFO ", "KEL_QueuePop", "[sleepy] received event but no data (size:0)\n"),
             Error("KEL_QueuePopTail", "received event but no data\n")}));
  EXPECT_TRUE(LockIsFree(queue));
  KEL_QueueDestroy(queue);
}

TEST(QueueBounded, WokenWithoutDataAndNameTracesAnEmptyOne) {
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 2);
  TraceCapture trace("kelqueue:4");
  KEL_QueuePopRelease(queue);
  KEL_QueuePop(queue, nullptr, 60'000);
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{"[] received event but no data (size:0)\n"}));
  KEL_QueueDestroy(queue);
}

TEST_P(Queue, ReleaseWakesTheSleeperWithNothing) {
  for (auto pop : {KEL_QueuePop, KEL_QueuePopTail}) {
    std::thread sleeper([&] { EXPECT_EQ(pop(queue, nullptr, KEL_WAIT_FOREVER), nullptr); });
    // The flag may be up already, left by the wake-up before.
    faults::sem_wait.Replace([](sem_t *s) { return faults::sem_wait.Real(s); });
    AwaitSleeper(queue);
    EXPECT_EQ(KEL_QueuePopRelease(queue), 0);
    sleeper.join();
    EXPECT_EQ(Waiting(queue), 1);
    __atomic_store_n(WaitingOf(queue), 0, __ATOMIC_SEQ_CST);
  }
}

TEST_P(Queue, ReleaseSetsTheFlagAndSendsAnEvent) {
  EXPECT_EQ(KEL_QueuePopRelease(queue), 0);
  EXPECT_EQ(FieldOf<uint8_t>(queue, 56), 1);
  EXPECT_EQ(PendingEvents(queue), 1);
}

TEST_P(Queue, AReleasedPopOfANonEmptyOneTakesNothingIfUnbounded) {
  Push(0, 0);
  KEL_QueuePopRelease(queue);
  if (bounded()) {
    ExpectPop(0);
    return;
  }
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 0), nullptr);
  EXPECT_EQ(KEL_QueueGetSize(queue), 1);
  EXPECT_EQ(FieldOf<uint8_t>(queue, 56), 0) << "consumed";
  EXPECT_TRUE(LockIsFree(queue));
  ExpectPop(0);
}

TEST(QueueUnbounded, AWakeUpWithoutDataKeepsTheReleaseForTheNextPop) {
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 0);
  KEL_QueuePopRelease(queue);
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 60'000), nullptr);
  EXPECT_EQ(FieldOf<uint8_t>(queue, 56), 1);
  KEL_QueuePush(queue, &items[0], 0);
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 0), nullptr);
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 0), &items[0]);
  KEL_QueueDestroy(queue);
}

TEST_P(Queue, AFailedRelockAfterTheWaitIsTraced) {
  TraceCapture trace("kelqueue:1");
  for (auto pop : {KEL_QueuePop, KEL_QueuePopTail}) {
    faults::sem_timedwait.Replace([&](sem_t *, const timespec *) {
      // Data came, and the lock breaks.
      KEL_QueuePush(queue, &items[0], 0);
      faults::pthread_mutex_trylock.Fail(EINVAL, 0);
      faults::pthread_mutex_timedlock.Fail(EINVAL, 0);
      return 0;
    });
    EXPECT_EQ(pop(queue, nullptr, 1000), nullptr);
    faults::ResetAll();
    KEL_QueueReset(queue);
    KEL_EventWait(DataEventOf(queue), 0);
  }
  EXPECT_EQ(trace.Take("kelqueue"), (Lines{Error("KEL_QueuePop", "mutex lock failed\n"),
                                           Error("KEL_QueuePopTail", "mutex lock failed\n")}));
}

TEST(QueueUnbounded, AnEntryThatAnotherOneTookBeforeTheRelockGivesNothing) {
  KEL_QUEUE *queue = KEL_QueueCreate(nullptr, 0);
  faults::sem_timedwait.Replace([&](sem_t *, const timespec *) {
    KEL_QueuePush(queue, &items[0], 0);
    faults::pthread_mutex_trylock.Replace([&](pthread_mutex_t *m) {
      faults::pthread_mutex_trylock.Reset();
      EXPECT_EQ(KEL_QueuePop(queue, nullptr, 0), &items[0]);
      return faults::pthread_mutex_trylock.Real(m);
    });
    return 0;
  });
  EXPECT_EQ(KEL_QueuePop(queue, nullptr, 1000), nullptr);
  faults::ResetAll();
  EXPECT_TRUE(LockIsFree(queue));
  EXPECT_EQ(KEL_QueueGetSize(queue), 0);
  KEL_QueueDestroy(queue);
}

TEST_P(Queue, ASignalThatEndsAnEndlessWaitLooksLikeATimeout) {
  struct sigaction action = {}, old = {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  sigaction(SIGUSR1, &action, &old);
  TraceCapture trace("kelqueue:4");
  std::atomic<bool> done{false};
  std::thread sleeper([&] {
    EXPECT_EQ(KEL_QueuePop(queue, nullptr, KEL_WAIT_FOREVER), nullptr);
    done = true;
  });
  AwaitSleeper(queue);
  while (!done) {
    pthread_kill(sleeper.native_handle(), SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  sleeper.join();
  sigaction(SIGUSR1, &old, nullptr);
  EXPECT_EQ(Waiting(queue), 0);
  EXPECT_EQ(trace.Messages(), bounded() ? std::vector<std::string>{"queue wait timeout "
                                                                   "(2147483647)ms\n"}
                                        : std::vector<std::string>{});
}

// ---- Threads ----

TEST_P(Queue, ManyProducersAndOneConsumerLoseNothing) {
  constexpr int kProducers = 3, kEach = 3000;
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p)
    producers.emplace_back([&, p] {
      for (int i = 1; i <= kEach; ++i)
        while (KEL_QueuePush(queue, &items[p], i) != 0)
          std::this_thread::yield();
    });
  int last[kProducers] = {};
  for (int taken = 0; taken < kProducers * kEach;) {
    int32_t number = 0;
    auto *item = static_cast<int *>(KEL_QueuePop(queue, &number, 1000));
    if (item == nullptr)
      continue;
    int &before = last[item - items];
    ASSERT_EQ(number, before + 1) << "in order for each producer";
    before = number;
    ++taken;
  }
  for (std::thread &producer : producers)
    producer.join();
  EXPECT_EQ(KEL_QueueEmpty(queue), 1);
  EXPECT_EQ(KEL_QueueGetSize(queue), 0);
}

}  // namespace
