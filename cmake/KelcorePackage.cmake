# Debian packages, one per component: the library under its SONAME's name, so that
# two major versions live side by side, what programs are built with, and the tools.
# scripts/package.sh builds and tries them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelcore)
set(CPACK_PACKAGE_VENDOR "kelcore")
set(CPACK_PACKAGE_CONTACT "kelcore maintainers <maintainers@kelcore.example>")
# Each package has its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
# What a strict distribution expects beside the installed files.
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/package_documents.cmake")
# Debug information that is there goes to packages of its own.
if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
  set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
  set(CPACK_DEBIAN_TOOLS_DEBUGINFO_PACKAGE ON)
else()
  set(CPACK_STRIP_FILES ON)
endif()
set(CPACK_KELCORE_SOURCE "${PROJECT_SOURCE_DIR}")
set(CPACK_KELCORE_STRIP "${CMAKE_STRIP}")
# Whoever builds, a directory is 0755.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# Summaries are short and begin in lower case.
set(_summary "core runtime library of a media device")
set(_library libkelcore${PROJECT_VERSION_MAJOR})
set(CPACK_COMPONENTS_ALL Runtime Development)
if(TARGET kelstream OR TARGET kelctl)
  list(APPEND CPACK_COMPONENTS_ALL Tools)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The libraries' dependencies are read from the files; a package that depends on
# another one of these needs exactly its build.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
# Programs of others need this version at least: a major version only grows.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(_exactly "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${_library})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${_summary} - shared library
Errors, tracing, memory, time, threads, queues, messages between processes,
files, hashing and byte buffers behind a plain C interface.")
# CPack's own scripts renew the cache of libraries, but not when dpkg only unpacks.
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/packaging/triggers"
  CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/packaging/triggers")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkelcore-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${_library} ${_exactly}, libc6-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${_summary} - development files
Headers, the static library, files for CMake and pkg-config, documents, example
programs, and printers for the debugger.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kelcore-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${_library} ${_exactly}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "${_summary} - programs
kelstream inspects H.264 and AAC streams; kelctl looks at the queues, memory
segments and traces that programs of the library leave in the system.")

include(CPack)
