// Being told to stop.

#include "stop.h"

#include <unistd.h>

#include <csignal>

namespace kelstream {

namespace {

volatile std::sig_atomic_t stop_signal = 0;

extern "C" void OnStopSignal(int signal) {
  stop_signal = signal;
}

}  // namespace

void CatchStops() {
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    struct sigaction before {};
    // Who started us may want them ignored (nohup does).
    if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
      sigaction(signal, &action, nullptr);
  }
}

bool StopRequested() {
  return stop_signal != 0;
}

void Stop(Publisher &publisher) {
  publisher.Close();
  const int signal = stop_signal;
  std::signal(signal, SIG_DFL);
  std::raise(signal);
  constexpr int kBySignal = 128;
  _exit(kBySignal + signal);
}

}  // namespace kelstream
