# cmake -DSOURCE= -DPROJECT= -DBINARY= -DFETCH= -P embed.cmake
# Builds a project that takes this one in whole; it installs nothing but what
# was asked for.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

set(options "-DKELCORE_SOURCE=${SOURCE}" "-DFETCH=${FETCH}")
configure_and_build("${PROJECT}" "${BINARY}" ${options})
run_program("${BINARY}/user")
run_program("${BINARY}/user_static")

file(REMOVE_RECURSE "${BINARY}/prefix")
run(${_cmake} --install "${BINARY}" --prefix "${BINARY}/prefix")
file(GLOB_RECURSE installed "${BINARY}/prefix/*")
if(installed)
  message(FATAL_ERROR "installed although nobody asked: ${installed}")
endif()
run(${_cmake} -DKELCORE_INSTALL=ON "${BINARY}")
run(${_cmake} --install "${BINARY}" --prefix "${BINARY}/prefix")
file(GLOB_RECURSE installed "${BINARY}/prefix/*/libkelcore.so")
if(NOT installed)
  message(FATAL_ERROR "not installed although asked for")
endif()
