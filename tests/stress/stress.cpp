#include "stress.h"

#include <kelcore_mem.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace stress {
namespace {

using Clock = std::chrono::steady_clock;

// Nothing here takes longer than milliseconds: what does not move for so long,
// even on a busy machine with sanitizers, hangs.
constexpr auto kPatience = std::chrono::minutes(5);
constexpr int kFailuresShown = 20;

uint64_t seed;
std::atomic<uint64_t> generators{0};
std::atomic<Clock::rep> deadline{0};
std::atomic<int> interrupted{0};  // the signal's number
std::atomic<int> failures{0};
std::atomic<const char *> current_case{""};
std::atomic<void (*)()> clean_up{nullptr};

// In the order in which they were first mentioned.
using Counts = std::vector<std::pair<std::string, uint64_t>>;
std::mutex counts_mutex;
Counts counts, counts_of_all;

std::atomic<int64_t> blocks_held{0};  // by the library
thread_local bool follow_blocks = true;

// How often one thread has asked for the time: each that has, and has not ended, is to
// go on asking.
class Asking {
 public:
  Asking();
  ~Asking();
  Asking(const Asking &) = delete;
  Asking &operator=(const Asking &) = delete;
  void Again() { count_.fetch_add(1, std::memory_order_relaxed); }
  // Not watched from now on, until it asks again.
  void Rest();
  // Whether all threads that ask have done so since the last call, and some has.
  static bool AllMove();

 private:
  std::atomic<uint64_t> count_{0};
  uint64_t seen_ = 0;

  static std::mutex mutex_;
  static std::vector<Asking *> all_;
  static uint64_t ended_;  // what those asked that rest, or are no more
};

std::mutex Asking::mutex_;
std::vector<Asking *> Asking::all_;
uint64_t Asking::ended_ = 0;

Asking::Asking() {
  const std::lock_guard<std::mutex> guard(mutex_);
  all_.push_back(this);
}
Asking::~Asking() {
  Rest();
  const std::lock_guard<std::mutex> guard(mutex_);
  all_.erase(std::find(all_.begin(), all_.end(), this));
}
void Asking::Rest() {
  const std::lock_guard<std::mutex> guard(mutex_);
  ended_ += count_.exchange(0);
  seen_ = 0;
}
bool Asking::AllMove() {
  static uint64_t sum_seen = 0;
  const std::lock_guard<std::mutex> guard(mutex_);
  uint64_t sum = ended_;
  bool all_move = true;
  for (Asking *each : all_) {
    const uint64_t count = each->count_;
    all_move = all_move && (count == 0 || count != each->seen_);
    each->seen_ = count;
    sum += count;
  }
  const bool some_move = sum != sum_seen;
  sum_seen = sum;
  return all_move && some_move;
}

thread_local Asking asking;

void AddTo(Counts &all, const std::string &what, uint64_t amount) {
  for (auto &[name, sum] : all)
    if (name == what) {
      sum += amount;
      return;
    }
  all.emplace_back(what, amount);
}

void Print(const Counts &all) {
  for (const auto &[what, amount] : all)
    printf(" %s=%llu", what.c_str(), static_cast<unsigned long long>(amount));
}

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

double SecondsToRun() {
  constexpr double kDefault = 2;
  const char *text = getenv("KELCORE_STRESS_SECONDS");
  const double seconds = text != nullptr ? atof(text) : kDefault;
  return seconds > 0 ? seconds : kDefault;
}

uint64_t Seed() {
  if (const char *text = getenv("KELCORE_STRESS_SEED"))
    return strtoull(text, nullptr, 0);
  return std::random_device{}();
}

extern "C" void Interrupt(int number) {
  interrupted = number;
}

void CatchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = Interrupt;
  // A second one ends the program at once, should it hang.
  action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
  for (const int number : {SIGINT, SIGTERM, SIGHUP})
    sigaction(number, &action, nullptr);
}

class Watchdog {
 public:
  Watchdog() {
    // Signals are for the threads that work.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { Watch(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  ~Watchdog() {
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      over_ = true;
    }
    changed_.notify_one();
    thread_.join();
  }
  Watchdog(const Watchdog &) = delete;
  Watchdog &operator=(const Watchdog &) = delete;

 private:
  void Watch() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!changed_.wait_until(lock, Clock::now() + kPatience, [this] { return over_; }))
      if (!Asking::AllMove())
        GiveUp();
  }
  [[noreturn]] static void GiveUp() {
    fprintf(stderr,
            "HANGS: case %s or a thread of it has stood still for minutes (seed %llu)\n",
            current_case.load(), static_cast<unsigned long long>(seed));
    if (void (*hook)() = clean_up)
      hook();
    abort();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  bool over_ = false;
  std::thread thread_;
};

void RunCase(const char *name, const Case &each, double seconds) {
  current_case = each.name;
  asking.Rest();  // the case may leave the asking to other threads
  const auto begin = Clock::now();
  const auto time =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  deadline = (begin + time).time_since_epoch().count();
  const int failures_before = failures;
  const int64_t blocks_before = blocks_held;
  each.run();
  Expect(blocks_held == blocks_before, "the library keeps %lld blocks of memory",
         static_cast<long long>(blocks_held - blocks_before));
  printf("%s %s/%s in %.1f s:", failures == failures_before ? "ok    " : "FAILED", name,
         each.name, SecondsSince(begin));
  const std::lock_guard<std::mutex> guard(counts_mutex);
  Print(counts);
  printf("\n");
  fflush(stdout);
  for (const auto &[what, amount] : counts)
    AddTo(counts_of_all, what, amount);
  counts.clear();
}

uint64_t KeyAt(uint64_t key, uint32_t offset) {
  return Mix(key + offset);
}

}  // namespace

Random::Random() : state_(Mix(seed + Mix(++generators))) {}

uint64_t Random::Next() {
  constexpr uint64_t kStep = 0x9E3779B97F4A7C15u;
  return Mix(state_ += kStep);
}

bool Going() {
  asking.Again();
  return interrupted.load(std::memory_order_relaxed) == 0 &&
         Clock::now().time_since_epoch().count() < deadline;
}

void TakeYourTime() {
  deadline = Clock::time_point::max().time_since_epoch().count();
}

void Count(const char *what, uint64_t amount) {
  const std::lock_guard<std::mutex> guard(counts_mutex);
  AddTo(counts, what, amount);
}

int64_t Blocks() {
  return blocks_held;
}

void FollowBlocks(bool follow) {
  follow_blocks = follow;
}

void Expect(bool good, const char *format, ...) {
  if (good)
    return;
  if (failures.fetch_add(1) >= kFailuresShown)
    return;
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  fprintf(stderr, "failure in %s (seed %llu): %s\n", current_case.load(),
          static_cast<unsigned long long>(seed), text);
}

void Fill(void *block, uint32_t size, uint64_t key) {
  auto *bytes = static_cast<uint8_t *>(block);
  for (uint32_t at = 0; at < size; at += sizeof(uint64_t)) {
    const uint64_t word = KeyAt(key, at);
    memcpy(bytes + at, &word, size - at < sizeof word ? size - at : sizeof word);
  }
}

bool Holds(const void *block, uint32_t size, uint64_t key) {
  const auto *bytes = static_cast<const uint8_t *>(block);
  for (uint32_t at = 0; at < size; at += sizeof(uint64_t)) {
    const uint64_t word = KeyAt(key, at);
    if (memcmp(bytes + at, &word, size - at < sizeof word ? size - at : sizeof word) != 0)
      return false;
  }
  return true;
}

bool IsZero(const void *block, uint32_t size) {
  const auto *bytes = static_cast<const uint8_t *>(block);
  for (uint32_t at = 0; at < size; ++at)
    if (bytes[at] != 0)
      return false;
  return true;
}

int Main(const char *name, const char *invariant, std::initializer_list<Case> cases) {
  seed = Seed();
  printf("stress_%s: KELCORE_STRESS_SEED=%llu repeats these choices\n", name,
         static_cast<unsigned long long>(seed));
  fflush(stdout);
  CatchInterrupts();
  const auto begin = Clock::now();
  {
    const Watchdog watchdog;
    const double seconds = SecondsToRun() / static_cast<double>(cases.size());
    for (const Case &each : cases) {
      if (interrupted != 0)
        break;
      RunCase(name, each, seconds);
    }
  }
  printf("counted %s | %.1f s |", name, SecondsSince(begin));
  Print(counts_of_all);
  printf(" | %s%s\n", failures > 0 ? "BROKEN: " : "", invariant);
  if (failures > 0)
    printf("stress_%s: %d FAILURES\n", name, failures.load());
  else
    printf("stress_%s: %s\n", name, interrupted != 0 ? "interrupted, ok so far" : "ok");
  constexpr int kSignalled = 128;
  return failures > 0 ? 1 : interrupted != 0 ? kSignalled + interrupted : 0;
}

void SetCleanUp(void (*hook)()) {
  clean_up = hook;
}

}  // namespace stress

// The library tells what it allocates.
void KEL_MemTblAdd(void *block, uint32_t, uint32_t, const char *, int32_t, const char *) {
  if (block != nullptr && stress::follow_blocks)
    stress::blocks_held.fetch_add(1, std::memory_order_relaxed);
}
void KEL_MemTblUpdate(void *old_block, void *new_block, uint32_t size) {
  if (old_block == nullptr)
    KEL_MemTblAdd(new_block, size, 0, nullptr, 0, nullptr);
  else if (size == 0)
    KEL_MemTblRemove(old_block, 0);
}
void KEL_MemTblRemove(void *block, uint32_t) {
  if (block != nullptr && stress::follow_blocks)
    stress::blocks_held.fetch_sub(1, std::memory_order_relaxed);
}
