// Further calls that the sweep makes fail or follows.
#pragma once

#include <stdarg.h>

#include "faults.h"

namespace faults {

#define FAULT_CALL(result, name, parameters, arguments) extern Call<result parameters> name;
#include "more_calls.inc"
#undef FAULT_CALL

// printf, fprintf and vfprintf, under whatever names the compiler calls them.
struct Print {
  FILE *to;
  const char *format;
  va_list *arguments;
};
extern Call<int(Print)> print;

// Likewise.
extern Call<int(char *, size_t, const char *, va_list *)> vsnprintf;

}  // namespace faults
