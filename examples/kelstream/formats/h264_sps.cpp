// Sequence parameter sets of H.264.

#include <array>
#include <cstdio>
#include <string>

#include "h264_syntax.h"

namespace kelstream::h264 {

namespace {

// Far above the largest picture of any level (1,055 macroblocks on a side), and
// small enough that no product of two of them overflows.
constexpr uint32_t kMaxMbs = 4096;

bool HasChromaFormat(uint8_t profile_idc) {
  switch (profile_idc) {
    case 44:
    case 83:
    case 86:
    case 100:
    case 110:
    case 118:
    case 122:
    case 128:
    case 134:
    case 135:
    case 138:
    case 139:
    case 144:  // withdrawn, and still found
    case 244:
      return true;
    default:
      return false;
  }
}

void SkipScalingList(BitReader &bits, int size) {
  int32_t last = 8;
  int32_t next = 8;
  for (int i = 0; i < size && !bits.Failed(); ++i) {
    if (next != 0)
      next = (last + bits.SeWithin(-128, 127) + 256) % 256;
    if (next != 0)
      last = next;
  }
}

void ParseChroma(BitReader &bits, Sps &sps) {
  sps.chroma_format_idc = bits.UeMax(3);
  if (sps.chroma_format_idc == 3)
    sps.separate_colour_planes = bits.Flag();
  sps.bit_depth_luma = 8 + bits.UeMax(6);
  bits.UeMax(6);  // chroma bit depth
  bits.Flag();    // lossless transform bypass
  if (!bits.Flag())
    return;
  const int lists = sps.chroma_format_idc == 3 ? 12 : 8;
  for (int i = 0; i < lists; ++i)
    if (bits.Flag())
      SkipScalingList(bits, i < 6 ? 16 : 64);
}

void ParsePicOrder(BitReader &bits, Sps &sps) {
  sps.poc_type = bits.UeMax(2);
  if (sps.poc_type == 0) {
    sps.poc_lsb_bits = 4 + bits.UeMax(12);
  } else if (sps.poc_type == 1) {
    sps.delta_pic_order_always_zero = bits.Flag();
    bits.Se();
    bits.Se();
    const uint32_t cycle = bits.UeMax(255);
    for (uint32_t i = 0; i < cycle && !bits.Failed(); ++i)
      bits.Se();
  }
}

// The picture's size in samples, less the cropping.
void ParseSize(BitReader &bits, Sps &sps) {
  sps.width_in_mbs = 1 + bits.UeMax(kMaxMbs - 1);
  sps.height_in_map_units = 1 + bits.UeMax(kMaxMbs - 1);
  sps.frame_mbs_only = bits.Flag();
  if (!sps.frame_mbs_only)
    sps.mb_adaptive_frame_field = bits.Flag();
  bits.Flag();  // direct_8x8_inference
  sps.width = 16 * sps.width_in_mbs;
  sps.height = 16 * sps.FrameHeightInMbs();
  if (!bits.Flag())
    return;
  // Offsets count chroma samples, and lines of one field in streams that may
  // hold fields.
  const uint32_t chroma = sps.ChromaArrayType();
  const uint32_t unit_x = chroma == 1 || chroma == 2 ? 2 : 1;
  const uint32_t unit_y = (chroma == 1 ? 2 : 1) * (sps.frame_mbs_only ? 1 : 2);
  std::array<uint64_t, 4> crop{};
  for (auto &offset : crop)
    offset = bits.Ue();
  const uint64_t across = unit_x * (crop[0] + crop[1]);
  const uint64_t down = unit_y * (crop[2] + crop[3]);
  if (across >= sps.width || down >= sps.height) {
    bits.MarkBad();
    return;
  }
  sps.width -= static_cast<uint32_t>(across);
  sps.height -= static_cast<uint32_t>(down);
}

void SkipHrd(BitReader &bits) {
  const uint32_t count = 1 + bits.UeMax(31);
  bits.Skip(8);
  for (uint32_t i = 0; i < count && !bits.Failed(); ++i) {
    bits.Ue();
    bits.Ue();
    bits.Flag();
  }
  bits.Skip(20);
}

void ParseVui(BitReader &bits, Sps &sps) {
  constexpr uint32_t kExtendedSar = 255;
  if (bits.Flag() && bits.Bits(8) == kExtendedSar)
    bits.Skip(32);
  if (bits.Flag())  // overscan
    bits.Flag();
  if (bits.Flag()) {  // video signal type
    bits.Skip(4);
    if (bits.Flag())  // colour description
      bits.Skip(24);
  }
  if (bits.Flag()) {  // chroma location
    bits.UeMax(5);
    bits.UeMax(5);
  }
  if (bits.Flag()) {
    sps.num_units_in_tick = bits.Bits(32);
    sps.time_scale = bits.Bits(32);
    bits.Flag();  // fixed frame rate
  }
  const bool nal_hrd = bits.Flag();
  if (nal_hrd)
    SkipHrd(bits);
  const bool vcl_hrd = bits.Flag();
  if (vcl_hrd)
    SkipHrd(bits);
  if (nal_hrd || vcl_hrd)
    bits.Flag();  // low delay
  bits.Flag();    // pic_struct in SEI
  if (bits.Flag()) {
    bits.Flag();
    for (int i = 0; i < 6; ++i)
      bits.Ue();
  }
}

}  // namespace

Parse ParseSps(const PaddedBytes &rbsp, Sps &result) {
  BitReader bits(rbsp);
  Sps sps;
  sps.profile_idc = static_cast<uint8_t>(bits.Bits(8));
  sps.constraints = static_cast<uint8_t>(bits.Bits(8));
  bits.Bits(8);  // level
  sps.id = bits.UeMax(kMaxSps - 1);
  if (HasChromaFormat(sps.profile_idc))
    ParseChroma(bits, sps);
  sps.frame_num_bits = 4 + bits.UeMax(12);
  ParsePicOrder(bits, sps);
  bits.Ue();  // reference frames
  sps.frame_num_gaps_allowed = bits.Flag();
  ParseSize(bits, sps);
  if (bits.Flag())
    ParseVui(bits, sps);
  // The stop bit must be there, and nothing in front of it: the best sign that
  // all fields above were where they seemed to be.
  const bool more = bits.MoreData();
  const bool stop = bits.Flag();
  if (bits.Overrun())
    return Parse::kShort;
  if (bits.Bad() || more || !stop)
    return Parse::kInvalid;
  result = sps;
  return Parse::kOk;
}

std::string_view ProfileName(const Sps &sps) {
  constexpr uint8_t kSet1 = 0x40, kSet3 = 0x10;
  const bool intra = (sps.constraints & kSet3) != 0;
  switch (sps.profile_idc) {
    case 44:
      return "CAVLC 4:4:4 Intra";
    case 66:
      return (sps.constraints & kSet1) != 0 ? "Constrained Baseline" : "Baseline";
    case 77:
      return "Main";
    case 83:
      return "Scalable Baseline";
    case 86:
      return "Scalable High";
    case 88:
      return "Extended";
    case 100:
      return "High";
    case 110:
      return intra ? "High 10 Intra" : "High 10";
    case 118:
      return "Multiview High";
    case 122:
      return intra ? "High 4:2:2 Intra" : "High 4:2:2";
    case 128:
      return "Stereo High";
    case 144:
      return "High 4:4:4";
    case 244:
      return intra ? "High 4:4:4 Intra" : "High 4:4:4 Predictive";
    default:
      return {};
  }
}

StreamFormat FormatOf(const Sps &sps) {
  StreamFormat format;
  format.codec = Codec::kH264;
  const std::string_view name = ProfileName(sps);
  const std::string profile =
      name.empty() ? std::to_string(sps.profile_idc) : std::string(name);
  std::snprintf(format.profile, sizeof format.profile, "%s", profile.c_str());
  format.width = sps.width;
  format.height = sps.height;
  // A tick is the time of a field, so a frame takes two.
  if (sps.num_units_in_tick != 0 && sps.time_scale != 0 &&
      sps.num_units_in_tick <= UINT32_MAX / 2) {
    format.rate_numerator = sps.time_scale;
    format.rate_denominator = 2 * sps.num_units_in_tick;
  }
  return format;
}

}  // namespace kelstream::h264
