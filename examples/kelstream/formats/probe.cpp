// Tells what a file is from its first bytes.

#include "probe.h"

#include <algorithm>
#include <cstring>

#include "adts_syntax.h"
#include "h264_syntax.h"
#include "nal_scanner.h"
#include "ts_packet.h"

namespace kelstream {

namespace {

// Looks at the NAL units that the first bytes seem to hold.
class NalSurvey : public h264::NalHandler {
 public:
  bool LooksLikeH264() const {
    if (sps_)
      return true;
    constexpr unsigned kConvincing = 8;
    return plausible_ > kConvincing * odd_ && (at_start_ || plausible_ >= kConvincing);
  }

  void Finish() { Judge(); }

 private:
  void OnStartCode(uint64_t offset, unsigned) override {
    Judge();
    at_start_ = at_start_ || offset == 0;
    in_nal_ = true;
    head_.clear();
  }
  void OnNalBytes(const uint8_t *data, size_t size) override {
    constexpr size_t kMaxSpsSize = 4096;
    if (!in_nal_)
      return;
    const size_t take = std::min(size, kMaxSpsSize - head_.size());
    head_.insert(head_.end(), data, data + take);
  }
  void OnPadding(uint64_t) override {}
  void OnForbidden(uint64_t) override {}

  void Judge() {
    if (!in_nal_ || head_.empty())
      return;
    in_nal_ = false;
    ++(Plausible(h264::NalHeader(head_[0])) ? plausible_ : odd_);
    if (sps_ || (head_[0] & 31) != h264::kSps)
      return;
    PaddedBytes payload;
    h264::Unescape(head_.data() + 1, head_.size() - 1, payload);
    h264::Sps sps;
    sps_ = h264::ParseSps(payload, sps) == h264::Parse::kOk && !h264::ProfileName(sps).empty();
  }

  // Other codecs use the same start codes, with other headers behind them.
  static bool Plausible(h264::NalHeader nal) {
    if (nal.forbidden_bit || nal.type == 0 || nal.type > 21)
      return false;
    if (nal.type == h264::kIdrSlice || nal.type == h264::kSps || nal.type == h264::kPps)
      return nal.ref_idc != 0;
    if (nal.type == h264::kSei ||
        (nal.type >= h264::kAccessUnitDelimiter && nal.type <= h264::kFillerData))
      return nal.ref_idc == 0;
    return true;
  }

  bool in_nal_ = false;
  std::vector<uint8_t> head_;
  bool sps_ = false;
  bool at_start_ = false;
  unsigned plausible_ = 0;
  unsigned odd_ = 0;
};

bool LooksLikeH264(const uint8_t *data, size_t size) {
  NalSurvey survey;
  h264::NalScanner scanner(survey, 0);
  scanner.Feed(data, size);
  survey.Finish();
  return survey.LooksLikeH264();
}

// True when `count` frames follow each other from `at` on, or all there are up
// to the end.
bool FramesAt(const uint8_t *data, size_t size, bool whole, size_t at, int count) {
  uint32_t fixed = 0;
  for (int i = 0; i < count; ++i) {
    if (at + adts::kHeaderSize > size)
      return i > 0 && whole;
    const auto header = adts::ParseHeader(data + at);
    if (!header || (i > 0 && header->fixed != fixed))
      return false;
    fixed = header->fixed;
    at += header->frame_length;
  }
  return true;
}

bool HasFrames(const uint8_t *data, size_t size, bool whole) {
  constexpr int kConvincing = 4;
  for (size_t at = 0; at < size; ++at) {
    const void *sync = std::memchr(data + at, 0xFF, size - at);
    if (sync == nullptr)
      return false;
    at = static_cast<size_t>(static_cast<const uint8_t *>(sync) - data);
    // Nothing but bytes that look like the end of a file is not enough.
    if (FramesAt(data, size, false, at, kConvincing) ||
        (whole && at == 0 && FramesAt(data, size, true, at, kConvincing)))
      return true;
  }
  return false;
}

// Packets at the very beginning, or so many behind it that it is no chance.
bool HasPackets(const uint8_t *data, size_t size, bool whole) {
  constexpr int kConvincing = 5;
  const auto packets = [&](size_t at, bool to_the_end) {
    if (ts::PacketsAt(data + at, size - at, to_the_end, kConvincing) != ts::Answer::kYes)
      return false;
    const size_t end = std::min(size, at + kConvincing * ts::kPacketSize);
    for (; at + ts::kPacketSize <= end; at += ts::kPacketSize)
      if (!ts::ParsePacket(data + at))
        return false;
    return true;
  };
  if (size > 0 && packets(0, whole))
    return true;
  for (size_t at = 0; at < size; ++at) {
    const void *sync = std::memchr(data + at, ts::kSyncByte, size - at);
    if (sync == nullptr)
      return false;
    at = static_cast<size_t>(static_cast<const uint8_t *>(sync) - data);
    if (packets(at, false))
      return true;
  }
  return false;
}

}  // namespace

Container Probe(const uint8_t *data, size_t size, bool whole) {
  constexpr int kAtStart = 3;
  if (HasPackets(data, size, whole))
    return Container::kMpegTs;
  if (FramesAt(data, size, whole, 0, kAtStart))
    return Container::kAdts;
  if (LooksLikeH264(data, size))
    return Container::kH264;
  return HasFrames(data, size, whole) ? Container::kAdts : Container::kUnknown;
}

const char *NameOf(Container container) {
  switch (container) {
    case Container::kH264:
      return "h264";
    case Container::kAdts:
      return "adts";
    case Container::kMpegTs:
      return "mpegts";
    case Container::kUnknown:
      break;
  }
  return "unknown";
}

}  // namespace kelstream
