# cmake -DPROJECT= -DBINARY= -DPREFIX= -DPACKAGE= -DLIBRARY= -DVERSION= -P use_cmake.cmake
# Builds a project that finds the installed package, and runs its program.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

# Across machines nothing is looked for outside the other one's root.
set(place "-DCMAKE_PREFIX_PATH=${PREFIX}")
if(TOOLCHAIN)
  set(place "-Dkelcore_DIR=${PREFIX}/${PACKAGE}" "-DKELCORE_PACKAGE_DIR=${PREFIX}/${PACKAGE}")
endif()
string(REGEX MATCH "^[0-9]+" major "${VERSION}")
configure_and_build("${PROJECT}" "${BINARY}" ${place} "-DLIBRARY=${LIBRARY}"
  "-DEXPECTED_VERSION=${VERSION}" "-DEXPECTED_MAJOR=${major}")

file(STRINGS "${BINARY}/CMakeCache.txt" found REGEX "^kelcore_DIR")
if(NOT found MATCHES "=${PREFIX}/")
  message(FATAL_ERROR "another package than the installed one was found: ${found}")
endif()
run_program("${BINARY}/user")
