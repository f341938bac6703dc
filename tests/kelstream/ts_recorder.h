// Records what is found in a file of several streams.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "bit_writer.h"
#include "stream_sink.h"
#include "ts_demuxer.h"

namespace kelstream_test {

class StreamRecorder : public kelstream::StreamSink {
 public:
  struct Stream {
    kelstream::StreamInfo info;
    std::vector<kelstream::StreamFormat> formats;
    std::vector<kelstream::Unit> units;
    kelstream::PtsRange times;
    Bytes bytes;       // of all units
    Bytes open_bytes;  // of no unit yet
  };

  void OnStream(const kelstream::StreamInfo &info) override {
    order.push_back(info.number);
    streams[info.number].info = info;
  }
  void OnFormat(uint32_t stream, const kelstream::StreamFormat &format) override {
    streams.at(stream).formats.push_back(format);
  }
  void OnBytes(uint32_t stream, const uint8_t *data, size_t size) override {
    streams.at(stream).open_bytes.append(data, size);
  }
  void OnUnitEnd(uint32_t stream, const kelstream::Unit &unit) override {
    Stream &entry = streams.at(stream);
    entry.units.push_back(unit);
    entry.bytes += entry.open_bytes;
    bad_size = bad_size || entry.open_bytes.size() != unit.size;
    entry.open_bytes.clear();
  }
  void OnPts(uint32_t stream, const kelstream::PtsRange &range) override {
    streams.at(stream).times = range;
  }
  void OnRemark(kelstream::Severity severity, uint64_t offset, std::string_view text) override {
    remarks += (severity == kelstream::Severity::kNote ? "note " : "damage ") +
               std::to_string(offset) + ": " + std::string(text) + "\n";
  }

  size_t Frames(uint32_t stream) {
    const auto &units = streams.at(stream).units;
    return static_cast<size_t>(
        std::count_if(units.begin(), units.end(), [](const auto &unit) { return unit.frame; }));
  }
  // Everything, to compare.
  std::string Text() const {
    std::string text;
    for (const auto &[number, stream] : streams) {
      text += std::to_string(number) + "/" + std::to_string(stream.info.type) + " " +
              std::to_string(stream.times.first) + ".." + std::to_string(stream.times.last) +
              "\n";
      for (const auto &unit : stream.units)
        text += std::to_string(unit.offset) + "+" + std::to_string(unit.size) +
                (unit.has_pts ? "@" + std::to_string(unit.pts) : "") + "\n";
    }
    return text + remarks;
  }

  std::vector<uint32_t> order;
  std::map<uint32_t, Stream> streams;
  std::string remarks;
  bool bad_size = false;
};

// Takes all of `data`, of which `piece` bytes more are there each time; 0 for
// all at once.
inline StreamRecorder Demux(const Bytes &data, size_t piece = 0, size_t surveyed = SIZE_MAX) {
  StreamRecorder recorder;
  kelstream::ts::TsDemuxer demuxer(recorder, 0);
  surveyed = std::min(surveyed, data.size());
  demuxer.Survey(data.data(), surveyed, surveyed == data.size());
  if (piece == 0)
    piece = data.size() + 1;
  size_t at = 0;
  for (size_t end = std::min(piece, data.size());; end = std::min(end + piece, data.size())) {
    at += demuxer.Take(data.data() + at, end - at, end == data.size());
    if (end == data.size())
      break;
  }
  demuxer.Finish();
  return recorder;
}

}  // namespace kelstream_test
