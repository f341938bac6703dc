// One job: what it measures and who does it.
#pragma once

#include <benchmark/benchmark.h>

// JOB(lock_unlock, kelcore) { ... } is the benchmark "lock_unlock/kelcore".
#define JOB(job, who)                                         \
  static void job##_##who(benchmark::State &state);           \
  BENCHMARK(job##_##who)->Name(#job "/" #who)->UseRealTime(); \
  static void job##_##who(benchmark::State &state)
