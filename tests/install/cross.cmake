# cmake -DSOURCE= -DBINARY= -DTOOLCHAIN= [-DEMULATOR=] -P cross.cmake
# Builds the library for another machine, installs it, and builds a program there.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

set(prefix "${BINARY}/prefix")
configure_and_build("${SOURCE}" "${BINARY}/library" -DCMAKE_BUILD_TYPE=Release
  -DKELCORE_BUILD_TESTS=OFF -DKELCORE_BUILD_EXAMPLES=OFF -DKELCORE_BUILD_TOOLS=OFF
  -DCMAKE_INSTALL_LIBDIR=lib)
file(REMOVE_RECURSE "${prefix}")
run(${_cmake} --install "${BINARY}/library" --prefix "${prefix}")

foreach(library IN ITEMS kelcore static)
  configure_and_build("${PROJECT}" "${BINARY}/${library}"
    "-Dkelcore_DIR=${prefix}/lib/cmake/kelcore" "-DLIBRARY=kelcore::${library}"
    "-DEXPECTED_VERSION=${VERSION}")
  if(EMULATOR)
    run_program("${BINARY}/${library}/user")
  else()
    message("no emulator: built, not run")
  endif()
endforeach()
