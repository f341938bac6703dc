// What holds for every elementary stream: what is found does not depend on the
// pieces that it comes in, units stay in order, and every byte of one is told.
#pragma once

#include "fuzz.h"
#include "probe.h"
#include "recorder.h"

namespace fuzz {

// Of the last byte, so that a file can be a seed as it is.
inline size_t PieceSize(const uint8_t *data, size_t size) {
  return size == 0 ? 1 : size_t{1} + data[size - 1];
}

template <typename Splitter>
void CheckSplitter(const uint8_t *data, size_t size) {
  const kelstream_test::Bytes bytes(data, size);
  const kelstream_test::Recorder whole = kelstream_test::Split<Splitter>(bytes);
  const kelstream_test::Recorder pieces =
      kelstream_test::Split<Splitter>(bytes, PieceSize(data, size));
  FUZZ_EQUAL(pieces.Text(), whole.Text());
  FUZZ_CHECK(pieces.contents == whole.contents);
  FUZZ_CHECK(!whole.LeftOver());
  FUZZ_EQUAL(whole.formats.size(), 1);
  uint64_t offset = 0;
  for (size_t i = 0; i < whole.units.size(); ++i) {
    const kelstream::Unit &unit = whole.units[i];
    FUZZ_CHECK(unit.offset >= offset);
    FUZZ_EQUAL(unit.size, whole.contents[i].size());
    FUZZ_CHECK(unit.size > 0);
    FUZZ_CHECK(!unit.key || unit.frame);
    offset = unit.offset + unit.size;
    FUZZ_CHECK(offset <= size);
  }
  kelstream::Probe(data, size, true);
  kelstream::Probe(data, size, false);
}

}  // namespace fuzz
