// Message queues and shared memory.

#include <errno.h>
#include <kelcore.h>
#include <stdlib.h>
#include <string.h>

#include "names.h"
#include "operations.h"
#include "recorder.h"

namespace {

struct Message {
  KEL_IPC_MSG_HEADER header;
  char text[16];
};
Message SomeMessage() {
  Message message = {};
  message.header.length = 4;
  return message;
}

// Closes, and frees the buffer that the handle leaves.
void CloseIpc(KEL_IPC *ipc) {
  uint32_t size = 0;
  void *buffer = CALL(KEL_IPCGetMsg, ipc, &size);
  CALL(KEL_IPCClose, ipc);
  CALL(free, buffer);
}

void Ipc() {
  KEL_IPC *ipc = CALL(KEL_IPCOpen, SystemName(), 4, 64, 0);
  if (ipc == nullptr)
    return;
  const Message message = SomeMessage();
  char buffer[128];
  for (const uint32_t timeout : {0u, 1u}) {
    CALL(KEL_IPCSend, ipc, &message, 0, timeout);
    // With a time-out whatever happened: there may be nothing to receive.
    CALL(KEL_IPCReceive, ipc, buffer, 1);
  }
  CALL(KEL_IPCReceive, ipc, buffer, 1);
  CloseIpc(ipc);
}
void NonblockingIpc() {
  KEL_IPC *ipc = CALL(KEL_IPCOpen, SystemName(), 2, 64, 1);
  if (ipc == nullptr)
    return;
  const Message message = SomeMessage();
  char buffer[128];
  for (int i = 0; i < 3; ++i)
    CALL(KEL_IPCSend, ipc, &message, 0, 0);
  for (int i = 0; i < 3; ++i)
    CALL(KEL_IPCReceive, ipc, buffer, 0);
  CloseIpc(ipc);
}

void UseCustomIpc(const char *sema_name) {
  KEL_IPC *ipc = CALL(KEL_IPCOpen_CustomMsg, SystemName(), 4, 64, 0, sema_name, 1);
  if (ipc == nullptr)
    return;
  const Message message = SomeMessage();
  char buffer[64];
  CALL(KEL_IPCSend_CustomMsg, ipc, &message, 20, 1);
  CALL(KEL_IPCReceive, ipc, buffer, 1);
  CloseIpc(ipc);
}
void CustomIpc() {
  UseCustomIpc(SemaName());
}
void CustomIpcWithoutTurn() {
  UseCustomIpc(nullptr);
}
void CustomIpcSender() {
  KEL_IPC *sender = CALL(KEL_IPCOpen_CustomMsg, SystemName(), 4, 64, 0, nullptr, 0);
  if (sender != nullptr)
    CloseIpc(sender);
}
// Handles that leave their buffers, as programs do.
void IpcLeavingItsBuffer() {
  KEL_IPC *ipc = CALL(KEL_IPCOpen, SystemName(), 4, 64, 0);
  if (ipc != nullptr)
    CALL(KEL_IPCClose, ipc);
  ipc = CALL(KEL_IPCOpen_CustomMsg, SystemName(), 4, 64, 0, SemaName(), 1);
  if (ipc != nullptr)
    CALL(KEL_IPCClose, ipc);
}

void SimpleIpc() {
  KEL_IPC_MSG *queue = CALL(KEL_IPC_MsgOpen, SystemName(), 4, 64, 1);
  if (queue == nullptr)
    return;
  char buffer[64] = {};
  CALL(KEL_IPC_MsgSend, queue, "text", 4);
  CALL(KEL_IPC_MsgRecv, queue, buffer, sizeof buffer, 1);
  // Without limit only when there is one.
  if (CALL(KEL_IPC_MsgSend, queue, "next", 4) == 0)
    CALL(KEL_IPC_MsgRecv, queue, buffer, sizeof buffer, 0);
  CALL(KEL_IPC_MsgClose, queue);
}
void MissingSimpleIpc() {
  if (KEL_IPC_MSG *queue = CALL(KEL_IPC_MsgOpen, SystemName(), 4, 64, 0); queue != nullptr)
    CALL(KEL_IPC_MsgClose, queue);
}

void *Segment(uint8_t *created) {
  return CALL(KEL_ShmMalloc, SystemName(), 100, created, "sweep", 1, "Segment");
}
void SharedMemory() {
  uint8_t created = 0;
  void *data = Segment(&created);
  if (data == nullptr)
    return;
  memset(data, 1, 100);
  CALL(KEL_ShmFree, data);
}
void ExistingSharedMemory() {
  uint8_t created = 0;
  void *first = Segment(&created);
  void *second = Segment(&created);
  for (void *data : {second, first})
    if (data != nullptr)
      CALL(KEL_ShmFree, data);
}

}  // namespace

std::vector<Operation> ProcessOperations() {
  return {
      {.name = "Ipc", .run = Ipc},
      // More sends than turns: with a turn that is not given back the last one would wait
      // for ever.
      {.name = "IpcNonblocking", .run = NonblockingIpc, .spared = {"sem_post"}},
      // Every message larger than the receiver's room.
      {.name = "IpcOversized", .run = Ipc, .given = {{"mq_timedreceive", EMSGSIZE}}},
      {.name = "IpcCustom", .run = CustomIpc},
      {.name = "IpcCustomWithoutTurn", .run = CustomIpcWithoutTurn},
      {.name = "IpcCustomSender", .run = CustomIpcSender},
      {.name = "IpcLeavingItsBuffer", .run = IpcLeavingItsBuffer},
      {.name = "IpcSimple", .run = SimpleIpc},
      {.name = "IpcSimpleMissing", .run = MissingSimpleIpc},
      {.name = "SharedMemory", .run = SharedMemory},
      {.name = "SharedMemoryExisting", .run = ExistingSharedMemory},
  };
}
