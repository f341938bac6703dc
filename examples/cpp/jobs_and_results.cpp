// Records go to a worker through a queue, their answers come back through a channel,
// and every failure is looked at. Nothing here throws: main() shows how a program
// deals with results that may be failures.
#include <chrono>
#include <cstdio>
#include <kelcore.hpp>

using namespace std::chrono_literals;

namespace {

struct job {
  int input;
};

// A message is what the application derives from kel::message.
struct answer : kel::message {
  int input = 0;
  int square = 0;
};

constexpr int kJobs = 4;

struct workshop {
  kel::queue<job *> jobs;
  kel::channel<answer *> answers;
};

// Runs until it is handed a job with a negative input.
void work(workshop &shop, answer (&places)[kJobs]) {
  for (answer *place = places;;) {
    const auto taken = shop.jobs.pop_for(kel::infinite);
    if (taken.data->input < 0)
      return;
    place->input = taken.data->input;
    place->square = place->input * place->input;
    if (const kel::status sent = shop.answers.send(place++); !sent)
      std::printf("lost: %s\n", sent.error().message().c_str());
  }
}

kel::result<workshop> open_workshop() {
  auto jobs = kel::queue<job *>::create("jobs", kJobs + 1);
  if (!jobs)
    return jobs.outcome();
  auto answers = kel::channel<answer *>::create(kJobs);
  if (!answers)
    return answers.outcome();
  return workshop{std::move(*jobs), std::move(*answers)};
}

/* --- failures --- */
void show(const kel::result<answer *> &got) {
  if (got)
    std::printf("%d squared is %d\n", (*got)->input, (*got)->square);
  else if (got.error() == std::errc::timed_out)
    std::printf("no answer yet\n");
  else
    std::printf("no answer: %s\n", got.error().message().c_str());
}
/* --- */

}  // namespace

int main() {
  auto shop = open_workshop();
  if (!shop) {
    std::fprintf(stderr, "no workshop: %s\n", shop.error().message().c_str());
    return 1;
  }
  answer places[kJobs];  // the worker's; read here once they have been received
  auto worker = kel::thread::start({"worker"}, [&] { work(*shop, places); });
  if (!worker)
    return 1;

  show(shop->answers.receive(5ms));  // nothing has been asked yet

  job jobs[kJobs] = {{2}, {3}, {5}, {7}};
  for (job &each : jobs)
    if (!shop->jobs.push(&each))
      return 1;
  for (int i = 0; i < kJobs; ++i)
    show(shop->answers.receive(1s));

  job last = {-1};
  if (!shop->jobs.push(&last) || !worker->join())
    return 1;
  std::printf("the worker has gone home\n");
  return 0;
}
