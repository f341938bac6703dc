// The tables of a transport stream that say which streams are in it: programme
// association (PAT) and programme maps (PMT).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelstream::ts {

// Puts the sections of one PID together from the payloads of its packets.
class SectionAssembler {
 public:
  class Handler {
   public:
    virtual ~Handler() = default;
    // A section with its header and checksum, which is right when `intact`.
    virtual void OnSection(const std::vector<uint8_t> &section, bool intact) = 0;
  };

  void Feed(const uint8_t *payload, size_t size, bool start, Handler &handler);
  // Packets are missing: what was begun is lost.
  void OnGap() {
    section_.clear();
    synchronised_ = false;
  }

 private:
  void Append(const uint8_t *data, size_t size, Handler &handler);

  std::vector<uint8_t> section_;
  bool synchronised_ = false;  // a section begins at the next byte, or was begun
};

// What the sections say. Those of other tables, and those that are not in force
// yet, give nothing.
struct Program {
  uint32_t number;
  uint32_t map_pid;
};
std::vector<Program> ParsePat(const std::vector<uint8_t> &section);

struct MapEntry {
  uint32_t type;
  uint32_t pid;
};
std::vector<MapEntry> ParsePmt(const std::vector<uint8_t> &section);

// The checksum of sections: CRC-32 with the same polynomial as everywhere, but
// the bits of each byte the other way round.
uint32_t SectionCrc(const uint8_t *data, size_t size);

}  // namespace kelstream::ts
