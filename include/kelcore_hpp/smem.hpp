/// @file
/// The pool allocator: kel::pool_allocator, kel::size_class, and kel::pool_resource for
/// the standard's containers.
///
///     auto pools = kel::pool_allocator::start().value_or_throw();   // first thing
///     auto packets = kel::size_class::create(64, "packet").value_or_throw();
///     void *p = packets.allocate();
///     packets.deallocate(p);
///
///     kel::pool_resource memory;                     // list nodes of 64 bytes and less
///     std::pmr::list<packet> waiting(&memory);       // that round to a class
///
/// Up to ten sizes for the whole process, which has one lock for all of them. Objects
/// end in the reverse order of their making, as locals do; blocks and containers go
/// before their class. The sizes 24 and 32 serve the library's own list nodes and
/// queue entries, too: register them before the first list or queue, and keep them
/// until the last one is gone.
///
/// Where it differs from the C calls: a size that is registered already is refused, so
/// that each class has one owner.
#ifndef KELCORE_HPP_SMEM_HPP
#define KELCORE_HPP_SMEM_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory_resource>
#include <new>
#include <utility>

#include "../kelcore_smem.h"
#include "result.hpp"

namespace kel {

/// That the pool allocator runs: its table and lock. One at a time.
class pool_allocator {
 public:
  constexpr pool_allocator() noexcept = default;
  pool_allocator(pool_allocator &&other) noexcept
      : running_(std::exchange(other.running_, false)) {}
  pool_allocator &operator=(pool_allocator &&other) noexcept {
    if (this != &other) {
      stop();
      running_ = std::exchange(other.running_, false);
    }
    return *this;
  }
  ~pool_allocator() { stop(); }

  /// Empties the table, forgetting what is in it, and makes the lock. No other thread
  /// may be allocating.
  static result<pool_allocator> start() {
    if (KEL_SMalloc_Init() != 0)
      return errc::out_of_memory;
    pool_allocator started;
    started.running_ = true;
    return started;
  }

  explicit operator bool() const noexcept { return running_; }

  /// Destroys the lock; classes that are left can be used by one thread.
  void stop() noexcept {
    if (std::exchange(running_, false))
      KEL_SMalloc_Deinit();
  }

 private:
  bool running_ = false;
};

/// A registered block size.
class size_class {
 public:
  constexpr size_class() noexcept = default;
  size_class(size_class &&other) noexcept : size_(std::exchange(other.size_, 0)) {}
  size_class &operator=(size_class &&other) noexcept {
    if (this != &other) {
      reset();
      size_ = std::exchange(other.size_, 0);
    }
    return *this;
  }
  ~size_class() { reset(); }

  /// Registers `size` bytes, rounded up to a multiple of 4, with room for 4096 blocks.
  /// Fails with std::errc::file_exists for a size that is registered, else when memory
  /// is short or ten sizes are registered; memory that was short costs the slot.
  static result<size_class> create(uint32_t size, const char *name) {
    if (size == 0)
      return std::errc::invalid_argument;
    if (KEL_SMemIsReg(size) != 0)
      return std::errc::file_exists;
    if (KEL_SMalloc_Register(size, name) != 0)
      return errc::out_of_memory;
    size_class made;
    made.size_ = size;
    return made;
  }

  explicit operator bool() const noexcept { return size_ != 0; }

  /// A zeroed block; null when memory is short.
  [[nodiscard]] void *allocate() { return KEL_SMalloc(size_); }
  /// Gives a block of this class back.
  void deallocate(void *block) { KEL_SFree(block, size_); }

  /// The block size as it was registered; 0 for an empty owner.
  uint32_t size() const noexcept { return size_; }

  /// Releases everything that the class owns; blocks still held become invalid.
  void reset() noexcept {
    if (const uint32_t size = std::exchange(size_, 0))
      KEL_SMalloc_UnRegister(size);
  }

 private:
  uint32_t size_ = 0;
};

/// Takes blocks from the class of exactly their size (rounded up to a multiple of 4)
/// where one is registered and its blocks are aligned as asked, and all others from
/// another resource. Register the classes before the first allocation and keep them
/// until the last deallocation: the same question decides both. Any thread, where the
/// other resource allows it.
///
/// Memory that is short is std::bad_alloc, as containers expect of a resource; without
/// exceptions it ends the program.
class pool_resource final : public std::pmr::memory_resource {
 public:
  explicit pool_resource(
      std::pmr::memory_resource *others = std::pmr::get_default_resource()) noexcept
      : others_(others) {}

 private:
  void *do_allocate(std::size_t size, std::size_t align) override {
    if (!from_class(size, align))
      return others_->allocate(size, align);
    if (void *block = KEL_SMalloc(static_cast<uint32_t>(size)))
      return block;
#if defined(__cpp_exceptions)
    throw std::bad_alloc();
#else
    std::abort();
#endif
  }

  void do_deallocate(void *block, std::size_t size, std::size_t align) override {
    if (from_class(size, align))
      KEL_SFree(block, static_cast<uint32_t>(size));
    else
      others_->deallocate(block, size, align);
  }

  bool do_is_equal(const std::pmr::memory_resource &other) const noexcept override {
    return this == &other;
  }

  static bool from_class(std::size_t size, std::size_t align) noexcept {
    constexpr std::size_t kLargest = UINT32_MAX - 3;
    constexpr std::size_t kChunkAlign = alignof(std::max_align_t);
    if (size == 0 || size > kLargest || align > kChunkAlign)
      return false;
    // Blocks lie in a row, each as aligned as the size lets it be.
    const std::size_t block = (size + 3) & ~std::size_t{3};
    return block % align == 0 && KEL_SMemIsReg(static_cast<uint32_t>(size)) != 0;
  }

  std::pmr::memory_resource *others_;
};

}  // namespace kel

#endif
