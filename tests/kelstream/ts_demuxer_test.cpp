// Streams of a transport stream: what is found, where, and when.

#include <gtest/gtest.h>

#include "builders.h"
#include "ts_builder.h"
#include "ts_recorder.h"

namespace kelstream_test {
namespace {

using kelstream::Codec;

constexpr uint32_t kVideo = 256, kSound = 257;

TEST(TsDemuxerTest, Programme) {
  const TsStreamBuilder stream = SampleProgramme(10);
  StreamRecorder found = Demux(stream.bytes());
  EXPECT_EQ(found.remarks, "");
  EXPECT_EQ(found.order, (std::vector<uint32_t>{kVideo, kSound}));
  const auto &video = found.streams[kVideo], &sound = found.streams[kSound];
  EXPECT_TRUE(video.info.has_pid);
  EXPECT_EQ(video.info.codec, Codec::kH264);
  EXPECT_EQ(video.info.type, 0x1Bu);
  EXPECT_EQ(sound.info.codec, Codec::kAac);
  EXPECT_EQ(found.Frames(kVideo), 10u);
  EXPECT_EQ(found.Frames(kSound), 20u);
  EXPECT_EQ(video.formats.size(), 1u);
  Bytes frames;
  for (int i = 0; i < 10; ++i)
    frames += AdtsFrames({}, 2);
  EXPECT_EQ(sound.bytes, frames);
  EXPECT_TRUE(video.times.known);
  EXPECT_EQ(video.times.first, 90000);
  EXPECT_EQ(video.times.last, 90000 + 9 * 3600);
  EXPECT_EQ(sound.times.last, 90000 + 9 * 1920);
  EXPECT_FALSE(found.bad_size);
}

TEST(TsDemuxerTest, PiecesMakeNoDifference) {
  TsStreamBuilder stream = SampleProgramme(5);
  stream.Raw(Bytes(50, 0x47)).Payload(kVideo, Pes({}, Bytes(400, 1)));
  const std::string whole = Demux(stream.bytes()).Text();
  for (const size_t piece : Sizes{1, 7, 187, 188, 189, 1000})
    EXPECT_EQ(Demux(stream.bytes(), piece).Text(), whole) << piece;
}

TEST(TsDemuxerTest, UnitsHaveTheirPlaceAndTime) {
  TsStreamBuilder stream;
  stream.Pat({{1, 4096}}).Pmt(4096, {{0x0F, kSound}});
  const Bytes frames = AdtsFrames({}, 5);  // of 67 to 71 bytes
  ASSERT_EQ(frames.size(), 345u);
  // The second PES packet begins within the third frame.
  stream.Payload(kSound, Pes({.stream_id = 0xC0, .pts = 500}, frames.substr(0, 150)));
  stream.Payload(kSound, Pes({.stream_id = 0xC0, .pts = 900, .dts = true}, frames.substr(150)));
  const StreamRecorder found = Demux(stream.bytes());
  EXPECT_EQ(found.remarks, "");
  const auto &units = found.streams.at(kSound).units;
  ASSERT_EQ(units.size(), 5u);
  // The first packet of sound is stuffed: its 14 + 150 bytes stand at its end.
  EXPECT_EQ(units[0].offset, 3 * 188u - 150);
  EXPECT_EQ(units[1].offset, 3 * 188u - 150 + 67);
  EXPECT_EQ(units[2].offset, 3 * 188u - 150 + 135);
  EXPECT_EQ(units[3].offset, 3 * 188u + 4 + 19 + 54) << "behind the header of 19 bytes";
  EXPECT_TRUE(units[0].has_pts && units[0].pts == 500);
  EXPECT_FALSE(units[1].has_pts || units[2].has_pts);
  EXPECT_TRUE(units[3].has_pts && units[3].pts == 900) << "the first that begins there";
  EXPECT_FALSE(units[4].has_pts);
}

TEST(TsDemuxerTest, TimesTurn) {
  constexpr int64_t kTurn = int64_t{1} << 33;
  TsStreamBuilder stream;
  stream.Pat({{1, 4096}}).Pmt(4096, {{6, 300}});
  for (const int64_t pts : {kTurn - 100, kTurn - 300, int64_t{50}, int64_t{20}, kTurn - 10})
    stream.Payload(300, Pes({.stream_id = 0xBD, .pts = pts}, {1}));
  const auto found = Demux(stream.bytes());
  EXPECT_EQ(found.streams.at(300).times.first, kTurn - 300);
  EXPECT_EQ(found.streams.at(300).times.last, kTurn + 50);
  EXPECT_EQ(found.streams.at(300).units[2].pts, kTurn + 50);
  EXPECT_EQ(found.streams.at(300).units[4].pts, kTurn - 10);

  TsStreamBuilder back;
  back.Pat({{1, 4096}}).Pmt(4096, {{6, 300}});
  for (const int64_t pts : {int64_t{5}, kTurn - 5})
    back.Payload(300, Pes({.stream_id = 0xBD, .pts = pts}, {1}));
  EXPECT_EQ(Demux(back.bytes()).streams.at(300).times.first, -5);
}

TEST(TsDemuxerTest, SeveralProgrammes) {
  TsStreamBuilder stream;
  stream.Pat({{1, 32}, {2, 33}});
  stream.Section(32, PmtSection(1, {{0x0F, 100}, {0x0F, 101}}));
  stream.Section(33, PmtSection(2, {{0x0F, 101}, {0x0F, 102}, {0x1B, 8191}, {0x1B, 32}}));
  for (const uint32_t pid : {100u, 101u, 102u})
    stream.Payload(pid, Pes({.stream_id = 0xC0}, AdtsFrames({}, 4)));
  stream.Payload(8191, Bytes(184, 0xFF)).Payload(103, Bytes(184, 0));
  const auto found = Demux(stream.bytes());
  EXPECT_EQ(found.remarks, "");
  EXPECT_EQ(found.order, (std::vector<uint32_t>{100, 101, 102}))
      << "shared streams once, and none where packets are empty or tables stand";
}

TEST(TsDemuxerTest, OtherStreamsAreCounted) {
  TsStreamBuilder stream;
  stream.Pat({{1, 32}}).Pmt(32, {{0x06, 200}, {0x86, 201}, {0x03, 202}});
  stream.Payload(200, Pes({.stream_id = 0xBD, .pts = 7, .bounded = true}, Bytes(300, 9)));
  stream.Payload(200, Pes({.stream_id = 0xBD, .pts = 9, .bounded = true}, Bytes(20, 8)));
  stream.Payload(200, Pes({.stream_id = 0xBE, .bounded = true}, Bytes(20, 0xFF)));
  const Bytes section = Bytes{0, 0xFC, 0x30, 0x11} + Bytes(20, 0x33);
  stream.Payload(201, section).Payload(201, section);
  const auto found = Demux(stream.bytes());
  EXPECT_EQ(found.remarks, "");
  const auto &packets = found.streams.at(200), &sections = found.streams.at(201);
  EXPECT_EQ(packets.info.codec, Codec::kOther);
  EXPECT_EQ(packets.info.type, 6u);
  EXPECT_EQ(packets.bytes, Bytes(300, 9) + Bytes(20, 8)) << "and padding is no stream";
  ASSERT_EQ(packets.units.size(), 2u);
  EXPECT_EQ(packets.units[1].pts, 9);
  EXPECT_EQ(packets.units[0].offset, 2 * 188u + 4);
  EXPECT_EQ(packets.times.last, 9);
  EXPECT_EQ(sections.bytes, section + section) << "payloads that are no PES packets";
  EXPECT_FALSE(sections.times.known);
  EXPECT_EQ(found.streams.at(202).bytes, Bytes()) << "one that never comes";
}

TEST(TsDemuxerTest, LateTables) {
  TsStreamBuilder stream;
  stream.Payload(kSound, Pes({.stream_id = 0xC0}, AdtsFrames({}, 6)));
  stream.Pat({{1, 32}}).Pmt(32, {{0x0F, kSound}});
  stream.Payload(kSound, Pes({.stream_id = 0xC0}, AdtsFrames({}, 4)));
  EXPECT_EQ(Demux(stream.bytes()).Frames(kSound), 10u) << "what came before counts";
  auto unseen = Demux(stream.bytes(), 0, 188);
  EXPECT_EQ(unseen.Frames(kSound), 4u) << "unless the tables are too far";
}

TEST(TsDemuxerTest, NoTables) {
  TsStreamBuilder stream;
  stream.Payload(kSound, Pes({}, AdtsFrames({}, 6)));
  EXPECT_EQ(Demux(stream.bytes()).remarks,
            "damage 564: no programme map, so the streams are not known\n");
}

TEST(TsDemuxerTest, TypeThatChanges) {
  TsStreamBuilder stream;
  stream.Pat({{1, 32}}).Pmt(32, {{0x0F, kSound}});
  stream.Payload(kSound, Pes({}, AdtsFrames({}, 4)));
  stream.Pmt(32, {{0x1B, kSound}}).Pmt(32, {{0x1B, kSound}, {0x06, 300}});
  const auto found = Demux(stream.bytes(), 0, 188 * 2);
  EXPECT_EQ(found.remarks,
            "note 752: PID 257: the type changes from 15 to 27, which is not followed\n");
  EXPECT_EQ(found.order.size(), 2u) << "streams may come later";
}

TEST(TsDemuxerTest, Scrambled) {
  TsStreamBuilder stream = SampleProgramme(4);
  for (size_t i = 0; i < stream.packets(); ++i)
    if (stream.packet(i)[2] == 1 && stream.packet(i)[1] == 0x41)
      stream.packet(i)[3] |= 0x80;
  const auto found = Demux(stream.bytes());
  EXPECT_NE(found.remarks.find(": PID 257: scrambled, not read\n"), std::string::npos);
  EXPECT_EQ(found.remarks.find("scrambled"), found.remarks.rfind("scrambled")) << "told once";
}

}  // namespace
}  // namespace kelstream_test
