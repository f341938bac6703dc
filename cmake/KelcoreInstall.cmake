# What `cmake --install` lays down, in three components: Runtime is what a device
# needs, Development what programs are built with, Tools what people run.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# --- the libraries

install(TARGETS kelcore EXPORT kelcore-targets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  COMPONENT Runtime NAMELINK_COMPONENT Development)
install(TARGETS kelcore_static EXPORT kelcore-targets
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  COMPONENT Development)

# A directory of their own keeps thirty headers apart from other packages'; they
# include each other by their place beside one another, so that a program may name either
# directory.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kelcore"
  COMPONENT Development
  FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")

# --- found by CMake

set(_cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/kelcore")
install(EXPORT kelcore-targets NAMESPACE kelcore::
  DESTINATION "${_cmake_dir}" COMPONENT Development)
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/kelcore-config.cmake.in"
  "${PROJECT_BINARY_DIR}/kelcore-config.cmake"
  INSTALL_DESTINATION "${_cmake_dir}"
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/kelcore-config-version.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/kelcore-config.cmake"
  "${PROJECT_BINARY_DIR}/kelcore-config-version.cmake"
  DESTINATION "${_cmake_dir}" COMPONENT Development)

# --- found by pkg-config

# Paths relative to the file itself, so that the tree may be moved; directories
# outside the prefix stay where they are.
set(_pc_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
function(kelcore_below prefix directory result)
  if(IS_ABSOLUTE "${directory}")
    set(${result} "${directory}" PARENT_SCOPE)
  else()
    set(${result} "\${${prefix}}/${directory}" PARENT_SCOPE)
  endif()
endfunction()
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(KELCORE_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH KELCORE_PC_PREFIX "/${_pc_dir}" "/")
  string(REGEX REPLACE "/$" "" KELCORE_PC_PREFIX "\${pcfiledir}/${KELCORE_PC_PREFIX}")
endif()
kelcore_below(prefix "${CMAKE_INSTALL_LIBDIR}" KELCORE_PC_LIBDIR)
kelcore_below(prefix "${CMAKE_INSTALL_INCLUDEDIR}" KELCORE_PC_INCLUDEDIR)
configure_file("${CMAKE_CURRENT_LIST_DIR}/kelcore.pc.in"
  "${PROJECT_BINARY_DIR}/kelcore.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kelcore.pc"
  DESTINATION "${_pc_dir}" COMPONENT Development)

# --- shown by gdb

# gdb looks for a file of the library's full name: beside the library, and, under the
# library's own path, in its data directory, which it trusts. That one is the system's: it
# serves the system's libraries, which have only libraries beside them. Which place it is
# is known when the files are laid down.
kelcore_below(CMAKE_INSTALL_PREFIX "${CMAKE_INSTALL_LIBDIR}" _libdir)
kelcore_below(CMAKE_INSTALL_PREFIX "${CMAKE_INSTALL_DATADIR}/gdb/auto-load" _gdb_dir)
install(CODE "
  set(_kelcore_gdb_dir \"${_libdir}\")
  if(_kelcore_gdb_dir MATCHES \"^/usr/lib\")
    set(_kelcore_gdb_dir \"${_gdb_dir}\${_kelcore_gdb_dir}\")
  endif()
  file(INSTALL DESTINATION \"\${_kelcore_gdb_dir}\" TYPE FILE
    RENAME \"libkelcore.so.${PROJECT_VERSION}-gdb.py\"
    FILES \"${PROJECT_SOURCE_DIR}/gdb/kelcore_gdb.py\")"
  COMPONENT Development)

# --- programs, and what goes with them

# Anywhere but in the system's own place the programs look for the library beside
# themselves, so that a tree in a home directory or a test's prefix just works.
set(_rpath "")
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH _rpath "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
  set(_rpath "$ORIGIN/${_rpath}")
endif()
foreach(_program IN ITEMS kelstream kelctl)
  if(TARGET ${_program})
    set_target_properties(${_program} PROPERTIES INSTALL_RPATH "${_rpath}")
    install(TARGETS ${_program}
      RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT Tools)
    # A page of a program that is not there would mislead.
    if(EXISTS "${PROJECT_SOURCE_DIR}/docs/man/${_program}.1")
      install(FILES "${PROJECT_SOURCE_DIR}/docs/man/${_program}.1"
        DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT Tools)
    endif()
  endif()
endforeach()
if(TARGET kelctl)
  # The shell looks for a file of the command's name.
  install(FILES "${PROJECT_SOURCE_DIR}/tools/kelctl/kelctl.bash"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME kelctl
    COMPONENT Tools)
endif()
foreach(_section IN ITEMS 3 7)
  file(GLOB _pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/man/*.${_section}")
  install(FILES ${_pages}
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man${_section}" COMPONENT Development)
endforeach()

file(GLOB _licences "${PROJECT_SOURCE_DIR}/LICENSE*" "${PROJECT_SOURCE_DIR}/COPYING*")
install(FILES ${_licences} "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT Development)

# The documents and the small programs lie there as in the repository, so that the
# links of each lead somewhere; what builds and checks them stays in the repository.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT Development
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.c" PATTERN "*.cpp"
  PATTERN "*.cmake" PATTERN "man" EXCLUDE PATTERN "doxygen" EXCLUDE PATTERN "reference" EXCLUDE)
install(FILES "${PROJECT_SOURCE_DIR}/gdb/README.md"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}/gdb" COMPONENT Development)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples/basics" "${PROJECT_SOURCE_DIR}/examples/cpp"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}/examples" COMPONENT Development
  FILES_MATCHING PATTERN "*.md" PATTERN "*.c" PATTERN "*.cpp" PATTERN "*.h")
