// Finds the NAL units of an H.264 byte stream.

#include "nal_scanner.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace kelstream::h264 {

namespace {

uint64_t Load(const uint8_t *from) {
  uint64_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

// Not zero if a byte of the word is zero.
uint64_t ZeroBytes(uint64_t word) {
  return (word - 0x0101010101010101u) & ~word & 0x8080808080808080u;
}

}  // namespace

const uint8_t *FindZeroPair(const uint8_t *begin, const uint8_t *end) {
  const uint8_t *p = begin;
  // A byte of two overlapping words' OR is zero where two neighbours are: coded
  // data stop the loop once in 64 KiB, where single zeros would every 256 bytes.
  constexpr ptrdiff_t kStep = 32;
  while (end - p > kStep) {
    uint64_t hits = 0;
    for (ptrdiff_t i = 0; i < kStep; i += 8)
      hits |= ZeroBytes(Load(p + i) | Load(p + i + 1));
    if (hits != 0)
      break;
    p += kStep;
  }
  for (; end - p >= 2; ++p)
    if (p[0] == 0 && p[1] == 0)
      return p;
  return end;
}

void NalScanner::HandZerosOn() {
  constexpr std::array<uint8_t, 4096> kZeros{};
  while (zeros_ > 0) {
    const auto count = static_cast<size_t>(std::min<uint64_t>(zeros_, kZeros.size()));
    handler_.OnNalBytes(kZeros.data(), count);
    zeros_ -= count;
  }
}

void NalScanner::EndZeros(uint8_t byte) {
  if (zeros_ >= 2 && byte == 1) {
    const auto zeros = static_cast<unsigned>(std::min<uint64_t>(zeros_, 3));
    if (zeros_ > zeros)
      handler_.OnPadding(zeros_ - zeros);
    zeros_ = 0;
    handler_.OnStartCode(offset_ - zeros, zeros);
    return;
  }
  if (zeros_ >= 3 || (zeros_ == 2 && byte == 2))
    handler_.OnForbidden(offset_ - zeros_);
  HandZerosOn();
  handler_.OnNalBytes(&byte, 1);
}

void NalScanner::Feed(const uint8_t *data, size_t size) {
  const uint8_t *const base = data;
  const uint64_t start = offset_;
  const uint8_t *const end = data + size;
  while (data < end) {
    const uint8_t *const run = data;
    data = std::find_if(data, end, [](uint8_t byte) { return byte != 0; });
    zeros_ += static_cast<uint64_t>(data - run);
    offset_ = start + static_cast<uint64_t>(data - base);
    if (data == end)
      return;
    if (zeros_ > 0) {
      EndZeros(*data);
      ++data;
    }
    const uint8_t *zeros = FindZeroPair(data, end);
    // A single zero at the end may be the first of a start code.
    if (zeros == end && zeros > data && zeros[-1] == 0)
      --zeros;
    if (zeros > data)
      handler_.OnNalBytes(data, static_cast<size_t>(zeros - data));
    data = zeros;
  }
  offset_ = start + size;
}

uint64_t NalScanner::Finish() {
  const uint64_t zeros = zeros_;
  zeros_ = 0;
  if (zeros > 0)
    handler_.OnPadding(zeros);
  return zeros;
}

}  // namespace kelstream::h264
