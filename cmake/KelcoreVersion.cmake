# The headers state the version for programs; it must be the project's.
file(READ "${PROJECT_SOURCE_DIR}/include/kelcore_types.h" _kelcore_types)
foreach(_part MAJOR MINOR PATCH)
  if(NOT _kelcore_types MATCHES "#define KELCORE_VERSION_${_part} ${PROJECT_VERSION_${_part}}\n")
    message(FATAL_ERROR
      "include/kelcore_types.h: KELCORE_VERSION_${_part} is not ${PROJECT_VERSION_${_part}}")
  endif()
endforeach()
