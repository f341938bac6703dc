/// @file
/// kel::owner: the move-only holder that every handle class is built on.
///
/// As large as the pointer it holds, released exactly once. A default-constructed
/// or moved-from owner is empty: it converts to false, and only moving to it,
/// reset() and destruction are for it.
#ifndef KELCORE_HPP_OWNER_HPP
#define KELCORE_HPP_OWNER_HPP

#include <utility>

namespace kel {

/// @tparam Handle   the C handle's record.
/// @tparam Release  the function that releases it; never called with null.
template <class Handle, auto Release>
class owner {
 public:
  using native_handle_type = Handle *;

  constexpr owner() noexcept = default;
  /// Takes over a handle that C code made.
  constexpr explicit owner(Handle *handle) noexcept : handle_(handle) {}
  owner(owner &&other) noexcept : handle_(other.release()) {}
  owner &operator=(owner &&other) noexcept {
    reset(other.release());
    return *this;
  }
  owner(const owner &) = delete;
  owner &operator=(const owner &) = delete;
  ~owner() {
    if (handle_ != nullptr)
      static_cast<void>(Release(handle_));
  }

  /// The handle, for C calls that this header does not offer; stays owned.
  constexpr Handle *native_handle() const noexcept { return handle_; }
  constexpr explicit operator bool() const noexcept { return handle_ != nullptr; }

  /// Gives the handle up: whoever gets it releases it.
  [[nodiscard]] Handle *release() noexcept { return std::exchange(handle_, nullptr); }

  /// Releases what is held, and holds `handle` instead.
  void reset(Handle *handle = nullptr) noexcept {
    Handle *old = std::exchange(handle_, handle);
    if (old != nullptr)
      static_cast<void>(Release(old));
  }

 private:
  Handle *handle_ = nullptr;
};

}  // namespace kel

#endif
