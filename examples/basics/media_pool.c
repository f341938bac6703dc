/* A media buffer pool: one writer, two readers that go at their own pace, and
 * frames that are written and read in place. */
#include <kelcore_buffer.h>
#include <string.h>

#include "require.h"

static void write_frame(KEL_BUF *writer, const char *text, uint64_t time_stamp) {
  KEL_BUF_DESC frame = {0};
  REQUIRE(KELBuf_GetWBuf(writer, &frame) == 0); /* where, and frame.room bytes */
  frame.size = (uint32_t)snprintf(frame.data, frame.room, "%s", text) + 1;
  frame.time_stamp = time_stamp;
  REQUIRE(KELBuf_FillWBuf(writer, &frame) == 0);
  /* The writer's handle counts as a reader, too: it is done with the frame. */
  REQUIRE(KELBuf_DelRBuf(writer, &frame) == 0);
}

/* -25 says that there is nothing to read. */
static int read_frame(KEL_BUF *reader, const char *name) {
  KEL_BUF_DESC frame = {0};
  if (KELBuf_GetRBuf(reader, &frame) != 0)
    return 0;
  printf("%s: %s at %u\n", name, (const char *)frame.data, (unsigned)frame.time_stamp);
  REQUIRE(KELBuf_DelRBuf(reader, &frame) == 0);
  return 1;
}

int main(void) {
  KEL_BUF_PARAM parameters = {0};
  parameters.bufsize = 4096;
  parameters.minsize = 512; /* room offered for each frame */
  parameters.number = 8;    /* hold fewer: a full pool reads as an empty one */
  KEL_BUF *writer = KELBuf_Create(&parameters, NULL);
  REQUIRE(writer != NULL);
  KEL_BUF *screen = KELBuf_Create(&parameters, writer);
  KEL_BUF *recorder = KELBuf_Create(&parameters, writer);
  REQUIRE(screen != NULL && recorder != NULL);

  write_frame(writer, "first", 0);
  write_frame(writer, "second", 40);
  while (read_frame(screen, "screen")) {
  }
  KEL_BUF_STATUS status;
  REQUIRE(KELBuf_BufStatus(writer, &status) == 0);
  printf("held for the recorder: %u\n", (unsigned)status.filled);
  while (read_frame(recorder, "recorder")) {
  }
  REQUIRE(KELBuf_BufStatus(writer, &status) == 0);
  printf("held now: %u\n", (unsigned)status.filled);

  KELBuf_Destroy(recorder);
  KELBuf_Destroy(screen);
  KELBuf_Destroy(writer); /* the last handle releases the pool */
  return 0;
}
