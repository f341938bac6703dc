// The trace facility: filter, history, sinks.

#include "kelcore_trace.h"

#include <ctype.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "internal/errno_guard.h"
#include "internal/relaxed.h"
#include "internal/trace.h"
#include "kelcore_file.h"
#include "kelcore_mutex.h"
#include "kelcore_time.h"

namespace kel {
int32_t trace_ceiling = 0;
}

namespace {

using kel::load_relaxed;
using kel::store_relaxed;

constexpr int kMaxEntries = 20;
constexpr size_t kNameBytes = 32;
constexpr size_t kSegmentMax = 127;  // characters of one module:level pair
constexpr size_t kNameKept = 29;     // what a name that is too long is cut to
constexpr int kHistoryLines = 10;
constexpr size_t kLineBytes = 4096;
constexpr size_t kStdoutBuffer = 0x100000;
constexpr uint32_t kTraceFileMode =
    KEL_FILE_MODE_TEXT | KEL_FILE_MODE_WRITE | KEL_FILE_MODE_CREATE;
constexpr const char kRed[] = "\033[31m";
constexpr const char kPlain[] = "\033[0m";
// All five characters wide, so that columns line up.
constexpr char kLevelNames[][6] = {"NONE ", "ERROR", "INFO ", "DEBUG", "TRACE"};

struct Entry {
  char name[kNameBytes];
  int32_t level;
};

Entry table[kMaxEntries];
int32_t global_level = 0;
char history[kHistoryLines][kLineBytes];
int64_t lines_formatted = 0;

KEL_MUTEX *trace_lock = nullptr;
FILE *trace_file = nullptr;
KEL_TRACE_CALLBACK line_callback = nullptr;
uint8_t echo_stdout = 1;

// What this thread is doing inside the facility. Locking and file writing
// trace their own failures; a line that comes from there must not go back in.
struct Inside {
  bool locking;
  bool writing_file;
};
[[gnu::tls_model("initial-exec")]] thread_local Inside inside;

bool matches(const Entry &entry, const char *module) {
  return strcmp(entry.name, module) == 0 || strcmp(entry.name, "*") == 0;
}

// The first entry that matches decides; a module without one prints nothing.
bool admits(const char *module, int32_t level) {
  for (const Entry &entry : table)
    if (matches(entry, module))
      return level <= load_relaxed(entry.level);
  return false;
}

const char *level_name(int32_t level) {
  return kLevelNames[level < KEL_LEVEL_TRACE ? level : KEL_LEVEL_TRACE];
}

struct Position {
  const char *file;
  int32_t line;
  const char *func;
};

// Writes texts one behind the other, as far as they fit in a line.
class LineWriter {
 public:
  explicit LineWriter(char *line) : begin_(line), at_(line) {}

  LineWriter &operator<<(const char *text) {
    if (text == nullptr)
      text = "(null)";
    return append(text, strlen(text));
  }
  // At least `digits` of them.
  LineWriter &number(uint64_t value, int digits) {
    char text[20];
    char *first = text + sizeof text;
    for (; value != 0 || digits > 0; value /= 10, --digits)
      *--first = static_cast<char>('0' + value % 10);
    return append(first, static_cast<size_t>(text + sizeof text - first));
  }
  // Ends the line; returns its length, kLineBytes when nothing more fits.
  size_t finish() {
    *at_ = '\0';
    const auto length = static_cast<size_t>(at_ - begin_);
    return length < kLineBytes - 1 ? length : kLineBytes;
  }

 private:
  LineWriter &append(const char *text, size_t length) {
    const size_t room = kLineBytes - 1 - static_cast<size_t>(at_ - begin_);
    if (length > room)
      length = room;
    memcpy(at_, text, length);
    at_ += length;
    return *this;
  }

  char *begin_;
  char *at_;
};

// "%011llu %s:[%s] %s:%d (%s) : " by hand: half of what a line costs otherwise.
size_t write_prefix(char *line, uint64_t tick, int32_t level, const char *module,
                    const Position &at) {
  LineWriter writer(line);
  writer.number(tick, 11) << " " << level_name(level) << ":[" << module << "] " << at.file
                          << ":";
  if (at.line < 0)
    writer << "-";
  const auto magnitude = static_cast<uint32_t>(at.line);
  writer.number(at.line < 0 ? 0 - magnitude : magnitude, 1) << " (" << at.func << ") : ";
  return writer.finish();
}

// Filters and, under the lock, begins the line in the next history buffer.
// Returns null when the line is not to be printed.
char *begin_line(const char *module, int32_t level, const Position &at, size_t *length) {
  const bool nested = inside.locking;
  KEL_MUTEX *lock = nested ? nullptr : load_relaxed(trace_lock);
  inside.locking = true;
  const bool locked = lock != nullptr && KEL_MutexLock(lock, KEL_WAIT_FOREVER) == 0;

  char *buffer = nullptr;
  if (admits(module, level)) {
    const int64_t number = __atomic_add_fetch(&lines_formatted, 1, __ATOMIC_SEQ_CST);
    buffer = history[number % kHistoryLines];
    *length = write_prefix(buffer, KEL_GetSystemTick(), level, module, at);
  }

  if (locked)
    KEL_MutexUnLock(lock);
  // Only now: a timer's handler may have come in between and traced.
  inside.locking = nested;
  return buffer;
}

void emit_line(const char *text, int32_t level) {
  if (load_relaxed(echo_stdout) != 0) {
    if (level == KEL_LEVEL_ERROR)
      fprintf(stdout, "%s%s%s", kRed, text, kPlain);
    else
      fprintf(stdout, "%s", text);
  }
  FILE *file = load_relaxed(trace_file);
  if (file != nullptr && !inside.writing_file) {
    inside.writing_file = true;
    KEL_FileTextWrite(file, text);
    inside.writing_file = false;
  }
  if (KEL_TRACE_CALLBACK callback = load_relaxed(line_callback))
    callback(text);
}

// Reads one pair, `length` characters at `segment`. Returns false when it holds
// no colon and so makes no entry. In the last pair a name may use the whole
// field before it is cut.
bool parse_entry(const char *segment, size_t length, bool last, Entry *entry) {
  char pair[kSegmentMax + 1] = {};
  memcpy(pair, segment, length < kSegmentMax ? length : kSegmentMax);
  char *colon = strchr(pair, ':');
  if (colon == nullptr)
    return false;
  *colon = '\0';
  size_t name_length = static_cast<size_t>(colon - pair);
  if (name_length > (last ? kNameBytes - 1 : kNameKept))
    name_length = kNameKept;
  memcpy(entry->name, pair, name_length);
  entry->level = static_cast<int32_t>(strtol(colon + 1, nullptr, 10));
  return true;
}

void update_ceiling() {
  int32_t ceiling = 0;
  for (const Entry &entry : table)
    if (entry.level > ceiling)
      ceiling = entry.level;
  store_relaxed(kel::trace_ceiling, ceiling);
}

void parse_table(const char *text) {
  int used = 0;
  while (used < kMaxEntries) {
    const char *comma = strchr(text, ',');
    const bool last = comma == nullptr;
    Entry &entry = table[used];
    if (parse_entry(text, last ? strlen(text) : static_cast<size_t>(comma - text), last,
                    &entry)) {
      ++used;
      printf("Module:%s Level:%d\n", entry.name, entry.level);
      if (entry.level < 0) {
        entry.level = 0;
      } else if (entry.level != 0 && strcmp(entry.name, "*") == 0) {
        // Nothing after it could ever match.
        store_relaxed(global_level, entry.level);
        return;
      }
    }
    if (last)
      return;
    text = comma + 1;
  }
}

}  // namespace

void KEL_Trace(const char *module, int32_t level, const char *file, int32_t line,
               const char *func, const char *format, ...) {
  if (level <= KEL_LEVEL_NONE || !kel::trace_may_print(level))
    return;
  const kel::ErrnoGuard keep_errno;

  size_t length = 0;
  char *buffer =
      begin_line(module != nullptr ? module : "none", level, {file, line, func}, &length);
  if (buffer == nullptr)
    return;

  if (length < kLineBytes) {
    va_list arguments;
    va_start(arguments, format);
    errno = keep_errno.saved();  // for %m
    vsnprintf(buffer + length, kLineBytes - length, format, arguments);
    va_end(arguments);
  }
  emit_line(buffer, level);
}

void KEL_Traces(const char *format, ...) {
  if (load_relaxed(global_level) <= 0)
    return;
  const kel::ErrnoGuard keep_errno;
  va_list arguments;
  va_start(arguments, format);
  vfprintf(stdout, format, arguments);
  va_end(arguments);
}

int32_t KEL_TraceInit(const char *path) {
  store_relaxed(trace_lock, KEL_MutexCreate());
  if (path != nullptr) {
    FILE *file = KEL_FileOpen(path, kTraceFileMode);
    store_relaxed(trace_file, file);
    if (file == nullptr)
      printf("%s trace file open failed\n", path);
  }
  const int result = setvbuf(stdout, nullptr, _IOLBF, kStdoutBuffer);
  if (result != 0)
    printf("Incorrect type or size of buffer\n");
  return result;
}

void KEL_TraceDeinit(void) {
  // Both are forgotten before they go: closing the file may trace.
  KEL_MUTEX *lock = load_relaxed(trace_lock);
  FILE *file = load_relaxed(trace_file);
  store_relaxed(trace_lock, nullptr);
  store_relaxed(trace_file, nullptr);
  KEL_MutexDestroy(lock);
  if (file != nullptr)
    KEL_FileClose(file);
}

void KEL_TraceSet(const char *text) {
  if (text == nullptr)
    return;
  // Tools look for this line by its position, which is why it is a constant.
  constexpr int kKnownLine = 211;
  printf("%08u %s:%d (%s) : %s\n", kel::low32(KEL_GetSystemTick()), "kelcore_trace", kKnownLine,
         "KEL_TraceSet", text);
  memset(table, 0, sizeof table);
  parse_table(text);
  update_ceiling();
}

void KEL_TraceSetCB(KEL_TRACE_CALLBACK callback, uint8_t echo) {
  store_relaxed(line_callback, callback);
  store_relaxed(echo_stdout, echo);
}

void KEL_TraceColor(void) {}

void KEL_Hexdump(const void *data, uint32_t length, const char *file, int32_t line) {
  constexpr uint32_t kRowBytes = 16;
  const auto *bytes = static_cast<const unsigned char *>(data);
  printf("%s:%d Hex Dump:\n", file, line);
  for (uint64_t offset = 0; offset < length; offset += kRowBytes) {
    // Offset and ": ", three characters and one character a byte, two blanks.
    char row[24 + kRowBytes * 4 + 2];
    char *end = row + sprintf(row, "%03d: ", kel::low32_signed(offset));
    const uint32_t held =
        length - offset < kRowBytes ? static_cast<uint32_t>(length - offset) : kRowBytes;
    for (uint32_t i = 0; i < kRowBytes; ++i)
      end += i < held ? sprintf(end, "%02x ", bytes[offset + i]) : sprintf(end, "   ");
    end += sprintf(end, "  ");
    for (uint32_t i = 0; i < held; ++i)
      *end++ = isprint(bytes[offset + i]) != 0 ? static_cast<char>(bytes[offset + i]) : '.';
    *end = '\0';
    printf("%s\n", row);
  }
}
