cmake_minimum_required(VERSION 3.25)

# cmake -DPROGRAM=<kelstream> -DPAGE=<page> -P check_options.cmake
# The page and the program's own help tell of the same options, with the same values.
execute_process(COMMAND "${PROGRAM}" --help OUTPUT_VARIABLE help RESULT_VARIABLE result)
string(REGEX MATCHALL "\n  +--[a-z-]+( [A-Z]+)?" told "${help}")
list(TRANSFORM told REPLACE "\n +" "")
list(TRANSFORM told TOLOWER)
file(STRINGS "${PAGE}" items REGEX "^\\.It Fl -")
list(TRANSFORM items REPLACE "^\\.It Fl -" "--")
list(TRANSFORM items REPLACE " Ar " " ")
list(SORT told)
list(SORT items)
if(NOT result EQUAL 0 OR told STREQUAL "" OR NOT told STREQUAL items)
  message(FATAL_ERROR "${PAGE}: ${items}\n${PROGRAM}: ${told}")
endif()

# Both tell the same exit statuses.
string(REGEX REPLACE ".*Exit status:" "" statuses "${help}")
string(REGEX MATCHALL "[0-9]+ (when|on)" statuses "${statuses}")
list(TRANSFORM statuses REPLACE " .*" "")
file(STRINGS "${PAGE}" items REGEX "^\\.It [0-9]+$")
list(TRANSFORM items REPLACE "^\\.It " "")
if(statuses STREQUAL "" OR NOT statuses STREQUAL items)
  message(FATAL_ERROR "${PAGE}: exit statuses ${items}, not ${statuses}")
endif()
