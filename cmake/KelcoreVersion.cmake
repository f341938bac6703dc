# The headers state the version for programs; it must be the project's.
file(READ "${PROJECT_SOURCE_DIR}/include/kelcore_types.h" _kelcore_types)
if(PROJECT_VERSION_MINOR GREATER 99 OR PROJECT_VERSION_PATCH GREATER 99)
  message(FATAL_ERROR "version ${PROJECT_VERSION}: KELCORE_VERSION has two digits for each part")
endif()
math(EXPR _number "(${PROJECT_VERSION_MAJOR} * 100 + ${PROJECT_VERSION_MINOR}) * 100 + ${PROJECT_VERSION_PATCH}")
foreach(_macro IN ITEMS
    "_MAJOR ${PROJECT_VERSION_MAJOR}" "_MINOR ${PROJECT_VERSION_MINOR}"
    "_PATCH ${PROJECT_VERSION_PATCH}" "_STRING \"${PROJECT_VERSION}\"" " ${_number}")
  string(REGEX MATCH "#define KELCORE_VERSION${_macro}[ \n]" _found "${_kelcore_types}")
  if(NOT _found)
    message(FATAL_ERROR "include/kelcore_types.h: expected #define KELCORE_VERSION${_macro}")
  endif()
endforeach()
