#include "recorder.h"

#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <semaphore.h>
#include <sys/shm.h>

#include <algorithm>
#include <mutex>
#include <string_view>

#include "faults.h"
#include "kelcore_trace.h"

namespace {

thread_local bool in_library = false;
// Steps of several threads follow one another.
std::string function;
Outcome outcome;
// Lines come from the library's own threads, too.
faults::SpinLock lines_lock;
std::map<std::pair<std::string, std::string>, std::vector<std::string>> open_things;
// Kind and name, and who made it.
std::map<std::pair<std::string, std::string>, std::string> names;
std::vector<std::pair<std::string, std::string>> concealed;

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexadecimal = "0123456789abcdefABCDEF";

// Characters out of `set` between `before` and `after`.
struct Varying {
  std::string_view before, set, after, word;
};
constexpr Varying kVarying[] = {
    {"kelcore_trace:", kDigits, " ", "LINE"},
    {"kelcore_file:", kDigits, " ", "LINE"},
    {"kelcore_mutex:", kDigits, " ", "LINE"},
    {"timedlock time(", "0123456789s.m", ")", "DEADLINE"},
    {" key(", kDigits, ")", "KEY"},
    {"0x", kHexadecimal, "", "POINTER"},
    {"fseek(", kHexadecimal, ",", "POINTER"},
    {"mq_send(", kDigits, ",", "DESCRIPTOR"},
    {"mq_recv(", kDigits, ",", "DESCRIPTOR"},
    {"fd(", kDigits, ")", "DESCRIPTOR"},
};

void ReplaceAll(std::string &text, std::string_view from, std::string_view to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
}

void Replace(std::string &text, const Varying &varying) {
  for (size_t at = 0; (at = text.find(varying.before, at)) != std::string::npos;) {
    at += varying.before.size();
    const size_t end = std::min(text.find_first_not_of(varying.set, at), text.size());
    if (end > at && text.compare(end, varying.after.size(), varying.after) == 0)
      text.replace(at, end - at, varying.word);
  }
}

void AddLine(std::string line) {
  const std::lock_guard lock(lines_lock);
  outcome.lines.push_back(std::move(line));
}

// "00000012345 ERROR:[kelsema] kelcore_sema:12 (KEL_SemaGet) : text"
void Collect(const char *line) {
  const Outside outside;
  const std::string text = line;
  const size_t module = text.find('[') + 1;
  const size_t name = text.find(" (", module) + 2;
  const size_t message = text.find(") : ", name);
  AddLine(Normalised(text.substr(module, text.find(']', module) - module) + " " +
                     text.substr(name, message - name) + ": " + text.substr(message + 4)));
}

// What was left and counts against the limits of the system.
void GiveBack(const std::string &kind, const std::string &id) {
  if (kind == "queue")
    mq_close(std::stoi(id));
  else if (kind == "attachment")
    shmdt(reinterpret_cast<void *>(std::stoull(id)));
  else if (kind == "segment")
    shmctl(std::stoi(id), IPC_RMID, nullptr);
}

bool Exists(const std::string &kind, const char *name) {
  if (kind == "queue") {
    const mqd_t queue = mq_open(name, O_RDONLY);
    return queue != -1 ? mq_close(queue) == 0 : errno != ENOENT;
  }
  sem_t *const semaphore = sem_open(name, 0);
  return semaphore != SEM_FAILED ? sem_close(semaphore) == 0 : errno != ENOENT;
}

}  // namespace

bool InLibrary() {
  return in_library;
}

void StayInLibrary() {
  in_library = true;
}

Outside::Outside() : before_(in_library) {
  in_library = false;
}
Outside::~Outside() {
  in_library = before_;
}

void Conceal(const std::string &text, const std::string &word) {
  concealed.emplace_back(text, word);
}

std::string Normalised(std::string text) {
  for (const auto &[from, to] : concealed)
    ReplaceAll(text, from, to);
  ReplaceAll(text, "\033[31m", "<red>");
  ReplaceAll(text, "\033[0m", "<plain>");
  for (const Varying &varying : kVarying)
    Replace(text, varying);
  const size_t tick = text.starts_with("<red>") ? 5 : 0;
  const size_t end = text.find_first_not_of(kDigits, tick);
  if (end != std::string::npos && end - tick >= 8 && text[end] == ' ')
    text.replace(tick, end - tick,
                 text.find_first_not_of('0', tick) < end ? "TICK" : "NO-TICK");
  while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
    text.pop_back();
  ReplaceAll(text, "\n", "\\n");
  return text;
}

void Recorder::Begin() {
  // What this prints is kept like a step's, and forgotten.
  Enter("");
  KEL_TraceSet("*:1");
  KEL_TraceSetCB(Collect, 0);
  Leave("", 0);
  outcome = {};
  open_things.clear();
  names.clear();
}

Outcome Recorder::End() {
  KEL_TraceSetCB(nullptr, 0);
  for (const auto &[thing, makers] : open_things) {
    for (const std::string &maker : makers)
      ++outcome.left[{maker, thing.first}];
    GiveBack(thing.first, thing.second);
  }
  for (const auto &[thing, maker] : names)
    if (Exists(thing.first, thing.second.c_str()))
      ++outcome.left[{maker, thing.first + " name"}];
  return std::exchange(outcome, {});
}

void Recorder::Enter(const char *name) {
  function = name;
  in_library = true;
}

void Recorder::Leave(std::string result, int error) {
  in_library = false;
  outcome.steps.push_back({function, std::move(result), error});
}

void Recorder::Print(const char *text) {
  AddLine("printed: " + Normalised(text));
}

void Recorder::Opened(const char *kind, std::string id) {
  open_things[{kind, std::move(id)}].push_back(function);
}

void Recorder::Closed(const char *kind, const std::string &id) {
  const auto found = open_things.find({kind, id});
  if (found == open_things.end()) {
    ++outcome.unmatched[{function, kind}];
    return;
  }
  found->second.pop_back();
  if (found->second.empty())
    open_things.erase(found);
}

void Recorder::Named(const char *kind, const char *name) {
  names.emplace(std::pair(kind, name), function);
}
