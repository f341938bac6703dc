cmake_minimum_required(VERSION 3.25)

# cmake -DMAN=<man> -DPAGES=<directory> -P check_man.cmake
# Every page is formatted without a warning, and names no page that is not there.
file(GLOB pages "${PAGES}/*.[1-9]")
set(refused "")
foreach(page IN LISTS pages)
  execute_process(
    COMMAND ${MAN} --warnings -E UTF-8 -l -Tutf8 -Z "${page}"
    OUTPUT_QUIET ERROR_VARIABLE warnings RESULT_VARIABLE result)
  if(NOT result EQUAL 0 OR NOT warnings STREQUAL "")
    string(APPEND refused "${page}: ${result} ${warnings}\n")
  endif()
  file(STRINGS "${page}" references REGEX "^\\.(It )?Xr kel")
  foreach(reference IN LISTS references)
    string(REGEX REPLACE "^\\.(It )?Xr ([a-z_]+) ([0-9]).*" "\\2.\\3" name "${reference}")
    if(NOT EXISTS "${PAGES}/${name}")
      string(APPEND refused "${page}: there is no ${name}\n")
    endif()
  endforeach()
endforeach()
if(pages STREQUAL "" OR NOT refused STREQUAL "")
  message(FATAL_ERROR "${PAGES}:\n${refused}")
endif()
