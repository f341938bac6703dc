/* The trace facility: one line per event, filtered by module and level.
 *
 *     KEL_TraceInit(path);                    // lock and optional file
 *     KEL_TraceSet("player:4,keltime:0,*:1"); // who may print how much
 *     KEL_Trace("player", KEL_LEVEL_INFO, "player.c", __LINE__, __func__, "opened %s\n", name);
 *     KEL_TraceDeinit();
 *
 * A line reads "00000012345 INFO :[player] player.c:42 (open) : opened x",
 * the first field being KEL_GetSystemTick() in milliseconds. It goes to
 * standard output (ERROR lines in red), to the trace file and to a callback,
 * whichever are set.
 *
 * Surprises worth knowing:
 *  - With an empty table, the state at start, KEL_Trace prints nothing.
 *  - The first table entry that matches decides, so "*:1" placed before
 *    "player:4" silences the player, and entries after a "*" with a non-zero
 *    level are not even read.
 *  - Formats supply their own line ends.
 *  - A line is cut at 4,095 characters.
 *  - Tracing never changes errno.
 *  - Tracing is no business of a signal handler: it takes a lock and writes to
 *    stdio streams. Timers do it all the same, of expiries that were missed: a
 *    line of theirs that interrupts a line can wait for ever. Programs with timers
 *    put "keltime:0" in front.
 *
 * Threads: any thread may trace, a signal handler may not. Setting up
 * (KEL_TraceInit, KEL_TraceDeinit, KEL_TraceSet, KEL_TraceSetCB) is for one
 * thread while the others are quiet.
 * Blocking: a printed line waits for the trace lock and for the outputs; one that
 * is filtered out never waits.
 * Null: `format` must not be null; for the rest it is told. */
#ifndef KELCORE_TRACE_H
#define KELCORE_TRACE_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* Levels; a higher one is more talkative. Lines of level NONE or below are
 * never printed, levels above TRACE are named like TRACE. */
enum {
  KEL_LEVEL_NONE = 0,  /* silent */
  KEL_LEVEL_ERROR = 1, /* failures */
  KEL_LEVEL_INFO = 2,  /* what happens seldom */
  KEL_LEVEL_DEBUG = 3, /* what happens inside */
  KEL_LEVEL_TRACE = 4  /* each step */
};

/* Receives each printed line, without colour, on the tracing thread and
 * outside the trace lock. The text is valid until ten further lines have been
 * traced. A callback must not trace: its lines would reach itself. */
typedef void (*KEL_TRACE_CALLBACK)(const char *line);

/* Makes the trace lock, opens `path` for writing (emptying it) when it is not
 * null, and makes standard output line-buffered with a 1 MiB buffer. A file
 * that cannot be opened is reported on standard output and tracing goes on
 * without it. Returns 0, or non-zero when the buffering could not be set.
 * Before this call tracing works, but unlocked. Call it once, before other
 * threads trace. */
KEL_API int32_t KEL_TraceInit(const char *path);

/* Destroys the trace lock and closes the trace file. No other thread may be
 * tracing. Tracing afterwards is unlocked, as before KEL_TraceInit. */
KEL_API void KEL_TraceDeinit(void);

/* Replaces the module level table by `text`, a list of module:level pairs
 * separated by commas; the module "*" matches every one. Prints the text and
 * each pair it reads on standard output. At most 20 entries are kept, and a
 * pair is read from at most 127 characters; module names longer than 29
 * characters are cut to 29 (in the last pair only those longer than 31). A
 * negative level counts as 0, a segment without ':' is ignored. "*" with a
 * non-zero level ends the reading and sets the level of KEL_Traces, which no
 * later call takes back. Null is ignored.
 * Takes no lock: configure tracing while the system is quiet. */
KEL_API void KEL_TraceSet(const char *text);

/* Sets the line callback (null for none) and whether lines are echoed to
 * standard output (`echo` non-zero, the state at start). Takes no lock: a line
 * that is being traced may still go to the callback that was set before. */
KEL_API void KEL_TraceSetCB(KEL_TRACE_CALLBACK callback, uint8_t echo);

/* Prints one line if the table admits `level` for `module` (null: "none").
 * `file`, `line` and `func` name the caller's position; `format` and what
 * follows are printf's. Never fails; safe from any thread. */
KEL_API void KEL_Trace(const char *module, int32_t level, const char *file, int32_t line,
                       const char *func, const char *format, ...) KEL_PRINTF(6, 7);

/* Prints bare text on standard output when a "*" entry with a non-zero level
 * has ever been set: no prefix, no module, no history, no file, no callback. */
KEL_API void KEL_Traces(const char *format, ...) KEL_PRINTF(1, 2);

/* Does nothing; kept for programs that call it. */
KEL_API void KEL_TraceColor(void);

/* Prints `length` bytes at `data` on standard output, 16 to a row, with
 * decimal offsets, under a head line that names `file` (not null) and `line`.
 * `data` may be null when `length` is 0. Neither filtered nor written to the
 * trace file; takes no lock, so rows of two threads may mix. */
KEL_API void KEL_Hexdump(const void *data, uint32_t length, const char *file, int32_t line);

KEL_END_DECLS

#endif
