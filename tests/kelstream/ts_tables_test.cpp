// Packets and tables of transport streams.

#include "ts_tables.h"

#include <gtest/gtest.h>

#include "es_map.h"
#include "ts_builder.h"
#include "ts_packet.h"

namespace kelstream_test {
namespace {

using kelstream::ts::Answer;
using kelstream::ts::EsMap;
using kelstream::ts::FindPackets;
using kelstream::ts::PacketsAt;
using kelstream::ts::ParsePacket;
using kelstream::ts::SectionAssembler;

Bytes PacketWith(const Bytes &begin) {
  return begin + Bytes(188 - begin.size(), 0x55);
}

TEST(TsPacketTest, Header) {
  const Bytes plain = PacketWith({0x47, 0x5F, 0xFE, 0x1B});
  const auto packet = ParsePacket(plain.data());
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->pid, 0x1FFEu);
  EXPECT_TRUE(packet->start);
  EXPECT_FALSE(packet->error || packet->scrambled || packet->discontinuity);
  EXPECT_EQ(packet->counter, 11u);
  EXPECT_EQ(packet->payload, plain.data() + 4);
  EXPECT_EQ(packet->payload_size, 184u);

  const Bytes flags = PacketWith({0x47, 0x80, 0x01, 0x90});
  ASSERT_TRUE(ParsePacket(flags.data()));
  EXPECT_TRUE(ParsePacket(flags.data())->error && ParsePacket(flags.data())->scrambled);
  EXPECT_FALSE(ParsePacket(flags.data())->start);
}

TEST(TsPacketTest, AdaptationField) {
  const auto parse = [](const Bytes &begin) {
    const Bytes packet = PacketWith(begin);
    const auto parsed = ParsePacket(packet.data());
    return parsed ? std::pair(parsed->payload == nullptr ? -1 : int(parsed->payload_size),
                              parsed->discontinuity)
                  : std::pair(-2, false);
  };
  EXPECT_EQ(parse({0x47, 0, 1, 0x30, 0}), std::pair(183, false)) << "the length alone";
  EXPECT_EQ(parse({0x47, 0, 1, 0x30, 1, 0x80}), std::pair(182, true));
  EXPECT_EQ(parse({0x47, 0, 1, 0x30, 0, 0x80}), std::pair(183, false)) << "no flags there";
  EXPECT_EQ(parse({0x47, 0, 1, 0x30, 183, 0}), std::pair(0, false));
  EXPECT_EQ(parse({0x47, 0, 1, 0x30, 184, 0}), std::pair(-2, false)) << "too long";
  EXPECT_EQ(parse({0x47, 0, 1, 0x20, 183, 0}), std::pair(-1, false)) << "no payload";
  EXPECT_EQ(parse({0x47, 0, 1, 0x00}), std::pair(-2, false)) << "neither";
}

TEST(TsPacketTest, PacketsInARow) {
  const Bytes one = PacketWith({0x47});
  const Bytes three = one + one + one;
  const auto ask = [](const Bytes &data, bool whole, int count) {
    return PacketsAt(data.data(), data.size(), whole, count);
  };
  EXPECT_EQ(ask(three, false, 3), Answer::kYes);
  EXPECT_EQ(ask(three, false, 4), Answer::kWait);
  EXPECT_EQ(ask(three, true, 4), Answer::kYes) << "the file ends";
  EXPECT_EQ(ask(three + Bytes{0}, false, 4), Answer::kNo);
  EXPECT_EQ(ask(three + Bytes{0}, true, 4), Answer::kNo);
  EXPECT_EQ(ask(three + Bytes{0x47, 1}, true, 4), Answer::kYes) << "the last one is cut";
  EXPECT_EQ(ask(one.substr(0, 100), true, 4), Answer::kNo);
  EXPECT_EQ(ask({}, true, 4), Answer::kNo);
}

TEST(TsPacketTest, Search) {
  const Bytes one = PacketWith({0x47});
  const Bytes data = Bytes(7, 0x47) + Bytes(20, 0) + one + one + one + one;
  size_t found = 99;
  EXPECT_EQ(FindPackets(data.data(), data.size(), false, 0, data.size(), found), Answer::kYes);
  EXPECT_EQ(found, 27u);
  EXPECT_EQ(FindPackets(data.data(), data.size(), false, 0, 27, found), Answer::kNo);
  EXPECT_EQ(found, 27u) << "all before the limit is judged";
  EXPECT_EQ(FindPackets(data.data(), 500, false, 0, 500, found), Answer::kWait);
  EXPECT_EQ(found, 27u);
}

class Collected : public SectionAssembler::Handler {
 public:
  void OnSection(const std::vector<uint8_t> &section, bool intact) override {
    sections.emplace_back(section.begin(), section.end());
    good.push_back(intact);
  }
  std::vector<Bytes> sections;
  std::vector<bool> good;
};

void Feed(SectionAssembler &assembler, const Bytes &payload, bool start, Collected &to) {
  assembler.Feed(payload.data(), payload.size(), start, to);
}

TEST(SectionTest, Checksum) {
  const Bytes text = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  EXPECT_EQ(kelstream::ts::SectionCrc(text.data(), text.size()), 0x0376E6E7u);
}

TEST(SectionTest, WholeAndInPieces) {
  const Bytes section = PmtSection(1, {{0x1B, 256}, {0x0F, 257}}, true, 10);
  for (size_t cut = 1; cut < section.size(); ++cut) {
    SectionAssembler assembler;
    Collected to;
    Feed(assembler, Bytes{0} + section.substr(0, cut), true, to);
    Feed(assembler, section.substr(cut) + Bytes(5, 0xFF), false, to);
    ASSERT_EQ(to.sections, std::vector{section}) << cut;
    ASSERT_TRUE(to.good[0]);
  }
}

TEST(SectionTest, PointerEndsTheOneBefore) {
  const Bytes first = PatSection({{1, 32}}), second = PatSection({{2, 33}});
  SectionAssembler assembler;
  Collected to;
  Feed(assembler, Bytes{0} + first.substr(0, 5), true, to);
  const Bytes tail = first.substr(5);
  Feed(assembler, Bytes{static_cast<uint8_t>(tail.size())} + tail + second + second, true, to);
  EXPECT_EQ(to.sections, (std::vector{first, second, second}));
}

TEST(SectionTest, NothingWithoutABeginning) {
  const Bytes section = PatSection({{1, 32}});
  SectionAssembler assembler;
  Collected to;
  Feed(assembler, section, false, to);
  Feed(assembler, {}, true, to);
  Feed(assembler, Bytes{200, 1, 2}, true, to);  // the pointer leads out of the packet
  Feed(assembler, section, false, to);
  Feed(assembler, Bytes{0} + section.substr(0, 6), true, to);
  assembler.OnGap();
  Feed(assembler, section.substr(6), false, to);
  EXPECT_TRUE(to.sections.empty());
  Feed(assembler, Bytes{0} + section, true, to);
  EXPECT_EQ(to.sections.size(), 1u);
}

TEST(SectionTest, Damage) {
  Bytes section = PatSection({{1, 32}});
  section[9] ^= 1;
  SectionAssembler assembler;
  Collected to;
  Feed(assembler, Bytes{0} + section, true, to);
  Feed(assembler, Bytes{0, 0, 0xB0, 2, 1, 1}, true, to);
  EXPECT_EQ(to.good, (std::vector{false, false})) << "a wrong checksum; too short for one";
}

std::vector<uint8_t> Vector(const Bytes &bytes) {
  return {bytes.begin(), bytes.end()};
}

TEST(TablesTest, Pat) {
  const auto programs =
      kelstream::ts::ParsePat(Vector(PatSection({{0, 16}, {1, 32}, {65535, 8190}})));
  ASSERT_EQ(programs.size(), 2u) << "0 is the network's";
  EXPECT_EQ(programs[0].number, 1u);
  EXPECT_EQ(programs[0].map_pid, 32u);
  EXPECT_EQ(programs[1].number, 65535u);
  EXPECT_EQ(programs[1].map_pid, 8190u);
  EXPECT_TRUE(kelstream::ts::ParsePat(Vector(PmtSection(1, {{2, 100}}))).empty());
}

TEST(TablesTest, Pmt) {
  for (const size_t descriptors : Sizes{0, 9}) {
    const auto entries = kelstream::ts::ParsePmt(
        Vector(PmtSection(7, {{0x1B, 256}, {0x86, 8000}}, true, descriptors)));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].type, 0x1Bu);
    EXPECT_EQ(entries[0].pid, 256u);
    EXPECT_EQ(entries[1].type, 0x86u);
    EXPECT_EQ(entries[1].pid, 8000u);
  }
  EXPECT_TRUE(kelstream::ts::ParsePmt(Vector(PmtSection(7, {{0x1B, 256}}, false))).empty())
      << "not yet in force";
  EXPECT_TRUE(kelstream::ts::ParsePmt(Vector(PatSection({{1, 32}}))).empty());
}

TEST(EsMapTest, Places) {
  EsMap map;
  EXPECT_EQ(map.FileOffset(0), 0u);
  map.Append(1000, 100);
  map.Append(1300, 100);
  map.Append(1500, 100);
  EXPECT_EQ(map.size(), 300u);
  EXPECT_EQ(map.FileOffset(0), 1000u);
  EXPECT_EQ(map.FileOffset(99), 1099u);
  EXPECT_EQ(map.FileOffset(100), 1300u);
  EXPECT_EQ(map.FileOffset(250), 1550u);
  map.Forget(250);
  EXPECT_EQ(map.FileOffset(200), 1500u);
  EXPECT_EQ(map.FileOffset(0), 1000u) << "the first byte is always known";
}

TEST(EsMapTest, LongStreamsStayNear) {
  EsMap map;
  for (uint64_t i = 0; i < 100000; ++i)
    map.Append(i * 188, 184);
  for (const uint64_t packet : {5u, 50000u, 99999u}) {
    const uint64_t place = map.FileOffset(packet * 184);
    EXPECT_NEAR(static_cast<double>(place), static_cast<double>(packet * 188), 300 * 188);
  }
}

TEST(EsMapTest, Times) {
  EsMap map;
  map.AppendPts(10);
  map.Append(0, 100);
  map.AppendPts(20);
  map.Append(100, 100);
  map.AppendPts(30);
  EXPECT_EQ(map.TakePts(0), 10);
  EXPECT_EQ(map.TakePts(50), std::nullopt) << "the first unit took it";
  EXPECT_EQ(map.TakePts(250), 30) << "nothing began with 20";
  EXPECT_EQ(map.TakePts(300), std::nullopt);
}

}  // namespace
}  // namespace kelstream_test
