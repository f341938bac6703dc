/* Files, directories and disks.
 *
 *     FILE *f = KEL_FileOpen(path, KEL_FILE_MODE_READ);
 *     if (f != NULL) {
 *       uint8_t packet[188];
 *       while (KEL_FileRead(f, packet, sizeof packet) == sizeof packet)
 *         use(packet);
 *       KEL_FileClose(f);
 *     }
 *
 * A file handle is the C library's stream itself. Failures are traced
 * under "kelfile", results are the C library's own, and errno is what the
 * failing call left.
 *
 * Threads: a stream or directory handle belongs to one thread at a time; calls by
 * path are safe from any.
 * Blocking: as the file system does.
 * Null: a null stream or directory gives the call's failure value; paths and
 * buffers must not be null. */
#ifndef KELCORE_FILE_H
#define KELCORE_FILE_H

#include <stdio.h>

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* Open modes, to be combined. */
#define KEL_FILE_MODE_CREATE 0x00000001u /* may be made */
#define KEL_FILE_MODE_READ 0x00000002u   /* for reading */
#define KEL_FILE_MODE_WRITE 0x00000004u  /* for writing */
#define KEL_FILE_MODE_RDWR 0x00000008u   /* for both */
#define KEL_FILE_MODE_APPEND 0x00000010u /* writing goes to the end */
#define KEL_FILE_MODE_TEXT 0xF0000000u   /* any of these four bits */

typedef struct KEL_DIR KEL_DIR;

/* What is known of a file by its path. */
typedef struct KEL_FILE_ATTR {
  uint8_t is_dir; /* 1 for a directory, else 0 */
  uint64_t atime; /* last access, seconds since the epoch */
  uint64_t size;  /* bytes */
} KEL_FILE_ATTR;

/* Opens a file. What decides, in this order (TEXT in brackets):
 *   CREATE  RDWR  more bits         the file is opened
 *   no      yes   any               "r+b" ["r+"]: must exist
 *   no      no    READ              "rb" ["r"]
 *   no      no    WRITE             "wb" ["w"]: created or emptied
 *   yes     yes   READ or APPEND    "r+b", or "w+b" if that fails: kept or made,
 *                                   but emptied when only the first opening failed
 *   yes     yes   neither           "w+b" ["wt": write-only]: created or emptied
 *   yes     no    READ              "rb": must exist
 *   yes     no    WRITE and APPEND  "ab"
 *   yes     no    WRITE             "wb" ["wt"]: created or emptied
 * Anything else is an invalid mode. Returns the stream, to be closed with
 * KEL_FileClose, or null. */
KEL_API KEL_NODISCARD FILE *KEL_FileOpen(const char *path, uint32_t mode);

/* Closes the stream; it is gone also when closing reports an error. */
KEL_API void KEL_FileClose(FILE *file);

/* Moves to `offset` bytes from the current position (whence 1), the end (2)
 * or the start (any other). Returns 0 or -1. */
KEL_API int32_t KEL_FileSeek(FILE *file, int64_t offset, int32_t whence);

/* The position in bytes, or -1. */
KEL_API int64_t KEL_FileTell(FILE *file);

/* Reads or writes up to `count` bytes; returns how many. Fewer than asked at
 * the end of the file or on an error, which only the traces (reading: ERROR
 * for nothing at all, also where `count` is 0, INFO for a part) and ferror()
 * tell apart. */
KEL_API uint64_t KEL_FileRead(FILE *file, void *buffer, uint64_t count);
KEL_API uint64_t KEL_FileWrite(FILE *file, const void *buffer, uint64_t count);

/* The next character, or -1 at the end. */
KEL_API int32_t KEL_FileReadChar(FILE *file);

/* A line of at most size - 1 characters with its line end, zero-terminated, in
 * `buffer`, which is returned; null at the end. */
KEL_API char *KEL_FileReadLine(FILE *file, char *buffer, int32_t size);

/* Writes a text. Returns a non-negative number, or -1. */
KEL_API int32_t KEL_FileTextWrite(FILE *file, const char *text);

/* The size in bytes, found by seeking and coming back; all ones when the
 * stream cannot be measured, as a pipe cannot. */
KEL_API uint64_t KEL_FileSize(FILE *file);

/* Cuts or extends an open file. What the stream still holds in its buffer is
 * written later, and may extend the file again: flush before. Returns 0 or -1. */
KEL_API int32_t KEL_FileTruncate(FILE *file, int64_t length);

/* Writes buffers out and waits for the storage. Returns 0, or non-zero. */
KEL_API int32_t KEL_FileSync(FILE *file);

/* Opens a directory for reading. Returns a handle, owned by the caller until
 * KEL_FileCloseDir; null on failure. */
KEL_API KEL_NODISCARD KEL_DIR *KEL_FileOpenDir(const char *path);

/* Closes and releases the handle. Returns closedir's result; -1 for null. */
KEL_API int32_t KEL_FileCloseDir(KEL_DIR *dir);

/* The next entry's name ("." and ".." among them), valid until the next call;
 * null at the end or for null. */
KEL_API const char *KEL_FileReadDir(KEL_DIR *dir);

/* Starts over with the first entry. */
KEL_API void KEL_FileResetDir(KEL_DIR *dir);

/* All bytes of the file system that holds `path`; 0 when it cannot be asked. */
KEL_API uint64_t KEL_GetDiskSize(const char *path);

/* The bytes of it that are free for unprivileged users; 0 when it cannot be
 * asked. */
KEL_API uint64_t KEL_GetFreeDiskSpace(const char *path);

/* Fills the record (the time is the last access). Returns 0; -1 on failure,
 * the record being left as it was. Nothing is traced. */
KEL_API int32_t KEL_GetFileAttr(const char *path, KEL_FILE_ATTR *attr);

/* access(path, mode): 0 exists, 4 readable, 2 writable, 1 executable. Returns
 * 0 if allowed, else -1. Nothing is traced. */
KEL_API int32_t KEL_FileExist(const char *path, int32_t mode);

/* Makes one directory with the permissions 0775 less the umask. Returns 0 or
 * -1. Nothing is traced. */
KEL_API int32_t KEL_MakeDir(const char *path);

/* Cuts or extends a file by name. Returns 0 or -1. Nothing is traced. */
KEL_API int32_t KEL_Truncate(const char *path, int64_t length);

/* Editing small text files in place; one editor of a file at a time. All three
 * calls EMPTY THE FILE FIRST, and programs rely on what follows from it.
 *
 * After Put the file holds `text` and a line end, 127 characters at most, and
 * nothing else. Returns 0 or -1. */
KEL_API int32_t KEL_FEdit_Put(const char *path, const char *text);

/* Leaves `path` and `work_path` empty and returns -1, as no line is left
 * that could begin with `key` (see KEL_FEdit_Put). */
KEL_API int32_t KEL_FEdit_Del(const char *path, const char *work_path, const char *key);

/* Leaves `path` empty and returns 0, `work_path` being renamed to it;
 * -1 when a file cannot be opened or renamed (see KEL_FEdit_Put). */
KEL_API int32_t KEL_FEdit_TrunkUp(const char *path, const char *work_path);

KEL_END_DECLS

#endif
