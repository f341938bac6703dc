/* Media buffer pool: frames in one area, one writer, many readers.
 *
 *     KEL_BUF_PARAM param = {.bufsize = 1 << 20, .minsize = 1 << 16, .number = 64};
 *     KEL_BUF *writer = KELBuf_Create(&param, NULL);
 *     KEL_BUF *reader = KELBuf_Create(&param, writer); // one for each reader
 *
 *     KEL_BUF_DESC d = {0};
 *     if (KELBuf_GetWBuf(writer, &d) == 0) { // where to write, d.room bytes
 *       d.size = fill(d.data, d.room);
 *       if (KELBuf_FillWBuf(writer, &d) == 0) // commit
 *         KELBuf_DelRBuf(writer, &d);         // the writer's own share in the frame
 *     }
 *     if (KELBuf_GetRBuf(reader, &d) == 0) { // the reader's next frame
 *       use(d.data, d.size);
 *       KELBuf_DelRBuf(reader, &d); // done with it
 *     }
 *     KELBuf_Destroy(reader);
 *     KELBuf_Destroy(writer); // the last one frees the area
 *
 * A frame's place is used again once every handle that existed when it was
 * committed has deleted it: the writer's own handle counts, so the writer
 * deletes as well. All calls of one pool are serialised by its lock, without a
 * time limit. Results: 0, -22 invalid argument, -28 no room, -25 nothing to
 * read, -1 not found. Traces under "kelbuffer".
 *
 * Surprises worth knowing:
 *  - A reader that is `number` frames behind reads, and deletes, as one that has
 *    read all: equal read and write positions mean "nothing to read".
 *  - A handle that is destroyed before it deleted its frames leaves them counted as
 *    filled for good; once a later frame was deleted by all, their room is used again.
 *  - KELBuf_GetWBuf always offers minsize bytes, and never a tail of exactly
 *    minsize at the end of the area. A minsize above bufsize is not refused: more
 *    is offered then than the area has.
 *  - Where the write point meets the read point, the whole area counts as free:
 *    frames of exactly minsize (rounded to the alignment) can bring that about
 *    with frames still unread, which later ones then overwrite. Commit less than
 *    minsize, or keep the frames in flight below what the area holds.
 *  - A handle made late counts for earlier frames only what they were committed
 *    with.
 *  - KELBuf_Destroy of the last handle frees the area also when the caller gave
 *    it: it must come from malloc then. A failed creation leaves it alone.
 *
 * Threads: any may make every call; those that share a handle share its read
 * position. Nobody may use a handle that is being destroyed.
 * Blocking: each call waits for the pool's lock; none waits for room or for a
 * frame.
 * Null: refused with -22 (entering or leaving a null lock does nothing);
 * KELBuf_CheckBuf takes no null descriptor. */
#ifndef KELCORE_BUFFER_H
#define KELCORE_BUFFER_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

typedef struct KEL_BUF KEL_BUF;

/* What a pool is made of. */
typedef struct KEL_BUF_PARAM {
  uint32_t bufsize;              /* bytes of the frame area */
  uint32_t minsize;              /* room offered for each frame */
  uint32_t number;               /* most frames held at once */
  uint32_t align;                /* of frame sizes and area; 0 is 1 */
  uint32_t index;                /* stream index */
  uint32_t media;                /* 1, 2 and 3 are in the usage table */
  void *area;                    /* the caller's area, or null */
  void *(*alloc)(uint32_t size); /* both, or neither: area from outside */
  void (*free)(void *area);      /* gives back what alloc gave */
} KEL_BUF_PARAM;

/* A frame: what to write or was read. */
typedef struct KEL_BUF_DESC {
  void *data;          /* where the bytes are, or may be written */
  uint32_t size;       /* bytes of the frame */
  uint32_t room;       /* writing: bytes offered; reading: size again */
  uint64_t time_stamp; /* the writer's; its span is in the status */
  uint64_t second;     /* the writer's own, as are value and further */
  uint32_t value;      /* the writer's own */
  uint32_t index;      /* of the handle that committed it */
  uint32_t further;    /* the writer's own */
} KEL_BUF_DESC;

/* How a pool stands, seen from one handle. */
typedef struct KEL_BUF_STATUS {
  uint32_t bufsize;     /* as created */
  uint32_t minsize;     /* as created */
  uint32_t used;        /* bytes committed less deleted, by this handle */
  uint32_t filled;      /* frames held */
  uint32_t write_index; /* of the next frame to commit */
  uint32_t read_index;  /* of this handle's next frame */
  uint64_t span;        /* newest time stamp less that of the next to read */
  uint32_t index;       /* as created */
  uint32_t media;       /* as created */
} KEL_BUF_STATUS;

/* How full the process's pools were at the last KELBuf_GetWBuf, in percent. */
typedef struct KEL_BUF_USAGE {
  uint32_t media1[16]; /* by stream index */
  uint32_t media2;     /* the pool of media 2 */
  uint32_t media3;     /* the pool of media 3 */
  uint32_t high;       /* 1 when the last percentage computed was above 79 */
} KEL_BUF_USAGE;

/* A new pool, or with `existing` another handle of that pool, with its read
 * position. Owned by the caller until KELBuf_Destroy; null on failure. */
KEL_API KEL_NODISCARD KEL_BUF *KELBuf_Create(const KEL_BUF_PARAM *param, KEL_BUF *existing);

/* Releases the handle, with the last one the pool. Null is traced and ignored. */
KEL_API void KELBuf_Destroy(KEL_BUF *buf);

/* Where the next frame may be written: data and room. Returns 0, -22, -28. */
KEL_API int32_t KELBuf_GetWBuf(KEL_BUF *buf, KEL_BUF_DESC *out);

/* Commits a frame that was written there. Returns 0, -22, -28. */
KEL_API int32_t KELBuf_FillWBuf(KEL_BUF *buf, const KEL_BUF_DESC *desc);

/* This handle's next frame; it stays until deleted. Returns 0, -22, -25. */
KEL_API int32_t KELBuf_GetRBuf(KEL_BUF *buf, KEL_BUF_DESC *out);

/* Is done with this handle's next frame; `desc` is shown in traces and may be
 * null. Returns 0, -22, -25. */
KEL_API int32_t KELBuf_DelRBuf(KEL_BUF *buf, const KEL_BUF_DESC *desc);

/* Makes the frame at `data` this handle's next one. Also finds frames that were
 * deleted, and with null places never used: do not delete those, their count of
 * readers wraps. Returns 0, -22, -1. */
KEL_API int32_t KELBuf_FindRBuf(KEL_BUF *buf, const void *data, KEL_BUF_DESC *out);

/* Fills the record. Returns 0; -22 for null. */
KEL_API int32_t KELBuf_BufStatus(KEL_BUF *buf, KEL_BUF_STATUS *out);

/* The number of handles, unlocked; -22 for null. */
KEL_API int32_t KELBuf_GetBufRefCnt(KEL_BUF *buf);

/* Counts one handle more, unlocked; nothing takes it back but a KELBuf_Destroy of
 * some handle. Returns 0; -22 for null. */
KEL_API int32_t KELBuf_AddBufRefCnt(KEL_BUF *buf);

/* 1 if the descriptor's data is `data`, else 0 with a trace. */
KEL_API int32_t KELBuf_CheckBuf(KEL_BUF *buf, const KEL_BUF_DESC *desc, const void *data);

/* Takes a lock of the callers' own, for longer sections; waits at most 3000
 * ms. Returns 0, also when that was not enough (it is traced). */
KEL_API int32_t KELBuf_LockEnter(KEL_BUF *buf);

/* Leaves that lock. Returns 0. */
KEL_API int32_t KELBuf_LockLeave(KEL_BUF *buf);

/* The process's usage table; never null, unlocked. */
KEL_API const KEL_BUF_USAGE *KELBuf_GetUsage(void);

KEL_END_DECLS

#endif
