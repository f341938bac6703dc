// The pool allocator as a sequence of registrations, allocations and frees,
// against the same table with a queue of freed blocks for each size.

#include <kelcore_smem.h>

#include <algorithm>
#include <array>
#include <deque>

#include "fuzz.h"

namespace {

constexpr uint32_t kBlocksPerChunk = 4096;

struct Slot {
  uint32_t size = 0;
  std::string name;
  std::vector<uint8_t *> held;
  std::deque<uint8_t *> freed;
};

class Run {
 public:
  explicit Run(FuzzedDataProvider &input) : input_(input) { FUZZ_EQUAL(KEL_SMalloc_Init(), 0); }
  ~Run() {
    for (const Slot &slot : slots_)
      if (slot.size != 0)
        FUZZ_EQUAL(KEL_SMalloc_UnRegister(slot.size), 0);
    FUZZ_EQUAL(KEL_SMalloc_Deinit(), 0);
  }
  Run(const Run &) = delete;
  Run &operator=(const Run &) = delete;

  void Step() {
    const auto choice = input_.ConsumeIntegral<uint8_t>();
    if (choice < 20)
      Register();
    else if (choice < 30)
      UnRegister();
    else if (choice < 140)
      Allocate(AnySize());
    else if (choice < 145)
      AllocateMany();
    else if (choice < 245)
      Free();
    else
      Status();
  }

 private:
  uint32_t AnySize() { return input_.ConsumeIntegralInRange<uint32_t>(0, 60); }
  static uint32_t Rounded(uint32_t size) { return (size + 3) / 4 * 4; }

  Slot *Find(uint32_t size) {
    const auto found = std::find_if(slots_.begin(), slots_.end(), [&](const Slot &slot) {
      return slot.size != 0 && slot.size == Rounded(size);
    });
    return found != slots_.end() ? &*found : nullptr;
  }

  void Register() {
    const uint32_t size = AnySize();
    const auto empty = std::find_if(slots_.begin(), slots_.end(),
                                    [](const Slot &slot) { return slot.size == 0; });
    const Slot *known = Find(size);
    // In front of itself a size would be registered a second time.
    if (known != nullptr && empty != slots_.end() && &*empty < known)
      return;
    const std::string name = fuzz::Text(input_, 8);
    const bool room = registered_ < slots_.size() && Rounded(size) != 0;
    FUZZ_EQUAL(KEL_SMalloc_Register(size, name.c_str()), room ? 0 : -1);
    if (!room || known != nullptr)
      return;
    *empty = {Rounded(size), name, {}, {}};
    ++registered_;
  }

  void UnRegister() {
    const uint32_t size = AnySize();
    Slot *slot = Find(size);
    FUZZ_EQUAL(KEL_SMalloc_UnRegister(size), slot != nullptr ? 0 : -1);
    FUZZ_EQUAL(KEL_SMemIsReg(size), 0);
    if (slot == nullptr)
      return;
    *slot = {};
    --registered_;
  }

  void Allocate(uint32_t size) {
    Slot *slot = Find(size);
    FUZZ_EQUAL(KEL_SMemIsReg(size), slot != nullptr ? 1 : 0);
    auto *block = static_cast<uint8_t *>(KEL_SMalloc(size));
    FUZZ_CHECK((block != nullptr) == (slot != nullptr));
    if (slot == nullptr)
      return;
    FUZZ_EQUAL(std::string(KEL_SMemGetName(size)), slot->name);
    // The block that was freed first.
    if (!slot->freed.empty()) {
      FUZZ_CHECK(block == slot->freed.front());
      slot->freed.pop_front();
    }
    FUZZ_CHECK(fuzz::Filled(block, slot->size, 0));
    memset(block, Fill(block), slot->size);
    slot->held.push_back(block);
  }

  // Beyond a chunk.
  void AllocateMany() {
    const uint32_t size = AnySize();
    if (Find(size) == nullptr || many_)
      return;
    many_ = true;
    for (uint32_t i = 0; i < kBlocksPerChunk; ++i)
      Allocate(size);
  }

  static uint8_t Fill(const uint8_t *block) {
    return static_cast<uint8_t>(reinterpret_cast<uintptr_t>(block) / 4 | 1);
  }

  void Free() {
    const uint32_t size = AnySize();
    Slot *slot = Find(size);
    if (slot == nullptr) {
      uint8_t other = 0;
      FUZZ_EQUAL(KEL_SFree(&other, size), 0);
      return;
    }
    if (slot->held.empty())
      return;
    const auto at = input_.ConsumeIntegralInRange<size_t>(0, slot->held.size() - 1);
    std::swap(slot->held[at], slot->held.back());
    uint8_t *block = slot->held.back();
    slot->held.pop_back();
    FUZZ_CHECK(fuzz::Filled(block, slot->size, Fill(block)));
    FUZZ_EQUAL(KEL_SFree(block, size), 0);
    slot->freed.push_back(block);
  }

  void Status() {
    uint32_t expected[3] = {1, 2, 3};
    for (size_t i = 0; i < std::max<size_t>(registered_, 1); ++i) {
      const Slot &slot = slots_[i];
      const auto freed = static_cast<uint32_t>(slot.freed.size());
      const uint32_t reserved =
          static_cast<uint32_t>(slot.held.size()) * slot.size * kBlocksPerChunk;
      expected[0] += reserved;
      expected[1] += reserved - freed * slot.size;
      expected[2] += slot.size * (freed * (freed + 1) / 2);
    }
    uint32_t told[3] = {1, 2, 3};
    FUZZ_EQUAL(KEL_SMemStatus(&told[0], &told[1], &told[2]), 0);
    for (int i = 0; i < 3; ++i)
      FUZZ_EQUAL(told[i], expected[i]);
  }

  FuzzedDataProvider &input_;
  std::array<Slot, 10> slots_;
  size_t registered_ = 0;
  bool many_ = false;  // once in a run
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  Run run(input);
  for (int steps = 0; steps < 200 && input.remaining_bytes() > 0; ++steps)
    run.Step();
  return 0;
}
