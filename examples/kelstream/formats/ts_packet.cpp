// Packets of an MPEG transport stream.

#include "ts_packet.h"

#include <algorithm>
#include <cstring>

namespace kelstream::ts {

std::optional<Packet> ParsePacket(const uint8_t *data) {
  // Every byte of the file passes here, four of each packet are looked at: a
  // reader object for them would cost more than all the rest.
  constexpr size_t kHeaderSize = 4;
  if ((data[3] & 0x30) == 0)  // neither adaptation field nor payload
    return std::nullopt;
  Packet packet;
  packet.error = (data[1] & 0x80) != 0;
  packet.start = (data[1] & 0x40) != 0;
  packet.pid = (data[1] & 0x1Fu) << 8 | data[2];
  packet.scrambled = (data[3] & 0xC0) != 0;
  packet.counter = data[3] & 0x0F;
  size_t at = kHeaderSize;
  if ((data[3] & 0x20) != 0) {
    const size_t length = data[at];
    at += 1 + length;
    if (at > kPacketSize)
      return std::nullopt;
    packet.discontinuity = length > 0 && (data[kHeaderSize + 1] & 0x80) != 0;
  }
  if ((data[3] & 0x10) != 0) {
    packet.payload = data + at;
    packet.payload_size = kPacketSize - at;
  }
  return packet;
}

Answer PacketsAt(const uint8_t *data, size_t size, bool whole, int count) {
  for (int i = 0; i < count; ++i) {
    const size_t at = static_cast<size_t>(i) * kPacketSize;
    if (at >= size) {
      if (!whole)
        return Answer::kWait;
      return i > 0 && at == size ? Answer::kYes : Answer::kNo;
    }
    if (data[at] != kSyncByte)
      return Answer::kNo;
    // A last packet that is cut counts when there are others before it.
    if (whole && at + kPacketSize > size)
      return i > 0 ? Answer::kYes : Answer::kNo;
  }
  return Answer::kYes;
}

Answer FindPackets(const uint8_t *data, size_t size, bool whole, size_t from, size_t limit,
                   size_t &found) {
  constexpr int kConvincing = 4;
  limit = std::min(limit, size);
  for (found = from; found < limit; ++found) {
    const void *sync = std::memchr(data + found, kSyncByte, limit - found);
    if (sync == nullptr)
      break;
    found = static_cast<size_t>(static_cast<const uint8_t *>(sync) - data);
    const Answer answer = PacketsAt(data + found, size - found, whole, kConvincing);
    if (answer != Answer::kNo)
      return answer;
  }
  found = std::max(from, limit);
  return Answer::kNo;
}

}  // namespace kelstream::ts
