// What the parser tells those who read what it found.
#pragma once

#include <kelcore_msg.h>

#include <cstdint>

#include "probe.h"
#include "stream.h"

namespace kelstream {

// The low half of a message's word says what it is.
enum MessageKind : uint32_t {
  kStream = 1,     // a stream was found: `info`
  kFormat = 2,     // its format became known
  kUnitBytes = 3,  // bytes of a unit, a fragment of it when it is large
  kTimes = 4,      // the presentation times of a stream, at its end
  kRemark = 5,     // text about the file
  kEndOfFile = 6,  // the last message of a file
  kKindMask = 0xFFFF,
};

// Flags in its high half.
enum MessageFlag : uint32_t {
  kFirstFragment = 0x10000,
  kLastFragment = 0x20000,  // `unit` is set
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
  uint32_t Kind() const { return word & kKindMask; }

  uint32_t stream = 0;
  Unit unit;
  StreamInfo info;
  StreamFormat format;
  PtsRange times;
  EndOfFile end;
  Severity severity = Severity::kNote;  // of a remark
  uint64_t offset = 0;                  // of what a remark is about
  char text[200] = "";
};

}  // namespace kelstream
