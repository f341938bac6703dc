// The bit cursor, reading and writing one buffer, against single bits. Calls
// stay inside the bytes that each says it touches, and the buffer ends there.

#include <kelcore_bit.h>

#include <optional>

#include "fuzz.h"

namespace {

constexpr uint32_t kWordBits = 32;

class Model {
 public:
  explicit Model(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

  uint32_t at = 0;

  const std::vector<uint8_t> &bytes() const { return bytes_; }
  uint32_t Offset() const { return at % 8; }
  uint32_t Left() const { return static_cast<uint32_t>(bytes_.size()) * 8 - at; }
  // Whether `count` bytes may be touched from the current one on.
  bool Touches(uint32_t count) const { return at / 8 + count <= bytes_.size(); }

  uint32_t Read(uint32_t count) const {
    uint32_t value = 0;
    for (uint32_t i = 0; i < count; ++i)
      value = value << 1 | (bytes_[(at + i) / 8] >> (7 - (at + i) % 8) & 1u);
    return value;
  }

  void Write(uint32_t count, uint32_t value) {
    if (Offset() != 0)
      for (uint32_t i = at; i < (at / 8 + 4) * 8; ++i)
        bytes_[i / 8] = static_cast<uint8_t>(bytes_[i / 8] & ~(0x80u >> i % 8));
    for (uint32_t i = 0; i < count; ++i, ++at)
      if ((value >> (count - 1 - i) & 1u) != 0)
        bytes_[at / 8] = static_cast<uint8_t>(bytes_[at / 8] | (0x80u >> at % 8));
  }

 private:
  std::vector<uint8_t> bytes_;
};

struct Run {
  FuzzedDataProvider &input;
  KEL_BIT *cursor;
  Model model;
  std::optional<uint32_t> mark;

  uint32_t UpTo(uint32_t most) { return input.ConsumeIntegralInRange<uint32_t>(1, most); }
  uint32_t Width() { return UpTo(kWordBits - model.Offset()); }
};

void Get(Run &run) {
  if (!run.model.Touches(4))
    return;
  const uint32_t count = run.Width();
  const uint32_t expected = run.model.Read(count);
  FUZZ_EQUAL(KELBitShow(run.cursor, count), expected);
  if (run.input.ConsumeBool())
    return;
  FUZZ_EQUAL(KELBitGetBit(run.cursor, count), expected);
  run.model.at += count;
}

void GetFast(Run &run) {
  if (!run.model.Touches(2))
    return;
  const uint32_t count = run.UpTo(8);
  FUZZ_EQUAL(KELBitGetFast(run.cursor, count), run.model.Read(count));
  run.model.at += count;
}

void GetOne(Run &run) {
  if (!run.model.Touches(1))
    return;
  FUZZ_EQUAL(KELBitGet1Bit(run.cursor), run.model.Read(1));
  run.model.at += 1;
}

void Flush(Run &run) {
  const auto count = run.input.ConsumeIntegralInRange<uint32_t>(0, run.model.Left());
  KELBitFlush(run.cursor, count);
  run.model.at += count;
}

void Put(Run &run) {
  if (!run.model.Touches(4))
    return;
  const uint32_t count = run.Width();
  const auto value = run.input.ConsumeIntegral<uint32_t>();
  KELBitPutBit(run.cursor, count, value);
  run.model.Write(count, value);
}

void PutBytes(Run &run) {
  const auto bytes = fuzz::Bytes(run.input, 9);
  auto count = static_cast<int32_t>(bytes.size());
  if (!run.model.Touches(static_cast<uint32_t>(count) + 3))
    count = -count;
  KELBitPutByte(run.cursor, count, bytes.data());
  for (int32_t i = 0; i < count; ++i)
    run.model.Write(8, bytes[static_cast<size_t>(i)]);
}

void Mark(Run &run) {
  FUZZ_CHECK(KELBitBookmark(run.cursor, run.UpTo(UINT32_MAX)) == run.cursor);
  run.mark = run.model.at;
}

void GoBack(Run &run) {
  if (!run.mark)
    return;
  FUZZ_CHECK(KELBitBookmark(run.cursor, 0) == run.cursor);
  run.model.at = *run.mark;
}

void Align(Run &run) {
  const uint32_t skipped = (8 - run.model.Offset()) % 8;
  FUZZ_EQUAL(KELBitByteAlign(run.cursor), skipped);
  run.model.at += skipped;
}

void Count(Run &run) {
  const auto value = run.input.ConsumeIntegral<uint32_t>();
  uint32_t ones = 0;
  for (uint32_t rest = value; rest != 0; rest >>= 1)
    ones += rest & 1u;
  FUZZ_EQUAL(KELBitCount(value), ones);
}

constexpr void (*kOperations[])(Run &) = {Get, Get,      GetFast, GetOne, Flush, Put,
                                          Put, PutBytes, Mark,    GoBack, Align, Count};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  std::vector<uint8_t> bytes = fuzz::Bytes(input, 64);
  const Model model(bytes);
  KEL_BIT *cursor = KELBitOpen(bytes.data(), static_cast<uint32_t>(bytes.size()));
  FUZZ_CHECK(cursor != nullptr);
  Run run{input, cursor, model, std::nullopt};
  while (input.remaining_bytes() > 0) {
    input.PickValueInArray(kOperations)(run);
    FUZZ_EQUAL(KELBitGetProcessed(cursor), run.model.at);
    FUZZ_CHECK(bytes == run.model.bytes());
  }
  KELBitClose(cursor);
  return 0;
}
