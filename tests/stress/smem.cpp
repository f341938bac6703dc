// The pool allocator under threads that allocate, hand blocks to each other and free
// them, while another size comes and goes. In the end the pool must still have every
// block that it made, and each once.

#include <kelcore_queue.h>
#include <kelcore_smem.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "stress.h"

namespace {

struct Held {
  void *block;
  uint32_t size;
  uint64_t key;
};

// What travels with a block from thread to thread: inside it, in front. Blocks are
// aligned to 4 bytes only.
struct Label {
  uint32_t size;
  uint64_t key;
};

constexpr size_t kPerChunk = 4096;
// The chunk, its link, the memory, the records and the nodes.
constexpr int64_t kBlocksOfAChunk = 5;

// While all sizes are there, each counts.
void CheckNothingInUse() {
  uint32_t reserved = 0;
  stress::Expect(KEL_SMemStatus(&reserved, nullptr, nullptr) == 0, "no status");
  stress::Expect(reserved == 0, "%u bytes reserved after a round", reserved);
}

// The pool gives out all blocks that its chunks hold, each once, before it makes
// another chunk.
void CheckBlocks(uint32_t size) {
  std::vector<void *> blocks;
  const int64_t held_before = stress::Blocks();
  int64_t held = held_before;
  // A lost block shows where the new chunk comes too early.
  while (held == held_before) {
    void *block = KEL_SMalloc(size);
    stress::Expect(block != nullptr, "no block of %u bytes", size);
    if (block == nullptr)
      break;
    blocks.push_back(block);
    held = stress::Blocks();
    // A circle in the list of free blocks has no end.
    constexpr size_t kTooMany = 1'000'000;
    if (blocks.size() == kTooMany)
      break;
  }
  const size_t count = blocks.size();
  stress::Expect(held == held_before + kBlocksOfAChunk, "%lld blocks are made for a chunk",
                 static_cast<long long>(held - held_before));
  stress::Expect(count > kPerChunk && count % kPerChunk == 1,
                 "size %u has %zu blocks, which is not a number of chunks", size, count - 1);
  std::sort(blocks.begin(), blocks.end());
  const auto *const end = static_cast<const uint8_t *>(blocks.back()) + size;
  for (size_t i = 0; i < count; ++i) {
    const auto *const block = static_cast<const uint8_t *>(blocks[i]);
    const auto *const next = i + 1 < count ? static_cast<const uint8_t *>(blocks[i + 1]) : end;
    stress::Expect(next - block >= static_cast<ptrdiff_t>(size),
                   "two blocks of %u bytes share memory", size);
  }
  for (void *block : blocks)
    stress::Expect(KEL_SFree(block, size) == 0, "a block is not taken back");
  stress::Count("asked-back", count);
}

class Round {
 public:
  Round(stress::Random &random, bool with_nodes) : travellers_(KEL_QueueCreate("smem", 100)) {
    const uint32_t classes = random.Between(1, with_nodes ? 6 : 8);
    while (sizes_.size() < classes) {
      // Odd sizes are rounded up: none of these shares its class with another one,
      // or with list nodes and queue entries.
      const auto size = 40 + 12 * random.Below(60) + random.Below(4);
      if (std::find_if(sizes_.begin(), sizes_.end(), [&](uint32_t other) {
            return (other + 3) / 4 == (size + 3) / 4;
          }) == sizes_.end())
        sizes_.push_back(size);
    }
    for (const uint32_t size : sizes_)
      stress::Expect(KEL_SMalloc_Register(size, "stress") == 0, "size %u is refused", size);
  }
  ~Round() {
    for (size_t i = sizes_.size(); i-- > 0;)
      stress::Expect(KEL_SMalloc_UnRegister(sizes_[i]) == 0, "size %u stays", sizes_[i]);
  }
  Round(const Round &) = delete;
  Round &operator=(const Round &) = delete;

  void Run(stress::Random &random) {
    const uint32_t threads = random.Between(2, 6);
    steps_ = random.Between(1000, 20000) / threads;
    std::vector<stress::Random> randoms(threads);
    std::vector<std::thread> all;
    for (uint32_t i = 0; i < threads; ++i)
      all.emplace_back([&, i] { Churn(i, randoms[i]); });
    std::thread visitor([&] { ComeAndGo(); });
    for (std::thread &thread : all)
      thread.join();
    finished_ = true;
    visitor.join();
    while (void *block = KEL_QueuePop(travellers_, nullptr, 0))
      Release(Unlabelled(block));
    // It may have taken its entries from the pool.
    KEL_QueueDestroy(travellers_);
    Check(random);
  }

 private:
  void Churn(uint32_t self, stress::Random &random) {
    std::vector<Held> held;
    // Enough to make a second chunk now and then.
    const size_t most = random.OneIn(4) ? 3000 : random.Between(1, 200);
    for (uint32_t step = 0; step < steps_ && stress::Going(); ++step) {
      const uint32_t act = random.Below(10);
      if (held.size() < most && (act < 6 || held.empty()))
        Allocate(random, uint64_t{self} << 32 | step, held);
      else if (act < 8)
        Release(TakeOut(random, held));
      else if (act < 9)
        SendAway(TakeOut(random, held));
      else if (void *block = KEL_QueuePop(travellers_, nullptr, 0))
        Release(Unlabelled(block));
    }
    for (const Held &each : held)
      Release(each);
  }
  void Allocate(stress::Random &random, uint64_t key, std::vector<Held> &held) {
    const uint32_t size = sizes_[random.Below(static_cast<uint32_t>(sizes_.size()))];
    void *block = KEL_SMalloc(size);
    stress::Expect(block != nullptr, "no block of %u bytes", size);
    if (block == nullptr)
      return;
    stress::Expect(stress::IsZero(block, size), "a block of %u bytes is not zeroed", size);
    stress::Fill(block, size, key);
    held.push_back({block, size, key});
    ++allocated_;
  }
  static Held TakeOut(stress::Random &random, std::vector<Held> &held) {
    std::swap(held[random.Below(static_cast<uint32_t>(held.size()))], held.back());
    const Held one = held.back();
    held.pop_back();
    return one;
  }
  void Release(const Held &one) {
    stress::Expect(stress::Holds(one.block, one.size, one.key),
                   "a block of %u bytes has been overwritten", one.size);
    stress::Expect(KEL_SFree(one.block, one.size) == 0, "a block is not taken back");
    ++freed_;
  }
  void SendAway(const Held &one) {
    stress::Expect(stress::Holds(one.block, one.size, one.key),
                   "a block of %u bytes has been overwritten", one.size);
    const Label label = {one.size, one.key};
    memcpy(one.block, &label, sizeof label);
    // A full queue refuses.
    if (KEL_QueuePush(travellers_, one.block, 0) != 0)
      Release(Unlabelled(one.block));
    else
      ++travelled_;
  }
  // Holds its pattern again.
  static Held Unlabelled(void *block) {
    Label label;
    memcpy(&label, block, sizeof label);
    stress::Fill(block, sizeof label, label.key);
    return {block, label.size, label.key};
  }

  // A size that only this thread uses, while the others are at work.
  void ComeAndGo() {
    constexpr uint32_t kSize = 1000;
    while (!finished_) {
      stress::Expect(KEL_SMalloc_Register(kSize, nullptr) == 0, "the visitor is refused");
      stress::Expect(KEL_SMemIsReg(kSize) == 1 && KEL_SMemIsReg(kSize + 4) == 0,
                     "the visitor is not known");
      void *block = KEL_SMalloc(kSize);
      stress::Expect(block != nullptr && stress::IsZero(block, kSize),
                     "the visitor gets no block");
      uint32_t used = 0;
      KEL_SMemStatus(nullptr, &used, nullptr);
      KEL_SFree(block, kSize);
      stress::Expect(KEL_SMalloc_Lock() == 0 && KEL_SMalloc_UnLock() == 0, "no lock");
      stress::Expect(KEL_SMalloc_UnRegister(kSize) == 0, "the visitor stays");
      stress::Expect(KEL_SMalloc(kSize) == nullptr, "a size that has gone is served");
      ++visits_;
      std::this_thread::yield();
    }
  }

  void Check(stress::Random &random) {
    stress::Expect(allocated_ == freed_, "%llu allocated, %llu freed",
                   static_cast<unsigned long long>(allocated_),
                   static_cast<unsigned long long>(freed_));
    stress::Count("allocated", allocated_);
    stress::Count("freed", freed_);
    stress::Count("travelled", travelled_);
    stress::Count("visits", visits_);
    CheckNothingInUse();
    // One size each time: they are alike, and asking takes longer than the rest.
    CheckBlocks(sizes_[random.Below(static_cast<uint32_t>(sizes_.size()))]);
    CheckNothingInUse();
  }

  std::vector<uint32_t> sizes_;
  uint32_t steps_ = 0;
  KEL_QUEUE *travellers_;
  std::atomic<bool> finished_{false};
  std::atomic<uint64_t> allocated_{0}, freed_{0}, travelled_{0}, visits_{0};
};

// With nodes, lists and queues take theirs from the pool as well.
void Rounds(bool with_nodes) {
  stress::Random random;
  stress::Expect(KEL_SMalloc_Init() == 0, "no pool");
  if (with_nodes)
    for (const uint32_t size : {24u, 32u})
      stress::Expect(KEL_SMalloc_Register(size, "nodes") == 0, "size %u is refused", size);
  do {
    Round(random, with_nodes).Run(random);
    uint32_t reserved = 0;
    stress::Expect(KEL_SMemStatus(&reserved, nullptr, nullptr) == 0, "no status");
    stress::Expect(reserved == 0, "%u bytes reserved in the end", reserved);
    stress::Count("rounds", 1);
  } while (stress::Going());
  if (with_nodes)
    for (const uint32_t size : {32u, 24u}) {
      CheckBlocks(size);
      stress::Expect(KEL_SMalloc_UnRegister(size) == 0, "size %u stays", size);
    }
  stress::Expect(KEL_SMalloc_Deinit() == 0, "the lock is taken");
}

}  // namespace

int main() {
  return stress::Main("smem", "allocated = freed, no block lost or in two hands",
                      {{"churn", [] { Rounds(false); }}, {"with-nodes", [] { Rounds(true); }}});
}
