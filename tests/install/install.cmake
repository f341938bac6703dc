# cmake -DBUILD= -DPREFIX= -DSOURCE= -DFILES= [-DPROGRAMS=] -P install.cmake
# Installs into an empty prefix and looks at what lies there.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

separate_arguments(FILES)
separate_arguments(PROGRAMS)

file(REMOVE_RECURSE "${PREFIX}")
run(${_cmake} --install "${BUILD}" --prefix "${PREFIX}")
foreach(file IN LISTS FILES)
  if(NOT EXISTS "${PREFIX}/${file}")
    message(FATAL_ERROR "${file} is not installed:\n${output}")
  endif()
endforeach()

# Every public header, and nothing that is not one.
file(GLOB_RECURSE expected RELATIVE "${SOURCE}/include" "${SOURCE}/include/*")
file(GLOB_RECURSE installed RELATIVE "${PREFIX}/${INCLUDEDIR}" "${PREFIX}/${INCLUDEDIR}/*")
list(TRANSFORM expected PREPEND "kelcore/")
if(NOT "${expected}" STREQUAL "${installed}")
  message(FATAL_ERROR "headers\n${expected}\nbut installed are\n${installed}")
endif()

# Texts are read by others' tools on other machines.
file(GLOB_RECURSE texts "${PREFIX}/*.cmake" "${PREFIX}/*.pc" "${PREFIX}/*.py" "${PREFIX}/*.h")
foreach(text IN LISTS texts)
  expect_no_path("${text}" "${SOURCE}" "${BUILD}" "${PREFIX}")
endforeach()

# The programs find the library beside themselves.
foreach(program IN LISTS PROGRAMS)
  run(${EMULATOR} "${PREFIX}/${program}" --version)
  message("${program}: ${output}")
  if(NOT output MATCHES "${VERSION}")
    message(FATAL_ERROR "${program} is not of version ${VERSION}: ${output}")
  endif()
endforeach()
