// The parsers of kelstream alone, without the start codes, lengths and checksums
// that stand in front of them in a stream.

#include <algorithm>

#include "adts_syntax.h"
#include "fuzz.h"
#include "h264_syntax.h"
#include "ts_tables.h"

namespace {

using kelstream::PaddedBytes;
namespace h264 = kelstream::h264;
namespace adts = kelstream::adts;
namespace ts = kelstream::ts;

PaddedBytes Payload(FuzzedDataProvider &input, size_t most) {
  const auto bytes = fuzz::Bytes(input, most);
  PaddedBytes payload;
  h264::Unescape(bytes.data(), bytes.size(), payload);
  FUZZ_CHECK(payload.size() <= bytes.size());
  return payload;
}

// Parameter sets that are right, and a slice that refers to them.
void H264(FuzzedDataProvider &input) {
  h264::Sps sps;
  if (h264::ParseSps(Payload(input, 120), sps) == h264::Parse::kOk) {
    FUZZ_CHECK(sps.id < h264::kMaxSps);
    FUZZ_CHECK(sps.width <= sps.width_in_mbs * 16);
    FUZZ_CHECK(sps.height <= sps.FrameHeightInMbs() * 16);
    h264::ProfileName(sps);
    h264::FormatOf(sps);
  }
  h264::Pps pps;
  if (h264::ParsePps(Payload(input, 60), pps) == h264::Parse::kOk)
    FUZZ_CHECK(pps.id < h264::kMaxPps && pps.sps_id < h264::kMaxSps);
  const h264::NalHeader nal(input.ConsumeIntegral<uint8_t>());
  const PaddedBytes slice = Payload(input, 100);
  h264::SliceHeader header;
  if (h264::ParseSliceStart(slice, header) == h264::Parse::kOk)
    h264::ParseSliceHeader(slice, nal, sps, pps, header);
  bool found = false;
  h264::FindRecoveryPoint(Payload(input, 60), found);
}

void Adts(FuzzedDataProvider &input) {
  auto bytes = fuzz::Bytes(input, 200);
  const PaddedBytes frame(bytes.data(), bytes.size());
  adts::ChannelsOfProgram(frame);
  bytes.resize(std::max(bytes.size(), adts::kId3HeaderSize));
  bytes.shrink_to_fit();
  adts::Id3TagSize(bytes.data());
  const auto header = adts::ParseHeader(bytes.data());
  if (!header)
    return;
  FUZZ_CHECK(header->frame_length <= adts::kMaxFrame);
  adts::FormatOf(*header, frame);
}

void Tables(FuzzedDataProvider &input) {
  constexpr size_t kLeastSection = 12;
  auto section = fuzz::Bytes(input, 300);
  section.resize(std::max(section.size(), kLeastSection));
  for (const ts::Program &program : ts::ParsePat(section))
    FUZZ_CHECK(program.number != 0 && program.map_pid < 8192);
  for (const ts::MapEntry &entry : ts::ParsePmt(section))
    FUZZ_CHECK(entry.type < 256 && entry.pid < 8192);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  constexpr void (*kParsers[])(FuzzedDataProvider &) = {H264, Adts, Tables};
  input.PickValueInArray(kParsers)(input);
  return 0;
}
