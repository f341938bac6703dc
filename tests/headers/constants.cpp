// The constants of the C++ headers, as constants.c has those of the C headers.
#include <type_traits>

#include "kelcore.hpp"

#define PINNED(name, value) static_assert(static_cast<uint32_t>(name) == (value))

static_assert(std::is_same_v<std::underlying_type_t<kel::errc>, int>);
PINNED(kel::errc::fail, 0x80000000u);
PINNED(kel::errc::out_of_memory, 0x80000001u);
PINNED(kel::errc::thread_create, 0x80000002u);
PINNED(kel::errc::disk_full, 0x80000005u);
PINNED(kel::errc::not_supported, 0x80000006u);
PINNED(kel::errc::timeout, 0x80000007u);
PINNED(kel::errc::file_open, 0x80000010u);
PINNED(kel::errc::file_create, 0x80000011u);
PINNED(kel::errc::file_read, 0x80000012u);
PINNED(kel::errc::file_write, 0x80000013u);
PINNED(kel::errc::file_seek, 0x80000014u);
PINNED(kel::errc::file_format, 0x80000019u);
PINNED(kel::errc::stream, 0x8000001Au);
PINNED(kel::errc::no_buffer, 0x80000050u);
PINNED(kel::errc::buffer_size, 0x80000051u);
PINNED(kel::errc::buffer_overflow, 0x80000052u);
PINNED(kel::errc::end_of_data, 0x80000054u);

static_assert(std::is_same_v<std::underlying_type_t<kel::file_mode>, uint32_t>);
PINNED(kel::file_mode::read, 0x2u);
PINNED(kel::file_mode::write, 0x4u);
PINNED(kel::file_mode::append, 0x15u);
PINNED(kel::file_mode::update, 0x8u);
PINNED(kel::file_mode::update_or_create, 0xBu);
PINNED(kel::file_mode::replace, 0x9u);

static_assert(std::is_same_v<std::underlying_type_t<kel::seek_from>, int32_t>);
PINNED(kel::seek_from::start, 0u);
PINNED(kel::seek_from::current, 1u);
PINNED(kel::seek_from::end, 2u);

PINNED(kel::bit_slack, 3u);
PINNED(kel::infinite.native(), 0x7FFFFFFFu);
PINNED(kel::no_wait.native(), 0u);
