// Region heaps whose blocks are taken and given back by several threads.

#include <kelcore_trace.h>
#include <kelcore_virtmem.h>
#include <malloc.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <functional>
#include <thread>
#include <vector>

#include "stress.h"

namespace {

constexpr uint32_t kHeader = 56;
constexpr uint32_t kUnit = 128;

struct Held {
  uint8_t *block;
  uint32_t size;
  uint64_t key;
};

void CheckContents(const Held &one) {
  stress::Expect(stress::Holds(one.block, one.size, one.key),
                 "a block of %u bytes has been overwritten", one.size);
}

void Release(KEL_VMEM *heap, const Held &one) {
  CheckContents(one);
  stress::Expect(KEL_VFree(heap, one.block) == 0, "a block of %u bytes is not taken back",
                 one.size);
}

// Blocks whose sizes, headers included, are whole units: what is left at the end of
// the region is never handed out whole, and so never lost.
uint32_t TidySize(uint32_t units) {
  return units * kUnit - kHeader;
}
constexpr uint32_t kTidyRegion = 512 * 1024 + kUnit - 8;
constexpr uint32_t kUnits = kTidyRegion / kUnit;

// The heap checks a header and its neighbours' links whenever it comes by, and tells of
// one that is broken. Among tidy users there is none.
void HearOfBroken(const char *line) {
  stress::Expect(strstr(line, "broken") == nullptr && strstr(line, "failed") == nullptr, "%s",
                 line);
}

class BrokenHeaders {
 public:
  BrokenHeaders() {
    KEL_TraceInit(nullptr);
    KEL_TraceSetCB(HearOfBroken, 0);
    KEL_TraceSet("kelvirtmem:1");
  }
  ~BrokenHeaders() {
    KEL_TraceSet("");
    KEL_TraceSetCB(nullptr, 1);
    KEL_TraceDeinit();
  }
  BrokenHeaders(const BrokenHeaders &) = delete;
  BrokenHeaders &operator=(const BrokenHeaders &) = delete;
};

// A heap whose users keep to sizes of whole units. The search begins at the block that
// was handed out last, also when that has been freed and lies inside a free block: so
// every thread keeps its newest block until it has got another one.
class TidyHeap {
 public:
  TidyHeap() : heap_(KEL_VMemCreate(nullptr, kTidyRegion)), all_(KEL_VGetFree(heap_)) {
    // The first block stays: the blocks form a ring in which it would be merged with
    // the end of the region.
    first_ = Take(1, 1);
    anchor_ = Take(1, 2);
    stress::Expect(first_.block != nullptr && anchor_.block != nullptr, "no first block");
    begin_ = first_.block - kHeader;
  }
  ~TidyHeap() {
    Release(heap_, anchor_);
    stress::Expect(KEL_VGetFree(heap_) == all_ - kUnit, "%u of %u bytes are free",
                   KEL_VGetFree(heap_), all_ - kUnit);
    KEL_VMemDestroy(heap_);
  }
  TidyHeap(const TidyHeap &) = delete;
  TidyHeap &operator=(const TidyHeap &) = delete;

  Held Take(uint32_t units, uint64_t key) {
    const Held one = {static_cast<uint8_t *>(KEL_VMalloc(heap_, TidySize(units))),
                      TidySize(units), key};
    if (one.block != nullptr)
      stress::Fill(one.block, one.size, key);
    return one;
  }
  void Give(const Held &one) { Release(heap_, one); }
  // The anchor is the youngest block from now on.
  void Renew() {
    const Held before = anchor_;
    anchor_ = Take(1, before.key + 1);
    stress::Expect(anchor_.block != nullptr, "no block when most are free");
    if (anchor_.block != nullptr)
      Give(before);
    else
      anchor_ = before;
  }

  // While nobody else is at work: every block lies in a place of its own, holds what
  // was written, and all other bytes count as free.
  void Check(std::vector<Held> held) {
    held.push_back(first_);
    held.push_back(anchor_);
    std::sort(held.begin(), held.end(),
              [](const Held &a, const Held &b) { return std::less<>()(a.block, b.block); });
    const uint8_t *end = begin_;
    uint64_t bytes = 0;
    for (const Held &each : held) {
      const uint8_t *const begin = each.block - kHeader;
      stress::Expect(!std::less<>()(begin, end) && (begin - begin_) % kUnit == 0,
                     "a block lies at %td, one before it ends at %td", begin - begin_,
                     end - begin_);
      end = each.block + each.size;
      bytes += each.size + kHeader;
      CheckContents(each);
    }
    stress::Expect(end <= begin_ + kTidyRegion, "a block ends at %td of %u", end - begin_,
                   kTidyRegion);
    stress::Expect(KEL_VGetFree(heap_) == all_ - bytes, "%u of %llu bytes are free",
                   KEL_VGetFree(heap_), static_cast<unsigned long long>(all_ - bytes));
  }

  // While nobody else is at work: the chain of blocks leads to all that is free, every
  // unit of it can be had, and goes together again.
  void FillUp(const std::vector<Held> &held, uint64_t key) {
    std::vector<Held> rest;
    for (Held one; (one = Take(1, key + rest.size())).block != nullptr;)
      rest.push_back(one);
    size_t units = 2 + rest.size();
    for (const Held &each : held)
      units += (each.size + kHeader) / kUnit;
    stress::Expect(units == kUnits, "%zu of %u units can be had", units, kUnits);
    std::vector<Held> both = held;
    both.insert(both.end(), rest.begin(), rest.end());
    Check(both);
    if (rest.empty())
      return;
    // The youngest block stays behind.
    std::swap(anchor_, rest.back());
    std::sort(rest.begin(), rest.end(),
              [](const Held &a, const Held &b) { return a.key % 251 < b.key % 251; });
    for (const Held &each : rest)
      Give(each);
    Check(held);
  }

 private:
  KEL_VMEM *heap_;
  const uint32_t all_;
  Held first_{}, anchor_{};
  uint8_t *begin_ = nullptr;
};

// Some threads for some time. At checkpoints they meet, and one looks at everything.
class Churn {
 public:
  Churn(TidyHeap &heap, stress::Random &random)
      : heap_(heap),
        phases_(random.Between(1, 6)),
        steps_(random.Between(100, 1500)),
        largest_(random.OneIn(3) ? 64 : 8),
        randoms_(random.Between(1, 6)),
        held_(randoms_.size()),
        newest_(randoms_.size()) {}

  void Run() {
    std::barrier checkpoint(static_cast<std::ptrdiff_t>(randoms_.size()), Look{this});
    std::vector<std::thread> threads;
    for (size_t i = 0; i < randoms_.size(); ++i)
      threads.emplace_back([&, i] {
        for (uint32_t phase = 0; phase < phases_; ++phase) {
          Steps(i, phase);
          checkpoint.arrive_and_wait();
        }
      });
    for (std::thread &thread : threads)
      thread.join();
    stress::Random &random = randoms_[0];
    if (random.OneIn(4))
      heap_.FillUp(All(), random.Next());
    GiveAll();
    heap_.Check({});
    stress::Count("allocated", allocated_);
    stress::Count("freed", freed_);
    stress::Count("refused", refused_);
    stress::Count("checkpoints", phases_);
  }

 private:
  struct Look {
    Churn *churn;
    void operator()() noexcept { churn->heap_.Check(churn->All()); }
  };

  void GiveAll() {
    freed_ += All().size();
    for (const auto &each : held_)
      for (const Held &one : each)
        heap_.Give(one);
    heap_.Renew();
    for (const Held &each : newest_)
      if (each.block != nullptr)
        heap_.Give(each);
  }
  std::vector<Held> All() const {
    std::vector<Held> all;
    for (const auto &each : held_)
      all.insert(all.end(), each.begin(), each.end());
    for (const Held &each : newest_)
      if (each.block != nullptr)
        all.push_back(each);
    return all;
  }
  void Steps(size_t self, uint32_t phase) {
    stress::Random &random = randoms_[self];
    std::vector<Held> &held = held_[self];
    Held &newest = newest_[self];
    const size_t most = random.Between(1, 100);
    for (uint32_t step = 0; step < steps_ && stress::Going(); ++step) {
      if (held.size() < most && random.Below(5) < 3) {
        const Held one = heap_.Take(random.Between(1, largest_),
                                    uint64_t{self} << 48 | uint64_t{phase} << 32 | step);
        if (one.block == nullptr) {
          ++refused_;
          continue;
        }
        ++allocated_;
        if (newest.block != nullptr)
          held.push_back(newest);
        newest = one;
      } else if (!held.empty()) {
        std::swap(held[random.Below(static_cast<uint32_t>(held.size()))], held.back());
        heap_.Give(held.back());
        held.pop_back();
        ++freed_;
      }
    }
  }

  TidyHeap &heap_;
  const uint32_t phases_, steps_, largest_;
  std::vector<stress::Random> randoms_;
  std::vector<std::vector<Held>> held_;  // by thread
  std::vector<Held> newest_;             // by thread
  std::atomic<uint64_t> allocated_{0}, freed_{0}, refused_{0};
};

// Every byte comes back.
void Tidy() {
  stress::Random random;
  const BrokenHeaders listener;
  TidyHeap heap;
  do {
    Churn(heap, random).Run();
    stress::Count("rounds", 1);
  } while (stress::Going());
}

// Careless users: any size, any order, headers overwritten. Blocks get lost and heaps
// break; but what is handed out lies in the region, and nothing crashes.
void Careless() {
  stress::Random random;
  constexpr uint32_t kRegion = 300 * 1024;
  uint64_t handed_out = 0, refused = 0;
  do {
    KEL_VMEM *heap = KEL_VMemCreate(nullptr, kRegion);
    const uint32_t all = KEL_VGetFree(heap);
    auto *const first = static_cast<uint8_t *>(KEL_VMalloc(heap, 8));
    stress::Expect(first != nullptr, "no first block");
    uint8_t *const begin = first - kHeader, *const end = begin + kRegion;
    std::vector<uint8_t *> held;
    for (uint32_t step = random.Between(10, 2000); step > 0; --step) {
      if (held.size() < 100 && random.OneIn(2)) {
        const uint32_t size =
            random.OneIn(20) ? static_cast<uint32_t>(random.Next()) : random.Below(8000);
        auto *block = static_cast<uint8_t *>(KEL_VMalloc(heap, size));
        if (block == nullptr) {
          ++refused;
          continue;
        }
        ++handed_out;
        const bool inside =
            block >= begin + kHeader && block < end && size <= static_cast<size_t>(end - block);
        stress::Expect(inside, "%u bytes at %td of %u", size, block - begin, kRegion);
        if (inside)
          stress::Fill(block, size, step);
        held.push_back(block);
        if (random.OneIn(50))  // one write too early
          stress::Fill(block - kHeader, random.Between(1, kHeader), step);
      } else if (!held.empty()) {
        std::swap(held[random.Below(static_cast<uint32_t>(held.size()))], held.back());
        (void)KEL_VFree(heap, held.back());
        if (random.OneIn(3))
          held.pop_back();  // else it is freed again, some time
      }
    }
    KEL_VMemReset(heap);
    stress::Expect(KEL_VGetFree(heap) == all, "a reset leaves %u of %u", KEL_VGetFree(heap),
                   all);
    KEL_VMemDestroy(heap);
    stress::Count("rounds", 1);
  } while (stress::Going());
  stress::Count("handed-out", handed_out);
  stress::Count("refused-to-careless", refused);
}

}  // namespace

int main() {
  // Regions are mapped, above where the heaps' records are: also after the first one
  // has been freed; and the records of all threads are in one arena.
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);
  mallopt(M_ARENA_MAX, 1);
  return stress::Main("virtmem", "contents stay, headers agree, free + held = all",
                      {{"tidy", Tidy}, {"careless", Careless}});
}
