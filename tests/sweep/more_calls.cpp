#include "more_calls.h"

namespace {
constinit std::atomic<bool> ready{false};
}

#define FAULT_CALL(result, name, parameters, arguments)                    \
  extern "C" result __real_##name parameters;                              \
  namespace faults {                                                       \
  Call<result parameters> name{#name, __real_##name};                      \
  }                                                                        \
  extern "C" result __wrap_##name parameters;                              \
  extern "C" result __wrap_##name parameters {                             \
    return ready ? faults::name.Enter arguments : __real_##name arguments; \
  }
#include "more_calls.inc"
#undef FAULT_CALL

extern "C" int __real_vfprintf(FILE *to, const char *format, va_list arguments);
extern "C" int __real_vsnprintf(char *to, size_t size, const char *format, va_list arguments);

namespace faults {
Call<int(Print)> print{
    "print", [](Print what) { return __real_vfprintf(what.to, what.format, *what.arguments); }};
Call<int(char *, size_t, const char *, va_list *)> vsnprintf{
    "vsnprintf", [](char *to, size_t size, const char *format, va_list *arguments) {
      return __real_vsnprintf(to, size, format, *arguments);
    }};
}  // namespace faults

namespace {

int DoPrint(FILE *to, const char *format, va_list *arguments) {
  if (!ready)
    return __real_vfprintf(to, format, *arguments);
  return faults::print.Enter({to, format, arguments});
}

}  // namespace

#define PRINT_VARIADIC(name, to, ...)                   \
  extern "C" int __wrap_##name(__VA_ARGS__, ...);       \
  extern "C" int __wrap_##name(__VA_ARGS__, ...) {      \
    va_list arguments;                                  \
    va_start(arguments, format);                        \
    const int length = DoPrint(to, format, &arguments); \
    va_end(arguments);                                  \
    return length;                                      \
  }
PRINT_VARIADIC(printf, stdout, const char *format)
PRINT_VARIADIC(__printf_chk, stdout, int, const char *format)
PRINT_VARIADIC(fprintf, file, FILE *file, const char *format)
PRINT_VARIADIC(__fprintf_chk, file, FILE *file, int, const char *format)

#define PRINT_LIST(name, ...)                               \
  extern "C" int __wrap_##name(__VA_ARGS__, va_list list);  \
  extern "C" int __wrap_##name(__VA_ARGS__, va_list list) { \
    va_list arguments;                                      \
    va_copy(arguments, list);                               \
    const int length = DoPrint(file, format, &arguments);   \
    va_end(arguments);                                      \
    return length;                                          \
  }
PRINT_LIST(vfprintf, FILE *file, const char *format)
PRINT_LIST(__vfprintf_chk, FILE *file, int, const char *format)

namespace {

int PrintTo(FILE *to, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = DoPrint(to, format, &arguments);
  va_end(arguments);
  return length;
}

}  // namespace

// The compiler's own choice for texts that end a line.
extern "C" int __wrap_puts(const char *text);
extern "C" int __wrap_puts(const char *text) {
  return PrintTo(stdout, "%s\n", text);
}
extern "C" int __wrap_putchar(int character);
extern "C" int __wrap_putchar(int character) {
  return PrintTo(stdout, "%c", character);
}

#define PRINT_TO_TEXT(name, ...)                                                     \
  extern "C" int __wrap_##name(__VA_ARGS__, va_list list);                           \
  extern "C" int __wrap_##name(__VA_ARGS__, va_list list) {                          \
    va_list arguments;                                                               \
    va_copy(arguments, list);                                                        \
    const int length = ready ? faults::vsnprintf.Enter(to, size, format, &arguments) \
                             : __real_vsnprintf(to, size, format, arguments);        \
    va_end(arguments);                                                               \
    return length;                                                                   \
  }
PRINT_TO_TEXT(vsnprintf, char *to, size_t size, const char *format)
PRINT_TO_TEXT(__vsnprintf_chk, char *to, size_t size, int, size_t, const char *format)

namespace {
// Made last and gone first.
const struct AllMade {
  AllMade() { ready = true; }
  ~AllMade() { ready = false; }
} all_made;
}  // namespace
