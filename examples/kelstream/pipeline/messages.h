// What the parser tells those who read what it found.
#pragma once

#include <kelcore_msg.h>

#include <array>
#include <cstdint>

#include "probe.h"
#include "stream.h"

namespace kelstream {

// A message's word says what it is.
enum MessageKind : uint32_t {
  kStream = 1,     // a stream was found: `info`
  kFormat = 2,     // its format became known
  kUnits = 3,      // bytes of units, and those of them that end here
  kTimes = 4,      // the presentation times of a stream, at its end
  kRemark = 5,     // text about the file
  kEndOfFile = 6,  // the last message of a file
};

struct EndOfFile {
  Container container = Container::kUnknown;
  int read_error = 0;  // errno of a read that failed
  uint64_t size = 0;   // bytes read
  bool damaged = false;
  uint64_t remarks_left_out = 0;  // made and not sent
};

// The descriptor that travels is the first part of the record, so that who
// receives it has it all. Its data are a frame of the media buffer pool.
struct Message : KEL_MSG_DESC {
  static constexpr uint32_t kMaxUnits = 64;

  // What is set goes with the kind; the rest is left over from before.
  uint32_t stream = 0;
  uint32_t unit_count = 0;  // units that end here; an unreadable one is alone
  uint32_t closed = 0;      // bytes up to the end of the last of them
  std::array<Unit, kMaxUnits> units;
  StreamInfo info;
  StreamFormat format;
  PtsRange times;
  EndOfFile end;
  Severity severity = Severity::kNote;  // of a remark
  uint64_t offset = 0;                  // of what a remark is about
  char text[200] = "";
};

}  // namespace kelstream
