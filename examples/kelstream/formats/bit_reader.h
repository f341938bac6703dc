// Bit and byte readers that cannot leave their data: the library's own check
// nothing, and media files come from anywhere.
#pragma once

#include <kelcore_bit.h>
#include <kelcore_byte.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kelstream {

// Bytes with the slack that the library's readers touch behind the last one.
class PaddedBytes {
 public:
  PaddedBytes() : bytes_(kSlack) {}
  PaddedBytes(const uint8_t *data, size_t size) : PaddedBytes() { Assign(data, size); }

  void Resize(size_t size) { bytes_.resize(size + kSlack); }
  void Assign(const uint8_t *data, size_t size);

  uint8_t *data() { return bytes_.data(); }
  const uint8_t *data() const { return bytes_.data(); }
  size_t size() const { return bytes_.size() - kSlack; }

 private:
  static constexpr size_t kSlack = 8;
  std::vector<uint8_t> bytes_;
};

// Reads bits until they run out; from then on every read gives 0 and Overrun()
// is true, so that a parser can read a whole structure and ask once.
class BitReader {
 public:
  // The bytes stay the caller's and must outlive the reader.
  explicit BitReader(const PaddedBytes &bytes);

  bool Overrun() const { return overrun_; }
  // For values that a syntax does not allow: ends the reading as well. What was
  // read behind the end is not held against the data.
  bool Bad() const { return bad_; }
  void MarkBad() { bad_ = !overrun_; }
  bool Failed() const { return overrun_ || bad_; }

  uint32_t Bits(uint32_t count);  // 0 to 32
  bool Flag() { return Bits(1) != 0; }
  void Skip(uint64_t count);
  void ByteAlign();
  uint64_t Left() const { return left_; }

  // Exp-Golomb codes. Those longer than 32 bits of prefix are bad.
  uint32_t Ue();
  int32_t Se();
  // As Ue and Se, marking the data bad when the value is out of range.
  uint32_t UeMax(uint32_t max);
  int32_t SeWithin(int32_t min, int32_t max);

  // True when more than the stop bit and its zeros is left (more_rbsp_data).
  bool MoreData() const;

 private:
  struct Close {
    void operator()(KEL_BIT *cursor) const { KELBitClose(cursor); }
  };
  const PaddedBytes &bytes_;
  std::unique_ptr<KEL_BIT, Close> cursor_;
  uint64_t left_;
  bool overrun_ = false;
  bool bad_ = false;
};

// The same for bytes.
class ByteReader {
 public:
  explicit ByteReader(const PaddedBytes &bytes);

  bool Overrun() const { return overrun_; }
  uint32_t Byte();
  void Skip(uint32_t count);
  uint32_t Left() const;

 private:
  struct Close {
    void operator()(KEL_BYTE *reader) const { KELByte_Close(reader); }
  };
  std::unique_ptr<KEL_BYTE, Close> reader_;
  bool overrun_ = false;
};

}  // namespace kelstream
