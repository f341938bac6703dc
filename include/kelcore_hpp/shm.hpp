/// @file
/// kel::shared_memory<T>: one record in several processes.
///
///     auto totals = kel::shared_memory<counters>::open("totals").value_or_throw();
///     if (totals.created()) ...                  // this process fills it in
///     totals->frames.fetch_add(1);
///
/// The segment is found by a 16-bit checksum of the name: different names may meet in
/// one. Access is the application's to arrange. Failures are printed on standard
/// output, with the caller's position.
///
/// Where it differs from the C calls:
///  - A name whose checksum is 0, which would give a new private segment each time, is
///    refused.
///  - leave() lets go of a segment without removing it for later openers; destruction,
///    as KEL_ShmFree, removes it: it lives on until all others have let go.
#ifndef KELCORE_HPP_SHM_HPP
#define KELCORE_HPP_SHM_HPP

#include <sys/shm.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "../kelcore_hash.h"
#include "../kelcore_shm.h"
#include "owner.hpp"
#include "result.hpp"

namespace kel {

/// @tparam T  a record of standard layout that all zeroes are good for: a new segment
/// holds zeroes. Nothing is constructed or destroyed.
template <class T>
class shared_memory : public owner<void, &KEL_ShmFree> {
  static constexpr uint32_t kHeaderBytes = 16;  // of the segment, in front of the data
  static_assert(std::is_standard_layout_v<T> && std::is_trivially_destructible_v<T>);
  static_assert(alignof(T) <= kHeaderBytes);

 public:
  shared_memory() noexcept = default;

  /// Attaches the segment of `name`, or makes it. Fails also when one of that name is
  /// smaller than T. The last three parameters are left to the compiler.
  static result<shared_memory> open(const char *name, const char *file = __builtin_FILE(),
                                    int line = __builtin_LINE(),
                                    const char *func = __builtin_FUNCTION()) {
    if (name == nullptr ||
        (KEL_Hash_crc16(name, static_cast<uint32_t>(std::strlen(name))) & 0xFFFF) == 0)
      return std::errc::invalid_argument;
    shared_memory opened;
    uint8_t created = 0;
    errno = 0;
    opened.reset(KEL_ShmMalloc(name, uint32_t{sizeof(T)}, &created, file, line, func));
    if (!opened)
      return errno != 0 ? status(-errno) : status(errc::fail);
    opened.created_ = created != 0;
    return opened;
  }

  /// Whether this owner made the segment.
  bool created() const noexcept { return created_; }

  /// The record, which is there as long as the owner has it.
  T *get() const noexcept { return static_cast<T *>(native_handle()); }
  T &operator*() const noexcept { return *get(); }
  T *operator->() const noexcept { return get(); }

  /// Lets go without removing the segment: later openers find it as it is.
  status leave() {
    void *data = release();
    if (data == nullptr)
      return std::errc::invalid_argument;
    return shmdt(static_cast<uint8_t *>(data) - kHeaderBytes) == 0 ? status() : status(-errno);
  }

 private:
  bool created_ = false;
};

}  // namespace kel

#endif
