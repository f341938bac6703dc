// Bit and byte readers that cannot leave their data.

#include "bit_reader.h"

#include <algorithm>
#include <new>

namespace kelstream {

void PaddedBytes::Assign(const uint8_t *data, size_t size) {
  Resize(size);
  std::copy_n(data, size, bytes_.begin());
}

BitReader::BitReader(const PaddedBytes &bytes)
    : bytes_(bytes),
      cursor_(KELBitOpen(bytes.data(), static_cast<uint32_t>(bytes.size()))),
      left_(uint64_t{bytes.size()} * 8) {
  if (cursor_ == nullptr)
    throw std::bad_alloc();
}

uint32_t BitReader::Bits(uint32_t count) {
  if (count > left_ || Failed()) {
    overrun_ = overrun_ || !bad_;
    return 0;
  }
  if (count == 0)
    return 0;
  left_ -= count;
  // One call of the library delivers 25 bits at any position.
  constexpr uint32_t kHalf = 16;
  if (count <= kHalf)
    return KELBitGetBit(cursor_.get(), count);
  const uint32_t high = KELBitGetBit(cursor_.get(), count - kHalf);
  return high << kHalf | KELBitGetBit(cursor_.get(), kHalf);
}

void BitReader::Skip(uint64_t count) {
  if (count > left_ || Failed()) {
    overrun_ = overrun_ || !bad_;
    return;
  }
  left_ -= count;
  KELBitFlush(cursor_.get(), static_cast<uint32_t>(count));
}

void BitReader::ByteAlign() {
  left_ -= KELBitByteAlign(cursor_.get());
}

uint32_t BitReader::Ue() {
  uint32_t zeros = 0;
  while (!Flag()) {
    if (Failed())
      return 0;
    if (++zeros > 32) {
      MarkBad();
      return 0;
    }
  }
  if (zeros < 32) {
    const uint32_t suffix = Bits(zeros);
    return Failed() ? 0 : (uint32_t{1} << zeros) - 1 + suffix;
  }
  // The one code of this length that fits in 32 bits is the largest value.
  if (Bits(32) != 0)
    MarkBad();
  return Failed() ? 0 : UINT32_MAX;
}

int32_t BitReader::Se() {
  const uint32_t code = Ue();
  if (code == UINT32_MAX) {
    MarkBad();
    return 0;
  }
  const auto magnitude = static_cast<int32_t>(code / 2 + code % 2);
  return code % 2 != 0 ? magnitude : -magnitude;
}

uint32_t BitReader::UeMax(uint32_t max) {
  const uint32_t value = Ue();
  if (value <= max)
    return value;
  MarkBad();
  return 0;
}

int32_t BitReader::SeWithin(int32_t min, int32_t max) {
  const int32_t value = Se();
  if (value >= min && value <= max)
    return value;
  MarkBad();
  return 0;
}

bool BitReader::MoreData() const {
  size_t last = bytes_.size();
  while (last > 0 && bytes_.data()[last - 1] == 0)
    --last;
  if (last == 0)
    return false;
  uint64_t stop = uint64_t{last} * 8 - 1;
  for (uint8_t byte = bytes_.data()[last - 1]; (byte & 1u) == 0; byte >>= 1)
    --stop;
  return uint64_t{bytes_.size()} * 8 - left_ < stop;
}

ByteReader::ByteReader(const PaddedBytes &bytes)
    : reader_(KELByte_Open(bytes.data(), static_cast<uint32_t>(bytes.size()))) {
  if (reader_ == nullptr)
    throw std::bad_alloc();
}

uint32_t ByteReader::Byte() {
  uint32_t end = 0;
  const uint32_t byte = KELByte_Get_char(reader_.get(), &end);
  overrun_ = overrun_ || end != 0;
  return end != 0 ? 0 : byte;
}

void ByteReader::Skip(uint32_t count) {
  // Reaching the end exactly is reported as the end, but nothing is missing.
  if (count > Left()) {
    overrun_ = true;
    count = Left();
  }
  uint32_t end = 0;
  KELByte_Skip(reader_.get(), count, &end);
}

uint32_t ByteReader::Left() const {
  return KELByte_Remain(reader_.get());
}

}  // namespace kelstream
