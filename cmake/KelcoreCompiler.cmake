# Compiler settings that every target of the project shares.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# A library for small devices: -O3 buys nothing here but size.
if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
endif()

set(THREADS_PREFER_PTHREAD_FLAG ON)
# A project that adds this one links the static library, and so the threads, too.
find_package(Threads REQUIRED GLOBAL)

# Warnings and sanitizers; link every target of the project to it privately.
add_library(kelcore_options INTERFACE)
target_compile_options(kelcore_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${KELCORE_WERROR}>:-Werror>)
if(KELCORE_SANITIZE)
  target_compile_options(kelcore_options INTERFACE
    -fsanitize=${KELCORE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(kelcore_options INTERFACE -fsanitize=${KELCORE_SANITIZE})
  if(KELCORE_SANITIZE MATCHES "fuzzer")
    # What is compared teaches the fuzzer little here, for checksums are mended
    # and seeds know the magic words, and telling it halves the executions.
    target_compile_options(kelcore_options INTERFACE -fno-sanitize-coverage=trace-cmp)
  endif()
endif()
