// kelctl ipc: message queues and named semaphores.

#include <climits>

#include "command.h"
#include "confirm.h"
#include "ipc_report.h"
#include "report.h"
#include "text.h"

namespace kelctl {

namespace {

constexpr const char kHelp[] =
    "Usage: kelctl ipc [--json]\n"
    "       kelctl ipc [--json] NAME...\n"
    "       kelctl ipc [--json] --drain|--remove [--only KIND] [--yes] NAME...\n"
    "List the system's POSIX message queues and named semaphores, show those of a\n"
    "NAME, empty a queue, or remove them. A NAME may go without its leading '/'.\n"
    "\n"
    "      --drain      take out the messages that are pending; semaphores keep their\n"
    "                   value\n"
    "      --remove     remove the queue and the semaphore of that name; programs\n"
    "                   that have them open keep them until they close them\n"
    "      --only KIND  look at the 'queue' or the 'semaphore' of the name only\n"
    "      --yes        do not ask\n"
    "      --json       print a JSON document\n"
    "      --help       print this text\n"
    "\n"
    "Queues can be listed where the system shows them, at /dev/mqueue or wherever\n"
    "else a file system of type mqueue is mounted. Nothing is mounted for it:\n"
    "without one, name the queues.\n"
    "\n"
    "Examples:\n"
    "  kelctl ipc                                 what there is\n"
    "  kelctl ipc /player                         one name\n"
    "  kelctl ipc --drain --yes /player           empty its queue\n"
    "  kelctl ipc --remove --only queue /player   after asking\n";

struct Found {
  std::string name;
  std::optional<MessageQueue> queue;
  std::optional<Semaphore> semaphore;
  bool any() const { return queue || semaphore; }
};

struct Done {
  std::optional<uint64_t> drained;
  bool queue_removed = false;
  bool semaphore_removed = false;
};

constexpr const char kNotMounted[] =
    "message queues cannot be listed: /dev/mqueue is not mounted. Name them, as in "
    "'kelctl ipc /player', or 'mount -t mqueue none /dev/mqueue' first";

template <typename Thing>
bool Readable(const Thing &thing, const char *kind) {
  if (thing.problem.empty())
    return true;
  Complain("cannot read " + std::string(kind) + " " + thing.name + ": " + thing.problem);
  return false;
}

// What the system takes behind the '/'. A semaphore is a file, with "sem." in front.
constexpr size_t kLongestQueue = NAME_MAX;
constexpr size_t kLongestSemaphore = NAME_MAX - 4;

// With the '/', and such as what is asked for can have.
std::string FullName(const std::string &name, const std::string &only) {
  std::string full = name.empty() || name[0] != '/' ? "/" + name : name;
  if (full.size() == 1 || full.find('/', 1) != std::string::npos)
    throw UsageError("'" + name + "' names neither a queue nor a semaphore: it needs " +
                     "something behind the one '/' that it may begin with");
  if (full.size() - 1 > (only == "semaphore" ? kLongestSemaphore : kLongestQueue))
    throw UsageError("a name is too long, with " + Count(full.size() - 1, "byte") +
                     " behind the '/': a message queue's has " + std::to_string(kLongestQueue) +
                     " at most, a semaphore's " + std::to_string(kLongestSemaphore) + ": " +
                     full);
  return full;
}

class Ipc {
 public:
  explicit Ipc(const Options &options) : options_(options), json_(options.Has("json")) {}
  int List();
  int Show();

 private:
  Found Find(const std::string &operand) const;
  // False when the user does not agree or something is missing.
  bool Act(const Found &found, Done *done) const;
  bool Drain(const Found &found, Done *done) const;
  bool Remove(const Found &found, Done *done) const;
  bool Handle(const std::string &operand, Json &json) const;
  static void AddTo(Json &json, const Found &found, const Done &done);

  const Options &options_;
  const bool json_;
};

int Ipc::List() {
  int status = kSuccess;
  const std::optional<std::string> directory = QueueDirectory();
  std::vector<MessageQueue> queues;
  if (directory)
    for (const std::string &name : ListQueues(*directory))
      if (const auto queue = FindQueue(name)) {
        queues.push_back(*queue);
        status = Readable(*queue, "message queue") ? status : kFailure;
      }
  std::vector<Semaphore> semaphores;
  for (const std::string &name : ListSemaphores())
    if (const auto semaphore = FindSemaphore(name)) {
      semaphores.push_back(*semaphore);
      status = Readable(*semaphore, "semaphore") ? status : kFailure;
    }
  if (!directory)
    Complain(kNotMounted);
  if (!json_) {
    if (directory)
      Print(QueueTable(queues) + "\n");
    Print(SemaphoreTable(semaphores));
    return status;
  }
  Json json;
  json.Object().Key("queue_directory");
  if (directory) {
    json.Text(*directory).Key("queues").Array();
    for (const MessageQueue &queue : queues)
      AddQueue(json, queue);
    json.EndArray();
  } else {
    json.Null().Key("queues").Null();
  }
  json.Key("semaphores").Array();
  for (const Semaphore &semaphore : semaphores)
    AddSemaphore(json, semaphore);
  Print(json.EndArray().EndObject().Take() + "\n");
  return status;
}

Found Ipc::Find(const std::string &operand) const {
  Found found;
  const std::string only = options_.Value("only", "");
  found.name = FullName(operand, only);
  if (only != "semaphore")
    found.queue = FindQueue(found.name);
  if (only != "queue")
    found.semaphore = FindSemaphore(found.name);
  if (!found.any())
    Complain("there is no " + (only.empty() ? "message queue or semaphore" : only) + " " +
             found.name);
  return found;
}

bool Ipc::Drain(const Found &found, Done *done) const {
  if (!found.queue) {
    Complain(found.name + " is a semaphore only: there is nothing to drain");
    return false;
  }
  if (!Readable(*found.queue, "message queue"))
    return false;
  if (!Confirm("Take " + Count(found.queue->pending, "message") + " out of message queue " +
                   found.name + "?",
               options_.Has("yes")))
    return false;
  done->drained = DrainQueue(found.name);
  if (!json_) {
    const auto after = FindQueue(found.name);
    const uint64_t left = after ? after->pending : 0;
    Print("message queue " + Printable(found.name) + ": " + Count(*done->drained, "message") +
          " taken, " + std::to_string(left) + " pending\n");
  }
  return true;
}

bool Ipc::Remove(const Found &found, Done *done) const {
  std::string what;
  if (found.queue) {
    what = "message queue " + found.name;
    if (found.queue->pending != 0)
      what += " with " + Count(found.queue->pending, "message");
  }
  if (found.semaphore)
    what += std::string(what.empty() ? "" : " and ") + "semaphore " + found.name;
  if (!Confirm("Remove " + what + "?", options_.Has("yes")))
    return false;
  if (found.queue) {
    RemoveQueue(found.name);
    done->queue_removed = true;
  }
  if (found.semaphore) {
    RemoveSemaphore(found.name);
    done->semaphore_removed = true;
  }
  if (!json_)
    Print("removed " + Printable(what) + "\n");
  return true;
}

bool Ipc::Act(const Found &found, Done *done) const {
  if (!found.any())
    return false;
  try {
    if (options_.Has("drain"))
      return Drain(found, done);
    if (options_.Has("remove"))
      return Remove(found, done);
  } catch (const Failure &failure) {
    // The other names have their turn, and the document tells what was done.
    Complain(failure.what());
    return false;
  }
  const bool queue_good = !found.queue || Readable(*found.queue, "message queue");
  return (!found.semaphore || Readable(*found.semaphore, "semaphore")) && queue_good;
}

void Ipc::AddTo(Json &json, const Found &found, const Done &done) {
  json.Object().Key("name").Text(found.name);
  json.Key("queue");
  if (found.queue)
    AddQueue(json, *found.queue);
  else
    json.Null();
  json.Key("semaphore");
  if (found.semaphore)
    AddSemaphore(json, *found.semaphore);
  else
    json.Null();
  if (done.drained)
    json.Key("drained").Number(*done.drained);
  json.Key("removed").Array();
  if (done.queue_removed)
    json.Text("queue");
  if (done.semaphore_removed)
    json.Text("semaphore");
  json.EndArray().EndObject();
}

bool Ipc::Handle(const std::string &operand, Json &json) const {
  const Found found = Find(operand);
  Done done;
  const bool good = Act(found, &done);
  if (json_) {
    AddTo(json, found, done);
  } else if (!options_.Has("drain") && !options_.Has("remove")) {
    if (found.queue)
      Print(QueueDetails(*found.queue, found.semaphore.has_value()));
    if (found.semaphore)
      Print(SemaphoreDetails(*found.semaphore));
  }
  return good;
}

int Ipc::Show() {
  // Before anything is done to any of them.
  for (const std::string &operand : options_.operands())
    FullName(operand, options_.Value("only", ""));
  int status = kSuccess;
  Json json;
  json.Object().Key("names").Array();
  for (const std::string &operand : options_.operands())
    if (!Handle(operand, json))
      status = kFailure;
  if (json_)
    Print(json.EndArray().EndObject().Take() + "\n");
  return status;
}

int Run(const Options &options) {
  const bool drain = options.Has("drain"), remove = options.Has("remove");
  if (drain && remove)
    throw UsageError("--drain and --remove exclude each other");
  const std::string only = options.Value("only", "queue");
  if (only != "queue" && only != "semaphore")
    throw UsageError("option --only needs 'queue' or 'semaphore', not '" + only + "'");
  if (drain && only == "semaphore")
    throw UsageError("a semaphore is not drained");
  Ipc ipc(options);
  if (!options.operands().empty())
    return ipc.Show();
  if (drain || remove || options.Has("only"))
    throw UsageError("no NAME given");
  return ipc.List();
}

}  // namespace

const Command &IpcCommand() {
  static const Command command = {"ipc",
                                  "message queues and semaphores: list, show, drain, remove",
                                  kHelp,
                                  {{"drain", "remove", "yes"}, {"only"}},
                                  Run};
  return command;
}

}  // namespace kelctl
