// Queues, semaphores and segments of the system that end with their scope.
#pragma once

#include <fcntl.h>
#include <kelcore_ipc.h>
#include <mqueue.h>
#include <semaphore.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "segment.h"

namespace kelctl_test {

// No other run has it.
inline std::string UniqueName(const std::string &name) {
  return "/kelctl-" + std::to_string(getpid()) + "-" + name;
}

class RealQueue {
 public:
  RealQueue(std::string name, long depth, long size) : name_(std::move(name)) {
    mq_attr attributes{};
    attributes.mq_maxmsg = depth;
    attributes.mq_msgsize = size;
    descriptor_ =
        mq_open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NONBLOCK, 0600, &attributes);
  }
  ~RealQueue() {
    mq_unlink(name_.c_str());
    if (ok())
      mq_close(descriptor_);
  }
  RealQueue(const RealQueue &) = delete;
  RealQueue &operator=(const RealQueue &) = delete;

  bool ok() const { return descriptor_ != -1; }
  mqd_t descriptor() const { return descriptor_; }
  const std::string &name() const { return name_; }
  bool Send(const std::string &text) const {
    return mq_send(descriptor_, text.data(), text.size(), 0) == 0;
  }
  long pending() const {
    mq_attr attributes{};
    mq_getattr(descriptor_, &attributes);
    return attributes.mq_curmsgs;
  }
  // By name: a removed one is still there for those who have it open.
  bool exists() const {
    const mqd_t other = mq_open(name_.c_str(), O_RDONLY);
    if (other == -1)
      return false;
    mq_close(other);
    return true;
  }

 private:
  std::string name_;
  mqd_t descriptor_ = -1;
};

class RealSemaphore {
 public:
  RealSemaphore(std::string name, unsigned value) : name_(std::move(name)) {
    native_ = sem_open(name_.c_str(), O_CREAT | O_EXCL, 0600, value);
  }
  ~RealSemaphore() {
    sem_unlink(name_.c_str());
    if (ok())
      sem_close(native_);
  }
  RealSemaphore(const RealSemaphore &) = delete;
  RealSemaphore &operator=(const RealSemaphore &) = delete;

  bool ok() const { return native_ != SEM_FAILED; }
  const std::string &name() const { return name_; }
  bool exists() const { return access(("/dev/shm/sem." + name_.substr(1)).c_str(), F_OK) == 0; }

 private:
  std::string name_;
  sem_t *native_ = SEM_FAILED;
};

// Made by the system's own call, under a name whose key nobody uses.
class RealSegment {
 public:
  explicit RealSegment(size_t size) {
    for (int i = 0; id_ == -1 && i < 1000; ++i) {
      name_ = UniqueName("segment-" + std::to_string(i));
      const auto key = static_cast<key_t>(kelctl::KeyOfName(name_));
      if (key != 0)
        id_ = shmget(key, size, IPC_CREAT | IPC_EXCL | 0600);
    }
    if (id_ != -1)
      data_ = static_cast<char *>(shmat(id_, nullptr, 0));
  }
  ~RealSegment() {
    if (id_ != -1)
      shmctl(id_, IPC_RMID, nullptr);
    if (ok())
      shmdt(data_);
  }
  RealSegment(const RealSegment &) = delete;
  RealSegment &operator=(const RealSegment &) = delete;

  bool ok() const { return data_ != nullptr && data_ != reinterpret_cast<char *>(-1); }
  int id() const { return id_; }
  const std::string &name() const { return name_; }
  char *data() const { return data_; }
  bool exists() const {
    return shmget(static_cast<key_t>(kelctl::KeyOfName(name_)), 0, 0) == id_;
  }

 private:
  std::string name_;
  int id_ = -1;
  char *data_ = nullptr;
};

}  // namespace kelctl_test
