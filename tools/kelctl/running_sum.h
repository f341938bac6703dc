// One of the library's checksums over data of any length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelctl {

// The library sums up one block at a time, and at most 4 GiB. A sum goes on
// behind a block by four bytes that have the same sum as all that came before:
// put in front of the next block they bring the sum to where it was.
class RunningSum {
 public:
  using Function = uint32_t (*)(const void *data, uint32_t length);
  // For sums that are linear and of at most 32 bits, and whose value is all that
  // is kept from one byte to the next, as in cyclic redundancy checks.
  explicit RunningSum(Function function);

  void Append(const void *data, size_t size);
  uint32_t value() const { return value_; }

 private:
  uint32_t WordWithSum(uint32_t sum) const;

  struct Row {
    uint32_t sum = 0;   // its highest bit is the row's own
    uint32_t word = 0;  // that has the sum, apart from that of zeros
  };

  Function function_;
  uint32_t zeros_;  // the sum of four zero bytes
  Row rows_[32];
  uint32_t value_ = 0;
  bool empty_ = true;
  std::vector<char> block_;
};

}  // namespace kelctl
