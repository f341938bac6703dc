// The bit and byte readers: every width, every place, and the end.

#include "bit_reader.h"

#include <gtest/gtest.h>

#include <limits>

#include "padded.h"

namespace kelstream_test {
namespace {

using kelstream::BitReader;
using kelstream::ByteReader;
using kelstream::PaddedBytes;

TEST(BitReaderTest, ReadsFieldsOfEveryWidthAtEveryPosition) {
  for (unsigned skip = 0; skip < 8; ++skip) {
    for (unsigned count = 1; count <= 32; ++count) {
      const uint32_t value = 0xA5C3F017u >> (32 - count);
      const PaddedBytes bytes =
          Padded(BitWriter().Bits(skip, 0).Bits(count, value).Bits(8, 0xFF).bytes());
      BitReader bits(bytes);
      bits.Skip(skip);
      EXPECT_EQ(bits.Bits(count), value) << skip << " " << count;
      EXPECT_FALSE(bits.Failed());
    }
  }
}

TEST(BitReaderTest, RunsOutWithoutLeavingTheData) {
  const PaddedBytes bytes = Padded({0xFF, 0xFF});
  BitReader bits(bytes);
  EXPECT_EQ(bits.Bits(15), 0x7FFFu);
  EXPECT_EQ(bits.Bits(2), 0u);
  EXPECT_TRUE(bits.Overrun());
  EXPECT_EQ(bits.Bits(1), 0u) << "nothing comes after the end was met";
  bits.MarkBad();
  EXPECT_FALSE(bits.Bad()) << "what was read behind the end is not to blame";

  BitReader skipping(bytes);
  skipping.Skip(std::numeric_limits<uint64_t>::max());
  EXPECT_TRUE(skipping.Overrun());
}

TEST(BitReaderTest, ReadsExpGolombCodes) {
  for (const uint32_t value :
       {0u, 1u, 2u, 7u, 254u, 65535u, 0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    const PaddedBytes bytes = Padded(BitWriter().Ue(value).Trailing().bytes());
    BitReader bits(bytes);
    EXPECT_EQ(bits.Ue(), value);
    EXPECT_FALSE(bits.MoreData());
    EXPECT_FALSE(bits.Failed());
  }
  for (const int32_t value : {0, 1, -1, 17, -128, 2147483647, -2147483647}) {
    const PaddedBytes bytes = Padded(BitWriter().Se(value).Trailing().bytes());
    BitReader bits(bytes);
    EXPECT_EQ(bits.Se(), value);
    EXPECT_FALSE(bits.Failed());
  }
}

TEST(BitReaderTest, RefusesWhatIsNoExpGolombCode) {
  const PaddedBytes zeros = Padded(Bytes(20, 0));
  BitReader too_long(zeros);
  too_long.Ue();
  EXPECT_TRUE(too_long.Bad());

  const PaddedBytes above = Padded(BitWriter().Bits(32, 0).Flag(true).Bits(32, 1).bytes());
  BitReader too_large(above);
  too_large.Ue();
  EXPECT_TRUE(too_large.Bad());

  const PaddedBytes cut = Padded({0x00, 0x01});
  BitReader short_code(cut);
  EXPECT_EQ(short_code.Ue(), 0u);
  EXPECT_TRUE(short_code.Overrun());
  EXPECT_FALSE(short_code.Bad());

  const PaddedBytes ten = Padded(BitWriter().Ue(10).bytes());
  BitReader limited(ten);
  EXPECT_EQ(limited.UeMax(9), 0u);
  EXPECT_TRUE(limited.Bad());
}

TEST(BitReaderTest, KnowsWhetherMoreThanTheStopBitIsLeft) {
  const PaddedBytes bytes = Padded({0xC0, 0x80, 0x00});
  BitReader bits(bytes);
  EXPECT_TRUE(bits.MoreData());
  bits.Skip(7);
  EXPECT_TRUE(bits.MoreData());
  bits.Skip(1);
  EXPECT_FALSE(bits.MoreData());
  const PaddedBytes none = Padded(Bytes(3, 0));
  EXPECT_FALSE(BitReader(none).MoreData());
}

TEST(ByteReaderTest, StopsAtTheEnd) {
  const PaddedBytes bytes = Padded({1, 2, 3, 4});
  ByteReader reader(bytes);
  EXPECT_EQ(reader.Byte(), 1u);
  reader.Skip(3);
  EXPECT_FALSE(reader.Overrun()) << "the end itself may be reached";
  EXPECT_EQ(reader.Left(), 0u);
  EXPECT_EQ(reader.Byte(), 0u);
  EXPECT_TRUE(reader.Overrun());
  ByteReader skipping(bytes);
  skipping.Skip(5);
  EXPECT_TRUE(skipping.Overrun());
}

}  // namespace
}  // namespace kelstream_test
