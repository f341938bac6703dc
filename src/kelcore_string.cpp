// Text helpers.

#include "kelcore_string.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

constexpr size_t kWideBytes = 256;

char fccstring[5];
alignas(wchar_t) char g_WcharDst[kWideBytes];
char g_charDst[kWideBytes];

}  // namespace

char *KEL_strrstr(const char *text, const char *pattern) {
  if (text == nullptr || pattern == nullptr || *text == '\0' || *pattern == '\0')
    return nullptr;
  const size_t text_length = strlen(text);
  const size_t pattern_length = strlen(pattern);
  if (pattern_length > text_length)
    return nullptr;
  // From the last place where it could begin, from one occurrence of its first
  // character to the one before.
  size_t places = text_length - pattern_length + 1;
  while (const void *found = memrchr(text, *pattern, places)) {
    const auto *at = static_cast<const char *>(found);
    if (memcmp(at, pattern, pattern_length) == 0)
      return const_cast<char *>(at);
    places = static_cast<size_t>(at - text);
  }
  return nullptr;
}

int32_t KEL_snprintf(char *to, int32_t size, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(to, static_cast<size_t>(size), format, arguments);
  va_end(arguments);
  return length;
}

char *KEL_FourCC_String(uint32_t code, char *buffer) {
  char *to = buffer != nullptr ? buffer : fccstring;
  memcpy(to, &code, sizeof code);
  to[sizeof code] = '\0';
  return to;
}

char *KEL_strtrim(const char *text, const char *open, const char *close, char *to,
                  uint32_t size) {
  if (text == nullptr || open == nullptr || close == nullptr || to == nullptr || size == 0)
    return nullptr;
  // One character is skipped whatever the delimiter's length: configuration
  // files rely on what a longer one leaves behind.
  const char *begin = KEL_strrstr(text, open);
  begin = begin != nullptr ? begin + 1 : text;
  const char *end = KEL_strrstr(begin, close);
  size_t length = end != nullptr ? static_cast<size_t>(end - begin) : strlen(begin);
  if (length >= size)
    length = size - 1;
  memcpy(to, begin, length);
  to[length] = '\0';
  return to;
}

wchar_t *KEL_char2Wchar(const char *) {
  return reinterpret_cast<wchar_t *>(g_WcharDst);
}

char *KEL_Wchar2char(const wchar_t *) {
  return g_charDst;
}

char *KEL_Wchar2charcopy(const wchar_t *, char *to) {
  return to;
}
