// Many threads make, use and release objects while memory and other things that the
// system gives fail at random: what is made works, what is not made leaves nothing.

#include <errno.h>
#include <kelcore.h>

#include <atomic>
#include <iterator>
#include <mutex>
#include <thread>
#include <unordered_set>
#include <vector>

#include "faults.h"
#include "stress.h"

namespace {

// Only threads that set these are short of anything.
thread_local stress::Random *luck = nullptr;
thread_local uint32_t chance = 0;

bool Unlucky() {
  return luck != nullptr && luck->OneIn(chance);
}

template <typename Call, typename Result>
void FailAtTimes(Call &call, Result result, int error) {
  call.Replace([&call, result, error](auto... arguments) {
    if (!Unlucky())
      return call.Real(arguments...);
    errno = error;
    return result;
  });
}

// What the system gives besides memory, and how much of it is held.
struct Kind {
  const char *name;
  std::atomic<int64_t> made{0}, held{0};

  void Begin() { ++made, ++held; }
  void End() { --held; }
};
Kind mutexes{"mutexes"}, threads{"threads"}, attributes{"thread-attributes"},
    semaphores{"semaphores"}, timers{"timers"}, texts{"texts"};
constexpr Kind *kKinds[] = {&mutexes, &threads, &attributes, &semaphores, &timers, &texts};

template <typename Call>
void FailAtTimes(Call &call, int result, int error, Kind &kind) {
  call.Replace([&call, result, error, &kind](auto... arguments) {
    if (Unlucky()) {
      errno = error;
      return result;
    }
    const int real = call.Real(arguments...);
    if (real == 0)
      kind.Begin();
    return real;
  });
}

template <typename Call>
void Follow(Call &call, Kind &kind) {
  call.Replace([&call, &kind](auto... arguments) {
    const int real = call.Real(arguments...);
    if (real == 0)
      kind.End();
    return real;
  });
}

// The copies of names are no blocks of the library's, but the C library's.
// Never destroyed: the last blocks are freed after all destructors.
class Copies {
 public:
  static Copies &All() {
    static auto *const all = new Copies;
    return *all;
  }
  void Add(const void *copy) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (copies_.insert(copy).second)
      texts.Begin();
  }
  void Remove(const void *copy) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (copies_.erase(copy) > 0)
      texts.End();
  }

 private:
  std::mutex mutex_;
  std::unordered_set<const void *> copies_;
};

char *CopyAtTimes(const char *text) {
  if (Unlucky()) {
    errno = ENOMEM;
    return nullptr;
  }
  char *copy = faults::strdup.Real(text);
  if (copy != nullptr)
    Copies::All().Add(copy);
  return copy;
}

void BeginShortage() {
  FailAtTimes(faults::malloc, static_cast<void *>(nullptr), ENOMEM);
  FailAtTimes(faults::calloc, static_cast<void *>(nullptr), ENOMEM);
  FailAtTimes(faults::realloc, static_cast<void *>(nullptr), ENOMEM);
  FailAtTimes(faults::aligned_alloc, static_cast<void *>(nullptr), ENOMEM);
  faults::strdup.Replace(CopyAtTimes);
  // The library makes do with a mutex that reports anything but a negative number.
  faults::pthread_mutex_init.Replace(
      [](pthread_mutex_t *mutex, const pthread_mutexattr_t *how) {
        mutexes.Begin();
        return Unlucky() ? ENOMEM : faults::pthread_mutex_init.Real(mutex, how);
      });
  Follow(faults::pthread_mutex_destroy, mutexes);
  FailAtTimes(faults::pthread_create, EAGAIN, 0, threads);
  Follow(faults::pthread_join, threads);
  Follow(faults::pthread_detach, threads);
  FailAtTimes(faults::pthread_attr_init, ENOMEM, 0, attributes);
  Follow(faults::pthread_attr_destroy, attributes);
  FailAtTimes(faults::sem_init, -1, ENOSPC, semaphores);
  Follow(faults::sem_destroy, semaphores);
  FailAtTimes(faults::timer_create, -1, EAGAIN, timers);
  Follow(faults::timer_delete, timers);
  FailAtTimes(faults::sigaction, -1, EINVAL);
}

void EndShortage() {
  faults::ResetAll();
  for (const Kind *kind : kKinds) {
    stress::Expect(kind->held == 0, "%lld %s are left", static_cast<long long>(kind->held),
                   kind->name);
    stress::Expect(kind->made > 0, "no %s were made", kind->name);
    stress::Count(kind->name, static_cast<uint64_t>(kind->made));
  }
}

// ---- One short life of each kind; true when it could be made ----

bool QueueLife(stress::Random &random) {
  const uint32_t limit = random.OneIn(2) ? 0 : random.Between(1, 50);
  KEL_QUEUE *queue = KEL_QueueCreate(random.OneIn(2) ? "queue" : nullptr, limit);
  if (queue == nullptr)
    return false;
  int32_t pushed = 0, popped = 0;
  for (uint32_t i = random.Below(60); i > 0; --i)
    if (KEL_QueuePush(queue, &popped, 7) == 0)
      ++pushed;
  stress::Expect(KEL_QueueGetSize(queue) == pushed, "%d entries, %d pushed",
                 KEL_QueueGetSize(queue), pushed);
  for (uint32_t i = random.Below(60); i > 0 && KEL_QueuePop(queue, nullptr, 0) != nullptr; --i)
    ++popped;
  stress::Expect(KEL_QueueGetSize(queue) == pushed - popped, "an entry is lost");
  KEL_QueueDestroy(queue);
  return true;
}

bool ChannelLife(stress::Random &random) {
  const uint32_t most = random.Between(1, 20);
  KEL_MSG *channel = KEL_MsgCreate(0, most, random.Below(1000));
  if (channel == nullptr)
    return false;
  KEL_MSG_DESC message = {1, 0, nullptr};
  uint32_t sent = 0, received = 0;
  while (sent <= most && KEL_MsgSend(channel, &message) == 0)
    ++sent;
  KEL_MSG_DESC *got = nullptr;
  while (KEL_MsgReceive(channel, &got, 0) >= 0)
    if (got != nullptr)
      ++received;
  stress::Expect(sent == most && received == most, "%u sent and %u received of %u", sent,
                 received, most);
  KEL_MsgDestroy(channel);
  return true;
}

bool MediaLife(stress::Random &random) {
  KEL_BUF_PARAM param{};
  param.bufsize = random.Between(1000, 5000);
  param.minsize = 100;
  param.number = random.Between(2, 20);
  KEL_BUF *writer = KELBuf_Create(&param, nullptr);
  if (writer == nullptr)
    return false;
  KEL_BUF *reader = KELBuf_Create(&param, writer);
  KEL_BUF_DESC frame{};
  stress::Expect(KELBuf_GetWBuf(writer, &frame) == 0, "no room in an empty pool");
  frame.size = 50;
  stress::Fill(frame.data, frame.size, 1);
  stress::Expect(KELBuf_FillWBuf(writer, &frame) == 0, "a frame is refused");
  for (KEL_BUF *handle : {reader, writer})
    if (handle != nullptr)
      stress::Expect(KELBuf_GetRBuf(handle, &frame) == 0 && stress::Holds(frame.data, 50, 1) &&
                         KELBuf_DelRBuf(handle, &frame) == 0,
                     "a frame is lost");
  KELBuf_Destroy(reader);
  KELBuf_Destroy(writer);
  return true;
}

int32_t Job(void *argument) {
  static_cast<std::atomic<int> *>(argument)->fetch_add(1);
  return 5;
}

bool PoolLife(stress::Random &random) {
  KEL_THREADPOOL *pool =
      KEL_ThreadPool_Create("shortage", 0, 0, static_cast<int32_t>(random.Between(1, 4)));
  if (pool == nullptr)
    return false;
  std::atomic<int> runs{0};
  for (int i = 0; i < 3; ++i) {
    int32_t result = 0;
    const int32_t worker = KEL_ThreadPool_Run(pool, Job, &runs);
    stress::Expect(worker >= 0 && KEL_ThreadPool_Stop(pool, worker, &result) == 0 &&
                       result == 5 && runs == i + 1,
                   "job %d on worker %d gives %d", i, worker, result);
  }
  KEL_ThreadPool_Delete(pool);
  return true;
}

void *Body(void *argument) {
  return argument;
}

bool ThreadLife(stress::Random &random) {
  KEL_THREAD *thread =
      KEL_ThreadCreate("life", 0, random.OneIn(2) ? 0 : 256 * 1024, Body, &random);
  if (thread == nullptr)
    return false;
  void *result = nullptr;
  stress::Expect(KEL_ThreadDelete(thread, &result) == 0 && result == &random,
                 "a thread gives another result");
  return true;
}

void Ignore(void *) {}

bool TimerLife(stress::Random &) {
  KEL_TIMER *timer = KEL_TimerCreate(1'000'000'000, Ignore, nullptr);
  if (timer == nullptr)
    return false;
  stress::Expect(
      KEL_TimerStart(timer, 0, 1, nullptr, nullptr) == 0 && KEL_TimerDestroy(timer) == 0,
      "a timer fails");
  return true;
}

bool LockLife(stress::Random &) {
  KEL_MUTEX *mutex = KEL_MutexCreate();
  if (mutex != nullptr) {
    stress::Expect(KEL_MutexLock(mutex, 0) == 0 && KEL_MutexUnLock(mutex) == 0 &&
                       KEL_MutexDestroy(mutex) == 0,
                   "a mutex fails");
  }
  KEL_SEMA *event = KEL_EventCreate(nullptr);
  if (event != nullptr) {
    stress::Expect(KEL_EventSend(event) == 0 && KEL_EventWait(event, KEL_WAIT_FOREVER) == 0 &&
                       KEL_EventDestroy(event) == 0,
                   "an event fails");
  }
  return mutex != nullptr && event != nullptr;
}

bool TableLife(stress::Random &random) {
  KEL_HASHMAP *table = KEL_Hashmap_Create(64, 0);
  if (table == nullptr)
    return false;
  const char *const keys[] = {"one", "two", "three", "four"};
  for (const char *key : keys)
    (void)KEL_Hashmap_Hash(table, key, random.Next());
  uint64_t value;
  for (const char *key : keys)
    if (KEL_Hashmap_Get(table, key, &value) == 0)
      stress::Expect(KEL_Hashmap_Del(table, key) == 0, "an entry cannot be removed");
  KEL_Hashmap_DestroyFull(table, nullptr);
  return true;
}

// The copies of a table's keys are told when they are released only.
bool UncountedTableLife(stress::Random &random) {
  stress::FollowBlocks(false);
  const bool made = TableLife(random);
  stress::FollowBlocks(true);
  return made;
}

bool BytesLife(stress::Random &random) {
  const uint32_t size = random.Between(10, 500);
  KEL_CIRCULAR *circular = KELCircular_Create(size);
  uint8_t bytes[10];
  if (circular != nullptr) {
    stress::Fill(bytes, sizeof bytes, size);
    stress::Expect(KELCircular_Push(circular, bytes, sizeof bytes) == 0 &&
                       KELCircular_Pop(circular, bytes, sizeof bytes) == 0 &&
                       stress::Holds(bytes, sizeof bytes, size),
                   "bytes are lost");
    KELCircular_Destroy(circular);
  }
  KEL_RING *ring = KELRing_Create(size);
  if (ring != nullptr) {
    uint32_t room = 0;
    stress::Fill(KELRing_GetWBuf(ring, &room), 5, size);
    stress::Expect(KELRing_FillWBuf(ring, 5) == 5 &&
                       stress::Holds(KELRing_GetRBuf(ring, &room), 5, size) &&
                       KELRing_DelRBuf(ring, 5) == 0,
                   "bytes are lost");
    KELRing_Destroy(ring);
  }
  return circular != nullptr && ring != nullptr;
}

bool ListLife(stress::Random &random) {
  KEL_LIST *list = KEL_ListCreate();
  if (list == nullptr)
    return false;
  uint32_t added = 0;
  for (uint32_t i = random.Below(20); i > 0; --i) {
    KEL_LIST_NODE *node = KEL_List_Node_new_data(list);
    if (node == nullptr)
      continue;
    node->prev = node->next = nullptr;
    stress::Expect(KEL_ListAddTail(list, node) == 0, "a node is refused");
    ++added;
  }
  stress::Expect(KEL_ListGetNum(list) == added, "%u nodes, %u added", KEL_ListGetNum(list),
                 added);
  while (KEL_LIST_NODE *node = KEL_ListGetHead(list)) {
    KEL_ListDel(list, node);
    KEL_List_Node_delete(node);
  }
  KEL_ListDestroy(list);
  return true;
}

// Sizes belong to the process: one thread only.
bool ClassLife(stress::Random &random) {
  const uint32_t size = random.Between(40, 400);
  const bool made = KEL_SMalloc_Register(size, "class") == 0;
  for (uint32_t i = random.Below(5000); i > 0; --i)
    if (void *block = KEL_SMalloc(size))
      stress::Expect(stress::IsZero(block, size), "a block is not zeroed");
  // A registration that failed may have kept its slot.
  const bool gone = KEL_SMalloc_UnRegister(size) == 0;
  stress::Expect(gone || !made, "a size stays");
  return made;
}

using Life = bool (*)(stress::Random &);
constexpr Life kLives[] = {QueueLife,  ChannelLife, MediaLife, PoolLife,
                           ThreadLife, TimerLife,   LockLife,  UncountedTableLife,
                           BytesLife,  ListLife,    ClassLife};
constexpr uint32_t kOfAll = std::size(kLives), kOfOthers = kOfAll - 1;

void Live(uint32_t self, stress::Random &random, stress::Random &own_luck) {
  uint64_t made = 0, not_made = 0;
  while (stress::Going()) {
    chance = random.Between(2, 40);
    luck = &own_luck;
    const bool good = kLives[random.Below(self == 0 ? kOfAll : kOfOthers)](random);
    luck = nullptr;
    ++(good ? made : not_made);
  }
  stress::Count("made", made);
  stress::Count("not-made", not_made);
}

void Shortage() {
  constexpr uint32_t kThreads = 4;
  stress::Expect(KEL_SMalloc_Init() == 0, "no pool");
  BeginShortage();
  std::vector<stress::Random> randoms(kThreads), lucks(kThreads);
  std::vector<std::thread> all;
  for (uint32_t i = 0; i < kThreads; ++i)
    all.emplace_back([&, i] { Live(i, randoms[i], lucks[i]); });
  for (std::thread &thread : all)
    thread.join();
  EndShortage();
  KEL_SMalloc_Deinit();
}

}  // namespace

extern "C" void __real_free(void *block);
extern "C" void __wrap_free(void *block);

extern "C" void __wrap_free(void *block) {
  if (block != nullptr)
    Copies::All().Remove(block);
  __real_free(block);
}

int main() {
  return stress::Main("shortage", "no block, text, thread, timer, semaphore or mutex leaks",
                      {{"lives", Shortage}});
}
