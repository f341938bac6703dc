// Standard output, kept clean for the report.

#include "output.h"

#include <fcntl.h>
#include <kelcore_file.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "signals.h"

namespace kelstream {

Output::Output() : ok_(fcntl(STDOUT_FILENO, F_GETFD) != -1) {
  // A reader that has gone away is a write error like others, not a reason to
  // die without a word.
  std::signal(SIGPIPE, SIG_IGN);
  // A closed standard error would become the first file that is opened.
  if (fcntl(STDERR_FILENO, F_GETFD) == -1) {
    const int null = open("/dev/null", O_WRONLY);
    if (null != -1 && null != STDERR_FILENO) {
      dup2(null, STDERR_FILENO);
      close(null);
    }
  }
}

Output::~Output() {
  if (reserved_ != -1)
    close(reserved_);
}

bool Output::Reserve() {
  reserved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  return reserved_ != -1 && dup2(STDERR_FILENO, STDOUT_FILENO) != -1;
}

bool Output::Write(std::string_view text) {
  // What ticks would cut the writing short.
  const SignalsBlocked blocked(SIGRTMIN + 4);
  if (reserved_ == -1) {
    const bool written = KEL_FileWrite(stdout, text.data(), text.size()) == text.size();
    // An earlier failure of the library's own prints leaves its mark, too.
    return std::fflush(stdout) == 0 && written && std::ferror(stdout) == 0;
  }
  while (!text.empty()) {
    const ssize_t count = write(reserved_, text.data(), text.size());
    if (count <= 0)
      return false;
    text.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

void Complain(std::string_view text) {
  const std::string line = "kelstream: " + std::string(text) + "\n";
  std::fputs(line.c_str(), stderr);
}

}  // namespace kelstream
