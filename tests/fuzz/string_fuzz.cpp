// The text helpers against what a naive search finds, on texts and buffers of
// exactly their size.

#include <kelcore_string.h>

#include "fuzz.h"

namespace {

// Where the last occurrence begins, npos when there is none.
size_t LastOf(const std::string &text, const std::string &pattern) {
  for (size_t at = text.size() + 1; !pattern.empty() && at-- > 0;)
    if (text.compare(at, pattern.size(), pattern) == 0)
      return at;
  return std::string::npos;
}

void Search(const std::string &text, const std::string &pattern) {
  const fuzz::ExactText exact_text(text), exact_pattern(pattern);
  const char *found = KEL_strrstr(exact_text, exact_pattern);
  const size_t at = LastOf(text, pattern);
  FUZZ_CHECK(found == (at == std::string::npos ? nullptr : exact_text + at));
}

void Trim(const std::string &text, const std::string &open, const std::string &close,
          uint32_t size) {
  const size_t first = LastOf(text, open);
  std::string rest = first == std::string::npos ? text : text.substr(first + 1);
  const size_t last = LastOf(rest, close);
  if (last != std::string::npos)
    rest.resize(last);
  if (size > 0 && rest.size() > size - 1)
    rest.resize(size - 1);

  const fuzz::ExactText exact_text(text), exact_open(open), exact_close(close);
  std::vector<char> to(size, 'x');
  to.shrink_to_fit();
  const char *trimmed = KEL_strtrim(exact_text, exact_open, exact_close, to.data(), size);
  FUZZ_CHECK(trimmed == (size != 0 ? to.data() : nullptr));
  if (trimmed != nullptr)
    FUZZ_EQUAL(std::string(trimmed), rest);
}

void Print(const std::string &text, uint32_t size, uint32_t number) {
  const std::string whole = text + "|" + std::to_string(number);
  std::vector<char> to(size, 'x');
  to.shrink_to_fit();
  FUZZ_EQUAL(KEL_snprintf(to.data(), static_cast<int32_t>(size), "%s|%u", text.c_str(), number),
             whole.size());
  if (size > 0)
    FUZZ_EQUAL(std::string(to.data()), whole.substr(0, size - 1));
}

void FourCC(uint32_t code) {
  std::vector<char> to(5, 'x');
  to.shrink_to_fit();
  FUZZ_CHECK(KEL_FourCC_String(code, to.data()) == to.data());
  FUZZ_CHECK(memcmp(to.data(), &code, sizeof code) == 0 && to[4] == '\0');
  FUZZ_CHECK(memcmp(KEL_FourCC_String(code, nullptr), to.data(), to.size()) == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  const auto room = input.ConsumeIntegralInRange<uint32_t>(0, 40);
  const auto number = input.ConsumeIntegral<uint32_t>();
  const std::string open = fuzz::Text(input, 4);
  const std::string close = fuzz::Text(input, 4);
  const std::string text = fuzz::Text(input, 60);
  Search(text, open);
  Search(text, close);
  Search(open, text);
  Trim(text, open, close, room);
  Print(text, room, number);
  FourCC(number);
  return 0;
}
