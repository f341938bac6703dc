// A system of its own for a child process.

#include "own_system.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelctl_test {

namespace {

bool WriteTo(const char *path, const std::string &text) {
  const int file = open(path, O_WRONLY);
  const bool good =
      file != -1 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(file);
  return good;
}

bool Mount(const char *type, const std::string &where) {
  return mount("none", where.c_str(), type, 0, nullptr) == 0;
}

}  // namespace

bool EnterOwnSystem(Queues queues, const std::string &directory) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  // Only the superuser may do without a user namespace.
  const int flags = CLONE_NEWNS | CLONE_NEWIPC | (user != 0 ? CLONE_NEWUSER : 0);
  if (unshare(flags) != 0)
    return false;
  // Files can be made only by users and groups that have a number inside.
  if (user != 0 && !(WriteTo("/proc/self/setgroups", "deny") &&
                     WriteTo("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
                     WriteTo("/proc/self/gid_map", "0 " + std::to_string(group) + " 1")))
    return false;
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      !Mount("tmpfs", "/dev/shm"))
    return false;
  constexpr const char kUsual[] = "/dev/mqueue";
  const bool has_usual = access(kUsual, F_OK) == 0;
  if (queues == Queues::kMounted)
    return Mount("mqueue", has_usual ? kUsual : directory);
  return !has_usual || Mount("tmpfs", kUsual);
}

}  // namespace kelctl_test
