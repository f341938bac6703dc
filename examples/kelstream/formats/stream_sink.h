// What is found in a file of any container: streams, and units of them.
#pragma once

#include "stream.h"

namespace kelstream {

// As UnitSink, for several streams that are told apart by their numbers. The
// units of each come in order.
class StreamSink {
 public:
  virtual ~StreamSink() = default;
  // Before anything else about a stream.
  virtual void OnStream(const StreamInfo &info) = 0;
  virtual void OnFormat(uint32_t stream, const StreamFormat &format) = 0;
  virtual void OnBytes(uint32_t stream, const uint8_t *data, size_t size) = 0;
  virtual void OnUnitEnd(uint32_t stream, const Unit &unit) = 0;
  virtual void OnPts(uint32_t stream, const PtsRange &range) = 0;
  virtual void OnRemark(Severity severity, uint64_t offset, std::string_view text) = 0;
};

// The sink of a file that is one stream.
class SingleStream : public UnitSink {
 public:
  SingleStream(StreamSink &sink, Codec codec) : sink_(sink) {
    sink_.OnStream({.codec = codec});
  }

  void OnFormat(const StreamFormat &format) override { sink_.OnFormat(0, format); }
  void OnBytes(const uint8_t *data, size_t size) override { sink_.OnBytes(0, data, size); }
  void OnUnitEnd(const Unit &unit) override { sink_.OnUnitEnd(0, unit); }
  void OnRemark(Severity severity, uint64_t offset, std::string_view text) override {
    sink_.OnRemark(severity, offset, text);
  }

 private:
  StreamSink &sink_;
};

}  // namespace kelstream
