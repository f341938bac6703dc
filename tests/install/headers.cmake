# cmake -DPREFIX= -DINCLUDEDIR= -DMANDIR= -DBINARY= -DCC= -DCXX= -P headers.cmake
# Compiles all installed headers with each of the two directories that programs may
# name, and with no other: no header may need the one that was not named.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

file(REMOVE_RECURSE "${BINARY}")
set(root "${PREFIX}/${INCLUDEDIR}")

# compile_all(DIRECTORY PREFIX), the headers written as <PREFIXname>.
function(compile_all directory prefix)
  string(MAKE_C_IDENTIFIER "all_${prefix}" name)
  foreach(language IN ITEMS c cpp)
    set(patterns "${root}/kelcore/*.h")
    set(compiler "${CC}" -std=c99)
    if(language STREQUAL "cpp")
      list(APPEND patterns "${root}/kelcore/*.hpp")
      set(compiler "${CXX}" -std=c++17)
    endif()
    file(GLOB_RECURSE headers RELATIVE "${root}/kelcore" ${patterns})
    list(LENGTH headers count)
    list(TRANSFORM headers REPLACE "(.+)" "#include <${prefix}\\1>\n")
    string(CONCAT text ${headers} "extern int kelcore_header_unused;\n")
    set(source "${BINARY}/${name}.${language}")
    file(WRITE "${source}" "${text}")
    run(${compiler} -Wall -Wextra -Wpedantic -Werror -fsyntax-only "-I${directory}" "${source}")
    message("${count} headers, ${language}, -I${directory}")
  endforeach()
endfunction()

compile_all("${root}" "kelcore/")
compile_all("${root}/kelcore" "")

# The manual pages name headers as a program can that names the usual directory alone.
file(GLOB pages "${PREFIX}/${MANDIR}/man[37]/*")
set(includes "")
foreach(page IN LISTS pages)
  file(STRINGS "${page}" lines REGEX "^(\\.In |#include <kelcore)")
  if(NOT lines)
    message(FATAL_ERROR "${page} names no header")
  endif()
  list(APPEND includes ${lines})
endforeach()
list(TRANSFORM includes REPLACE "^\\.In (.+)" "#include <\\1>")
list(JOIN includes "\n" text)
set(source "${BINARY}/pages.c")
file(WRITE "${source}" "${text}\n")
run("${CC}" -std=c99 -fsyntax-only "-I${root}" "${source}")
list(LENGTH includes count)
message("${count} headers in manual pages")
