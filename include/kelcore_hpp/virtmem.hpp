/// @file
/// kel::region_heap: blocks of any size inside one region, and kel::region_resource for
/// the standard's containers.
///
///     auto heap = kel::region_heap::create(1 << 20).value_or_throw();
///     kel::region_resource memory(heap);
///     std::pmr::vector<frame> frames(&memory);
///
/// Every block costs a header of 56 bytes inside the region. Each heap has its own
/// locks, taken without a time limit. Any thread.
///
/// Where it differs from the C calls, for a heap that create() gave:
///  - It hands blocks out. The C heap never hands out a block below its own record, which
///    for small regions is all of them: create() looks for a place above, and tries the
///    heap before it gives it.
///  - It goes on doing so. The C heap merges its blocks over the region's end, loses the
///    way to its free blocks when the last one is taken whole, and hands bytes out twice
///    when a free block absorbs the one allocated last. Here a block at either end is kept
///    (some 240 bytes in all), and what is allocated last is never freed first: to free a
///    block is to allocate a guard of 72 bytes, to free the block, and to free the guard
///    before, under a lock of its own.
///  - The guard stands where the search stood and may part the largest free place in two.
///    A request that finds no room, although as many bytes are free, takes all free places,
///    puts the guard at the front of the first, gives the others back and tries again:
///    some walks over all blocks.
///  - reallocate() gives the block and its contents; KEL_VReAlloc gives the address of
///    the block's header, and copies to there.
/// Blocks of such a heap are not for KEL_VFree and KEL_VReAlloc, which know no guard. A
/// heap that C code made and that is taken over has none, and behaves as with the C calls.
#ifndef KELCORE_HPP_VIRTMEM_HPP
#define KELCORE_HPP_VIRTMEM_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory_resource>
#include <mutex>
#include <new>
#include <utility>

#include "../kelcore_virtmem.h"
#include "owner.hpp"
#include "result.hpp"

namespace kel {

namespace detail {

/// Blocks of memory, linked through the first bytes of each.
class block_chain {
 public:
  void push(void *block) noexcept {
    if (block == nullptr)
      return;
    std::memcpy(block, &last_, sizeof last_);
    last_ = block;
  }
  /// Null when there is none left.
  void *pop() noexcept {
    void *block = last_;
    if (block != nullptr)
      std::memcpy(&last_, block, sizeof last_);
    return block;
  }

 private:
  void *last_ = nullptr;
};

/// Memory of `size` bytes at a higher address than `low`; null when there is none to be
/// had. Places below are kept until the end, so that each try gets another.
inline void *malloc_above(const void *low, uint32_t size) {
  // Holes below run out; large blocks lie apart from the others, all on one side.
  constexpr uint32_t kLarge = 128 * 1024;
  int tries = size < kLarge ? 256 : 4;
  block_chain below;
  void *region = std::malloc(size);
  while (region != nullptr && std::less<const void *>()(region, low)) {
    below.push(region);
    region = --tries > 0 ? std::malloc(size) : nullptr;
  }
  while (void *block = below.pop())
    std::free(block);
  return region;
}

/// A heap over `size` bytes that lie above its record, if malloc plays along: of the
/// small blocks that it has at hand the lowest is freed last, and so the one that the
/// record gets. Null when there is none.
inline KEL_VMEM *heap_above_its_record(uint32_t size) {
  constexpr std::size_t kRecordBytes = 40;
  void *small[32];
  void **lowest = &small[0];
  for (void *&block : small) {
    block = std::malloc(kRecordBytes);
    if (std::less<void *>()(block, *lowest))
      lowest = &block;
  }
  void *region = malloc_above(*lowest, size);
  std::free(std::exchange(*lowest, nullptr));
  KEL_VMEM *heap = region != nullptr ? KEL_VMemCreate(region, size) : nullptr;
  if (heap == nullptr)
    std::free(region);
  for (void *block : small)
    std::free(block);
  return heap;
}

/// What a heap remembers, in its first block. Goes with the region.
struct region_guard {
  std::mutex lock;        // of whoever frees
  void *block = nullptr;  // the guard; null before the first free and in a full heap
};

// The smallest request: more than the rest at the region's end has room for.
constexpr uint32_t kGuardBytes = 16;

constexpr uint32_t raised(uint32_t size) noexcept {
  return size < kGuardBytes ? kGuardBytes : size;
}

/// Lays a new heap out: the first block, with the record; what is handed out; a block that
/// is kept; and the rest. Null when the heap hands nothing out.
inline region_guard *lay_out(KEL_VMEM *heap) {
  static_assert(alignof(region_guard) <= 8);
  constexpr uint32_t kKept = 8;
  constexpr uint32_t kRest = 2 * (56 + kKept);  // with the kept block; blocks have headers
  void *first = KEL_VMalloc(heap, sizeof(region_guard));
  void *places = KEL_VMalloc(heap, KEL_VGetFree(heap) / 8 * 8 - kRest);
  void *last = KEL_VMalloc(heap, kKept);
  if (first == nullptr || places == nullptr || last == nullptr)
    return nullptr;
  KEL_VFree(heap, places);
  return new (first) region_guard;
}

/// A heap and its guard; null when it has none.
struct guarded_region {
  KEL_VMEM *heap = nullptr;
  region_guard *guard = nullptr;

  void *allocate(uint32_t size) const {
    void *block = KEL_VMalloc(heap, raised(size));
    return block != nullptr || guard == nullptr ? block : allocate_again(raised(size));
  }

  status deallocate(void *block) const {
    if (guard == nullptr)
      return status(KEL_VFree(heap, block));
    const std::lock_guard<std::mutex> hold(guard->lock);
    void *next = KEL_VMalloc(heap, kGuardBytes);
    const status freed(KEL_VFree(heap, block));
    // Without a new guard nothing was freed since the last allocation: whatever that one
    // was, it has merged with nothing in front of it. The old guard would absorb it.
    if (next != nullptr)
      replace_guard(next);
    return freed;
  }

 private:
  void replace_guard(void *next) const {
    void *old = std::exchange(guard->block, next);
    if (old != nullptr)
      KEL_VFree(heap, old);
  }

  void *allocate_again(uint32_t size) const {
    const std::lock_guard<std::mutex> hold(guard->lock);
    if (KEL_VGetFree(heap) < size)
      return nullptr;
    move_guard_to_the_front();
    return KEL_VMalloc(heap, size);
  }

  /// Takes all free places and gives the first one back, so that the new guard goes there.
  void move_guard_to_the_front() const {
    block_chain others;
    void *first = nullptr;
    for (uint32_t size = KEL_VGetFree(heap); size > 0;) {
      void *place = KEL_VMalloc(heap, raised(size));
      if (place == nullptr)
        size = size > kGuardBytes ? size / 2 : 0;
      else if (first == nullptr || std::less<void *>()(place, first))
        others.push(std::exchange(first, place));
      else
        others.push(place);
    }
    if (first == nullptr)
      return;
    KEL_VFree(heap, first);
    // Null when another thread was faster; then its block is the one allocated last.
    replace_guard(KEL_VMalloc(heap, kGuardBytes));
    while (void *place = others.pop())
      KEL_VFree(heap, place);
  }
};

}  // namespace detail

class region_heap : public owner<KEL_VMEM, &KEL_VMemDestroy> {
 public:
  region_heap() noexcept = default;
  /// Takes over a heap that C code made. It has no guard.
  explicit region_heap(KEL_VMEM *heap) noexcept : owner(heap) {}

  /// A heap over `size` bytes of its own, 512 at least: less has no room for two blocks.
  /// Fails when memory is short, or when no region above the heap's record could be had,
  /// which one of 128 KiB and more that is made outside the main thread may meet: make it
  /// there.
  static result<region_heap> create(uint32_t size) {
    constexpr uint32_t kLeast = 512;
    constexpr int kTries = 4;
    if (size < kLeast)
      return std::errc::invalid_argument;
    region_heap unusable[kTries];  // kept until the end: each try gets another place
    for (region_heap &place : unusable) {
      place.reset(detail::heap_above_its_record(size));
      if (!place)
        return errc::out_of_memory;
      place.guard_ = detail::lay_out(place.native_handle());
      if (place.guard_ != nullptr)
        return std::move(place);
    }
    return errc::out_of_memory;
  }

  /// A block of `size` bytes, 16 at least, aligned to 8; null when there is none. What it
  /// holds is undefined.
  [[nodiscard]] void *allocate(uint32_t size) { return region().allocate(size); }

  /// Gives a block back. Fails when its header was overwritten.
  status deallocate(void *block) { return region().deallocate(block); }

  /// Another block with the first bytes of `block`, which is given back; null when there
  /// is none, `block` being left as it is.
  [[nodiscard]] void *reallocate(void *block, uint32_t old_size, uint32_t new_size) {
    void *moved = allocate(new_size);
    if (moved == nullptr)
      return nullptr;
    std::memcpy(moved, block, old_size < new_size ? old_size : new_size);
    deallocate(block);
    return moved;
  }

  /// Free bytes, most headers of free blocks included. Without the lock.
  uint32_t free_bytes() const { return KEL_VGetFree(native_handle()); }

  /// Releases what is held, and holds `heap` instead, without a guard.
  void reset(KEL_VMEM *heap = nullptr) noexcept {
    guard_ = nullptr;
    owner::reset(heap);
  }

 private:
  friend class region_resource;

  detail::guarded_region region() const noexcept { return {native_handle(), guard_}; }

  detail::region_guard *guard_ = nullptr;  // inside the region
};

/// Memory of a heap, which outlives the resource and what is allocated from it, with
/// any alignment. An alignment above 8 costs as many bytes more.
///
/// Memory that is short is std::bad_alloc, as containers expect of a resource; without
/// exceptions it ends the program.
class region_resource final : public std::pmr::memory_resource {
 public:
  explicit region_resource(region_heap &heap) noexcept : region_(heap.region()) {}

 private:
  static constexpr std::size_t kBlockAlign = 8;

  void *do_allocate(std::size_t size, std::size_t align) override {
    const std::size_t extra = align > kBlockAlign ? align : 0;
    void *block = nullptr;
    if (size < UINT32_MAX && extra < UINT32_MAX - size)
      block = region_.allocate(static_cast<uint32_t>(size + extra));
    if (block == nullptr)
      fail();
    return extra == 0 ? block : aligned(block, align);
  }

  void do_deallocate(void *block, std::size_t, std::size_t align) override {
    if (align > kBlockAlign)
      std::memcpy(&block, static_cast<char *>(block) - sizeof block, sizeof block);
    region_.deallocate(block);
  }

  bool do_is_equal(const std::pmr::memory_resource &other) const noexcept override {
    return this == &other;
  }

  /// The first aligned place with room in front of it for the address of its block.
  static void *aligned(void *block, std::size_t align) noexcept {
    char *begin = static_cast<char *>(block) + sizeof block;
    const std::size_t past = reinterpret_cast<std::uintptr_t>(begin) % align;
    char *place = past == 0 ? begin : begin + (align - past);
    std::memcpy(place - sizeof block, &block, sizeof block);
    return place;
  }

  [[noreturn]] static void fail() {
#if defined(__cpp_exceptions)
    throw std::bad_alloc();
#else
    std::abort();
#endif
  }

  detail::guarded_region region_;
};

}  // namespace kel

#endif
