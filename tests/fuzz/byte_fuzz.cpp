// The byte reader: every width in both orders, characters, strings and skips,
// against a model that assembles its values byte by byte.

#include <kelcore_byte.h>

#include <algorithm>

#include "fuzz.h"

namespace {

// Integers may be read across the end, into this much slack.
constexpr size_t kSlack = 7;
constexpr uint32_t kUntouched = 0xABABABABu;

struct Run {
  FuzzedDataProvider &input;
  std::vector<uint8_t> data;  // with the slack
  uint32_t size;
  KEL_BYTE *reader;
  uint32_t pos = 0;
  uint32_t end = kUntouched;

  bool AtEnd() const { return pos >= size; }
  // A null now and then: callers need not ask for the end.
  uint32_t *End() {
    end = kUntouched;
    return input.ConsumeBool() ? &end : nullptr;
  }
  void CheckEnd(const uint32_t *asked, uint32_t expected) const {
    FUZZ_EQUAL(end, asked != nullptr ? expected : kUntouched);
  }
};

uint64_t Assembled(const Run &run, uint32_t width, bool big) {
  uint64_t value = 0;
  for (uint32_t i = 0; i < width; ++i)
    value = value << 8 | run.data[run.pos + (big ? i : width - 1 - i)];
  return value;
}

template <auto kRead, typename Value, uint32_t kWidth, bool kBig, bool kGet>
void Integer(Run &run) {
  uint32_t *end = run.End();
  const auto value = kRead(run.reader, end);
  run.CheckEnd(end, run.AtEnd() ? 1 : 0);
  if (run.AtEnd()) {
    FUZZ_EQUAL(value, 0);
    return;
  }
  FUZZ_EQUAL(value, static_cast<Value>(Assembled(run, kWidth, kBig)));
  if (kGet)
    run.pos += kWidth;
}

template <typename Read>
void Copy(Run &run, uint32_t count, bool stays, Read read) {
  std::vector<uint8_t> to(count, 0xEE);
  to.shrink_to_fit();
  uint32_t *end = run.End();
  const void *result = read(to.data(), end);
  if (count == 0) {
    FUZZ_CHECK(result == to.data());
    run.CheckEnd(end, kUntouched);
    return;
  }
  const uint32_t left = run.AtEnd() ? 0 : run.size - run.pos;
  const uint32_t copied = std::min(count, left);
  FUZZ_CHECK(result == (count <= left ? to.data() : nullptr));
  run.CheckEnd(end, count <= left ? 0 : 1);
  for (uint32_t i = 0; i < count; ++i)
    FUZZ_EQUAL(to[i], i < copied ? run.data[run.pos + i] : 0xEE);
  if (!stays || count > left)
    run.pos += copied;
}

template <auto kRead, uint32_t kCount, bool kStays>
void Characters(Run &run) {
  Copy(run, kCount, kStays,
       [&](void *to, uint32_t *end) { return kRead(run.reader, to, end); });
}

template <auto kRead, bool kStays>
void String(Run &run) {
  const auto count = run.input.ConsumeIntegralInRange<uint32_t>(0, 40);
  Copy(run, count, kStays,
       [&](void *to, uint32_t *end) { return kRead(run.reader, to, count, end); });
}

void Skip(Run &run) {
  const auto count = run.input.ConsumeBool() ? run.input.ConsumeIntegral<uint32_t>()
                                             : run.input.ConsumeIntegral<uint8_t>();
  uint32_t end = kUntouched;
  const uint32_t at = KELByte_Skip(run.reader, count, &end);
  if (uint64_t{run.pos} + count >= run.size) {
    FUZZ_EQUAL(at, 0);
    FUZZ_EQUAL(end, 1);
    run.pos = run.size;
  } else {
    run.pos += count;
    FUZZ_EQUAL(at, run.pos);
    FUZZ_EQUAL(end, 0);
  }
}

#define DOOR(move, order, name, type)                                              \
  Integer<KELByte_##move##_##order##_##name, type, sizeof(type), #order[0] == 'b', \
          #move[0] == 'G'>
#define DOORS(name, type)                                                           \
  DOOR(Get, le, name, type), DOOR(Peek, le, name, type), DOOR(Get, be, name, type), \
      DOOR(Peek, be, name, type)

constexpr void (*kOperations[])(Run &) = {
    DOORS(int16, int16_t),
    DOORS(uint16, uint16_t),
    DOORS(int32, int32_t),
    DOORS(uint32, uint32_t),
    DOORS(int64, int64_t),
    DOORS(uint64, uint64_t),
    Integer<KELByte_Get_char, uint8_t, 1, true, true>,
    Integer<KELByte_Peek_char, uint8_t, 1, true, false>,
    Integer<KELByte_Get_3char_be_uint32, uint32_t, 3, true, true>,
    Characters<KELByte_Get_3char, 3, false>,
    Characters<KELByte_Peek_3char, 3, false>,  // consumes
    Characters<KELByte_Get_4char, 4, false>,
    Characters<KELByte_Peek_4char, 4, true>,
    String<KELByte_Get_string, false>,
    String<KELByte_Peek_string, true>,
    Skip,
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  std::vector<uint8_t> bytes = fuzz::Bytes(input, 80);
  const auto held = static_cast<uint32_t>(bytes.size());
  bytes.insert(bytes.end(), kSlack, 0x5A);
  bytes.shrink_to_fit();
  KEL_BYTE *reader = KELByte_Open(bytes.data(), held);
  FUZZ_CHECK(reader != nullptr);
  Run run{input, std::move(bytes), held, reader};
  while (input.remaining_bytes() > 0) {
    input.PickValueInArray(kOperations)(run);
    FUZZ_EQUAL(KELByte_Pos(reader), run.pos);
    FUZZ_EQUAL(KELByte_Size(reader), held);
    FUZZ_EQUAL(KELByte_Remain(reader), held - run.pos);
  }
  KELByte_Close(reader);
  return 0;
}
