// Files to read, standard input under the name of "-".

#include "input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "report.h"
#include "text.h"

namespace kelctl {

Input::Input(const std::string &name)
    : name_(name == "-" ? "standard input" : name),
      own_(name == "-" ? -1 : open(name.c_str(), O_RDONLY | O_CLOEXEC)),
      descriptor_(name == "-" ? STDIN_FILENO : own_.number()) {
  if (descriptor_ < 0)
    Fail();
}

size_t Input::Read(char *buffer, size_t size) {
  size_t held = 0;
  while (held < size) {
    const ssize_t count = read(descriptor_, buffer + held, size - held);
    if (count == 0)
      break;
    if (count > 0)
      held += static_cast<size_t>(count);
    else if (errno != EINTR)
      Fail();
  }
  return held;
}

void Input::Skip(uint64_t count) {
  struct stat status {};
  if (fstat(descriptor_, &status) != 0)
    Fail();
  if (S_ISREG(status.st_mode)) {
    const off_t here = lseek(descriptor_, 0, SEEK_CUR);
    const auto left = static_cast<uint64_t>(std::max<off_t>(status.st_size - here, 0));
    if (count <= left) {
      if (lseek(descriptor_, static_cast<off_t>(count), SEEK_CUR) < 0)
        Fail();
      return;
    }
  }
  // Files of the system may have more than they say.
  constexpr size_t kStep = 65536;
  std::vector<char> unused(kStep);
  for (uint64_t left = count; left != 0;) {
    const size_t step =
        Read(unused.data(), static_cast<size_t>(std::min<uint64_t>(left, kStep)));
    if (step == 0)
      throw Failure("the offset lies " + Count(left, "byte") + " behind the end of " + name_);
    left -= step;
  }
}

void Input::Fail() const {
  throw Failure("cannot read " + name_ + ": " + ErrorText(errno));
}

}  // namespace kelctl
