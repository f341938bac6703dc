// Records what a splitter finds.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "bit_writer.h"
#include "stream.h"

namespace kelstream_test {

class Recorder : public kelstream::UnitSink {
 public:
  struct Remark {
    kelstream::Severity severity;
    uint64_t offset;
    std::string text;
  };

  void OnFormat(const kelstream::StreamFormat &format) override { formats.push_back(format); }
  void OnBytes(const uint8_t *data, size_t size) override { current_.append(data, size); }
  void OnUnitEnd(const kelstream::Unit &unit) override {
    units.push_back(unit);
    contents.push_back(current_);
    current_.clear();
  }
  void OnRemark(kelstream::Severity severity, uint64_t offset, std::string_view text) override {
    remarks.push_back({severity, offset, std::string(text)});
  }

  size_t Frames() const { return Count(&kelstream::Unit::frame); }
  size_t KeyFrames() const { return Count(&kelstream::Unit::key); }
  bool LeftOver() const { return !current_.empty(); }
  Bytes All() const {
    Bytes all;
    for (const Bytes &content : contents)
      all += content;
    return all;
  }
  // One line for each thing found, to compare and to show.
  std::string Text() const {
    std::string text;
    for (const auto &format : formats)
      text += std::string("format ") + format.profile + " " + std::to_string(format.width) +
              "x" + std::to_string(format.height) + " " + std::to_string(format.sample_rate) +
              "/" + std::to_string(format.channels) + "\n";
    for (const auto &unit : units)
      text += "unit " + std::to_string(unit.offset) + "+" + std::to_string(unit.size) +
              (unit.readable ? "" : " unreadable") + (unit.frame ? " frame" : "") +
              (unit.key ? " key" : "") + " " + std::to_string(unit.samples) + "\n";
    return text + Remarks();
  }
  std::string Remarks() const {
    std::string text;
    for (const auto &remark : remarks)
      text += (remark.severity == kelstream::Severity::kNote ? "note " : "damage ") +
              std::to_string(remark.offset) + ": " + remark.text + "\n";
    return text;
  }

  std::vector<kelstream::StreamFormat> formats;
  std::vector<kelstream::Unit> units;
  std::vector<Bytes> contents;
  std::vector<Remark> remarks;

 private:
  size_t Count(bool kelstream::Unit::*flag) const {
    return static_cast<size_t>(std::count_if(units.begin(), units.end(),
                                             [&](const auto &unit) { return unit.*flag; }));
  }
  Bytes current_;
};

// Feeds all of `data` in pieces of `piece` bytes, 0 for one piece.
template <typename Splitter>
Recorder Split(const Bytes &data, size_t piece = 0) {
  Recorder recorder;
  Splitter splitter(recorder, 0);
  if (piece == 0)
    piece = std::max<size_t>(data.size(), 1);
  for (size_t at = 0; at < data.size(); at += piece)
    splitter.Feed(data.data() + at, std::min(piece, data.size() - at));
  splitter.Finish();
  return recorder;
}

}  // namespace kelstream_test
