// What a publishing kelstream shares with others.

#include "shared_totals.h"

#include <kelcore_hash.h>
#include <kelcore_shm.h>
#include <mqueue.h>
#include <semaphore.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace kelstream {

namespace {

constexpr int kKeys = 4;
// The library keeps an identifier in front of the data, and rounds sizes up.
constexpr size_t kUnit = 16;
constexpr size_t kSegmentSize = (sizeof(SharedTotals) + kUnit - 1) / kUnit * kUnit + kUnit;
static_assert(std::atomic<uint64_t>::is_always_lock_free, "processes share these");

std::string KeyText(const std::string &name, int number) {
  return "kelstream/" + name + "/" + std::to_string(number);
}

key_t KeyOf(const std::string &text) {
  constexpr uint32_t kKeyMask = 0xFFFF;
  return static_cast<key_t>(KEL_Hash_crc16(text.data(), static_cast<uint32_t>(text.size())) &
                            kKeyMask);
}

// A segment of this key that may be one of ours. Asked before it is attached:
// attaching makes one where there is none.
bool Exists(key_t key) {
  shmid_ds status{};
  const int id = shmget(key, 0, 0);
  return id != -1 && shmctl(id, IPC_STAT, &status) == 0 && status.shm_segsz == kSegmentSize;
}

SharedTotals *Attach(const std::string &text, bool &created) {
  uint8_t flag = 0;
  void *const data =
      KEL_ShmMalloc(text.c_str(), sizeof(SharedTotals), &flag, __FILE__, __LINE__, __func__);
  created = flag != 0;
  return static_cast<SharedTotals *>(data);
}

}  // namespace

void SharedTotals::Store(const Totals &totals) {
  files = totals.files;
  streams = totals.streams;
  frames = totals.frames;
  bytes = totals.bytes;
  offset = totals.offset;
  size = totals.size;
}

Totals SharedTotals::Load() const {
  return {files, streams, frames, bytes, offset, size};
}

std::string NameProblem(const std::string &name) {
  if (name.empty())
    return "the name to publish under is empty";
  if (name.size() >= SharedTotals::kNameSize)
    return "the name to publish under has more than 64 characters";
  for (const char character : name)
    if (character <= ' ' || character > '~' || character == '/')
      return "the name to publish under has a character that is not allowed";
  return {};
}

std::string QueueName(const std::string &name, int64_t publisher) {
  return "/kelstream." + name + "." + std::to_string(publisher);
}

SharedTotals *FindTotals(const std::string &name) {
  for (int i = 0; i < kKeys; ++i) {
    const std::string text = KeyText(name, i);
    if (KeyOf(text) == IPC_PRIVATE || !Exists(KeyOf(text)))
      continue;
    bool created = false;
    SharedTotals *const totals = Attach(text, created);
    if (totals == nullptr)
      continue;
    if (created)  // it went away meanwhile
      KEL_ShmFree(totals);
    else if (std::strncmp(totals->name, name.c_str(), SharedTotals::kNameSize) == 0)
      return totals;
    else
      DetachTotals(totals);
  }
  return nullptr;
}

namespace {

// Another one is just being set up, if it is not left over from somebody who
// was killed while he did. False when it stays as it is.
bool AwaitSetUp(const SharedTotals &totals) {
  constexpr int kTries = 100;
  constexpr useconds_t kPauseUs = 10000;
  for (int i = 0; i < kTries && totals.state == ShareState::kNew; ++i)
    usleep(kPauseUs);
  return totals.state != ShareState::kNew;
}

void SetUp(SharedTotals &totals, const std::string &name) {
  const ProcessId self = ThisProcess();
  totals.publisher_start = self.start;
  totals.publisher = self.number;
  std::copy(name.begin(), name.end(), totals.name);
}

}  // namespace

SharedTotals *CreateTotals(const std::string &name, bool &again) {
  again = false;
  for (int i = 0; i < kKeys; ++i) {
    const std::string text = KeyText(name, i);
    const key_t key = KeyOf(text);
    // Segments of others, of another size, are left alone.
    if (key == IPC_PRIVATE || (shmget(key, 0, 0) != -1 && !Exists(key)))
      continue;
    bool created = false;
    SharedTotals *const totals = Attach(text, created);
    if (totals == nullptr)
      continue;
    if (created) {
      SetUp(*totals, name);
      return totals;
    }
    if (!AwaitSetUp(*totals)) {
      KEL_ShmFree(totals);
      again = true;
      return nullptr;
    }
    again = name == totals->name;
    DetachTotals(totals);
    if (again)
      return nullptr;
  }
  return nullptr;
}

void DetachTotals(SharedTotals *totals) {
  shmdt(reinterpret_cast<char *>(totals) - kUnit);
}

void RemoveStale(SharedTotals *totals) {
  const std::string queue = QueueName(totals->name, totals->publisher);
  mq_unlink(queue.c_str());
  sem_unlink(queue.c_str());
  KEL_ShmFree(totals);
}

}  // namespace kelstream
