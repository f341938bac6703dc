// Trace calls that print nothing, and lines that go to a file.

#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "job.h"
#include "kelcore.h"

#ifdef HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

static const std::string &path() {
  static const std::string text = "/tmp/kelcore-bench-" + std::to_string(getpid());
  return text;
}

JOB(trace_filtered_out, kelcore) {
  for (auto _ : state)
    KEL_Trace("bench", KEL_LEVEL_DEBUG, "bench", 1, "bench", "%d\n", 1);
}

JOB(trace_printed, kelcore) {
  KEL_TraceInit(path().c_str());
  KEL_TraceSetCB(nullptr, 0);
  KEL_TraceSet("bench:4");
  int i = 0;
  for (auto _ : state)
    KEL_Trace("bench", KEL_LEVEL_DEBUG, "bench", 42, "frame", "frame %d of %s\n", ++i, "film");
  KEL_TraceDeinit();
  KEL_TraceSet("bench:0");
  unlink(path().c_str());
}

JOB(trace_printed, limit_fprintf) {
  FILE *file = fopen(path().c_str(), "w");
  int i = 0;
  for (auto _ : state) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    fprintf(file, "%011llu %s:[%s] %s:%d (%s) : frame %d of %s\n",
            static_cast<unsigned long long>(now.tv_sec * 1000 + now.tv_nsec / 1000000), "DEBUG",
            "bench", "bench", 42, "frame", ++i, "film");
  }
  fclose(file);
  unlink(path().c_str());
}

#ifdef HAVE_SPDLOG
JOB(trace_filtered_out, spdlog) {
  auto logger = spdlog::basic_logger_mt("off", path());
  logger->set_level(spdlog::level::err);
  for (auto _ : state)
    logger->debug("{}", 1);
  spdlog::drop("off");
  unlink(path().c_str());
}

JOB(trace_printed, spdlog) {
  auto logger = spdlog::basic_logger_mt("on", path());
  logger->set_level(spdlog::level::debug);
  int i = 0;
  for (auto _ : state)
    logger->debug("frame {} of {}", ++i, "film");
  spdlog::drop("on");
  unlink(path().c_str());
}
#endif
