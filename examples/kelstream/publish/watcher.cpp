// Shows what another kelstream publishes.

#include "watcher.h"

#include <kelcore_shm.h>
#include <mqueue.h>
#include <unistd.h>

#include <algorithm>

#include "event_queue.h"
#include "shared_totals.h"

namespace kelstream {

namespace {

constexpr uint32_t kPeriodMs = 200;

class Watcher {
 public:
  Watcher(SharedTotals &totals, Output &output)
      : totals_(totals),
        output_(output),
        queue_name_(QueueName(totals.name, totals.publisher)),
        queue_(queue_name_),
        live_(isatty(STDERR_FILENO) == 1) {}

  bool ok() const { return queue_.ok(); }

  // Returns when there is nothing more to come; false when standard output does
  // not take it.
  bool Run() {
    for (bool more = true; more && !failed_;) {
      // What was told before the end is still in the queue.
      more = totals_.state == ShareState::kLive && IsAlive(totals_.Publisher());
      while (!failed_ && TakeEvent(more ? kPeriodMs : 1)) {
      }
      if (live_ && more)
        ShowProgress();
    }
    ClearLine();
    if (!failed_)
      Print("total: " + Text() + "\n");
    // Opening it may have made it again, behind a publisher that just ended.
    mq_unlink(queue_name_.c_str());
    return !failed_;
  }

 private:
  bool TakeEvent(uint32_t timeout) {
    Event event{};
    std::string text;
    if (!queue_.Receive(event, text, timeout))
      return false;
    ++totals_.events_taken;
    ClearLine();
    Print((event == Event::kStreamFound ? "found:    " : "finished: ") + text + "\n");
    return true;
  }

  std::string Text() const {
    const Totals totals = totals_.Load();
    const auto count = [](uint64_t number, const char *what) {
      return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
    };
    return count(totals.files, "file") + ", " + count(totals.streams, "stream") + ", " +
           count(totals.frames, "frame") + ", " + count(totals.bytes, "byte");
  }

  void ShowProgress() {
    const Totals totals = totals_.Load();
    std::string line = "\r\033[K" + Text();
    if (totals.size > 0)
      line +=
          "; this file " +
          std::to_string(std::min<uint64_t>(totals.offset, totals.size) * 100 / totals.size) +
          " %";
    std::fputs(line.c_str(), stderr);
    shown_ = true;
  }
  void ClearLine() {
    if (shown_)
      std::fputs("\r\033[K", stderr);
    shown_ = false;
  }
  void Print(const std::string &text) { failed_ = !output_.Write(text) || failed_; }

  SharedTotals &totals_;
  Output &output_;
  std::string queue_name_;
  EventQueue queue_;
  bool live_;
  bool shown_ = false;
  bool failed_ = false;
};

// Events can be taken once: there is one watcher at a time.
bool Claim(SharedTotals &totals) {
  const ProcessId self = ThisProcess();
  int64_t before = totals.watcher;
  if (before != 0 && IsAlive(totals.Watcher()))
    return false;
  if (!totals.watcher.compare_exchange_strong(before, self.number))
    return false;
  totals.watcher_start = self.start;
  return true;
}

SharedTotals *FindPublisher(const std::string &name) {
  constexpr int kTries = 100;
  constexpr useconds_t kPauseUs = 10000;
  for (int i = 0; i < kTries; ++i) {
    SharedTotals *const totals = FindTotals(name);
    if (totals == nullptr || totals->state == ShareState::kLive)
      return totals;
    const bool alive = IsAlive(totals->Publisher());
    if (!alive)
      return totals;
    DetachTotals(totals);  // it is just beginning, or just ending
    usleep(kPauseUs);
  }
  return nullptr;
}

}  // namespace

bool Watch(const std::string &name, Output &output) {
  const std::string problem = NameProblem(name);
  if (!problem.empty()) {
    Complain(problem);
    return false;
  }
  const std::string nobody = "no kelstream publishes under " + name;
  SharedTotals *const totals = FindPublisher(name);
  if (totals == nullptr) {
    Complain(nobody);
    return false;
  }
  if (!IsAlive(totals->Publisher())) {
    // It may have come to its end only now; whoever has gone had finished before.
    const bool finished = totals->state == ShareState::kFinished;
    RemoveStale(totals);
    Complain(finished ? nobody : "the kelstream that published under " + name + " was killed");
    return false;
  }
  const ProcessId publisher = totals->Publisher();
  bool good = Claim(*totals);
  if (!good) {
    Complain("process " + std::to_string(totals->watcher) + " watches " + name + " already");
  } else {
    Watcher watcher(*totals, output);
    good = watcher.ok() && watcher.Run();
    if (watcher.ok() && !good)
      Complain("cannot write to standard output");
    else if (!good)
      Complain(totals->state == ShareState::kFinished ? nobody : "no message queue to watch");
  }
  const bool finished = totals->state == ShareState::kFinished;
  if (finished || IsAlive(publisher)) {
    DetachTotals(totals);
    return good;
  }
  RemoveStale(totals);
  Complain("the publisher, process " + std::to_string(publisher.number) + ", was killed");
  return false;
}

}  // namespace kelstream
