// POSIX message queues.

#include "message_queue.h"

#include <dirent.h>
#include <fcntl.h>
#include <mqueue.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "descriptor.h"
#include "report.h"

namespace kelctl {

namespace {

constexpr const char kUsualDirectory[] = "/dev/mqueue";
constexpr long kQueueFileSystem = 0x19800202;

bool HoldsQueues(const std::string &directory) {
  struct statfs info {};
  return statfs(directory.c_str(), &info) == 0 && info.f_type == kQueueFileSystem;
}

// The kernel writes blanks and the like as \ooo.
std::string Unescape(const std::string &text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      result += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 +
                                  (text[i + 3] - '0'));
      i += 3;
    } else {
      result += text[i];
    }
  }
  return result;
}

[[noreturn]] void Fail(const std::string &what, const std::string &name) {
  throw Failure("cannot " + what + " message queue " + name + ": " + ErrorText(errno));
}

// On Linux a queue's descriptor is a file's, and reading it tells what
// mq_getattr does not.
void ReadStatus(int descriptor, MessageQueue *queue) {
  char text[128] = {};
  if (pread(descriptor, text, sizeof text - 1, 0) <= 0)
    return;
  unsigned long long bytes = 0;
  int pid = 0;
  if (std::sscanf(text, "QSIZE:%llu NOTIFY:%*d SIGNO:%*d NOTIFY_PID:%d", &bytes, &pid) != 2)
    return;
  queue->pending_bytes = bytes;
  queue->notified = pid;
}

}  // namespace

std::optional<std::string> QueueDirectory() {
  if (HoldsQueues(kUsualDirectory))
    return kUsualDirectory;
  // Some systems mount it elsewhere.
  std::ifstream mounts("/proc/self/mounts");
  for (std::string line; std::getline(mounts, line);) {
    std::istringstream fields(line);
    std::string device, directory, type;
    fields >> device >> directory >> type;
    directory = Unescape(directory);
    if (type == "mqueue" && HoldsQueues(directory))
      return directory;
  }
  return std::nullopt;
}

std::vector<std::string> ListQueues(const std::string &directory) {
  DIR *const stream = opendir(directory.c_str());
  if (stream == nullptr)
    throw Failure("cannot read " + directory + ": " + ErrorText(errno));
  std::vector<std::string> names;
  while (const dirent *entry = readdir(stream)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..")
      names.push_back("/" + name);
  }
  closedir(stream);
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<MessageQueue> FindQueue(const std::string &name) {
  MessageQueue queue;
  queue.name = name;
  const Descriptor descriptor(mq_open(name.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor.ok()) {
    if (errno == ENOENT)
      return std::nullopt;
    queue.problem = ErrorText(errno);
    return queue;
  }
  mq_attr attributes{};
  struct stat status {};
  if (mq_getattr(descriptor.number(), &attributes) != 0 ||
      fstat(descriptor.number(), &status) != 0)
    Fail("read", name);
  queue.depth = static_cast<uint64_t>(attributes.mq_maxmsg);
  queue.size = static_cast<uint64_t>(attributes.mq_msgsize);
  queue.pending = static_cast<uint64_t>(attributes.mq_curmsgs);
  queue.access = {status.st_uid, status.st_mode & 0777};
  ReadStatus(descriptor.number(), &queue);
  return queue;
}

uint64_t DrainQueue(const std::string &name) {
  const Descriptor descriptor(mq_open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  mq_attr attributes{};
  if (!descriptor.ok() || mq_getattr(descriptor.number(), &attributes) != 0)
    Fail("drain", name);
  const auto pending = static_cast<uint64_t>(attributes.mq_curmsgs);
  std::string message(static_cast<size_t>(attributes.mq_msgsize), '\0');
  uint64_t taken = 0;
  while (taken < pending) {
    if (mq_receive(descriptor.number(), message.data(), message.size(), nullptr) >= 0)
      ++taken;
    else if (errno == EAGAIN)  // another receiver was faster
      break;
    else if (errno != EINTR)
      Fail("drain", name);
  }
  return taken;
}

void RemoveQueue(const std::string &name) {
  if (mq_unlink(name.c_str()) != 0)
    Fail("remove", name);
}

}  // namespace kelctl
