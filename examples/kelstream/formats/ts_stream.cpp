// One stream of a transport stream.

#include "ts_stream.h"

#include <algorithm>

#include "adts_splitter.h"
#include "bit_reader.h"
#include "h264_splitter.h"

namespace kelstream::ts {

namespace {

constexpr size_t kPrefixSize = 6;  // start code, stream_id, length
constexpr size_t kFixedSize = 9;   // with the flags, and the length of what follows
constexpr int64_t kPtsRange = int64_t{1} << 33;

// These have no flags: maps, padding, private data of the second kind and such.
bool IsPlain(uint8_t stream_id) {
  constexpr uint8_t kPlain[] = {0xBC, 0xBE, 0xBF, 0xF0, 0xF1, 0xF2, 0xF8, 0xFF};
  return std::find(std::begin(kPlain), std::end(kPlain), stream_id) != std::end(kPlain);
}

constexpr uint8_t kPaddingStream = 0xBE;

std::optional<int64_t> ReadPts(BitReader &bits) {
  bits.Skip(4);
  int64_t pts = 0;
  bool good = true;
  for (const uint32_t count : {3u, 15u, 15u}) {
    pts = pts << count | bits.Bits(count);
    good = bits.Flag() && good;  // a marker behind each part
  }
  if (!good || bits.Failed())
    return std::nullopt;
  return pts;
}

}  // namespace

TsStream::TsStream(StreamSink &sink, const StreamInfo &info)
    : sink_(sink), info_(info), name_("PID " + std::to_string(info.number) + ": ") {
  sink_.OnStream(info);
}

void TsStream::Remark(Severity severity, uint64_t offset, const std::string &text) {
  sink_.OnRemark(severity, offset, name_ + text);
}

void TsStream::OnPayload(uint64_t offset, const uint8_t *data, size_t size, bool start) {
  if (start) {
    EndPacket(false);
    if (!any_ && lost_ > 0)
      Remark(Severity::kDamage, lost_offset_,
             std::to_string(lost_) + " bytes before the first PES packet");
    any_ = true;
    state_ = State::kHeader;
    packet_offset_ = offset;
    header_.clear();
    wanted_ = kPrefixSize;
  }
  if (state_ == State::kLost && !any_) {
    if (lost_ == 0)
      lost_offset_ = offset;
    lost_ += size;
  }
  if (state_ == State::kHeader) {
    const size_t taken = TakeHeader(data, size);
    offset += taken;
    data += taken;
    size -= taken;
  }
  if (state_ == State::kBody && size > 0)
    TakeBody(offset, data, size);
}

// Returns how many bytes were of the header.
size_t TsStream::TakeHeader(const uint8_t *data, size_t size) {
  size_t taken = 0;
  while (state_ == State::kHeader && taken < size) {
    const size_t count = std::min(size - taken, wanted_ - header_.size());
    header_.insert(header_.end(), data + taken, data + taken + count);
    taken += count;
    if (header_.size() == wanted_)
      ParseHeader();
  }
  return taken;
}

// Called when all bytes wanted are there: goes on to the body, or wants more.
void TsStream::ParseHeader() {
  if (wanted_ == kPrefixSize) {
    if (header_[0] != 0 || header_[1] != 0 || header_[2] != 1) {
      // Streams of sections, and of what else is not parsed, have none.
      if (info_.codec != Codec::kOther) {
        Remark(Severity::kDamage, packet_offset_, "PES packet without its start code");
        state_ = State::kLost;
        return;
      }
      BeginBody(std::nullopt);
      Deliver(packet_offset_, header_.data(), header_.size());
      return;
    }
    if (!IsPlain(header_[3])) {
      wanted_ = kFixedSize;
      return;
    }
  } else if (wanted_ == kFixedSize && header_[8] > 0) {
    wanted_ += header_[8];
    return;
  }

  const uint64_t length = uint64_t{header_[4]} << 8 | header_[5];
  const uint64_t behind_prefix = header_.size() - kPrefixSize;
  if (header_.size() >= kFixedSize) {
    const PaddedBytes bytes(header_.data() + kPrefixSize, behind_prefix);
    BitReader bits(bytes);
    constexpr uint32_t kMarker = 2, kHasPts = 2;
    const bool marked = bits.Bits(2) == kMarker;
    bits.Skip(6);
    const bool has_pts = (bits.Bits(2) & kHasPts) != 0;
    bits.Skip(6 + 8);
    const auto pts = has_pts ? ReadPts(bits) : std::nullopt;
    if (!marked || (has_pts && !pts) || (length != 0 && length < behind_prefix)) {
      Remark(Severity::kDamage, packet_offset_, "PES header is damaged");
      BeginBody(std::nullopt);
      return;
    }
    if (pts)
      NotePts(*pts);
  }
  BeginBody(length == 0 ? std::nullopt : std::optional(length - behind_prefix));
  if (header_[3] == kPaddingStream)
    state_ = State::kSkip;
}

// Times count on over the end of their 33 bits.
void TsStream::NotePts(int64_t pts) {
  if (times_.known) {
    const int64_t turns =
        (last_pts_ - pts + (last_pts_ > pts ? 1 : -1) * kPtsRange / 2) / kPtsRange;
    pts += turns * kPtsRange;
  }
  last_pts_ = pts;
  times_.first = times_.known ? std::min(times_.first, pts) : pts;
  times_.last = times_.known ? std::max(times_.last, pts) : pts;
  times_.known = true;
  map_.AppendPts(pts);
}

void TsStream::BeginBody(std::optional<uint64_t> length) {
  state_ = State::kBody;
  body_left_ = length;
  if (info_.codec == Codec::kOther) {
    unit_open_ = true;
    unit_ = Unit{.offset = packet_offset_};
    if (const auto pts = map_.TakePts(map_.size())) {
      unit_.has_pts = true;
      unit_.pts = *pts;
    }
  }
  if (body_left_ && *body_left_ == 0)
    state_ = State::kSkip;
}

void TsStream::TakeBody(uint64_t offset, const uint8_t *data, size_t size) {
  if (body_left_) {
    size = static_cast<size_t>(std::min<uint64_t>(size, *body_left_));
    *body_left_ -= size;
    if (*body_left_ == 0)
      state_ = State::kSkip;
  }
  Deliver(offset, data, size);
}

void TsStream::Deliver(uint64_t offset, const uint8_t *data, size_t size) {
  map_.Append(offset, size);
  if (info_.codec == Codec::kOther) {
    sink_.OnBytes(info_.number, data, size);
    unit_.size += size;
    map_.Forget(map_.size());
    return;
  }
  if (splitter_ == nullptr)
    splitter_ = MakeSplitter();
  splitter_->Feed(data, size);
}

std::unique_ptr<Splitter> TsStream::MakeSplitter() {
  UnitSink &units = *this;
  if (info_.codec == Codec::kH264)
    return std::make_unique<H264Splitter>(units);
  return std::make_unique<AdtsSplitter>(units);
}

void TsStream::EndPacket(bool at_end) {
  if (state_ == State::kHeader)
    Remark(Severity::kDamage, packet_offset_, "PES header is cut");
  if (state_ == State::kBody && body_left_ && !gap_)
    Remark(Severity::kDamage, packet_offset_,
           (at_end ? "the file ends within a PES packet: " : "PES packet is cut: ") +
               std::to_string(*body_left_) + " of its bytes are missing");
  if (unit_open_ && unit_.size > 0)
    sink_.OnUnitEnd(info_.number, unit_);
  unit_open_ = false;
  gap_ = false;
  state_ = State::kLost;
}

void TsStream::OnGap() {
  gap_ = true;
  if (state_ == State::kHeader)
    state_ = State::kLost;
}

void TsStream::Finish(uint64_t offset) {
  EndPacket(true);
  if (splitter_ != nullptr)
    splitter_->Finish();
  else if (info_.codec != Codec::kOther)
    Remark(Severity::kDamage, offset, "the file ends before the stream begins");
  sink_.OnPts(info_.number, times_);
}

void TsStream::OnFormat(const StreamFormat &format) {
  sink_.OnFormat(info_.number, format);
}

void TsStream::OnBytes(const uint8_t *data, size_t size) {
  sink_.OnBytes(info_.number, data, size);
}

void TsStream::OnUnitEnd(const Unit &unit) {
  Unit placed = unit;
  placed.offset = map_.FileOffset(unit.offset);
  if (const auto pts = map_.TakePts(unit.offset)) {
    placed.has_pts = true;
    placed.pts = *pts;
  }
  sink_.OnUnitEnd(info_.number, placed);
  map_.Forget(unit.offset + unit.size);
}

void TsStream::OnRemark(Severity severity, uint64_t offset, std::string_view text) {
  Remark(severity, map_.FileOffset(offset), std::string(text));
}

}  // namespace kelstream::ts
