cmake_minimum_required(VERSION 3.25)

# cmake -DFILE= -DARCHIVE= -DREADELF= -DPROGRAM=ON|OFF -DFORTIFIED=ON|OFF -DFEATURE=
#       -P check_hardening.cmake
# Reads from a library or program, and from the objects that it is made of, that
# its hardening arrived.
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
if(FEATURE)
  read_elf(notes -n "${ARCHIVE}")
  string(REGEX MATCHALL "File: [^\n]*" objects "${notes}")
  string(REGEX MATCHALL "feature:[^\n]*${FEATURE}" marked "${notes}")
  list(LENGTH objects all)
  list(LENGTH marked good)
  if(all EQUAL 0 OR NOT all EQUAL good)
    message(SEND_ERROR "${ARCHIVE}: ${good} of ${all} objects are marked ${FEATURE}")
  endif()
endif()
