// Transport streams: damaged ones, whole and in pieces, after looking for the
// tables in all or in a part of them. Tables that were changed mostly get their
// checksums again: without them nobody reads on.

#include "split.h"
#include "ts_packet.h"
#include "ts_recorder.h"
#include "ts_tables.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t most);

namespace {

using kelstream::ts::kPacketSize;

void CheckStream(const kelstream_test::StreamRecorder::Stream &stream, size_t size) {
  FUZZ_CHECK(stream.open_bytes.empty());
  uint64_t offset = 0;
  for (const kelstream::Unit &unit : stream.units) {
    FUZZ_CHECK(unit.offset >= offset);
    offset = unit.offset + 1;
    FUZZ_CHECK(offset <= size);
  }
}

// A section that begins and ends in this packet.
void RepairSection(uint8_t *packet) {
  constexpr size_t kHeader = 3, kCrc = 4;
  const auto parsed = kelstream::ts::ParsePacket(packet);
  if (!parsed || !parsed->start || parsed->payload == nullptr || parsed->payload_size == 0)
    return;
  const size_t at = kPacketSize - parsed->payload_size + 1 + parsed->payload[0];
  if (at + kHeader > kPacketSize)
    return;
  uint8_t *section = packet + at;
  const size_t size = kHeader + ((section[1] & 0x0Fu) << 8 | section[2]);
  if (section[0] > 2 || size < kHeader + kCrc || at + size > kPacketSize)
    return;
  const uint32_t crc = kelstream::ts::SectionCrc(section, size - kCrc);
  for (size_t i = 0; i < kCrc; ++i)
    section[size - kCrc + i] = static_cast<uint8_t>(crc >> (24 - 8 * i));
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t most,
                                          unsigned seed) {
  size = LLVMFuzzerMutate(data, size, most);
  if (seed % 8 != 0)
    for (size_t at = 0; at + kPacketSize <= size; at += kPacketSize)
      RepairSection(data + at);
  return size;
}

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
