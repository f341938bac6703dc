/// @file
/// kel::file and kel::directory, closed when their owners end.
///
///     auto f = kel::file::open("a.ts", kel::file_mode::read).value_or_throw();
///     kel::result<size_t> got = f.read(buffer);    // 0 at the end
///
/// A file belongs to one thread at a time; calls block as the file system does.
/// Failures are traced, and their code is the system's.
///
/// Where it differs from the C calls:
///  - A short read that is a failure is told from the end of the file.
///  - truncate() writes buffers out first; what KEL_FileTruncate finds in them comes
///    behind the cut.
///  - The modes are those that mean something; the C call takes any combination of
///    bits, and some do not what they say.
/// Closing tells nothing: sync() first where a full disk matters. The calls that edit
/// text files in place empty them first; they are not offered here.
#ifndef KELCORE_HPP_FILE_HPP
#define KELCORE_HPP_FILE_HPP

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "../kelcore_file.h"
#include "owner.hpp"
#include "result.hpp"
#include "span.hpp"

namespace kel {

/// How a file is opened.
enum class file_mode : uint32_t {
  read = KEL_FILE_MODE_READ,    ///< must exist
  write = KEL_FILE_MODE_WRITE,  ///< made or emptied
  append = KEL_FILE_MODE_CREATE | KEL_FILE_MODE_WRITE | KEL_FILE_MODE_APPEND,  ///< made or kept
  update = KEL_FILE_MODE_RDWR,  ///< read and write; must exist
  update_or_create =
      KEL_FILE_MODE_CREATE | KEL_FILE_MODE_RDWR | KEL_FILE_MODE_READ,  ///< made or kept
  replace = KEL_FILE_MODE_CREATE | KEL_FILE_MODE_RDWR,  ///< read and write; made or emptied
};

/// What an offset counts from.
enum class seek_from : int32_t { start = 0, current = 1, end = 2 };

namespace detail {

/// The failure that errno tells, or `otherwise` where it tells none.
inline status errno_or(errc otherwise) {
  return errno != 0 ? status(-errno) : status(otherwise);
}

}  // namespace detail

class file : public owner<FILE, &KEL_FileClose> {
 public:
  using owner::owner;

  /// Opens the file. Fails for the system's reason.
  static result<file> open(const char *path, file_mode mode) {
    return detail::opened<file>(
        [&] { return KEL_FileOpen(path, static_cast<uint32_t>(mode)); });
  }

  /// Reads up to `to.size()` bytes; gives how many, fewer at the end only.
  result<std::size_t> read(writable_bytes to) {
    if (to.empty())
      return std::size_t{0};
    errno = 0;
    const auto got =
        static_cast<std::size_t>(KEL_FileRead(native_handle(), to.data(), to.size()));
    if (got < to.size() && std::ferror(native_handle()) != 0)
      return detail::errno_or(errc::file_read);
    return got;
  }

  /// Writes all of `from`.
  [[nodiscard]] status write(bytes from) {
    if (from.empty())
      return {};
    errno = 0;
    if (KEL_FileWrite(native_handle(), from.data(), from.size()) != from.size())
      return detail::errno_or(errc::file_write);
    return {};
  }

  /// The next line with its end, cut to what `buffer` holds (with a terminator), as a
  /// view of it; errc::end_of_data when there is none.
  result<std::string_view> read_line(span<char> buffer) {
    const std::size_t room = buffer.size() < INT_MAX ? buffer.size() : INT_MAX;
    if (KEL_FileReadLine(native_handle(), buffer.data(), static_cast<int32_t>(room)) == nullptr)
      return errc::end_of_data;
    return std::string_view(buffer.data());
  }

  /// Writes the text, without its terminator.
  [[nodiscard]] status write_text(const char *text) {
    errno = 0;
    if (KEL_FileTextWrite(native_handle(), text) < 0)
      return detail::errno_or(errc::file_write);
    return {};
  }

  /// Moves to `offset` bytes from there.
  [[nodiscard]] status seek(int64_t offset, seek_from from = seek_from::start) {
    errno = 0;
    if (KEL_FileSeek(native_handle(), offset, static_cast<int32_t>(from)) != 0)
      return detail::errno_or(errc::file_seek);
    return {};
  }

  /// The position, and the size, in bytes.
  result<uint64_t> position() {
    errno = 0;
    const int64_t at = KEL_FileTell(native_handle());
    if (at < 0)
      return detail::errno_or(errc::file_seek);
    return static_cast<uint64_t>(at);
  }
  result<uint64_t> size() {
    errno = 0;
    const uint64_t length = KEL_FileSize(native_handle());
    if (length == UINT64_MAX)
      return detail::errno_or(errc::file_seek);
    return length;
  }

  /// Cuts or extends the file.
  [[nodiscard]] status truncate(int64_t length) {
    errno = 0;
    if (std::fflush(native_handle()) != 0 || KEL_FileTruncate(native_handle(), length) != 0)
      return detail::errno_or(errc::file_write);
    return {};
  }

  /// Writes buffers out and waits for the storage.
  [[nodiscard]] status sync() {
    errno = 0;
    if (KEL_FileSync(native_handle()) != 0)
      return detail::errno_or(errc::file_write);
    return {};
  }
};

class directory : public owner<KEL_DIR, &KEL_FileCloseDir> {
 public:
  using owner::owner;

  /// Opens the directory at its first entry. Fails for the system's reason.
  static result<directory> open(const char *path) {
    return detail::opened<directory>([&] { return KEL_FileOpenDir(path); });
  }

  /// The next entry's name, valid until the next call; null at the end. Leaves out "."
  /// and "..", which the C call gives as well.
  const char *next() {
    const char *name = nullptr;
    do
      name = KEL_FileReadDir(native_handle());
    while (name != nullptr && (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0));
    return name;
  }

  /// Starts over with the first entry.
  void rewind() { KEL_FileResetDir(native_handle()); }
};

/// Kind, time of last access (seconds since the epoch) and size of what is at `path`.
inline result<KEL_FILE_ATTR> file_attributes(const char *path) {
  KEL_FILE_ATTR attributes{};
  errno = 0;
  if (KEL_GetFileAttr(path, &attributes) != 0)
    return detail::errno_or(errc::file_open);
  return attributes;
}

/// Whether there is something at `path`.
inline bool file_exists(const char *path) {
  return KEL_FileExist(path, 0) == 0;
}

/// Makes one directory.
[[nodiscard]] inline status make_directory(const char *path) {
  errno = 0;
  if (KEL_MakeDir(path) != 0)
    return detail::errno_or(errc::file_create);
  return {};
}

}  // namespace kel

#endif
