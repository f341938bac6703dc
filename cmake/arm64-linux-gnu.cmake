# Cross-compiles for arm64 with Debian's g++-aarch64-linux-gnu; tests run under
# qemu-user when it is there:
#   cmake --preset arm64
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
find_program(KELCORE_QEMU qemu-aarch64)
if(KELCORE_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${KELCORE_QEMU};-L;/usr/aarch64-linux-gnu")
endif()
