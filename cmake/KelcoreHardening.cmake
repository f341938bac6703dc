# What makes a bug harder to exploit, for the library and the programs that ship;
# link to kelcore_hardening privately. Projects that take this one in keep their
# own flags.
option(KELCORE_HARDENING "Build the library and the programs with hardening flags" ON)

add_library(kelcore_hardening INTERFACE)
if(NOT KELCORE_HARDENING)
  return()
endif()

# Programs are placed anywhere in memory, too.
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)
set_target_properties(kelcore_hardening PROPERTIES INTERFACE_POSITION_INDEPENDENT_CODE ON)

# No format comes from data. The builder's directories are nobody's business, in what ships.
target_compile_options(kelcore_hardening INTERFACE
  -fstack-protector-strong -Wformat=2 -Wformat-nonliteral
  "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")

# The checked functions of the C library need an optimising compiler; sanitizers
# see more than they do, and counted code shall be the source's own.
if(NOT KELCORE_SANITIZE AND NOT KELCORE_COVERAGE)
  target_compile_options(kelcore_hardening INTERFACE
    "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()

# Returns and indirect jumps reach only where the compiler meant them to. What that
# leaves in every object, a test looks for.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64|i[3-6]86)$")
  set(KELCORE_CONTROL_FLOW_FLAG -fcf-protection)
  set(KELCORE_CONTROL_FLOW_MARKS "IBT, SHSTK")
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(KELCORE_CONTROL_FLOW_FLAG -mbranch-protection=standard)
  set(KELCORE_CONTROL_FLOW_MARKS "BTI, PAC")
endif()
target_compile_options(kelcore_hardening INTERFACE ${KELCORE_CONTROL_FLOW_FLAG})

# All is bound at the start, and then the tables are read-only.
target_link_options(kelcore_hardening INTERFACE
  LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
