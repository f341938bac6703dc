// Damaged streams of all kinds, the same ones in every run: nothing crashes or
// hangs, what is found does not depend on the pieces, and units stay in order.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>

#include "adts_splitter.h"
#include "builders.h"
#include "h264_splitter.h"
#include "probe.h"
#include "recorder.h"
#include "ts_builder.h"
#include "ts_recorder.h"

namespace kelstream_test {
namespace {

using kelstream::AdtsSplitter;
using kelstream::H264Splitter;

Bytes Media(const char *name) {
  std::ifstream file(std::string(KELSTREAM_MEDIA) + "/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class Mutator {
 public:
  explicit Mutator(unsigned seed) : random_(seed) {}

  size_t Below(size_t limit) { return limit == 0 ? 0 : random_() % limit; }

  Bytes Mutate(Bytes data) {
    for (size_t count = 1 + Below(8); count > 0 && !data.empty(); --count)
      Once(data);
    return data;
  }

 private:
  uint8_t Byte() {
    // Bytes that mean something come often.
    constexpr uint8_t kTelling[] = {0, 0, 0, 1, 3, 0xFF, 0xF1, 0x67, 0x68, 0x65, 0x41, 0x80};
    return Below(2) == 0 ? kTelling[Below(std::size(kTelling))]
                         : static_cast<uint8_t>(random_());
  }
  void Once(Bytes &data) {
    // Headers are near the beginning of test streams; damage comes there, too.
    const size_t at = Below(Below(2) == 0 ? data.size() : std::min<size_t>(data.size(), 60));
    const size_t length = std::min(Below(30), data.size() - at);
    switch (Below(7)) {
      case 0:
        data[at] ^= static_cast<uint8_t>(1u << Below(8));
        break;
      case 1:
        for (size_t i = 0; i < length; ++i)
          data[at + i] = Byte();
        break;
      case 2:
        data.erase(at, length);
        break;
      case 3: {
        Bytes garbage(length, 0);
        for (uint8_t &byte : garbage)
          byte = Byte();
        data.insert(at, garbage);
        break;
      }
      case 4:
        data.insert(at, data.substr(Below(data.size()), length * 10));
        break;
      case 5:
        data.resize(at);
        break;
      default:
        data[at] = Byte();
        break;
    }
  }
  std::mt19937 random_;
};

template <typename Splitter>
void Check(const Bytes &data, Mutator &random) {
  const Recorder whole = Split<Splitter>(data);
  const Recorder pieces = Split<Splitter>(data, 1 + random.Below(100));
  ASSERT_EQ(pieces.Text(), whole.Text());
  ASSERT_EQ(pieces.contents, whole.contents);
  ASSERT_FALSE(whole.LeftOver());
  ASSERT_EQ(whole.formats.size(), 1u);
  uint64_t offset = 0;
  for (size_t i = 0; i < whole.units.size(); ++i) {
    const auto &unit = whole.units[i];
    ASSERT_GE(unit.offset, offset);
    ASSERT_EQ(unit.size, whole.contents[i].size());
    ASSERT_GT(unit.size, 0u);
    ASSERT_TRUE(!unit.key || unit.frame);
    offset = unit.offset + unit.size;
    ASSERT_LE(offset, data.size());
  }
  kelstream::Probe(data.data(), data.size(), true);
}

TEST(FuzzTest, H264) {
  Mutator random(4711);
  std::vector<Bytes> streams = {H264Stream::Sample(12).bytes(),
                                Media("bars.h264").substr(0, 9000)};
  H264Stream odd;
  odd.sps = {.profile = 244,
             .chroma = 3,
             .scaling_lists = true,
             .poc_type = 1,
             .frame_mbs_only = false,
             .crop = true,
             .right = 3,
             .vui = true,
             .vui_full = true};
  odd.pps = {.cabac = true,
             .pic_order_present = true,
             .slice_groups = 3,
             .map_units = 70,
             .weighted = true,
             .bipred = 1,
             .redundant_pic_cnt = true};
  odd.Parameters().Raw(6, 0, RecoveryPointRbsp()).Idr();
  odd.Slice({.type = kB, .frame_num = 1, .field = true, .reorder = true});
  odd.Slice({.frame_num = 1, .field = true, .bottom = true, .mmco5 = true});
  odd.Raw(14, 3, {1, 2, 3}).P(1, 0).Raw(20, 2, {3, 2, 1}).Append(Bytes(6, 0)).Raw(9, 0, {0xF0});
  streams.push_back(odd.bytes());
  for (int round = 0; round < 1500; ++round)
    for (const Bytes &stream : streams)
      Check<H264Splitter>(random.Mutate(stream), random);
}

TEST(FuzzTest, Adts) {
  Mutator random(815);
  const std::vector<Bytes> streams = {
      AdtsFrames({}, 20), Media("tone.aac").substr(0, 6000),
      Id3v2(30) + AdtsFrames({.crc = true, .blocks = 2}, 10) + Id3v1() + Id3v2(3) +
          AdtsFrame({.channels = 0, .payload = ProgramConfig({true}, {}, {false}, 1)})};
  for (int round = 0; round < 1000; ++round)
    for (const Bytes &stream : streams)
      Check<AdtsSplitter>(random.Mutate(stream), random);
}

void CheckTransportStream(const Bytes &data, Mutator &random) {
  const size_t surveyed = random.Below(2) == 0 ? SIZE_MAX : random.Below(data.size() + 1);
  const StreamRecorder whole = Demux(data, 0, surveyed);
  const StreamRecorder pieces = Demux(data, 1 + random.Below(1000), surveyed);
  ASSERT_EQ(pieces.Text(), whole.Text());
  ASSERT_FALSE(whole.bad_size);
  for (const auto &[number, stream] : whole.streams) {
    ASSERT_EQ(pieces.streams.at(number).bytes, stream.bytes);
    ASSERT_TRUE(stream.open_bytes.empty());
    uint64_t offset = 0;
    for (const auto &unit : stream.units) {
      ASSERT_GE(unit.offset, offset);
      offset = unit.offset + 1;
      ASSERT_LE(offset, data.size());
    }
  }
  kelstream::Probe(data.data(), data.size(), true);
}

TEST(FuzzTest, TransportStream) {
  Mutator random(90);
  TsStreamBuilder other = SampleProgramme(3);
  other.Pat({{1, 4096}, {2, 33}}).Section(33, PmtSection(2, {{6, 300}, {0x86, 301}}, true, 5));
  other.Payload(300,
                Pes({.stream_id = 0xBD, .pts = 5, .dts = true, .bounded = true, .stuffing = 9},
                    Bytes(500, 7)));
  other.Payload(301, Bytes(300, 1));
  const std::vector<Bytes> streams = {SampleProgramme(8).bytes(), other.bytes(),
                                      Media("show.ts").substr(0, 188 * 60)};
  for (int round = 0; round < 600; ++round)
    for (const Bytes &stream : streams)
      CheckTransportStream(random.Mutate(stream), random);
}

// Damage where it hurts: in the headers of packets.
TEST(FuzzTest, TransportStreamHeaders) {
  Mutator random(91);
  const Bytes stream = SampleProgramme(8).bytes();
  for (int round = 0; round < 1500; ++round) {
    Bytes data = stream;
    for (size_t count = 1 + random.Below(6); count > 0; --count)
      data[random.Below(data.size() / 188) * 188 + random.Below(20)] =
          static_cast<uint8_t>(random.Below(256));
    CheckTransportStream(data, random);
  }
}

TEST(FuzzTest, Noise) {
  Mutator random(42);
  for (int round = 0; round < 300; ++round) {
    Bytes noise(random.Below(3000), 0);
    const size_t values = 1 + random.Below(256);
    for (uint8_t &byte : noise)
      byte = static_cast<uint8_t>(random.Below(values) - values / 2);
    Check<H264Splitter>(noise, random);
    Check<AdtsSplitter>(noise, random);
    CheckTransportStream(noise, random);
  }
}

}  // namespace
}  // namespace kelstream_test
