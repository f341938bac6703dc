#include "names.h"

#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <semaphore.h>
#include <string.h>
#include <sys/shm.h>
#include <unistd.h>

#include <filesystem>

#include "kelcore_hash.h"
#include "recorder.h"

namespace {

namespace fs = std::filesystem;

// Segments have checksums of their names for keys: others may have the same, and 0
// stands for a segment without a key.
bool KeyIsFree(const std::string &name) {
  const auto key = static_cast<key_t>(
      KEL_Hash_crc16(name.data(), static_cast<uint32_t>(name.size())) & 0xFFFF);
  return key != 0 && shmget(key, 0, 0) == -1 && errno == ENOENT;
}

// Always of the same length, which messages tell.
std::string FreePrefix() {
  constexpr int64_t kMostProcesses = 1 << 22;
  for (int64_t number = 1'000'000'000 + getpid();; number += kMostProcesses)
    if (std::string name = "/kelcore_sweep_" + std::to_string(number); KeyIsFree(name))
      return name;
}

const std::string &Prefix() {
  static const std::string prefix = FreePrefix();
  return prefix;
}

fs::path directory;  // empty until made

const fs::path &Directory() {
  if (directory.empty()) {
    directory = fs::temp_directory_path() / Prefix().substr(1);
    fs::create_directories(directory);
    Conceal(directory.string(), "DIRECTORY");
    Conceal(Prefix(), "/NAME");
  }
  return directory;
}

}  // namespace

const char *SystemName() {
  Directory();
  return Prefix().c_str();
}

const char *SemaName() {
  static const std::string name = SystemName() + std::string("_turn");
  return name.c_str();
}

std::string PathOf(const char *name) {
  return (Directory() / name).string();
}

void WriteFile(const char *name, const char *text) {
  // By the system alone: the streams' calls are those that fail.
  const int file = open(PathOf(name).c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
  if (file >= 0) {
    (void)!write(file, text, strlen(text));
    close(file);
  }
}

void CleanSystem() {
  mq_unlink(SystemName());
  sem_unlink(SystemName());
  sem_unlink(SemaName());
  std::error_code ignored;
  for (const fs::directory_entry &entry : fs::directory_iterator(Directory()))
    fs::remove_all(entry.path(), ignored);
}

void RemoveDirectory() {
  std::error_code ignored;
  if (!directory.empty())
    fs::remove_all(directory, ignored);
}
