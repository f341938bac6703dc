// How queues and semaphores are shown.

#include "ipc_report.h"

#include <kelcore_ipc.h>

#include "text.h"

namespace kelctl {

namespace {

std::string BytesOrDash(const MessageQueue &queue) {
  return queue.pending_bytes ? std::to_string(*queue.pending_bytes) : "-";
}

std::string AccessText(const Access &access) {
  return Printable(UserName(access.uid)) + ", mode " + ModeText(access.mode);
}

}  // namespace

std::string QueueTable(const std::vector<MessageQueue> &queues) {
  if (queues.empty())
    return "no message queues\n";
  Table table({"MESSAGE QUEUE", ">DEPTH", ">SIZE", ">PENDING", ">BYTES", "OWNER", "MODE"});
  for (const MessageQueue &queue : queues) {
    if (!queue.problem.empty())
      table.Add({queue.name, "-", "-", "-", "-", "-", "-"});
    else
      table.Add({queue.name, std::to_string(queue.depth), std::to_string(queue.size),
                 std::to_string(queue.pending), BytesOrDash(queue), UserName(queue.access.uid),
                 ModeText(queue.access.mode)});
  }
  return table.Text();
}

std::string SemaphoreTable(const std::vector<Semaphore> &semaphores) {
  if (semaphores.empty())
    return "no semaphores\n";
  Table table({"SEMAPHORE", ">VALUE", "OWNER", "MODE"});
  for (const Semaphore &semaphore : semaphores)
    table.Add({semaphore.name,
               semaphore.problem.empty() ? std::to_string(semaphore.value) : "-",
               UserName(semaphore.access.uid), ModeText(semaphore.access.mode)});
  return table.Text();
}

std::string QueueDetails(const MessageQueue &queue, bool paired) {
  std::string text = "message queue " + Printable(queue.name) + "\n";
  if (!queue.problem.empty())
    return text + "  cannot be read: " + queue.problem + "\n";
  text += "  depth    " + Count(queue.depth, "message") + "\n";
  text += "  size     " + Count(queue.size, "byte") + " a message";
  constexpr uint64_t kHeader = sizeof(KEL_IPC_MSG_HEADER);
  if (paired && queue.size >= kHeader)
    text += ", or " + std::to_string(queue.size - kHeader) + " behind the library's header";
  text += "\n  pending  " + Count(queue.pending, "message");
  if (queue.pending_bytes)
    text += ", " + Count(*queue.pending_bytes, "byte");
  text += "\n  owner    " + AccessText(queue.access) + "\n";
  if (queue.notified != 0)
    text += "  notifies process " + std::to_string(queue.notified) + "\n";
  return text;
}

std::string SemaphoreDetails(const Semaphore &semaphore) {
  std::string text = "semaphore " + Printable(semaphore.name) + "\n";
  if (semaphore.problem.empty())
    text += "  value    " + std::to_string(semaphore.value) + "\n";
  else
    text += "  cannot be read: " + semaphore.problem + "\n";
  return text + "  owner    " + AccessText(semaphore.access) + "\n";
}

void AddQueue(Json &json, const MessageQueue &queue) {
  json.Object().Key("name").Text(queue.name);
  if (!queue.problem.empty()) {
    json.Key("error").Text(queue.problem).EndObject();
    return;
  }
  json.Key("depth").Number(queue.depth);
  json.Key("size").Number(queue.size);
  json.Key("pending").Number(queue.pending);
  json.Key("pending_bytes");
  if (queue.pending_bytes)
    json.Number(*queue.pending_bytes);
  else
    json.Null();
  json.Key("notified_pid");
  if (queue.notified != 0)
    json.Number(int64_t{queue.notified});
  else
    json.Null();
  AddAccess(json, queue.access);
  json.EndObject();
}

void AddSemaphore(Json &json, const Semaphore &semaphore) {
  json.Object().Key("name").Text(semaphore.name);
  if (semaphore.problem.empty())
    json.Key("value").Number(int64_t{semaphore.value});
  else
    json.Key("error").Text(semaphore.problem);
  AddAccess(json, semaphore.access);
  json.EndObject();
}

}  // namespace kelctl
