// A message to the next process and back out, here within one.

#include <mqueue.h>
#include <unistd.h>

#include <string>

#include "job.h"
#include "kelcore.h"

static const std::string name = "/kelcore-bench-" + std::to_string(getpid());
static constexpr int kPayload = 64;

JOB(ipc_send_receive, kelcore) {
  KEL_IPC *ipc = KEL_IPCOpen(name.c_str(), 4, kPayload, 0);
  if (ipc == nullptr) {
    state.SkipWithError("no message queue to be had");
    return;
  }
  struct {
    KEL_IPC_MSG_HEADER header;
    char text[kPayload];
  } message{};
  message.header.length = kPayload;
  for (auto _ : state) {
    KEL_IPCSend(ipc, &message, 0, 0);
    KEL_IPCReceive(ipc, &message, 0);
  }
  void *buffer = KEL_IPCGetMsg(ipc, nullptr);
  KEL_IPCClose(ipc);
  KEL_Free(buffer, 0);
  mq_unlink(name.c_str());
}

JOB(ipc_send_receive, limit_mq) {
  mq_attr attributes{};
  attributes.mq_maxmsg = 4;
  attributes.mq_msgsize = kPayload + 16;
  const mqd_t queue = mq_open(name.c_str(), O_RDWR | O_CREAT, 0600, &attributes);
  if (queue == -1) {
    state.SkipWithError("no message queue to be had");
    return;
  }
  char message[kPayload + 16] = {};
  for (auto _ : state) {
    mq_send(queue, message, sizeof message, 0);
    benchmark::DoNotOptimize(mq_receive(queue, message, sizeof message, nullptr));
  }
  mq_close(queue);
  mq_unlink(name.c_str());
}
