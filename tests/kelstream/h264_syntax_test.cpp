// Parameter sets, slice headers and SEI of H.264.

#include "h264_syntax.h"

#include <gtest/gtest.h>

#include "builders.h"
#include "padded.h"

namespace kelstream_test {
namespace {

using kelstream::PaddedBytes;
using kelstream::h264::FindRecoveryPoint;
using kelstream::h264::Parse;

TEST(NalTest, EmulationPreventionIsRemoved) {
  const Bytes raw = {0, 0, 1, 0, 0, 0, 0, 0, 3, 9, 0, 0};
  const Bytes escaped = Escape(raw);
  EXPECT_GT(escaped.size(), raw.size());
  PaddedBytes rbsp;
  kelstream::h264::Unescape(escaped.data(), escaped.size(), rbsp);
  EXPECT_EQ(Bytes(rbsp.data(), rbsp.size()), raw);
  // The one that protects zeros at the end.
  const Bytes last = {5, 0, 0, 3};
  kelstream::h264::Unescape(last.data(), last.size(), rbsp);
  EXPECT_EQ(Bytes(rbsp.data(), rbsp.size()), (Bytes{5, 0, 0}));
}

kelstream::h264::Sps ParsedSps(const SpsFields &fields) {
  kelstream::h264::Sps sps;
  EXPECT_EQ(ParseSps(Padded(SpsRbsp(fields)), sps), Parse::kOk);
  return sps;
}

TEST(SpsTest, SizeWithCropping) {
  struct Case {
    uint32_t chroma;
    bool separate, frame_mbs_only;
    uint32_t width, height;  // 640x736 (or 368) less the cropping of 1, 2, 3, 4 units
  };
  for (const Case &c : {Case{0, false, true, 640 - 3, 368 - 7},
                        {1, false, true, 634, 354},
                        {2, false, true, 634, 361},
                        {3, false, true, 637, 361},
                        {3, true, true, 637, 361},
                        {0, false, false, 637, 736 - 14},
                        {1, false, false, 634, 736 - 28},
                        {2, false, false, 634, 722},
                        {3, false, false, 637, 722}}) {
    const auto sps = ParsedSps({.profile = 244,
                                .chroma = c.chroma,
                                .separate_planes = c.separate,
                                .frame_mbs_only = c.frame_mbs_only,
                                .crop = true,
                                .left = 1,
                                .right = 2,
                                .top = 3,
                                .bottom = 4});
    EXPECT_EQ(sps.width, c.width) << c.chroma << c.separate << c.frame_mbs_only;
    EXPECT_EQ(sps.height, c.height) << c.chroma << c.separate << c.frame_mbs_only;
  }
}

TEST(SpsTest, CroppingAwayThePictureIsDamage) {
  kelstream::h264::Sps sps;
  const PaddedBytes rbsp = Padded(SpsRbsp({.crop = true, .left = 160, .right = 160}));
  EXPECT_EQ(ParseSps(rbsp, sps), Parse::kInvalid);
  const PaddedBytes huge =
      Padded(SpsRbsp({.crop = true, .left = 0xFFFFFFFF, .right = 0xFFFFFFFF}));
  EXPECT_EQ(ParseSps(huge, sps), Parse::kInvalid);
}

TEST(SpsTest, AllOptionalParts) {
  for (const uint32_t chroma : {1u, 3u}) {
    const auto sps = ParsedSps({.profile = 244,
                                .id = 31,
                                .chroma = chroma,
                                .scaling_lists = true,
                                .frame_num_bits = 16,
                                .poc_type = 1,
                                .gaps_allowed = true,
                                .frame_mbs_only = false,
                                .mbaff = true,
                                .vui = true,
                                .vui_full = true,
                                .num_units_in_tick = 1001,
                                .time_scale = 60000});
    EXPECT_EQ(sps.id, 31u);
    EXPECT_EQ(sps.chroma_format_idc, chroma);
    EXPECT_EQ(sps.frame_num_bits, 16u);
    EXPECT_EQ(sps.poc_type, 1u);
    EXPECT_TRUE(sps.delta_pic_order_always_zero);
    EXPECT_TRUE(sps.frame_num_gaps_allowed);
    EXPECT_FALSE(sps.frame_mbs_only);
    EXPECT_TRUE(sps.mb_adaptive_frame_field);
    const auto format = FormatOf(sps);
    EXPECT_EQ(format.rate_numerator, 60000u);
    EXPECT_EQ(format.rate_denominator, 2002u);
  }
}

TEST(SpsTest, NoFrameRateWithoutTiming) {
  EXPECT_EQ(FormatOf(ParsedSps({})).rate_numerator, 0u);
  EXPECT_EQ(FormatOf(ParsedSps({.vui = true, .num_units_in_tick = 0})).rate_numerator, 0u);
  EXPECT_EQ(FormatOf(ParsedSps({.vui = true, .time_scale = 0})).rate_numerator, 0u);
}

TEST(SpsTest, EveryCutIsNoticed) {
  const Bytes whole = SpsRbsp({.vui = true, .vui_full = true});
  kelstream::h264::Sps sps;
  for (size_t size = 0; size < whole.size(); ++size)
    EXPECT_NE(ParseSps(Padded(whole.substr(0, size)), sps), Parse::kOk) << size;
  EXPECT_EQ(ParseSps(Padded(whole + Bytes{0x55}), sps), Parse::kInvalid) << "more than the SPS";
}

TEST(SpsTest, ProfileNames) {
  struct Case {
    uint32_t profile, constraints;
    const char *name;
  };
  for (const Case &c : {Case{66, 0, "Baseline"},
                        {66, 0x40, "Constrained Baseline"},
                        {77, 0x40, "Main"},
                        {88, 0, "Extended"},
                        {100, 0, "High"},
                        {110, 0, "High 10"},
                        {110, 0x10, "High 10 Intra"},
                        {122, 0, "High 4:2:2"},
                        {122, 0x10, "High 4:2:2 Intra"},
                        {244, 0, "High 4:4:4 Predictive"},
                        {44, 0x10, "CAVLC 4:4:4 Intra"},
                        {99, 0, "99"}}) {
    const auto sps = ParsedSps({.profile = c.profile, .constraints = c.constraints});
    EXPECT_STREQ(FormatOf(sps).profile, c.name);
  }
}

TEST(PpsTest, AllOptionalParts) {
  kelstream::h264::Pps pps;
  const PaddedBytes rbsp = Padded(PpsRbsp({.id = 255,
                                           .sps_id = 31,
                                           .cabac = true,
                                           .pic_order_present = true,
                                           .slice_groups = 3,
                                           .map_units = 1000,
                                           .weighted = true,
                                           .bipred = 1,
                                           .deblocking_control = true,
                                           .redundant_pic_cnt = true,
                                           .high_part = true}));
  ASSERT_EQ(ParsePps(rbsp, pps), Parse::kOk);
  EXPECT_EQ(pps.id, 255u);
  EXPECT_EQ(pps.sps_id, 31u);
  EXPECT_TRUE(pps.entropy_coding_mode && pps.pic_order_present && pps.weighted_pred &&
              pps.deblocking_control_present && pps.redundant_pic_cnt_present);
  EXPECT_EQ(pps.num_slice_groups, 3u);
  EXPECT_EQ(pps.num_ref_idx_active[0], 2u);
  EXPECT_EQ(pps.weighted_bipred_idc, 1u);
  EXPECT_EQ(pps.pic_init_qp, 22);
}

TEST(PpsTest, EveryCutIsNoticed) {
  const Bytes whole = PpsRbsp({.id = 3});
  kelstream::h264::Pps pps;
  for (size_t size = 0; size < whole.size(); ++size)
    EXPECT_NE(ParsePps(Padded(whole.substr(0, size)), pps), Parse::kOk) << size;
}

struct SliceCase {
  SpsFields sps;
  PpsFields pps;
  SliceFields slice;
};

std::vector<SliceCase> SliceCases() {
  return {
      {{}, {}, {.nal_type = 5, .ref_idc = 3, .type = 7, .idr_pic_id = 65535}},
      {{.frame_num_bits = 16}, {.cabac = true}, {.frame_num = 65535, .poc_lsb = 200}},
      {{.separate_planes = true}, {}, {.frame_num = 3}},
      {{.frame_mbs_only = false}, {.pic_order_present = true}, {.field = true, .bottom = true}},
      {{.poc_type = 1}, {.weighted = true}, {.reorder = true}},
      {{.poc_type = 2}, {.weighted = true, .bipred = 1}, {.type = kB, .reorder = true}},
      {{}, {.cabac = true, .weighted = true, .bipred = 1}, {.ref_idc = 0, .type = kB}},
      {{}, {.deblocking_control = true, .redundant_pic_cnt = true}, {.redundant = 1}},
      {{}, {.pic_order_present = true}, {.first_mb = 919, .mmco5 = true}},
  };
}

TEST(SliceTest, HeadersOfAllKinds) {
  for (SliceCase &c : SliceCases()) {
    if (c.sps.separate_planes)
      c.sps.profile = 244, c.sps.chroma = 3;
    const auto sps = ParsedSps(c.sps);
    kelstream::h264::Pps pps;
    ASSERT_EQ(ParsePps(Padded(PpsRbsp(c.pps)), pps), Parse::kOk);
    const uint8_t header = static_cast<uint8_t>(c.slice.ref_idc << 5 | c.slice.nal_type);
    c.slice.payload = 0;
    const Bytes rbsp = SliceRbsp(c.slice, c.sps, c.pps);
    kelstream::h264::SliceHeader slice;
    const kelstream::h264::NalHeader nal(header);
    ASSERT_EQ(ParseSliceHeader(Padded(rbsp), nal, sps, pps, slice), Parse::kOk);
    EXPECT_EQ(slice.first_mb, c.slice.first_mb);
    EXPECT_EQ(slice.frame_num, c.slice.frame_num);
    EXPECT_EQ(slice.field, c.slice.field);
    EXPECT_EQ(slice.bottom, c.slice.bottom);
    EXPECT_EQ(slice.idr, c.slice.nal_type == 5);
    EXPECT_EQ(slice.idr_pic_id, c.slice.idr_pic_id);
    EXPECT_EQ(slice.poc_lsb, c.slice.poc_lsb);
    EXPECT_EQ(slice.redundant_pic_cnt, c.slice.redundant);
    EXPECT_EQ(slice.mmco5, c.slice.mmco5);
    EXPECT_EQ(slice.Intra(), c.slice.type % 5 == kI);
    // The last byte may hold nothing but the end.
    for (size_t size = 0; size + 1 < rbsp.size(); ++size)
      EXPECT_EQ(ParseSliceHeader(Padded(rbsp.substr(0, size)), nal, sps, pps, slice),
                Parse::kShort);
  }
}

TEST(SliceTest, ImpossibleValuesAreDamage) {
  const auto sps = ParsedSps({});
  kelstream::h264::Pps pps;
  ASSERT_EQ(ParsePps(Padded(PpsRbsp({})), pps), Parse::kOk);
  const auto parse = [&](const SliceFields &fields) {
    kelstream::h264::SliceHeader slice;
    const kelstream::h264::NalHeader nal(
        static_cast<uint8_t>(fields.ref_idc << 5 | fields.nal_type));
    return ParseSliceHeader(Padded(SliceRbsp(fields, {}, {})), nal, sps, pps, slice);
  };
  EXPECT_EQ(parse({.first_mb = 919}), Parse::kOk);
  EXPECT_EQ(parse({.first_mb = 920}), Parse::kInvalid) << "behind the picture";
  EXPECT_EQ(parse({.type = 10}), Parse::kInvalid);
  EXPECT_EQ(parse({.nal_type = 5, .type = kP}), Parse::kInvalid) << "IDR with references";
  EXPECT_EQ(parse({.nal_type = 5, .ref_idc = 0, .type = kI}), Parse::kInvalid);
  EXPECT_EQ(parse({.pps_id = 256}), Parse::kInvalid);
}

TEST(SeiTest, RecoveryPointIsFound) {
  bool found = false;
  const Bytes with = RecoveryPointRbsp();
  EXPECT_EQ(FindRecoveryPoint(Padded(with), found), Parse::kOk);
  EXPECT_TRUE(found);
  EXPECT_EQ(FindRecoveryPoint(Padded({5, 2, 6, 6, 0x80}), found), Parse::kOk);
  EXPECT_FALSE(found) << "a payload is not a message";
  for (size_t size = 0; size < with.size(); ++size)
    EXPECT_EQ(FindRecoveryPoint(Padded(with.substr(0, size)), found), Parse::kShort) << size;
}

}  // namespace
}  // namespace kelstream_test
