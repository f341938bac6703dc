// Bytes, sixteen to a row, as digits and as characters.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "json.h"

namespace kelctl {

constexpr size_t kRowBytes = 16;

// The rows of `data`, the first byte being at `offset`.
std::string HexRows(std::string_view data, uint64_t offset);

// The same as objects in the array that is open.
void AddHexRows(Json &json, std::string_view data, uint64_t offset);

}  // namespace kelctl
