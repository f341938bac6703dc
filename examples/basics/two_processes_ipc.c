/* Two processes talk over message queues: the parent asks, the child answers.
 *
 * Queues belong to the system and stay until somebody unlinks them, so who made
 * them does that, also when things go wrong. */
#include <kelcore_ipc.h>
#include <kelcore_mem.h>
#include <mqueue.h>
#include <semaphore.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "require.h"

enum { kMessages = 4, kPayload = 64 };

static char questions_name[64], answers_name[64];
static pid_t owner;

static void remove_names(void) {
  if (getpid() != owner) /* the child leaves, too */
    return;
  mq_unlink(questions_name);
  mq_unlink(answers_name);
  sem_unlink(questions_name); /* the senders' semaphores bear the same names */
  sem_unlink(answers_name);
}

/* A message is a header and what follows it. */
struct message {
  KEL_IPC_MSG_HEADER header;
  char text[kPayload];
};

static void send_text(KEL_IPC *queue, const char *text) {
  struct message message = {{0, 0, 0}, ""};
  message.header.length = (int32_t)strlen(text) + 1;
  strncpy(message.text, text, sizeof message.text - 1);
  REQUIRE(KEL_IPCSend(queue, &message, 0, 1000) == 0);
}

static struct message receive(KEL_IPC *queue) {
  struct message message;
  /* A signal does not end it; 10 seconds without a message do (-110). */
  REQUIRE(KEL_IPCReceive(queue, &message, 10000) == 0);
  return message;
}

static void close_queue(KEL_IPC *queue) {
  void *buffer = KEL_IPCGetMsg(queue, NULL);
  KEL_IPCClose(queue);
  KEL_Free(buffer, 0); /* closing leaves the handle's message buffer to us */
}

static void child(void) {
  KEL_IPC *questions = KEL_IPCOpen(questions_name, kMessages, kPayload, 0);
  KEL_IPC *answers = KEL_IPCOpen(answers_name, kMessages, kPayload, 0);
  REQUIRE(questions != NULL && answers != NULL);
  struct message question = receive(questions);
  char answer[kPayload + 16];
  snprintf(answer, sizeof answer, "%.40s? twice!", question.text);
  send_text(answers, answer);
  close_queue(answers);
  close_queue(questions);
}

int main(void) {
  owner = getpid();
  snprintf(questions_name, sizeof questions_name, "/example-questions.%d", (int)owner);
  snprintf(answers_name, sizeof answers_name, "/example-answers.%d", (int)owner);
  atexit(remove_names);

  KEL_IPC *questions = KEL_IPCOpen(questions_name, kMessages, kPayload, 0);
  KEL_IPC *answers = KEL_IPCOpen(answers_name, kMessages, kPayload, 0);
  REQUIRE(questions != NULL && answers != NULL);

  fflush(stdout);
  const pid_t pid = fork();
  REQUIRE(pid != -1);
  if (pid == 0) {
    close_queue(answers);
    close_queue(questions);
    child();
    return 0;
  }
  send_text(questions, "hello");
  printf("the child says: %s\n", receive(answers).text);

  int status = 0;
  REQUIRE(waitpid(pid, &status, 0) == pid && status == 0);
  close_queue(answers);
  close_queue(questions);
  return 0;
}
