// Runs the benchmarks in a process that has a second thread, as every process
// on the device has: the C library leaves out its atomics while there is only
// one.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <thread>

#ifdef HAVE_GSTREAMER
#include <gst/gst.h>
#endif

int main(int argc, char **argv) {
  std::thread([] { pause(); }).detach();
#ifdef HAVE_GSTREAMER
  gst_init(nullptr, nullptr);
#endif
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  fflush(nullptr);
  _exit(0);  // the other thread sleeps on
}
