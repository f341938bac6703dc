// Tells what a file is from its first bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelstream {

enum class Container : uint8_t { kUnknown, kH264, kAdts, kMpegTs };

// `whole` when these are all bytes of the file. Damage in front is tolerated
// where what follows leaves no doubt.
Container Probe(const uint8_t *data, size_t size, bool whole);

const char *NameOf(Container container);

}  // namespace kelstream
