# Run by CPack on the staged files of each package: compressed manual pages, a
# directory of documents with the package's name, nothing of the builder's paths.
find_program(_gzip gzip REQUIRED)
function(compress)
  if(ARGN)
    # Without name and time the packages are the same again next time.
    execute_process(COMMAND "${_gzip}" -9nf ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
  endif()
endfunction()

foreach(_component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER "${_component}" _upper)
  set(_root "${CPACK_TEMPORARY_DIRECTORY}/${_component}${CPACK_PACKAGING_INSTALL_PREFIX}")
  file(GLOB _pages "${_root}/share/man/man?/*.[1-9]")
  compress(${_pages})
  file(GLOB_RECURSE _archives "${_root}/*.a")
  foreach(_archive IN LISTS _archives)
    execute_process(COMMAND "${CPACK_KELCORE_STRIP}" --strip-debug
      --enable-deterministic-archives "${_archive}" COMMAND_ERROR_IS_FATAL ANY)
  endforeach()

  # A package does not move: there the plain prefix keeps flags short, and lets
  # pkg-config leave out the system's own directories.
  file(GLOB_RECURSE _pcs "${_root}/*.pc")
  foreach(_pc IN LISTS _pcs)
    file(READ "${_pc}" _text)
    string(REGEX REPLACE "^prefix=[^\n]*" "prefix=${CPACK_PACKAGING_INSTALL_PREFIX}" _text "${_text}")
    file(WRITE "${_pc}" "${_text}")
  endforeach()

  set(_documents "${_root}/share/doc/${CPACK_DEBIAN_${_upper}_PACKAGE_NAME}")
  file(MAKE_DIRECTORY "${_documents}")
  configure_file("${CPACK_KELCORE_SOURCE}/CHANGELOG.md" "${_documents}/changelog" COPYONLY)
  compress("${_documents}/changelog")
  file(GLOB _licences "${CPACK_KELCORE_SOURCE}/LICENSE*" "${CPACK_KELCORE_SOURCE}/COPYING*")
  foreach(_licence IN LISTS _licences)
    configure_file("${_licence}" "${_documents}/copyright" COPYONLY)
  endforeach()
  file(CHMOD_RECURSE "${_documents}" FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
    DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
endforeach()
