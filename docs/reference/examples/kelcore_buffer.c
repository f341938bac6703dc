#include <kelcore_buffer.h>
#include <string.h>

#include "require.h"

static int used;

static uint32_t fill(void *data, uint32_t room) {
  REQUIRE(room == 1 << 16);
  memcpy(data, "frame", 6);
  return 6;
}

static void use(const void *data, uint32_t size) {
  REQUIRE(size == 6 && strcmp(data, "frame") == 0);
  ++used;
}

int main(void) {
  /* --- example --- */
  KEL_BUF_PARAM param = {.bufsize = 1 << 20, .minsize = 1 << 16, .number = 64};
  KEL_BUF *writer = KELBuf_Create(&param, NULL);
  KEL_BUF *reader = KELBuf_Create(&param, writer); /* one for each reader */

  KEL_BUF_DESC d = {0};
  if (KELBuf_GetWBuf(writer, &d) == 0) { /* where to write, d.room bytes */
    d.size = fill(d.data, d.room);
    if (KELBuf_FillWBuf(writer, &d) == 0) /* commit */
      KELBuf_DelRBuf(writer, &d);         /* the writer's own share in the frame */
  }
  if (KELBuf_GetRBuf(reader, &d) == 0) { /* the reader's next frame */
    use(d.data, d.size);
    KELBuf_DelRBuf(reader, &d); /* done with it */
  }
  /* --- */
  KEL_BUF_STATUS status;
  REQUIRE(KELBuf_BufStatus(writer, &status) == 0);
  REQUIRE(used == 1 && status.filled == 0 && status.used == 0);
  /* --- example --- */
  KELBuf_Destroy(reader);
  KELBuf_Destroy(writer); /* the last one frees the area */
  /* --- */
  return 0;
}
