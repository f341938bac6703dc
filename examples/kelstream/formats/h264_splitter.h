// Cuts an H.264 byte stream (Annex B) into access units.
//
// Only headers are read. That a slice was cut in its data cannot be told here:
// it takes decoding the data to see that some are missing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "h264_pictures.h"
#include "h264_syntax.h"
#include "nal_scanner.h"
#include "stream.h"

namespace kelstream {

class H264Splitter : public Splitter, private h264::NalHandler {
 public:
  // `offset` is that of the first byte fed, for what is reported.
  explicit H264Splitter(UnitSink &sink, uint64_t offset = 0);

  void Feed(const uint8_t *data, size_t size) override { scanner_.Feed(data, size); }
  void Finish() override;

 private:
  // The longest start of a NAL unit that is kept for parsing. Parameter sets
  // are far shorter, save those with a map of slice groups.
  static constexpr size_t kMaxHead = 16384;

  void OnStartCode(uint64_t offset, unsigned zeros) override;
  void OnNalBytes(const uint8_t *data, size_t size) override;
  void OnPadding(uint64_t zeros) override;
  void OnForbidden(uint64_t offset) override;

  void FinishNal();
  void Examine(bool complete);
  void ExamineHeader();
  bool NeedMore(h264::Parse parse, bool complete);
  void ExamineSlice(bool complete);
  void ExamineParameters(bool complete);
  void ExamineSei(bool complete);
  void OnSlice(const h264::SliceHeader &slice, const h264::Sps &sps, const h264::Pps &pps);
  void OnUnreadableSlice(bool begins_picture, std::string_view why);
  void Decide(bool new_unit);
  void EndUnit();
  void Damage(uint64_t offset, std::string_view text);

  size_t HeadSize() const { return held_.size() - nal_begin_; }
  h264::NalHeader Header() const { return h264::NalHeader(held_[nal_begin_]); }
  const PaddedBytes &Payload();

  UnitSink &sink_;
  h264::NalScanner scanner_;
  h264::PictureTracker pictures_;

  std::array<std::optional<h264::Sps>, h264::kMaxSps> sps_;
  std::array<std::optional<h264::Pps>, h264::kMaxPps> pps_;
  std::optional<h264::Sps> first_sps_;
  bool format_known_ = false;

  // Before the first start code.
  bool started_ = false;
  uint64_t garbage_offset_ = 0;
  uint64_t garbage_ = 0;

  // The NAL unit being read. Its bytes are held until it is decided which
  // access unit they belong to, then they only pass through.
  bool in_nal_ = false;
  bool decided_ = false;
  uint64_t nal_offset_ = 0;
  size_t nal_begin_ = 0;  // of its header, in held_
  size_t wanted_ = 0;     // bytes to examine next
  std::vector<uint8_t> held_;
  uint64_t held_offset_ = 0;
  bool prefix_held_ = false;  // held_ begins with a prefix NAL unit
  PaddedBytes payload_;

  // The access unit being put together.
  bool unit_open_ = false;
  Unit unit_;
  bool has_vcl_ = false;
  bool slice_lost_ = false;
  bool recovery_point_ = false;
  std::optional<h264::SliceHeader> last_slice_;
};

}  // namespace kelstream
