// Region heaps whose blocks are taken and given back by several threads.

#include <kelcore_virtmem.h>
#include <malloc.h>

#include <atomic>
#include <thread>
#include <vector>

#include "stress.h"

namespace {

constexpr uint32_t kHeader = 56;
constexpr uint32_t kUnit = 128;

struct Held {
  void *block;
  uint32_t size;
  uint64_t key;
};

void Release(KEL_VMEM *heap, const Held &one) {
  stress::Expect(stress::Holds(one.block, one.size, one.key),
                 "a block of %u bytes has been overwritten", one.size);
  stress::Expect(KEL_VFree(heap, one.block) == 0, "a block of %u bytes is not taken back",
                 one.size);
}

// Blocks whose sizes, headers included, are whole units: what is left at the end of
// the region is never handed out whole, and so never lost.
uint32_t TidySize(uint32_t units) {
  return units * kUnit - kHeader;
}
constexpr uint32_t kTidyRegion = 512 * 1024 + kUnit - 8;

// The search begins at the block that was handed out last, also when that has been
// freed and lies inside a free block: so every thread keeps its newest block until it
// has got another one.
class Churn {
 public:
  explicit Churn(KEL_VMEM *heap) : heap_(heap) {}

  void Run(stress::Random &random) {
    std::vector<stress::Random> randoms(random.Between(1, 6));
    steps_ = random.Between(500, 5000);
    largest_ = random.OneIn(3) ? 64 : 8;
    newest_.resize(randoms.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < randoms.size(); ++i)
      threads.emplace_back([&, i] { newest_[i] = Steps(i, randoms[i]); });
    for (std::thread &thread : threads)
      thread.join();
    stress::Count("allocated", allocated_);
    stress::Count("freed", freed_);
    stress::Count("refused", refused_);
  }
  // What the threads kept, when a younger block is there.
  void ReleaseNewest() {
    for (const Held &each : newest_)
      if (each.block != nullptr)
        Release(heap_, each);
  }

 private:
  Held Steps(size_t self, stress::Random &random) {
    std::vector<Held> held;
    Held newest{};
    const size_t most = random.Between(1, 100);
    for (uint32_t step = 0; step < steps_ && stress::Going(); ++step) {
      if (held.size() < most && random.Below(5) < 3) {
        const uint32_t size = TidySize(random.Between(1, largest_));
        void *block = KEL_VMalloc(heap_, size);
        if (block == nullptr) {
          ++refused_;
          continue;
        }
        ++allocated_;
        if (newest.block != nullptr)
          held.push_back(newest);
        newest = {block, size, uint64_t{self} << 32 | step};
        stress::Fill(block, size, newest.key);
      } else if (!held.empty()) {
        std::swap(held[random.Below(static_cast<uint32_t>(held.size()))], held.back());
        Release(heap_, held.back());
        held.pop_back();
        ++freed_;
      }
    }
    for (const Held &each : held)
      Release(heap_, each);
    freed_ += held.size();
    return newest;
  }

  KEL_VMEM *heap_;
  uint32_t steps_ = 0, largest_ = 0;
  std::vector<Held> newest_;
  std::atomic<uint64_t> allocated_{0}, freed_{0}, refused_{0};
};

// Every byte comes back.
void Tidy() {
  stress::Random random;
  KEL_VMEM *heap = KEL_VMemCreate(nullptr, kTidyRegion);
  // The first block stays: the blocks form a ring in which it would be merged with
  // the end of the region.
  void *first = KEL_VMalloc(heap, TidySize(1));
  stress::Expect(first != nullptr, "no first block");
  Held anchor{};
  const uint32_t all = KEL_VGetFree(heap);
  do {
    Churn churn(heap);
    churn.Run(random);
    const Held before = anchor;
    anchor = {KEL_VMalloc(heap, TidySize(1)), TidySize(1), random.Next()};
    stress::Expect(anchor.block != nullptr, "no block when nearly all are free");
    if (anchor.block == nullptr)
      break;
    stress::Fill(anchor.block, anchor.size, anchor.key);
    churn.ReleaseNewest();
    if (before.block != nullptr)
      Release(heap, before);
    stress::Expect(KEL_VGetFree(heap) == all - kUnit, "%u of %u bytes are free in the end",
                   KEL_VGetFree(heap), all - kUnit);
    stress::Count("rounds", 1);
  } while (stress::Going());
  if (anchor.block != nullptr)
    Release(heap, anchor);
  stress::Expect(KEL_VGetFree(heap) == all, "%u of %u bytes are free", KEL_VGetFree(heap), all);
  KEL_VMemDestroy(heap);
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
  stress::Count("refused", refused);
}

}  // namespace

int main() {
  // Regions are mapped, above where the heaps' records are: also after the first one
  // has been freed.
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);
  return stress::Main("virtmem", {{"tidy", Tidy}, {"careless", Careless}});
}
