// The two checksums at full speed: tables everywhere, and the processor's own
// instructions where it has them. All ways give the same results.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace kel::checksum {

// One way to compute them. Both take the register and return it; the caller
// does the inversions. `crc16` takes a register of 16 bits.
struct Way {
  const char *name;
  bool (*usable)();  // on this processor
  uint32_t (*crc32)(uint32_t r, const uint8_t *data, size_t size);
  uint32_t (*crc16)(uint32_t r, const uint8_t *data, size_t size);
};

// Best first; the last one is tables and always usable.
extern const Way kWays[];
extern const size_t kWayCount;

// The first one of so many that this processor can use; the last one is usable.
const Way &first_usable(const Way *ways);

// The best one of this processor.
const Way &best();

// By tables.
uint32_t crc32_by_table(uint32_t r, const uint8_t *data, size_t size);
uint32_t crc16_by_table(uint32_t r, const uint8_t *data, size_t size);

}  // namespace kel::checksum
