// Damage of H.264 streams: what is told, and that intact ones raise no alarm.

#include "h264_checks.h"

namespace kelstream_test {
namespace {

using kelstream::H264Splitter;

TEST(H264DamageTest, NumberingWithoutGaps) {
  H264Stream stream;
  stream.Parameters().Idr();
  for (uint32_t i = 1; i < 40; ++i)
    stream.P(i % 16, 2 * i);
  stream.P(8, 80, 0).P(8, 82, 0).P(8, 84);  // non-reference pictures count ahead
  stream.Slice({.frame_num = 9, .poc_lsb = 86, .mmco5 = true});
  stream.P(1, 4).P(2, 6, 0).Idr(1).P(1, 2);
  Intact(stream);
}

TEST(H264DamageTest, NumberingOfFieldsAfterAReset) {
  H264Stream stream;
  stream.sps.frame_mbs_only = false;
  stream.Parameters();
  stream.Slice({.nal_type = 5, .ref_idc = 3, .type = kI, .field = true});
  stream.Slice({.field = true, .bottom = true, .poc_lsb = 1});
  stream.Slice({.frame_num = 1, .field = true, .poc_lsb = 2, .mmco5 = true});
  stream.Slice({.frame_num = 0, .field = true, .bottom = true, .poc_lsb = 1});
  stream.P(1, 8);
  EXPECT_EQ(Intact(stream).Frames(), 3u);
}

TEST(H264DamageTest, MissingReferencePicturesAreToldOnce) {
  H264Stream stream;
  stream.Parameters().Idr().P(1, 2);
  const size_t gap = stream.size();
  stream.P(4, 8, 0).P(4, 10, 0).P(4, 12).P(5, 14);
  const Recorder result = Found(stream);
  ASSERT_EQ(result.remarks.size(), 1u) << result.Remarks();
  EXPECT_EQ(result.remarks[0].offset, gap);
  EXPECT_TRUE(Tells(result, "frame_num goes from 1 to 4"));
  EXPECT_EQ(result.Frames(), 6u);

  H264Stream allowed;
  allowed.sps.gaps_allowed = true;
  allowed.Parameters().Idr().P(1, 2).P(4, 8).P(7, 10, 0).P(7, 12);
  Intact(allowed);
}

TEST(H264DamageTest, WhereDecodingCanStart) {
  H264Stream p;
  p.Parameters().P(3, 2).P(4, 4);
  EXPECT_TRUE(Tells(Found(p), "decoding cannot start"));
  H264Stream i;
  i.Parameters().Slice({.type = kI, .frame_num = 3}).P(4, 4);
  EXPECT_EQ(Intact(i).KeyFrames(), 0u);
  H264Stream recovery;
  recovery.Parameters().Raw(6, 0, RecoveryPointRbsp()).P(3, 2).P(4, 4);
  Intact(recovery);
}

TEST(H264DamageTest, MissingSlices) {
  const SliceFields late = {.first_mb = 400, .frame_num = 1, .poc_lsb = 2};
  H264Stream stream;
  stream.Parameters().Idr().Slice(late);
  EXPECT_TRUE(Tells(Found(stream), "begins at macroblock 400"));
  // Where slices may come in any order nothing is known to be missing.
  H264Stream baseline;
  baseline.sps.profile = 66;
  baseline.Parameters().Idr().Slice(late);
  Intact(baseline);
  H264Stream groups;
  groups.pps.slice_groups = 2;
  groups.pps.map_units = 920;
  groups.Parameters().Idr().Slice(late);
  Intact(groups);
}

TEST(H264DamageTest, PictureSizeMayChange) {
  H264Stream stream;
  stream.Parameters().Idr();
  stream.sps.width_in_mbs = 20;
  const size_t change = stream.size();
  stream.Parameters().Idr(1).P(1, 2);
  const Recorder result = Found(stream);
  ASSERT_EQ(result.remarks.size(), 1u);
  EXPECT_EQ(result.remarks[0].severity, kelstream::Severity::kNote);
  EXPECT_GT(result.remarks[0].offset, change);
  EXPECT_TRUE(Tells(result, "from 640x368 to 320x368"));
  ASSERT_EQ(result.formats.size(), 1u);
  EXPECT_EQ(result.formats[0].width, 640u) << "the first is reported";
}

TEST(H264DamageTest, DamageIsTold) {
  const H264Stream sample = H264Stream::Sample(4);
  const size_t size = sample.size();
  struct Case {
    const char *text;
    uint64_t offset;
    Bytes data;
  };
  const Bytes sps = Nal(7, 3, SpsRbsp({}));
  const Bytes pps = Nal(8, 3, PpsRbsp({}));
  const Bytes idr = Nal(5, 3, SliceRbsp({.nal_type = 5, .ref_idc = 3, .type = kI}, {}, {}));
  for (const Case &c :
       {Case{"3 bytes before the first start code", 0, Bytes{9, 8, 7} + sample.bytes()},
        {"forbidden_zero_bit", size, sample.bytes() + Bytes{0, 0, 1, 0xE5, 1, 2, 3}},
        {"start code without a NAL unit", size, sample.bytes() + Bytes{0, 0, 0, 1}},
        {"start code without a NAL unit", size, sample.bytes() + Bytes{0, 0, 1} + idr},
        {"NAL unit without content", size, sample.bytes() + Bytes{0, 0, 1, 0x65}},
        {"sequence parameter set is cut", 0, sps.substr(0, 9)},
        {"sequence parameter set is damaged", 0, Nal(7, 3, SpsRbsp({}) + Bytes{0x41})},
        {"picture parameter set is cut", size, sample.bytes() + Nal(8, 3, {0x80})},
        {"slice without its picture parameter set", sps.size(), sps + idr},
        {"slice without its sequence parameter set", pps.size(), pps + idr},
        {"slice header is cut", size, sample.bytes() + idr.substr(0, 6)},
        {"slice header is damaged", size,
         sample.bytes() + Nal(1, 2, SliceRbsp({.first_mb = 5000}, {}, {}))},
        {"SEI", size, sample.bytes() + Nal(6, 0, {5, 9, 1, 2})},
        {"zero bytes that cannot occur", size, sample.bytes() + Bytes{0, 0, 0, 5}},
        {"zero bytes that cannot occur", size, sample.bytes() + Bytes{0, 0, 2}},
        {"the file ends within", 0, sample.bytes() + Bytes{0}},
        {"the file ends within", 0, sample.bytes() + Bytes{0, 0, 0}}}) {
    const Recorder result = Split<H264Splitter>(c.data);
    bool told = false;
    for (const auto &remark : result.remarks)
      told = told || (remark.text.find(c.text) != std::string::npos &&
                      (c.offset == 0 || remark.offset == c.offset));
    EXPECT_TRUE(told) << c.text << " at " << c.offset << "\n" << result.Remarks();
  }
}

TEST(H264DamageTest, PaddingIsNoDamage) {
  H264Stream stream = H264Stream::Sample(2);
  H264Stream padded;
  padded.Append(Bytes(6, 0)).Append(stream.bytes()).Append(Bytes(5000, 0));
  padded.P(2, 6).Append(Bytes(4, 0));
  Intact(padded);
}

TEST(H264DamageTest, UnreadablePicturesAreNotCounted) {
  H264Stream stream;
  stream.Parameters().Idr();
  // A whole picture whose parameter set is missing, in front of a good one.
  stream.Slice({.pps_id = 7, .frame_num = 1, .poc_lsb = 2});
  stream.P(2, 4);
  const Recorder result = Found(stream);
  ASSERT_EQ(result.units.size(), 3u);
  EXPECT_FALSE(result.units[1].readable);
  EXPECT_EQ(result.Frames(), 2u);
  EXPECT_EQ(result.remarks.size(), 1u) << "no missing references on top: " << result.Remarks();
  // The first slice of a picture of two.
  H264Stream half;
  half.Parameters().Idr().Raw(9, 0, {0xF0});
  half.Slice({.pps_id = 7, .frame_num = 1, .poc_lsb = 2});
  half.Slice({.first_mb = 400, .frame_num = 1, .poc_lsb = 2});
  EXPECT_EQ(Found(half).Frames(), 2u);
  EXPECT_EQ(Found(half).remarks.size(), 1u);
}

TEST(H264DamageTest, LongHeadersAreReadWhole) {
  H264Stream stream;
  stream.pps.slice_groups = 8;
  stream.pps.map_units = 30000;  // a map of more than 11,000 bytes
  stream.sps.profile = 66;
  stream.Parameters().Idr();
  EXPECT_EQ(Intact(stream).Frames(), 1u);
  // A slice header with 32 weights, of some 200 bytes.
  H264Stream weighted;
  weighted.pps.weighted = true;
  weighted.Parameters().Idr().Slice({.frame_num = 1, .poc_lsb = 2, .mmco5 = true, .refs = 32});
  weighted.P(1, 6);
  EXPECT_EQ(Intact(weighted).Frames(), 3u);
  // Too long to be kept: told, and no more than that.
  stream.pps.map_units = 60000;
  H264Stream longer;
  longer.pps = stream.pps;
  longer.Parameters().Append(H264Stream::Sample(3).bytes());
  const Recorder result = Found(longer);
  EXPECT_EQ(result.Frames(), 3u);
  EXPECT_TRUE(Tells(result, "picture parameter set is damaged"));
}

TEST(H264DamageTest, NothingAtAll) {
  const Recorder result = Split<H264Splitter>({});
  EXPECT_TRUE(result.units.empty());
  EXPECT_EQ(result.formats.size(), 1u);
  EXPECT_TRUE(Tells(result, "no picture could be read"));
}

}  // namespace
}  // namespace kelstream_test
