# cmake -DPREFIX= -DINCLUDEDIR= -DBINARY= -DCC= -DCXX= -P headers.cmake
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
