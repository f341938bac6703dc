// Byte reader: the integer family as a table, and the reads of characters.

#include "kelcore_byte.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "trace_capture.h"

namespace {

class Reader {
 public:
  Reader(const void *data, uint32_t size) : reader_(KELByte_Open(data, size)) {}
  ~Reader() { KELByte_Close(reader_); }
  Reader(const Reader &) = delete;
  Reader &operator=(const Reader &) = delete;
  operator KEL_BYTE *() const { return reader_; }

 private:
  KEL_BYTE *reader_;
};

// Data of `size` bytes followed by slack for reads that straddle the end.
constexpr uint8_t kBytes[] = {0x81, 0x92, 0xA3, 0xB4, 0xC5, 0xD6, 0xE7, 0xF8,
                              0x09, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E, 0x6F, 0x70};

constexpr uint32_t kUntouched = 77;

TEST(ByteOpen, TakesOneRecordWithTheGivenLayout) {
  AllocHooks hooks;
  TraceCapture trace;
  KEL_BYTE *reader = KELByte_Open(kBytes, 9);
  ASSERT_NE(reader, nullptr);
  ASSERT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.adds[0].size, 16u);
  EXPECT_EQ(hooks.adds[0].file, "kelcore_byte");
  EXPECT_EQ(hooks.adds[0].func, "KELByte_Open");
  const char *record = reinterpret_cast<char *>(reader);
  const void *data;
  uint32_t size, pos;
  memcpy(&data, record, 8);
  memcpy(&size, record + 8, 4);
  memcpy(&pos, record + 12, 4);
  EXPECT_EQ(data, kBytes);
  EXPECT_EQ(size, 9u);
  EXPECT_EQ(pos, 0u);
  KELByte_Close(reader);
  EXPECT_EQ(hooks.live(), 0);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST(ByteOpen, WithoutMemoryGivesNullWithoutTrace) {
  TraceCapture trace;
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KELByte_Open(kBytes, 1), nullptr);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST(ByteClose, OfNullDoesNothing) {
  KELByte_Close(nullptr);
}

TEST(BytePosition, IsToldInThreeWays) {
  Reader reader(kBytes, 5);
  KELByte_Get_char(reader, nullptr);
  KELByte_Get_char(reader, nullptr);
  EXPECT_EQ(KELByte_Pos(reader), 2u);
  EXPECT_EQ(KELByte_Size(reader), 5u);
  EXPECT_EQ(KELByte_Remain(reader), 3u);
}

// ---- Integers ----

struct Integer {
  std::string name;
  uint32_t width;
  bool consumes;
  int64_t expected;  // of the first bytes of kBytes
  std::function<int64_t(KEL_BYTE *, uint32_t *)> read;
};

void PrintTo(const Integer &integer, std::ostream *out) {
  *out << integer.name;
}

#define MEMBER(move, order, type, width, expected)                                               \
  Integer {                                                                                      \
#move "_" #order "_" #type, width,                                                           \
        #move                                                                                    \
        [0] == 'G', expected,                                                                    \
         [](KEL_BYTE * r,                                                                        \
            uint32_t *                                                                           \
                end) { return static_cast<int64_t>(KELByte_##move##_##order##_##type(r, end)); } \
  }
#define MEMBERS(type, width, little, big)                                      \
  MEMBER(Get, le, type, width, little), MEMBER(Peek, le, type, width, little), \
      MEMBER(Get, be, type, width, big), MEMBER(Peek, be, type, width, big)

const Integer kIntegers[] = {
    MEMBERS(int16, 2, int16_t(0x9281 - 0x10000), int16_t(0x8192 - 0x10000)),
    MEMBERS(uint16, 2, 0x9281, 0x8192),
    MEMBERS(int32, 4, int32_t(0xB4A39281), int32_t(0x8192A3B4)),
    MEMBERS(uint32, 4, 0xB4A39281, 0x8192A3B4),
    MEMBERS(int64, 8, int64_t(0xF8E7D6C5B4A39281), int64_t(0x8192A3B4C5D6E7F8)),
    MEMBERS(uint64, 8, int64_t(0xF8E7D6C5B4A39281), int64_t(0x8192A3B4C5D6E7F8)),
    {"Get_3char_be_uint32", 3, true, 0x8192A3,
     [](KEL_BYTE *r, uint32_t *end) -> int64_t { return KELByte_Get_3char_be_uint32(r, end); }},
    {"Get_char", 1, true, 0x81,
     [](KEL_BYTE *r, uint32_t *end) -> int64_t { return KELByte_Get_char(r, end); }},
    {"Peek_char", 1, false, 0x81,
     [](KEL_BYTE *r, uint32_t *end) -> int64_t { return KELByte_Peek_char(r, end); }},
};

class ByteInteger : public testing::TestWithParam<Integer> {
 protected:
  uint32_t Moved() const { return GetParam().consumes ? GetParam().width : 0; }
};
INSTANTIATE_TEST_SUITE_P(Family, ByteInteger, testing::ValuesIn(kIntegers),
                         [](const auto &integer) { return integer.param.name; });

TEST_P(ByteInteger, ReadsItsBytesInItsOrder) {
  Reader reader(kBytes, 8);
  uint32_t end = kUntouched;
  EXPECT_EQ(GetParam().read(reader, &end), GetParam().expected);
  EXPECT_EQ(end, 0u);
  EXPECT_EQ(KELByte_Pos(reader), Moved());
}

TEST_P(ByteInteger, ReadsAtAnyAlignment) {
  for (size_t offset = 0; offset < 8; ++offset) {
    uint8_t moved[16 + 8] = {};
    memcpy(moved + offset, kBytes, 8);
    Reader reader(moved + offset, 8);
    EXPECT_EQ(GetParam().read(reader, nullptr), GetParam().expected) << offset;
  }
}

TEST_P(ByteInteger, MayBeReadWithoutEndFlag) {
  Reader reader(kBytes, 8);
  EXPECT_EQ(GetParam().read(reader, nullptr), GetParam().expected);
  Reader empty(kBytes, 0);
  EXPECT_EQ(GetParam().read(empty, nullptr), 0);
}

TEST_P(ByteInteger, AtTheEndGives0AndTheFlagAndStays) {
  Reader reader(kBytes, 0);
  uint32_t end = kUntouched;
  EXPECT_EQ(GetParam().read(reader, &end), 0);
  EXPECT_EQ(end, 1u);
  EXPECT_EQ(KELByte_Pos(reader), 0u);
}

TEST_P(ByteInteger, ChecksOnlyItsFirstByte) {
  Reader reader(kBytes, 1);
  uint32_t end = kUntouched;
  EXPECT_EQ(GetParam().read(reader, &end), GetParam().expected);
  EXPECT_EQ(end, 0u);
  EXPECT_EQ(KELByte_Pos(reader), Moved());
  EXPECT_EQ(KELByte_Remain(reader), 1 - Moved()) << "wraps around behind the end";
}

TEST(ByteIntegers, ExtendTheirSign) {
  const uint8_t bytes[] = {0xFF, 0xFE};
  Reader reader(bytes, 2);
  EXPECT_EQ(KELByte_Peek_be_int16(reader, nullptr), -2);
  EXPECT_EQ(KELByte_Peek_be_uint16(reader, nullptr), 65534u);
  EXPECT_EQ(KELByte_Peek_le_int16(reader, nullptr), -257);
  EXPECT_EQ(KELByte_Peek_le_uint16(reader, nullptr), 65279u);
}

TEST(ByteIntegers, PositiveValuesStayPositive) {
  const uint8_t bytes[] = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0};
  Reader reader(bytes, 8);
  EXPECT_EQ(KELByte_Peek_be_int16(reader, nullptr), 0x1234);
  EXPECT_EQ(KELByte_Peek_be_int32(reader, nullptr), 0x12345678);
  EXPECT_EQ(KELByte_Peek_be_int64(reader, nullptr), 0x123456789ABCDEF0);
  EXPECT_EQ(KELByte_Get_3char_be_uint32(reader, nullptr), 0x123456u);
  EXPECT_EQ(KELByte_Pos(reader), 3u);
}

// ---- Characters and strings ----

struct Characters {
  std::string name;
  uint32_t count;
  bool stays;  // a successful read leaves the position
  std::function<void *(KEL_BYTE *, void *, uint32_t *)> read;
};

void PrintTo(const Characters &characters, std::ostream *out) {
  *out << characters.name;
}

const Characters kCharacters[] = {
    {"Get_3char", 3, false, KELByte_Get_3char},
    {"Peek_3char", 3, false, KELByte_Peek_3char},  // consumes all the same
    {"Get_4char", 4, false, KELByte_Get_4char},
    {"Peek_4char", 4, true, KELByte_Peek_4char},
    {"Get_string", 5, false,
     [](KEL_BYTE *r, void *to, uint32_t *end) { return KELByte_Get_string(r, to, 5, end); }},
    {"Peek_string", 5, true,
     [](KEL_BYTE *r, void *to, uint32_t *end) { return KELByte_Peek_string(r, to, 5, end); }},
};

class ByteCharacters : public testing::TestWithParam<Characters> {};
INSTANTIATE_TEST_SUITE_P(Family, ByteCharacters, testing::ValuesIn(kCharacters),
                         [](const auto &characters) { return characters.param.name; });

TEST_P(ByteCharacters, CopiesItsBytesAndNoMore) {
  Reader reader(kBytes, 16);
  uint8_t to[8];
  memset(to, 0xEE, sizeof to);
  uint32_t end = kUntouched;
  EXPECT_EQ(GetParam().read(reader, to, &end), to);
  EXPECT_EQ(end, 0u);
  EXPECT_EQ(memcmp(to, kBytes, GetParam().count), 0);
  EXPECT_EQ(to[GetParam().count], 0xEE);
  EXPECT_EQ(KELByte_Pos(reader), GetParam().stays ? 0 : GetParam().count);
}

TEST_P(ByteCharacters, ExactlyEnoughIsEnough) {
  Reader reader(kBytes, GetParam().count);
  uint8_t to[8];
  uint32_t end = kUntouched;
  EXPECT_EQ(GetParam().read(reader, to, &end), to);
  EXPECT_EQ(end, 0u);
  EXPECT_EQ(KELByte_Pos(reader), GetParam().stays ? 0 : GetParam().count);
}

TEST_P(ByteCharacters, TooFewAreCopiedAndThePositionStaysAtTheEnd) {
  for (uint32_t held = 1; held < GetParam().count; ++held) {
    Reader reader(kBytes, held);
    uint8_t to[8];
    memset(to, 0xEE, sizeof to);
    uint32_t end = kUntouched;
    EXPECT_EQ(GetParam().read(reader, to, &end), nullptr) << held;
    EXPECT_EQ(end, 1u);
    EXPECT_EQ(memcmp(to, kBytes, held), 0);
    EXPECT_EQ(to[held], 0xEE);
    EXPECT_EQ(KELByte_Pos(reader), held);
  }
}

TEST_P(ByteCharacters, AtTheEndGivesNullAndTheFlag) {
  Reader reader(kBytes, 0);
  uint8_t to[8] = {0xEE};
  uint32_t end = kUntouched;
  EXPECT_EQ(GetParam().read(reader, to, &end), nullptr);
  EXPECT_EQ(end, 1u);
  EXPECT_EQ(to[0], 0xEE);
  EXPECT_EQ(KELByte_Pos(reader), 0u);
}

TEST_P(ByteCharacters, BehindTheEndCountsAsTheEnd) {
  Reader reader(kBytes, 1);
  KELByte_Get_be_uint32(reader, nullptr);  // straddles: the position is 4 now
  uint8_t to[8];
  uint32_t end = kUntouched;
  EXPECT_EQ(GetParam().read(reader, to, &end), nullptr);
  EXPECT_EQ(end, 1u);
  EXPECT_EQ(KELByte_Pos(reader), 4u);
}

TEST_P(ByteCharacters, MayBeReadWithoutEndFlag) {
  uint8_t to[8];
  Reader reader(kBytes, 16), empty(kBytes, 0), little(kBytes, 1);
  EXPECT_EQ(GetParam().read(reader, to, nullptr), to);
  EXPECT_EQ(GetParam().read(empty, to, nullptr), nullptr);
  EXPECT_EQ(GetParam().read(little, to, nullptr), nullptr);
}

TEST(ByteString, OfCount0ReturnsAtOnceAndLeavesTheFlag) {
  for (uint32_t size : {0u, 4u}) {
    Reader reader(kBytes, size);
    uint8_t to[1] = {0xEE};
    uint32_t end = kUntouched;
    EXPECT_EQ(KELByte_Get_string(reader, to, 0, &end), to);
    EXPECT_EQ(KELByte_Peek_string(reader, to, 0, &end), to);
    EXPECT_EQ(end, kUntouched);
    EXPECT_EQ(to[0], 0xEE);
  }
}

TEST(BytePeek, OfFourCharactersIsBackWhereItWasAlsoInTheMiddle) {
  Reader reader(kBytes, 16);
  KELByte_Get_3char_be_uint32(reader, nullptr);
  uint8_t to[4];
  EXPECT_EQ(KELByte_Peek_4char(reader, to, nullptr), to);
  EXPECT_EQ(KELByte_Pos(reader), 3u);
  EXPECT_EQ(memcmp(to, kBytes + 3, 4), 0);
}

// ---- Skip ----

TEST(ByteSkip, InsideGivesTheNewPositionAndClearsTheFlag) {
  Reader reader(kBytes, 10);
  uint32_t end = kUntouched;
  EXPECT_EQ(KELByte_Skip(reader, 4, &end), 4u);
  EXPECT_EQ(end, 0u);
  EXPECT_EQ(KELByte_Skip(reader, 5, &end), 9u);
  EXPECT_EQ(KELByte_Pos(reader), 9u);
}

TEST(ByteSkip, ExactlyToTheEndIsTheEnd) {
  Reader reader(kBytes, 10);
  uint32_t end = kUntouched;
  EXPECT_EQ(KELByte_Skip(reader, 10, &end), 0u);
  EXPECT_EQ(end, 1u);
  EXPECT_EQ(KELByte_Pos(reader), 10u);
}

TEST(ByteSkip, BeyondTheEndStopsThere) {
  Reader reader(kBytes, 10);
  uint32_t end = kUntouched;
  KELByte_Get_char(reader, nullptr);
  EXPECT_EQ(KELByte_Skip(reader, 0xFFFFFFFF, &end), 0u) << "the sum does not wrap";
  EXPECT_EQ(end, 1u);
  EXPECT_EQ(KELByte_Pos(reader), 10u);
}

TEST(ByteSkip, By0IsWhereItIs) {
  Reader reader(kBytes, 10);
  uint32_t end = kUntouched;
  EXPECT_EQ(KELByte_Skip(reader, 0, &end), 0u);
  EXPECT_EQ(end, 0u);
  KELByte_Skip(reader, 3, &end);
  end = kUntouched;
  EXPECT_EQ(KELByte_Skip(reader, 0, &end), 3u);
  EXPECT_EQ(end, 0u);
  KELByte_Skip(reader, 7, &end);
  end = kUntouched;
  EXPECT_EQ(KELByte_Skip(reader, 0, &end), 0u) << "at the end";
  EXPECT_EQ(end, 1u);
}

TEST(ByteSkip, OfNothingIsTheEnd) {
  for (const uint32_t count : {0u, 1u}) {
    Reader reader(kBytes, 0);
    uint32_t end = kUntouched;
    EXPECT_EQ(KELByte_Skip(reader, count, &end), 0u);
    EXPECT_EQ(end, 1u);
    EXPECT_EQ(KELByte_Pos(reader), 0u);
  }
}

TEST(ByteSkip, FromBehindTheEndGoesBackToIt) {
  for (const uint32_t count : {0u, 1u}) {
    Reader reader(kBytes, 5);
    uint32_t end = kUntouched;
    KELByte_Skip(reader, 4, &end);
    KELByte_Get_be_uint32(reader, nullptr);
    ASSERT_EQ(KELByte_Pos(reader), 8u);
    EXPECT_EQ(KELByte_Skip(reader, count, &end), 0u);
    EXPECT_EQ(end, 1u);
    EXPECT_EQ(KELByte_Pos(reader), 5u);
  }
}

// Each read again from every position, where the value is not that of the start.
TEST(BytePosition, EveryReadBeginsAtIt) {
  for (uint32_t at = 1; at < 4; ++at) {
    Reader reader(kBytes, 16);
    uint32_t end = kUntouched;
    KELByte_Skip(reader, at, &end);
    uint64_t big = 0, little = 0;
    for (uint32_t i = 0; i < 8; ++i) {
      big = big << 8 | kBytes[at + i];
      little |= uint64_t{kBytes[at + i]} << (8 * i);
    }
    EXPECT_EQ(KELByte_Peek_char(reader, nullptr), kBytes[at]);
    EXPECT_EQ(KELByte_Peek_be_uint16(reader, nullptr), big >> 48);
    EXPECT_EQ(KELByte_Peek_le_uint16(reader, nullptr), little & 0xFFFF);
    EXPECT_EQ(KELByte_Peek_be_uint32(reader, nullptr), big >> 32);
    EXPECT_EQ(KELByte_Peek_le_uint32(reader, nullptr), little & 0xFFFFFFFF);
    EXPECT_EQ(KELByte_Peek_be_uint64(reader, nullptr), big);
    EXPECT_EQ(KELByte_Peek_le_uint64(reader, nullptr), little);
    uint8_t to[8] = {};
    EXPECT_EQ(KELByte_Peek_string(reader, to, 6, nullptr), to);
    EXPECT_EQ(memcmp(to, kBytes + at, 6), 0);
    EXPECT_EQ(KELByte_Peek_4char(reader, to, nullptr), to);
    EXPECT_EQ(memcmp(to, kBytes + at, 4), 0);
    EXPECT_EQ(KELByte_Pos(reader), at) << "no peek moves";
    EXPECT_EQ(KELByte_Get_3char(reader, to, nullptr), to);
    EXPECT_EQ(memcmp(to, kBytes + at, 3), 0);
    EXPECT_EQ(KELByte_Get_3char_be_uint32(reader, nullptr), (big >> 16) & 0xFFFFFF);
    EXPECT_EQ(KELByte_Pos(reader), at + 6);
  }
}

// Byte after byte, as a destination within the data shows.
TEST(ByteOverlap, TheDestinationMayLieInTheData) {
  char forward[] = "abcdefgh";
  KEL_BYTE *reader = KELByte_Open(forward, 8);
  KELByte_Get_string(reader, forward + 2, 6, nullptr);
  EXPECT_STREQ(forward, "abababab");
  KELByte_Close(reader);
  char back[] = "abcdefgh";
  reader = KELByte_Open(back, 8);
  uint32_t end = 0;
  KELByte_Skip(reader, 2, &end);
  KELByte_Get_string(reader, back, 5, nullptr);
  EXPECT_STREQ(back, "cdefgfgh");
  KELByte_Close(reader);
}

}  // namespace
