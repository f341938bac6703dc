// Transport streams: damaged ones, whole and in pieces, after looking for the
// tables in all or in a part of them.

#include "split.h"
#include "ts_recorder.h"

namespace {

void CheckStream(const kelstream_test::StreamRecorder::Stream &stream, size_t size) {
  FUZZ_CHECK(stream.open_bytes.empty());
  uint64_t offset = 0;
  for (const kelstream::Unit &unit : stream.units) {
    FUZZ_CHECK(unit.offset >= offset);
    offset = unit.offset + 1;
    FUZZ_CHECK(offset <= size);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const kelstream_test::Bytes bytes(data, size);
  const size_t piece = fuzz::PieceSize(data, size);
  const size_t surveyed = piece % 2 == 0 ? size : size * piece / 512;
  const auto whole = kelstream_test::Demux(bytes, 0, surveyed);
  const auto pieces = kelstream_test::Demux(bytes, piece, surveyed);
  FUZZ_EQUAL(pieces.Text(), whole.Text());
  FUZZ_CHECK(!whole.bad_size);
  for (const auto &[number, stream] : whole.streams) {
    FUZZ_CHECK(pieces.streams.at(number).bytes == stream.bytes);
    CheckStream(stream, size);
  }
  return 0;
}
