/// @file
/// kel::library: a plug-in, unloaded when its owner ends.
///
///     auto codec = kel::library::load("h264.so").value_or_throw();
///     if (auto *decode = codec.symbol<int(const uint8_t *, size_t)>("decode")) ...
///
/// Safe from any thread. Failures are traced.
#ifndef KELCORE_HPP_LIBRARY_HPP
#define KELCORE_HPP_LIBRARY_HPP

#include "../kelcore_library.h"
#include "owner.hpp"
#include "result.hpp"

namespace kel {

class library : public owner<void, &KEL_LibraryUnLoad> {
 public:
  using owner::owner;

  /// Loads a shared library, all its symbols bound at once and visible to itself only.
  /// Runs its constructors. Fails with errc::file_open.
  static result<library> load(const char *path) {
    library loaded(KEL_LibraryLoad(path));
    if (!loaded)
      return errc::file_open;
    return loaded;
  }

  /// The function (or object) of that name, null when there is none. It is valid as
  /// long as the library is loaded; that T is its type nobody checks.
  template <class T>
  T *symbol(const char *name) const {
    return reinterpret_cast<T *>(KEL_LibraryGetFunc(native_handle(), name));
  }
};

}  // namespace kel

#endif
