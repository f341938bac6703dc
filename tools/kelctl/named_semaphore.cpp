// POSIX named semaphores. The C library keeps each as a file.

#include "named_semaphore.h"

#include <dirent.h>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "report.h"

namespace kelctl {

namespace {

constexpr const char kDirectory[] = "/dev/shm";
const std::string kPrefix = "sem.";

std::string PathOf(const std::string &name) {
  return kDirectory + ("/" + kPrefix) + name.substr(1);
}

void ReadValue(Semaphore *semaphore) {
  sem_t *const native = sem_open(semaphore->name.c_str(), 0);
  if (native == SEM_FAILED) {
    semaphore->problem = ErrorText(errno);
    return;
  }
  sem_getvalue(native, &semaphore->value);
  sem_close(native);
}

}  // namespace

std::vector<std::string> ListSemaphores() {
  std::vector<std::string> names;
  DIR *const stream = opendir(kDirectory);
  if (stream == nullptr) {
    if (errno == ENOENT)
      return names;  // without it there can be none
    throw Failure(std::string("cannot read ") + kDirectory + ": " + ErrorText(errno));
  }
  while (const dirent *entry = readdir(stream)) {
    const std::string name = entry->d_name;
    if (name.size() > kPrefix.size() && name.compare(0, kPrefix.size(), kPrefix) == 0)
      names.push_back("/" + name.substr(kPrefix.size()));
  }
  closedir(stream);
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<Semaphore> FindSemaphore(const std::string &name) {
  Semaphore semaphore;
  semaphore.name = name;
  struct stat status {};
  if (lstat(PathOf(name).c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENAMETOOLONG)
      return std::nullopt;
    semaphore.problem = ErrorText(errno);
    return semaphore;
  }
  semaphore.access = {status.st_uid, status.st_mode & 0777};
  // The C library maps the file without a look at its size; touching a short
  // one would end this program.
  if (!S_ISREG(status.st_mode) || status.st_size != static_cast<off_t>(sizeof(sem_t)))
    semaphore.problem = "not a semaphore's file";
  else
    ReadValue(&semaphore);
  return semaphore;
}

void RemoveSemaphore(const std::string &name) {
  if (sem_unlink(name.c_str()) != 0)
    throw Failure("cannot remove semaphore " + name + ": " + ErrorText(errno));
}

}  // namespace kelctl
