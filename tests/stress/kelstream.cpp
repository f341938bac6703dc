// kelstream that publishes and kelstream that watches, either killed at any moment:
// the other one ends as it should, with the totals that the files have and with every
// event that did not have to give way; the next ones work, and nothing stays in the
// system.

#include <errno.h>
#include <fcntl.h>
#include <kelcore_hash.h>
#include <kelcore_time.h>
#include <mqueue.h>
#include <semaphore.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/shm.h>
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

// A name of this process whose first key is neither 0 nor taken.
std::string FreeName() {
  for (int i = 0;; ++i) {
    std::string name = "stress-" + std::to_string(getpid()) + "-" + std::to_string(i);
    const std::string text = "kelstream/" + name + "/0";
    const auto key = static_cast<key_t>(
        KEL_Hash_crc16(text.data(), static_cast<uint32_t>(text.size())) & 0xFFFF);
    if (key != IPC_PRIVATE && shmget(key, 0, 0) == -1 && errno == ENOENT)
      return name;
  }
}

const std::string &Name() {
  static const std::string name = FreeName();
  return name;
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
    words.reserve(arguments.size() + 1);
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

bool BeginsWith(const std::string &text, const std::string &part) {
  return text.compare(0, part.size(), part) == 0;
}

void Pause(stress::Random &random, uint32_t most_us) {
  constexpr uint32_t kSecond = 1'000'000;
  const uint32_t us = random.Below(most_us);
  const timespec time = {us / kSecond, static_cast<long>(us % kSecond) * 1000};
  nanosleep(&time, nullptr);
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

// Waits until a publisher can be watched, or has ended. Its segment stays readable for
// who is attached, also when it has left the system.
kelstream::SharedTotals *AwaitTotals(Program &publisher) {
  constexpr timespec kShort = {0, 200'000};
  while (!publisher.Ended()) {
    if (kelstream::SharedTotals *const totals = kelstream::FindTotals(Name()))
      return totals;
    nanosleep(&kShort, nullptr);
  }
  return nullptr;
}

// What there is to publish, what comes of it, and how long that takes alone.
struct Work {
  std::vector<std::string> files;
  std::string printed;
  std::vector<std::string> events;  // the beginnings of the lines, in their order
  kelstream::Totals totals;
  uint32_t micros = 0;
};

// What a document tells of files is what a watcher must be told.
void ReadDocument(Work &work) {
  const std::string &text = work.printed;
  std::string file;
  const auto end_file = [&] {
    if (!file.empty())
      work.events.push_back("finished: " + file + ": good");
  };
  // Every value that matters is a number or a path without escapes.
  for (size_t at = 0; (at = text.find('"', at)) != std::string::npos;) {
    const size_t name_end = text.find('"', at + 1);
    if (name_end == std::string::npos)
      break;
    const std::string name = text.substr(at + 1, name_end - at - 1);
    at = name_end + 1;
    if (at == text.size() || text[at] != ':')
      continue;  // this was a value
    const char *const value = text.c_str() + at + 1;
    if (name == "file") {
      end_file();
      file.assign(value + 1, strchr(value + 1, '"'));
      ++work.totals.files;
    } else if (name == "index") {
      work.events.push_back("found:    " + file + ": stream " +
                            std::to_string(strtoul(value, nullptr, 10)));
      ++work.totals.streams;
    } else if (name == "frames") {
      work.totals.frames += strtoull(value, nullptr, 10);
    } else if (name == "bytes") {
      work.totals.bytes += strtoull(value, nullptr, 10);
    }
  }
  end_file();
}

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
  ReadDocument(work);
  stress::Expect(work.totals.files == work.files.size() && work.totals.streams > times &&
                     work.totals.frames > 0 && work.totals.bytes > 0,
                 "a document is not understood");
  return work;
}

std::string TotalLine(const kelstream::Totals &totals) {
  return "total: " + std::to_string(totals.files) + " files, " +
         std::to_string(totals.streams) + " streams, " + std::to_string(totals.frames) +
         " frames, " + std::to_string(totals.bytes) + " bytes";
}

// What a watcher has printed.
struct Seen {
  uint32_t events = 0;
  bool last_event = false;  // comes last
  std::string total;
};

bool IsEvent(const std::string &line, const std::string &event) {
  return line == event || BeginsWith(line, event + ",") || BeginsWith(line, event + ":");
}

// Every line is a whole one, events come in their order and none twice, and the total
// comes at the end.
Seen ReadLines(const std::string &out, const Work &work) {
  Seen seen;
  size_t next = 0;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);) {
    stress::Expect(seen.total.empty(), "a watcher prints behind the total: %s", line.c_str());
    if (BeginsWith(line, "total: ")) {
      seen.total = line;
      continue;
    }
    // Those in front of it may have given way.
    while (next < work.events.size() && !IsEvent(line, work.events[next]))
      ++next;
    stress::Expect(next < work.events.size(), "a watcher prints out of turn: %s", line.c_str());
    if (next < work.events.size())
      ++next;
    seen.last_event = IsEvent(line, work.events.back());
    ++seen.events;
  }
  return seen;
}

void CheckPublisher(const Program &publisher, const Work &work) {
  if (publisher.died())
    return;
  stress::Expect(publisher.status() == 0 && publisher.out() == work.printed,
                 "a publisher ends with %d: %s", publisher.status(), publisher.err().c_str());
}

bool CheckWatcher(const Program &watcher, const Program &publisher, const Seen &seen,
                  const Work &work) {
  // With the total of a publisher that was killed there is no telling how far it got.
  const bool saw_the_end = watcher.status() == 0 && watcher.err().empty();
  if (saw_the_end || (!seen.total.empty() && !publisher.died()))
    stress::Expect(seen.total == TotalLine(work.totals), "'%s', and not '%s'",
                   seen.total.c_str(), TotalLine(work.totals).c_str());
  // The newest give way to nobody. Who comes when the queue is just gone sees none.
  if (saw_the_end)
    stress::Expect(seen.events == 0 || seen.last_event, "the last event is lost");
  if (watcher.died())
    return false;
  const std::string err = watcher.err();
  const bool came_at_a_bad_time =
      watcher.status() == 1 && Contains(err, "kelstream: no kelstream publishes under ");
  const bool saw_a_death =
      watcher.status() == 1 && publisher.died() && Contains(err, "was killed");
  stress::Expect(saw_the_end || came_at_a_bad_time || saw_a_death, "a watcher ends with %d: %s",
                 watcher.status(), err.c_str());
  stress::Count(saw_the_end ? "saw-the-end" : saw_a_death ? "saw-a-death" : "saw-nothing", 1);
  return saw_the_end;
}

// What the two have left in the segment, which is still ours to read.
void CheckShared(const kelstream::SharedTotals &shared, const Program &publisher,
                 const Program &watcher, const Seen &seen, bool saw_the_end, const Work &work) {
  if (publisher.died())
    return;
  const uint32_t sent = shared.events_sent, taken = shared.events_taken,
                 dropped = shared.events_dropped;
  stress::Expect(TotalLine(shared.Load()) == TotalLine(work.totals), "%s published, not %s",
                 TotalLine(shared.Load()).c_str(), TotalLine(work.totals).c_str());
  stress::Expect(sent == work.events.size(), "%u events sent, not %zu", sent,
                 work.events.size());
  // One that is killed may have taken an event and not printed it.
  const uint32_t held_back = watcher.died() ? 1 : 0;
  stress::Expect(seen.events + dropped <= taken && taken <= seen.events + dropped + held_back,
                 "%u events taken: %u seen, %u given way", taken, seen.events, dropped);
  if (saw_the_end && seen.events > 0)
    stress::Expect(taken == sent, "%u events sent, %u taken", sent, taken);
  stress::Count("events", sent);
  stress::Count("seen", seen.events);
  stress::Count("given-way", dropped);
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
  kelstream::SharedTotals *shared = nullptr;
  if (random.OneIn(4))
    Pause(random, work.micros);
  else
    shared = AwaitTotals(publisher);
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
  const Seen seen = ReadLines(watcher.out(), work);
  CheckPublisher(publisher, work);
  const bool saw_the_end = CheckWatcher(watcher, publisher, seen, work);
  if (shared != nullptr) {
    CheckShared(*shared, publisher, watcher, seen, saw_the_end, work);
    kelstream::DetachTotals(shared);
  }

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
  return stress::Main("kelstream", "totals and events agree, nothing stays in the system",
                      {{"publish-and-watch", Rounds}});
}
