// Where the bytes of an elementary stream stood in the transport stream.

#include "es_map.h"

#include <algorithm>
#include <iterator>

namespace kelstream::ts {

namespace {

// Far more than the packets of a picture. Streams in which nothing ever ends
// are told less exactly, in fixed memory.
constexpr size_t kMaxMarks = 16384;
constexpr size_t kMaxTimes = 1024;

}  // namespace

void EsMap::Append(uint64_t file_offset, size_t size) {
  if (size_ == 0)
    first_file_offset_ = file_offset;
  if (marks_.size() == kMaxMarks)
    Thin();
  marks_.push_back({size_, file_offset});
  size_ += size;
}

void EsMap::AppendPts(int64_t pts) {
  if (times_.size() == kMaxTimes)
    times_.pop_front();
  times_.push_back({size_, pts});
}

uint64_t EsMap::FileOffset(uint64_t offset) const {
  const auto after =
      std::upper_bound(marks_.begin(), marks_.end(), offset,
                       [](uint64_t wanted, const Mark &mark) { return wanted < mark.offset; });
  if (after == marks_.begin())
    return first_file_offset_;
  const Mark &mark = *std::prev(after);
  return mark.file_offset + (offset - mark.offset);
}

std::optional<int64_t> EsMap::TakePts(uint64_t offset) {
  std::optional<int64_t> pts;
  for (; !times_.empty() && times_.front().offset <= offset; times_.pop_front())
    pts = times_.front().pts;
  return pts;
}

void EsMap::Forget(uint64_t offset) {
  while (marks_.size() > 1 && marks_[1].offset <= offset)
    marks_.pop_front();
}

void EsMap::Thin() {
  std::deque<Mark> kept;
  for (size_t i = 0; i < marks_.size(); i += 2)
    kept.push_back(marks_[i]);
  marks_ = std::move(kept);
}

}  // namespace kelstream::ts
