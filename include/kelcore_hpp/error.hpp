/// @file
/// Errors: every failure of the library as a std::error_code.
///
///     kel::status locked = m.lock();
///     if (!locked && locked.error() == std::errc::timed_out) ...
///
/// A code is the very word that the C call returned, so making one costs nothing:
///  - 0x80000000 and up (as an int: below -2,000,000,000): KEL_ERR_...;
///  - -4095 to -2: an errno value with its sign turned;
///  - 1 to 4095: an errno value;
///  - -1: a failure without a reason.
/// The C calls tell the same thing in several of these ways. Compare with
/// std::errc, which sees through them: a time-out is std::errc::timed_out whether
/// it came as KEL_ERR_TIMEOUT, -110 or 110.
#ifndef KELCORE_HPP_ERROR_HPP
#define KELCORE_HPP_ERROR_HPP

#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>
#include <type_traits>

#include "../kelcore_system.h"
#include "../kelcore_types.h"

namespace kel {

namespace detail {

constexpr int as_code(uint32_t word) noexcept {
  return static_cast<int>(word);
}

/// The errno value that a code carries; 0 when it carries none.
constexpr int errno_of(int code) noexcept {
  constexpr int kMostErrno = 4095;
  if (code > 0 && code <= kMostErrno)
    return code;
  return code < -1 && code >= -kMostErrno ? -code : 0;
}

}  // namespace detail

/// The library's own codes. They compare with std::error_code; for "why did it
/// fail" prefer std::errc (see above).
enum class errc : int {
  fail = detail::as_code(KEL_ERR_FAIL),
  out_of_memory = detail::as_code(KEL_ERR_OUT_OF_MEMORY),
  thread_create = detail::as_code(KEL_ERR_THREAD_CREATE),
  disk_full = detail::as_code(KEL_ERR_DISK_FULL),
  not_supported = detail::as_code(KEL_ERR_NOT_SUPPORTED),
  timeout = detail::as_code(KEL_ERR_TIMEOUT),
  file_open = detail::as_code(KEL_ERR_FILE_OPEN),
  file_create = detail::as_code(KEL_ERR_FILE_CREATE),
  file_read = detail::as_code(KEL_ERR_FILE_READ),
  file_write = detail::as_code(KEL_ERR_FILE_WRITE),
  file_seek = detail::as_code(KEL_ERR_FILE_SEEK),
  file_format = detail::as_code(KEL_ERR_FILE_FORMAT),
  stream = detail::as_code(KEL_ERR_STREAM),
  no_buffer = detail::as_code(KEL_ERR_NO_BUFFER),
  buffer_size = detail::as_code(KEL_ERR_BUFFER_SIZE),
  buffer_overflow = detail::as_code(KEL_ERR_BUFFER_OVERFLOW),
  end_of_data = detail::as_code(KEL_ERR_END_OF_DATA),
};

namespace detail {

class library_category final : public std::error_category {
 public:
  const char *name() const noexcept override { return "kelcore"; }

  std::string message(int code) const override {
    if (code == 0)
      return "success";
    if (const int error = errno_of(code))
      return std::generic_category().message(error);
    if (code == static_cast<int>(errc::timeout))  // has no text of its own
      return std::generic_category().message(ETIMEDOUT);
    return KEL_GetErrorStr(static_cast<uint32_t>(code));
  }

  std::error_condition default_error_condition(int code) const noexcept override {
    if (code == 0)
      return {};
    if (const int error = errno_of(code))
      return {error, std::generic_category()};
    switch (static_cast<errc>(code)) {
      case errc::out_of_memory:
        return std::errc::not_enough_memory;
      case errc::thread_create:
        return std::errc::resource_unavailable_try_again;
      case errc::disk_full:
        return std::errc::no_space_on_device;
      case errc::not_supported:
        return std::errc::not_supported;
      case errc::timeout:
        return std::errc::timed_out;
      case errc::no_buffer:
      case errc::buffer_size:
      case errc::buffer_overflow:
        return std::errc::no_buffer_space;
      case errc::end_of_data:
        return std::errc::no_message_available;
      case errc::file_read:
      case errc::file_write:
      case errc::file_seek:
        return std::errc::io_error;
      default:
        return {code, *this};
    }
  }
};

}  // namespace detail

/// The one category of all codes of this library. Any thread; never blocks.
inline const std::error_category &category() noexcept {
  static const detail::library_category instance;
  return instance;
}

/// For the standard: a code of the library as an error code.
inline std::error_code make_error_code(errc code) noexcept {
  return {static_cast<int>(code), category()};
}

}  // namespace kel

template <>
struct std::is_error_code_enum<kel::errc> : std::true_type {};

#endif
