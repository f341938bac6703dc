// Syntax structures of H.264 as far as an inspector needs them: NAL unit
// headers, parameter sets, slice headers, SEI. Parsers only, no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "bit_reader.h"
#include "stream.h"

namespace kelstream::h264 {

enum NalType : uint8_t {
  kSlice = 1,
  kPartitionA = 2,
  kPartitionB = 3,
  kPartitionC = 4,
  kIdrSlice = 5,
  kSei = 6,
  kSps = 7,
  kPps = 8,
  kAccessUnitDelimiter = 9,
  kEndOfSequence = 10,
  kEndOfStream = 11,
  kFillerData = 12,
  kPrefix = 14,
  kReserved18 = 18,
};

struct NalHeader {
  explicit NalHeader(uint8_t byte)
      : forbidden_bit(byte >> 7 != 0),
        ref_idc(static_cast<uint8_t>(byte >> 5 & 3)),
        type(static_cast<uint8_t>(byte & 31)) {}
  bool forbidden_bit;
  uint8_t ref_idc;
  uint8_t type;

  // The NAL units that carry slices of the primary coded picture's header.
  bool StartsSlice() const {
    return type == kSlice || type == kPartitionA || type == kIdrSlice;
  }
};

inline constexpr uint32_t kMaxSps = 32;
inline constexpr uint32_t kMaxPps = 256;

struct Sps {
  uint8_t profile_idc = 0;
  uint8_t constraints = 0;  // constraint_set0_flag is the highest bit
  uint32_t id = 0;
  uint32_t chroma_format_idc = 1;
  bool separate_colour_planes = false;
  uint32_t bit_depth_luma = 8;
  uint32_t frame_num_bits = 4;
  uint32_t poc_type = 0;
  uint32_t poc_lsb_bits = 4;
  bool delta_pic_order_always_zero = false;
  bool frame_num_gaps_allowed = false;
  uint32_t width_in_mbs = 0;
  uint32_t height_in_map_units = 0;
  bool frame_mbs_only = true;
  bool mb_adaptive_frame_field = false;
  uint32_t width = 0;  // of the cropped picture
  uint32_t height = 0;
  uint32_t num_units_in_tick = 0;  // 0 when the stream does not tell
  uint32_t time_scale = 0;

  uint32_t ChromaArrayType() const { return separate_colour_planes ? 0 : chroma_format_idc; }
  uint32_t FrameHeightInMbs() const { return (frame_mbs_only ? 1u : 2u) * height_in_map_units; }
  // Arbitrary slice order is a matter of these profiles alone.
  bool MayReorderSlices() const {
    constexpr uint8_t kBaseline = 66, kExtended = 88, kConstraintSet1 = 0x40;
    return profile_idc == kExtended ||
           (profile_idc == kBaseline && (constraints & kConstraintSet1) == 0);
  }
};

struct Pps {
  uint32_t id = 0;
  uint32_t sps_id = 0;
  bool entropy_coding_mode = false;
  bool pic_order_present = false;
  uint32_t num_slice_groups = 1;
  uint32_t num_ref_idx_active[2] = {1, 1};
  bool weighted_pred = false;
  uint32_t weighted_bipred_idc = 0;
  int32_t pic_init_qp = 26;
  bool deblocking_control_present = false;
  bool redundant_pic_cnt_present = false;
};

enum class SliceType : uint8_t { kP, kB, kI, kSp, kSi };

struct SliceHeader {
  uint8_t nal_ref_idc = 0;
  bool idr = false;
  uint32_t first_mb = 0;
  SliceType type = SliceType::kP;
  uint32_t pps_id = 0;
  uint32_t frame_num = 0;
  bool field = false;
  bool bottom = false;
  uint32_t idr_pic_id = 0;
  uint32_t poc_lsb = 0;
  int32_t delta_poc_bottom = 0;
  int32_t delta_poc[2] = {0, 0};
  uint32_t redundant_pic_cnt = 0;
  bool mmco5 = false;  // memory management control operation 5: resets numbering

  bool Intra() const { return type == SliceType::kI || type == SliceType::kSi; }
};

enum class Parse : uint8_t {
  kOk,
  kShort,    // the data end inside the structure
  kInvalid,  // a value that the syntax does not allow
};

// Removes the emulation prevention bytes.
void Unescape(const uint8_t *data, size_t size, PaddedBytes &rbsp);

// Each takes the bytes behind the NAL unit header, emulation prevention removed.
Parse ParseSps(const PaddedBytes &rbsp, Sps &sps);
Parse ParsePps(const PaddedBytes &rbsp, Pps &pps);

// The first fields need no parameter set and tell which one the others need.
Parse ParseSliceStart(const PaddedBytes &rbsp, SliceHeader &slice);
Parse ParseSliceHeader(const PaddedBytes &rbsp, NalHeader nal, const Sps &sps, const Pps &pps,
                       SliceHeader &slice);

// Looks for a recovery point among the messages. kShort when one is longer than
// the data.
Parse FindRecoveryPoint(const PaddedBytes &rbsp, bool &found);

// The name of a profile, or an empty text.
std::string_view ProfileName(const Sps &sps);

// What to report of a stream that uses this parameter set.
StreamFormat FormatOf(const Sps &sps);

}  // namespace kelstream::h264
