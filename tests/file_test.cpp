// Files, directories and disks.

#include "kelcore_file.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "trace_capture.h"

namespace {

using Texts = std::vector<std::string>;

constexpr uint32_t kCreate = KEL_FILE_MODE_CREATE;
constexpr uint32_t kRead = KEL_FILE_MODE_READ;
constexpr uint32_t kWrite = KEL_FILE_MODE_WRITE;
constexpr uint32_t kRdwr = KEL_FILE_MODE_RDWR;
constexpr uint32_t kAppend = KEL_FILE_MODE_APPEND;
constexpr uint32_t kText = KEL_FILE_MODE_TEXT;

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelfile", "kelcore_file", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}

// A directory of its own for each test.
class File : public testing::Test {
 protected:
  File() {
    std::string name = testing::TempDir() + "kelfileXXXXXX";
    dir_ = mkdtemp(name.data()) != nullptr ? name : "";
  }
  ~File() override {
    faults::ResetAll();
    if (!dir_.empty())
      std::filesystem::remove_all(dir_);
  }

  std::string Path(const std::string &name = "file") const { return dir_ + "/" + name; }
  std::string Make(const std::string &contents, const std::string &name = "file") const {
    std::ofstream(Path(name), std::ios::binary) << contents;
    return Path(name);
  }
  static std::string Contents(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
  }
  bool Exists(const std::string &path) const { return std::filesystem::exists(path); }

  std::string dir_;
};

// A stream that is closed with the scope.
class Stream {
 public:
  explicit Stream(FILE *file) : file_(file) { EXPECT_NE(file, nullptr); }
  ~Stream() {
    faults::ResetAll();
    if (file_ != nullptr)
      fclose(file_);
  }
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;
  operator FILE *() const { return file_; }
  FILE *Release() { return std::exchange(file_, nullptr); }
  int fd() const { return fileno(file_); }

 private:
  FILE *file_;
};

// The reading end of a pipe: a stream that cannot seek.
class Pipe {
 public:
  explicit Pipe(const std::string &contents = "") {
    EXPECT_EQ(pipe(ends_), 0);
    EXPECT_EQ(write(ends_[1], contents.data(), contents.size()),
              static_cast<ssize_t>(contents.size()));
    close(ends_[1]);
  }
  FILE *Open() const { return fdopen(ends_[0], "r"); }

 private:
  int ends_[2];
};

// ---- The mode table of KEL_FileOpen

struct ModeRow {
  uint32_t mode;
  Texts fopen_modes;  // tried in this order, all of them when every one fails
  bool creates;       // which of the two messages tells a failure
};
const ModeRow kModes[] = {
    // Neither CREATE nor anything that comes before it in the order.
    {kRdwr, {"r+b"}, false},
    {kRdwr | kText, {"r+"}, false},
    {kRdwr | kRead | kWrite | kAppend, {"r+b"}, false},
    {kRdwr | kRead | kWrite | kAppend | kText, {"r+"}, false},
    {kRead, {"rb"}, false},
    {kRead | kText, {"r"}, false},
    {kRead | kWrite, {"rb"}, false},
    {kRead | kAppend, {"rb"}, false},
    {kRead | kWrite | kText, {"r"}, false},
    {kWrite, {"wb"}, false},
    {kWrite | kText, {"w"}, false},
    {kWrite | kAppend, {"wb"}, false},
    // Any one of the top four bits makes it text.
    {kRead | 0x10000000, {"r"}, false},
    {kRead | 0x20000000, {"r"}, false},
    {kRead | 0x40000000, {"r"}, false},
    {kRead | 0x80000000, {"r"}, false},
    // Bits without a meaning have none.
    {kRead | 0x0FFFFFE0, {"rb"}, false},
    // CREATE and RDWR.
    {kCreate | kRdwr | kRead, {"r+b", "w+b"}, true},
    {kCreate | kRdwr | kAppend, {"r+b", "w+b"}, true},
    {kCreate | kRdwr | kRead | kAppend | kWrite, {"r+b", "w+b"}, true},
    {kCreate | kRdwr | kRead | kText, {"r+b", "w+b"}, true},
    {kCreate | kRdwr | kAppend | kText, {"r+b", "w+b"}, true},
    {kCreate | kRdwr, {"w+b"}, true},
    {kCreate | kRdwr | kWrite, {"w+b"}, true},
    {kCreate | kRdwr | kText, {"wt"}, true},
    {kCreate | kRdwr | kWrite | kText, {"wt"}, true},
    // CREATE alone.
    {kCreate | kRead, {"rb"}, false},
    {kCreate | kRead | kText, {"rb"}, false},
    {kCreate | kRead | kWrite | kAppend, {"rb"}, false},
    {kCreate | kWrite | kAppend, {"ab"}, true},
    {kCreate | kWrite | kAppend | kText, {"ab"}, true},
    {kCreate | kWrite, {"wb"}, true},
    {kCreate | kWrite | kText, {"wt"}, true},
};

class OpenMode : public File, public testing::WithParamInterface<ModeRow> {};

TEST_P(OpenMode, OpensWithTheFirstModeOfItsRow) {
  const std::string path = Make("contents");
  Texts tried;
  faults::fopen64.Replace([&](const char *name, const char *mode) {
    EXPECT_EQ(name, path);
    tried.push_back(mode);
    return faults::fopen64.Real(name, mode);
  });
  const Stream stream(KEL_FileOpen(path.c_str(), GetParam().mode));
  EXPECT_EQ(tried, Texts{GetParam().fopen_modes.front()});
}

TEST_P(OpenMode, TracesTheOpenedStreamAtDebug) {
  const std::string path = Make("contents");
  TraceCapture trace;
  const Stream stream(KEL_FileOpen(path.c_str(), GetParam().mode));
  EXPECT_EQ(trace.Take(), (Lines{Line("DEBUG", "KEL_FileOpen",
                                      Format("file(%s) open handle(%x)\n", path.c_str(),
                                             Low32(static_cast<FILE *>(stream))))}));
}

TEST_P(OpenMode, FailureTriesTheWholeRowAndTracesTheLastErrno) {
  TraceCapture trace;
  Texts tried;
  faults::fopen64.Replace([&](const char *, const char *mode) -> FILE * {
    tried.push_back(mode);
    errno = tried.size() == GetParam().fopen_modes.size() ? EACCES : ENOENT;
    return nullptr;
  });
  EXPECT_EQ(KEL_FileOpen("/some/path", GetParam().mode), nullptr);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(tried, GetParam().fopen_modes);
  const char *message = GetParam().creates
                            ? "open (/some/path) errno(13:Permission denied)\n"
                            : "file(/some/path) open errno(13) str(Permission denied)\n";
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_FileOpen", message)}));
}

INSTANTIATE_TEST_SUITE_P(Table, OpenMode, testing::ValuesIn(kModes),
                         [](const testing::TestParamInfo<ModeRow> &test) {
                           return Format("Mode%08x", test.param.mode);
                         });

class InvalidMode : public File, public testing::WithParamInterface<uint32_t> {};

TEST_P(InvalidMode, IsRefusedWithTwoTraces) {
  const std::string path = Path();
  TraceCapture trace;
  errno = ENOSPC;
  EXPECT_EQ(KEL_FileOpen(path.c_str(), GetParam()), nullptr);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(
      trace.Take(),
      (Lines{
          Error("KEL_FileOpen", Format("invalid mode(%d)\n", static_cast<int32_t>(GetParam()))),
          Error("KEL_FileOpen", Format("file(%s) open errno(28) str(No space left on device)\n",
                                       path.c_str()))}));
  EXPECT_FALSE(Exists(path));
}

TEST_P(InvalidMode, OpensNothing) {
  faults::Record();
  EXPECT_EQ(KEL_FileOpen(Path().c_str(), GetParam()), nullptr);
  EXPECT_EQ(faults::fopen64.Count(), 0);
}

INSTANTIATE_TEST_SUITE_P(Table, InvalidMode,
                         testing::Values(0u, kAppend, kText, 0x20u, kText | kAppend, kCreate,
                                         kCreate | kAppend, kCreate | kText));

// ---- What the modes do

TEST_F(File, ModesHaveTheirValues) {
  EXPECT_EQ(kCreate, 0x1u);
  EXPECT_EQ(kRead, 0x2u);
  EXPECT_EQ(kWrite, 0x4u);
  EXPECT_EQ(kRdwr, 0x8u);
  EXPECT_EQ(kAppend, 0x10u);
  EXPECT_EQ(kText, 0xF0000000u);
}

TEST_F(File, CreateAndUpdateMakesAMissingFileEmpty) {
  const Stream stream(KEL_FileOpen(Path().c_str(), kCreate | kRdwr));
  EXPECT_TRUE(Exists(Path()));
  EXPECT_EQ(Contents(Path()), "");
}

TEST_F(File, CreateAndUpdateEmptiesAnExistingFile) {
  const Stream stream(KEL_FileOpen(Make("old").c_str(), kCreate | kRdwr));
  EXPECT_EQ(Contents(Path()), "");
}

TEST_F(File, CreateAndUpdateKeepsContentsWithReadOrAppend) {
  for (uint32_t keep : {kRead, kAppend}) {
    const Stream stream(KEL_FileOpen(Make("old").c_str(), kCreate | kRdwr | keep));
    EXPECT_EQ(KEL_FileWrite(stream, "N", 1), 1u);
    fflush(stream);
    EXPECT_EQ(Contents(Path()), "Nld") << keep;
  }
}

// Whatever kept it from being opened counts as its absence, also when that passes.
TEST_F(File, CreateAndUpdateEmptiesAFileThatCouldNotBeOpenedOnce) {
  faults::fopen64.Fail(nullptr, EMFILE, 0, 1);
  const Stream stream(KEL_FileOpen(Make("old").c_str(), kCreate | kRdwr | kRead));
  EXPECT_NE(static_cast<FILE *>(stream), nullptr);
  EXPECT_EQ(Contents(Path()), "");
}

TEST_F(File, CreateAndUpdateMakesAMissingFileWithReadOrAppend) {
  for (uint32_t keep : {kRead, kAppend}) {
    const std::string path = Path(std::to_string(keep));
    const Stream stream(KEL_FileOpen(path.c_str(), kCreate | kRdwr | keep));
    EXPECT_TRUE(Exists(path)) << keep;
  }
}

TEST_F(File, CreateAndUpdateAsTextIsWriteOnly) {
  const Stream stream(KEL_FileOpen(Path().c_str(), kCreate | kRdwr | kText));
  EXPECT_EQ(fcntl(stream.fd(), F_GETFL) & O_ACCMODE, O_WRONLY);
}

TEST_F(File, CreateWithReadMakesNothing) {
  EXPECT_EQ(KEL_FileOpen(Path().c_str(), kCreate | kRead), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(Exists(Path()));
}

TEST_F(File, UpdateWithoutCreateMakesNothing) {
  EXPECT_EQ(KEL_FileOpen(Path().c_str(), kRdwr), nullptr);
  EXPECT_FALSE(Exists(Path()));
}

TEST_F(File, AppendedDataGoesToTheEnd) {
  {
    const Stream stream(KEL_FileOpen(Make("old").c_str(), kCreate | kWrite | kAppend));
    KEL_FileWrite(stream, "new", 3);
  }
  EXPECT_EQ(Contents(Path()), "oldnew");
}

TEST_F(File, AppendIsFollowedByASeekToTheStart) {
  long offset = -1;
  int whence = -1;
  faults::fseek.Replace([&](FILE *file, long to, int from) {
    offset = to;
    whence = from;
    return faults::fseek.Real(file, to, from);
  });
  const Stream stream(KEL_FileOpen(Make("old").c_str(), kCreate | kWrite | kAppend));
  EXPECT_EQ(faults::fseek.Count(), 1);
  EXPECT_EQ(offset, 0);
  EXPECT_EQ(whence, SEEK_SET);
}

TEST_F(File, AppendIgnoresAFailingSeek) {
  TraceCapture trace;
  faults::fseek.Fail(-1, EINVAL);
  const Stream stream(KEL_FileOpen(Path().c_str(), kCreate | kWrite | kAppend));
  EXPECT_EQ(faults::fseek.Count(), 1);
  EXPECT_EQ(trace.Messages("", "ERROR"), Texts{});
}

TEST_F(File, KeepingContentsSeeksToTheStart) {
  faults::Record();
  const Stream stream(KEL_FileOpen(Make("old").c_str(), kCreate | kRdwr | kRead));
  EXPECT_EQ(faults::fseek.Count(), 1);
}

// The first try that fails is no failure, and is not told.
TEST_F(File, TheFileMadeForKeepingIsToldOnce) {
  TraceCapture trace;
  const Stream stream(KEL_FileOpen(Path().c_str(), kCreate | kRdwr | kRead));
  EXPECT_EQ(trace.Take(), (Lines{Line("DEBUG", "KEL_FileOpen",
                                      Format("file(%s) open handle(%x)\n", Path().c_str(),
                                             Low32(static_cast<FILE *>(stream))))}));
}

TEST_F(File, KeepingContentsReportsAFailingSeekAndGoesOn) {
  TraceCapture trace;
  faults::fseek.Fail(-1, EINVAL);
  const Stream stream(KEL_FileOpen(Make("old").c_str(), kCreate | kRdwr | kRead));
  const unsigned handle = Low32(static_cast<FILE *>(stream));
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileOpen",
                         Format("fseek(%X, 0, SEEK_SET) errno(22:Invalid argument) fd(%d)\n",
                                handle, stream.fd())),
                   Line("DEBUG", "KEL_FileOpen",
                        Format("file(%s) open handle(%x)\n", Path().c_str(), handle))}));
}

TEST_F(File, OtherModesDoNotSeek) {
  for (uint32_t mode : {kRdwr, kRead, kWrite, kCreate | kRdwr, kCreate | kRead,
                        kCreate | kWrite, kCreate | kRdwr | kText}) {
    const std::string path = Make("old");
    faults::fseek.Fail(-1, EINVAL);
    const Stream stream(KEL_FileOpen(path.c_str(), mode));
    EXPECT_EQ(faults::fseek.Count(), 0) << mode;
  }
}

TEST_F(File, AFileThatHadToBeMadeIsNotSeeked) {
  faults::fseek.Fail(-1, EINVAL);
  const Stream stream(KEL_FileOpen(Path().c_str(), kCreate | kRdwr | kRead));
  EXPECT_EQ(faults::fseek.Count(), 0);
}

// ---- Closing

TEST_F(File, CloseWritesTheBufferOut) {
  TraceCapture trace;
  FILE *file = fopen(Path().c_str(), "w");
  fputs("text", file);
  KEL_FileClose(file);
  EXPECT_EQ(Contents(Path()), "text");
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, FailingCloseIsTracedWithoutDescriptor) {
  TraceCapture trace;
  FILE *full = fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  fputs("text", full);
  errno = 0;
  KEL_FileClose(full);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_FileClose", "close errno(28), fd(-1)\n")}));
}

TEST_F(File, CloseClosesTheStreamOnce) {
  FILE *closed = nullptr;
  faults::fclose.Replace([&](FILE *file) {
    closed = file;
    return faults::fclose.Real(file);
  });
  FILE *file = fopen(Make("x").c_str(), "r");
  KEL_FileClose(file);
  EXPECT_EQ(closed, file);
  EXPECT_EQ(faults::fclose.Count(), 1);
}

// ---- Seeking and telling

struct WhenceRow {
  int32_t whence;
  int64_t offset;
  int64_t position;  // of ten bytes, from 4
};

TEST_F(File, SeekKnowsThreeOrigins) {
  const Stream stream(fopen(Make("0123456789").c_str(), "r"));
  for (const WhenceRow &row :
       {WhenceRow{1, 2, 6}, WhenceRow{1, -3, 1}, WhenceRow{2, -1, 9}, WhenceRow{2, 5, 15},
        WhenceRow{0, 7, 7}, WhenceRow{7, 3, 3}, WhenceRow{-1, 8, 8}, WhenceRow{3, 2, 2}}) {
    fseek(stream, 4, SEEK_SET);
    EXPECT_EQ(KEL_FileSeek(stream, row.offset, row.whence), 0);
    EXPECT_EQ(KEL_FileTell(stream), row.position) << row.whence << " " << row.offset;
  }
}

TEST_F(File, SeekTakesOffsetsBeyondThirtyTwoBits) {
  const Stream stream(fopen(Make("").c_str(), "r"));
  EXPECT_EQ(KEL_FileSeek(stream, 0x123456789, 0), 0);
  EXPECT_EQ(KEL_FileTell(stream), 0x123456789);
}

TEST_F(File, SeekTracesNothingWhenItWorks) {
  const Stream stream(fopen(Make("text").c_str(), "r"));
  TraceCapture trace;
  KEL_FileSeek(stream, 2, 0);
  KEL_FileTell(stream);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, FailingSeekIsTraced) {
  const Stream stream(Pipe().Open());
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_FileSeek(stream, 0, 0), -1);
  EXPECT_EQ(errno, ESPIPE);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileSeek", Format("seek errno(29), fd(%d)\n", stream.fd()))}));
}

// Asking a stream over memory for its descriptor sets errno.
TEST_F(File, FailingSeekShowsItsOwnErrnoForAStreamWithoutDescriptor) {
  char memory[4] = {};
  const Stream stream(fmemopen(memory, sizeof memory, "r"));
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_FileSeek(stream, 100, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_FileSeek", "seek errno(22), fd(-1)\n")}));
}

TEST_F(File, FailingTellIsTraced) {
  const Stream stream(Pipe().Open());
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_FileTell(stream), -1);
  EXPECT_EQ(errno, ESPIPE);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_FileTell", "errno(29)\n")}));
}

// ---- Reading

TEST_F(File, ReadGivesTheBytesAskedFor) {
  const Stream stream(fopen(Make(std::string("ab\0cd", 5)).c_str(), "r"));
  TraceCapture trace;
  char buffer[8] = "xxxxxxx";
  EXPECT_EQ(KEL_FileRead(stream, buffer, 4), 4u);
  EXPECT_EQ(std::string(buffer, 5), std::string("ab\0cx", 5));
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, ReadThatFindsNothingIsAnErrorLine) {
  const Stream stream(fopen(Make("").c_str(), "r"));
  TraceCapture trace;
  char buffer[8];
  errno = 0;
  EXPECT_EQ(KEL_FileRead(stream, buffer, 8), 0u);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileRead",
                         "err(Success) errno(0) ferr(0) iseof(1) toread(8) != read(0)\n")}));
}

TEST_F(File, ReadThatFindsLessIsAnInfoLine) {
  const Stream stream(fopen(Make("abc").c_str(), "r"));
  TraceCapture trace;
  char buffer[8];
  errno = 0;
  EXPECT_EQ(KEL_FileRead(stream, buffer, 8), 3u);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("INFO ", "KEL_FileRead",
                        "err(Success) errno(0) ferr(0) iseof(1) toread(8) != read(3)\n")}));
}

TEST_F(File, ReadOfNothingIsAnErrorLineToo) {
  const Stream stream(fopen(Make("abc").c_str(), "r"));
  TraceCapture trace;
  char buffer[1];
  errno = 0;
  EXPECT_EQ(KEL_FileRead(stream, buffer, 0), 0u);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileRead",
                         "err(Success) errno(0) ferr(0) iseof(0) toread(0) != read(0)\n")}));
}

// The text belongs to the stream's error flag, not to errno.
TEST_F(File, FailingReadShowsTheStreamsErrorFlag) {
  const Stream stream(fopen(Path().c_str(), "w"));
  TraceCapture trace;
  char buffer[8];
  errno = 0;
  EXPECT_EQ(KEL_FileRead(stream, buffer, 8), 0u);
  EXPECT_EQ(errno, EBADF);
  const int flag = ferror(stream);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileRead",
                         Format("err(%s) errno(9) ferr(%d) iseof(0) toread(8) != read(0)\n",
                                strerror(flag), flag))}));
}

TEST_F(File, ReadShowsTheLowHalfOfALargeCount) {
  cookie_io_functions_t functions = {};
  functions.read = [](void *, char *, size_t) -> ssize_t { return 0; };
  const Stream stream(fopencookie(nullptr, "r", functions));
  TraceCapture trace;
  char buffer[8];
  errno = 0;
  EXPECT_EQ(KEL_FileRead(stream, buffer, 0x100000005), 0u);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileRead",
                         "err(Success) errno(0) ferr(0) iseof(1) toread(5) != read(0)\n")}));
}

TEST_F(File, ReadCharGivesEveryByteAsPositive) {
  const Stream stream(fopen(Make(std::string("a\0\xFF", 3)).c_str(), "r"));
  TraceCapture trace;
  EXPECT_EQ(KEL_FileReadChar(stream), 'a');
  EXPECT_EQ(KEL_FileReadChar(stream), 0);
  EXPECT_EQ(KEL_FileReadChar(stream), 255);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, ReadCharAtTheEndIsADebugLine) {
  const Stream stream(fopen(Make("").c_str(), "r"));
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_FileReadChar(stream), -1);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("DEBUG", "KEL_FileReadChar", "err(Success) errno(0) ferr(0) iseof(1)\n")}));
}

TEST_F(File, FailingReadCharShowsTheStreamsErrorFlag) {
  const Stream stream(fopen(Path().c_str(), "w"));
  TraceCapture trace;
  EXPECT_EQ(KEL_FileReadChar(stream), -1);
  EXPECT_EQ(errno, EBADF);
  const int flag = ferror(stream);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("DEBUG", "KEL_FileReadChar",
                  Format("err(%s) errno(9) ferr(%d) iseof(0)\n", strerror(flag), flag))}));
}

TEST_F(File, ReadLineGivesTheBufferWithTheLineEnd) {
  const Stream stream(fopen(Make("one\ntwo").c_str(), "r"));
  TraceCapture trace;
  char buffer[16];
  EXPECT_EQ(KEL_FileReadLine(stream, buffer, sizeof buffer), buffer);
  EXPECT_STREQ(buffer, "one\n");
  EXPECT_EQ(KEL_FileReadLine(stream, buffer, sizeof buffer), buffer);
  EXPECT_STREQ(buffer, "two");
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, ReadLineStopsBeforeTheBuffersEnd) {
  const Stream stream(fopen(Make("abcdef\n").c_str(), "r"));
  char buffer[4];
  EXPECT_EQ(KEL_FileReadLine(stream, buffer, sizeof buffer), buffer);
  EXPECT_STREQ(buffer, "abc");
}

TEST_F(File, ReadLineAtTheEndIsADebugLine) {
  const Stream stream(fopen(Make("").c_str(), "r"));
  TraceCapture trace;
  char buffer[4];
  errno = 0;
  EXPECT_EQ(KEL_FileReadLine(stream, buffer, sizeof buffer), nullptr);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("DEBUG", "KEL_FileReadLine", "err(Success) errno(0) ferr(0) iseof(1)\n")}));
}

TEST_F(File, FailingReadLineShowsTheStreamsErrorFlag) {
  const Stream stream(fopen(Path().c_str(), "w"));
  TraceCapture trace;
  char buffer[4];
  EXPECT_EQ(KEL_FileReadLine(stream, buffer, sizeof buffer), nullptr);
  EXPECT_EQ(errno, EBADF);
  const int flag = ferror(stream);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("DEBUG", "KEL_FileReadLine",
                  Format("err(%s) errno(9) ferr(%d) iseof(0)\n", strerror(flag), flag))}));
}

// ---- Writing

TEST_F(File, TextWriteWritesTheTextAlone) {
  TraceCapture trace;
  {
    const Stream stream(fopen(Path().c_str(), "w"));
    EXPECT_GE(KEL_FileTextWrite(stream, "some %s text"), 0);
  }
  EXPECT_EQ(Contents(Path()), "some %s text");
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, TextWriteReturnsWhatFputsReturns) {
  TraceCapture trace;
  const Stream stream(fopen(Path().c_str(), "w"));
  faults::fputs.Replace([](const char *, FILE *) { return 17; });
  EXPECT_EQ(KEL_FileTextWrite(stream, "text"), 17);
  faults::fputs.Replace([](const char *, FILE *) { return -2; });
  EXPECT_EQ(KEL_FileTextWrite(stream, "text"), -2);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, FailingTextWriteIsTraced) {
  const Stream stream(fopen("/dev/full", "w"));
  setvbuf(stream, nullptr, _IONBF, 0);
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_FileTextWrite(stream, "text"), -1);
  EXPECT_EQ(errno, ENOSPC);
  const int flag = ferror(stream);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileTextWrite", Format("err(%s) errno(28) ferr(%d) iseof(0)\n",
                                                     strerror(flag), flag))}));
}

TEST_F(File, WriteWritesTheBytes) {
  TraceCapture trace;
  {
    const Stream stream(fopen(Path().c_str(), "w"));
    EXPECT_EQ(KEL_FileWrite(stream, "ab\0cd", 5), 5u);
  }
  EXPECT_EQ(Contents(Path()), std::string("ab\0cd", 5));
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, WriteOfNothingIsNoFailure) {
  const Stream stream(fopen(Path().c_str(), "w"));
  TraceCapture trace;
  EXPECT_EQ(KEL_FileWrite(stream, "", 0), 0u);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, FailingWriteIsTraced) {
  const Stream stream(fopen("/dev/full", "w"));
  setvbuf(stream, nullptr, _IONBF, 0);
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_FileWrite(stream, "text", 4), 0u);
  EXPECT_EQ(errno, ENOSPC);
  const int flag = ferror(stream);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileWrite",
                         Format("err(%s) fd(%d) errno(28:No space left on device) ferr(%d) "
                                "iseof(0) toWrite(4) written(0)\n",
                                strerror(flag), stream.fd(), flag))}));
}

TEST_F(File, LargeCountsAreShownByTheirLowHalf) {
  const Stream stream(fopen("/dev/null", "w"));
  uint64_t asked = 0;
  faults::fwrite.Replace([&](const void *, size_t, size_t count, FILE *) -> size_t {
    asked = count;
    errno = EFBIG;
    return 0x700000003;
  });
  TraceCapture trace;
  EXPECT_EQ(KEL_FileWrite(stream, "x", 0x800000005), 0x700000003u);
  faults::fwrite.Reset();
  EXPECT_EQ(asked, 0x800000005u);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileWrite",
                         Format("err(Success) fd(%d) errno(27:File too large) ferr(0) "
                                "iseof(0) toWrite(5) written(3)\n",
                                stream.fd()))}));
}

// Takes three bytes in all and has no descriptor.
ssize_t TakeThree(void *cookie, const char *, size_t size) {
  auto *room = static_cast<size_t *>(cookie);
  const size_t taken = std::min(*room, size);
  *room -= taken;
  errno = EFBIG;
  return static_cast<ssize_t>(taken);
}

TEST_F(File, PartialWriteReturnsWhatWasWrittenAndIsTraced) {
  size_t room = 3;
  cookie_io_functions_t functions = {};
  functions.write = TakeThree;
  const Stream stream(fopencookie(&room, "w", functions));
  setvbuf(stream, nullptr, _IONBF, 0);
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_FileWrite(stream, "abcdef", 6), 3u);
  EXPECT_EQ(errno, EFBIG);
  const int flag = ferror(stream);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileWrite",
                         Format("err(%s) fd(-1) errno(27:File too large) ferr(%d) iseof(0) "
                                "toWrite(6) written(3)\n",
                                strerror(flag), flag))}));
}

// ---- Size

TEST_F(File, SizeIsThatOfTheFileAndKeepsThePosition) {
  const Stream stream(fopen(Make("0123456789").c_str(), "r"));
  fseek(stream, 4, SEEK_SET);
  TraceCapture trace;
  EXPECT_EQ(KEL_FileSize(stream), 10u);
  EXPECT_EQ(ftell(stream), 4);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, SizeIsSixtyFourBitsWide) {
  const Stream stream(fopen(Make("").c_str(), "r+"));
  ASSERT_EQ(ftruncate(stream.fd(), 0x123456789), 0);
  EXPECT_EQ(KEL_FileSize(stream), 0x123456789u);
}

TEST_F(File, SizeAsksInItsOrder) {
  const Stream stream(fopen(Make("text").c_str(), "r"));
  faults::Record();
  KEL_FileSize(stream);
  EXPECT_EQ(faults::Log(), (Texts{"ftell", "fseek", "ftell", "fseek", "ftell"}));
}

TEST_F(File, SizeOfAnUnseekableStreamIsAllOnes) {
  const Stream stream(Pipe("data").Open());
  TraceCapture trace;
  EXPECT_EQ(KEL_FileSize(stream), UINT64_MAX);
  const std::string seek_error = Format("seek errno(29), fd(%d)\n", stream.fd());
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileTell", "errno(29)\n"), Error("KEL_FileSize", "tell err\n"),
                   Error("KEL_FileSeek", seek_error), Error("KEL_FileSize", "seek end err\n"),
                   Error("KEL_FileTell", "errno(29)\n"), Error("KEL_FileSize", "tell err\n"),
                   Error("KEL_FileSeek", seek_error),
                   Error("KEL_FileSize", "seek set offset(-1) err\n"),
                   Error("KEL_FileTell", "errno(29)\n"), Error("KEL_FileSize", "tell err\n")}));
  EXPECT_EQ(KEL_FileReadChar(stream), 'd');
}

TEST_F(File, SizeGoesOnWhenTheFirstTellFails) {
  const Stream stream(fopen(Make("text").c_str(), "r"));
  TraceCapture trace;
  faults::ftell.Fail(-1, EIO, 0, 1);
  EXPECT_EQ(KEL_FileSize(stream), 4u);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileTell", "errno(5)\n"), Error("KEL_FileSize", "tell err\n"),
                   Error("KEL_FileSeek", Format("seek errno(22), fd(%d)\n", stream.fd())),
                   Error("KEL_FileSize", "seek set offset(-1) err\n"),
                   Error("KEL_FileSize", "errno(22)\n")}));
}

TEST_F(File, SizeGoesOnWhenTheSeekToTheEndFails) {
  const Stream stream(fopen(Make("text").c_str(), "r"));
  fseek(stream, 3, SEEK_SET);
  TraceCapture trace;
  faults::fseek.Fail(-1, EIO, 0, 1);
  EXPECT_EQ(KEL_FileSize(stream), 3u);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileSeek", Format("seek errno(5), fd(%d)\n", stream.fd())),
                   Error("KEL_FileSize", "seek end err\n")}));
}

TEST_F(File, SizeRestoresThePositionWhenTheSecondTellFails) {
  const Stream stream(fopen(Make("text").c_str(), "r"));
  fseek(stream, 1, SEEK_SET);
  TraceCapture trace;
  faults::ftell.Fail(-1, EIO, 1, 1);
  EXPECT_EQ(KEL_FileSize(stream), UINT64_MAX);
  EXPECT_EQ(ftell(stream), 1);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileTell", "errno(5)\n"), Error("KEL_FileSize", "tell err\n")}));
}

TEST_F(File, SizeReportsAPositionThatCouldNotBeRestored) {
  const Stream stream(fopen(Make("text").c_str(), "r"));
  fseek(stream, 2, SEEK_SET);
  TraceCapture trace;
  faults::fseek.Fail(-1, EIO, 1, 1);
  EXPECT_EQ(KEL_FileSize(stream), 4u);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileSeek", Format("seek errno(5), fd(%d)\n", stream.fd())),
                   Error("KEL_FileSize", "seek set offset(2) err\n"),
                   Error("KEL_FileSize", "errno(5)\n")}));
}

TEST_F(File, SizeReportsAFailingLastTell) {
  const Stream stream(fopen(Make("text").c_str(), "r"));
  TraceCapture trace;
  faults::ftell.Fail(-1, EIO, 2, 1);
  EXPECT_EQ(KEL_FileSize(stream), 4u);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_FileTell", "errno(5)\n"), Error("KEL_FileSize", "tell err\n"),
                   Error("KEL_FileSize", "errno(5)\n")}));
}

TEST_F(File, SizeShowsTheLowHalfOfALargePosition) {
  const Stream stream(fopen(Make("text").c_str(), "r"));
  fseek(stream, 0x100000007, SEEK_SET);
  TraceCapture trace;
  faults::fseek.Fail(-1, EIO, 1, 1);
  KEL_FileSize(stream);
  EXPECT_EQ(trace.Messages()[1], "seek set offset(7) err\n");
}

// ---- Truncating and syncing an open file

TEST_F(File, TruncateCutsAndExtends) {
  const Stream stream(fopen(Make("0123456789").c_str(), "r+"));
  TraceCapture trace;
  EXPECT_EQ(KEL_FileTruncate(stream, 3), 0);
  EXPECT_EQ(Contents(Path()), "012");
  EXPECT_EQ(KEL_FileTruncate(stream, 5), 0);
  EXPECT_EQ(Contents(Path()), std::string("012\0\0", 5));
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, FailingTruncateIsTraced) {
  const Stream stream(fopen(Make("text").c_str(), "r"));
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_FileTruncate(stream, 3), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_FileTruncate", "size:3, errno(22)\n")}));
}

TEST_F(File, TruncateTakesLengthsBeyondThirtyTwoBits) {
  const Stream stream(fopen(Make("text").c_str(), "r+"));
  TraceCapture trace;
  int used = -1;
  off64_t length = 0;
  faults::ftruncate64.Replace([&](int fd, off64_t to) {
    used = fd;
    length = to;
    errno = EFBIG;
    return -1;
  });
  EXPECT_EQ(KEL_FileTruncate(stream, 0x300000007), -1);
  EXPECT_EQ(used, stream.fd());
  EXPECT_EQ(length, 0x300000007);
  EXPECT_EQ(trace.Messages(), Texts{"size:7, errno(27)\n"});
}

TEST_F(File, SyncWritesTheBufferOutAndWaitsForTheStorage) {
  const Stream stream(fopen(Path().c_str(), "w"));
  fputs("text", stream);
  TraceCapture trace;
  int synced = -1;
  faults::fsync.Replace([&](int fd) {
    synced = fd;
    EXPECT_EQ(Contents(Path()), "text");
    return 0;
  });
  EXPECT_EQ(KEL_FileSync(stream), 0);
  EXPECT_EQ(synced, stream.fd());
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, SyncWaitsForTheStorageAlsoWhenFlushingFails) {
  const Stream stream(fopen(Path().c_str(), "w"));
  TraceCapture trace;
  faults::Record();
  faults::fflush.Fail(EOF, ENOSPC);
  EXPECT_EQ(KEL_FileSync(stream), -1);
  EXPECT_EQ(errno, ENOSPC);
  faults::fflush.Reset();
  EXPECT_EQ(faults::fsync.Count(), 1);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_FileSync", "fflush + fsync errno(28)\n")}));
}

TEST_F(File, FailingSyncOfTheStorageIsTraced) {
  const Stream stream(fopen(Path().c_str(), "w"));
  TraceCapture trace;
  faults::fsync.Fail(-1, EIO);
  EXPECT_EQ(KEL_FileSync(stream), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_FileSync", "fflush + fsync errno(5)\n")}));
}

TEST_F(File, SyncOrsTheTwoResults) {
  const Stream stream(fopen(Path().c_str(), "w"));
  faults::fflush.Fail(2, ENOSPC);
  faults::fsync.Fail(4, EIO);
  EXPECT_EQ(KEL_FileSync(stream), 6);
  EXPECT_EQ(errno, EIO);
}

// ---- Null streams

TEST_F(File, NullStreamsGiveTheFailureValue) {
  char buffer[4];
  KEL_FileClose(nullptr);
  EXPECT_EQ(KEL_FileSeek(nullptr, 0, 0), -1);
  EXPECT_EQ(KEL_FileTell(nullptr), -1);
  EXPECT_EQ(KEL_FileRead(nullptr, buffer, 4), 0u);
  EXPECT_EQ(KEL_FileReadChar(nullptr), -1);
  EXPECT_EQ(KEL_FileReadLine(nullptr, buffer, 4), nullptr);
  EXPECT_EQ(KEL_FileTextWrite(nullptr, "text"), -1);
  EXPECT_EQ(KEL_FileWrite(nullptr, "text", 4), 0u);
  EXPECT_EQ(KEL_FileSize(nullptr), UINT64_MAX);
  EXPECT_EQ(KEL_FileTruncate(nullptr, 0), -1);
  EXPECT_NE(KEL_FileSync(nullptr), 0);
  EXPECT_EQ(KEL_FileCloseDir(nullptr), -1);
  EXPECT_EQ(KEL_FileReadDir(nullptr), nullptr);
  KEL_FileResetDir(nullptr);
}

// ---- Directories

// The directory record: the C library's handle, then the reserved buffer.
struct DirRecord {
  DIR *stream;
  void *buffer;
};

TEST_F(File, OpenDirAllocatesItsRecordInItsOwnName) {
  AllocHooks hooks;
  KEL_DIR *dir = KEL_FileOpenDir(dir_.c_str());
  ASSERT_NE(dir, nullptr);
  ASSERT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.adds[0].block, dir);
  EXPECT_EQ(hooks.adds[0].size, sizeof(DirRecord));
  EXPECT_EQ(hooks.adds[0].align, 0u);
  EXPECT_EQ(hooks.adds[0].file, "kelcore_file");
  EXPECT_EQ(hooks.adds[0].func, "KEL_FileOpenDir");
  KEL_FileCloseDir(dir);
}

TEST_F(File, OpenDirAllocatesBeforeItOpens) {
  faults::Record();
  KEL_DIR *dir = KEL_FileOpenDir(dir_.c_str());
  EXPECT_EQ(faults::Log(), (Texts{"malloc", "opendir"}));
  KEL_FileCloseDir(dir);
}

TEST_F(File, DirectoryRecordHoldsTheHandleAndNoBuffer) {
  DIR *opened = nullptr;
  faults::opendir.Replace([&](const char *path) {
    EXPECT_EQ(path, dir_);
    return opened = faults::opendir.Real(path);
  });
  TraceCapture trace;
  KEL_DIR *dir = KEL_FileOpenDir(dir_.c_str());
  ASSERT_NE(dir, nullptr);
  DirRecord record;
  memcpy(&record, dir, sizeof record);
  EXPECT_EQ(record.stream, opened);
  EXPECT_EQ(record.buffer, nullptr);
  EXPECT_EQ(trace.Take(), Lines{});
  KEL_FileCloseDir(dir);
}

TEST_F(File, OpenDirWithoutMemoryGivesNull) {
  TraceCapture trace;
  faults::Record();
  faults::malloc.Fail(nullptr, ENOMEM);
  errno = 0;
  KEL_DIR *dir = KEL_FileOpenDir(dir_.c_str());
  const int error = errno;
  faults::malloc.Reset();
  EXPECT_EQ(dir, nullptr);
  EXPECT_EQ(error, ENOMEM);
  EXPECT_EQ(faults::opendir.Count(), 0);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_FileOpenDir", "Out of memory\n")}));
}

TEST_F(File, OpenDirOfNoDirectoryGivesNullAndKeepsNothing) {
  AllocHooks hooks;
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_FileOpenDir(Path("missing").c_str()), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_FileOpenDir", "errno(2)\n")}));
  EXPECT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.live(), 0);
}

TEST_F(File, ReadDirGivesEveryEntryThenNull) {
  Make("", "one");
  Make("", "two");
  KEL_DIR *dir = KEL_FileOpenDir(dir_.c_str());
  ASSERT_NE(dir, nullptr);
  TraceCapture trace;
  Texts names;
  while (const char *name = KEL_FileReadDir(dir))
    names.push_back(name);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (Texts{".", "..", "one", "two"}));
  EXPECT_EQ(KEL_FileReadDir(dir), nullptr);
  EXPECT_EQ(trace.Take(), Lines{});
  KEL_FileCloseDir(dir);
}

TEST_F(File, ResetDirStartsOver) {
  Make("", "one");
  KEL_DIR *dir = KEL_FileOpenDir(dir_.c_str());
  ASSERT_NE(dir, nullptr);
  Texts first, again;
  while (const char *name = KEL_FileReadDir(dir))
    first.push_back(name);
  KEL_FileResetDir(dir);
  while (const char *name = KEL_FileReadDir(dir))
    again.push_back(name);
  EXPECT_EQ(again, first);
  EXPECT_EQ(again.size(), 3u);
  KEL_FileCloseDir(dir);
}

TEST_F(File, CloseDirClosesAndReleasesTheRecord) {
  AllocHooks hooks;
  KEL_DIR *dir = KEL_FileOpenDir(dir_.c_str());
  TraceCapture trace;
  faults::Record();
  EXPECT_EQ(KEL_FileCloseDir(dir), 0);
  EXPECT_EQ(faults::closedir.Count(), 1);
  ASSERT_EQ(hooks.removes.size(), 1u);
  EXPECT_EQ(hooks.removes[0].block, dir);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, CloseDirReleasesTheReservedBufferToo) {
  KEL_DIR *dir = KEL_FileOpenDir(dir_.c_str());
  ASSERT_NE(dir, nullptr);
  void *buffer = KEL_FileOpenDir(dir_.c_str());
  ASSERT_NE(buffer, nullptr);
  DirRecord record;
  memcpy(&record, buffer, sizeof record);
  closedir(record.stream);  // what remains is a plain block
  memcpy(reinterpret_cast<char *>(dir) + offsetof(DirRecord, buffer), &buffer, sizeof buffer);
  AllocHooks hooks;
  EXPECT_EQ(KEL_FileCloseDir(dir), 0);
  ASSERT_EQ(hooks.removes.size(), 2u);
  EXPECT_EQ(hooks.removes[0].block, buffer);
  EXPECT_EQ(hooks.removes[1].block, dir);
}

TEST_F(File, FailingCloseDirIsTracedAndReleasesAllTheSame) {
  AllocHooks hooks;
  KEL_DIR *dir = KEL_FileOpenDir(dir_.c_str());
  TraceCapture trace;
  faults::closedir.Replace([](DIR *stream) {
    faults::closedir.Real(stream);
    errno = EIO;
    return -1;
  });
  EXPECT_EQ(KEL_FileCloseDir(dir), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_FileCloseDir", "errno(5)\n")}));
  EXPECT_EQ(hooks.live(), 0);
}

// ---- Disks

TEST_F(File, DiskSizeIsBlocksTimesBlockSize) {
  std::string asked;
  faults::statfs64.Replace([&](const char *path, struct statfs64 *out) {
    asked = path;
    out->f_bsize = 4096;
    out->f_blocks = 0x10000001;
    out->f_bfree = 3;
    out->f_bavail = 2;
    return 0;
  });
  EXPECT_EQ(KEL_GetDiskSize("/some/path"), 0x10000001000u);
  EXPECT_EQ(asked, "/some/path");
}

TEST_F(File, FreeDiskSpaceCountsWhatUnprivilegedUsersMayUse) {
  std::string asked;
  faults::statfs64.Replace([&](const char *path, struct statfs64 *out) {
    asked = path;
    out->f_bsize = 4096;
    out->f_blocks = 0x10000001;
    out->f_bfree = 0x10000003;
    out->f_bavail = 0x10000002;
    return 0;
  });
  EXPECT_EQ(KEL_GetFreeDiskSpace("/some/path"), 0x10000002000u);
  EXPECT_EQ(asked, "/some/path");
}

TEST_F(File, DiskSizesOfARealFileSystem) {
  struct statfs64 disk;
  ASSERT_EQ(statfs64(dir_.c_str(), &disk), 0);
  EXPECT_EQ(KEL_GetDiskSize(dir_.c_str()), static_cast<uint64_t>(disk.f_bsize) * disk.f_blocks);
  EXPECT_LE(KEL_GetFreeDiskSpace(dir_.c_str()), KEL_GetDiskSize(dir_.c_str()));
}

TEST_F(File, DiskSizesOfAMissingPathAreZeroAndSilent) {
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_GetDiskSize(Path("missing").c_str()), 0u);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(KEL_GetFreeDiskSpace(Path("missing").c_str()), 0u);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, DiskSizesStartFromAClearedRecord) {
  faults::statfs64.Replace([](const char *, struct statfs64 *out) {
    const struct statfs64 cleared = {};
    EXPECT_EQ(memcmp(out, &cleared, sizeof cleared), 0);
    return -1;
  });
  EXPECT_EQ(KEL_GetDiskSize("/"), 0u);
  EXPECT_EQ(KEL_GetFreeDiskSpace("/"), 0u);
  EXPECT_EQ(faults::statfs64.Count(), 2);
}

TEST_F(File, DiskSizesIgnoreTheResultOfTheCall) {
  faults::statfs64.Replace([](const char *, struct statfs64 *out) {
    out->f_bsize = 512;
    out->f_blocks = 3;
    out->f_bavail = 2;
    return -1;
  });
  EXPECT_EQ(KEL_GetDiskSize("/"), 1536u);
  EXPECT_EQ(KEL_GetFreeDiskSpace("/"), 1024u);
}

// ---- Names

TEST_F(File, AttributesOfAFile) {
  const std::string path = Make("12345");
  const timespec times[] = {{1'000'000'000, 0}, {1'500'000'000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  KEL_FILE_ATTR attr = {9, 9, 9};
  EXPECT_EQ(KEL_GetFileAttr(path.c_str(), &attr), 0);
  EXPECT_EQ(attr.is_dir, 0);
  EXPECT_EQ(attr.atime, 1'000'000'000u);  // the last access, not the last change
  EXPECT_EQ(attr.size, 5u);
}

TEST_F(File, AttributesOfALargeFile) {
  const std::string path = Make("");
  ASSERT_EQ(truncate(path.c_str(), 0x123456789), 0);
  KEL_FILE_ATTR attr;
  EXPECT_EQ(KEL_GetFileAttr(path.c_str(), &attr), 0);
  EXPECT_EQ(attr.size, 0x123456789u);
}

TEST_F(File, AttributesOfADirectory) {
  KEL_FILE_ATTR attr = {9, 9, 9};
  EXPECT_EQ(KEL_GetFileAttr(dir_.c_str(), &attr), 0);
  EXPECT_EQ(attr.is_dir, 1);
}

TEST_F(File, AttributesOfAMissingPathLeaveTheRecordAlone) {
  TraceCapture trace;
  KEL_FILE_ATTR attr = {9, 8, 7};
  errno = 0;
  EXPECT_EQ(KEL_GetFileAttr(Path("missing").c_str(), &attr), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(attr.is_dir, 9);
  EXPECT_EQ(attr.atime, 8u);
  EXPECT_EQ(attr.size, 7u);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, AttributeRecordIsLaidOutInOrder) {
  EXPECT_EQ(offsetof(KEL_FILE_ATTR, is_dir), 0u);
  EXPECT_EQ(offsetof(KEL_FILE_ATTR, atime), 8u);
  EXPECT_EQ(offsetof(KEL_FILE_ATTR, size), 16u);
  EXPECT_EQ(sizeof(KEL_FILE_ATTR), 24u);
}

TEST_F(File, ExistPassesTheAccessModeOn) {
  for (int mode : {0, 4, 2, 1}) {
    std::string asked;
    int asked_mode = -1;
    faults::access.Replace([&](const char *path, int value) {
      asked = path;
      asked_mode = value;
      return 0;
    });
    EXPECT_EQ(KEL_FileExist("/some/path", mode), 0);
    EXPECT_EQ(asked, "/some/path");
    EXPECT_EQ(asked_mode, mode);
  }
}

TEST_F(File, ExistTellsAFileFromNone) {
  TraceCapture trace;
  EXPECT_EQ(KEL_FileExist(Make("").c_str(), 0), 0);
  errno = 0;
  EXPECT_EQ(KEL_FileExist(Path("missing").c_str(), 0), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, MakeDirMakesOneDirectoryWithItsPermissions) {
  mode_t asked = 0;
  faults::mkdir.Replace([&](const char *path, mode_t mode) {
    asked = mode;
    return faults::mkdir.Real(path, mode);
  });
  EXPECT_EQ(KEL_MakeDir(Path("made").c_str()), 0);
  EXPECT_EQ(asked, 0775u);
  EXPECT_TRUE(std::filesystem::is_directory(Path("made")));
}

TEST_F(File, MakeDirMakesNoParents) {
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_MakeDir(Path("a/b").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(Exists(Path("a")));
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(File, MakeDirOfAnExistingOneFails) {
  errno = 0;
  EXPECT_EQ(KEL_MakeDir(dir_.c_str()), -1);
  EXPECT_EQ(errno, EEXIST);
}

TEST_F(File, TruncateByNameCutsAndExtends) {
  const std::string path = Make("0123456789");
  EXPECT_EQ(KEL_Truncate(path.c_str(), 3), 0);
  EXPECT_EQ(Contents(path), "012");
  EXPECT_EQ(KEL_Truncate(path.c_str(), 0x123456789), 0);
  EXPECT_EQ(std::filesystem::file_size(path), 0x123456789u);
}

TEST_F(File, TruncateByNameOfAMissingFileFailsSilently) {
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_Truncate(Path("missing").c_str(), 3), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(trace.Take(), Lines{});
}

}  // namespace
