// Headers of ADTS, channel counts, tags.

#include "adts_syntax.h"

#include <gtest/gtest.h>

#include "builders.h"
#include "padded.h"

namespace kelstream_test {
namespace {

TEST(AdtsTest, HeaderFields) {
  const Bytes frame =
      AdtsFrame({.crc = true, .profile = 0, .rate_index = 4, .channels = 6, .blocks = 3});
  const auto header = kelstream::adts::ParseHeader(frame.data());
  ASSERT_TRUE(header);
  EXPECT_EQ(header->sample_rate, 44100u);
  EXPECT_EQ(header->profile, 0u);
  EXPECT_EQ(header->channel_configuration, 6u);
  EXPECT_EQ(header->blocks, 3u);
  EXPECT_TRUE(header->crc);
  EXPECT_EQ(header->frame_length, frame.size());
  EXPECT_EQ(header->DataOffset(), 13u);
}

TEST(AdtsTest, RefusesWhatIsNoHeader) {
  const Bytes good = AdtsFrame({});
  ASSERT_TRUE(kelstream::adts::ParseHeader(good.data()));
  const auto changed = [&](size_t at, uint8_t value) {
    Bytes bytes = good;
    bytes[at] = value;
    return kelstream::adts::ParseHeader(bytes.data());
  };
  EXPECT_FALSE(changed(0, 0xFE));
  EXPECT_FALSE(changed(1, 0xE1));
  EXPECT_FALSE(changed(1, 0xF3)) << "layer";
  EXPECT_FALSE(changed(2, 0x74)) << "sampling frequency 13";
  Bytes tiny = good;
  tiny[3] &= 0xFC;
  tiny[4] = 0;
  tiny[5] = 0xDF;  // a length of 6
  EXPECT_FALSE(kelstream::adts::ParseHeader(tiny.data()));
}

uint32_t ChannelsOf(const AdtsFields &fields) {
  const Bytes frame = AdtsFrame(fields);
  return FormatOf(*kelstream::adts::ParseHeader(frame.data()), Padded(frame)).channels;
}

TEST(AdtsTest, ChannelCounts) {
  for (uint32_t configuration = 1; configuration <= 6; ++configuration)
    EXPECT_EQ(ChannelsOf({.channels = configuration}), configuration);
  EXPECT_EQ(ChannelsOf({.channels = 7}), 8u);
  const Bytes surround = ProgramConfig({false, true}, {true}, {true, false}, 1);
  EXPECT_EQ(ChannelsOf({.channels = 0, .payload = surround}), 9u);
  EXPECT_EQ(ChannelsOf({.crc = true, .channels = 0, .payload = surround}), 9u);
  EXPECT_EQ(ChannelsOf({.channels = 0, .payload = ProgramConfig({false}, {}, {}, 0)}), 1u);
  EXPECT_EQ(ChannelsOf({.channels = 0}), 0u) << "no element, so not known";
  EXPECT_EQ(ChannelsOf({.channels = 0, .payload = surround.substr(0, 6)}), 0u) << "cut";
}

TEST(AdtsTest, ProfileNames) {
  const char *const names[] = {"Main", "LC", "SSR", "LTP"};
  for (uint32_t profile = 0; profile < 4; ++profile) {
    const Bytes frame = AdtsFrame({.profile = profile});
    EXPECT_STREQ(FormatOf(*kelstream::adts::ParseHeader(frame.data()), {}).profile,
                 names[profile]);
  }
  const Bytes reserved = AdtsFrame({.mpeg2 = true, .profile = 3});
  EXPECT_STREQ(FormatOf(*kelstream::adts::ParseHeader(reserved.data()), {}).profile, "3");
}

TEST(TagTest, Id3Sizes) {
  EXPECT_EQ(kelstream::adts::Id3TagSize(Id3v2(1000).data()), 1010u);
  Bytes footer = Id3v2(300000);
  footer[5] = 0x10;
  EXPECT_EQ(kelstream::adts::Id3TagSize(footer.data()), 300020u);
  Bytes bad = Id3v2(5);
  bad[9] = 0x80;
  EXPECT_FALSE(kelstream::adts::Id3TagSize(bad.data()));
}

}  // namespace
}  // namespace kelstream_test
