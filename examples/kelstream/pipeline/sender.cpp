// Packs what is found into messages and frames.

#include "sender.h"

#include <algorithm>

namespace kelstream {

namespace {

// A thoroughly damaged file is told by its first damages: there may be one for
// every few bytes of it.
constexpr uint64_t kMaxRemarks = 20;

}  // namespace

Message &Sender::Begin(uint32_t kind, uint32_t stream) {
  Message &message = pool_.Begin();
  message.word = kind;
  message.stream = stream;
  return message;
}

void Sender::OnStream(const StreamInfo &info) {
  Message &message = Begin(kStream, info.number);
  message.info = info;
  message.end.container = container_;
  pool_.Send(message, nullptr, 0);
}

void Sender::OnFormat(uint32_t stream, const StreamFormat &format) {
  Message &message = Begin(kFormat, stream);
  message.format = format;
  pool_.Send(message, nullptr, 0);
}

Sender::Fragment &Sender::FragmentOf(uint32_t stream) {
  if (last_ < fragments_.size() && fragments_[last_].stream == stream)
    return fragments_[last_];
  auto place = std::lower_bound(
      fragments_.begin(), fragments_.end(), stream,
      [](const Fragment &fragment, uint32_t number) { return fragment.stream < number; });
  if (place == fragments_.end() || place->stream != stream)
    place = fragments_.insert(place, Fragment{.stream = stream, .bytes = {}, .units = {}});
  last_ = static_cast<size_t>(place - fragments_.begin());
  return *place;
}

void Sender::OnBytes(uint32_t stream, const uint8_t *data, size_t size) {
  Fragment &fragment = FragmentOf(stream);
  while (size > 0) {
    if (fragment.bytes.size() == MediaPool::kMaxFrame)
      SendFragment(fragment);
    const size_t take = std::min(size, MediaPool::kMaxFrame - fragment.bytes.size());
    fragment.bytes.insert(fragment.bytes.end(), data, data + take);
    data += take;
    size -= take;
  }
}

void Sender::OnUnitEnd(uint32_t stream, const Unit &unit) {
  Fragment &fragment = FragmentOf(stream);
  // What could not be read is counted by nobody: its bytes are kept apart.
  if (!unit.readable)
    SendClosed(fragment);
  fragment.units.push_back(unit);
  fragment.closed = fragment.bytes.size();
  if (!unit.readable || fragment.units.size() == Message::kMaxUnits)
    SendFragment(fragment);
}

// Sends the units that have ended, and keeps the beginning of the next one.
void Sender::SendClosed(Fragment &fragment) {
  if (fragment.units.empty())
    return;
  const auto open = fragment.bytes.begin() + static_cast<ptrdiff_t>(fragment.closed);
  const std::vector<uint8_t> rest(open, fragment.bytes.end());
  fragment.bytes.resize(fragment.closed);
  SendFragment(fragment);
  fragment.bytes = rest;
}

void Sender::SendFragment(Fragment &fragment) {
  Message &message = Begin(kUnits, fragment.stream);
  message.unit_count = static_cast<uint32_t>(fragment.units.size());
  message.closed = static_cast<uint32_t>(fragment.closed);
  std::copy(fragment.units.begin(), fragment.units.end(), message.units.begin());
  pool_.Send(message, fragment.bytes.data(), fragment.bytes.size());
  fragment.bytes.clear();
  fragment.units.clear();
  fragment.closed = 0;
}

void Sender::Flush() {
  for (Fragment &fragment : fragments_)
    SendClosed(fragment);
  pool_.Flush();
}

void Sender::OnPts(uint32_t stream, const PtsRange &range) {
  SendClosed(FragmentOf(stream));
  Message &message = Begin(kTimes, stream);
  message.times = range;
  pool_.Send(message, nullptr, 0);
}

void Sender::OnRemark(Severity severity, uint64_t offset, std::string_view text) {
  damaged_ = damaged_ || severity == Severity::kDamage;
  if (++remarks_ > kMaxRemarks)
    return;
  Message &message = Begin(kRemark, 0);
  message.severity = severity;
  message.offset = offset;
  text = text.substr(0, sizeof message.text - 1);
  *std::copy(text.begin(), text.end(), message.text) = 0;
  pool_.Send(message, nullptr, 0);
}

void Sender::End(EndOfFile end) {
  end.damaged = damaged_;
  end.remarks_left_out = remarks_ - std::min(remarks_, kMaxRemarks);
  Flush();
  Message &message = Begin(kEndOfFile, 0);
  message.end = end;
  pool_.Send(message, nullptr, 0);
  pool_.Flush();
}

}  // namespace kelstream
