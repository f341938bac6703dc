// Thread pools: very many short jobs, collected in any order, each done once.
//
// KELCORE_STRESS_JOBS=1000000 makes one pool run and stop until so many jobs are done,
// however long that takes.

#include <kelcore_threadpool.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <thread>
#include <vector>

#include "stress.h"

namespace {

struct Job {
  std::atomic<uint8_t> *runs;
  uint32_t number;
  uint32_t spins;
};

int32_t ResultOf(uint32_t number) {
  return static_cast<int32_t>(stress::Mix(number));
}

int32_t Work(void *argument) {
  auto *job = static_cast<Job *>(argument);
  for (uint32_t i = 0; i < job->spins; ++i)
    std::this_thread::yield();
  if (job->runs->load(std::memory_order_relaxed) < UINT8_MAX)
    job->runs->fetch_add(1, std::memory_order_relaxed);
  const uint32_t number = job->number;
  job->number = 0;  // for the collector to see
  return ResultOf(number);
}

// One controlling thread with its pool, and what the pool should do.
class Controller {
 public:
  explicit Controller(stress::Random &random)
      : random_(random),
        count_(random.Between(1, 8)),
        jobs_(count_),
        pool_(KEL_ThreadPool_Create("stress", 0, 0, static_cast<int32_t>(count_))) {
    for (uint32_t i = 0; i < count_; ++i)
      idle_.push_back(static_cast<int32_t>(i));
  }
  ~Controller() { KEL_ThreadPool_Delete(pool_); }
  Controller(const Controller &) = delete;
  Controller &operator=(const Controller &) = delete;

  void Run(uint32_t jobs) {
    runs_ = std::vector<std::atomic<uint8_t>>(jobs);
    stress::Expect(pool_ != nullptr, "no pool of %u", count_);
    if (pool_ == nullptr)
      return;
    while (started_ < jobs && stress::Going()) {
      if (busy_.empty() || random_.OneIn(2))
        Start();
      else
        Collect();
    }
    while (!busy_.empty())
      Collect();
    for (uint32_t i = 0; i < count_; ++i)
      stress::Expect(KEL_ThreadPool_Stop(pool_, static_cast<int32_t>(i), nullptr) == -1,
                     "idle worker %u is collected", i);
    for (uint32_t i = 0; i < jobs; ++i)
      stress::Expect(runs_[i] == (i < started_ ? 1 : 0), "job %u of %u runs %d times", i,
                     started_, runs_[i].load());
    stress::Count("jobs", started_);
    stress::Count("refused", refused_);
  }

 private:
  void Start() {
    // The one that has been idle longest is next.
    const int32_t next = idle_.empty() ? -1 : idle_.front();
    Job *job = next >= 0 ? &jobs_[static_cast<size_t>(next)] : nullptr;
    // The next that is done; what is refused is none.
    const uint32_t number = started_ + 1;
    if (job != nullptr)
      *job = {&runs_[started_], number, random_.OneIn(20) ? random_.Below(20) : 0};
    const int32_t worker = KEL_ThreadPool_Run(pool_, Work, job);
    stress::Expect(worker == next, "worker %d begins instead of %d", worker, next);
    if (next < 0) {
      ++refused_;
      return;
    }
    idle_.pop_front();
    busy_.push_back({worker, number});
    ++started_;
  }
  void Collect() {
    std::swap(busy_[random_.Below(static_cast<uint32_t>(busy_.size()))], busy_.back());
    const auto [worker, number] = busy_.back();
    busy_.pop_back();
    int32_t result = 0;
    const int32_t stopped = KEL_ThreadPool_Stop(pool_, worker, &result);
    stress::Expect(stopped == 0 && result == ResultOf(number) &&
                       jobs_[static_cast<size_t>(worker)].number == 0 && runs_[number - 1] == 1,
                   "job %u on worker %d gives %d, %d", number, worker, stopped, result);
    idle_.push_back(worker);
  }

  struct Busy {
    int32_t worker;
    uint32_t number;
  };
  stress::Random &random_;
  const uint32_t count_;
  std::vector<Job> jobs_;  // by worker
  KEL_THREADPOOL *pool_;
  std::deque<int32_t> idle_;
  std::vector<Busy> busy_;
  std::vector<std::atomic<uint8_t>> runs_;  // by job
  uint32_t started_ = 0, refused_ = 0;
};

// So many as the environment asks for; 0 for as many as the time allows.
uint32_t JobsWanted() {
  const char *text = getenv("KELCORE_STRESS_JOBS");
  return text != nullptr ? static_cast<uint32_t>(strtoul(text, nullptr, 10)) : 0;
}

// One pool for long.
void ManyJobs() {
  stress::Random random;
  if (const uint32_t wanted = JobsWanted()) {
    stress::TakeYourTime();
    Controller(random).Run(wanted);
    return;
  }
  constexpr uint32_t kEnough = 1'000'000;
  do
    Controller(random).Run(kEnough);
  while (stress::Going());
}

// Pools that come and go on several threads at once.
void ManyPools() {
  constexpr uint32_t kControllers = 3;
  std::vector<stress::Random> randoms(kControllers);
  std::vector<std::thread> threads;
  for (stress::Random &random : randoms)
    threads.emplace_back([&random] {
      do {
        Controller(random).Run(random.Below(200));
        stress::Count("pools", 1);
      } while (stress::Going());
    });
  for (std::thread &thread : threads)
    thread.join();
}

}  // namespace

int main() {
  return stress::Main("threadpool", "every job once, its result to its collector",
                      {{"many-jobs", ManyJobs}, {"many-pools", ManyPools}});
}
