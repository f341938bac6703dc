// Packs what is found into messages and frames of the media buffer pool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "media_pool.h"
#include "stream_sink.h"

namespace kelstream {

class Sender : public StreamSink {
 public:
  explicit Sender(MediaPool &pool) : pool_(pool) {}

  // Before the first stream.
  void SetContainer(Container container) { container_ = container; }

  void OnStream(const StreamInfo &info) override;
  void OnFormat(uint32_t stream, const StreamFormat &format) override;
  void OnBytes(uint32_t stream, const uint8_t *data, size_t size) override;
  void OnUnitEnd(uint32_t stream, const Unit &unit) override;
  void OnPts(uint32_t stream, const PtsRange &range) override;
  void OnRemark(Severity severity, uint64_t offset, std::string_view text) override;

  // Lets the readers have what was found.
  void Flush();

  // How reading a file ended; nothing comes after it. What is known here of
  // damage is filled in.
  void End(EndOfFile end);

 private:
  // Streams come in turns, often after a few bytes, and most units are small:
  // what is found of one stream is put together here until it makes a frame of
  // the pool.
  struct Fragment {
    uint32_t stream = 0;
    std::vector<uint8_t> bytes;
    size_t closed = 0;  // bytes of units that have ended
    std::vector<Unit> units;
  };

  Message &Begin(uint32_t kind, uint32_t stream);
  Fragment &FragmentOf(uint32_t stream);
  void SendFragment(Fragment &fragment);
  void SendClosed(Fragment &fragment);

  MediaPool &pool_;
  Container container_ = Container::kUnknown;
  std::vector<Fragment> fragments_;  // in the order of the streams' numbers
  size_t last_ = 0;                  // the one used last
  bool damaged_ = false;
  uint64_t remarks_ = 0;
};

}  // namespace kelstream
