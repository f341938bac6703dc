#include <kelcore_msg.h>

#include "require.h"

enum { kFrame = 1 };

static int used;

static void use(const KEL_MSG_DESC *message) {
  REQUIRE(message->word == kFrame && message->size == 3);
  ++used;
}

int main(void) {
  char bytes[] = "abc";
  const uint32_t length = 3;
  /* --- example --- */
  KEL_MSG *channel = KEL_MsgCreate(0, 16, 4096);
  KEL_MSG_DESC message = {kFrame, length, bytes}, *got;
  if (channel != NULL) {
    KEL_MsgSend(channel, &message); /* any thread */
    int32_t result;
    do /* 0 says "nothing yet": a new channel does so up to 16 times */
      result = KEL_MsgReceive(channel, &got, 1000);
    while (result == 0);
    if (result == KEL_MSG_RECEIVED)
      use(got);
    KEL_MsgDestroy(channel);
  }
  /* --- */
  REQUIRE(used == 1);
  return 0;
}
