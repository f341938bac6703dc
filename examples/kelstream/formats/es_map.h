// Where the bytes of an elementary stream stood in the transport stream, and
// which presentation times went with them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace kelstream::ts {

class EsMap {
 public:
  // The stream's next bytes stood there in the file.
  void Append(uint64_t file_offset, size_t size);
  // What begins with the stream's next byte, or after it, has this time.
  void AppendPts(int64_t pts);

  uint64_t size() const { return size_; }

  // The place in the file of a byte of the stream; of one near it when that was
  // long ago.
  uint64_t FileOffset(uint64_t offset) const;

  // The time of a unit that begins at `offset`: of those that were told up to
  // there the last one, unless a unit before it took it.
  std::optional<int64_t> TakePts(uint64_t offset);

  // Nothing before `offset` will be asked for, save the very first byte.
  void Forget(uint64_t offset);

 private:
  struct Mark {
    uint64_t offset;
    uint64_t file_offset;
  };
  struct Time {
    uint64_t offset;
    int64_t pts;
  };
  void Thin();

  uint64_t size_ = 0;
  uint64_t first_file_offset_ = 0;
  std::deque<Mark> marks_;
  std::deque<Time> times_;
};

}  // namespace kelstream::ts
