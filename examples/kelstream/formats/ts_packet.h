// Packets of an MPEG transport stream, and where they begin. No state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace kelstream::ts {

inline constexpr size_t kPacketSize = 188;
inline constexpr uint8_t kSyncByte = 0x47;
inline constexpr uint32_t kPids = 8192;
inline constexpr uint32_t kPatPid = 0;
inline constexpr uint32_t kNullPid = 8191;

struct Packet {
  uint32_t pid = 0;
  bool error = false;  // the receiver could not correct it
  bool start = false;  // a PES packet begins here, or a section in it
  bool scrambled = false;
  bool discontinuity = false;  // the counter may jump here
  uint32_t counter = 0;
  const uint8_t *payload = nullptr;  // null when it has none
  size_t payload_size = 0;
};

// `data` holds kPacketSize bytes that begin with the sync byte. Nothing when
// the header cannot be one.
std::optional<Packet> ParsePacket(const uint8_t *data);

enum class Answer : uint8_t { kNo, kYes, kWait };  // kWait: ask when more is there

// Whether `count` packets seem to follow each other from `data` on; fewer where
// the file ends (`whole`), but one at least.
Answer PacketsAt(const uint8_t *data, size_t size, bool whole, int count);

// The first place in [from, limit) where packets begin, which those that follow
// bear out. kWait: `found` is one that more bytes must decide.
Answer FindPackets(const uint8_t *data, size_t size, bool whole, size_t from, size_t limit,
                   size_t &found);

}  // namespace kelstream::ts
