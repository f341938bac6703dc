// Bit cursor: against a model that goes bit by bit.

#include "kelcore_bit.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <random>
#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "trace_capture.h"

namespace {

constexpr size_t kSlack = 4;

class Cursor {
 public:
  Cursor(void *data, uint32_t size) : cursor_(KELBitOpen(data, size)) {}
  ~Cursor() { KELBitClose(cursor_); }
  Cursor(const Cursor &) = delete;
  Cursor &operator=(const Cursor &) = delete;
  operator KEL_BIT *() const { return cursor_; }
  // Offset of a field in the record.
  uint32_t Word(size_t offset) const {
    uint32_t word;
    memcpy(&word, reinterpret_cast<char *>(cursor_) + offset, sizeof word);
    return word;
  }
  const uint8_t *Pointer(size_t offset) const {
    const uint8_t *pointer;
    memcpy(&pointer, reinterpret_cast<char *>(cursor_) + offset, sizeof pointer);
    return pointer;
  }
  const uint8_t *Current() const { return Pointer(0); }

 private:
  KEL_BIT *cursor_;
};

constexpr size_t kBitOff = 12, kProcessed = 16, kTotalBits = 20, kMarkCur = 24,
                 kMarkReserved = 32, kMarkBitOff = 36, kMarkProcessed = 40, kMarkSet = 44;

std::vector<uint8_t> RandomBytes(size_t size) {
  std::mt19937 random(42);
  std::vector<uint8_t> bytes(size + kSlack);
  for (uint8_t &byte : bytes)
    byte = static_cast<uint8_t>(random());
  return bytes;
}

uint32_t ModelBits(const std::vector<uint8_t> &bytes, size_t at, uint32_t n) {
  uint32_t value = 0;
  for (size_t i = at; i < at + n; ++i)
    value = value << 1 | (bytes[i / 8] >> (7 - i % 8) & 1u);
  return value;
}

TEST(BitOpen, TakesOneRecordWithTheGivenLayout) {
  AllocHooks hooks;
  TraceCapture trace;
  uint8_t data[12] = {};
  {
    Cursor cursor(data, 8);
    ASSERT_EQ(hooks.adds.size(), 1u);
    EXPECT_EQ(hooks.adds[0].size, 48u);
    EXPECT_EQ(hooks.adds[0].file, "kelcore_bit");
    EXPECT_EQ(cursor.Current(), data);
    EXPECT_EQ(cursor.Word(8), 0u) << "reserved";
    EXPECT_EQ(cursor.Word(kBitOff), 0u);
    EXPECT_EQ(cursor.Word(kProcessed), 0u);
    EXPECT_EQ(cursor.Word(kTotalBits), 64u);
    EXPECT_EQ(cursor.Word(kMarkSet), 0u);
  }
  EXPECT_EQ(hooks.live(), 0);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST(BitOpen, WithoutMemoryGivesNull) {
  faults::malloc.Fail(nullptr, ENOMEM);
  uint8_t data[4] = {};
  EXPECT_EQ(KELBitOpen(data, 1), nullptr);
}

TEST(BitClose, OfNullDoesNothing) {
  KELBitClose(nullptr);
}

TEST(BitGet, ReadsMostSignificantBitsFirst) {
  uint8_t data[] = {0xA5, 0xFF, 0x00, 0x00};
  Cursor cursor(data, 4);
  EXPECT_EQ(KELBitGetBit(cursor, 3), 5u);
  EXPECT_EQ(KELBitGetBit(cursor, 5), 5u);
  EXPECT_EQ(KELBitGetProcessed(cursor), 8u);
}

TEST(BitGet, AgreesWithTheModelAtEveryOffsetAndWidth) {
  std::vector<uint8_t> bytes = RandomBytes(64);
  for (uint32_t offset = 0; offset < 8; ++offset) {
    for (uint32_t n = 1; n <= 32 - offset; ++n) {
      for (size_t byte = 0; byte < 40; ++byte) {
        Cursor cursor(bytes.data() + byte, 24);
        KELBitFlush(cursor, offset);
        const uint32_t expected = ModelBits(bytes, byte * 8 + offset, n);
        ASSERT_EQ(KELBitShow(cursor, n), expected) << offset << " " << n;
        ASSERT_EQ(KELBitShow(cursor, n), expected) << "it does not advance";
        ASSERT_EQ(KELBitGetProcessed(cursor), offset);
        ASSERT_EQ(KELBitGetBit(cursor, n), expected);
        ASSERT_EQ(KELBitGetProcessed(cursor), offset + n);
        ASSERT_EQ(cursor.Current(), bytes.data() + byte + (offset + n) / 8);
        ASSERT_EQ(cursor.Word(kBitOff), (offset + n) % 8);
      }
    }
  }
}

TEST(BitGet, MixedWithEveryOtherReadStaysInStep) {
  std::vector<uint8_t> bytes = RandomBytes(4000);
  std::mt19937 random(7);
  Cursor cursor(bytes.data(), 4000);
  size_t at = 0;
  while (at < 3900 * 8) {
    const auto n = static_cast<uint32_t>(random() % 25 + 1);
    switch (random() % 4) {
      case 0:
        ASSERT_EQ(KELBitGetBit(cursor, n), ModelBits(bytes, at, n));
        at += n;
        break;
      case 1:
        ASSERT_EQ(KELBitGetFast(cursor, n % 8 + 1), ModelBits(bytes, at, n % 8 + 1));
        at += n % 8 + 1;
        break;
      case 2:
        ASSERT_EQ(KELBitGet1Bit(cursor), ModelBits(bytes, at, 1));
        at += 1;
        break;
      default:
        KELBitFlush(cursor, n);
        at += n;
        break;
    }
    ASSERT_EQ(KELBitGetProcessed(cursor), at);
  }
}

TEST(BitFast, AgreesWithTheModelAtEveryOffsetAndWidth) {
  std::vector<uint8_t> bytes = RandomBytes(64);
  for (uint32_t offset = 0; offset < 8; ++offset)
    for (uint32_t n = 1; n <= 8; ++n)
      for (size_t byte = 0; byte < 60; ++byte) {
        Cursor cursor(bytes.data() + byte, 4);
        KELBitFlush(cursor, offset);
        ASSERT_EQ(KELBitGetFast(cursor, n), ModelBits(bytes, byte * 8 + offset, n));
        ASSERT_EQ(KELBitGetProcessed(cursor), offset + n);
      }
}

// A page that ends where the next one must not be touched.
class EdgeOfMemory : public testing::Test {
 protected:
  void SetUp() override {
    pages_ =
        mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages_, MAP_FAILED);
    ASSERT_EQ(mprotect(static_cast<char *>(pages_) + page_, page_, PROT_NONE), 0);
  }
  void TearDown() override { munmap(pages_, 2 * page_); }
  uint8_t *Last(size_t count) { return static_cast<uint8_t *>(pages_) + page_ - count; }

 private:
  size_t page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void *pages_ = nullptr;
};

TEST_F(EdgeOfMemory, FastReadsTouchTwoBytesOnly) {
  uint8_t *data = Last(2);
  data[0] = 0xA5;
  data[1] = 0x3C;
  Cursor cursor(data, 2);
  KELBitFlush(cursor, 3);
  EXPECT_EQ(KELBitGetFast(cursor, 8), 0x29u);
}

TEST_F(EdgeOfMemory, SingleBitsTouchOneByteOnly) {
  uint8_t *data = Last(1);
  data[0] = 0x80;
  Cursor cursor(data, 1);
  EXPECT_EQ(KELBitGet1Bit(cursor), 1u);
  EXPECT_EQ(KELBitGet1Bit(cursor), 0u);
  EXPECT_EQ(KELBitByteAlign(cursor), 6u);
}

TEST_F(EdgeOfMemory, WholeReadsAndWritesTouchFourBytesOnly) {
  uint8_t *data = Last(4);
  Cursor cursor(data, 4);
  KELBitPutBit(cursor, 7, 0x55);
  KELBitPutBit(cursor, 25, 0x1234567);
  Cursor reader(data, 4);
  EXPECT_EQ(KELBitGetBit(reader, 7), 0x55u);
  EXPECT_EQ(KELBitGetBit(reader, 25), 0x1234567u);
}

TEST(BitFlush, ANegativeNumberStepsBack) {
  std::vector<uint8_t> bytes = RandomBytes(16);
  Cursor cursor(bytes.data(), 16);
  KELBitFlush(cursor, 45);
  KELBitFlush(cursor, static_cast<uint32_t>(-19));
  EXPECT_EQ(KELBitGetProcessed(cursor), 26u);
  EXPECT_EQ(cursor.Current(), bytes.data() + 3);
  EXPECT_EQ(KELBitGetBit(cursor, 9), ModelBits(bytes, 26, 9));
}

TEST(BitAlign, GoesToTheNextByteBoundary) {
  std::vector<uint8_t> bytes = RandomBytes(16);
  for (uint32_t offset = 0; offset < 8; ++offset) {
    Cursor cursor(bytes.data(), 16);
    KELBitFlush(cursor, offset);
    const uint32_t skipped = (8 - offset) % 8;
    EXPECT_EQ(KELBitByteAlign(cursor), skipped);
    EXPECT_EQ(cursor.Word(kBitOff), 0u);
    EXPECT_EQ(KELBitGetProcessed(cursor), offset + skipped);
  }
}

TEST(BitPut, WritesIntoAZeroedBuffer) {
  uint8_t data[8] = {};
  Cursor cursor(data, 4);
  KELBitPutBit(cursor, 3, 0b101);
  KELBitPutBit(cursor, 5, 0b00111);
  EXPECT_EQ(data[0], 0xA7);
  EXPECT_EQ(KELBitGetProcessed(cursor), 8u);
}

TEST(BitPut, AtAByteBoundaryOrsOverWhatIsThere) {
  uint8_t data[8] = {0xFF, 0x0F, 0x00, 0xF0, 0xEE};
  Cursor cursor(data, 4);
  KELBitPutBit(cursor, 4, 0);
  EXPECT_EQ(data[0], 0xFF);
  EXPECT_EQ(data[1], 0x0F);
  EXPECT_EQ(data[3], 0xF0);
}

TEST(BitPut, ElsewhereClearsTheRestOfItsFourBytes) {
  uint8_t data[8] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  Cursor cursor(data, 4);
  KELBitFlush(cursor, 3);
  KELBitPutBit(cursor, 2, 0b01);
  EXPECT_EQ(data[0], 0xE8);
  EXPECT_EQ(data[1], 0x00);
  EXPECT_EQ(data[2], 0x00);
  EXPECT_EQ(data[3], 0x00);
  EXPECT_EQ(data[4], 0xFF) << "only four bytes";
}

TEST(BitPut, WritesOnlyTheLowBitsOfTheValue) {
  uint8_t data[8] = {};
  Cursor cursor(data, 4);
  KELBitPutBit(cursor, 4, 0xFFFFFFF5);
  EXPECT_EQ(data[0], 0x50);
  KELBitPutBit(cursor, 2, 0xFFFFFFFE);
  EXPECT_EQ(data[0], 0x58) << "what was written before stays";
}

TEST(BitPut, WhatIsWrittenIsReadBack) {
  std::mt19937 random(3);
  std::vector<uint8_t> bytes(4000 + kSlack, 0);
  std::vector<std::pair<uint32_t, uint32_t>> fields;
  Cursor writer(bytes.data(), 4000);
  for (uint32_t bits = 0; bits < 3900 * 8;) {
    const auto n = static_cast<uint32_t>(random() % 25 + 1);
    const auto value = static_cast<uint32_t>(random() & ((1u << n) - 1));
    KELBitPutBit(writer, n, value);
    fields.emplace_back(n, value);
    bits += n;
  }
  Cursor reader(bytes.data(), 4000);
  for (const auto &[n, value] : fields)
    ASSERT_EQ(KELBitGetBit(reader, n), value);
}

TEST(BitPutByte, WritesEachByteAtAnyOffset) {
  const uint8_t source[] = {0x12, 0x34, 0x56};
  std::vector<uint8_t> bytes(8 + kSlack, 0);
  Cursor cursor(bytes.data(), 8);
  KELBitPutBit(cursor, 4, 0xF);
  KELBitPutByte(cursor, 3, source);
  EXPECT_EQ(KELBitGetProcessed(cursor), 28u);
  EXPECT_EQ(ModelBits(bytes, 0, 28), 0xF123456u);
}

TEST(BitPutByte, WritesNothingForACountBelow1) {
  const uint8_t source[] = {0xFF};
  uint8_t data[8] = {};
  Cursor cursor(data, 4);
  KELBitPutByte(cursor, 0, source);
  KELBitPutByte(cursor, -1, source);
  EXPECT_EQ(KELBitGetProcessed(cursor), 0u);
  EXPECT_EQ(data[0], 0);
}

TEST(BitBookmark, GoesBackAsOftenAsWanted) {
  std::vector<uint8_t> bytes = RandomBytes(16);
  Cursor cursor(bytes.data(), 16);
  KELBitFlush(cursor, 5);
  EXPECT_EQ(KELBitBookmark(cursor, 7), cursor);
  EXPECT_EQ(cursor.Word(kMarkSet), 1u);
  const uint32_t first = KELBitGetBit(cursor, 13);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(KELBitBookmark(cursor, 0), cursor);
    EXPECT_EQ(cursor.Word(kMarkSet), 0u);
    EXPECT_EQ(KELBitGetProcessed(cursor), 5u);
    EXPECT_EQ(KELBitGetBit(cursor, 13), first);
  }
}

TEST(BitBookmark, KeepsTheFourFieldsItRestores) {
  uint8_t data[16] = {};
  Cursor cursor(data, 16);
  KELBitFlush(cursor, 21);
  const uint8_t *at = cursor.Current();
  KELBitBookmark(cursor, 1);
  EXPECT_EQ(cursor.Pointer(kMarkCur), at);
  EXPECT_EQ(cursor.Word(kMarkReserved), 0u);
  EXPECT_EQ(cursor.Word(kMarkBitOff), 5u);
  EXPECT_EQ(cursor.Word(kMarkProcessed), 21u);
  KELBitFlush(cursor, 30);
  KELBitBookmark(cursor, 0);
  EXPECT_EQ(cursor.Current(), at);
  EXPECT_EQ(cursor.Word(kBitOff), 5u);
  EXPECT_EQ(cursor.Word(kProcessed), 21u);
  EXPECT_EQ(cursor.Word(kTotalBits), 128u);
  EXPECT_EQ(cursor.Pointer(kMarkCur), at) << "the mark stays";
  EXPECT_EQ(cursor.Word(kMarkProcessed), 21u);
}

TEST(BitBookmark, WithoutASaveRestoresZeros) {
  uint8_t data[8] = {};
  Cursor cursor(data, 4);
  KELBitFlush(cursor, 11);
  KELBitBookmark(cursor, 0);
  EXPECT_EQ(cursor.Current(), nullptr);
  EXPECT_EQ(cursor.Word(kBitOff), 0u);
  EXPECT_EQ(KELBitGetProcessed(cursor), 0u);
}

TEST(BitCount, CountsOnes) {
  EXPECT_EQ(KELBitCount(0), 0u);
  EXPECT_EQ(KELBitCount(0xF0F0F0F0), 16u);
  EXPECT_EQ(KELBitCount(0xFFFFFFFF), 32u);
  for (uint32_t i = 0; i < 32; ++i)
    EXPECT_EQ(KELBitCount(1u << i), 1u);
}

}  // namespace
