/* Umbrella header of libkelcore: everything public. */
#ifndef KELCORE_H
#define KELCORE_H

#include "kelcore_types.h"

/* Core runtime */
#include "kelcore_env.h"
#include "kelcore_mem.h"
#include "kelcore_system.h"
#include "kelcore_time.h"
#include "kelcore_trace.h"

/* Threads and synchronisation */
#include "kelcore_event.h"
#include "kelcore_mutex.h"
#include "kelcore_sema.h"
#include "kelcore_thread.h"
#include "kelcore_threadpool.h"

/* Lists, queues and messages */
#include "kelcore_list.h"
#include "kelcore_list_mutex.h"
#include "kelcore_msg.h"
#include "kelcore_queue.h"

/* Inter-process communication */
#include "kelcore_ipc.h"
#include "kelcore_shm.h"

/* Memory managers */
#include "kelcore_buffer.h"
#include "kelcore_smem.h"
#include "kelcore_virtmem.h"

/* Files and parsing */
#include "kelcore_bit.h"
#include "kelcore_byte.h"
#include "kelcore_file.h"
#include "kelcore_library.h"
#include "kelcore_string.h"

/* Hashing and byte buffers */
#include "kelcore_circular.h"
#include "kelcore_hash.h"
#include "kelcore_ring.h"

#endif
