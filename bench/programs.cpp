// Whole programs: kelstream, and the probe that everybody has, over the samples
// repeated to some 200 MB.

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "job.h"

namespace {

namespace fs = std::filesystem;

// A sample over and over, in a file that goes with the program.
class Repeated {
 public:
  explicit Repeated(const char *sample) {
    path_ = fs::temp_directory_path() /
            ("kelcore_bench_" + std::to_string(getpid()) + "_" + sample);
    std::stringstream text;
    text << std::ifstream(fs::path(MEDIA) / sample, std::ios::binary).rdbuf();
    const std::string bytes = text.str();
    std::ofstream file(path_, std::ios::binary);
    for (size_t size = 0; !bytes.empty() && size < 200'000'000; size += bytes.size())
      file << bytes;
  }
  ~Repeated() { fs::remove(path_); }
  const std::string path() const { return path_; }

 private:
  fs::path path_;
};

bool succeeds(std::vector<std::string> words) {
  std::vector<char *> arguments;
  for (std::string &word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t child;
  const int failed =
      posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  return failed == 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
         (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 2);
}

void run(benchmark::State &state, const char *sample, std::vector<std::string> words) {
  const Repeated file(sample);
  words.push_back(file.path());
  for (auto _ : state)
    if (!succeeds(words))
      state.SkipWithError("the program failed");
}

}  // namespace

#ifdef FFPROBE
#define PROBE(job, sample)                                          \
  JOB(job, ffprobe) {                                               \
    run(state, sample,                                              \
        {FFPROBE, "-v", "error", "-count_packets", "-show_entries", \
         "stream=codec_name,nb_read_packets"});                     \
  }
#else
#define PROBE(job, sample)
#endif
#define PROGRAMS(job, sample)        \
  JOB(job, kelcore) {                \
    run(state, sample, {KELSTREAM}); \
  }                                  \
  PROBE(job, sample)

PROGRAMS(kelstream_200mb_h264, "bars.h264")
PROGRAMS(kelstream_200mb_adts, "tone.aac")
PROGRAMS(kelstream_200mb_ts, "show.ts")
