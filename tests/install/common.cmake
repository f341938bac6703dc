cmake_minimum_required(VERSION 3.25)

# What the scripts of this directory share.

separate_arguments(EMULATOR UNIX_COMMAND "${EMULATOR}")

function(run)
  execute_process(COMMAND ${ARGN}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nended with ${result}:\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

# Every program here greets.
function(run_program program)
  run(${EMULATOR} "${program}")
  if(NOT output STREQUAL "hello 1\n")
    message(FATAL_ERROR "${program} printed\n${output}")
  endif()
  message("${program} runs")
endfunction()

# A path of the source or build tree in an installed file works on this machine only.
function(expect_no_path file)
  file(READ "${file}" text)
  foreach(path IN LISTS ARGN)
    string(FIND "${text}" "${path}" position)
    if(NOT position EQUAL -1)
      message(FATAL_ERROR "${file} names ${path}")
    endif()
  endforeach()
endfunction()

set(_cmake "${CMAKE_COMMAND}" -E env --unset=DESTDIR --unset=CMAKE_PREFIX_PATH "${CMAKE_COMMAND}")
set(_choices "-GUnix Makefiles")
if(GENERATOR)
  set(_choices "-G${GENERATOR}")
endif()
if(TOOLCHAIN)
  list(APPEND _choices "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}")
else()
  list(APPEND _choices "-DCMAKE_C_COMPILER=${CC}" "-DCMAKE_CXX_COMPILER=${CXX}")
endif()

# configure_and_build(SOURCE BINARY [OPTION...]), from nothing.
function(configure_and_build source binary)
  file(REMOVE_RECURSE "${binary}")
  run(${_cmake} -S "${source}" -B "${binary}" ${_choices} ${ARGN})
  run(${_cmake} --build "${binary}")
endfunction()
