// Queues between many producers and consumers, with releases and resets in between.

#include <kelcore_queue.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "stress.h"

namespace {

// Moments are numbered, so that it can be told in the end what may have come before
// what: numbered in order with the calls that they stand around, also where a processor
// would take its number later than the queue's lock.
struct Span {
  uint64_t begin, end;
};

class Clock {
 public:
  uint64_t Now() { return now_.fetch_add(1, std::memory_order_seq_cst) + 1; }

 private:
  std::atomic<uint64_t> now_{0};
};

enum class Fate : uint8_t { kUnknown, kDropped };

struct Item {
  uint32_t producer, serial;
  uint64_t check;
  Span push, pop;  // of the first one
  std::atomic<int> popped{0};
  Fate fate{Fate::kUnknown};  // written while all are held up
};

uint64_t CheckOf(uint32_t producer, uint32_t serial) {
  return stress::Mix(uint64_t{producer} << 32 | serial);
}

// Lets any number in, or one alone, who does not wait for newcomers.
class Gate {
 public:
  void Enter() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return !closed_; });
    ++inside_;
  }
  void Leave() {
    const std::lock_guard<std::mutex> guard(mutex_);
    --inside_;
    if (closed_)
      changed_.notify_all();
  }
  void Close() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return !closed_; });
    closed_ = true;
    changed_.wait(lock, [this] { return inside_ == 0; });
  }
  void Open() {
    const std::lock_guard<std::mutex> guard(mutex_);
    closed_ = false;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int inside_ = 0;
  bool closed_ = false;
};

class Inside {
 public:
  explicit Inside(Gate *gate) : gate_(gate) {
    if (gate_ != nullptr)
      gate_->Enter();
  }
  ~Inside() {
    if (gate_ != nullptr)
      gate_->Leave();
  }
  Inside(const Inside &) = delete;
  Inside &operator=(const Inside &) = delete;

 private:
  Gate *gate_;
};

// What one round does.
struct Plan {
  uint32_t maxnode;
  uint32_t producers, consumers;
  uint32_t items;  // each producer's
  uint32_t timeout;
  uint32_t release_one_in, reset_one_in;  // 0: never
  bool calm_resets;                       // everybody else is held up for a reset
  bool both_ends;
  bool leave_rest;  // what is left when all is pushed is not popped any more
};

Plan MakePlan(stress::Random &random, bool bounded) {
  constexpr uint32_t kLimits[] = {1, 2, 3, 7, 64, 1000};
  constexpr uint32_t kTimeouts[] = {0, 1, 2, 5, KEL_WAIT_FOREVER};
  Plan plan{};
  plan.maxnode = bounded ? random.Pick(kLimits) : 0;
  plan.producers = random.Between(1, 6);
  plan.consumers = random.Between(1, 4);
  plan.items = random.Between(1, 800);
  plan.timeout = random.Pick(kTimeouts);
  plan.release_one_in = random.OneIn(2) ? random.Between(10, 200) : 0;
  plan.reset_one_in = random.OneIn(2) ? random.Between(10, 500) : 0;
  plan.calm_resets = random.OneIn(2);
  // Nobody is held up while he sleeps without limit.
  if (plan.calm_resets && plan.reset_one_in != 0 && plan.timeout == KEL_WAIT_FOREVER)
    plan.timeout = 1;
  // A push wakes one sleeper: several may sleep only if each wakes up by itself.
  if (plan.timeout == KEL_WAIT_FOREVER)
    plan.consumers = 1;
  // What lies in an unbounded queue is taken from one end.
  plan.both_ends = bounded && random.OneIn(3);
  plan.leave_rest = random.OneIn(4);
  return plan;
}

class Round {
 public:
  explicit Round(const Plan &plan)
      : plan_(plan),
        queue_(KEL_QueueCreate("stress", plan.maxnode)),
        done_pushing_(kMost),
        gone_(kMost) {
    for (uint32_t p = 0; p < plan_.producers; ++p) {
      items_.push_back(std::make_unique<Item[]>(plan_.items));
      for (uint32_t i = 0; i < plan_.items; ++i) {
        items_[p][i].producer = p;
        items_[p][i].serial = i;
      }
    }
  }
  Round(const Round &) = delete;
  Round &operator=(const Round &) = delete;

  void Run() {
    std::vector<stress::Random> randoms(plan_.producers + plan_.consumers);
    std::vector<std::thread> producers, consumers;
    for (uint32_t i = 0; i < plan_.consumers; ++i)
      consumers.emplace_back([&, i] { Consume(randoms[plan_.producers + i]); });
    for (uint32_t i = 0; i < plan_.producers; ++i)
      producers.emplace_back([&, i] { Produce(i, randoms[i]); });
    for (std::thread &thread : producers)
      thread.join();
    finished_ = true;
    KEL_QueuePopRelease(queue_);  // for the one that sleeps without limit
    for (std::thread &thread : consumers)
      thread.join();
    if (plan_.leave_rest)
      DropRest();
    Check();
  }

 private:
  static constexpr uint32_t kMost = 6;

  void Produce(uint32_t self, stress::Random &random) {
    for (uint32_t i = 0; i < plan_.items; ++i) {
      Item &item = items_[self][i];
      item.check = CheckOf(self, i);
      while (!Push(item, random)) {
        refused_.fetch_add(1, std::memory_order_relaxed);
        std::this_thread::yield();
      }
      stress::Going();
      if (plan_.release_one_in != 0 && random.OneIn(plan_.release_one_in)) {
        KEL_QueuePopRelease(queue_);
        ++releases_;
      }
      if (plan_.reset_one_in != 0 && random.OneIn(plan_.reset_one_in))
        Reset();
    }
  }
  bool Push(Item &item, stress::Random &random) {
    const Inside inside(gate());
    const auto number = static_cast<int32_t>(item.check);
    const bool to_head = plan_.both_ends && random.OneIn(2);
    item.push.begin = clock_.Now();
    const int32_t result = to_head ? KEL_QueuePush2Head(queue_, &item, number)
                                   : KEL_QueuePush(queue_, &item, number);
    item.push.end = clock_.Now();
    if (result == 0)
      done_pushing_[item.producer] = item.serial + 1;
    return result == 0;
  }

  // ---- Resets ----

  Gate *gate() { return plan_.calm_resets && plan_.reset_one_in != 0 ? &others_ : nullptr; }
  void Reset() {
    if (plan_.calm_resets)
      CalmReset();
    else
      WildReset();
  }
  // While nobody else pushes or pops it is known, one by one, what must go.
  void CalmReset() {
    others_.Close();
    const uint64_t held = MarkHeld();
    stress::Expect(static_cast<uint64_t>(KEL_QueueGetSize(queue_)) == held,
                   "size %d with %llu items", KEL_QueueGetSize(queue_),
                   static_cast<unsigned long long>(held));
    stress::Expect(KEL_QueueReset(queue_) == 0 && KEL_QueueEmpty(queue_) == 1, "a reset fails");
    ++resets_;
    others_.Open();
  }
  // All items that have been pushed and not been popped are about to be dropped.
  uint64_t MarkHeld() {
    uint64_t held = 0;
    for (uint32_t p = 0; p < plan_.producers; ++p) {
      for (uint32_t i = gone_[p]; i < done_pushing_[p]; ++i)
        if (items_[p][i].popped == 0) {
          items_[p][i].fate = Fate::kDropped;
          ++held;
        }
      gone_[p] = done_pushing_[p].load();
    }
    return held;
  }
  // What had been pushed before must not be seen afterwards.
  void WildReset() {
    uint32_t before[kMost]{};
    for (uint32_t p = 0; p < plan_.producers; ++p)
      before[p] = done_pushing_[p];
    Span span{clock_.Now(), 0};
    stress::Expect(KEL_QueueReset(queue_) == 0, "a reset fails");
    span.end = clock_.Now();
    ++resets_;
    for (uint32_t p = 0; p < plan_.producers; ++p) {
      uint32_t gone = gone_[p];
      while (gone < before[p] && !gone_[p].compare_exchange_weak(gone, before[p])) {
      }
    }
    const std::lock_guard<std::mutex> guard(wild_mutex_);
    wild_.push_back(span);
  }
  // In the end what is left goes with a reset, or with the queue.
  void DropRest() {
    std::vector<Item *> left;
    for (const auto &items : items_)
      for (uint32_t i = 0; i < plan_.items; ++i)
        if (items[i].popped == 0 && items[i].fate == Fate::kUnknown && !DroppedWildly(items[i]))
          left.push_back(&items[i]);
    const auto size = static_cast<size_t>(KEL_QueueGetSize(queue_));
    // A wild reset may explain more items than it dropped.
    stress::Expect(wild_.empty() ? size == left.size() : size >= left.size(),
                   "size %zu with %zu items", size, left.size());
    if (!wild_.empty() || plan_.items % 2 != 0)
      stress::Expect(KEL_QueueReset(queue_) == 0, "a reset fails");
    for (Item *item : left)
      item->fate = Fate::kDropped;
    left_ = left.size();
  }

  // ---- Consumers ----

  void Consume(stress::Random &random) {
    std::vector<uint32_t> next(plan_.producers);
    for (;;) {
      const bool last = finished_;
      if (last && (plan_.leave_rest || KEL_QueueEmpty(queue_) == 1))
        return;
      uint32_t gone[kMost]{};
      for (uint32_t p = 0; p < plan_.producers; ++p)
        gone[p] = gone_[p];
      const uint32_t timeout = last ? 0 : plan_.timeout;
      const Item *item = Pop(random, timeout);
      if (item == nullptr) {
        ++empty_handed_;
        if (timeout == 0)
          std::this_thread::yield();
        continue;
      }
      stress::Going();
      const uint32_t p = item->producer, serial = item->serial;
      stress::Expect(serial >= gone[p], "item %u of producer %u outlives a reset", serial, p);
      if (!plan_.both_ends) {
        stress::Expect(serial >= next[p], "item %u of producer %u comes after %u", serial, p,
                       next[p]);
        next[p] = serial + 1;
      }
    }
  }
  Item *Pop(stress::Random &random, uint32_t timeout) {
    const Inside inside(gate());
    const bool from_tail = plan_.both_ends && random.OneIn(2);
    int32_t number = 0;
    const uint64_t begin = clock_.Now();
    auto *item = static_cast<Item *>(from_tail ? KEL_QueuePopTail(queue_, &number, timeout)
                                               : KEL_QueuePop(queue_, &number, timeout));
    const uint64_t end = clock_.Now();
    if (item == nullptr)
      return nullptr;
    const uint32_t p = item->producer, serial = item->serial;
    if (item->popped.fetch_add(1, std::memory_order_relaxed) == 0)
      item->pop = {begin, end};
    else
      stress::Expect(false, "item %u of producer %u comes again", serial, p);
    stress::Expect(
        item->check == CheckOf(p, serial) && number == static_cast<int32_t>(item->check),
        "item %u of producer %u comes with number %d", serial, p, number);
    return item;
  }

  // ---- In the end ----

  void Check() {
    uint64_t popped = 0, dropped = 0;
    for (uint32_t p = 0; p < plan_.producers; ++p) {
      for (uint32_t i = 0; i < plan_.items; ++i) {
        const Item &item = items_[p][i];
        const bool comes = item.popped > 0;
        const bool goes = item.fate == Fate::kDropped || (!comes && DroppedWildly(item));
        stress::Expect(comes || goes, "item %u of producer %u is lost", i, p);
        stress::Expect(!comes || !goes, "item %u of producer %u was dropped, and comes", i, p);
        popped += comes ? 1 : 0;
        dropped += goes ? 1 : 0;
      }
      if (!plan_.both_ends)
        CheckOrder(p);
    }
    const uint64_t pushed = uint64_t{plan_.items} * plan_.producers;
    stress::Expect(popped + dropped == pushed, "%llu pushed, %llu popped, %llu dropped",
                   static_cast<unsigned long long>(pushed),
                   static_cast<unsigned long long>(popped),
                   static_cast<unsigned long long>(dropped));
    CheckEmpty();
    KEL_QueueDestroy(queue_);
    stress::Count("pushed", pushed);
    stress::Count("popped", popped);
    stress::Count("dropped", dropped);
    stress::Count("left", left_);
    stress::Count("refused", refused_);
    stress::Count("releases", releases_);
    stress::Count("resets", resets_);
    stress::Count("empty-handed", empty_handed_);
  }
  // Whether some reset that met others at work can have dropped it: one that ended after
  // it was pushed and, if the producer's next one came out at the far end, began before
  // that was there.
  bool DroppedWildly(const Item &item) const {
    const bool last = item.serial + 1 == plan_.items;
    const Item *next = last ? nullptr : &items_[item.producer][item.serial + 1];
    const bool before_next = !plan_.both_ends && next != nullptr && next->popped > 0;
    return std::any_of(wild_.begin(), wild_.end(), [&](const Span &reset) {
      return reset.end > item.push.begin && (!before_next || reset.begin < next->push.end);
    });
  }
  // No item was taken entirely after a later one of the same producer.
  void CheckOrder(uint32_t p) const {
    uint64_t earliest_end = UINT64_MAX;
    for (uint32_t i = plan_.items; i-- > 0;) {
      const Item &item = items_[p][i];
      if (item.popped == 0)
        continue;
      stress::Expect(item.pop.begin < earliest_end,
                     "item %u of producer %u comes after a later one", i, p);
      earliest_end = std::min(earliest_end, item.pop.end);
    }
  }
  void CheckEmpty() {
    // Half of what was left goes with the queue.
    if (plan_.leave_rest && wild_.empty() && plan_.items % 2 == 0)
      return;
    stress::Expect(KEL_QueueGetSize(queue_) == 0, "size %d in the end",
                   KEL_QueueGetSize(queue_));
    stress::Expect(KEL_QueueFull(queue_) == 0, "full in the end");
    FillUp();
  }
  // No entry got lost: a bounded queue still takes what it was made for.
  void FillUp() {
    for (uint32_t i = 0; i < plan_.maxnode; ++i)
      stress::Expect(KEL_QueuePush(queue_, this, 0) == 0, "room for %u of %u", i,
                     plan_.maxnode);
    if (plan_.maxnode != 0)
      stress::Expect(KEL_QueuePush(queue_, this, 0) == -1 && KEL_QueueFull(queue_) == 1,
                     "room for more than %u", plan_.maxnode);
  }

  const Plan plan_;
  KEL_QUEUE *queue_;
  Clock clock_;
  Gate others_;
  std::vector<std::unique_ptr<Item[]>> items_;
  std::vector<std::atomic<uint32_t>> done_pushing_;  // by producer: serials below it
  std::vector<std::atomic<uint32_t>> gone_;          // by producer: dropped or popped
  std::mutex wild_mutex_;
  std::vector<Span> wild_;  // resets that met others at work
  uint64_t left_ = 0;
  std::atomic<bool> finished_{false};
  std::atomic<uint64_t> refused_{0}, releases_{0}, resets_{0}, empty_handed_{0};
};

void Rounds(bool bounded) {
  stress::Random random;
  do {
    Round(MakePlan(random, bounded)).Run();
    stress::Count("rounds", 1);
  } while (stress::Going());
}

}  // namespace

int main() {
  return stress::Main(
      "queue", "popped + dropped = pushed, each accounted for; none twice, in order",
      {{"bounded", [] { Rounds(true); }}, {"unbounded", [] { Rounds(false); }}});
}
