// Builds streams for the tests: parameter sets, slices and ADTS frames with the
// properties that a test asks for, and all others harmless.
#pragma once

#include <cstdint>
#include <vector>

#include "bit_writer.h"

namespace kelstream_test {

struct SpsFields {
  uint32_t profile = 100;
  uint32_t constraints = 0;
  uint32_t id = 0;
  uint32_t chroma = 1;
  bool separate_planes = false;
  bool scaling_lists = false;
  uint32_t frame_num_bits = 4;
  uint32_t poc_type = 0;
  uint32_t poc_lsb_bits = 8;
  bool gaps_allowed = false;
  uint32_t width_in_mbs = 40;
  uint32_t height_in_map_units = 23;
  bool frame_mbs_only = true;
  bool mbaff = false;
  bool crop = false;
  uint32_t left = 0, right = 0, top = 0, bottom = 0;
  bool vui = false;
  bool vui_full = false;  // everything else that a VUI may hold
  uint32_t num_units_in_tick = 1;
  uint32_t time_scale = 50;
};

struct PpsFields {
  uint32_t id = 0;
  uint32_t sps_id = 0;
  bool cabac = false;
  bool pic_order_present = false;
  uint32_t slice_groups = 1;
  uint32_t map_units = 0;  // an explicit map of this size, when there are groups
  bool weighted = false;
  uint32_t bipred = 0;
  bool deblocking_control = false;
  bool redundant_pic_cnt = false;
  bool high_part = false;  // transform_8x8_mode and what follows
};

enum SliceKind : uint32_t { kP = 0, kB = 1, kI = 2 };

struct SliceFields {
  uint8_t nal_type = 1;
  uint8_t ref_idc = 2;
  uint32_t first_mb = 0;
  uint32_t type = kP;
  uint32_t pps_id = 0;
  uint32_t frame_num = 0;
  bool field = false;
  bool bottom = false;
  uint32_t idr_pic_id = 0;
  uint32_t poc_lsb = 0;
  uint32_t redundant = 0;
  bool mmco5 = false;
  bool reorder = false;
  uint32_t refs = 2;  // reference pictures
  size_t payload = 40;
};

// Emulation prevention, header byte and start code around a payload.
Bytes Escape(const Bytes &rbsp);
Bytes Nal(uint8_t type, uint8_t ref_idc, const Bytes &rbsp, size_t zeros = 3);

Bytes SpsRbsp(const SpsFields &fields);
Bytes PpsRbsp(const PpsFields &fields);
Bytes SliceRbsp(const SliceFields &slice, const SpsFields &sps, const PpsFields &pps);
Bytes RecoveryPointRbsp();

// A stream that is put together NAL unit by NAL unit.
class H264Stream {
 public:
  SpsFields sps;
  PpsFields pps;

  H264Stream &Parameters();
  H264Stream &Slice(const SliceFields &slice);
  H264Stream &Raw(uint8_t type, uint8_t ref_idc, const Bytes &rbsp);
  H264Stream &Append(const Bytes &data);
  H264Stream &Idr(uint32_t idr_pic_id = 0);
  H264Stream &P(uint32_t frame_num, uint32_t poc_lsb, uint8_t ref_idc = 2);
  // A stream with everything: several pictures, slices, non-reference ones.
  static H264Stream Sample(int pictures);

  const Bytes &bytes() const { return bytes_; }
  size_t size() const { return bytes_.size(); }

 private:
  Bytes bytes_;
};

struct AdtsFields {
  bool mpeg2 = false;
  bool crc = false;
  uint32_t profile = 1;     // LC
  uint32_t rate_index = 3;  // 48 kHz
  uint32_t channels = 2;
  uint32_t blocks = 1;
  Bytes payload = Bytes(60, 0x21);
};

Bytes AdtsFrame(const AdtsFields &fields);
Bytes AdtsFrames(const AdtsFields &fields, int count);

// A program config element with this many front, side and back elements, pairs
// or single channels.
Bytes ProgramConfig(const std::vector<bool> &front, const std::vector<bool> &side,
                    const std::vector<bool> &back, uint32_t low_frequency);

Bytes Id3v2(size_t size);
Bytes Id3v1();

}  // namespace kelstream_test
