// What the stress programs share: a time to run, repeatable random choices, counts,
// expectations, the library's blocks of memory, and a watchdog.
//
//     void Churn() {
//       stress::Random random;
//       while (stress::Going()) { ...; stress::Count("pushed", 1); }
//       stress::Expect(left == 0, "%d are left", left);
//     }
//     int main() {
//       return stress::Main("queue", "popped + dropped = pushed", {{"bounded", Churn}});
//     }
//
// Each program runs about two seconds, its cases sharing them. KELCORE_STRESS_SECONDS
// sets another time, in seconds, for hours if need be; KELCORE_STRESS_SEED repeats the
// choices of a run; KELCORE_STRESS_JOBS makes the thread pool's program go on until so
// many jobs are done. An interrupt ends the time early: everything is checked and
// cleared up as always.
//
// After each case every block that the library allocated in it must have been freed.
// In the end a line sums up all cases, for scripts/stress.sh to make a table of:
//     counted queue | 2.0 s | pushed=91 popped=60 dropped=31 | popped + dropped = pushed
#pragma once

#include <stdint.h>

#include <initializer_list>

namespace stress {

// Every generator draws a sequence of its own from the seed of the program, in the
// order in which they are made: make those of threads before starting them.
class Random {
 public:
  Random();
  uint64_t Next();
  // 0 to limit - 1
  uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(Next() >> 32) % limit; }
  uint32_t Between(uint32_t low, uint32_t high) { return low + Below(high - low + 1); }
  bool OneIn(uint32_t chance) { return Below(chance) == 0; }
  template <typename T, int N>
  T Pick(const T (&choices)[N]) {
    return choices[Below(N)];
  }

 private:
  uint64_t state_;
};

// True until the case's time is over. Asking shows the watchdog that this thread makes
// progress: ask where work was done, not in a loop that waits for some. Who has asked
// once goes on asking, within minutes, until the thread ends or the case does.
bool Going();

// From now on the case ends by itself: Going() is false after an interrupt only.
void TakeYourTime();

// Adds to a count that is printed at the end. `what` is a literal without blanks.
void Count(const char *what, uint64_t amount);

// Notes and prints a failure unless `good`.
void Expect(bool good, const char *format, ...) __attribute__((__format__(__printf__, 2, 3)));

// Mixes the bits of a number: contents that neighbours do not share.
inline uint64_t Mix(uint64_t value) {
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
  return value ^ (value >> 31);
}

// Fills a block with a pattern of its own, and tells whether it still holds it.
void Fill(void *block, uint32_t size, uint64_t key);
bool Holds(const void *block, uint32_t size, uint64_t key);
// Whether all its bytes are 0.
bool IsZero(const void *block, uint32_t size);

// How many blocks of memory the library holds, of those that are followed.
int64_t Blocks();
// Whether the calling thread's blocks are followed, as they are at first. For those few
// operations that keep some on purpose.
void FollowBlocks(bool follow);

struct Case {
  const char *name;
  void (*run)();
};

// Runs the cases one after the other. `invariant` tells what they proved. Returns the
// exit status.
int Main(const char *name, const char *invariant, std::initializer_list<Case> cases);

// Called before the watchdog ends a program that hangs, to clear up what the
// system would keep. Null for nothing.
void SetCleanUp(void (*clean_up)());

}  // namespace stress
