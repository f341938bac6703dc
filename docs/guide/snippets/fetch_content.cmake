cmake_minimum_required(VERSION 3.25)
project(hello C CXX)

include(FetchContent)
FetchContent_Declare(kelcore GIT_REPOSITORY "${KELCORE_REPOSITORY}" GIT_TAG main)
FetchContent_MakeAvailable(kelcore)
add_executable(hello hello.c)
target_link_libraries(hello PRIVATE kelcore::kelcore) # or kelcore::static
