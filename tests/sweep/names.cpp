#include "names.h"

#include <fcntl.h>
#include <mqueue.h>
#include <semaphore.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>

#include "recorder.h"

namespace {

namespace fs = std::filesystem;

const std::string &Prefix() {
  // Always of the same length, which messages tell.
  static const std::string prefix =
      "/kelcore_sweep_" + std::to_string(1'000'000'000 + getpid());
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
