cmake_minimum_required(VERSION 3.25)

# cmake -DMAN=<man> -DPAGE=<page> -DKELCTL=<program> -P check_man.cmake
# The page is formatted without a warning and tells of every option.
execute_process(
  COMMAND ${MAN} --warnings -E UTF-8 -l -Tutf8 -Z "${PAGE}"
  OUTPUT_QUIET ERROR_VARIABLE warnings RESULT_VARIABLE result)
if(NOT result EQUAL 0 OR NOT warnings STREQUAL "")
  message(FATAL_ERROR "${PAGE}: ${result} ${warnings}")
endif()

file(READ "${PAGE}" page)
foreach(command ipc shm trace crc hexdump)
  execute_process(COMMAND ${KELCTL} ${command} --help OUTPUT_VARIABLE help)
  if(NOT page MATCHES "\n\\.Ss kelctl ${command}\n")
    message(FATAL_ERROR "${PAGE}: nothing about kelctl ${command}")
  endif()
  string(REGEX MATCHALL "\n  +--[a-z]+" options "${help}")
  if(options STREQUAL "")
    message(FATAL_ERROR "kelctl ${command} --help: no options")
  endif()
  foreach(option IN LISTS options)
    string(REGEX REPLACE ".*--" "" option "${option}")
    if(NOT page MATCHES "\n\\.It Fl -${option}[ \n]")
      message(FATAL_ERROR "${PAGE}: nothing about --${option} of kelctl ${command}")
    endif()
  endforeach()
endforeach()
