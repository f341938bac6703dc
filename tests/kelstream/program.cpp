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

int WaitFor(pid_t child, rusage &usage) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  int status = 0;
  while (wait4(child, &status, WNOHANG, &usage) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(child, SIGKILL);
      wait4(child, &status, 0, &usage);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

Result RunProgram(const std::vector<std::string> &arguments, const Setting &setting) {
  const TempDirectory temp;
  const std::string out = setting.out_path.empty() ? temp.Path("out") : setting.out_path;
  const std::string err = temp.Path("err");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_addopen(&actions, 0, setting.in_path.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), kFlags, 0600);
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

  pid_t child = 0;
  const int error = posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  Check(error == 0, "kelstream cannot be started");
  Result result;
  rusage usage{};
  result.status = WaitFor(child, usage);
  result.max_rss_kb = usage.ru_maxrss;
  if (setting.out_path.empty())
    result.out = ReadFile(out);
  result.err = ReadFile(err);
  return result;
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
