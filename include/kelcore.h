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

/* Lists, queues and messages */
#include "kelcore_list.h"
#include "kelcore_list_mutex.h"
#include "kelcore_msg.h"
#include "kelcore_queue.h"

/* Memory managers */
#include "kelcore_smem.h"

/* Files and parsing */
#include "kelcore_bit.h"
#include "kelcore_byte.h"
#include "kelcore_file.h"

#endif
