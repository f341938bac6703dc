// Damaged transport streams: what is lost, what is told, and where.

#include <gtest/gtest.h>

#include "builders.h"
#include "ts_builder.h"
#include "ts_recorder.h"

namespace kelstream_test {
namespace {

constexpr uint32_t kSound = 257;

// Two packets of tables, then one packet for each frame of 160 bytes.
class TsDamageTest : public testing::Test {
 protected:
  static constexpr size_t kFrames = 12;
  void SetUp() override {
    stream_.Pat({{1, 32}}).Pmt(32, {{0x0F, kSound}});
    for (size_t i = 0; i < kFrames; ++i)
      stream_.Payload(kSound, Frame());
    ASSERT_EQ(stream_.packets(), 2 + kFrames);
  }
  static Bytes Frame() {
    return Pes({.stream_id = 0xC0, .bounded = true}, AdtsFrame({.payload = Bytes(153, 0x21)}));
  }
  // Expects so many frames, and these remarks in this order.
  void Expect(const Bytes &data, size_t frames, const std::string &remarks) {
    StreamRecorder found = Demux(data);
    EXPECT_EQ(found.Frames(kSound), frames);
    EXPECT_EQ(found.remarks, remarks);
    EXPECT_EQ(Demux(data, 100).Text(), found.Text());
  }
  Bytes Cut(size_t packet, size_t from, size_t count) const {
    Bytes data = stream_.bytes();
    data.erase(packet * 188 + from, count);
    return data;
  }
  TsStreamBuilder stream_;
};

TEST_F(TsDamageTest, None) {
  Expect(stream_.bytes(), kFrames, "");
}

TEST_F(TsDamageTest, GarbageInFront) {
  Expect(Bytes(100, 3) + stream_.bytes(), kFrames,
         "damage 0: 100 bytes before the first packet\n");
}

TEST_F(TsDamageTest, GarbageBetween) {
  Bytes data = stream_.bytes();
  data.insert(5 * 188, Bytes(300, 0x11));
  Expect(data, kFrames, "damage 940: 300 bytes skipped up to the next packet\n");
  data = stream_.bytes();
  data.insert(5 * 188, Bytes(300, 0x47));
  EXPECT_EQ(Demux(data).Frames(kSound), kFrames) << "sync bytes, but no packets";
}

TEST_F(TsDamageTest, GarbageAtTheEnd) {
  Expect(stream_.bytes() + Bytes(100, 3), kFrames,
         "damage 2632: no packet in the last 100 bytes\n");
}

TEST_F(TsDamageTest, EndWithinAPacket) {
  Expect(stream_.bytes() + stream_.bytes().substr(0, 99), kFrames,
         "damage 2632: the file ends within a packet: 99 of 188 bytes\n");
}

TEST_F(TsDamageTest, MissingPacket) {
  Expect(Cut(6, 0, 188), kFrames - 1,
         "damage 1128: PID 257: packets are missing, 1 or 17 or more\n");
}

TEST_F(TsDamageTest, MissingPacketWithinAPesPacketIsToldOnce) {
  stream_.Payload(kSound, Pes({.bounded = true}, AdtsFrame({.payload = Bytes(500, 0x21)})));
  stream_.Payload(kSound, Frame()).Payload(kSound, Frame());
  Bytes data = stream_.bytes();
  data.erase(15 * 188, 188);
  const auto found = Demux(data);
  EXPECT_NE(found.remarks.find("packets are missing"), std::string::npos) << found.remarks;
  EXPECT_EQ(found.remarks.find("PES packet is cut"), std::string::npos) << found.remarks;
}

TEST_F(TsDamageTest, CutPacket) {
  // What is left of it is not believed.
  Expect(Cut(6, 100, 30), kFrames - 1,
         "damage 1128: packet is cut: another one begins after 158 of its bytes\n"
         "damage 1286: PID 257: packets are missing, 1 or 17 or more\n");
}

TEST_F(TsDamageTest, WrongSyncByte) {
  Bytes data = stream_.bytes();
  data[6 * 188] = 0x48;
  Expect(data, kFrames - 1,
         "damage 1128: 188 bytes skipped up to the next packet\n"
         "damage 1316: PID 257: packets are missing, 1 or 17 or more\n");
}

TEST_F(TsDamageTest, MarkedAsDamaged) {
  stream_.packet(6)[1] |= 0x80;
  Expect(stream_.bytes(), kFrames - 1,
         "damage 1128: packet is marked as damaged\n"
         "damage 1316: PID 257: packets are missing, 1 or 17 or more\n");
  stream_.packet(6)[1] &= 0x7F;
  stream_.packet(6)[3] &= 0x0F;
  Expect(stream_.bytes(), kFrames - 1,
         "damage 1128: packet header is damaged\n"
         "damage 1316: PID 257: packets are missing, 1 or 17 or more\n");
}

TEST_F(TsDamageTest, PacketThatIsThereTwice) {
  Bytes data = stream_.bytes();
  data.insert(6 * 188, data.substr(5 * 188, 188));
  Expect(data, kFrames, "");
  data.insert(6 * 188, data.substr(5 * 188, 188));
  EXPECT_NE(Demux(data).remarks, "") << "three times is once too often";
}

TEST_F(TsDamageTest, AnnouncedDiscontinuity) {
  stream_.counter(kSound) += 5;
  const Bytes frame = Frame();
  stream_.Payload(kSound, frame);
  uint8_t *const last = stream_.packet(stream_.packets() - 1);
  ASSERT_GT(last[4], 0u) << "an adaptation field with flags";
  last[5] |= 0x80;
  Expect(stream_.bytes(), kFrames + 1, "");
}

TEST_F(TsDamageTest, DamagedTable) {
  Bytes data = stream_.bytes() + stream_.bytes().substr(0, 188);
  data[14 * 188 + 3] = static_cast<uint8_t>((data[14 * 188 + 3] & 0xF0) | 1);
  data[15 * 188 - 1] ^= 1;
  Expect(data, kFrames, "damage 2632: a table on PID 0 is damaged\n");
}

TEST_F(TsDamageTest, PesWithoutItsStartCode) {
  stream_.packet(6)[188 - 160 - 9] = 9;
  Expect(stream_.bytes(), kFrames - 1,
         "damage 1147: PID 257: PES packet without its start code\n");
}

TEST_F(TsDamageTest, PesWithADamagedHeader) {
  stream_.packet(6)[188 - 160 - 9 + 6] = 0;
  Expect(stream_.bytes(), kFrames, "damage 1147: PID 257: PES header is damaged\n");
}

TEST_F(TsDamageTest, PesWithADamagedTime) {
  stream_.Payload(kSound, Pes({.stream_id = 0xC0, .pts = 5, .bad_marker = true},
                              AdtsFrame({.payload = Bytes(153, 0x21)})));
  const auto found = Demux(stream_.bytes());
  EXPECT_NE(found.remarks.find("PES header is damaged"), std::string::npos);
  EXPECT_FALSE(found.streams.at(kSound).times.known);
}

TEST_F(TsDamageTest, PesWithAWrongLength) {
  const Bytes frame = AdtsFrame({.payload = Bytes(153, 0x21)});
  TsStreamBuilder longer = stream_, shorter = stream_, impossible = stream_;
  longer.Payload(kSound, Pes({.bounded = true, .extra_length = 7}, frame));
  Expect(longer.Payload(kSound, Frame()).bytes(), kFrames + 2,
         "damage 2651: PID 257: PES packet is cut: 7 of its bytes are missing\n");
  shorter.Payload(kSound, Pes({.bounded = true, .extra_length = -7}, frame));
  const auto found = Demux(shorter.bytes());
  EXPECT_EQ(found.remarks,
            "damage 2660: PID 257: the file ends within a frame: 153 of 160 bytes\n");
  impossible.Payload(kSound, Pes({.bounded = true, .extra_length = -162}, frame));
  EXPECT_EQ(Demux(impossible.bytes()).remarks, "damage 2651: PID 257: PES header is damaged\n");
}

TEST_F(TsDamageTest, EndWithinAPesPacket) {
  TsStreamBuilder stream = stream_;
  stream.Payload(kSound, Pes({.bounded = true}, AdtsFrame({.payload = Bytes(400, 0x21)})));
  const Bytes data = stream.bytes();
  Expect(
      data.substr(0, data.size() - 188), kFrames,
      "damage 2636: PID 257: the file ends within a PES packet: 48 of its bytes are missing\n"
      "damage 2645: PID 257: the file ends within a frame: 359 of 407 bytes\n");
}

TEST_F(TsDamageTest, PesHeaderThatIsCut) {
  TsStreamBuilder stream = stream_;
  stream.Payload(kSound, Bytes{0, 0, 1, 0xC0, 0, 0, 0x80, 0x80, 20});
  Expect(stream.Payload(kSound, Frame()).bytes(), kFrames + 1,
         "damage 2811: PID 257: PES header is cut\n");
}

TEST_F(TsDamageTest, HeaderOverSeveralPackets) {
  TsStreamBuilder stream = stream_;
  stream.Payload(kSound, Bytes{0, 0}).Payload(kSound, Bytes{1, 0xC0, 0, 0, 0x80}, false);
  stream.Payload(kSound, Bytes{0x80, 5, 0x21, 0}, false);
  stream.Payload(kSound, Bytes{1, 0, 0x65} + AdtsFrame({}), false);
  const auto found = Demux(stream.bytes());
  EXPECT_EQ(found.remarks, "");
  EXPECT_EQ(found.streams.at(kSound).times.last, 50);
  EXPECT_EQ(found.streams.at(kSound).units.back().pts, 50);
}

TEST_F(TsDamageTest, BeginningWithinAPesPacket) {
  TsStreamBuilder stream;
  stream.Pat({{1, 32}}).Pmt(32, {{0x0F, kSound}});
  stream.Payload(kSound, Bytes(368, 1), false)
      .Payload(kSound, Frame())
      .Payload(kSound, Frame());
  Expect(stream.bytes(), 2, "damage 380: PID 257: 368 bytes before the first PES packet\n");
}

TEST_F(TsDamageTest, StreamThatNeverComes) {
  TsStreamBuilder stream;
  stream.Pat({{1, 32}}).Pmt(32, {{0x0F, kSound}});
  Expect(stream.bytes(), 0, "damage 376: PID 257: the file ends before the stream begins\n");
}

TEST_F(TsDamageTest, RemarksOfTheStreamTellThePlaceInTheFile) {
  Bytes data = stream_.bytes();
  data[6 * 188 + 28] = 0;  // the sync word of its frame
  Expect(data, kFrames - 1, "damage 1156: PID 257: 160 bytes skipped up to the next frame\n");
}

}  // namespace
}  // namespace kelstream_test
