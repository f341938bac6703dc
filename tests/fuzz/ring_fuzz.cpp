// The ring buffer, written in place and read in place, against a deque.

#include <kelcore_ring.h>

#include <algorithm>
#include <deque>

#include "fuzz.h"

namespace {

struct Run {
  FuzzedDataProvider &input;
  KEL_RING *ring;
  uint32_t capacity;
  const uint8_t *area;
  std::deque<uint8_t> model;
  uint32_t offset = 0;  // of the first unread byte

  uint32_t Held() const { return static_cast<uint32_t>(model.size()); }
};

void Write(Run &run) {
  uint32_t room = 0;
  uint8_t *to = KELRing_GetWBuf(run.ring, &room);
  FUZZ_EQUAL(room, run.capacity);
  const auto bytes = fuzz::Bytes(run.input, run.capacity - run.Held());
  std::copy(bytes.begin(), bytes.end(), to);
  run.model.insert(run.model.end(), bytes.begin(), bytes.end());
  FUZZ_EQUAL(KELRing_FillWBuf(run.ring, static_cast<int32_t>(bytes.size())), run.Held());
}

void Read(Run &run) {
  const auto count = run.input.ConsumeIntegralInRange<uint32_t>(0, run.Held());
  run.model.erase(run.model.begin(), run.model.begin() + count);
  run.offset += count;
  if (run.offset >= run.capacity)
    run.offset = 0;
  FUZZ_EQUAL(KELRing_DelRBuf(run.ring, count), run.Held());
}

void Reset(Run &run) {
  KELRing_Reset(run.ring);
  run.model.clear();
}

void CheckHeld(Run &run) {
  uint32_t held = UINT32_MAX;
  const uint8_t *from = KELRing_GetRBuf(run.ring, &held);
  FUZZ_EQUAL(held, run.Held());
  FUZZ_EQUAL(from - run.area, run.offset);
  FUZZ_CHECK(std::equal(from, from + held, run.model.begin()));
}

// Wrong counts spoil the data, not other memory.
void Spoil(Run &run) {
  KELRing_FillWBuf(run.ring, run.input.ConsumeIntegral<int32_t>());
  for (int i = 0; i < 4; ++i)
    KELRing_DelRBuf(run.ring, run.input.ConsumeIntegral<uint32_t>());
}

constexpr void (*kOperations[])(Run &) = {Write, Write, Write, Read, Read, Read, Reset};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  const bool spoil = input.ConsumeBool();
  const auto capacity = input.ConsumeIntegralInRange<uint32_t>(0, 70);
  KEL_RING *ring = KELRing_Create(capacity);
  FUZZ_CHECK(ring != nullptr);
  uint32_t held = 0;
  Run run{input, ring, capacity, KELRing_GetRBuf(ring, &held), {}};
  while (input.remaining_bytes() > (spoil ? 20 : 0)) {
    input.PickValueInArray(kOperations)(run);
    CheckHeld(run);
  }
  if (spoil)
    Spoil(run);
  FUZZ_EQUAL(KELRing_Destroy(run.ring), 0);
  return 0;
}
