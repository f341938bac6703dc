// Frames of ADTS, tags around them, and the way back after damage.

#include <gtest/gtest.h>

#include "adts_splitter.h"
#include "builders.h"
#include "recorder.h"

namespace kelstream_test {
namespace {

using kelstream::AdtsSplitter;

Recorder Found(const Bytes &data) {
  return Split<AdtsSplitter>(data);
}

Recorder Intact(const Bytes &data) {
  Recorder result = Found(data);
  EXPECT_EQ(result.Remarks(), "");
  return result;
}

TEST(AdtsSplitterTest, FramesAndTheirLength) {
  const Bytes data = AdtsFrames({}, 30);
  const Recorder result = Intact(data);
  EXPECT_EQ(result.Frames(), 30u);
  EXPECT_EQ(result.All(), data);
  ASSERT_EQ(result.formats.size(), 1u);
  EXPECT_EQ(result.formats[0].sample_rate, 48000u);
  EXPECT_EQ(result.formats[0].channels, 2u);
  EXPECT_EQ(result.units[7].samples, 1024u);
  const Recorder blocks = Intact(AdtsFrames({.crc = true, .blocks = 4}, 3));
  EXPECT_EQ(blocks.units[2].samples, 4096u);
}

TEST(AdtsSplitterTest, LargestFrames) {
  const Bytes data = AdtsFrames({.payload = Bytes(8170, 0xFF)}, 100);
  EXPECT_EQ(Intact(data).All(), data);
}

TEST(AdtsSplitterTest, TagsAreNoDamage) {
  const Bytes frames = AdtsFrames({}, 5);
  for (const size_t size : Sizes{0, 1, 300, 400000})
    EXPECT_EQ(Intact(Id3v2(size) + frames + Id3v1()).All(), frames);
  const Bytes file = Id3v2(100) + frames + Id3v1();
  EXPECT_EQ(Intact(file + file).All(), frames + frames);
  EXPECT_NE(Found(frames + Id3v1() + Bytes(1, 0)).Remarks(), "") << "not at the end";
  EXPECT_NE(Found(frames + Id3v1().substr(1)).Remarks(), "");
}

TEST(AdtsSplitterTest, PiecesOfAnySizeGiveTheSame) {
  const Bytes frames = AdtsFrames({}, 20);
  Bytes damaged = frames;
  damaged[300] = 0;
  damaged[501] ^= 0xFF;
  Bytes joined = frames;
  joined.append({1, 2, 3}).append(frames).append(frames, 0, 40);
  for (const Bytes &data : {frames, Id3v2(50) + frames + Id3v1(), Bytes(77, 0xFF) + damaged,
                            joined, frames + Bytes(3, 0xFF)}) {
    const Recorder whole = Found(data);
    for (const size_t piece : Sizes{1, 2, 3, 5, 7, 64, 67, 100, 1000}) {
      const Recorder pieces = Split<AdtsSplitter>(data, piece);
      EXPECT_EQ(pieces.Text(), whole.Text()) << piece;
      EXPECT_EQ(pieces.contents, whole.contents) << piece;
    }
  }
}

TEST(AdtsSplitterTest, TheEndMayBeMissing) {
  const Bytes frames = AdtsFrames({}, 4);
  const Recorder whole = Found(frames);
  const uint64_t last = whole.units[3].offset;
  for (size_t size = last + 1; size < frames.size(); ++size) {
    const Recorder result = Found(frames.substr(0, size));
    EXPECT_EQ(result.Frames(), 3u);
    ASSERT_EQ(result.remarks.size(), 1u) << size;
    EXPECT_EQ(result.remarks[0].offset, last);
  }
  EXPECT_EQ(Intact(frames.substr(0, last)).Frames(), 3u);
}

TEST(AdtsSplitterTest, GarbageBetweenFramesCostsNoFrame) {
  const Bytes frames = AdtsFrames({}, 8);
  const uint64_t at = Found(frames).units[3].offset;
  for (const Bytes &garbage : {Bytes{0}, Bytes(500, 0xFF), Bytes(70000, 0x55)}) {
    Bytes data = frames;
    data.insert(at, garbage);
    const Recorder result = Found(data);
    EXPECT_EQ(result.Frames(), 8u) << garbage.size();
    EXPECT_EQ(result.All(), frames);
    ASSERT_EQ(result.remarks.size(), 1u) << result.Remarks();
    EXPECT_EQ(result.remarks[0].offset, at);
    EXPECT_EQ(result.remarks[0].text,
              std::to_string(garbage.size()) + " bytes skipped up to the next frame");
  }
  // A header among it that no other bears out.
  Bytes header = frames;
  header.insert(at, Bytes(99, 0x55) + AdtsFrame({}).substr(0, 9) + Bytes(99, 0x55));
  EXPECT_EQ(Found(header).All(), frames);
  EXPECT_EQ(Found(header).remarks.size(), 1u);
  // The beginning of another frame.
  Bytes data = frames;
  data.insert(at, AdtsFrame({.rate_index = 5}).substr(0, 9));
  const Recorder result = Found(data);
  EXPECT_EQ(result.All(), frames);
  ASSERT_EQ(result.remarks.size(), 1u);
  EXPECT_EQ(result.remarks[0].offset, at);
}

TEST(AdtsSplitterTest, GarbageInFrontCostsNoFrame) {
  const Bytes frames = AdtsFrames({}, 8);
  for (const size_t size : Sizes{1, 6, 7, 50, 300000}) {
    const Recorder result = Found(Bytes(size, 0xFF) + frames);
    EXPECT_EQ(result.Frames(), 8u);
    ASSERT_EQ(result.remarks.size(), 1u);
    EXPECT_EQ(result.remarks[0].text, std::to_string(size) + " bytes before the first frame");
  }
}

TEST(AdtsSplitterTest, DamagedHeadersCostTheirFrame) {
  const Bytes frames = AdtsFrames({}, 8);
  const uint64_t at = Found(frames).units[3].offset;
  for (size_t byte = 0; byte < 3; ++byte) {
    Bytes data = frames;
    data[at + byte] ^= 0xF0;
    const Recorder result = Found(data);
    EXPECT_GE(result.Frames(), 7u) << byte;
    EXPECT_NE(result.Remarks(), "") << byte;
  }
  // A length that leads beyond the next frames, and one that is too small.
  Bytes longer = frames;
  longer[at + 4] ^= 0x40;
  EXPECT_EQ(Found(longer).Frames(), 7u);
  EXPECT_EQ(Found(longer).remarks.size(), 1u) << Found(longer).Remarks();
  EXPECT_EQ(Found(longer).remarks[0].offset, at);
  Bytes shorter = frames;
  shorter[at + 4] = 2;
  EXPECT_GE(Found(shorter).Frames(), 7u);
  EXPECT_NE(Found(shorter).Remarks(), "");
}

TEST(AdtsSplitterTest, BytesMissingWithinAFrame) {
  Bytes frames = AdtsFrames({}, 8);
  const uint64_t at = Found(frames).units[3].offset;
  frames.erase(at + 20, 11);
  const Recorder result = Found(frames);
  EXPECT_EQ(result.Frames(), 7u);
  ASSERT_EQ(result.remarks.size(), 1u) << result.Remarks();
  EXPECT_EQ(result.remarks[0].offset, at);
}

TEST(AdtsSplitterTest, OtherParametersAreAChangeOrDamage) {
  const Recorder change = Found(AdtsFrames({}, 5) + AdtsFrames({.rate_index = 4}, 5));
  EXPECT_EQ(change.Frames(), 10u);
  ASSERT_EQ(change.remarks.size(), 1u);
  EXPECT_EQ(change.remarks[0].severity, kelstream::Severity::kNote);
  EXPECT_EQ(change.units[7].sample_rate, 44100u);
  const Recorder odd =
      Found(AdtsFrames({}, 5) + AdtsFrame({.rate_index = 4}) + AdtsFrames({}, 5));
  ASSERT_EQ(odd.remarks.size(), 1u);
  EXPECT_EQ(odd.remarks[0].severity, kelstream::Severity::kDamage);
}

TEST(AdtsSplitterTest, NothingAtAll) {
  EXPECT_EQ(Found({}).remarks.size(), 1u);
  EXPECT_EQ(Found(Bytes(5, 0xFF)).Frames(), 0u);
}

}  // namespace
}  // namespace kelstream_test
