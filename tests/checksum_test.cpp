// Every way to compute the checksums, beside the one-byte recurrences. Which of
// them the public functions take depends on the processor, so this looks inside.

#include "internal/checksum.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

namespace checksum = kel::checksum;

std::vector<uint8_t> Noise(size_t size) {
  std::mt19937 random(10);
  std::vector<uint8_t> bytes(size);
  for (uint8_t &byte : bytes)
    byte = static_cast<uint8_t>(random());
  return bytes;
}

uint32_t SlowCrc32(uint32_t r, uint8_t byte) {
  r ^= byte;
  for (int bit = 0; bit < 8; ++bit)
    r = (r & 1) != 0 ? (r >> 1) ^ 0xEDB88320u : r >> 1;
  return r;
}

uint32_t SlowCrc16(uint32_t r, uint8_t byte) {
  uint32_t entry = ((r ^ byte) & 0xFF) << 8;
  for (int bit = 0; bit < 8; ++bit)
    entry = ((entry << 1) ^ ((entry & 0x8000) != 0 ? 0x1021u : 0u)) & 0xFFFF;
  return entry ^ (r >> 8);
}

class Ways : public testing::TestWithParam<size_t> {
 protected:
  void SetUp() override {
    if (!way.usable())
      GTEST_SKIP() << "this processor has not the instructions for " << way.name;
  }
  const checksum::Way &way = checksum::kWays[GetParam()];
};
INSTANTIATE_TEST_SUITE_P(All, Ways, testing::Range(size_t{0}, checksum::kWayCount),
                         [](const auto &index) {
                           return std::string(checksum::kWays[index.param].name);
                         });

TEST_P(Ways, AllShortLengthsAtEveryAlignment) {
  const auto bytes = Noise(2048);
  for (size_t offset = 0; offset < 64; ++offset) {
    const uint8_t *const data = bytes.data() + offset;
    uint32_t slow32 = ~0u, slow16 = 0x1234;
    for (size_t length = 0; length <= 1024; ++length) {
      ASSERT_EQ(way.crc32(~0u, data, length), slow32) << offset << " " << length;
      ASSERT_EQ(way.crc16(0x1234, data, length), slow16) << offset << " " << length;
      slow32 = SlowCrc32(slow32, data[length]);
      slow16 = SlowCrc16(slow16, data[length]);
    }
  }
}

TEST_P(Ways, LongRuns) {
  const auto bytes = Noise(200'000);
  uint32_t slow32 = 0x89ABCDEF, slow16 = 0;
  size_t done = 0;
  for (const size_t length : {1025u, 1535u, 2048u, 2049u, 4095u, 65'536u, 131'071u, 200'000u}) {
    for (; done < length; ++done) {
      slow32 = SlowCrc32(slow32, bytes[done]);
      slow16 = SlowCrc16(slow16, bytes[done]);
    }
    EXPECT_EQ(way.crc32(0x89ABCDEF, bytes.data(), length), slow32) << length;
    EXPECT_EQ(way.crc16(0, bytes.data(), length), slow16) << length;
  }
}

TEST(Checksum, TheFirstUsableWayIsTaken) {
  const auto never = [] { return false; };
  const auto always = [] { return true; };
  const checksum::Way ways[] = {{"none", never, nullptr, nullptr},
                                {"nor this", never, nullptr, nullptr},
                                {"this", always, nullptr, nullptr},
                                {"not needed", always, nullptr, nullptr}};
  EXPECT_EQ(&checksum::first_usable(ways), &ways[2]);
  EXPECT_EQ(&checksum::first_usable(ways + 3), &ways[3]);
}

TEST(Checksum, TheBestWayIsUsable) {
  EXPECT_TRUE(checksum::best().usable());
  EXPECT_TRUE(checksum::kWays[checksum::kWayCount - 1].usable()) << "tables are, everywhere";
}

}  // namespace
