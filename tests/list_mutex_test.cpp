// What the locked list does beyond the plain one; the common behaviour is
// tested for both in list_test.cpp.

#include "kelcore_list_mutex.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_trace.h"
#include "trace_capture.h"

namespace {

class LockedList : public testing::Test {
 protected:
  ~LockedList() override { KEL_ListDestroy(list); }
  void Fill(int count) {
    for (int i = 0; i < count; ++i)
      KEL_ListAddTail(list, &nodes[i]);
  }
  bool Free() {
    if (KEL_MutexLock(list->lock, 0) != 0)
      return false;
    KEL_MutexUnLock(list->lock);
    return true;
  }
  KEL_LIST *list = KEL_ListCreate();
  KEL_LIST_NODE nodes[4] = {};
};

// Counts how often `action` locks.
template <typename F>
int LocksOf(F action) {
  faults::Record();
  action();
  const int count = faults::pthread_mutex_trylock.Count();
  faults::ResetAll();
  return count;
}

TEST_F(LockedList, TheRecordIs32BytesWithTheLockLast) {
  EXPECT_EQ(sizeof(KEL_LIST), 32u);
  EXPECT_EQ(offsetof(KEL_LIST, lock), 24u);
  AllocHooks hooks;
  std::string fresh;
  hooks.on_add = [&](void *block, uint32_t size) {
    if (size == 32)
      fresh.assign(static_cast<char *>(block), size);
  };
  KEL_LIST *other = KEL_ListCreate();
  ASSERT_EQ(hooks.adds.size(), 2u);
  EXPECT_EQ(hooks.adds[0].size, 32u);
  EXPECT_EQ(fresh, std::string(32, '\0'));
  EXPECT_EQ(hooks.adds[1].func, "KEL_MutexCreate");
  EXPECT_NE(other->lock, nullptr);
  KEL_ListDestroy(other);
  EXPECT_EQ(hooks.live(), 0);
}

TEST_F(LockedList, WorksUnlockedWhenItsLockCouldNotBeMade) {
  faults::malloc.Fail(nullptr, ENOMEM, 1);
  KEL_LIST *other = KEL_ListCreate();
  faults::ResetAll();
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->lock, nullptr);
  EXPECT_EQ(KEL_ListAddTail(other, &nodes[0]), 0);
  EXPECT_EQ(KEL_ListAddHead(other, &nodes[1]), 0);
  EXPECT_EQ(KEL_List_GetNthList(other, 1), &nodes[0]);
  EXPECT_EQ(KEL_ListMove(other, &nodes[1], &nodes[0]), 0);
  EXPECT_EQ(KEL_ListMoveToTail(other, &nodes[0]), 0);
  EXPECT_EQ(KEL_ListDel(other, &nodes[0]), 0);
  EXPECT_EQ(KEL_ListGetNum(other), 1u);
  KEL_ListDestroy(other);
}

TEST_F(LockedList, ChangesLockOnceAndMovesTwice) {
  Fill(3);
  EXPECT_EQ(LocksOf([&] { KEL_ListAddTail(list, &nodes[3]); }), 1);
  EXPECT_EQ(LocksOf([&] { KEL_ListDel(list, &nodes[3]); }), 1);
  EXPECT_EQ(LocksOf([&] { KEL_ListAddHead(list, &nodes[3]); }), 1);
  EXPECT_EQ(LocksOf([&] { KEL_List_GetNthList(list, 2); }), 1);
  EXPECT_EQ(LocksOf([&] { KEL_ListMove(list, &nodes[0], &nodes[2]); }), 2);
  EXPECT_EQ(LocksOf([&] { KEL_ListMoveToTail(list, &nodes[0]); }), 2);
}

TEST_F(LockedList, ReadsTakeNoLock) {
  Fill(2);
  ASSERT_EQ(KEL_MutexLock(list->lock, 0), 0u);
  EXPECT_EQ(LocksOf([&] {
              EXPECT_EQ(KEL_ListGetHead(list), &nodes[0]);
              EXPECT_EQ(KEL_ListGetTail(list), &nodes[1]);
              EXPECT_EQ(KEL_ListGetNext(list, &nodes[0]), &nodes[1]);
              EXPECT_EQ(KEL_ListGetPrev(list, &nodes[1]), &nodes[0]);
              EXPECT_EQ(KEL_ListGetNum(list), 2u);
              // Compares with the tail before it would lock.
              EXPECT_EQ(KEL_ListMoveToTail(list, &nodes[1]), 0);
            }),
            0);
  KEL_MutexUnLock(list->lock);
}

TEST_F(LockedList, TheLockIsFreeAfterEachCallAlsoAfterFailures) {
  Fill(2);
  EXPECT_TRUE(Free());
  KEL_List_GetNthList(list, 7);
  EXPECT_TRUE(Free());
  nodes[1].next = &nodes[3];
  EXPECT_EQ(KEL_ListAddTail(list, &nodes[2]), -1);
  EXPECT_TRUE(Free());
  nodes[0].prev = &nodes[3];
  EXPECT_EQ(KEL_ListAddHead(list, &nodes[2]), -1);
  EXPECT_TRUE(Free());
  KEL_ListMove(list, &nodes[0], &nodes[1]);
  EXPECT_TRUE(Free());
  KEL_ListDel(list, &nodes[0]);
  EXPECT_TRUE(Free());
}

TEST_F(LockedList, WalkFailuresAreTracedWithTheLockHeld) {
  Fill(3);
  nodes[0].next = nullptr;
  static KEL_MUTEX *lock;
  static std::vector<uint32_t> states;
  lock = list->lock;
  states.clear();
  TraceCapture trace("kellist:1");
  KEL_TraceSetCB([](const char *) { states.push_back(KEL_MutexLock(lock, 0)); }, 0);
  KEL_List_GetNthList(list, 9);
  KEL_List_GetNthList(list, 3);
  KEL_TraceSetCB(nullptr, 0);
  ASSERT_EQ(states.size(), 3u) << "the index, the head's check, and the mismatch";
  EXPECT_EQ(states, (std::vector<uint32_t>{EBUSY, EBUSY, EBUSY}));
}

TEST_F(LockedList, AMissingHeadIsNotReported) {
  TraceCapture trace;
  list->count = 2;
  EXPECT_EQ(KEL_ListGetHead(list), nullptr);
  EXPECT_EQ(trace.Take(), Lines{});
  list->count = 0;
}

TEST_F(LockedList, DestroyDestroysTheLock) {
  KEL_LIST *other = KEL_ListCreate();
  faults::Record();
  KEL_ListDestroy(other);
  EXPECT_EQ(faults::pthread_mutex_destroy.Count(), 1);
}

TEST_F(LockedList, ThreadsLoseNothing) {
  constexpr int kThreads = 4, kRounds = 500;
  std::vector<std::thread> threads;
  std::vector<std::vector<KEL_LIST_NODE>> own(kThreads, std::vector<KEL_LIST_NODE>(kRounds));
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        KEL_LIST_NODE *node = &own[static_cast<size_t>(t)][static_cast<size_t>(i)];
        ASSERT_EQ(i % 2 == 0 ? KEL_ListAddTail(list, node) : KEL_ListAddHead(list, node), 0);
        (void)KEL_ListGetNum(list);
        (void)KEL_ListGetTail(list);
        if (i % 5 == 0) {
          ASSERT_EQ(KEL_ListDel(list, node), 0);
        }
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  const uint32_t expected = kThreads * (kRounds - kRounds / 5);
  EXPECT_EQ(KEL_ListGetNum(list), expected);
  uint32_t forward = 0, backward = 0;
  for (KEL_LIST_NODE *n = list->head; n != nullptr; n = n->next)
    ++forward;
  for (KEL_LIST_NODE *n = list->tail; n != nullptr; n = n->prev)
    ++backward;
  EXPECT_EQ(forward, expected);
  EXPECT_EQ(backward, expected);
}

}  // namespace
