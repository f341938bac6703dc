# cmake -DBUILD= -DPREFIX= -DSOURCE= -DFILES= -DPAGES= [-DPROGRAMS=] -DINCLUDEDIR=
#       -DLIBDIR= -DDATADIR= -DMANDIR= -DCOMPLETIONS= -DVERSION= -P install.cmake
# Installs into an empty prefix and looks at what lies there.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

separate_arguments(FILES)
separate_arguments(PROGRAMS)
separate_arguments(PAGES)

file(REMOVE_RECURSE "${PREFIX}")
run(${_cmake} --install "${BUILD}" --prefix "${PREFIX}")
foreach(file IN LISTS FILES)
  if(NOT EXISTS "${PREFIX}/${file}")
    message(FATAL_ERROR "${file} is not installed:\n${output}")
  endif()
endforeach()

# expect_exactly(WHAT DIRECTORY FILE...): these, and nothing else.
function(expect_exactly what directory)
  file(GLOB_RECURSE installed RELATIVE "${PREFIX}/${directory}" "${PREFIX}/${directory}/*")
  list(SORT ARGN)
  list(SORT installed)
  if(NOT "${ARGN}" STREQUAL "${installed}")
    message(FATAL_ERROR "${what}\n${ARGN}\nbut installed are\n${installed}")
  endif()
  list(LENGTH installed count)
  message("${count} ${what}")
endfunction()
# expect_same(INSTALLED SOURCE)
function(expect_same installed source)
  run("${CMAKE_COMMAND}" -E compare_files "${PREFIX}/${installed}" "${SOURCE}/${source}")
endfunction()

# Every public header, and nothing that is not one; the same of manual pages, of which
# those of programs are there with the program.
file(GLOB_RECURSE headers RELATIVE "${SOURCE}/include" "${SOURCE}/include/*")
list(TRANSFORM headers PREPEND "kelcore/")
expect_exactly(headers "${INCLUDEDIR}" ${headers})
expect_exactly(pages "${MANDIR}" ${PAGES})
foreach(page IN LISTS PAGES)
  get_filename_component(name "${page}" NAME)
  expect_same("${MANDIR}/${page}" "docs/man/${name}")
endforeach()
if("${COMPLETIONS}/kelctl" IN_LIST FILES)
  expect_same("${COMPLETIONS}/kelctl" tools/kelctl/kelctl.bash)
endif()

# The debugger's script: beside the library; for the system's libraries only where the
# debugger trusts it.
set(script "libkelcore.so.${VERSION}-gdb.py")
file(GLOB_RECURSE scripts RELATIVE "${PREFIX}" "${PREFIX}/*-gdb.py")
if(NOT scripts STREQUAL "${LIBDIR}/${script}")
  message(FATAL_ERROR "scripts for gdb: '${scripts}'")
endif()
expect_same("${LIBDIR}/${script}" gdb/kelcore_gdb.py)
set(staged "${PREFIX}-staged")
file(REMOVE_RECURSE "${staged}")
run("${CMAKE_COMMAND}" -E env "DESTDIR=${staged}" "${CMAKE_COMMAND}" --install "${BUILD}"
  --prefix /usr --component Development)
file(GLOB_RECURSE scripts RELATIVE "${staged}" "${staged}/*-gdb.py")
if(NOT scripts STREQUAL "usr/${DATADIR}/gdb/auto-load/usr/${LIBDIR}/${script}")
  message(FATAL_ERROR "scripts for gdb below /usr: '${scripts}'")
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
