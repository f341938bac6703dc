// What travels between the parts of kelstream: the kinds of elementary stream,
// what is known about one, the units it is cut into, and damage found in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kelstream {

enum class Codec : uint8_t { kH264, kAac, kOther };

// A stream of the file, under the number that it has there: the PID of a
// transport stream, 0 where the file is the stream.
struct StreamInfo {
  uint32_t number = 0;
  bool has_pid = false;
  uint32_t type = 0;  // stream_type of the programme map; 0 where there is none
  Codec codec = Codec::kOther;
};

struct StreamFormat {
  Codec codec = Codec::kH264;
  char profile[32] = "";
  // Video; 0 while unknown.
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t rate_numerator = 0;  // frames per second, as a fraction
  uint32_t rate_denominator = 0;
  // Audio; 0 while unknown.
  uint32_t sample_rate = 0;
  uint32_t channels = 0;
};

// An access unit of H.264, a frame of ADTS, or a PES packet of a stream that is
// not parsed.
struct Unit {
  uint64_t offset = 0;   // of its first byte in the file
  uint64_t size = 0;     // bytes, start codes and headers included
  bool readable = true;  // false when nothing of its picture could be read
  bool frame = false;    // it begins a frame; false for a second field
  bool second_field = false;
  bool key = false;  // the frame is a key frame
  bool has_pts = false;
  int64_t pts = 0;  // 90 kHz
  // Audio: how long it sounds.
  uint32_t samples = 0;
  uint32_t sample_rate = 0;
};

enum class Severity : uint8_t {
  kNote,    // worth telling; the stream is as it should be
  kDamage,  // something is missing or broken
};

// The presentation times found in a stream, in 90 kHz ticks.
struct PtsRange {
  bool known = false;
  int64_t first = 0;  // the smallest
  int64_t last = 0;   // the largest
};

// Takes what a splitter finds, in the order of the file. The bytes of a unit
// come in any number of calls before the call that ends it.
class UnitSink {
 public:
  virtual ~UnitSink() = default;
  virtual void OnFormat(const StreamFormat &format) = 0;
  virtual void OnBytes(const uint8_t *data, size_t size) = 0;
  virtual void OnUnitEnd(const Unit &unit) = 0;
  virtual void OnRemark(Severity severity, uint64_t offset, std::string_view text) = 0;
};

// Cuts an elementary stream into units. Pieces may end anywhere; the same bytes
// give the same calls (OnBytes apart) however they are cut into pieces.
class Splitter {
 public:
  virtual ~Splitter() = default;
  virtual void Feed(const uint8_t *data, size_t size) = 0;
  // The end of the stream: what is still held is judged and handed on.
  virtual void Finish() = 0;
};

}  // namespace kelstream
