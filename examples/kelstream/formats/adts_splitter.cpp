// Cuts AAC in ADTS into frames.

#include "adts_splitter.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace kelstream {

using adts::Header;
using adts::kHeaderSize;
using adts::ParseHeader;

namespace {

// Room for everything that must be seen to take a decision (a frame, and four
// headers in a row from any place in it) and enough more to move it seldom.
constexpr size_t kWindow = 262144;
// A transport stream may hold a thousand streams that never need that much.
constexpr size_t kFirstWindow = 4096;

constexpr uint32_t kSamplesPerBlock = 1024;

}  // namespace

AdtsSplitter::AdtsSplitter(UnitSink &sink, uint64_t offset)
    : sink_(sink), window_(kFirstWindow), window_offset_(offset) {}

void AdtsSplitter::Damage(uint64_t offset, std::string_view text) {
  sink_.OnRemark(Severity::kDamage, offset, text);
}

void AdtsSplitter::Feed(const uint8_t *data, size_t size) {
  while (size > 0) {
    if (filled_ == window_.size()) {
      if (Available() > window_.size() / 2 && window_.size() < kWindow)
        window_.resize(window_.size() * 2);
      std::memmove(window_.data(), Data(), Available());
      window_offset_ += position_;
      filled_ = Available();
      position_ = 0;
    }
    const size_t take = std::min(size, window_.size() - filled_);
    std::memcpy(window_.data() + filled_, data, take);
    filled_ += take;
    data += take;
    size -= take;
    Process();
  }
}

void AdtsSplitter::Finish() {
  end_ = true;
  Process();
  if (searching_)
    EndSearch(false);
  if (!any_) {
    StreamFormat unknown;
    unknown.codec = Codec::kAac;
    sink_.OnFormat(unknown);
    Damage(window_offset_, "no frame could be read");
  }
}

void AdtsSplitter::Process() {
  for (bool progress = true; progress && Available() > 0;) {
    if (skip_ > 0) {
      const auto count = static_cast<size_t>(std::min<uint64_t>(skip_, Available()));
      Consume(count);
      skip_ -= count;
    } else {
      progress = searching_ ? ResumeSearch() : AtBoundary();
    }
  }
}

// A frame should begin here. False when more bytes are needed to go on.
bool AdtsSplitter::AtBoundary() {
  if (!end_ && Available() < adts::kId3HeaderSize)
    return false;
  if (const auto skipped = SkipTag())
    return *skipped;
  if (Available() < kHeaderSize) {
    Damage(Offset(), "the file ends within a frame header");
    Consume(Available());
    return true;
  }
  const auto header = ParseHeader(Data());
  if (header)
    return TakeFrame(*header);
  LoseSync();
  return true;
}

// Tags stand in front and at the end, and in between where files were joined.
// True when one was skipped, false when that cannot be told yet.
std::optional<bool> AdtsSplitter::SkipTag() {
  if (Available() >= adts::kId3HeaderSize) {
    if (const auto size = adts::Id3TagSize(Data())) {
      skip_ = *size;
      return true;
    }
  }
  if (Available() < 3 || !adts::IsId3v1(Data()))
    return std::nullopt;
  const size_t needed = adts::kId3v1Size + adts::kId3HeaderSize;
  if (Available() < needed && !end_)
    return false;
  const uint8_t *const behind = Data() + adts::kId3v1Size;
  if (Available() == adts::kId3v1Size ||
      (Available() >= needed && (ParseHeader(behind) || adts::Id3TagSize(behind)))) {
    skip_ = adts::kId3v1Size;
    return true;
  }
  return std::nullopt;
}

// Whether what stands at `at` goes on where a frame with this header ended.
AdtsSplitter::Answer AdtsSplitter::FollowsFrame(size_t at, const Header &header) const {
  if (at + adts::kId3HeaderSize > Available() && !end_)
    return Answer::kWait;
  const uint8_t *const data = Data() + at;
  if (at + kHeaderSize > Available())
    return at <= Available() ? Answer::kYes : Answer::kNo;
  if (const auto next = ParseHeader(data))
    return next->fixed == header.fixed ? Answer::kYes : ConfirmSync(at);
  const bool tag = (at + adts::kId3HeaderSize <= Available() && adts::Id3TagSize(data)) ||
                   adts::IsId3v1(data);
  return tag ? Answer::kYes : Answer::kNo;
}

// Whether a frame begins at `at` when there is no frame before it to tell: the
// headers behind it must bear it out. Bytes that look like a header are common.
AdtsSplitter::Answer AdtsSplitter::ConfirmSync(size_t at) const {
  if (at + kHeaderSize > Available())
    return end_ ? Answer::kNo : Answer::kWait;
  const auto first = ParseHeader(Data() + at);
  if (!first)
    return Answer::kNo;
  const int wanted = any_ && first->fixed == fixed_ ? 1 : 2;
  auto header = first;
  for (int i = 0; i < wanted; ++i) {
    at += header->frame_length;
    if (end_ && at == Available())
      return Answer::kYes;
    if (at + kHeaderSize > Available())
      return end_ ? Answer::kNo : Answer::kWait;
    header = ParseHeader(Data() + at);
    if (!header)
      return adts::IsId3v1(Data() + at) ? Answer::kYes : Answer::kNo;
    if (header->fixed != first->fixed)
      return Answer::kNo;
  }
  return Answer::kYes;
}

// The first confirmed frame in [from, limit).
AdtsSplitter::Answer AdtsSplitter::FindSync(size_t from, size_t limit, size_t &found) const {
  for (found = from; found < limit; ++found) {
    const void *sync = std::memchr(Data() + found, 0xFF, limit - found);
    if (sync == nullptr)
      break;
    found = static_cast<size_t>(static_cast<const uint8_t *>(sync) - Data());
    const Answer answer = ConfirmSync(found);
    if (answer != Answer::kNo)
      return answer;
  }
  found = limit;
  return Answer::kNo;
}

// The header is in place. Its length is believed when what follows bears it
// out; else a frame that begins within it shows that this one is cut short.
bool AdtsSplitter::TakeFrame(const Header &header) {
  const size_t length = header.frame_length;
  Answer answer = FollowsFrame(length, header);
  if (answer == Answer::kYes) {
    EmitFrame(header);
    return true;
  }
  size_t next = 0;
  if (answer == Answer::kNo)
    answer = FindSync(1, std::min(length, Available()), next);
  if (answer == Answer::kWait)
    return false;
  if (answer == Answer::kYes) {
    Damage(Offset(), "frame is damaged: another one begins after " + std::to_string(next) +
                         " of its " + std::to_string(length) + " bytes");
    Consume(next);
  } else if (length > Available()) {
    Damage(Offset(), "the file ends within a frame: " + std::to_string(Available()) + " of " +
                         std::to_string(length) + " bytes");
    Consume(Available());
  } else {
    EmitFrame(header);
  }
  return true;
}

void AdtsSplitter::LoseSync() {
  searching_ = true;
  lost_at_ = Offset();
  searched_ = 1;
}

bool AdtsSplitter::ResumeSearch() {
  size_t found = 0;
  const Answer answer = FindSync(std::min(searched_, Available()), Available(), found);
  Consume(found);
  searched_ = 0;
  if (answer == Answer::kWait)
    return false;
  if (answer == Answer::kYes)
    EndSearch(true);
  return true;
}

void AdtsSplitter::EndSearch(bool found) {
  searching_ = false;
  const std::string count = std::to_string(Offset() - lost_at_);
  if (!found)
    Damage(lost_at_, "no frame in the last " + count + " bytes");
  else if (any_)
    Damage(lost_at_, count + " bytes skipped up to the next frame");
  else
    Damage(lost_at_, count + " bytes before the first frame");
}

void AdtsSplitter::CheckParameters(const Header &header) {
  if (!any_) {
    fixed_ = header.fixed;
    const PaddedBytes frame(Data(), std::min<size_t>(header.frame_length, Available()));
    sink_.OnFormat(FormatOf(header, frame));
    return;
  }
  if (header.fixed == fixed_)
    return;
  // Parameters that only one frame has are damage; those that stay are a change.
  const size_t length = header.frame_length;
  const auto next =
      Available() >= length + kHeaderSize ? ParseHeader(Data() + length) : std::nullopt;
  if (next && next->fixed == header.fixed) {
    sink_.OnRemark(Severity::kNote, Offset(), "the stream's parameters change");
    fixed_ = header.fixed;
  } else {
    Damage(Offset(), "frame header differs from those around it");
  }
}

void AdtsSplitter::EmitFrame(const Header &header) {
  CheckParameters(header);
  any_ = true;
  const size_t length = header.frame_length;
  sink_.OnBytes(Data(), length);
  Unit unit;
  unit.offset = Offset();
  unit.size = length;
  unit.frame = true;
  unit.samples = kSamplesPerBlock * header.blocks;
  unit.sample_rate = header.sample_rate;
  sink_.OnUnitEnd(unit);
  Consume(length);
}

}  // namespace kelstream
