// Bytes as the parsers want them.
#pragma once

#include "bit_reader.h"
#include "bit_writer.h"

namespace kelstream_test {

inline kelstream::PaddedBytes Padded(const Bytes &bytes) {
  return kelstream::PaddedBytes(bytes.data(), bytes.size());
}

}  // namespace kelstream_test
