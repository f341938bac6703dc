// Runs kelctl and keeps what it writes.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelctl_test {

struct Result {
  int status = -1;  // exit status; -1 when it was ended by a signal
  std::string out;
  std::string err;  // with a terminal: all that the terminal showed
};

struct Setting {
  std::string input{};  // standard input, a pipe
  // Typed on a terminal when it asks something; none: there is no terminal.
  std::optional<std::string> keys{};
  bool keyboard = true;    // with a terminal: standard input is it, too, else a closed pipe
  std::string out_path{};  // where standard output goes; else it is captured
  // Called in the new process; when false the program is not run and its
  // status is kNotPrepared.
  std::function<bool()> prepare{};
};

constexpr int kNotPrepared = 97;

// Waits for its end, at most half a minute.
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
  std::string Write(const std::string &name, const std::string &data) const;

 private:
  std::string path_;
};

std::string ReadFile(const std::string &path);

inline bool Contains(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

}  // namespace kelctl_test
