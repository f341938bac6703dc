cmake_minimum_required(VERSION 3.25)

# cmake -DLIBRARY=libkelcore.so -DLIST=src/exports.txt -DNM=nm -P check_exports.cmake
# Compares what the library exports with the list, in both directions.
execute_process(COMMAND ${NM} -D --defined-only --format=posix ${LIBRARY}
                OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "([^\n ]+)[^\n]*\n" "\\1;" exported "${symbols}")
list(REMOVE_ITEM exported "")

file(STRINGS ${LIST} lines REGEX "^[^#]")
set(expected "")
set(pending "")
foreach(line IN LISTS lines)
  if(line MATCHES "^pending (.*)$")
    list(APPEND pending ${CMAKE_MATCH_1})
  else()
    list(APPEND expected ${line})
  endif()
endforeach()

set(missing ${expected})
list(REMOVE_ITEM missing ${exported})
set(unlisted ${exported})
list(REMOVE_ITEM unlisted ${expected})

list(LENGTH expected expected_count)
list(LENGTH pending pending_count)
message("${expected_count} functions expected, ${pending_count} pending")
if(missing OR unlisted)
  message(FATAL_ERROR "listed but not exported: ${missing}\n"
                      "exported but not listed (or still pending): ${unlisted}")
endif()
