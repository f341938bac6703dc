// Access units of H.264: where they begin, and which make a frame.

#include "h264_checks.h"
#include "nal_scanner.h"

namespace kelstream_test {
namespace {

using kelstream::H264Splitter;

TEST(FindZeroPairTest, FindsTheFirstPairAnywhere) {
  for (size_t size = 0; size < 150; ++size) {
    for (size_t at = 0; at + 1 < size; ++at) {
      Bytes data(size, 0x80);
      data[at] = data[at + 1] = 0;
      if (at >= 2)
        data[at - 2] = 0;  // a single one in front
      const uint8_t *const end = data.data() + size;
      ASSERT_EQ(kelstream::h264::FindZeroPair(data.data(), end), data.data() + at);
    }
    Bytes alternating(size, 1);
    for (size_t i = 0; i < size; i += 2)
      alternating[i] = 0;
    const uint8_t *const end = alternating.data() + size;
    ASSERT_EQ(kelstream::h264::FindZeroPair(alternating.data(), end), end);
  }
}

TEST(H264SplitterTest, PicturesOfSeveralSlices) {
  const H264Stream stream = H264Stream::Sample(9);
  const Recorder result = Intact(stream);
  EXPECT_EQ(result.Frames(), 9u);
  EXPECT_EQ(result.KeyFrames(), 1u);
  EXPECT_EQ(result.units.size(), 9u);
  ASSERT_EQ(result.formats.size(), 1u);
  EXPECT_EQ(result.formats[0].width, 640u);
  EXPECT_EQ(result.formats[0].height, 368u);
  EXPECT_EQ(result.formats[0].rate_numerator, 50u);
}

TEST(H264SplitterTest, PiecesOfAnySizeGiveTheSame) {
  H264Stream stream = H264Stream::Sample(6);
  stream.Append(Bytes(5, 0)).Raw(9, 0, {0xF0}).Parameters().Raw(6, 0, RecoveryPointRbsp());
  stream.Append({0, 0, 1}).Append({0, 0, 1, 0xE1}).Append({0, 0, 0, 0, 7});
  stream.P(9, 40).Raw(14, 3, {0x40, 1, 2}).P(10, 44).Append({0, 0});
  for (const Bytes &data :
       {stream.bytes(), Bytes{1, 0, 2, 0, 0} + stream.bytes(), Bytes(9, 0) + stream.bytes()}) {
    const Recorder whole = Split<H264Splitter>(data);
    EXPECT_NE(whole.Remarks(), "");
    for (const size_t piece : Sizes{1, 2, 3, 4, 5, 7, 16, 61, 64, 100, 257, 1000}) {
      const Recorder pieces = Split<H264Splitter>(data, piece);
      EXPECT_EQ(pieces.Text(), whole.Text()) << piece;
      EXPECT_EQ(pieces.contents, whole.contents) << piece;
    }
  }
}

TEST(H264SplitterTest, EachFieldOfTheHeaderBeginsAPicture) {
  struct Case {
    const char *what;
    SpsFields sps;
    PpsFields pps;
    SliceFields first, second;
  };
  const SliceFields base = {.frame_num = 1, .poc_lsb = 2};
  SliceFields frame_num = base, non_ref = base, poc = base, first_mb = base;
  frame_num.frame_num = 2;
  non_ref.ref_idc = 0;
  poc.poc_lsb = 4;
  SliceFields top = base, bottom = base;
  top.field = bottom.field = bottom.bottom = true;
  const SliceFields idr = {.nal_type = 5, .ref_idc = 3, .type = kI, .idr_pic_id = 1};
  SliceFields other_idr = idr, no_idr = {.ref_idc = 3, .type = kI};
  other_idr.idr_pic_id = 2;
  first_mb.first_mb = 500;
  const SpsFields fields = {.frame_mbs_only = false};
  for (const Case &c : {Case{"frame_num", {}, {}, base, frame_num},
                        {"nal_ref_idc", {}, {}, base, non_ref},
                        {"pic_order_cnt_lsb", {}, {}, base, poc},
                        {"field_pic", fields, {}, base, top},
                        {"bottom_field", fields, {}, top, bottom},
                        {"idr_pic_id", {}, {}, idr, other_idr},
                        {"idr", {}, {}, idr, no_idr}}) {
    H264Stream stream;
    stream.sps = c.sps;
    stream.Parameters().Idr().Slice(c.first).Slice(c.second);
    EXPECT_EQ(Found(stream).units.size(), 3u) << c.what;
  }
  H264Stream same;
  same.Parameters().Idr().Slice(base).Slice(first_mb);
  EXPECT_EQ(Intact(same).units.size(), 2u) << "another slice of the same picture";
  SliceFields high_ref = first_mb;
  high_ref.ref_idc = 1;
  same.Slice(high_ref);
  EXPECT_EQ(Found(same).units.size(), 2u) << "only zero and not zero differ";
}

TEST(H264SplitterTest, AnotherPpsBeginsAPicture) {
  H264Stream stream;
  stream.Parameters();
  stream.Raw(8, 3, PpsRbsp({.id = 1}));
  stream.Idr().Slice({.ref_idc = 0, .frame_num = 1, .poc_lsb = 2});
  stream.Slice({.ref_idc = 0, .pps_id = 1, .frame_num = 1, .poc_lsb = 2});
  EXPECT_EQ(Intact(stream).Frames(), 3u);
}

TEST(H264SplitterTest, UnitsBeginAtTheNalUnitsInFront) {
  for (const uint8_t type : Bytes{6, 7, 8, 9, 15, 16, 17, 18}) {
    H264Stream stream;
    stream.Parameters().Idr();
    const size_t boundary = stream.size();
    const Bytes rbsp = type == 6   ? Bytes{5, 1, 0x77, 0x80}
                       : type == 7 ? SpsRbsp({})
                       : type == 8 ? PpsRbsp({})
                                   : Bytes{0xF0};
    stream.Raw(type, type == 6 || type == 9 ? 0 : 3, rbsp).P(1, 2);
    const Recorder result = Intact(stream);
    ASSERT_EQ(result.units.size(), 2u) << int{type};
    EXPECT_EQ(result.units[1].offset, boundary) << int{type};
  }
}

TEST(H264SplitterTest, OtherNalUnitsStayWithTheirPicture) {
  H264Stream stream;
  stream.Parameters().Idr();
  for (const uint8_t type : Bytes{12, 19, 20, 21, 10, 24, 31})
    stream.Raw(type, type == 12 || type == 10 ? 0 : 1, {0xFF, 0x80});
  EXPECT_EQ(Intact(stream).units.size(), 1u);
  EXPECT_EQ(Intact(stream).Frames(), 1u) << "layers, views and alpha are no frames";
}

TEST(H264SplitterTest, PrefixNalUnitsGoWithTheSliceBehindThem) {
  H264Stream stream;
  const Bytes prefix = {0x40, 0x80, 0x07};
  stream.Parameters().Raw(14, 3, prefix).Idr();
  stream.Raw(14, 3, prefix).Slice({.nal_type = 5, .ref_idc = 3, .first_mb = 400, .type = kI});
  const size_t boundary = stream.size();
  stream.Raw(14, 3, prefix).P(1, 2);
  stream.Raw(14, 3, prefix).Slice({.first_mb = 400, .frame_num = 1, .poc_lsb = 2});
  stream.Raw(20, 2, {0x40, 0x80, 0x07, 0x55});
  const size_t second = stream.size();
  stream.Raw(14, 3, prefix).Raw(9, 0, {0xF0}).P(2, 4);
  const Recorder result = Intact(stream);
  ASSERT_EQ(result.units.size(), 3u);
  EXPECT_EQ(result.units[1].offset, boundary);
  EXPECT_EQ(result.units[2].offset, second) << "no slice follows: it begins a unit";
}

TEST(H264SplitterTest, FieldsMakeFrames) {
  H264Stream stream;
  stream.sps.frame_mbs_only = false;
  stream.Parameters();
  // IDR field and its P field, a reference pair, a non-reference pair, a frame.
  stream.Slice({.nal_type = 5, .ref_idc = 3, .type = kI, .field = true});
  stream.Slice({.field = true, .bottom = true, .poc_lsb = 1});
  for (const bool second : {false, true})
    stream.Slice({.frame_num = 1, .field = true, .bottom = !second, .poc_lsb = 4});
  for (const bool second : {false, true})
    stream.Slice({.ref_idc = 0, .frame_num = 2, .field = true, .bottom = second, .poc_lsb = 2});
  stream.Slice({.frame_num = 2, .poc_lsb = 8});
  const Recorder result = Intact(stream);
  EXPECT_EQ(result.units.size(), 7u);
  EXPECT_EQ(result.Frames(), 4u);
  EXPECT_EQ(result.KeyFrames(), 1u);
}

TEST(H264SplitterTest, FieldsThatMakeNoPair) {
  H264Stream stream;
  stream.sps.frame_mbs_only = false;
  stream.Parameters();
  stream.Slice({.nal_type = 5, .ref_idc = 3, .type = kI, .field = true});
  // Same parity, then other frame_num, then three of one frame_num.
  stream.Slice({.frame_num = 1, .field = true, .poc_lsb = 2});
  stream.Slice({.frame_num = 2, .field = true, .bottom = true, .poc_lsb = 5});
  stream.Slice({.frame_num = 2, .field = true, .poc_lsb = 6});
  stream.Slice({.frame_num = 2, .field = true, .bottom = true, .poc_lsb = 7});
  EXPECT_EQ(Found(stream).Frames(), 4u);
  H264Stream same_parity;
  same_parity.sps.frame_mbs_only = false;
  same_parity.Parameters().Idr();
  for (const uint32_t poc_lsb : {2u, 4u})
    same_parity.Slice({.ref_idc = 0, .frame_num = 1, .field = true, .poc_lsb = poc_lsb});
  EXPECT_EQ(Found(same_parity).Frames(), 3u);
  // Two IDR pictures of one field each.
  H264Stream idrs;
  idrs.sps.frame_mbs_only = false;
  idrs.Parameters();
  for (const bool bottom : {false, true})
    idrs.Slice({.nal_type = 5,
                .ref_idc = 3,
                .type = kI,
                .field = true,
                .bottom = bottom,
                .idr_pic_id = bottom ? 1u : 0u});
  EXPECT_EQ(Found(idrs).KeyFrames(), 2u);
}

TEST(H264SplitterTest, RedundantSlicesAndPartitions) {
  H264Stream stream;
  stream.pps.redundant_pic_cnt = true;
  stream.sps.profile = 88;
  stream.Parameters().Idr();
  stream.Slice({.nal_type = 5, .ref_idc = 3, .type = kI, .redundant = 1});
  stream.Slice({.nal_type = 2, .frame_num = 1, .poc_lsb = 2});
  stream.Raw(3, 2, {0x80, 0x12}).Raw(4, 2, {0x80, 0x34});
  stream.Slice({.nal_type = 2, .first_mb = 300, .frame_num = 1, .poc_lsb = 2});
  stream.Slice({.frame_num = 1, .poc_lsb = 3, .redundant = 2});
  EXPECT_EQ(Intact(stream).Frames(), 2u);
}

}  // namespace
}  // namespace kelstream_test
