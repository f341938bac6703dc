# cmake -DGDB= -DCC= -DCXX= -DSOURCE= -DBINARY= -DLIBRARIES= -DHEADERS= -DVERSION=
#       -DEXPECTED= -P check_printers.cmake
# Stops a program in gdb and compares what the printers show, which gdb loads by
# itself from beside the library, once it trusts that place. Addresses differ from run to run and are not compared.
if(NOT GDB)
  message("skipped: no gdb")
  return()
endif()
execute_process(COMMAND "${GDB}" -nx -batch -ex "python print('it' + 's')"
  OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT output MATCHES "its")
  message("skipped: gdb has no Python")
  return()
endif()

file(REMOVE_RECURSE "${BINARY}")
file(MAKE_DIRECTORY "${BINARY}")
# C++ names types in another way than C.
foreach(language IN ITEMS c c++)
  set(compiler "${CC}")
  set(dialect -std=c99)
  if(language STREQUAL "c++")
    set(compiler "${CXX}")
    set(dialect -std=c++17)
  endif()
  set(program "${BINARY}/containers_${language}")
  execute_process(COMMAND "${compiler}" ${dialect} -g -O0 "-I${HEADERS}" -x ${language}
    "${SOURCE}/containers.c" "-L${LIBRARIES}" -lkelcore "-Wl,-rpath,${LIBRARIES}" -o "${program}"
    COMMAND_ERROR_IS_FATAL ANY)

  file(STRINGS "${SOURCE}/${EXPECTED}" names REGEX "^[*a-z_]+ is ")
  list(TRANSFORM names REPLACE " is .*" "")
  set(commands "")
  foreach(name IN LISTS names)
    list(APPEND commands -ex "printf \"${name} is \"" -ex "output ${name}" -ex "echo \\n")
  endforeach()
  execute_process(COMMAND "${CMAKE_COMMAND}" -E env --unset=DEBUGINFOD_URLS
    "${GDB}" -nx -batch -iex "add-auto-load-safe-path ${LIBRARIES}" -ex "set width 0"
    -ex "break look_at_them" -ex run ${commands} "${program}"
    OUTPUT_VARIABLE output ERROR_VARIABLE errors)
  file(WRITE "${program}.txt" "${output}${errors}")
  if(errors MATCHES "ptrace: Operation not permitted|Could not trace the inferior")
    message("skipped: no process may be traced here")
    return()
  endif()

  file(READ "${SOURCE}/${EXPECTED}" expected)
  string(REGEX REPLACE "0x[0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f]+" "ADDRESS"
    output "${output}")
  string(FIND "${output}" "list is" begin)
  string(SUBSTRING "${output}" ${begin} -1 shown)
  if(NOT "${shown}" STREQUAL "${expected}")
    message(SEND_ERROR "${language}: shown\n${shown}\nexpected\n${expected}\ngdb:\n${output}${errors}")
  endif()
endforeach()
