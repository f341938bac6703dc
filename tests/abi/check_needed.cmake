cmake_minimum_required(VERSION 3.25)

# cmake -DLIBRARY=libkelcore.so -DREADELF=readelf -DSONAME=libkelcore.so.1 -P check_needed.cmake
# The library may need the C library and nothing else, and bears its SONAME.
execute_process(COMMAND ${READELF} -d ${LIBRARY}
                OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*\\[[^]]*\\]" needed "${dynamic}")
if(NOT needed)
  message(FATAL_ERROR "no NEEDED entry found in:\n${dynamic}")
endif()
foreach(entry IN LISTS needed)
  string(REGEX REPLACE ".*\\[(.*)\\]" "\\1" name "${entry}")
  message("needs ${name}")
  # libm, libpthread, librt and libdl are the C library's; so is its loader.
  if(NOT name MATCHES "^(libc|libm|libpthread|librt|libdl)\\.so\\.[0-9]+$|^ld-linux[-a-z0-9_]*\\.so\\.[0-9]+$")
    message(FATAL_ERROR "${LIBRARY} needs ${name}, which is not the C library's")
  endif()
endforeach()
if(NOT dynamic MATCHES "\\(SONAME\\)[^\n]*\\[${SONAME}\\]")
  message(FATAL_ERROR "${LIBRARY} does not bear the SONAME ${SONAME}")
endif()
