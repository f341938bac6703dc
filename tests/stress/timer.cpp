// Timers of about a millisecond on several threads, started, stopped and destroyed
// at random moments, also from their own callbacks. What is stopped comes to rest, and
// what is destroyed calls no more.

#include <kelcore_time.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "stress.h"

namespace {

// ThreadSanitizer delays signals, keeps one of each number and drops the rest: what
// happens once may never be told.
#ifdef __SANITIZE_THREAD__
constexpr bool kEverySignalComes = false;
#else
constexpr bool kEverySignalComes = true;
#endif

// What a callback sees. It outlives its timer, to tell when one comes too late.
struct Slot {
  std::atomic<KEL_TIMER *> timer{nullptr};
  std::atomic<uint32_t> calls{0};
  std::atomic<bool> ended{false};
  std::atomic<bool> gone{false};  // destroyed: no callback may come
  std::atomic<uint32_t> late{0};
  std::atomic<int32_t> destroyed{-1};
};

void Tick(void *argument) {
  auto *slot = static_cast<Slot *>(argument);
  if (slot->gone)
    slot->late.fetch_add(1);
  // Some linger, for a destruction on another thread to meet them.
  uint32_t turns = slot->calls.fetch_add(1) % 4 == 0 ? 20'000 : 0;
  while (turns > 0 && !slot->gone.load(std::memory_order_relaxed))
    --turns;
  if (slot->gone)
    slot->late.fetch_add(1);
}

void TickAndEnd(void *argument) {
  auto *slot = static_cast<Slot *>(argument);
  Tick(argument);
  // The next signal may have reached another thread by now: one of them ends it.
  if (slot->ended.exchange(true))
    return;
  const int32_t result = KEL_TimerDestroy(slot->timer);
  slot->gone = true;
  slot->destroyed = result;
}

// Waits for what a signal to any thread will bring about.
template <typename Condition>
void Await(Condition condition) {
  while (!condition())
    std::this_thread::sleep_for(std::chrono::microseconds(200));
}

constexpr uint32_t kThreads = 4;
// When a timer is stopped one signal can be pending, and each thread be at the
// beginning of a callback: those that work and the one that waits for them.
constexpr uint32_t kStragglers = kThreads + 2;

class Life {
 public:
  explicit Life(stress::Random &random) : random_(random), slot_(std::make_unique<Slot>()) {}

  // The slot, which late callbacks would find.
  std::unique_ptr<Slot> Run() {
    const uint32_t kind = random_.Below(20);
    if (kind == 0)
      ComesToRest();
    else if (kind <= 5)
      Once();
    else if (kind <= 10)
      EndsItself();
    else
      Periodic();
    return std::move(slot_);
  }

 private:
  KEL_TIMER *Create(uint64_t interval, KEL_TIMER_CALLBACK callback) {
    KEL_TIMER *timer = KEL_TimerCreate(interval, callback, slot_.get());
    stress::Expect(timer != nullptr, "no timer");
    slot_->timer = timer;
    stress::Count("timers", 1);
    return timer;
  }
  void Destroy(KEL_TIMER *timer) {
    stress::Expect(KEL_TimerDestroy(timer) == 0, "a timer is not destroyed");
    slot_->gone = true;
    stress::Count("callbacks", slot_->calls);
  }

  void Once() {
    KEL_TIMER *timer = Create(random_.Between(1, 2000), Tick);
    KEL_TimerStart(timer, 0, 0, nullptr, nullptr);
    const bool wait = random_.OneIn(2) && kEverySignalComes;
    if (wait)
      Await([this] { return slot_->calls > 0; });
    Destroy(timer);
    stress::Expect(slot_->calls <= 1, "a timer that is started once calls %u times",
                   slot_->calls.load());
  }

  // A stopped timer says no more, while another one says that the time goes on; started
  // again it is there.
  void ComesToRest() {
    KEL_TIMER *timer = Create(1000, Tick);
    const uint32_t loop = random_.OneIn(4) ? 0 : 1;
    KEL_TimerStart(timer, 0, loop, nullptr, nullptr);
    if (random_.OneIn(2) && (loop != 0 || kEverySignalComes))
      Await([this] { return slot_->calls > 0; });
    stress::Expect(KEL_TimerStop(timer) == 0, "a timer does not stop");
    const uint32_t stopped_at = slot_->calls;
    Slot other;
    KEL_TIMER *witness = KEL_TimerCreate(1000, Tick, &other);
    KEL_TimerStart(witness, 0, 1, nullptr, nullptr);
    Await([&] { return other.calls >= 3 * kStragglers; });
    KEL_TimerDestroy(witness);
    const uint32_t late = slot_->calls - stopped_at;
    stress::Expect(late <= kStragglers && (loop != 0 || slot_->calls <= 1),
                   "a timer that has been stopped calls %u times more", late);
    stress::Count("rests", 1);
    stress::Count("stragglers", late);
    KEL_TimerStart(timer, 0, 1, nullptr, nullptr);
    const uint32_t before = slot_->calls;
    Await([&] { return slot_->calls > before; });
    Destroy(timer);
  }

  void EndsItself() {
    KEL_TIMER *timer = Create(random_.Between(1, 1500), TickAndEnd);
    const bool periodic = random_.OneIn(2) || !kEverySignalComes;
    KEL_TimerStart(timer, 0, periodic ? 1 : 0, nullptr, nullptr);
    Await([this] { return slot_->destroyed != -1; });
    stress::Expect(slot_->destroyed == 0 && (periodic || slot_->calls == 1),
                   "a timer that ends itself gives %d after %u calls", slot_->destroyed.load(),
                   slot_->calls.load());
    stress::Count("callbacks", slot_->calls);
  }

  void Periodic() {
    KEL_TIMER *timer = Create(1000, Tick);
    const uint32_t changes = random_.Below(6);
    for (uint32_t i = 0; i < changes; ++i) {
      stress::Expect(
          KEL_TimerStart(timer, random_.Between(300, 1200), 1, nullptr, nullptr) == 0,
          "a timer does not start");
      const uint32_t before = slot_->calls, more = random_.Below(4);
      Await([&] { return slot_->calls >= before + more; });
      if (random_.OneIn(2))
        stress::Expect(KEL_TimerStop(timer) == 0, "a timer does not stop");
    }
    Destroy(timer);
  }

  stress::Random &random_;
  std::unique_ptr<Slot> slot_;
};

using Slots = std::vector<std::unique_ptr<Slot>>;

void CheckLate(const Slots &ended) {
  for (const auto &slot : ended)
    if (slot != nullptr)
      stress::Expect(slot->late == 0, "%u callbacks come too late", slot->late.load());
}

// The time has gone on: what was due has come. Also, memory of timers that ended
// themselves is given back when another one is destroyed.
void LetTimePass() {
  Slot witness;
  KEL_TIMER *timer = KEL_TimerCreate(1000, Tick, &witness);
  KEL_TimerStart(timer, 0, 1, nullptr, nullptr);
  Await([&] { return witness.calls >= 3 * kStragglers; });
  stress::Expect(KEL_TimerDestroy(timer) == 0, "a timer is not destroyed");
}

void Lives() {
  // Kept for a while, for the late ones.
  constexpr size_t kKept = 200;
  std::vector<stress::Random> randoms(kThreads);
  std::vector<Slots> ended(kThreads);
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < kThreads; ++i)
    threads.emplace_back([&random = randoms[i], &slots = ended[i]] {
      slots.resize(kKept);
      for (size_t turn = 0; stress::Going(); ++turn) {
        slots[turn % kKept] = Life(random).Run();
        CheckLate(slots);
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  LetTimePass();
  for (const Slots &slots : ended)
    CheckLate(slots);
}

}  // namespace

int main() {
  return stress::Main("timer", "a stopped timer rests, a destroyed one calls no more",
                      {{"lives", Lives}});
}
