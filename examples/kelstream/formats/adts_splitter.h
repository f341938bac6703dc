// Cuts AAC in ADTS into frames, and finds back into the stream after damage.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "adts_syntax.h"
#include "stream.h"

namespace kelstream {

class AdtsSplitter : public Splitter {
 public:
  // `offset` is that of the first byte fed, for what is reported.
  explicit AdtsSplitter(UnitSink &sink, uint64_t offset = 0);

  void Feed(const uint8_t *data, size_t size) override;
  void Finish() override;

 private:
  enum class Answer : uint8_t { kNo, kYes, kWait };  // kWait: ask when more is there

  void Process();
  bool AtBoundary();
  bool ResumeSearch();
  bool TakeFrame(const adts::Header &header);
  std::optional<bool> SkipTag();
  Answer FollowsFrame(size_t at, const adts::Header &header) const;
  Answer ConfirmSync(size_t at) const;
  Answer FindSync(size_t from, size_t limit, size_t &found) const;
  void EmitFrame(const adts::Header &header);
  void CheckParameters(const adts::Header &header);
  void LoseSync();
  void EndSearch(bool found);
  void Consume(size_t count) { position_ += count; }
  void Damage(uint64_t offset, std::string_view text);

  const uint8_t *Data() const { return window_.data() + position_; }
  size_t Available() const { return filled_ - position_; }
  uint64_t Offset() const { return window_offset_ + position_; }

  UnitSink &sink_;
  // What is fed goes through a window, so that headers and the ones that
  // confirm them lie side by side however the pieces were cut.
  std::vector<uint8_t> window_;
  size_t filled_ = 0;
  size_t position_ = 0;
  uint64_t window_offset_;  // of the window's first byte
  bool end_ = false;

  uint64_t skip_ = 0;  // bytes of a tag still to come
  bool searching_ = false;
  uint64_t lost_at_ = 0;
  size_t searched_ = 0;  // bytes at position_ known to begin no frame
  bool any_ = false;
  uint32_t fixed_ = 0;  // the stream's fixed header
};

}  // namespace kelstream
