// Runs kelctl and keeps what it writes.

#include "program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace kelctl_test {

namespace {

void Check(bool good, const char *what) {
  if (!good)
    throw std::runtime_error(what);
}

void Send(int descriptor, const std::string &text) {
  Check(write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
        "cannot send");
}

// What a terminal has shown; its end is an error on Linux.
std::string Shown(int terminal) {
  std::string text;
  char block[4096];
  pollfd ready = {terminal, POLLIN, 0};
  while (poll(&ready, 1, 0) > 0) {
    const ssize_t count = read(terminal, block, sizeof block);
    if (count <= 0)
      break;
    text.append(block, static_cast<size_t>(count));
  }
  return text;
}

// Calls `meanwhile` until the process ends, at most half a minute: less than
// the tests' own limit, behind which nobody would remove what they made.
template <typename Meanwhile>
int Await(pid_t pid, Meanwhile meanwhile) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    meanwhile();
    if (std::chrono::steady_clock::now() > deadline)
      kill(pid, SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The three standard files of the program, and their other ends.
struct Ends {
  int in = -1, feed = -1, out = -1, err = -1;
};

[[noreturn]] void Become(std::vector<std::string> words, const Ends &ends,
                         const Setting &setting) {
  if (setting.prepare && !setting.prepare())
    _exit(kNotPrepared);
  dup2(ends.in, STDIN_FILENO);
  dup2(ends.out, STDOUT_FILENO);
  dup2(ends.err, STDERR_FILENO);
  std::vector<char *> argv;
  argv.reserve(words.size() + 1);
  for (std::string &word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  execv(argv[0], argv.data());
  _exit(127);
}

}  // namespace

Result RunProgram(const std::vector<std::string> &arguments, const Setting &setting) {
  const TempDirectory temp;
  const std::string out_path = setting.out_path.empty() ? temp.Path("out") : setting.out_path;
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
  Ends ends;
  ends.out = open(out_path.c_str(), kFlags, 0600);
  Check(ends.out >= 0, "no output");
  if (setting.keys) {
    Check(openpty(&ends.feed, &ends.in, nullptr, nullptr, nullptr) == 0, "no terminal");
    ends.err = dup(ends.in);
    if (!setting.keyboard) {
      int both[2];
      Check(pipe(both) == 0, "no pipe");
      close(both[1]);
      dup2(both[0], ends.in);
      close(both[0]);
    }
  } else {
    int both[2];
    Check(pipe(both) == 0, "no pipe");
    ends.in = both[0];
    ends.feed = both[1];
    ends.err = open(temp.Path("err").c_str(), kFlags, 0600);
  }
  for (const int end : {ends.in, ends.feed, ends.err})
    fcntl(end, F_SETFD, FD_CLOEXEC);
  std::vector<std::string> words = {KELCTL_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());

  const pid_t pid = fork();
  Check(pid >= 0, "cannot fork");
  if (pid == 0)
    Become(words, ends, setting);
  Result result;
  if (setting.keys) {
    bool typed = false;
    // Not before the question: the terminal would show the answer in its midst.
    result.status = Await(pid, [&] {
      result.err += Shown(ends.feed);
      if (!typed && Contains(result.err, "[y/N] ")) {
        Send(ends.feed, *setting.keys);
        typed = true;
      }
    });
    result.err += Shown(ends.feed);
  } else {
    Send(ends.feed, setting.input);
    close(ends.feed);
    result.status = Await(pid, [] {});
    result.err = ReadFile(temp.Path("err"));
  }
  if (setting.out_path.empty())
    result.out = ReadFile(out_path);
  if (setting.keys)
    close(ends.feed);
  close(ends.in);
  close(ends.out);
  close(ends.err);
  return result;
}

TempDirectory::TempDirectory() {
  path_ = (std::filesystem::temp_directory_path() / "kelctl-test-XXXXXX").string();
  Check(mkdtemp(path_.data()) != nullptr, "no temporary directory");
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDirectory::Write(const std::string &name, const std::string &data) const {
  std::ofstream file(Path(name), std::ios::binary);
  file.write(data.data(), static_cast<std::streamsize>(data.size()));
  file.close();
  Check(file.good(), "a test file cannot be written");
  return Path(name);
}

std::string ReadFile(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kelctl_test
