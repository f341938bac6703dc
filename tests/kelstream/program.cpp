// Runs kelstream and keeps what it writes.

#include "program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
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

namespace kelstream_test {

namespace {

void Check(bool good, const char *what) {
  if (!good)
    throw std::runtime_error(what);
}

constexpr auto kPatience = std::chrono::minutes(2);

// Polls, because a child can be waited for only without a limit.
template <typename Condition>
bool Await(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace

Program::Program(const std::vector<std::string> &arguments, const Setting &setting)
    : out_path_(setting.out_path.empty() ? temp_.Path("out") : setting.out_path) {
  const std::string err = setting.err_path.empty() ? temp_.Path("err") : setting.err_path;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_addopen(&actions, 0, setting.in_path.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out_path_.c_str(), kFlags, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), kFlags, 0600);
  if (setting.close_out)
    posix_spawn_file_actions_addclose(&actions, 1);

  std::vector<std::string> words = {KELSTREAM_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char *> argv;
  argv.reserve(words.size() + 1);
  for (std::string &word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);

  const int error = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  Check(error == 0, "kelstream cannot be started");
}

Program::~Program() {
  if (Ended())
    return;
  Signal(SIGKILL);
  Wait();
}

bool Program::Ended() {
  int status = 0;
  rusage usage{};
  if (!ended_ && wait4(pid_, &status, WNOHANG, &usage) == pid_) {
    ended_ = true;
    result_.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result_.max_rss_kb = usage.ru_maxrss;
  }
  return ended_;
}

std::string Program::out() const {
  return ReadFile(out_path_);
}

std::string Program::err() const {
  return ReadFile(temp_.Path("err"));
}

bool Program::AwaitOut(const std::string &text) {
  const auto holds = [&] { return out().find(text) != std::string::npos; };
  Await([&] { return holds() || Ended(); });
  return holds();
}

void Program::Signal(int number) const {
  if (!ended_)
    kill(pid_, number);
}

Result Program::Wait() {
  if (!Await([this] { return Ended(); })) {
    Signal(SIGKILL);
    Await([this] { return Ended(); });
  }
  if (out_path_ == temp_.Path("out"))
    result_.out = out();
  result_.err = err();
  return result_;
}

Result RunProgram(const std::vector<std::string> &arguments, const Setting &setting) {
  return Program(arguments, setting).Wait();
}

TempDirectory::TempDirectory() {
  path_ = (std::filesystem::temp_directory_path() / "kelstream-test-XXXXXX").string();
  Check(mkdtemp(path_.data()) != nullptr, "no temporary directory");
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDirectory::WriteFile(const std::string &name, const void *data,
                                     size_t size) const {
  std::ofstream file(Path(name), std::ios::binary);
  file.write(static_cast<const char *>(data), static_cast<std::streamsize>(size));
  file.close();
  Check(file.good(), "a test file cannot be written");
  return Path(name);
}

std::string ReadFile(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kelstream_test
