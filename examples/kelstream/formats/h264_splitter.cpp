// Cuts an H.264 byte stream into access units.

#include "h264_splitter.h"

#include <algorithm>
#include <string>

namespace kelstream {

using h264::NalHeader;
using h264::Parse;

namespace {

// Enough for all but a few slice headers.
constexpr size_t kSliceHead = 64;
// Real ones have a handful of bytes.
constexpr size_t kMaxPrefix = 256;

// NAL units of these types begin an access unit when they come after slices.
bool BeginsUnit(uint8_t type) {
  return (type >= h264::kSei && type <= h264::kAccessUnitDelimiter) ||
         (type >= h264::kPrefix && type <= h264::kReserved18);
}

bool MayBeEmpty(uint8_t type) {
  constexpr uint8_t kLastNamed = 23;
  return type == h264::kEndOfSequence || type == h264::kEndOfStream || type == 0 ||
         type > kLastNamed;
}

}  // namespace

H264Splitter::H264Splitter(UnitSink &sink, uint64_t offset)
    : sink_(sink), scanner_(*this, offset), pictures_(sink), garbage_offset_(offset) {
  held_.reserve(kMaxHead);
}

void H264Splitter::Damage(uint64_t offset, std::string_view text) {
  sink_.OnRemark(Severity::kDamage, offset, text);
}

void H264Splitter::OnStartCode(uint64_t offset, unsigned zeros) {
  FinishNal();
  if (!started_ && garbage_ > 0)
    Damage(garbage_offset_, std::to_string(garbage_) + " bytes before the first start code");
  started_ = true;
  in_nal_ = true;
  decided_ = false;
  nal_offset_ = offset;
  if (held_.empty())
    held_offset_ = offset;
  held_.insert(held_.end(), zeros, 0);
  held_.push_back(1);
  nal_begin_ = held_.size();
  wanted_ = 1;
}

void H264Splitter::OnNalBytes(const uint8_t *data, size_t size) {
  if (!started_) {
    garbage_ += size;
    return;
  }
  while (!decided_ && size > 0) {
    const size_t take = std::min(size, wanted_ - HeadSize());
    held_.insert(held_.end(), data, data + take);
    data += take;
    size -= take;
    if (HeadSize() == wanted_)
      Examine(false);
  }
  if (size > 0) {
    sink_.OnBytes(data, size);
    unit_.size += size;
  }
}

// Padding in front of the first start code is legal; else it belongs to the
// access unit before it.
void H264Splitter::OnPadding(uint64_t zeros) {
  FinishNal();
  if (!held_.empty())
    Decide(true);
  if (!unit_open_) {
    if (garbage_ > 0) {
      garbage_ += zeros;
      return;
    }
    unit_open_ = true;
    unit_ = Unit{.offset = garbage_offset_};
  }
  constexpr std::array<uint8_t, 4096> kZeros{};
  unit_.size += zeros;
  while (zeros > 0) {
    const auto count = static_cast<size_t>(std::min<uint64_t>(zeros, kZeros.size()));
    sink_.OnBytes(kZeros.data(), count);
    zeros -= count;
  }
}

void H264Splitter::OnForbidden(uint64_t offset) {
  if (started_)
    Damage(offset, "zero bytes that cannot occur within a NAL unit");
}

void H264Splitter::FinishNal() {
  if (!in_nal_)
    return;
  in_nal_ = false;
  if (decided_)
    return;
  if (HeadSize() == 0) {
    Damage(nal_offset_, "start code without a NAL unit");
    Decide(prefix_held_);
    return;
  }
  Examine(true);
}

const PaddedBytes &H264Splitter::Payload() {
  h264::Unescape(held_.data() + nal_begin_ + 1, HeadSize() - 1, payload_);
  return payload_;
}

// Called when the bytes wanted are there, or the NAL unit is complete. Decides,
// or wants more.
void H264Splitter::Examine(bool complete) {
  const NalHeader nal = Header();
  if (wanted_ == 1 && !complete) {
    ExamineHeader();
    return;
  }
  if (HeadSize() == 1 && !MayBeEmpty(nal.type)) {
    Damage(nal_offset_, "NAL unit without content");
    if (nal.StartsSlice())
      pictures_.OnLoss();
    Decide(prefix_held_ || BeginsUnit(nal.type));
    return;
  }
  if (nal.StartsSlice())
    ExamineSlice(complete);
  else if (nal.type == h264::kSps || nal.type == h264::kPps)
    ExamineParameters(complete);
  else if (nal.type == h264::kSei)
    ExamineSei(complete);
  else if (nal.type == h264::kPrefix && complete && has_vcl_ && !prefix_held_)
    prefix_held_ = true;  // the slice that follows decides
  else
    Decide(prefix_held_ || BeginsUnit(nal.type));
}

// Says how much of the NAL unit is wanted.
void H264Splitter::ExamineHeader() {
  const NalHeader nal = Header();
  if (nal.forbidden_bit) {
    Damage(nal_offset_, "NAL unit with forbidden_zero_bit set");
    pictures_.OnLoss();
    Decide(prefix_held_);
  } else if (nal.StartsSlice()) {
    wanted_ = kSliceHead;
  } else if (nal.type >= h264::kSei && nal.type <= h264::kPps) {
    wanted_ = kMaxHead;
  } else if (nal.type == h264::kPrefix && has_vcl_) {
    wanted_ = kMaxPrefix;
  } else {
    // Two, to see whether there is anything behind the header at all.
    wanted_ = 2;
  }
}

// True when the structure may just go on behind what is held so far.
bool H264Splitter::NeedMore(Parse parse, bool complete) {
  if (parse != Parse::kShort || complete || wanted_ >= kMaxHead)
    return false;
  wanted_ = std::min(wanted_ * 8, kMaxHead);
  return true;
}

void H264Splitter::ExamineSlice(bool complete) {
  const PaddedBytes &payload = Payload();
  h264::SliceHeader slice;
  Parse parse = h264::ParseSliceStart(payload, slice);
  if (NeedMore(parse, complete))
    return;
  if (parse != Parse::kOk) {
    OnUnreadableSlice(
        false, parse == Parse::kShort ? "slice header is cut" : "slice header is damaged");
    return;
  }
  const bool first = slice.first_mb == 0;
  const auto &pps = pps_[slice.pps_id];
  const auto *sps = pps ? &sps_[pps->sps_id] : nullptr;
  if (sps == nullptr || !*sps) {
    OnUnreadableSlice(first, pps ? "slice without its sequence parameter set"
                                 : "slice without its picture parameter set");
    return;
  }
  parse = h264::ParseSliceHeader(payload, Header(), **sps, *pps, slice);
  if (NeedMore(parse, complete))
    return;
  if (parse == Parse::kOk)
    OnSlice(slice, **sps, *pps);
  else
    OnUnreadableSlice(
        first, parse == Parse::kShort ? "slice header is cut" : "slice header is damaged");
}

void H264Splitter::OnUnreadableSlice(bool begins_picture, std::string_view why) {
  Damage(nal_offset_, why);
  pictures_.OnLoss();
  Decide(begins_picture || prefix_held_);
  has_vcl_ = true;
  slice_lost_ = true;
}

void H264Splitter::OnSlice(const h264::SliceHeader &slice, const h264::Sps &sps,
                           const h264::Pps &pps) {
  // Redundant slices repeat what the primary picture before them holds.
  const bool redundant = slice.redundant_pic_cnt > 0;
  const bool begins =
      last_slice_ ? h264::BeginsPicture(*last_slice_, slice) : slice.first_mb == 0;
  Decide(begins && !redundant);
  has_vcl_ = true;
  if (redundant)
    return;
  if (!last_slice_) {
    if (!format_known_) {
      format_known_ = true;
      sink_.OnFormat(FormatOf(sps));
    }
    const auto role =
        pictures_.OnPicture(slice, sps, pps, {nal_offset_, recovery_point_, slice_lost_});
    unit_.frame = role.begins_frame;
    unit_.second_field = !role.begins_frame;
    unit_.key = role.key;
  }
  last_slice_ = slice;
}

void H264Splitter::ExamineParameters(bool complete) {
  if (complete || wanted_ >= kMaxHead) {
    const bool is_sps = Header().type == h264::kSps;
    h264::Sps sps;
    h264::Pps pps;
    const Parse parse =
        is_sps ? h264::ParseSps(Payload(), sps) : h264::ParsePps(Payload(), pps);
    if (parse != Parse::kOk || !complete) {
      const std::string name = is_sps ? "sequence" : "picture";
      const bool cut = parse == Parse::kShort && complete;
      Damage(nal_offset_, name + " parameter set is " + (cut ? "cut" : "damaged"));
    } else if (is_sps) {
      sps_[sps.id] = sps;
      if (!first_sps_)
        first_sps_ = sps;
    } else {
      pps_[pps.id] = pps;
    }
  }
  Decide(true);
}

void H264Splitter::ExamineSei(bool complete) {
  bool recovery_point = false;
  const Parse parse = h264::FindRecoveryPoint(Payload(), recovery_point);
  if (complete && parse != Parse::kOk)
    Damage(nal_offset_, "supplemental information (SEI) is cut or damaged");
  Decide(true);
  recovery_point_ = recovery_point_ || recovery_point;
}

// What is held goes to the access unit being put together, or to a new one. A
// prefix NAL unit that no slice follows begins a new one.
void H264Splitter::Decide(bool new_unit) {
  if (new_unit && has_vcl_)
    EndUnit();
  if (!unit_open_) {
    unit_open_ = true;
    unit_ = Unit{.offset = held_offset_};
  }
  sink_.OnBytes(held_.data(), held_.size());
  unit_.size += held_.size();
  held_.clear();
  nal_begin_ = 0;
  prefix_held_ = false;
  decided_ = true;
}

void H264Splitter::EndUnit() {
  // Parameter sets and the like without any slice are readable, too.
  unit_.readable = last_slice_.has_value() || !has_vcl_;
  sink_.OnUnitEnd(unit_);
  unit_open_ = false;
  has_vcl_ = false;
  slice_lost_ = false;
  recovery_point_ = false;
  last_slice_.reset();
}

void H264Splitter::Finish() {
  const bool in_nal = in_nal_;
  const uint64_t zeros = scanner_.Finish();
  FinishNal();
  if (!held_.empty())
    Decide(true);
  // A NAL unit never ends in a zero; more of them than a start code begins with
  // are padding.
  constexpr uint64_t kStartCodeZeros = 3;
  if (in_nal && zeros > 0 && zeros <= kStartCodeZeros)
    Damage(nal_offset_, "the file ends within a NAL unit or a start code");
  if (unit_open_)
    EndUnit();
  if (!format_known_) {
    StreamFormat unknown;
    unknown.codec = Codec::kH264;
    sink_.OnFormat(first_sps_ ? FormatOf(*first_sps_) : unknown);
  }
  if (!pictures_.any())
    Damage(garbage_offset_, "no picture could be read");
}

}  // namespace kelstream
