// Events: semaphores that start at 0.

#include "kelcore_event.h"

#include "internal/trace.h"

KEL_TRACE_SOURCE("kelevent", "kelcore_event")

KEL_SEMA *KEL_EventCreate(const char *name) {
  TRACE_TRACE("Enter\n");
  KEL_SEMA *event = KEL_SemaCreate(name, 0);
  TRACE_TRACE("Leave\n");
  return event;
}

int32_t KEL_EventDestroy(KEL_SEMA *event) {
  TRACE_TRACE("Enter\n");
  KEL_SemaDestroy(event);
  TRACE_TRACE("Leave\n");
  return 0;
}

int32_t KEL_EventWait(KEL_SEMA *event, uint32_t timeout) {
  return KEL_SemaGet(event, timeout);
}

int32_t KEL_EventSend(KEL_SEMA *event) {
  return KEL_SemaPut(event);
}

int32_t KEL_EventStatus(KEL_SEMA *event, int32_t *count) {
  return KEL_SemaStatus(event, count);
}
