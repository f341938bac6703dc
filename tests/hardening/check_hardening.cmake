cmake_minimum_required(VERSION 3.25)

# cmake -DFILE= -DARCHIVE= -DOBJECTS= -DCOMMANDS= -DREADELF= -DPROGRAM=ON|OFF
#       -DFORTIFIED=ON|OFF -DFLAG= -DMARKS= -P check_hardening.cmake
# Reads from a library or program, from the objects that it is made of and from the
# commands that compiled them that its hardening arrived.
function(read_elf result)
  execute_process(COMMAND "${READELF}" -W ${ARGN}
    OUTPUT_VARIABLE text ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

function(expect_match text pattern meaning)
  if(NOT text MATCHES "${pattern}")
    message(SEND_ERROR "${FILE}: ${meaning}")
  endif()
endfunction()

function(expect_no_match text pattern meaning)
  if(text MATCHES "${pattern}")
    message(SEND_ERROR "${FILE}: ${meaning}")
  endif()
endfunction()

read_elf(header -h "${FILE}")
read_elf(segments -l "${FILE}")
read_elf(dynamic -d "${FILE}")
read_elf(symbols --dyn-syms "${FILE}")

expect_match("${header}" "Type: +DYN" "is tied to one address")
if(PROGRAM)
  expect_match("${dynamic}" "FLAGS_1[^\n]* PIE" "is not a position-independent program")
endif()
expect_no_match("${dynamic}" "TEXTREL" "its code is written to when it is loaded")
expect_match("${segments}" "GNU_RELRO" "leaves its relocated tables writable")
expect_match("${dynamic}" "BIND_NOW|FLAGS_1[^\n]* NOW" "binds late, its tables stay writable")
expect_match("${segments}" "GNU_STACK +[^\n]* RW +0x" "does not rule out an executable stack")
expect_no_match("${segments}" "\n +[A-Z_]+ +0x[^\n]* RWE " "has memory that is writable and executable")
expect_match("${symbols}" "UND __stack_chk_fail" "is built without the stack protector")
if(FORTIFIED)
  expect_match("${symbols}" "UND __[a-z]+_chk@" "uses none of the checked functions")
endif()

# The linker drops the mark when the C library's start-up objects lack it, so the
# own objects tell.
read_elf(notes -n "${ARCHIVE}" ${OBJECTS})
string(REGEX MATCHALL "File: [^\n]*" objects "${notes}")
string(REGEX MATCHALL "feature:[^\n]*${MARKS}" marked "${notes}")
list(LENGTH objects all)
list(LENGTH marked good)
if(all EQUAL 0 OR NOT all EQUAL good)
  message(SEND_ERROR "${FILE}: ${good} of ${all} objects are marked ${MARKS}")
endif()

# One protected object is enough for the symbols above, and an object with nothing to
# protect has none: that each was compiled with the flags, and none took them back,
# only its command tells.
file(READ "${COMMANDS}" commands)
foreach(object IN LISTS OBJECTS)
  string(REGEX MATCH "CMakeFiles/[^/]+\\.dir/.+" name "${object}")
  string(FIND "${commands}" "${name} -c " end)
  if(end EQUAL -1)
    message(SEND_ERROR "${object}: its command is not in ${COMMANDS}")
    continue()
  endif()
  string(SUBSTRING "${commands}" 0 ${end} command)
  string(FIND "${command}" "\n" begin REVERSE)
  string(SUBSTRING "${command}" ${begin} -1 command)
  set(FILE "${object}")
  foreach(flag IN ITEMS -fstack-protector-strong "-f(PIC|PIE)" "${FLAG}")
    expect_match("${command}" " ${flag} " "is compiled without ${flag}")
  endforeach()
  expect_no_match("${command}" " -(fno-stack-protector|fno-pi[ce]|[a-z-]+-protection=none) "
    "takes its hardening back")
  if(FORTIFIED)
    expect_match("${command}" " -D_FORTIFY_SOURCE=2 " "is compiled without the checked functions")
    expect_no_match("${command}" "-D_FORTIFY_SOURCE=2 .*(-U ?_FORTIFY_SOURCE|-D ?_FORTIFY_SOURCE=[01])"
      "takes the checked functions back")
  endif()
endforeach()
