// Message channel: creation and its failures, limits, results, threads.

#include "kelcore_msg.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_list.h"
#include "kelcore_mutex.h"
#include "kelcore_queue.h"
#include "kelcore_sema.h"
#include "kelcore_time.h"
#include "trace_capture.h"

namespace {

constexpr const char kCreate[] = "KEL_MsgCreate";
constexpr const char kSend[] = "KEL_MsgSend";
constexpr const char kReceive[] = "KEL_MsgReceive";

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelmsg", "kelcore_msg", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}
TraceLine Enter(const char *func) {
  return Line("TRACE", func, "Enter\n");
}
TraceLine Leave(const char *func) {
  return Line("TRACE", func, "Leave\n");
}

template <typename T>
T FieldOf(const KEL_MSG *channel, size_t offset) {
  T value;
  memcpy(&value, reinterpret_cast<const char *>(channel) + offset, sizeof value);
  return value;
}
uint32_t PendingOf(const KEL_MSG *channel) {
  return FieldOf<uint32_t>(channel, 48);
}
KEL_QUEUE *MessagesOf(const KEL_MSG *channel) {
  return FieldOf<KEL_QUEUE *>(channel, 56);
}
int32_t UnitsOf(const KEL_MSG *channel) {
  int32_t units = -1;
  KEL_SemaStatus(FieldOf<KEL_SEMA *>(channel, 8), &units);
  return units;
}

constexpr uint32_t kMax = 3;
constexpr uint32_t kSize = 16;

class Channel : public testing::Test {
 protected:
  ~Channel() override {
    faults::ResetAll();
    KEL_MsgDestroy(channel);
  }
  // Takes the wake-ups that a new channel begins with.
  void Settle() {
    for (uint32_t i = 0; i < kMax; ++i)
      ASSERT_EQ(KEL_MsgReceive(channel, &got, 0), 0);
  }
  KEL_MSG_DESC Message(uint32_t word = 1, uint32_t size = 1) {
    return {word, size, size != 0 ? payload : nullptr};
  }
  KEL_MSG *channel = KEL_MsgCreate(0, kMax, kSize);
  KEL_MSG_DESC *got = nullptr;
  char payload[64] = {};
};

// ---- Creation ----

TEST(MsgCreate, TheRecordHas72BytesLaidOutInOrder) {
  AllocHooks hooks;
  KEL_MSG *channel = KEL_MsgCreate(0x123456789ABC, 4, 100);
  ASSERT_NE(channel, nullptr);
  EXPECT_EQ(hooks.adds[0].block, channel);
  EXPECT_EQ(hooks.adds[0].size, 72u);
  EXPECT_EQ(hooks.adds[0].file, "kelcore_msg");
  EXPECT_EQ(hooks.adds[0].func, kCreate);
  EXPECT_EQ(KEL_MutexLock(FieldOf<KEL_MUTEX *>(channel, 0), 0), 0u);
  KEL_MutexUnLock(FieldOf<KEL_MUTEX *>(channel, 0));
  EXPECT_EQ(UnitsOf(channel), 4) << "wake-ups begin at maxmsg";
  EXPECT_EQ(FieldOf<uint32_t>(channel, 16), 100u) << "maxsize";
  const auto *slots = FieldOf<KEL_MSG_DESC *>(channel, 24);
  const auto *area = FieldOf<char *>(channel, 32);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(slots[i].data, area + 100 * i);
    EXPECT_EQ(slots[i].word, 0u);
    EXPECT_EQ(slots[i].size, 0u);
  }
  EXPECT_EQ(FieldOf<uint32_t>(channel, 40), 4u) << "capacity";
  EXPECT_EQ(FieldOf<uint32_t>(channel, 44), 4u) << "limit";
  EXPECT_EQ(PendingOf(channel), 0u);
  EXPECT_STREQ(KEL_QueueGetName(MessagesOf(channel)), "kelmsg");
  EXPECT_EQ(KEL_QueueEmpty(MessagesOf(channel)), 1);
  auto *free_slots = FieldOf<KEL_QUEUE *>(channel, 64);
  EXPECT_STREQ(KEL_QueueGetName(free_slots), "kelmsgfree");
  EXPECT_EQ(KEL_QueueFull(free_slots), 1);
  for (int i = 0; i < 4; ++i) {
    int32_t param = 0;
    EXPECT_EQ(KEL_QueuePop(free_slots, &param, 0), &slots[i]);
    EXPECT_EQ(param, 16);
  }
  KEL_MsgDestroy(channel);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(MsgCreate, TheDescriptorHas16BytesLaidOutInOrder) {
  EXPECT_EQ(sizeof(KEL_MSG_DESC), 16u);
  EXPECT_EQ(offsetof(KEL_MSG_DESC, word), 0u);
  EXPECT_EQ(offsetof(KEL_MSG_DESC, size), 4u);
  EXPECT_EQ(offsetof(KEL_MSG_DESC, data), 8u);
}

TEST(MsgCreate, TracesEnterAndLeave) {
  TraceCapture trace("kelmsg:4");
  KEL_MSG *channel = KEL_MsgCreate(0, 2, 2);
  EXPECT_EQ(trace.Take(), (Lines{Enter(kCreate), Leave(kCreate)}));
  KEL_MsgDestroy(channel);
  EXPECT_EQ(trace.Take(), (Lines{Enter("KEL_MsgDestroy"), Leave("KEL_MsgDestroy")}));
}

// What is destroyed when creation fails, in order.
struct CreateFailure {
  const char *what;
  int failing_malloc;
  const char *message;
};
void PrintTo(const CreateFailure &failure, std::ostream *out) {
  *out << failure.what;
}

class MsgCreateFailure : public testing::TestWithParam<CreateFailure> {};

TEST_P(MsgCreateFailure, IsTracedAndReleasesEverything) {
  AllocHooks hooks;
  TraceCapture trace("kelmsg:4");
  faults::malloc.Fail(nullptr, ENOMEM, GetParam().failing_malloc, 1);
  errno = 0;
  EXPECT_EQ(KEL_MsgCreate(0, 4, 100), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  faults::ResetAll();
  EXPECT_EQ(trace.Take(), (Lines{Enter(kCreate), Error(kCreate, GetParam().message)}));
  EXPECT_EQ(hooks.live(), 0);
}

// A queue takes ten allocations; the channel's own are the record, the mutex,
// the semaphore's two, the two queues, the data area and the slots.
INSTANTIATE_TEST_SUITE_P(
    Step, MsgCreateFailure,
    testing::Values(CreateFailure{"record", 0, "msg malloc failed size(72)\n"},
                    CreateFailure{"mutex", 1, "mutex create failed\n"},
                    CreateFailure{"semaphore", 2, "event create failed\n"},
                    CreateFailure{"queue", 4, "queue create failed\n"},
                    CreateFailure{"free queue", 14, "free queue create failed\n"},
                    CreateFailure{"data", 24, "data malloc failed maxmsg(4) maxsize(100)\n"},
                    CreateFailure{"slots", 25,
                                  "kelmsgdata alloc failed maxmsg(4) nodesize(16)\n"}));

TEST(MsgCreate, ASlotThatCannotBePushedIsTracedAndReleasesEverything) {
  AllocHooks hooks;
  // Cuts the free queue's chain of nodes when the slots are made, so that the
  // second push finds none.
  KEL_NLIST_NODE *nodes = nullptr;
  hooks.on_add = [&](void *block, uint32_t size) {
    if (size == 4 * 24)
      nodes = static_cast<KEL_NLIST_NODE *>(block);
    if (size == 4 * 16)
      nodes[0].next = nullptr;
  };
  TraceCapture trace("kelmsg:1");
  EXPECT_EQ(KEL_MsgCreate(0, 4, 100), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Error(kCreate, "push to queue failed\n")}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(MsgCreate, AFailureReleasesLocksThenStorageThenTheRecord) {
  AllocHooks hooks;
  faults::malloc.Fail(nullptr, ENOMEM, 25, 1);
  EXPECT_EQ(KEL_MsgCreate(0, 4, 100), nullptr);
  faults::ResetAll();
  // Record, mutex, semaphore record and block were added first.
  ASSERT_GE(hooks.removes.size(), 5u);
  EXPECT_EQ(hooks.removes[0].block, hooks.adds[1].block) << "mutex";
  EXPECT_EQ(hooks.removes[1].block, hooks.adds[3].block) << "semaphore";
  EXPECT_EQ(hooks.removes[2].block, hooks.adds[2].block) << "its record";
  EXPECT_EQ(hooks.removes[3].block, hooks.adds[24].block) << "data area";
  EXPECT_EQ(hooks.removes.back().block, hooks.adds[0].block) << "record";
  const auto freed = [&](size_t added) {
    return std::find_if(
               hooks.removes.begin(), hooks.removes.end(),
               [&](const auto &remove) { return remove.block == hooks.adds[added].block; }) -
           hooks.removes.begin();
  };
  EXPECT_LT(freed(14), freed(4)) << "the free queue before the message queue";
}

TEST(MsgCreate, AnAreaThatDoesNotFit32BitsFailsAsAnAllocationDoes) {
  AllocHooks hooks;
  TraceCapture trace("kelmsg:1");
  errno = 0;
  EXPECT_EQ(KEL_MsgCreate(0, 65536, 65536), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(trace.Take(),
            (Lines{Error(kCreate, "data malloc failed maxmsg(65536) maxsize(65536)\n")}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(MsgCreate, WithoutPlacesIsFullAtOnce) {
  KEL_MSG *channel = KEL_MsgCreate(0, 0, 8);
  ASSERT_NE(channel, nullptr);
  KEL_MSG_DESC message = {1, 0, nullptr};
  TraceCapture trace("kelmsg:1");
  EXPECT_EQ(KEL_MsgSend(channel, &message), -16);
  EXPECT_EQ(trace.Take(), (Lines{Error(kSend, "msg queue full cur(0) max(0)\n")}));
  KEL_MSG_DESC *got = nullptr;
  EXPECT_EQ(KEL_MsgReceive(channel, &got, 0), -1);
  KEL_MsgDestroy(channel);
}

TEST(MsgDestroy, LeavesQueuedDescriptorsAlone) {
  AllocHooks hooks;
  KEL_MSG *channel = KEL_MsgCreate(0, 2, 2);
  KEL_MSG_DESC message = {1, 0, nullptr};
  KEL_MsgSend(channel, &message);
  KEL_MsgDestroy(channel);
  EXPECT_EQ(hooks.live(), 0);
  EXPECT_EQ(message.word, 1u);
}

TEST(MsgDestroy, ReleasesStorageThenLocksThenTheRecord) {
  AllocHooks hooks;
  KEL_MSG *channel = KEL_MsgCreate(0, 4, 100);
  const auto *area = FieldOf<void *>(channel, 32), *slots = FieldOf<void *>(channel, 24);
  const auto *messages = FieldOf<void *>(channel, 56),
             *free_slots = FieldOf<void *>(channel, 64);
  const auto *lock = FieldOf<void *>(channel, 0), *sema = FieldOf<void *>(channel, 8);
  const void *record = channel;
  KEL_MsgDestroy(channel);
  std::vector<std::string> order;
  for (const auto &remove : hooks.removes)
    for (const auto &[block, name] :
         std::vector<std::pair<const void *, std::string>>{{area, "area"},
                                                           {slots, "slots"},
                                                           {free_slots, "free queue"},
                                                           {messages, "queue"},
                                                           {lock, "lock"},
                                                           {sema, "semaphore"},
                                                           {record, "record"}})
      if (remove.block == block)
        order.push_back(name);
  EXPECT_EQ(order, (std::vector<std::string>{"area", "slots", "free queue", "queue", "lock",
                                             "semaphore", "record"}));
}

// ---- Sending ----

TEST_F(Channel, DeliversTheSendersOwnDescriptorWith16) {
  KEL_MSG_DESC one = Message(1), two = Message(2);
  EXPECT_EQ(KEL_MsgSend(channel, &one), 0);
  EXPECT_EQ(KEL_MsgSend(channel, &two), 0);
  EXPECT_EQ(PendingOf(channel), 2u);
  EXPECT_EQ(KEL_MsgReceive(channel, &got, 0), KEL_MSG_RECEIVED);
  EXPECT_EQ(got, &one);
  EXPECT_EQ(KEL_MsgReceive(channel, &got, 0), 16);
  EXPECT_EQ(got, &two);
  EXPECT_EQ(PendingOf(channel), 0u);
  EXPECT_EQ(one.word, 1u);
  EXPECT_EQ(one.size, 1u);
  EXPECT_EQ(one.data, payload);
}

TEST_F(Channel, TracesEnterAndLeaveOfSendsOnly) {
  KEL_MSG_DESC message = Message();
  TraceCapture trace("kelmsg:4");
  KEL_MsgSend(channel, &message);
  KEL_MsgReceive(channel, &got, 0);
  EXPECT_EQ(trace.Take(), (Lines{Enter(kSend), Leave(kSend)}));
}

TEST_F(Channel, RefusesNullArguments) {
  KEL_MSG_DESC message = Message();
  TraceCapture trace("kelmsg:4");
  EXPECT_EQ(KEL_MsgSend(nullptr, &message), -22);
  EXPECT_EQ(KEL_MsgSend(channel, nullptr), -22);
  const TraceLine error = Error(kSend, "invalid msg handle or data\n");
  EXPECT_EQ(trace.Take(), (Lines{Enter(kSend), error, Enter(kSend), error}));
}

TEST_F(Channel, DataAndSizeGoTogether) {
  KEL_MSG_DESC no_data = {1, 5, nullptr}, no_size = {1, 0, payload}, neither = {1, 0, nullptr};
  TraceCapture trace("kelmsg:1");
  EXPECT_EQ(KEL_MsgSend(channel, &no_data), -22);
  EXPECT_EQ(KEL_MsgSend(channel, &no_size), -22);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Error(kSend, "invalid arguments data(0) size(5)\n"),
             Error(kSend, Format("invalid arguments data(%x) size(0)\n", Low32(payload)))}));
  EXPECT_EQ(KEL_MsgSend(channel, &neither), 0);
  EXPECT_EQ(KEL_MsgReceive(channel, &got, 0), 16);
  EXPECT_EQ(got, &neither);
}

TEST_F(Channel, RefusesTheMessageBeyondItsLimit) {
  KEL_MSG_DESC message = Message();
  for (uint32_t i = 0; i < kMax; ++i)
    EXPECT_EQ(KEL_MsgSend(channel, &message), 0);
  TraceCapture trace("kelmsg:1");
  EXPECT_EQ(KEL_MsgSend(channel, &message), -16);
  EXPECT_EQ(trace.Take(), (Lines{Error(kSend, "msg queue full cur(3) max(3)\n")}));
  KEL_MsgReceive(channel, &got, 0);
  EXPECT_EQ(KEL_MsgSend(channel, &message), 0) << "there is room again";
}

TEST_F(Channel, AcceptsPayloadsUpToItsSize) {
  KEL_MSG_DESC fits = Message(1, kSize), too_big = Message(1, kSize + 1);
  EXPECT_EQ(KEL_MsgSend(channel, &fits), 0);
  TraceCapture trace("kelmsg:1");
  EXPECT_EQ(KEL_MsgSend(channel, &too_big), -22);
  EXPECT_EQ(trace.Take(), (Lines{Error(kSend, "data size is too big max(16)\n")}));
  EXPECT_EQ(PendingOf(channel), 1u);
}

TEST_F(Channel, BeingFullIsAskedBeforeTheSizeAndWithoutTheLock) {
  KEL_MSG_DESC message = Message(), too_big = Message(1, kSize + 1);
  for (uint32_t i = 0; i < kMax; ++i)
    KEL_MsgSend(channel, &message);
  KEL_MUTEX *lock = FieldOf<KEL_MUTEX *>(channel, 0);
  ASSERT_EQ(KEL_MutexLock(lock, 0), 0u);
  EXPECT_EQ(KEL_MsgSend(channel, &too_big), -16);
  KEL_MutexUnLock(lock);
}

TEST_F(Channel, AQueueThatRefusesFailsTheSend) {
  // As when two senders race for the last place.
  KEL_MSG_DESC message = Message();
  for (uint32_t i = 0; i < kMax; ++i)
    KEL_QueuePush(MessagesOf(channel), &message, 16);
  const int32_t units = UnitsOf(channel);
  TraceCapture trace;
  EXPECT_EQ(KEL_MsgSend(channel, &message), -22);
  EXPECT_EQ(trace.Take(), (Lines{Enter(kSend),
                                 {"ERROR", "kelqueue", "kelcore_queue", "KEL_QueuePush",
                                  "kelmsg freenode list is empty busy(3) free(0)\n"},
                                 Error(kSend, "mq_send error\n")}));
  EXPECT_EQ(PendingOf(channel), 0u);
  EXPECT_EQ(UnitsOf(channel), units);
  KEL_MUTEX *lock = FieldOf<KEL_MUTEX *>(channel, 0);
  EXPECT_EQ(KEL_MutexLock(lock, 0), 0u) << "unlocked";
  KEL_MutexUnLock(lock);
}

TEST_F(Channel, ALockThatFailsDoesNotStopTheSend) {
  KEL_MSG_DESC message = Message();
  faults::pthread_mutex_trylock.Fail(EINVAL, 0, 0, 1);
  faults::pthread_mutex_timedlock.Fail(EINVAL, 0, 0, 1);
  EXPECT_EQ(KEL_MsgSend(channel, &message), 0);
}

TEST_F(Channel, EachSendGivesOneUnit) {
  KEL_MSG_DESC message = Message();
  KEL_MsgSend(channel, &message);
  KEL_MsgSend(channel, &message);
  EXPECT_EQ(UnitsOf(channel), static_cast<int32_t>(kMax + 2));
}

// ---- Receiving ----

TEST_F(Channel, TheFirstReceivesComeBackEmptyHanded) {
  for (uint32_t timeout : {0u, 10u, KEL_WAIT_FOREVER}) {
    KEL_MSG_DESC *none = reinterpret_cast<KEL_MSG_DESC *>(payload);
    EXPECT_EQ(KEL_MsgReceive(channel, &none, timeout), 0);
    EXPECT_EQ(none, nullptr);
  }
  TraceCapture trace;
  EXPECT_EQ(KEL_MsgReceive(channel, &got, 0), -1);
  EXPECT_EQ(trace.Take(),
            (Lines{{"ERROR", "kelsema", "kelcore_sema", "KEL_SemaGet", "sem_trywait err=11\n"},
                   Error(kReceive, "sema get failed.\n")}));
}

TEST_F(Channel, AReceiveExpires) {
  Settle();
  TraceCapture trace("kelmsg:4");
  KEL_MSG_DESC *untouched = reinterpret_cast<KEL_MSG_DESC *>(payload);
  const uint64_t before = KEL_GetSystemTick();
  EXPECT_EQ(KEL_MsgReceive(channel, &untouched, 30), -110);
  EXPECT_GE(KEL_GetSystemTick() - before, 28u);
  EXPECT_EQ(untouched, reinterpret_cast<KEL_MSG_DESC *>(payload));
  EXPECT_EQ(trace.Take(), (Lines{Error(kReceive, "sema get failed.\n")}));
}

TEST_F(Channel, AReceiveWithoutPlaceForTheMessageFailsSilently) {
  TraceCapture trace;
  EXPECT_EQ(KEL_MsgReceive(channel, nullptr, 0), -1);
  EXPECT_EQ(trace.Take(), Lines{});
  EXPECT_EQ(UnitsOf(channel), static_cast<int32_t>(kMax)) << "no unit was taken";
}

TEST_F(Channel, AReceiveTakesNoLockOfTheChannel) {
  KEL_MSG_DESC message = Message();
  KEL_MsgSend(channel, &message);
  KEL_MUTEX *lock = FieldOf<KEL_MUTEX *>(channel, 0);
  ASSERT_EQ(KEL_MutexLock(lock, 0), 0u);
  EXPECT_EQ(KEL_MsgReceive(channel, &got, 0), 16);
  KEL_MutexUnLock(lock);
}

TEST_F(Channel, AReceiverSleepsUntilAMessageComes) {
  Settle();
  KEL_MSG_DESC message = Message(9);
  faults::sem_wait.Replace([](sem_t *s) { return faults::sem_wait.Real(s); });
  std::thread receiver([&] {
    KEL_MSG_DESC *mine = nullptr;
    EXPECT_EQ(KEL_MsgReceive(channel, &mine, KEL_WAIT_FOREVER), 16);
    EXPECT_EQ(mine, &message);
  });
  while (faults::sem_wait.Count() == 0)
    std::this_thread::yield();
  EXPECT_EQ(KEL_MsgSend(channel, &message), 0);
  receiver.join();
}

// ---- Threads ----

TEST(MsgThreads, LoseNothingAndNeitherDoesTheCount) {
  constexpr int kSenders = 3, kReceivers = 2, kEach = 2000;
  KEL_MSG *channel = KEL_MsgCreate(0, 4, 8);
  std::vector<KEL_MSG_DESC> messages(kSenders * kEach);
  std::vector<std::atomic<int>> taken(messages.size());
  std::atomic<int> left{static_cast<int>(messages.size())};
  std::vector<std::thread> threads;
  for (int s = 0; s < kSenders; ++s)
    threads.emplace_back([&, s] {
      for (int i = 0; i < kEach; ++i) {
        KEL_MSG_DESC *message = &messages[static_cast<size_t>(s * kEach + i)];
        while (KEL_MsgSend(channel, message) != 0)
          std::this_thread::yield();
      }
    });
  // The receivers also take the units that the channel begins with.
  for (int r = 0; r < kReceivers; ++r)
    threads.emplace_back([&] {
      while (left > 0) {
        KEL_MSG_DESC *message = nullptr;
        if (KEL_MsgReceive(channel, &message, 10) != 16)
          continue;
        ++taken[static_cast<size_t>(message - messages.data())];
        --left;
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  for (size_t i = 0; i < taken.size(); ++i)
    ASSERT_EQ(taken[i], 1) << i;
  EXPECT_EQ(PendingOf(channel), 0u) << "the channel has all its places again";
  KEL_MsgDestroy(channel);
}

}  // namespace
