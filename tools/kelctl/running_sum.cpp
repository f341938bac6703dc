// One of the library's checksums over data of any length.

#include "running_sum.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace kelctl {

namespace {

constexpr size_t kMaxBlock = 1 << 20;

int HighestBit(uint32_t value) {
  return 31 - std::countl_zero(value);
}

}  // namespace

RunningSum::RunningSum(Function function) : function_(function), zeros_(0) {
  uint32_t word = 0;
  zeros_ = function_(&word, sizeof word);
  // Gaussian elimination over the sums of the 32 words of a single bit.
  for (int bit = 0; bit < 32; ++bit) {
    word = uint32_t{1} << bit;
    Row row = {function_(&word, sizeof word) ^ zeros_, word};
    while (row.sum != 0 && rows_[HighestBit(row.sum)].sum != 0) {
      const Row &other = rows_[HighestBit(row.sum)];
      row.sum ^= other.sum;
      row.word ^= other.word;
    }
    if (row.sum != 0)
      rows_[HighestBit(row.sum)] = row;
  }
}

uint32_t RunningSum::WordWithSum(uint32_t sum) const {
  uint32_t rest = sum ^ zeros_, word = 0;
  for (int bit = 31; bit >= 0; --bit) {
    if ((rest >> bit & 1) == 0)
      continue;
    rest ^= rows_[bit].sum;
    word ^= rows_[bit].word;
  }
  return word;
}

void RunningSum::Append(const void *data, size_t size) {
  const auto *bytes = static_cast<const char *>(data);
  while (size != 0) {
    const size_t part = std::min(size, kMaxBlock);
    if (empty_) {
      value_ = function_(bytes, static_cast<uint32_t>(part));
    } else {
      const uint32_t word = WordWithSum(value_);
      block_.resize(sizeof word + part);
      std::memcpy(block_.data(), &word, sizeof word);
      std::memcpy(block_.data() + sizeof word, bytes, part);
      value_ = function_(block_.data(), static_cast<uint32_t>(block_.size()));
    }
    empty_ = false;
    bytes += part;
    size -= part;
  }
}

}  // namespace kelctl
