// Runs a statement in a new process that executes no other test: the state at
// start cannot be had back once it was changed.
//
//     EXPECT_IN_NEW_PROCESS({ EXPECT_EQ(KEL_...(), 0); });
#pragma once

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#ifdef KELCORE_COVERAGE
extern "C" void __gcov_dump(void);
#endif

[[noreturn]] inline void LeaveNewProcess() {
  fflush(stdout);
#ifdef KELCORE_COVERAGE
  __gcov_dump();
#endif
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

#define EXPECT_IN_NEW_PROCESS(statement)            \
  do {                                              \
    GTEST_FLAG_SET(death_test_style, "threadsafe"); \
    EXPECT_EXIT(                                    \
        {                                           \
          statement;                                \
          LeaveNewProcess();                        \
        },                                          \
        testing::ExitedWithCode(0), "");            \
  } while (0)
