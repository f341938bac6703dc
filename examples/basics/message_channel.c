/* A message channel: typed messages with a payload, from several senders to one
 * receiver. Only pointers travel, so each message stays where it is until the
 * receiver is done with it; here every sender has its own. */
#include <kelcore_msg.h>
#include <kelcore_thread.h>
#include <string.h>

#include "require.h"

enum { kSenders = 3, kMaxPayload = 32 };

struct sender {
  KEL_MSG *channel;
  KEL_MSG_DESC message;
  char payload[kMaxPayload];
};

static void *send_one(void *argument) {
  struct sender *sender = argument;
  return KEL_MsgSend(sender->channel, &sender->message) == 0 ? sender : NULL;
}

int main(void) {
  KEL_MSG *channel = KEL_MsgCreate(0, kSenders, kMaxPayload);
  REQUIRE(channel != NULL);
  /* A new channel wakes its receiver as often as it has places, without a
   * message. Taken here, so that every receive below brings one. */
  for (int i = 0; i < kSenders; ++i) {
    KEL_MSG_DESC *none = NULL;
    REQUIRE(KEL_MsgReceive(channel, &none, 0) == 0);
  }

  struct sender senders[kSenders];
  KEL_THREAD *threads[kSenders];
  for (int i = 0; i < kSenders; ++i) {
    struct sender *sender = &senders[i];
    sender->channel = channel;
    snprintf(sender->payload, sizeof sender->payload, "from sender %d", i);
    sender->message.word = (uint32_t)i;
    sender->message.data = sender->payload;
    sender->message.size = (uint32_t)strlen(sender->payload) + 1;
    threads[i] = KEL_ThreadCreate("sender", 0, 0, send_one, sender);
    REQUIRE(threads[i] != NULL);
  }

  /* They come in any order. */
  const char *texts[kSenders] = {NULL};
  for (int i = 0; i < kSenders;) {
    KEL_MSG_DESC *message = NULL;
    if (KEL_MsgReceive(channel, &message, KEL_WAIT_FOREVER) != KEL_MSG_RECEIVED)
      continue;
    texts[message->word] = message->data;
    ++i;
  }
  for (int i = 0; i < kSenders; ++i) {
    printf("%s\n", texts[i]);
    KEL_ThreadDelete(threads[i], NULL);
  }
  KEL_MsgDestroy(channel);
  return 0;
}
