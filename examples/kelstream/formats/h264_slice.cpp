// Picture parameter sets, slice headers and SEI of H.264.

#include <algorithm>

#include "h264_syntax.h"

namespace kelstream::h264 {

namespace {

constexpr uint32_t kMaxRefs = 32;

Parse ResultOf(const BitReader &bits) {
  if (bits.Overrun())
    return Parse::kShort;
  return bits.Bad() ? Parse::kInvalid : Parse::kOk;
}

void SkipSliceGroups(BitReader &bits, uint32_t groups) {
  const uint32_t map_type = bits.UeMax(6);
  if (map_type == 0) {
    for (uint32_t i = 0; i < groups; ++i)
      bits.Ue();
  } else if (map_type == 2) {
    for (uint32_t i = 0; i + 1 < groups; ++i) {
      bits.Ue();
      bits.Ue();
    }
  } else if (map_type >= 3 && map_type <= 5) {
    bits.Flag();
    bits.Ue();
  } else if (map_type == 6) {
    const uint64_t units = uint64_t{bits.Ue()} + 1;
    const uint64_t id_bits = groups > 4 ? 3 : groups > 2 ? 2 : 1;
    bits.Skip(units * id_bits);
  }
}

void SkipRefListModification(BitReader &bits) {
  if (!bits.Flag())
    return;
  constexpr uint32_t kEnd = 3;
  for (uint32_t count = 0; !bits.Failed(); ++count) {
    const uint32_t operation = bits.UeMax(kEnd);
    if (operation == kEnd)
      return;
    if (count > kMaxRefs)
      bits.MarkBad();
    bits.Ue();
  }
}

void SkipWeights(BitReader &bits, uint32_t refs, bool chroma) {
  for (uint32_t i = 0; i < refs && !bits.Failed(); ++i) {
    if (bits.Flag()) {
      bits.SeWithin(-128, 127);
      bits.SeWithin(-128, 127);
    }
    if (chroma && bits.Flag())
      for (int value = 0; value < 4; ++value)
        bits.SeWithin(-128, 127);
  }
}

void SkipWeightTable(BitReader &bits, const uint32_t (&refs)[2], bool b_slice, bool chroma) {
  bits.UeMax(7);
  if (chroma)
    bits.UeMax(7);
  SkipWeights(bits, refs[0], chroma);
  if (b_slice)
    SkipWeights(bits, refs[1], chroma);
}

void ParseRefMarking(BitReader &bits, SliceHeader &slice) {
  if (slice.idr) {
    bits.Skip(2);
    return;
  }
  if (!bits.Flag())
    return;
  // An operation for each of the frames and fields there can be, and some.
  constexpr int kMaxOperations = 128;
  for (int count = 0; !bits.Failed(); ++count) {
    const uint32_t operation = bits.UeMax(6);
    if (operation == 0)
      return;
    if (count > kMaxOperations)
      bits.MarkBad();
    if (operation == 5)
      slice.mmco5 = true;
    else
      bits.Ue();
    if (operation == 3)
      bits.Ue();
  }
}

void ParseStart(BitReader &bits, SliceHeader &slice) {
  slice.first_mb = bits.Ue();
  slice.type = static_cast<SliceType>(bits.UeMax(9) % 5);
  slice.pps_id = bits.UeMax(kMaxPps - 1);
}

void ParsePicOrder(BitReader &bits, const Sps &sps, const Pps &pps, SliceHeader &slice) {
  const bool frame_deltas = pps.pic_order_present && !slice.field;
  if (sps.poc_type == 0) {
    slice.poc_lsb = bits.Bits(sps.poc_lsb_bits);
    if (frame_deltas)
      slice.delta_poc_bottom = bits.Se();
  } else if (sps.poc_type == 1 && !sps.delta_pic_order_always_zero) {
    slice.delta_poc[0] = bits.Se();
    if (frame_deltas)
      slice.delta_poc[1] = bits.Se();
  }
}

void ParseRefLists(BitReader &bits, const Sps &sps, const Pps &pps, const SliceHeader &slice) {
  const bool b_slice = slice.type == SliceType::kB;
  uint32_t refs[2] = {pps.num_ref_idx_active[0], pps.num_ref_idx_active[1]};
  if (b_slice)
    bits.Flag();  // direct_spatial_mv_pred
  if (bits.Flag()) {
    refs[0] = 1 + bits.UeMax(kMaxRefs - 1);
    if (b_slice)
      refs[1] = 1 + bits.UeMax(kMaxRefs - 1);
  }
  SkipRefListModification(bits);
  if (b_slice)
    SkipRefListModification(bits);
  if (b_slice ? pps.weighted_bipred_idc == 1 : pps.weighted_pred)
    SkipWeightTable(bits, refs, b_slice, sps.ChromaArrayType() != 0);
}

// Nothing here is of use but that it must make sense: a damaged header seldom
// does to its end.
void CheckTail(BitReader &bits, const Sps &sps, const Pps &pps, const SliceHeader &slice) {
  if (pps.entropy_coding_mode && !slice.Intra())
    bits.UeMax(2);
  const int32_t lowest_qp = -6 * (static_cast<int32_t>(sps.bit_depth_luma) - 8);
  bits.SeWithin(lowest_qp - pps.pic_init_qp, 51 - pps.pic_init_qp);
  if (slice.type == SliceType::kSp || slice.type == SliceType::kSi) {
    if (slice.type == SliceType::kSp)
      bits.Flag();
    bits.Se();
  }
  if (pps.deblocking_control_present && bits.UeMax(2) != 1) {
    bits.SeWithin(-6, 6);
    bits.SeWithin(-6, 6);
  }
}

uint32_t PicSizeInMbs(const Sps &sps, bool field) {
  return sps.width_in_mbs * (sps.FrameHeightInMbs() / (field ? 2 : 1));
}

}  // namespace

void Unescape(const uint8_t *data, size_t size, PaddedBytes &rbsp) {
  rbsp.Resize(size);
  uint8_t *to = rbsp.data();
  int zeros = 0;
  for (size_t i = 0; i < size; ++i) {
    if (zeros >= 2 && data[i] == 3) {
      zeros = 0;
      continue;
    }
    zeros = data[i] == 0 ? zeros + 1 : 0;
    *to++ = data[i];
  }
  rbsp.Resize(static_cast<size_t>(to - rbsp.data()));
}

Parse ParsePps(const PaddedBytes &rbsp, Pps &result) {
  BitReader bits(rbsp);
  Pps pps;
  pps.id = bits.UeMax(kMaxPps - 1);
  pps.sps_id = bits.UeMax(kMaxSps - 1);
  pps.entropy_coding_mode = bits.Flag();
  pps.pic_order_present = bits.Flag();
  pps.num_slice_groups = 1 + bits.UeMax(7);
  if (pps.num_slice_groups > 1)
    SkipSliceGroups(bits, pps.num_slice_groups);
  pps.num_ref_idx_active[0] = 1 + bits.UeMax(kMaxRefs - 1);
  pps.num_ref_idx_active[1] = 1 + bits.UeMax(kMaxRefs - 1);
  pps.weighted_pred = bits.Flag();
  pps.weighted_bipred_idc = bits.Bits(2);
  if (pps.weighted_bipred_idc == 3)
    bits.MarkBad();
  // -(26 + QpBdOffset) to 25, of which the deepest video has an offset of 36.
  pps.pic_init_qp = 26 + bits.SeWithin(-26 - 36, 25);
  bits.SeWithin(-26, 25);
  bits.SeWithin(-12, 12);
  pps.deblocking_control_present = bits.Flag();
  bits.Flag();  // constrained_intra_pred
  pps.redundant_pic_cnt_present = bits.Flag();
  // The High profiles put scaling lists here, of a number that only the SPS
  // tells and that may still come; a stop bit there must be in any case.
  if (!bits.MoreData() && !bits.Flag())
    bits.MarkBad();
  const Parse parse = ResultOf(bits);
  if (parse == Parse::kOk)
    result = pps;
  return parse;
}

Parse ParseSliceStart(const PaddedBytes &rbsp, SliceHeader &slice) {
  BitReader bits(rbsp);
  ParseStart(bits, slice);
  return ResultOf(bits);
}

Parse ParseSliceHeader(const PaddedBytes &rbsp, NalHeader nal, const Sps &sps, const Pps &pps,
                       SliceHeader &result) {
  BitReader bits(rbsp);
  SliceHeader slice;
  slice.nal_ref_idc = nal.ref_idc;
  slice.idr = nal.type == kIdrSlice;
  ParseStart(bits, slice);
  if (slice.idr && (!slice.Intra() || nal.ref_idc == 0))
    bits.MarkBad();
  if (sps.separate_colour_planes)
    bits.Bits(2);
  slice.frame_num = bits.Bits(sps.frame_num_bits);
  if (!sps.frame_mbs_only) {
    slice.field = bits.Flag();
    slice.bottom = slice.field && bits.Flag();
  }
  const uint32_t mbs_per_address = sps.mb_adaptive_frame_field && !slice.field ? 2 : 1;
  if (slice.first_mb >= PicSizeInMbs(sps, slice.field) / mbs_per_address)
    bits.MarkBad();
  if (slice.idr)
    slice.idr_pic_id = bits.UeMax(65535);
  ParsePicOrder(bits, sps, pps, slice);
  if (pps.redundant_pic_cnt_present)
    slice.redundant_pic_cnt = bits.UeMax(127);
  if (!slice.Intra())
    ParseRefLists(bits, sps, pps, slice);
  if (nal.ref_idc != 0)
    ParseRefMarking(bits, slice);
  CheckTail(bits, sps, pps, slice);
  const Parse parse = ResultOf(bits);
  if (parse == Parse::kOk)
    result = slice;
  return parse;
}

Parse FindRecoveryPoint(const PaddedBytes &rbsp, bool &found) {
  constexpr uint32_t kRecoveryPoint = 6;
  constexpr uint32_t kStopByte = 0x80;
  ByteReader bytes(rbsp);
  found = false;
  while (bytes.Left() > 0) {
    uint32_t numbers[2];  // type and size, each in steps of 255
    for (uint32_t &number : numbers) {
      number = 0;
      uint32_t byte = bytes.Byte();
      for (; byte == 255; byte = bytes.Byte())
        number += byte;
      number += byte;
    }
    if (bytes.Overrun() || numbers[1] > bytes.Left())
      return Parse::kShort;
    found = found || numbers[0] == kRecoveryPoint;
    bytes.Skip(numbers[1]);
    if (bytes.Left() == 0)
      return Parse::kShort;
    if (bytes.Left() == 1 && bytes.Byte() == kStopByte)
      return Parse::kOk;
    if (bytes.Overrun())
      return Parse::kShort;
  }
  return Parse::kShort;
}

}  // namespace kelstream::h264
