// Editing files in place: one that is emptied first, as always, and one that is
// not, so that the copying of lines has something to copy.

#include <kelcore_file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "fuzz.h"

namespace {

constexpr size_t kMostWritten = 127;
constexpr size_t kMostRead = 255;

bool keep_contents = false;
std::string directory, path, work_path;

void Write(const std::string &to, const std::string &text) {
  FILE *file = fopen(to.c_str(), "wb");
  FUZZ_CHECK(file != nullptr);
  FUZZ_EQUAL(fwrite(text.data(), 1, text.size(), file), text.size());
  fclose(file);
}

std::string Contents(const std::string &from) {
  FILE *file = fopen(from.c_str(), "rb");
  FUZZ_CHECK(file != nullptr);
  char bytes[4096];
  std::string text(bytes, fread(bytes, 1, sizeof bytes, file));
  fclose(file);
  return text;
}

// The pieces that a file is read in: lines, cut where they are too long, each
// a text of its own that a zero ends.
std::vector<std::string> Lines(const std::string &text) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    const size_t length =
        std::min(end == std::string::npos ? text.size() - at : end + 1 - at, kMostRead);
    lines.emplace_back(text.substr(at, length).c_str());
    at += length;
  }
  return lines;
}

// What is written over the beginning of a text.
std::string Over(const std::string &text, const std::string &written) {
  return written + (written.size() < text.size() ? text.substr(written.size()) : "");
}

struct Edited {
  int32_t result;
  std::string file;
  std::string work;
};

Edited Del(const std::string &file, const std::string &work, const std::string &key) {
  std::string kept;
  int found = 0;
  for (const std::string &line : Lines(file)) {
    if (!key.empty() && line.compare(0, key.size(), key) != 0)
      kept += line;
    else if (++found > 1)
      break;
  }
  return found == 1 ? Edited{0, Over(work, kept), ""} : Edited{-1, file, Over(work, kept)};
}

Edited TrunkUp(const std::string &file, const std::string &work) {
  std::string kept;
  const std::vector<std::string> lines = Lines(file);
  for (size_t i = 1; i < lines.size(); ++i)
    kept += lines[i];
  return {0, Over(work, kept), ""};
}

void CheckEdited(int32_t result, const Edited &expected) {
  FUZZ_EQUAL(result, expected.result);
  FUZZ_EQUAL(Contents(path), expected.file);
  // The work file has taken the other's place.
  FUZZ_EQUAL(access(work_path.c_str(), F_OK), result == 0 ? -1 : 0);
  if (result != 0)
    FUZZ_EQUAL(Contents(work_path), expected.work);
}

void CheckPut(const std::string &file, const std::string &text) {
  FUZZ_EQUAL(KEL_FEdit_Put(path.c_str(), text.c_str()), 0);
  const std::string written = (text + "\n").substr(0, kMostWritten);
  FUZZ_EQUAL(Contents(path), file + written);
}

}  // namespace

// The library opens what it edits with "w+b" and nothing else.
extern "C" {
FILE *__real_fopen64(const char *name, const char *mode);
FILE *__wrap_fopen64(const char *name, const char *mode) {
  return __real_fopen64(name, keep_contents && strcmp(mode, "w+b") == 0 ? "r+b" : mode);
}
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  directory = std::filesystem::temp_directory_path() / "kelcore_edit_XXXXXX";
  FUZZ_CHECK(mkdtemp(directory.data()) != nullptr);
  path = directory + "/file";
  work_path = directory + "/work";
  atexit([] { std::filesystem::remove_all(directory); });
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  const auto choice = input.ConsumeIntegralInRange<int>(0, 2);
  keep_contents = input.ConsumeBool();
  const std::string key = fuzz::Text(input, 200);
  std::string work = input.ConsumeRandomLengthString(600);
  std::string file = input.ConsumeRemainingBytesAsString().substr(0, 2000);
  Write(path, file);
  Write(work_path, work);
  if (!keep_contents)
    file.clear(), work.clear();
  if (choice == 0)
    CheckPut(file, key);
  else if (choice == 1)
    CheckEdited(KEL_FEdit_Del(path.c_str(), work_path.c_str(), key.c_str()),
                Del(file, work, key));
  else
    CheckEdited(KEL_FEdit_TrunkUp(path.c_str(), work_path.c_str()), TrunkUp(file, work));
  return 0;
}
