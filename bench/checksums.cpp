// Checksums of short, middling and long data.

#include "internal/checksum.h"
#include "job.h"
#include "kelcore.h"

#ifdef HAVE_ZLIB
#include <zlib.h>
#endif
#ifdef HAVE_ISAL
#include <isa-l/crc.h>
#endif
#ifdef HAVE_BOOST
#include <boost/crc.hpp>
#endif

static unsigned char data[65536 + 64];

#define CHECKSUM(job, size, who, expression) \
  JOB(job##_##size, who) {                   \
    for (auto _ : state) {                   \
      benchmark::ClobberMemory();            \
      benchmark::DoNotOptimize(expression);  \
    }                                        \
  }
#define CHECKSUMS(job, who, call)    \
  CHECKSUM(job, 16, who, call(16))   \
  CHECKSUM(job, 256, who, call(256)) \
  CHECKSUM(job, 65536, who, call(65536))

#define KEL32(size) KEL_Hash_crc32(data, size)
#define KEL16(size) KEL_Hash_crc16(data, size)
CHECKSUMS(crc32, kelcore, KEL32)
CHECKSUMS(crc16, kelcore, KEL16)

// By tables alone, as where the processor has no instructions for it.
#define TABLES32(size) kel::checksum::crc32_by_table(0, data, size)
CHECKSUMS(crc32_tables, kelcore, TABLES32)

#ifdef HAVE_ZLIB
#define ZLIB32(size) crc32(0, data, size)
CHECKSUMS(crc32, zlib, ZLIB32)
CHECKSUMS(crc32_tables, zlib, ZLIB32)
#endif
#ifdef HAVE_ISAL
#define ISAL32(size) crc32_gzip_refl(0, data, size)
#define ISAL16(size) crc16_t10dif(0, data, size)
CHECKSUMS(crc32, isal, ISAL32)
CHECKSUMS(crc16, isal, ISAL16)
#endif
#ifdef HAVE_BOOST
static unsigned boost16(size_t size) {
  boost::crc_16_type crc;
  crc.process_bytes(data, size);
  return crc.checksum();
}
CHECKSUMS(crc16, boost, boost16)
#endif
