// Walks through a text that should be UTF-8 and may be anything.
#pragma once

#include <cstddef>
#include <string_view>

namespace kelstream {

// The length of the well-formed character that `text` (not empty) begins with;
// 0 when it begins with none.
size_t Utf8Length(std::string_view text);

}  // namespace kelstream
