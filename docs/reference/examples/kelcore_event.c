#include <kelcore_event.h>

#include "require.h"

int main(void) {
  /* --- example --- */
  KEL_SEMA *done = KEL_EventCreate(NULL);
  KEL_EventSend(done);                /* the worker */
  if (KEL_EventWait(done, 1000) == 0) /* the controller, for a second at most */
    printf("done\n");
  KEL_EventDestroy(done);
  /* --- */
  return 0;
}
