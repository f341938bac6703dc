// The region heap once more, done on a copy of its region: what the library
// writes must be what the model writes, byte for byte, also where blocks come to
// lie over each other by design, and when headers were damaged.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace fuzz {

class RegionModel {
 public:
  using Place = uintptr_t;  // an address in the library's region

  static constexpr uint32_t kHeaderBytes = 56;

  struct [[gnu::packed, gnu::may_alias]] Header {
    uint32_t copy_size;
    uint32_t padding;
    Place copy_prev;
    Place copy_next;
    uint32_t copy_allocated;
    uint32_t size;
    Place prev;
    Place next;
    uint32_t allocated;
    uint32_t more_padding;

    bool AgreesWithCopy() const {
      return copy_size == size && copy_prev == prev && copy_next == next &&
             copy_allocated == allocated;
    }
    void Copy() {
      copy_size = size;
      copy_prev = prev;
      copy_next = next;
      copy_allocated = allocated;
    }
  };
  static_assert(sizeof(Header) == kHeaderBytes);

  RegionModel(Place start, uint32_t size, Place record)
      : start_(start),
        end_(start + size),
        record_(record),
        size_(size),
        free_(size - kHeaderBytes),
        image_(size) {
    if (!Inside(start))
      return;
    At(start)->size = size;
    At(start)->next = start;
    At(start)->Copy();
  }

  Place start() const { return start_; }
  Place end() const { return end_; }
  Place cursor() const { return cursor_; }  // header of the block handed out last
  Place taken() const { return taken_; }    // header that the last call took, or none
  bool moved() const { return moved_; }     // whether it moved contents
  uint32_t free() const { return free_; }
  uint8_t *image() { return image_.data(); }
  const uint8_t *image() const { return image_.data(); }

  bool Inside(Place header) const {
    return size_ >= kHeaderBytes && header >= start_ && header <= end_ - kHeaderBytes;
  }
  const Header &Get(Place header) const {
    return *reinterpret_cast<const Header *>(image_.data() + (header - start_));
  }

  // All return what the library returns, as an address.
  Place Allocate(uint32_t size) {
    taken_ = 0;
    const uint32_t rounded = Rounded(size);
    if (free_ < rounded || rounded == 0)
      return 0;
    const Place first = cursor_ != 0 ? cursor_ : start_;
    Place at = first;
    for (uint32_t steps = 0; Inside(at); ++steps) {
      if (Take(at, rounded))
        return HandOut(at);
      at = Get(at).next;
      if (at == first || steps >= MostBlocks())
        break;
    }
    return 0;
  }

  int32_t Free(Place data) {
    const Place header = data - kHeaderBytes;
    if (!Inside(header) || Broken(header))
      return -1;
    Header *freed = At(header);
    free_ += freed->size;
    freed->allocated = freed->copy_allocated = 0;
    AbsorbNext(header);
    JoinPrevious(header);
    freed->Copy();
    if (!Inside(freed->prev))
      return 0;
    const Header &before = Get(freed->prev);
    return before.size == 0 && before.allocated == 0 ? -1 : 0;
  }

  Place Reallocate(Place data, uint32_t size) {
    taken_ = 0;
    moved_ = false;
    const uint32_t rounded = Rounded(size);
    const Place header = data - kHeaderBytes;
    if (free_ < rounded || !Inside(header))
      return 0;
    const uint32_t bytes = Get(header).allocated;
    free_ += Get(header).size - kHeaderBytes;
    At(header)->allocated = 0;
    AbsorbNext(header);
    if (Take(header, rounded))
      return header;
    JoinPrevious(header);
    Place at = start_;
    for (uint32_t steps = 0; steps <= MostBlocks() && Inside(at); ++steps, at = Get(at).next) {
      if (Take(at, rounded)) {
        Move(at, data, bytes);
        return at;
      }
    }
    return 0;
  }

  void Reset() {
    free_ = size_ - kHeaderBytes;
    if (!Inside(start_))
      return;
    At(start_)->size = size_;
    At(start_)->next = end_;
    At(start_)->allocated = 0;
  }

  static uint32_t Rounded(uint32_t size) { return (size + 7) / 8 * 8; }

 private:
  Header *At(Place header) {
    return reinterpret_cast<Header *>(image_.data() + (header - start_));
  }
  uint32_t MostBlocks() const { return size_ / kHeaderBytes + 1; }

  bool Broken(Place place) const {
    const Header &header = Get(place);
    if (header.size == 0 || !header.AgreesWithCopy())
      return true;
    if (!Inside(header.prev))
      return false;
    return Get(header.prev).next != place ||
           (Inside(header.next) && Get(header.next).prev != place);
  }

  void LinkBack(Place place, Place prev) {
    if (!Inside(place))
      return;
    At(place)->prev = prev;
    At(place)->Copy();
  }

  bool Take(Place place, uint32_t rounded) {
    Header *header = At(place);
    const uint64_t need = uint64_t{rounded} + kHeaderBytes;
    if (header->allocated != 0 || header->size < need)
      return false;
    const bool cut = header->size - need > 63;
    const auto taken = static_cast<uint32_t>(cut ? need : header->size);
    const Place next = place + taken;
    if (cut && Inside(next)) {
      At(next)->size = header->size - taken;
      At(next)->next = header->next;
      At(next)->allocated = 0;
      LinkBack(header->next, next);
    }
    LinkBack(next, place);
    header->size = taken;
    header->next = next;
    header->allocated = rounded;
    header->Copy();
    free_ -= taken;
    taken_ = place;
    return true;
  }

  // Not everything that was taken is handed out.
  Place HandOut(Place header) {
    const Place data = header + kHeaderBytes;
    if (data < record_ || data >= end_ || Get(header).next >= end_)
      return 0;
    cursor_ = header;
    return data;
  }

  void AbsorbNext(Place place) {
    Header *header = At(place);
    const Place next = header->next;
    if (!Inside(next) || Get(next).allocated != 0)
      return;
    header->size += Get(next).size;
    header->next = Get(next).next;
    LinkBack(header->next, place);
  }

  void JoinPrevious(Place place) {
    const Place prev = Get(place).prev;
    if (!Inside(prev) || Get(prev).allocated != 0)
      return;
    At(prev)->size += Get(place).size;
    At(prev)->next = Get(place).next;
    At(prev)->Copy();
    LinkBack(Get(prev).next, prev);
  }

  void Move(Place to, Place from, uint32_t bytes) {
    const auto count = std::min({size_t{bytes}, end_ - to, end_ - from});
    moved_ = true;
    memmove(image_.data() + (to - start_), image_.data() + (from - start_), count);
  }

  const Place start_;
  const Place end_;
  const Place record_;
  const uint32_t size_;
  uint32_t free_;
  Place cursor_ = 0;
  Place taken_ = 0;
  bool moved_ = false;
  std::vector<uint8_t> image_;
};

}  // namespace fuzz
