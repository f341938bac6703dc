// The circular buffer as a sequence of pushes and pops, against a deque.

#include <kelcore_circular.h>

#include <algorithm>
#include <deque>

#include "fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  const auto capacity = input.ConsumeIntegralInRange<uint32_t>(0, 70);
  KEL_CIRCULAR *buffer = KELCircular_Create(capacity);
  FUZZ_CHECK(buffer != nullptr);
  std::deque<uint8_t> model;
  while (input.remaining_bytes() > 0) {
    if (input.ConsumeBool()) {
      const auto from = fuzz::Bytes(input, 80);
      const bool fits = model.size() + from.size() <= capacity;
      FUZZ_EQUAL(KELCircular_Push(buffer, from.data(), static_cast<uint32_t>(from.size())),
                 fits ? 0 : -1);
      if (fits)
        model.insert(model.end(), from.begin(), from.end());
    } else {
      const auto count = input.ConsumeIntegralInRange<uint32_t>(0, 80);
      std::vector<uint8_t> to(count, 0xEE);
      to.shrink_to_fit();
      const bool enough = count <= model.size();
      FUZZ_EQUAL(KELCircular_Pop(buffer, to.data(), count), enough ? 0 : -1);
      if (!enough) {
        FUZZ_CHECK(
            std::all_of(to.begin(), to.end(), [](uint8_t byte) { return byte == 0xEE; }));
        continue;
      }
      FUZZ_CHECK(std::equal(to.begin(), to.end(), model.begin()));
      model.erase(model.begin(), model.begin() + count);
    }
  }
  // Impossible counts are refused whatever is in it.
  const uint32_t most = UINT32_MAX - input.ConsumeIntegralInRange<uint32_t>(0, 100);
  FUZZ_EQUAL(KELCircular_Push(buffer, nullptr, most), -1);
  FUZZ_EQUAL(KELCircular_Pop(buffer, nullptr, most), -1);
  FUZZ_EQUAL(KELCircular_Destroy(buffer), 0);
  return 0;
}
