// One stream of a transport stream: takes its PES packets apart and has the
// elementary stream cut into units.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "es_map.h"
#include "stream_sink.h"

namespace kelstream::ts {

class TsStream : private UnitSink {
 public:
  TsStream(StreamSink &sink, const StreamInfo &info);

  const StreamInfo &info() const { return info_; }

  // The payload of the stream's next packet, and where it stands in the file.
  void OnPayload(uint64_t offset, const uint8_t *data, size_t size, bool start);
  // Packets are missing here.
  void OnGap();
  // The end of the file, which is `offset` bytes long.
  void Finish(uint64_t offset);

 private:
  enum class State : uint8_t {
    kLost,    // up to the next PES packet nothing is known
    kHeader,  // within the header of one
    kBody,
    kSkip,  // behind its end, or in one that holds no stream
  };

  void OnFormat(const StreamFormat &format) override;
  void OnBytes(const uint8_t *data, size_t size) override;
  void OnUnitEnd(const Unit &unit) override;
  void OnRemark(Severity severity, uint64_t offset, std::string_view text) override;

  size_t TakeHeader(const uint8_t *data, size_t size);
  void ParseHeader();
  void NotePts(int64_t pts);
  void BeginBody(std::optional<uint64_t> length);
  void TakeBody(uint64_t offset, const uint8_t *data, size_t size);
  void Deliver(uint64_t offset, const uint8_t *data, size_t size);
  void EndPacket(bool at_end);
  std::unique_ptr<Splitter> MakeSplitter();
  void Remark(Severity severity, uint64_t offset, const std::string &text);

  StreamSink &sink_;
  StreamInfo info_;
  std::string name_;  // for remarks
  std::unique_ptr<Splitter> splitter_;
  EsMap map_;
  PtsRange times_;
  int64_t last_pts_ = 0;

  State state_ = State::kLost;
  uint64_t packet_offset_ = 0;
  std::vector<uint8_t> header_;
  size_t wanted_ = 0;                  // bytes of the header
  std::optional<uint64_t> body_left_;  // none: up to the next PES packet
  bool gap_ = false;                   // within this PES packet, and told already
  bool any_ = false;                   // a PES packet was seen
  uint64_t lost_ = 0;                  // bytes before the first one
  uint64_t lost_offset_ = 0;
  bool unit_open_ = false;  // of a stream that is not parsed
  Unit unit_;
};

}  // namespace kelstream::ts
