// Builds streams for the tests.

#include "builders.h"

namespace kelstream_test {

namespace {

bool IsHigh(uint32_t profile) {
  return profile == 100 || profile == 110 || profile == 122 || profile == 244 || profile == 44;
}

void WriteScalingLists(BitWriter &w, uint32_t chroma) {
  const int lists = chroma == 3 ? 12 : 8;
  for (int list = 0; list < lists; ++list) {
    const int size = list < 6 ? 16 : 64;
    w.Flag(list % 2 == 0);
    if (list % 2 != 0)
      continue;
    if (list == 2) {
      w.Se(-8);  // use the default: the list ends with its first entry
      continue;
    }
    for (int i = 0; i < size; ++i)
      w.Se(i % 3 - 1);
  }
}

void WriteHrd(BitWriter &w) {
  w.Ue(1).Bits(4, 3).Bits(4, 5);
  for (int i = 0; i < 2; ++i)
    w.Ue(1000).Ue(70000).Flag(true);
  w.Bits(5, 23).Bits(5, 23).Bits(5, 23).Bits(5, 24);
}

void WriteVui(BitWriter &w, const SpsFields &fields) {
  const bool full = fields.vui_full;
  w.Flag(full);
  if (full)
    w.Bits(8, 255).Bits(16, 40).Bits(16, 33);
  w.Flag(full);
  if (full)
    w.Flag(true);
  w.Flag(full);
  if (full)
    w.Bits(3, 5).Flag(false).Flag(true).Bits(8, 1).Bits(8, 1).Bits(8, 1);
  w.Flag(full);
  if (full)
    w.Ue(1).Ue(2);
  w.Flag(true).Bits(32, fields.num_units_in_tick).Bits(32, fields.time_scale).Flag(true);
  w.Flag(full);
  if (full)
    WriteHrd(w);
  w.Flag(full);
  if (full) {
    WriteHrd(w);
    w.Flag(false);  // low delay
  }
  w.Flag(false);
  w.Flag(full);
  if (full)
    w.Flag(true).Ue(2).Ue(1).Ue(16).Ue(16).Ue(1).Ue(4);
}

}  // namespace

Bytes Escape(const Bytes &rbsp) {
  Bytes out;
  int zeros = 0;
  for (const uint8_t byte : rbsp) {
    if (zeros >= 2 && byte <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    out.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  return out;
}

Bytes Nal(uint8_t type, uint8_t ref_idc, const Bytes &rbsp, size_t zeros) {
  Bytes out(zeros, 0);
  out.push_back(1);
  out.push_back(static_cast<uint8_t>(ref_idc << 5 | type));
  return out + Escape(rbsp);
}

Bytes SpsRbsp(const SpsFields &fields) {
  BitWriter w;
  w.Bits(8, fields.profile).Bits(8, fields.constraints).Bits(8, 30).Ue(fields.id);
  if (IsHigh(fields.profile)) {
    w.Ue(fields.chroma);
    if (fields.chroma == 3)
      w.Flag(fields.separate_planes);
    w.Ue(0).Ue(0).Flag(false).Flag(fields.scaling_lists);
    if (fields.scaling_lists)
      WriteScalingLists(w, fields.chroma);
  }
  w.Ue(fields.frame_num_bits - 4).Ue(fields.poc_type);
  if (fields.poc_type == 0)
    w.Ue(fields.poc_lsb_bits - 4);
  else if (fields.poc_type == 1)
    w.Flag(true).Se(-3).Se(2).Ue(2).Se(4).Se(-4);
  w.Ue(4).Flag(fields.gaps_allowed);
  w.Ue(fields.width_in_mbs - 1).Ue(fields.height_in_map_units - 1).Flag(fields.frame_mbs_only);
  if (!fields.frame_mbs_only)
    w.Flag(fields.mbaff);
  w.Flag(true).Flag(fields.crop);
  if (fields.crop)
    w.Ue(fields.left).Ue(fields.right).Ue(fields.top).Ue(fields.bottom);
  w.Flag(fields.vui);
  if (fields.vui)
    WriteVui(w, fields);
  return w.Trailing().bytes();
}

Bytes PpsRbsp(const PpsFields &fields) {
  BitWriter w;
  w.Ue(fields.id).Ue(fields.sps_id).Flag(fields.cabac).Flag(fields.pic_order_present);
  w.Ue(fields.slice_groups - 1);
  if (fields.slice_groups > 1) {
    w.Ue(6).Ue(fields.map_units - 1);
    for (uint32_t i = 0; i < fields.map_units; ++i)
      w.Bits(fields.slice_groups > 4 ? 3 : fields.slice_groups > 2 ? 2 : 1, i % 2);
  }
  w.Ue(1).Ue(0).Flag(fields.weighted).Bits(2, fields.bipred);
  w.Se(-4).Se(0).Se(-2);
  w.Flag(fields.deblocking_control).Flag(false).Flag(fields.redundant_pic_cnt);
  if (fields.high_part)
    w.Flag(true).Flag(false).Se(-2);
  return w.Trailing().bytes();
}

Bytes SliceRbsp(const SliceFields &slice, const SpsFields &sps, const PpsFields &pps) {
  BitWriter w;
  const bool idr = slice.nal_type == 5;
  w.Ue(slice.first_mb).Ue(slice.type).Ue(slice.pps_id);
  if (sps.separate_planes)
    w.Bits(2, 0);
  w.Bits(sps.frame_num_bits, slice.frame_num);
  if (!sps.frame_mbs_only) {
    w.Flag(slice.field);
    if (slice.field)
      w.Flag(slice.bottom);
  }
  if (idr)
    w.Ue(slice.idr_pic_id);
  if (sps.poc_type == 0) {
    w.Bits(sps.poc_lsb_bits, slice.poc_lsb);
    if (pps.pic_order_present && !slice.field)
      w.Se(1);
  }
  if (pps.redundant_pic_cnt)
    w.Ue(slice.redundant);
  const bool b = slice.type % 5 == kB;
  if (slice.type % 5 != kI) {
    if (b)
      w.Flag(true);
    w.Flag(true).Ue(slice.refs - 1);
    if (b)
      w.Ue(0);
    for (int list = 0; list < (b ? 2 : 1); ++list) {
      w.Flag(slice.reorder);
      if (slice.reorder)
        w.Ue(0).Ue(1).Ue(1).Ue(0).Ue(3);
    }
    if (b ? pps.bipred == 1 : pps.weighted) {
      w.Ue(5).Ue(5);
      for (uint32_t ref = 0; ref < slice.refs + (b ? 1 : 0); ++ref) {
        w.Flag(true).Se(-30).Se(5);
        w.Flag(true).Se(30).Se(5).Se(-3).Se(2);
      }
    }
  }
  if (slice.ref_idc != 0 && idr)
    w.Flag(false).Flag(false);
  if (slice.ref_idc != 0 && !idr) {
    w.Flag(slice.mmco5);
    if (slice.mmco5)
      w.Ue(1).Ue(0).Ue(5).Ue(0);
  }
  if (pps.cabac && slice.type % 5 != kI)
    w.Ue(1);
  w.Se(3);
  if (pps.deblocking_control)
    w.Ue(0).Se(1).Se(-1);
  for (size_t i = 0; i < slice.payload; ++i)
    w.Bits(8, 0x5A);
  return w.Trailing().bytes();
}

Bytes RecoveryPointRbsp() {
  BitWriter payload;
  payload.Ue(0).Flag(true).Flag(false).Bits(2, 0).Trailing();
  // After a message of an unknown type and a size of more than 255 bytes.
  Bytes out = {0xFF, 0x20, 0xFF, 0x05};
  out += Bytes(260, 0x11);
  out += Bytes{6, static_cast<uint8_t>(payload.bytes().size())};
  return out + payload.bytes() + Bytes{0x80};
}

H264Stream &H264Stream::Raw(uint8_t type, uint8_t ref_idc, const Bytes &rbsp) {
  bytes_ += Nal(type, ref_idc, rbsp);
  return *this;
}

H264Stream &H264Stream::Append(const Bytes &data) {
  bytes_ += data;
  return *this;
}

H264Stream &H264Stream::Parameters() {
  return Raw(7, 3, SpsRbsp(sps)).Raw(8, 3, PpsRbsp(pps));
}

H264Stream &H264Stream::Slice(const SliceFields &slice) {
  return Raw(slice.nal_type, slice.ref_idc, SliceRbsp(slice, sps, pps));
}

H264Stream &H264Stream::Idr(uint32_t idr_pic_id) {
  return Slice({.nal_type = 5, .ref_idc = 3, .type = 7, .idr_pic_id = idr_pic_id});
}

H264Stream &H264Stream::P(uint32_t frame_num, uint32_t poc_lsb, uint8_t ref_idc) {
  return Slice({.ref_idc = ref_idc, .frame_num = frame_num, .poc_lsb = poc_lsb});
}

H264Stream H264Stream::Sample(int pictures) {
  H264Stream stream;
  stream.sps.vui = true;
  stream.Parameters().Idr();
  for (int i = 1; i < pictures; ++i) {
    const auto number = static_cast<uint32_t>((i + 1) / 2);
    SliceFields slice{.ref_idc = static_cast<uint8_t>(i % 2 != 0 ? 2 : 0),
                      .type = i % 2 != 0 ? kP : kB,
                      .frame_num = (number + (i % 2 == 0 ? 1 : 0)) % 16,
                      .poc_lsb = static_cast<uint32_t>(2 * i) % 256,
                      .payload = static_cast<size_t>(20 + 7 * i)};
    stream.Slice(slice);
    slice.first_mb = 400;
    stream.Slice(slice);
  }
  return stream;
}

Bytes AdtsFrame(const AdtsFields &fields) {
  BitWriter w;
  const size_t crc = fields.crc ? 2 * fields.blocks : 0;
  const auto length = static_cast<uint32_t>(7 + crc + fields.payload.size());
  w.Bits(12, 0xFFF).Flag(fields.mpeg2).Bits(2, 0).Flag(!fields.crc);
  w.Bits(2, fields.profile).Bits(4, fields.rate_index).Flag(false).Bits(3, fields.channels);
  w.Bits(4, 0).Bits(13, length).Bits(11, 0x7FF).Bits(2, fields.blocks - 1);
  return w.bytes() + Bytes(crc, 0x77) + fields.payload;
}

Bytes AdtsFrames(const AdtsFields &fields, int count) {
  Bytes out;
  for (int i = 0; i < count; ++i) {
    AdtsFields frame = fields;
    frame.payload += Bytes(static_cast<size_t>(i % 7), 0x42);
    out += AdtsFrame(frame);
  }
  return out;
}

Bytes ProgramConfig(const std::vector<bool> &front, const std::vector<bool> &side,
                    const std::vector<bool> &back, uint32_t low_frequency) {
  BitWriter w;
  // A fill element in front, as some encoders have it.
  w.Bits(3, 6).Bits(4, 2).Bits(16, 0x1234);
  w.Bits(3, 5).Bits(4, 0).Bits(2, 1).Bits(4, 3);
  w.Bits(4, static_cast<uint32_t>(front.size())).Bits(4, static_cast<uint32_t>(side.size()));
  w.Bits(4, static_cast<uint32_t>(back.size())).Bits(2, low_frequency).Bits(3, 1).Bits(4, 0);
  w.Flag(true).Bits(4, 2).Flag(false).Flag(true).Bits(3, 5);
  for (const auto *group : {&front, &side, &back})
    for (const bool pair : *group)
      w.Flag(pair).Bits(4, 1);
  for (uint32_t i = 0; i < low_frequency; ++i)
    w.Bits(4, 0);
  w.Bits(4, 0).Align().Bits(8, 0);
  return w.bytes() + Bytes(50, 0x21);
}

Bytes Id3v2(size_t size) {
  Bytes tag = {'I', 'D', '3', 4, 0, 0};
  for (int shift = 21; shift >= 0; shift -= 7)
    tag.push_back(static_cast<uint8_t>(size >> shift & 127));
  return tag + Bytes(size, 0xFF);
}

Bytes Id3v1() {
  return Bytes{'T', 'A', 'G'} + Bytes(125, ' ');
}

}  // namespace kelstream_test
