// Builds transport streams for the tests.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "bit_writer.h"

namespace kelstream_test {

struct PesFields {
  uint8_t stream_id = 0xE0;
  std::optional<int64_t> pts = std::nullopt;
  bool dts = false;      // and a decoding time
  bool bounded = false;  // with its length
  int extra_length = 0;  // that the length is wrong by
  uint8_t stuffing = 0;  // bytes in the header
  bool bad_marker = false;
};

// One PES packet.
Bytes Pes(const PesFields &fields, const Bytes &payload);

// Sections, complete with their checksums.
Bytes PatSection(const std::vector<std::pair<uint32_t, uint32_t>> &programs);
Bytes PmtSection(uint32_t program, const std::vector<std::pair<uint32_t, uint32_t>> &streams,
                 bool current = true, size_t descriptors = 0);

class TsStreamBuilder {
 public:
  // A payload cut into packets, stuffed where it does not fill the last one.
  TsStreamBuilder &Payload(uint32_t pid, const Bytes &payload, bool start = true);
  // Sections behind a pointer.
  TsStreamBuilder &Section(uint32_t pid, const Bytes &section);
  TsStreamBuilder &Pat(const std::vector<std::pair<uint32_t, uint32_t>> &programs) {
    return Section(0, PatSection(programs));
  }
  TsStreamBuilder &Pmt(uint32_t pid,
                       const std::vector<std::pair<uint32_t, uint32_t>> &streams) {
    return Section(pid, PmtSection(1, streams));
  }
  TsStreamBuilder &Raw(const Bytes &bytes) {
    bytes_ += bytes;
    return *this;
  }
  // The counter of a PID's next packet.
  uint8_t &counter(uint32_t pid) { return counters_[pid]; }
  // A packet that is there already, to change.
  uint8_t *packet(size_t index) { return bytes_.data() + index * 188; }
  size_t packets() const { return bytes_.size() / 188; }

  const Bytes &bytes() const { return bytes_; }

 private:
  Bytes bytes_;
  std::map<uint32_t, uint8_t> counters_;
};

// Video on PID 256 and sound on 257 of one programme, some pictures of each.
TsStreamBuilder SampleProgramme(int pictures);

}  // namespace kelstream_test
