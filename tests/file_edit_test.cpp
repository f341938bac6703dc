// Editing in place. The files are emptied before they are read, so the copying
// steps are reached by opening them another way.

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "faults.h"
#include "kelcore_file.h"
#include "trace_capture.h"

namespace {

namespace fs = std::filesystem;

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelfile", "kelcore_file", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}

class FileEdit : public testing::Test {
 protected:
  FileEdit() {
    std::string pattern = testing::TempDir() + "kelcore_edit_XXXXXX";
    dir = mkdtemp(pattern.data());
    path = dir / "file";
    work = dir / "work";
  }
  ~FileEdit() override {
    faults::ResetAll();
    fs::remove_all(dir);
  }
  static void Write(const fs::path &to, const std::string &text) { std::ofstream(to) << text; }
  static std::string Read(const fs::path &from) {
    std::stringstream text;
    text << std::ifstream(from).rdbuf();
    return text.str();
  }
  // From now on files are opened without being emptied.
  void KeepContents() {
    faults::fopen64.Replace([](const char *name, const char *mode) {
      FILE *file = std::string(mode) == "w+b" ? faults::fopen64.Real(name, "r+b") : nullptr;
      return file != nullptr ? file : faults::fopen64.Real(name, mode);
    });
  }
  // The edit's own lines, without those of the file access underneath.
  Lines Taken(const char *func) {
    Lines lines;
    for (const TraceLine &line : trace.Take("kelfile"))
      if (line.func == func)
        lines.push_back(line);
    return lines;
  }
  int32_t Put(const char *text) { return KEL_FEdit_Put(path.c_str(), text); }
  int32_t Del(const char *key) { return KEL_FEdit_Del(path.c_str(), work.c_str(), key); }
  int32_t TrunkUp() { return KEL_FEdit_TrunkUp(path.c_str(), work.c_str()); }

  fs::path dir, path, work;
  TraceCapture trace{"kelfile:4"};
};

// ---- Put ----

TEST_F(FileEdit, PutMakesAFileOfTheOneLine) {
  EXPECT_EQ(Put("hello"), 0);
  EXPECT_EQ(Read(path), "hello\n");
  EXPECT_EQ(Taken("KEL_FEdit_Put"), Lines{});
}

TEST_F(FileEdit, PutReplacesWhatWasThere) {
  Write(path, "one\ntwo\n");
  EXPECT_EQ(Put("three"), 0);
  EXPECT_EQ(Read(path), "three\n");
}

TEST_F(FileEdit, PutKeeps127Characters) {
  EXPECT_EQ(Put(std::string(126, 'a').c_str()), 0);
  EXPECT_EQ(Read(path), std::string(126, 'a') + "\n");
  EXPECT_EQ(Put(std::string(127, 'b').c_str()), 0);
  EXPECT_EQ(Read(path), std::string(127, 'b'));
  EXPECT_EQ(Put(std::string(200, 'c').c_str()), 0);
  EXPECT_EQ(Read(path), std::string(127, 'c'));
}

TEST_F(FileEdit, PutSynchronisesWhatItWrote) {
  std::string on_disk;
  faults::fsync.Replace([&](int fd) {
    on_disk = Read(path);
    return faults::fsync.Real(fd);
  });
  EXPECT_EQ(Put("line"), 0);
  EXPECT_EQ(on_disk, "line\n");
}

// The line is accepted; that it cannot be stored shows when the file is closed.
TEST_F(FileEdit, PutTellsThatTheDiskIsFull) {
  EXPECT_EQ(KEL_FEdit_Put("/dev/full", "x"), 0);
  EXPECT_EQ(trace.Messages("kelfile", "ERROR"),
            (std::vector<std::string>{"close errno(28), fd(-1)\n"}));
}

TEST_F(FileEdit, ErrnoIsThatOfTheFailureNotOfTheCleanUp) {
  const auto closing = [] {
    faults::fclose.Replace([](FILE *file) {
      faults::fclose.Real(file);
      errno = EIO;
      return EOF;
    });
  };
  closing();
  faults::fputs.Fail(EOF, ENOSPC);
  EXPECT_EQ(Put("x"), -1);
  EXPECT_EQ(errno, ENOSPC);
  faults::ResetAll();
  closing();
  faults::fseek.Fail(-1, ESPIPE);
  EXPECT_EQ(KEL_FEdit_TrunkUp(path.c_str(), work.c_str()), -1);
  EXPECT_EQ(errno, ESPIPE);
  faults::ResetAll();
}

TEST_F(FileEdit, PutFailsWhereItCannotOpenSeekOrWrite) {
  const std::string nowhere = dir / "no" / "file";
  EXPECT_EQ(KEL_FEdit_Put(nowhere.c_str(), "x"), -1);
  EXPECT_EQ(Taken("KEL_FEdit_Put"),
            (Lines{Error("KEL_FEdit_Put", "open failed (" + nowhere + ")\n")}));

  faults::fseek.Fail(-1, EIO);
  EXPECT_EQ(Put("x"), -1);
  faults::fseek.Reset();
  faults::fputs.Fail(EOF, ENOSPC);
  EXPECT_EQ(Put("y"), -1);
  EXPECT_EQ(Taken("KEL_FEdit_Put"),
            (Lines{Error("KEL_FEdit_Put", "data write failed. (x)\n"),
                   Error("KEL_FEdit_Put", "data write failed. (y)\n")}));
}

// ---- Both that use a work file ----

TEST_F(FileEdit, DelEmptiesBothAndFails) {
  Write(path, "key one\nother\n");
  EXPECT_EQ(Del("key"), -1);
  EXPECT_EQ(Taken("KEL_FEdit_Del"),
            (Lines{Error("KEL_FEdit_Del", "can not found same data[key]\n")}));
  EXPECT_TRUE(fs::exists(path) && fs::exists(work));
  EXPECT_EQ(Read(path) + Read(work), "");
}

TEST_F(FileEdit, TrunkUpEmptiesTheFileAndTakesTheWorkFileAway) {
  Write(path, "one\ntwo\n");
  EXPECT_EQ(TrunkUp(), 0);
  EXPECT_TRUE(fs::exists(path));
  EXPECT_FALSE(fs::exists(work));
  EXPECT_EQ(Read(path), "");
  EXPECT_EQ(Taken("KEL_FEdit_TrunkUp"), Lines{});
}

TEST_F(FileEdit, FilesThatCannotBeOpenedFail) {
  const std::string nowhere = dir / "no" / "file";
  EXPECT_EQ(KEL_FEdit_Del(nowhere.c_str(), work.c_str(), "k"), -1);
  EXPECT_EQ(KEL_FEdit_Del(path.c_str(), nowhere.c_str(), "k"), -1);
  const TraceLine del = Error("KEL_FEdit_Del", "open failed (" + nowhere + ")\n");
  EXPECT_EQ(Taken("KEL_FEdit_Del"), (Lines{del, del}));
  EXPECT_EQ(KEL_FEdit_TrunkUp(nowhere.c_str(), work.c_str()), -1);
  EXPECT_EQ(KEL_FEdit_TrunkUp(path.c_str(), nowhere.c_str()), -1);
  const TraceLine trunk = Error("KEL_FEdit_TrunkUp", "open failed (" + nowhere + ")\n");
  EXPECT_EQ(Taken("KEL_FEdit_TrunkUp"), (Lines{trunk, trunk}));
}

TEST_F(FileEdit, SeeksThatFailCloseWhatWasOpened) {
  for (int failing : {0, 1}) {
    faults::fclose.Replace([](FILE *file) { return faults::fclose.Real(file); });
    faults::fseek.Fail(-1, EIO, failing, 1);
    EXPECT_EQ(Del("k"), -1);
    EXPECT_EQ(faults::fclose.Count(), failing + 1);
    EXPECT_EQ(Taken("KEL_FEdit_Del"), (Lines{Error("KEL_FEdit_Del", "file seek failed\n")}));
    faults::fclose.Replace([](FILE *file) { return faults::fclose.Real(file); });
    faults::fseek.Fail(-1, EIO, failing, 1);
    EXPECT_EQ(TrunkUp(), -1);
    EXPECT_EQ(faults::fclose.Count(), failing + 1);
    EXPECT_EQ(Taken("KEL_FEdit_TrunkUp"),
              (Lines{Error("KEL_FEdit_TrunkUp", "file seek failed\n")}));
  }
}

// ---- The copying steps ----

TEST_F(FileEdit, DelDropsTheOneLineThatBeginsWithTheKey) {
  Write(path, "a=1\nb=2\nc=3\n");
  KeepContents();
  EXPECT_EQ(Del("b="), 0);
  EXPECT_EQ(Read(path), "a=1\nc=3\n");
  EXPECT_FALSE(fs::exists(work));
  EXPECT_EQ(Taken("KEL_FEdit_Del"),
            (Lines{Line("INFO ", "KEL_FEdit_Del", "found same data(b=)\n")}));
}

TEST_F(FileEdit, DelRefusesASecondMatch) {
  Write(path, "b=1\nb=2\n");
  KeepContents();
  EXPECT_EQ(Del("b="), -1);
  EXPECT_EQ(Taken("KEL_FEdit_Del"),
            (Lines{Line("INFO ", "KEL_FEdit_Del", "found same data(b=)\n"),
                   Line("INFO ", "KEL_FEdit_Del", "found same data(b=)\n"),
                   Error("KEL_FEdit_Del", "found same data again\n")}));
  EXPECT_EQ(Read(path), "b=1\nb=2\n");
}

TEST_F(FileEdit, DelWithoutAMatchFails) {
  Write(path, "a\n");
  KeepContents();
  EXPECT_EQ(Del("b"), -1);
  EXPECT_EQ(Taken("KEL_FEdit_Del"),
            (Lines{Error("KEL_FEdit_Del", "can not found same data[b]\n")}));
  EXPECT_EQ(Read(work), "a\n");
}

TEST_F(FileEdit, ANullKeyMatchesEveryLine) {
  Write(path, "only\n");
  KeepContents();
  EXPECT_EQ(Del(nullptr), 0);
  EXPECT_EQ(Read(path), "");
}

TEST_F(FileEdit, LongLinesAreHandledInPieces) {
  const std::string line(300, 'x');
  Write(path, line + "\nkey\n");
  KeepContents();
  EXPECT_EQ(Del("key"), 0);
  EXPECT_EQ(Read(path), line + "\n");
  // A piece has 255 characters: the second one begins with the key here.
  Write(path, std::string(255, 'x') + "key\n");
  EXPECT_EQ(Del("key"), 0);
  EXPECT_EQ(Read(path), std::string(255, 'x'));
}

TEST_F(FileEdit, TrunkUpDropsTheFirstLine) {
  Write(path, "one\ntwo\nthree\n");
  KeepContents();
  EXPECT_EQ(TrunkUp(), 0);
  EXPECT_EQ(Read(path), "two\nthree\n");
  Write(path, "single\n");
  EXPECT_EQ(TrunkUp(), 0);
  EXPECT_EQ(Read(path), "");
}

TEST_F(FileEdit, LinesThatCannotBeWrittenFail) {
  Write(path, "one\ntwo\n");
  KeepContents();
  faults::fputs.Fail(EOF, ENOSPC);
  EXPECT_EQ(Del("k"), -1);
  EXPECT_EQ(TrunkUp(), -1);
  EXPECT_EQ(
      trace.Messages("kelfile", "ERROR"),
      (std::vector<std::string>{"data move failed. (one\n)\n", "data move failed. (two\n)\n"}));
  EXPECT_TRUE(fs::exists(work));
}

TEST_F(FileEdit, ARenameThatFailsIsTraced) {
  faults::rename.Fail(-1, EXDEV);
  EXPECT_EQ(TrunkUp(), -1);
  EXPECT_EQ(Taken("KEL_FEdit_TrunkUp"),
            (Lines{Error("KEL_FEdit_TrunkUp", "file rename failed. (" + work.string() + ")to(" +
                                                  path.string() + ")\n")}));
  EXPECT_TRUE(fs::exists(work));
  Write(path, "k\n");
  KeepContents();
  EXPECT_EQ(Del("k"), -1);
  EXPECT_EQ(Taken("KEL_FEdit_Del").back(),
            Error("KEL_FEdit_Del",
                  "file rename failed. (" + work.string() + ")to(" + path.string() + ")\n"));
}

TEST_F(FileEdit, TheReplacedFileIsOpenedOnceMoreAndSynchronised) {
  std::vector<std::string> modes;
  faults::fopen64.Replace([&](const char *name, const char *mode) {
    modes.emplace_back(mode);
    return faults::fopen64.Real(name, mode);
  });
  faults::fsync.Replace([](int fd) { return faults::fsync.Real(fd); });
  EXPECT_EQ(TrunkUp(), 0);
  EXPECT_EQ(modes, (std::vector<std::string>{"w+b", "w+b", "r+b"}));
  EXPECT_EQ(faults::fsync.Count(), 1);
  faults::fopen64.Fail(nullptr, EACCES, 2);
  EXPECT_EQ(TrunkUp(), -1);
  EXPECT_EQ(Taken("KEL_FEdit_TrunkUp"),
            (Lines{Error("KEL_FEdit_TrunkUp", "open failed (" + path.string() + ")\n")}));
}

// ---- What is closed, in which order, and what errno tells ----

struct Counted {
  const char *what;
  std::function<void()> fail;
  int error;
  bool keep_contents;
  int closed_by_del, closed_by_trunk;
};
void PrintTo(const Counted &counted, std::ostream *out) {
  *out << counted.what;
}

class FileEditFailure : public FileEdit, public testing::WithParamInterface<Counted> {
 protected:
  // Counts the files open through the library.
  void Arm(const Counted &counted) {
    Write(path, "one\ntwo\n");
    if (counted.keep_contents)
      KeepContents();
    counted.fail();
    faults::fclose.Replace([](FILE *file) {
      const int result = faults::fclose.Real(file);
      errno = EIO;
      return result;
    });
    errno = 0;
  }
};

TEST_P(FileEditFailure, ClosesWhatIsOpenAndKeepsErrno) {
  const Counted &counted = GetParam();
  Arm(counted);
  EXPECT_EQ(Del("one"), -1);
  EXPECT_EQ(errno, counted.error);
  EXPECT_EQ(faults::fclose.Count(), counted.closed_by_del);
  faults::ResetAll();
  Arm(counted);
  EXPECT_EQ(TrunkUp(), -1);
  EXPECT_EQ(errno, counted.error);
  EXPECT_EQ(faults::fclose.Count(), counted.closed_by_trunk);
}

void FailOpen(int which, int error) {
  faults::fopen64.Fail(nullptr, error, which, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Step, FileEditFailure,
    testing::Values(
        Counted{"the file", [] { FailOpen(0, ENOENT); }, ENOENT, false, 0, 0},
        Counted{"the work file", [] { FailOpen(1, ENOENT); }, ENOENT, false, 1, 1},
        Counted{"the first seek", [] { faults::fseek.Fail(-1, ESPIPE, 0, 1); }, ESPIPE, false,
                1, 1},
        Counted{"the second seek", [] { faults::fseek.Fail(-1, ESPIPE, 1, 1); }, ESPIPE, false,
                2, 2},
        Counted{"a line", [] { faults::fputs.Fail(EOF, ENOSPC); }, ENOSPC, true, 2, 2},
        Counted{"the rename", [] { faults::rename.Fail(-1, EXDEV); }, EXDEV, true, 2, 2}));

TEST_F(FileEdit, DelClosesBothWhereNoneOrTwoMatch) {
  for (const char *key : {"none", "b"}) {
    faults::ResetAll();
    Write(path, "b1\nb2\n");
    KeepContents();
    faults::fclose.Replace([](FILE *file) { return faults::fclose.Real(file); });
    EXPECT_EQ(Del(key), -1);
    EXPECT_EQ(faults::fclose.Count(), 2) << key;
  }
}

TEST_F(FileEdit, PutClosesInEveryCase) {
  const auto count = [&](int expected) {
    faults::fclose.Replace([](FILE *file) { return faults::fclose.Real(file); });
    Put("x");
    EXPECT_EQ(faults::fclose.Count(), expected);
    faults::ResetAll();
  };
  count(1);
  faults::fseek.Fail(-1, ESPIPE);
  count(1);
  faults::fputs.Fail(EOF, ENOSPC);
  count(1);
  faults::fopen64.Fail(nullptr, EACCES);
  count(0);
  faults::fopen64.Fail(nullptr, EACCES);
  EXPECT_EQ(Put("x"), -1);
  EXPECT_EQ(errno, EACCES);
}

TEST_F(FileEdit, BothAreClosedBeforeTheOneReplacesTheOther) {
  const std::vector<std::string> expected = {"fclose",  "fclose", "rename",
                                             "fopen64", "fsync",  "fclose"};
  const auto log_of = [&](auto &&edit) {
    Write(path, "one\n");
    KeepContents();
    faults::Record();
    edit();
    std::vector<std::string> log = faults::Log(), kept;
    for (const std::string &name : log)
      if (std::find(expected.begin(), expected.end(), name) != expected.end())
        kept.push_back(name);
    kept.erase(kept.begin(), kept.begin() + 2);  // the two opened first
    return kept;
  };
  EXPECT_EQ(log_of([&] { EXPECT_EQ(Del("one"), 0); }), expected);
  EXPECT_EQ(log_of([&] { EXPECT_EQ(TrunkUp(), 0); }), expected);
}

TEST_F(FileEdit, TheReplacedFileThatCannotBeOpenedIsToldWithItsErrno) {
  for (const bool del : {true, false}) {
    Write(path, "one\n");
    int opened = 0;
    faults::fopen64.Replace([&](const char *name, const char *mode) -> FILE * {
      if (++opened == 3) {
        errno = EACCES;
        return nullptr;
      }
      return faults::fopen64.Real(name,
                                  std::string(mode) == "w+b" && opened == 1 ? "r+b" : mode);
    });
    EXPECT_EQ(del ? Del("one") : TrunkUp(), -1);
    EXPECT_EQ(errno, EACCES);
    const char *func = del ? "KEL_FEdit_Del" : "KEL_FEdit_TrunkUp";
    EXPECT_EQ(Taken(func).back(), Error(func, "open failed (" + path.string() + ")\n"));
    faults::ResetAll();
  }
}

}  // namespace
