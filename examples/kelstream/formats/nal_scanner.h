// Finds the NAL units of an H.264 byte stream: start codes, at the speed of
// memchr, wherever pieces end.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelstream::h264 {

class NalHandler {
 public:
  virtual ~NalHandler() = default;
  // `offset` is that of the start code, which is `zeros` zero bytes (2, or 3
  // with the zero_byte in front) and a 1.
  virtual void OnStartCode(uint64_t offset, unsigned zeros) = 0;
  // Bytes behind a start code, header byte first. Before the first start code:
  // whatever is there, save zeros.
  virtual void OnNalBytes(const uint8_t *data, size_t size) = 0;
  // Zeros between the last byte of a NAL unit and the next start code (or the
  // end), that are padding and part of neither.
  virtual void OnPadding(uint64_t zeros) = 0;
  // Three bytes that must not occur within a NAL unit: 00 00 00 or 00 00 02.
  virtual void OnForbidden(uint64_t offset) = 0;
};

class NalScanner {
 public:
  NalScanner(NalHandler &handler, uint64_t offset) : handler_(handler), offset_(offset) {}

  void Feed(const uint8_t *data, size_t size);
  // Hands on zeros at the end as padding; returns their number.
  uint64_t Finish();

 private:
  // Handles the byte that ends a run of zeros.
  void EndZeros(uint8_t byte);
  void HandZerosOn();

  NalHandler &handler_;
  uint64_t offset_;  // of the next byte fed
  // Zeros at the end of what was fed: whether they belong to the NAL unit is
  // known when the next byte is.
  uint64_t zeros_ = 0;
};

// The first of two neighbouring zero bytes in [begin, end), or `end`.
const uint8_t *FindZeroPair(const uint8_t *begin, const uint8_t *end);

}  // namespace kelstream::h264
