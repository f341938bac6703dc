# cmake -DPROJECT= -DBINARY= -DPREFIX= -DPKG_CONFIG= -DPC_DIR= -DLIBDIR= -DSTATIC= -P use_pkg_config.cmake
# Builds a program as a plain makefile does, and runs it.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

file(REMOVE_RECURSE "${BINARY}")
file(MAKE_DIRECTORY "${BINARY}")
set(pkg_config "${CMAKE_COMMAND}" -E env "PKG_CONFIG_LIBDIR=${PREFIX}/${PC_DIR}" "${PKG_CONFIG}")
run(${pkg_config} --modversion kelcore)
string(STRIP "${output}" output)
if(NOT output STREQUAL VERSION)
  message(FATAL_ERROR "kelcore.pc is of version ${output}, not ${VERSION}")
endif()

set(linking "-Wl,-rpath,${PREFIX}/${LIBDIR}")
set(query --cflags --libs kelcore)
if(STATIC)
  # The C library stays shared: the plug-in loader could not do its work without.
  set(linking "-Wl,-Bstatic")
  list(PREPEND query --static)
endif()
run(${pkg_config} ${query})
separate_arguments(flags UNIX_COMMAND "${output}")
message("pkg-config says ${output}")
if(STATIC)
  list(APPEND flags -Wl,-Bdynamic)
endif()
run("${CC}" -Wall -Wextra -Werror "${PROJECT}/main.c" ${linking} ${flags} -o "${BINARY}/user")
run_program("${BINARY}/user")
