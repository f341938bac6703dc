// kelstream that publishes and kelstream that watches, either killed at any moment:
// the other one ends as it should, the next ones work, and nothing stays in the system.

#include <fcntl.h>
#include <kelcore_time.h>
#include <mqueue.h>
#include <semaphore.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"
#include "shared_totals.h"
#include "stress.h"

namespace {

const std::string kMedia = KELSTREAM_MEDIA;
const std::vector<std::string> kFiles = {kMedia + "/bars.h264", kMedia + "/show.ts",
                                         kMedia + "/tone.aac"};

std::string Name() {
  return "stress-" + std::to_string(getpid());
}

// A file in memory: nothing of it is left when this process ends, however it does.
class MemoryFile {
 public:
  MemoryFile() : fd_(memfd_create("output", MFD_CLOEXEC)) {}
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;
  int fd() const { return fd_; }
  std::string Read() const {
    std::string text;
    char part[4096];
    ssize_t count;
    while ((count = pread(fd_, part, sizeof part, static_cast<off_t>(text.size()))) > 0)
      text.append(part, static_cast<size_t>(count));
    return text;
  }

 private:
  int fd_;
};

class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), KELSTREAM_PROGRAM);
    std::vector<char *> words;
    for (std::string &argument : arguments)
      words.push_back(argument.data());
    words.push_back(nullptr);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ != 0) {
      stress::Expect(pid_ > 0, "no process");
      return;
    }
    // Not to be reached by the terminal's interrupts; but when this program dies it
    // goes, too, clearing up behind itself.
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(out_.fd(), STDOUT_FILENO);
    dup2(err_.fd(), STDERR_FILENO);
    if (getppid() == parent)
      execv(words[0], words.data());
    _exit(127);
  }
  ~Program() {
    if (!ended_) {
      Kill();
      Wait();
    }
  }
  Program(const Program &) = delete;
  Program &operator=(const Program &) = delete;

  pid_t pid() const { return pid_; }
  // Without a limit: the watchdog knows one.
  void Wait() {
    if (!ended_)
      stress::Expect(waitpid(pid_, &status_, 0) == pid_, "a process is not waited for");
    ended_ = true;
    stress::Going();
  }
  bool Ended() {
    ended_ = ended_ || waitpid(pid_, &status_, WNOHANG) == pid_;
    return ended_;
  }
  void Kill() {
    if (!ended_ && pid_ > 0)  // -1 would be everybody
      kill(pid_, SIGKILL);
  }
  int status() const { return WIFEXITED(status_) ? WEXITSTATUS(status_) : -1; }
  // It may have been done before the signal came.
  bool died() const { return WIFSIGNALED(status_) && WTERMSIG(status_) == SIGKILL; }
  std::string out() const { return out_.Read(); }
  std::string err() const { return err_.Read(); }

 private:
  MemoryFile out_, err_;
  pid_t pid_;
  int status_ = 0;
  bool ended_ = false;
};

bool Contains(const std::string &text, const char *part) {
  return text.find(part) != std::string::npos;
}

void Pause(stress::Random &random, uint32_t most_us) {
  constexpr uint32_t kSecond = 1'000'000;
  const uint32_t us = random.Below(most_us);
  const timespec time = {us / kSecond, static_cast<long>(us % kSecond) * 1000};
  nanosleep(&time, nullptr);
}

// Every line that a watcher prints is a whole one.
void CheckLines(const std::string &out) {
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);)
    stress::Expect(line.rfind("found:    " + kMedia, 0) == 0 ||
                       line.rfind("finished: " + kMedia, 0) == 0 ||
                       line.rfind("total: ", 0) == 0,
                   "a watcher prints: %s", line.c_str());
}

void CheckPublisher(const Program &publisher, const std::string &expected) {
  if (publisher.died())
    return;
  stress::Expect(publisher.status() == 0 && publisher.out() == expected,
                 "a publisher ends with %d: %s", publisher.status(), publisher.err().c_str());
}

void CheckWatcher(const Program &watcher, const Program &publisher) {
  CheckLines(watcher.out());
  if (watcher.died())
    return;
  const std::string err = watcher.err();
  const bool saw_the_end =
      watcher.status() == 0 && err.empty() && Contains(watcher.out(), "total: ");
  const bool came_at_a_bad_time =
      watcher.status() == 1 && Contains(err, "kelstream: no kelstream publishes under ");
  const bool saw_a_death =
      watcher.status() == 1 && publisher.died() && Contains(err, "was killed");
  stress::Expect(saw_the_end || came_at_a_bad_time || saw_a_death, "a watcher ends with %d: %s",
                 watcher.status(), err.c_str());
  stress::Count(saw_the_end ? "saw-the-end" : saw_a_death ? "saw-a-death" : "saw-nothing", 1);
}

// The queue of one publisher, and whether it is still there.
bool RemoveLeftQueue(pid_t publisher) {
  const std::string name = kelstream::QueueName(Name(), publisher);
  const bool queue = mq_unlink(name.c_str()) == 0;
  const bool semaphore = sem_unlink(name.c_str()) == 0;
  return queue || semaphore;
}

bool RemoveLeftTotals() {
  kelstream::SharedTotals *const totals = kelstream::FindTotals(Name());
  if (totals != nullptr)
    kelstream::RemoveStale(totals);
  return totals != nullptr;
}

// Waits until a publisher can be watched, or has ended.
void AwaitTotals(Program &publisher) {
  constexpr timespec kShort = {0, 200'000};
  while (!publisher.Ended()) {
    kelstream::SharedTotals *const totals = kelstream::FindTotals(Name());
    if (totals != nullptr) {
      kelstream::DetachTotals(totals);
      return;
    }
    nanosleep(&kShort, nullptr);
  }
}

// What there is to publish, what is printed of it, and how long that takes alone.
struct Work {
  std::vector<std::string> files;
  std::string printed;
  uint32_t micros;
};

Work MakeWork(uint32_t times) {
  Work work;
  for (uint32_t i = 0; i < times; ++i)
    work.files.insert(work.files.end(), kFiles.begin(), kFiles.end());
  std::vector<std::string> arguments = {"--json"};
  arguments.insert(arguments.end(), work.files.begin(), work.files.end());
  const uint64_t begin = KEL_GetSystemTickUS();
  Program alone(arguments);
  alone.Wait();
  work.micros = static_cast<uint32_t>(KEL_GetSystemTickUS() - begin);
  stress::Expect(alone.status() == 0, "kelstream ends with %d: %s", alone.status(),
                 alone.err().c_str());
  work.printed = alone.out();
  return work;
}

std::atomic<pid_t> last_publisher{0};

// A publisher that hangs, and what one that was killed has left, should this program
// not come to its end.
void ClearUp() {
  if (const pid_t publisher = last_publisher; publisher > 0) {
    kill(publisher, SIGKILL);
    RemoveLeftQueue(publisher);
  }
  RemoveLeftTotals();
}

void Round(stress::Random &random, const Work &work) {
  std::vector<std::string> arguments = {"--json", "--publish", Name()};
  arguments.insert(arguments.end(), work.files.begin(), work.files.end());
  Program publisher(arguments);
  last_publisher = publisher.pid();
  if (random.OneIn(4))
    Pause(random, work.micros);
  else
    AwaitTotals(publisher);
  Program watcher({"--watch", Name()});
  Pause(random, work.micros);
  const bool publisher_first = random.OneIn(2);
  if (random.OneIn(2))
    (publisher_first ? publisher : watcher).Kill();
  if (random.OneIn(4)) {
    Pause(random, 2000);
    (publisher_first ? watcher : publisher).Kill();
  }
  publisher.Wait();
  watcher.Wait();
  CheckPublisher(publisher, work.printed);
  CheckWatcher(watcher, publisher);

  // The next one is not disturbed, and clears up.
  Program next({"--publish", Name(), kFiles[2]});
  next.Wait();
  stress::Expect(next.status() == 0 && next.err().empty(), "the next one ends with %d: %s",
                 next.status(), next.err().c_str());
  const char *const how = publisher.died() ? watcher.died() ? "both" : "the publisher"
                          : watcher.died() ? "the watcher"
                                           : "nobody";
  for (const pid_t each : {publisher.pid(), next.pid()})
    stress::Expect(!RemoveLeftQueue(each), "a queue is left behind, %s was killed", how);
  last_publisher = 0;
  stress::Expect(!RemoveLeftTotals(), "a segment is left behind, %s was killed", how);
  stress::Count("killed-publishers", publisher.died() ? 1 : 0);
  stress::Count("killed-watchers", watcher.died() ? 1 : 0);
}

void Rounds() {
  stress::Random random;
  const Work works[] = {MakeWork(1), MakeWork(4), MakeWork(16)};
  do {
    Round(random, works[random.Below(3)]);
    stress::Count("rounds", 1);
  } while (stress::Going());
}

}  // namespace

int main() {
  stress::SetCleanUp(ClearUp);
  return stress::Main("kelstream", "totals agree, nothing stays in the system",
                      {{"publish-and-watch", Rounds}});
}
