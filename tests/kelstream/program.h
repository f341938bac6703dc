// Runs kelstream and keeps what it writes; a directory for the files it reads.
#pragma once

#include <string>
#include <vector>

namespace kelstream_test {

struct Result {
  int status = -1;  // exit status; -1 when it was ended by a signal
  std::string out;
  std::string err;
  long max_rss_kb = 0;
};

struct Setting {
  std::string out_path;  // where standard output goes; else it is captured
  std::string in_path = "/dev/null";
  bool close_out = false;
};

// Runs the program and waits for it, at most two minutes.
Result RunProgram(const std::vector<std::string> &arguments, const Setting &setting = {});

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

std::string ReadFile(const std::string &path);

}  // namespace kelstream_test
