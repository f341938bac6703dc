// Writes bit fields, the counterpart of the parsers under test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace kelstream_test {

using Bytes = std::basic_string<uint8_t>;
using Sizes = std::initializer_list<size_t>;  // for loops over a few

class BitWriter {
 public:
  BitWriter &Bits(unsigned count, uint32_t value) {
    for (unsigned i = count; i-- > 0;)
      Bit((value >> i & 1u) != 0);
    return *this;
  }
  BitWriter &Flag(bool value) { return Bits(1, value ? 1 : 0); }
  BitWriter &Ue(uint32_t value) {
    const uint64_t code = uint64_t{value} + 1;
    unsigned length = 0;
    while (code >> (length + 1) != 0)
      ++length;
    for (unsigned i = 0; i < length; ++i)
      Bit(false);
    for (unsigned i = length + 1; i-- > 0;)
      Bit((code >> i & 1u) != 0);
    return *this;
  }
  BitWriter &Se(int32_t value) {
    const auto magnitude = static_cast<uint32_t>(value > 0 ? value : -value);
    return Ue(value > 0 ? 2 * magnitude - 1 : 2 * magnitude);
  }
  // The stop bit and zeros up to the next byte.
  BitWriter &Trailing() {
    Bit(true);
    return Align();
  }
  BitWriter &Align() {
    while (used_ != 0)
      Bit(false);
    return *this;
  }
  const Bytes &bytes() const { return bytes_; }

 private:
  void Bit(bool value) {
    if (used_ == 0)
      bytes_.push_back(0);
    if (value)
      bytes_.back() = static_cast<uint8_t>(bytes_.back() | 0x80u >> used_);
    used_ = (used_ + 1) % 8;
  }
  Bytes bytes_;
  unsigned used_ = 0;
};

}  // namespace kelstream_test
