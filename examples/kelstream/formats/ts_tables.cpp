// Programme association and programme maps.

#include "ts_tables.h"

#include <kelcore_hash.h>

#include <algorithm>

#include "bit_reader.h"

namespace kelstream::ts {

namespace {

constexpr size_t kShortHeader = 3;  // table_id, flags, length
constexpr size_t kLongHeader = 8;
constexpr size_t kCrcSize = 4;
constexpr size_t kMaxSection = 4096;
constexpr uint8_t kStuffing = 0xFF;

enum TableId : uint32_t { kPat = 0, kPmt = 2 };

uint32_t Reverse(uint32_t value, int bits) {
  uint32_t result = 0;
  for (int i = 0; i < bits; ++i, value >>= 1)
    result = result << 1 | (value & 1);
  return result;
}

size_t SectionSize(const std::vector<uint8_t> &section) {
  return kShortHeader + ((section[1] & 0x0Fu) << 8 | section[2]);
}

// Reads the long header. False when the section is of another table, not in
// force yet, or too short to be one.
bool BeginTable(BitReader &bits, uint32_t table) {
  const uint32_t id = bits.Bits(8);
  const bool long_form = bits.Flag();
  bits.Skip(15);  // length
  bits.Skip(16);  // transport stream, or programme
  bits.Skip(7);   // version
  const bool current = bits.Flag();
  bits.Skip(16);  // section numbers
  return !bits.Failed() && id == table && long_form && current;
}

}  // namespace

uint32_t SectionCrc(const uint8_t *data, size_t size) {
  std::vector<uint8_t> reversed(data, data + size);
  for (uint8_t &byte : reversed)
    byte = static_cast<uint8_t>(Reverse(byte, 8));
  return Reverse(~KEL_Hash_crc32(reversed.data(), static_cast<uint32_t>(size)), 32);
}

void SectionAssembler::Feed(const uint8_t *payload, size_t size, bool start, Handler &handler) {
  if (!start) {
    Append(payload, size, handler);
    return;
  }
  // The pointer tells where the first new section begins; what stands before it
  // ends the one before.
  if (size == 0)
    return;
  const size_t begin = 1 + size_t{payload[0]};
  Append(payload + 1, std::min(begin, size) - 1, handler);
  section_.clear();
  synchronised_ = begin < size;
  if (synchronised_)
    Append(payload + begin, size - begin, handler);
}

void SectionAssembler::Append(const uint8_t *data, size_t size, Handler &handler) {
  while (size > 0 && synchronised_) {
    if (section_.empty() && data[0] == kStuffing) {
      synchronised_ = false;  // up to the next packet in which one begins
      return;
    }
    const size_t target = section_.size() < kShortHeader ? kShortHeader : SectionSize(section_);
    const size_t take = std::min(size, target - section_.size());
    section_.insert(section_.end(), data, data + take);
    data += take;
    size -= take;
    if (section_.size() < kShortHeader || section_.size() < SectionSize(section_))
      continue;
    // With its checksum behind it, the checksum of a section is 0.
    const bool intact = section_.size() >= kLongHeader + kCrcSize &&
                        section_.size() <= kMaxSection &&
                        SectionCrc(section_.data(), section_.size()) == 0;
    handler.OnSection(section_, intact);
    section_.clear();
  }
}

std::vector<Program> ParsePat(const std::vector<uint8_t> &section) {
  std::vector<Program> programs;
  const PaddedBytes bytes(section.data(), section.size() - kCrcSize);
  BitReader bits(bytes);
  if (!BeginTable(bits, kPat))
    return programs;
  while (bits.Left() >= 32) {
    const uint32_t number = bits.Bits(16);
    bits.Skip(3);
    const uint32_t pid = bits.Bits(13);
    if (number != 0)  // 0 is the network's own table
      programs.push_back({number, pid});
  }
  return programs;
}

std::vector<MapEntry> ParsePmt(const std::vector<uint8_t> &section) {
  std::vector<MapEntry> entries;
  const PaddedBytes bytes(section.data(), section.size() - kCrcSize);
  BitReader bits(bytes);
  if (!BeginTable(bits, kPmt))
    return entries;
  bits.Skip(3 + 13);  // PID of the clock
  bits.Skip(4);
  bits.Skip(uint64_t{bits.Bits(12)} * 8);  // descriptors of the programme
  while (!bits.Failed() && bits.Left() >= 40) {
    MapEntry entry{};
    entry.type = bits.Bits(8);
    bits.Skip(3);
    entry.pid = bits.Bits(13);
    bits.Skip(4);
    bits.Skip(uint64_t{bits.Bits(12)} * 8);  // its descriptors
    entries.push_back(entry);
  }
  return entries;
}

}  // namespace kelstream::ts
