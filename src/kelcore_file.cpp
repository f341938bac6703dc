// Files, directories and disks over the C library's streams, and the editing of
// small text files in place.

#include "kelcore_file.h"

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include "internal/alloc.h"
#include "internal/errno_guard.h"
#include "internal/trace.h"
#include "kelcore_string.h"

KEL_TRACE_SOURCE("kelfile", "kelcore_file")

static_assert(sizeof(long) == sizeof(int64_t), "fseek and ftell must take 64-bit offsets");

struct KEL_DIR {
  DIR *stream;
  void *buffer;  // reserved for callers of the future; freed with the handle
};

namespace {

constexpr const char kOpen[] = "KEL_FileOpen";

bool has(uint32_t mode, uint32_t flags) {
  return (mode & flags) != 0;
}

// Asking must not disturb the errno that the message shows: a stream over
// memory has no descriptor and says so.
int descriptor(FILE *file) {
  const kel::ErrnoGuard keep_errno;
  return fileno(file);
}

void trace_open_failure(const char *path) {
  TRACE_AS(kOpen, KEL_LEVEL_ERROR, "file(%s) open errno(%d) str(%s)\n", path, errno,
           strerror(errno));
}

void trace_create_failure(const char *path) {
  TRACE_AS(kOpen, KEL_LEVEL_ERROR, "open (%s) errno(%d:%s)\n", path, errno, strerror(errno));
}

FILE *open_or_trace(const char *path, const char *fopen_mode, void (*trace)(const char *)) {
  FILE *file = fopen64(path, fopen_mode);
  if (file == nullptr)
    trace(path);
  return file;
}

FILE *refuse_mode(const char *path, uint32_t mode) {
  TRACE_AS(kOpen, KEL_LEVEL_ERROR, "invalid mode(%d)\n", static_cast<int32_t>(mode));
  trace_open_failure(path);
  return nullptr;
}

FILE *open_existing(const char *path, uint32_t mode) {
  const bool text = has(mode, KEL_FILE_MODE_TEXT);
  const char *fopen_mode = nullptr;
  if (has(mode, KEL_FILE_MODE_RDWR))
    fopen_mode = text ? "r+" : "r+b";
  else if (has(mode, KEL_FILE_MODE_READ))
    fopen_mode = text ? "r" : "rb";
  else if (has(mode, KEL_FILE_MODE_WRITE))
    fopen_mode = text ? "w" : "wb";
  else
    return refuse_mode(path, mode);
  return open_or_trace(path, fopen_mode, trace_open_failure);
}

// Keeps what an existing file holds and makes a missing one.
FILE *open_keeping(const char *path) {
  FILE *file = fopen64(path, "r+b");
  if (file == nullptr)
    return open_or_trace(path, "w+b", trace_create_failure);
  if (fseek(file, 0, SEEK_SET) != 0)
    TRACE_AS(kOpen, KEL_LEVEL_ERROR, "fseek(%X, 0, SEEK_SET) errno(%d:%s) fd(%d)\n",
             kel::low32(file), errno, strerror(errno), descriptor(file));
  return file;
}

FILE *open_creating(const char *path, uint32_t mode) {
  const bool text = has(mode, KEL_FILE_MODE_TEXT);
  if (has(mode, KEL_FILE_MODE_RDWR)) {
    if (has(mode, KEL_FILE_MODE_READ | KEL_FILE_MODE_APPEND))
      return open_keeping(path);
    // As text this is write-only; log writers rely on it.
    return open_or_trace(path, text ? "wt" : "w+b", trace_create_failure);
  }
  // Reading creates nothing, whatever the flag says.
  if (has(mode, KEL_FILE_MODE_READ))
    return open_or_trace(path, "rb", trace_open_failure);
  if (!has(mode, KEL_FILE_MODE_WRITE))
    return refuse_mode(path, mode);
  if (!has(mode, KEL_FILE_MODE_APPEND))
    return open_or_trace(path, text ? "wt" : "wb", trace_create_failure);
  FILE *file = open_or_trace(path, "ab", trace_create_failure);
  if (file != nullptr) {
    // Sets where reading would begin; appended data goes to the end all the same.
    const kel::ErrnoGuard keep_errno;
    fseek(file, 0, SEEK_SET);
  }
  return file;
}

// The C library reports a stream's error only as a flag, so its text is that of
// the flag's value.
const char *stream_error(FILE *file) {
  return strerror(ferror(file));
}

void trace_stream_end(const char *func, int32_t level, FILE *file) {
  TRACE_AS(func, level, "err(%s) errno(%d) ferr(%d) iseof(%d)\n", stream_error(file), errno,
           ferror(file), feof(file));
}

}  // namespace

FILE *KEL_FileOpen(const char *path, uint32_t mode) {
  FILE *file =
      has(mode, KEL_FILE_MODE_CREATE) ? open_creating(path, mode) : open_existing(path, mode);
  if (file != nullptr)
    TRACE_DEBUG("file(%s) open handle(%x)\n", path, kel::low32(file));
  return file;
}

void KEL_FileClose(FILE *file) {
  if (file == nullptr)
    return;
  // The stream is gone either way, and its descriptor with it.
  constexpr int kNoDescriptor = -1;
  if (fclose(file) != 0)
    TRACE_ERROR("close errno(%d), fd(%d)\n", errno, kNoDescriptor);
}

int32_t KEL_FileSeek(FILE *file, int64_t offset, int32_t whence) {
  if (file == nullptr)
    return -1;
  const int from = whence == 1 ? SEEK_CUR : whence == 2 ? SEEK_END : SEEK_SET;
  const int result = fseek(file, offset, from);
  if (result == -1)
    TRACE_ERROR("seek errno(%d), fd(%d)\n", errno, descriptor(file));
  return result;
}

int64_t KEL_FileTell(FILE *file) {
  if (file == nullptr)
    return -1;
  const int64_t position = ftell(file);
  if (position == -1)
    TRACE_ERROR("errno(%d)\n", errno);
  return position;
}

uint64_t KEL_FileRead(FILE *file, void *buffer, uint64_t count) {
  if (file == nullptr)
    return 0;
  const uint64_t done = fread(buffer, 1, count, file);
  if (done == 0 || done < count)
    TRACE_AS(__func__, done == 0 ? KEL_LEVEL_ERROR : KEL_LEVEL_INFO,
             "err(%s) errno(%d) ferr(%d) iseof(%d) toread(%d) != read(%d)\n",
             stream_error(file), errno, ferror(file), feof(file), kel::low32_signed(count),
             kel::low32_signed(done));
  return done;
}

int32_t KEL_FileReadChar(FILE *file) {
  if (file == nullptr)
    return EOF;
  const int character = fgetc(file);
  if (character == EOF)
    trace_stream_end(__func__, KEL_LEVEL_DEBUG, file);
  return character;
}

char *KEL_FileReadLine(FILE *file, char *buffer, int32_t size) {
  if (file == nullptr)
    return nullptr;
  char *line = fgets(buffer, size, file);
  if (line == nullptr)
    trace_stream_end(__func__, KEL_LEVEL_DEBUG, file);
  return line;
}

int32_t KEL_FileTextWrite(FILE *file, const char *text) {
  if (file == nullptr)
    return -1;
  const int result = fputs(text, file);
  if (result == -1)
    trace_stream_end(__func__, KEL_LEVEL_ERROR, file);
  return result;
}

uint64_t KEL_FileWrite(FILE *file, const void *buffer, uint64_t count) {
  if (file == nullptr)
    return 0;
  const uint64_t done = fwrite(buffer, 1, count, file);
  if (done < count)
    TRACE_ERROR("err(%s) fd(%d) errno(%d:%s) ferr(%d) iseof(%d) toWrite(%d) written(%d)\n",
                stream_error(file), descriptor(file), errno, strerror(errno), ferror(file),
                feof(file), kel::low32_signed(count), kel::low32_signed(done));
  return done;
}

uint64_t KEL_FileSize(FILE *file) {
  if (file == nullptr)
    return UINT64_MAX;
  // No step stops the sequence: whatever fails, the position is put back as
  // well as it can be.
  const int64_t before = KEL_FileTell(file);
  if (before == -1)
    TRACE_ERROR("tell err\n");
  if (KEL_FileSeek(file, 0, SEEK_END) != 0)
    TRACE_ERROR("seek end err\n");
  const int64_t size = KEL_FileTell(file);
  if (size == -1)
    TRACE_ERROR("tell err\n");
  if (KEL_FileSeek(file, before, SEEK_SET) != 0)
    TRACE_ERROR("seek set offset(%d) err\n", kel::low32_signed(static_cast<uint64_t>(before)));
  const int64_t after = KEL_FileTell(file);
  if (after == -1)
    TRACE_ERROR("tell err\n");
  if (after != before)
    TRACE_ERROR("errno(%d)\n", errno);
  return static_cast<uint64_t>(size);
}

int32_t KEL_FileTruncate(FILE *file, int64_t length) {
  if (file == nullptr)
    return -1;
  const int result = ftruncate64(descriptor(file), length);
  if (result != 0)
    TRACE_ERROR("size:%d, errno(%d)\n", kel::low32_signed(static_cast<uint64_t>(length)),
                errno);
  return result;
}

int32_t KEL_FileSync(FILE *file) {
  if (file == nullptr)
    return -1;
  // Both always: what did leave the buffer shall reach the storage.
  const int flushed = fflush(file);
  const int synced = fsync(descriptor(file));
  const int result = flushed | synced;
  if (result != 0)
    TRACE_ERROR("fflush + fsync errno(%d)\n", errno);
  return result;
}

KEL_DIR *KEL_FileOpenDir(const char *path) {
  KEL_DIR *dir = KEL_ALLOC(KEL_DIR);
  if (dir == nullptr) {
    TRACE_ERROR("Out of memory\n");
    return nullptr;
  }
  dir->stream = opendir(path);
  if (dir->stream == nullptr) {
    TRACE_ERROR("errno(%d)\n", errno);
    const kel::ErrnoGuard keep_errno;
    KEL_Free(dir, 0);
    return nullptr;
  }
  return dir;
}

int32_t KEL_FileCloseDir(KEL_DIR *dir) {
  if (dir == nullptr)
    return -1;
  const int result = closedir(dir->stream);
  if (result != 0)
    TRACE_ERROR("errno(%d)\n", errno);
  const kel::ErrnoGuard keep_errno;
  KEL_Free(dir->buffer, 0);
  KEL_Free(dir, 0);
  return result;
}

const char *KEL_FileReadDir(KEL_DIR *dir) {
  if (dir == nullptr)
    return nullptr;
  const dirent64 *entry = readdir64(dir->stream);
  return entry != nullptr ? entry->d_name : nullptr;
}

void KEL_FileResetDir(KEL_DIR *dir) {
  if (dir != nullptr)
    rewinddir(dir->stream);
}

uint64_t KEL_GetDiskSize(const char *path) {
  struct statfs64 disk = {};
  statfs64(path, &disk);
  return static_cast<uint64_t>(disk.f_bsize) * disk.f_blocks;
}

uint64_t KEL_GetFreeDiskSpace(const char *path) {
  struct statfs64 disk = {};
  statfs64(path, &disk);
  return static_cast<uint64_t>(disk.f_bsize) * disk.f_bavail;
}

int32_t KEL_GetFileAttr(const char *path, KEL_FILE_ATTR *attr) {
  struct stat64 status;
  const int result = stat64(path, &status);
  if (result == 0) {
    attr->is_dir = S_ISDIR(status.st_mode) ? 1 : 0;
    attr->atime = static_cast<uint64_t>(status.st_atime);
    attr->size = static_cast<uint64_t>(status.st_size);
  }
  return result;
}

int32_t KEL_FileExist(const char *path, int32_t mode) {
  return access(path, mode);
}

int32_t KEL_MakeDir(const char *path) {
  return mkdir(path, 0775);
}

int32_t KEL_Truncate(const char *path, int64_t length) {
  return truncate64(path, length);
}

// ---- Editing in place ----

namespace {

// Opening this way makes or empties a file; the editors are built on that, with
// all that follows: what Del and TrunkUp read is empty by then.
constexpr uint32_t kEditMode = KEL_FILE_MODE_CREATE | KEL_FILE_MODE_RDWR;
constexpr int32_t kWrittenLine = 128;
constexpr int32_t kReadLine = 256;

FILE *edit_open(const char *func, const char *path, uint32_t mode) {
  FILE *file = KEL_FileOpen(path, mode);
  if (file == nullptr)
    TRACE_AS(func, KEL_LEVEL_ERROR, "open failed (%s)\n", path);
  return file;
}

FILE *edit_open_at_start(const char *func, const char *path) {
  FILE *file = edit_open(func, path, kEditMode);
  if (file == nullptr || KEL_FileSeek(file, 0, SEEK_SET) == 0)
    return file;
  TRACE_AS(func, KEL_LEVEL_ERROR, "file seek failed\n");
  const kel::ErrnoGuard keep_errno;
  KEL_FileClose(file);
  return nullptr;
}

// The edited file and the work file that will take its place.
struct Pair {
  const char *func;
  const char *path;
  const char *work_path;
  FILE *file = nullptr;
  FILE *work = nullptr;

  bool open() {
    file = edit_open_at_start(func, path);
    if (file == nullptr)
      return false;
    work = edit_open_at_start(func, work_path);
    if (work == nullptr) {
      const kel::ErrnoGuard keep_errno;
      KEL_FileClose(file);
    }
    return work != nullptr;
  }

  void close() {
    KEL_FileClose(file);
    KEL_FileClose(work);
  }

  bool keep_line(const char *line) {
    if (fputs(line, work) != EOF)
      return true;
    TRACE_AS(func, KEL_LEVEL_ERROR, "data move failed. (%s)\n", line);
    return false;
  }

  int32_t replace() {
    close();
    if (rename(work_path, path) != 0) {
      TRACE_AS(func, KEL_LEVEL_ERROR, "file rename failed. (%s)to(%s)\n", work_path, path);
      return -1;
    }
    FILE *replaced = edit_open(func, path, KEL_FILE_MODE_RDWR);
    if (replaced == nullptr)
      return -1;
    fsync(fileno(replaced));
    KEL_FileClose(replaced);
    return 0;
  }
};

// Copies the lines that do not begin with the key. True when exactly one did.
bool copy_without(Pair &pair, const char *key) {
  const size_t key_length = key != nullptr ? strlen(key) : 0;
  const char *shown_key = key != nullptr ? key : "(null)";
  bool found = false;
  char line[kReadLine] = {};
  while (fgets(line, kReadLine, pair.file) != nullptr) {
    if (key_length != 0 && strncmp(line, key, key_length) != 0) {
      if (!pair.keep_line(line))
        return false;
      continue;
    }
    TRACE_AS(pair.func, KEL_LEVEL_INFO, "found same data(%s)\n", shown_key);
    if (found) {
      TRACE_AS(pair.func, KEL_LEVEL_ERROR, "found same data again\n");
      return false;
    }
    found = true;
  }
  if (!found)
    TRACE_AS(pair.func, KEL_LEVEL_ERROR, "can not found same data[%s]\n", shown_key);
  return found;
}

bool copy_without_first(Pair &pair) {
  char line[kReadLine] = {};
  if (fgets(line, kReadLine, pair.file) == nullptr)
    return true;
  while (fgets(line, kReadLine, pair.file) != nullptr)
    if (!pair.keep_line(line))
      return false;
  return true;
}

}  // namespace

int32_t KEL_FEdit_Put(const char *path, const char *text) {
  FILE *file = edit_open(__func__, path, kEditMode);
  if (file == nullptr)
    return -1;
  char line[kWrittenLine] = {};
  int32_t result = -1;
  if (KEL_FileSeek(file, 0, SEEK_END) == 0) {
    KEL_snprintf(line, kWrittenLine, "%s\n", text);
    if (fputs(line, file) != EOF) {
      // Or there would be nothing to synchronise yet. What it cannot store, the
      // close would have told; it will find nothing left to write.
      if (fflush(file) != 0)
        TRACE_AS("KEL_FileClose", KEL_LEVEL_ERROR, "close errno(%d), fd(%d)\n", errno, -1);
      fsync(fileno(file));
      result = 0;
    }
  }
  if (result == 0) {
    KEL_FileClose(file);
  } else {
    TRACE_ERROR("data write failed. (%s)\n", text);
    const kel::ErrnoGuard keep_errno;
    KEL_FileClose(file);
  }
  return result;
}

int32_t KEL_FEdit_Del(const char *path, const char *work_path, const char *key) {
  Pair pair{__func__, path, work_path};
  if (!pair.open())
    return -1;
  if (!copy_without(pair, key)) {
    const kel::ErrnoGuard keep_errno;
    pair.close();
    return -1;
  }
  return pair.replace();
}

int32_t KEL_FEdit_TrunkUp(const char *path, const char *work_path) {
  Pair pair{__func__, path, work_path};
  if (!pair.open())
    return -1;
  if (!copy_without_first(pair)) {
    const kel::ErrnoGuard keep_errno;
    pair.close();
    return -1;
  }
  return pair.replace();
}
