// Both checksums, at every alignment, against one bit at a time.

#include <kelcore_hash.h>

#include "fuzz.h"

namespace {

uint32_t Crc32(const uint8_t *data, size_t size) {
  uint32_t crc = ~0u;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit)
      crc = crc >> 1 ^ ((crc & 1u) != 0 ? 0xEDB88320u : 0);
  }
  return ~crc;
}

uint32_t Crc16(const uint8_t *data, size_t size) {
  uint32_t crc = 0;
  for (size_t i = 0; i < size; ++i) {
    uint32_t entry = ((crc ^ data[i]) & 0xFF) << 8;
    for (int bit = 0; bit < 8; ++bit)
      entry = (entry << 1) ^ ((entry & 0x8000) != 0 ? 0x1021u : 0u);
    crc = (entry & 0xFFFF) ^ crc >> 8;
  }
  return crc;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0)
    return 0;
  // The first byte tells where the others lie; fast code works in words.
  const size_t skew = data[0] % 64;
  std::vector<uint8_t> bytes(skew, 0);
  bytes.insert(bytes.end(), data + 1, data + size);
  bytes.shrink_to_fit();
  const uint8_t *from = bytes.data() + skew;
  const auto count = static_cast<uint32_t>(size - 1);
  FUZZ_EQUAL(KEL_Hash_crc32(from, count), Crc32(from, count));
  FUZZ_EQUAL(KEL_Hash_crc16(from, count), Crc16(from, count));
  return 0;
}
