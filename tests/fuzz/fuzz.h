// What all fuzz targets share: the consumer of their input, and checks that end
// the run with a message, so that the fuzzer keeps the input.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace fuzz {

[[noreturn]] inline void Fail(const char *file, int line, const char *what,
                              const std::string &values = {}) {
  fprintf(stderr, "%s:%d: does not hold: %s%s\n", file, line, what, values.c_str());
  abort();
}

template <typename A, typename B>
void CheckEqual(const char *file, int line, const char *what, const A &got, const B &expected) {
  if (got == static_cast<A>(expected))
    return;
  if constexpr (std::is_integral_v<A>)
    Fail(file, line, what,
         " (" + std::to_string(got) + " instead of " + std::to_string(expected) + ")");
  else if constexpr (std::is_same_v<A, std::string>)
    Fail(file, line, what, "\n got      \"" + got + "\"\n expected \"" + expected + "\"");
  else
    Fail(file, line, what);
}

// At most `most` bytes, in a block of exactly their number, so that a step over
// its end is seen.
inline std::vector<uint8_t> Bytes(FuzzedDataProvider &input, size_t most) {
  auto bytes = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<size_t>(0, most));
  bytes.shrink_to_fit();
  return bytes;
}

// At most `most` characters in front of the first zero.
inline std::string Text(FuzzedDataProvider &input, size_t most) {
  return input.ConsumeBytesAsString(input.ConsumeIntegralInRange<size_t>(0, most)).c_str();
}

inline bool Filled(const uint8_t *data, size_t size, uint8_t value) {
  // Much faster than a loop with a check at every byte.
  return size == 0 || (data[0] == value && memcmp(data, data + 1, size - 1) == 0);
}

// Text in a block of its own length.
class ExactText {
 public:
  explicit ExactText(const std::string &text) : text_(strdup(text.c_str())) {}
  ~ExactText() { free(text_); }
  ExactText(const ExactText &) = delete;
  ExactText &operator=(const ExactText &) = delete;
  operator const char *() const { return text_; }

 private:
  char *text_;
};

}  // namespace fuzz

#define FUZZ_CHECK(condition) \
  ((condition) ? static_cast<void>(0) : fuzz::Fail(__FILE__, __LINE__, #condition))
#define FUZZ_EQUAL(got, expected) \
  fuzz::CheckEqual(__FILE__, __LINE__, #got " == " #expected, (got), (expected))

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
