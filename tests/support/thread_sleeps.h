// Whether another thread of this process waits, and for good as far as can be seen:
// where a test needs that it does, before it goes on.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>

inline pid_t ThreadId() {
  return static_cast<pid_t>(syscall(SYS_gettid));
}

// The thread writes its number where this waits for it.
inline bool AwaitSleep(const std::atomic<pid_t> &thread) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  for (; std::chrono::steady_clock::now() < limit; std::this_thread::yield()) {
    if (thread == 0)
      continue;
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(stat, text);
    const size_t name_end = text.rfind(") ");
    if (name_end != std::string::npos && text[name_end + 2] == 'S')
      return true;
  }
  return false;
}
