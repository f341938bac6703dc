// Runs kelstream and keeps what it writes; a directory for the files it reads.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace kelstream_test {

struct Result {
  int status = -1;  // exit status; -1 when it was ended by a signal
  int signal = 0;   // that ended it
  std::string out;
  std::string err;
  long max_rss_kb = 0;
};

struct Setting {
  std::string out_path{};  // where standard output goes; else it is captured
  std::string err_path{};
  std::string in_path = "/dev/null";
  bool close_out = false;
};

// Removed with all it holds, whether or not a test succeeds.
class TempDirectory {
 public:
  TempDirectory();
  ~TempDirectory();
  TempDirectory(const TempDirectory &) = delete;
  TempDirectory &operator=(const TempDirectory &) = delete;

  std::string Path(const std::string &name) const { return path_ + "/" + name; }
  // Writes a file and returns its path.
  template <typename Data>
  std::string Write(const std::string &name, const Data &data) const {
    return WriteFile(name, data.data(), data.size());
  }

 private:
  std::string WriteFile(const std::string &name, const void *data, size_t size) const;
  std::string path_;
};

// A running kelstream. It is killed when the test leaves it running.
class Program {
 public:
  explicit Program(const std::vector<std::string> &arguments, const Setting &setting = {});
  ~Program();
  Program(const Program &) = delete;
  Program &operator=(const Program &) = delete;

  pid_t pid() const { return pid_; }
  // What it wrote so far.
  std::string out() const;
  std::string err() const;
  // Waits until its output holds a text; false after two minutes, or when it
  // ended without.
  bool AwaitOut(const std::string &text);
  void Signal(int number) const;
  // Waits for its end, at most two minutes.
  Result Wait();

 private:
  bool Ended();

  TempDirectory temp_;
  std::string out_path_;
  pid_t pid_ = 0;
  bool ended_ = false;
  Result result_;
};

// Runs the program and waits for it, at most two minutes.
Result RunProgram(const std::vector<std::string> &arguments, const Setting &setting = {});

std::string ReadFile(const std::string &path);

}  // namespace kelstream_test
