// Queues between many producers and consumers, with releases and resets in between.

#include <kelcore_queue.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "stress.h"

namespace {

struct Item {
  uint32_t producer, serial;
  uint64_t check;
  std::atomic<int> popped{0};
};

uint64_t CheckOf(uint32_t producer, uint32_t serial) {
  return stress::Mix(uint64_t{producer} << 32 | serial);
}

// What one round does.
struct Plan {
  uint32_t maxnode;
  uint32_t producers, consumers;
  uint32_t items;  // each producer's
  uint32_t timeout;
  uint32_t release_one_in, reset_one_in;  // 0: never
  bool both_ends;
};

Plan MakePlan(stress::Random &random, bool bounded) {
  constexpr uint32_t kLimits[] = {1, 2, 3, 7, 64, 1000};
  constexpr uint32_t kTimeouts[] = {0, 1, 2, 5, KEL_WAIT_FOREVER};
  Plan plan{};
  plan.maxnode = bounded ? random.Pick(kLimits) : 0;
  plan.producers = random.Between(1, 6);
  plan.consumers = random.Between(1, 4);
  plan.items = random.Between(1, 1500);
  plan.timeout = random.Pick(kTimeouts);
  // A push wakes one sleeper: several may sleep only if each wakes up by itself.
  if (plan.timeout == KEL_WAIT_FOREVER)
    plan.consumers = 1;
  plan.release_one_in = random.OneIn(2) ? random.Between(10, 200) : 0;
  plan.reset_one_in = random.OneIn(3) ? random.Between(50, 2000) : 0;
  // What lies in an unbounded queue is taken from one end.
  plan.both_ends = bounded && random.OneIn(3);
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
  ~Round() { KEL_QueueDestroy(queue_); }
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
    Check();
  }

 private:
  static constexpr uint32_t kMost = 6;

  void Produce(uint32_t self, stress::Random &random) {
    for (uint32_t i = 0; i < plan_.items; ++i) {
      Item &item = items_[self][i];
      item.check = CheckOf(self, i);
      while (Push(item, random) != 0) {
        refused_.fetch_add(1, std::memory_order_relaxed);
        std::this_thread::yield();
      }
      done_pushing_[self] = i + 1;
      stress::Going();
      if (plan_.release_one_in != 0 && random.OneIn(plan_.release_one_in)) {
        KEL_QueuePopRelease(queue_);
        ++releases_;
      }
      if (plan_.reset_one_in != 0 && random.OneIn(plan_.reset_one_in))
        Reset();
    }
  }
  int32_t Push(Item &item, stress::Random &random) {
    const auto number = static_cast<int32_t>(item.check);
    return plan_.both_ends && random.OneIn(2) ? KEL_QueuePush2Head(queue_, &item, number)
                                              : KEL_QueuePush(queue_, &item, number);
  }
  // What had been pushed before must not be seen afterwards.
  void Reset() {
    uint32_t before[kMost];
    for (uint32_t p = 0; p < plan_.producers; ++p)
      before[p] = done_pushing_[p];
    stress::Expect(KEL_QueueReset(queue_) == 0, "a reset fails");
    ++resets_;
    for (uint32_t p = 0; p < plan_.producers; ++p) {
      uint32_t gone = gone_[p];
      while (gone < before[p] && !gone_[p].compare_exchange_weak(gone, before[p])) {
      }
    }
  }

  void Consume(stress::Random &random) {
    std::vector<uint32_t> next(plan_.producers);
    for (;;) {
      const bool last = finished_;
      if (last && KEL_QueueEmpty(queue_) == 1)
        return;
      uint32_t gone[kMost];
      for (uint32_t p = 0; p < plan_.producers; ++p)
        gone[p] = gone_[p];
      int32_t number = 0;
      const uint32_t timeout = last ? 0 : plan_.timeout;
      auto *item = static_cast<Item *>(plan_.both_ends && random.OneIn(2)
                                           ? KEL_QueuePopTail(queue_, &number, timeout)
                                           : KEL_QueuePop(queue_, &number, timeout));
      if (item == nullptr) {
        ++empty_handed_;
        if (timeout == 0)
          std::this_thread::yield();
        continue;
      }
      stress::Going();
      item->popped.fetch_add(1, std::memory_order_relaxed);
      const uint32_t p = item->producer, serial = item->serial;
      stress::Expect(
          item->check == CheckOf(p, serial) && number == static_cast<int32_t>(item->check),
          "item %u of producer %u comes with number %d", serial, p, number);
      stress::Expect(serial >= gone[p], "item %u of producer %u outlives a reset", serial, p);
      if (!plan_.both_ends) {
        stress::Expect(serial >= next[p], "item %u of producer %u comes after %u", serial, p,
                       next[p]);
        next[p] = serial + 1;
      }
    }
  }

  void Check() {
    uint64_t popped = 0;
    for (uint32_t p = 0; p < plan_.producers; ++p) {
      for (uint32_t i = 0; i < plan_.items; ++i) {
        const int times = items_[p][i].popped;
        stress::Expect(times <= 1, "item %u of producer %u comes %d times", i, p, times);
        stress::Expect(times == 1 || resets_ > 0, "item %u of producer %u is lost", i, p);
        popped += static_cast<uint64_t>(times);
      }
    }
    stress::Expect(KEL_QueueGetSize(queue_) == 0, "size %d in the end",
                   KEL_QueueGetSize(queue_));
    stress::Expect(KEL_QueueFull(queue_) == 0, "full in the end");
    FillUp();
    const uint64_t pushed = uint64_t{plan_.items} * plan_.producers;
    stress::Count("pushed", pushed);
    stress::Count("popped", popped);
    stress::Count("dropped", pushed - popped);
    stress::Count("refused", refused_);
    stress::Count("releases", releases_);
    stress::Count("resets", resets_);
    stress::Count("empty-handed", empty_handed_);
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
  std::vector<std::unique_ptr<Item[]>> items_;
  std::vector<std::atomic<uint32_t>> done_pushing_;  // by producer: serials below it
  std::vector<std::atomic<uint32_t>> gone_;          // by producer: dropped or popped
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
      "queue", {{"bounded", [] { Rounds(true); }}, {"unbounded", [] { Rounds(false); }}});
}
