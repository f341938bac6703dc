cmake_minimum_required(VERSION 3.16)
project(hello C)

find_package(kelcore 1.0 REQUIRED)
add_executable(hello hello.c)
target_link_libraries(hello PRIVATE kelcore::kelcore) # or kelcore::static
