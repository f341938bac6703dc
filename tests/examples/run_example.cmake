# Runs PROGRAM with ARGUMENT (if there is one) and compares.
execute_process(COMMAND "${PROGRAM}" ${ARGUMENT}
  OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE result)
# The trace configuration is confirmed with a time and a line number in front.
string(REGEX REPLACE "[0-9]+ kelcore_trace:[0-9]+ " "" output "${output}")
file(READ "${EXPECTED}" expected)
if(NOT result EQUAL 0 OR NOT output STREQUAL expected)
  message(FATAL_ERROR "result ${result}\n${errors}\nprinted:\n${output}\nexpected:\n${expected}")
endif()
