/// @file
/// kel::region_heap: blocks of any size inside one region, and kel::region_resource for
/// the standard's containers.
///
///     auto heap = kel::region_heap::create(1 << 20).value_or_throw();
///     kel::region_resource memory(heap);
///     std::pmr::vector<frame> frames(&memory);
///
/// Every block costs a header of 56 bytes inside the region. Each heap has its own
/// lock, taken without a time limit. Any thread.
///
/// Where it differs from the C calls:
///  - A heap that create() gave hands blocks out. The C heap never hands out a block
///    below its own record, which for small regions is all of them: create() looks for
///    a place above, and tries the heap before it gives it.
///  - reallocate() gives the block and its contents; KEL_VReAlloc gives the address of
///    the block's header, and copies to there.
#ifndef KELCORE_HPP_VIRTMEM_HPP
#define KELCORE_HPP_VIRTMEM_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory_resource>
#include <new>
#include <utility>

#include "../kelcore_virtmem.h"
#include "owner.hpp"
#include "result.hpp"

namespace kel {

namespace detail {

/// Memory of `size` bytes at a higher address than `low`; null when there is none to be
/// had. Places below are kept until the end, so that each try gets another.
inline void *malloc_above(const void *low, uint32_t size) {
  // Holes below run out; large blocks lie apart from the others, all on one side.
  constexpr uint32_t kLarge = 128 * 1024;
  int tries = size < kLarge ? 256 : 4;
  void *below = nullptr;  // a chain, linked through the first bytes of each
  void *region = std::malloc(size);
  while (region != nullptr && std::less<const void *>()(region, low)) {
    std::memcpy(region, &below, sizeof below);
    below = region;
    region = --tries > 0 ? std::malloc(size) : nullptr;
  }
  while (below != nullptr) {
    void *next = nullptr;
    std::memcpy(&next, below, sizeof next);
    std::free(std::exchange(below, next));
  }
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

inline bool hands_out(KEL_VMEM *heap) {
  void *block = KEL_VMalloc(heap, 1);
  if (block != nullptr)
    KEL_VFree(heap, block);
  return block != nullptr;
}

}  // namespace detail

class region_heap : public owner<KEL_VMEM, &KEL_VMemDestroy> {
 public:
  using owner::owner;

  /// A heap over `size` bytes of its own, 192 at least: less has no room for two blocks.
  /// Fails when memory is short, or when no region above the heap's record could be had,
  /// which one of 128 KiB and more that is made outside the main thread may meet: make it
  /// there.
  static result<region_heap> create(uint32_t size) {
    constexpr uint32_t kLeast = 192;
    constexpr int kTries = 4;
    if (size < kLeast)
      return std::errc::invalid_argument;
    region_heap unusable[kTries];  // kept until the end: each try gets another place
    for (region_heap &place : unusable) {
      place.reset(detail::heap_above_its_record(size));
      if (!place)
        return errc::out_of_memory;
      if (detail::hands_out(place.native_handle()))
        return region_heap(place.release());
    }
    return errc::out_of_memory;
  }

  /// A block of `size` bytes, aligned to 8; null when there is none. What it holds is
  /// undefined.
  [[nodiscard]] void *allocate(uint32_t size) { return KEL_VMalloc(native_handle(), size); }

  /// Gives a block back. Fails when its header was overwritten.
  status deallocate(void *block) { return status(KEL_VFree(native_handle(), block)); }

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
};

/// Memory of a heap, which outlives the resource and what is allocated from it, with
/// any alignment. An alignment above 8 costs as many bytes more.
///
/// Memory that is short is std::bad_alloc, as containers expect of a resource; without
/// exceptions it ends the program.
class region_resource final : public std::pmr::memory_resource {
 public:
  explicit region_resource(region_heap &heap) noexcept : heap_(heap.native_handle()) {}

 private:
  static constexpr std::size_t kBlockAlign = 8;

  void *do_allocate(std::size_t size, std::size_t align) override {
    const std::size_t room = size == 0 ? 1 : size;
    const std::size_t extra = align > kBlockAlign ? align : 0;
    // Not to be rounded or enlarged past what 32 bits hold.
    constexpr std::size_t kMost = UINT32_MAX - 64;
    void *block = nullptr;
    if (room < kMost && extra < kMost - room)
      block = KEL_VMalloc(heap_, static_cast<uint32_t>(room + extra));
    if (block == nullptr)
      fail();
    return extra == 0 ? block : aligned(block, align);
  }

  void do_deallocate(void *block, std::size_t, std::size_t align) override {
    if (align > kBlockAlign)
      std::memcpy(&block, static_cast<char *>(block) - sizeof block, sizeof block);
    KEL_VFree(heap_, block);
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

  KEL_VMEM *heap_;
};

}  // namespace kel

#endif
