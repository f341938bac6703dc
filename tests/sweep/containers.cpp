// Lists, queues, channels, hash tables, rings, readers.

#include <errno.h>
#include <kelcore.h>

#include "operations.h"
#include "recorder.h"

namespace {

void PlainList() {
  KEL_NLIST *list = CALL(KEL_NListCreate);
  if (list == nullptr)
    return;
  for (int i = 0; i < 2; ++i)
    if (KEL_NLIST_NODE *node = CALL(KEL_NList_Node_new_data, list); node != nullptr)
      CALL(KEL_NListAddTail, list, node);
  if (KEL_NLIST_NODE *node = CALL(KEL_NList_Node_new); node != nullptr)
    CALL(KEL_NListAddHead, list, node);
  while (KEL_NLIST_NODE *node = CALL(KEL_NListGetHead, list)) {
    CALL(KEL_NListDel, list, node);
    CALL(KEL_NList_Node_delete, node);
  }
  CALL(KEL_NListDestroy, list);
}

void LockedList() {
  KEL_LIST *list = CALL(KEL_ListCreate);
  if (list == nullptr)
    return;
  for (int i = 0; i < 2; ++i)
    if (KEL_LIST_NODE *node = CALL(KEL_List_Node_new_data, list); node != nullptr)
      CALL(KEL_ListAddTail, list, node);
  if (KEL_LIST_NODE *node = CALL(KEL_List_Node_new); node != nullptr)
    CALL(KEL_ListAddHead, list, node);
  CALL(KEL_ListGetNum, list);
  CALL(KEL_List_GetNthList, list, 1);
  if (KEL_LIST_NODE *head = CALL(KEL_ListGetHead, list); head != nullptr) {
    CALL(KEL_ListGetNext, list, head);
    CALL(KEL_ListMoveToTail, list, head);
  }
  if (KEL_LIST_NODE *tail = CALL(KEL_ListGetTail, list); tail != nullptr)
    if (KEL_LIST_NODE *before = CALL(KEL_ListGetPrev, list, tail); before != nullptr)
      CALL(KEL_ListMove, list, before, tail);
  while (KEL_LIST_NODE *node = CALL(KEL_ListGetHead, list)) {
    CALL(KEL_ListDel, list, node);
    CALL(KEL_List_Node_delete, node);
  }
  CALL(KEL_ListDestroy, list);
}

void UseQueue(KEL_QUEUE *queue) {
  if (queue == nullptr)
    return;
  int item = 0;
  int32_t param = 0;
  for (int i = 0; i < 3; ++i)
    CALL(KEL_QueuePush, queue, &item, i);
  CALL(KEL_QueuePush2Head, queue, &item, 3);
  if (CALL(KEL_QueueGetSize, queue) > 0)
    CALL(KEL_QueuePeek, queue, &param);
  CALL(KEL_QueuePop, queue, &param, 0);
  CALL(KEL_QueuePopTail, queue, &param, 0);
  CALL(KEL_QueuePush2Head, queue, &item, 4);
  CALL(KEL_QueueReset, queue);
  CALL(KEL_QueuePop, queue, &param, 1);
  CALL(KEL_QueuePopTail, queue, &param, 1);
  CALL(KEL_QueuePopRelease, queue);
  CALL(KEL_QueuePop, queue, &param, 1);
  CALL(KEL_QueuePush, queue, &item, 5);
  CALL(KEL_QueueDestroy, queue);
}
void BoundedQueue() {
  UseQueue(CALL(KEL_QueueCreate, "sweep", 4));
}
void UnboundedQueue() {
  UseQueue(CALL(KEL_QueueCreate, "sweep", 0));
}

void Channel() {
  KEL_MSG *channel = CALL(KEL_MsgCreate, 0, 2, 16);
  if (channel == nullptr)
    return;
  KEL_MSG_DESC message = {};
  for (int i = 0; i < 3; ++i)
    CALL(KEL_MsgSend, channel, &message);
  for (int i = 0; i < 5; ++i) {
    KEL_MSG_DESC *got = nullptr;
    CALL(KEL_MsgReceive, channel, &got, 0);
  }
  CALL(KEL_MsgDestroy, channel);
}

void PutAndGet(KEL_HASHMAP *table, const char *key) {
  uint64_t value = 0;
  CALL(KEL_Hashmap_Hash, table, key, 5);
  CALL(KEL_Hashmap_Get, table, key, &value);
}
void HashTable() {
  KEL_HASHMAP *table = CALL(KEL_Hashmap_Create, 16, 0);
  if (table == nullptr)
    return;
  PutAndGet(table, "key");
  CALL(KEL_Hashmap_Del, table, "key");
  PutAndGet(table, "other");
  CALL(KEL_Hashmap_reset, table);
  PutAndGet(table, "third");
  CALL(KEL_Hashmap_DestroyFull, table, nullptr);
}
void HashTableWithKeys() {
  KEL_HASHMAP *table = CALL(KEL_Hashmap_Create, 16, 0);
  if (table == nullptr)
    return;
  PutAndGet(table, "key");
  CALL(KEL_Hashmap_Destroy, table);
}
void GrowingHashTable() {
  KEL_HASHMAP *table = CALL(KEL_Hashmap_Create, 4, 1);
  if (table == nullptr)
    return;
  for (const char *key : {"one", "two", "three", "four", "five"})
    PutAndGet(table, key);
  CALL(KEL_Hashmap_DestroyFull, table, nullptr);
}

void Ring() {
  if (KEL_RING *ring = CALL(KELRing_Create, 100); ring != nullptr)
    CALL(KELRing_Destroy, ring);
}
void Circular() {
  if (KEL_CIRCULAR *buffer = CALL(KELCircular_Create, 100); buffer != nullptr)
    CALL(KELCircular_Destroy, buffer);
}
void Readers() {
  char data[16] = {};
  KEL_BYTE *byte = CALL(KELByte_Open, data, 8);
  KEL_BIT *bit = CALL(KELBitOpen, data, 8);
  if (byte != nullptr)
    CALL(KELByte_Close, byte);
  if (bit != nullptr)
    CALL(KELBitClose, bit);
}

}  // namespace

std::vector<Operation> ContainerOperations() {
  // Each lock is waited for, and the wait may fail.
  const std::vector<Given> contended = {{"pthread_mutex_trylock", EBUSY}};
  return {
      {.name = "List", .run = PlainList},
      {.name = "ListLocked", .run = LockedList},
      {.name = "ListLockedContended", .run = LockedList, .given = contended},
      {.name = "QueueBounded", .run = BoundedQueue},
      {.name = "QueueBoundedContended", .run = BoundedQueue, .given = contended},
      {.name = "QueueUnbounded", .run = UnboundedQueue},
      {.name = "QueueUnboundedContended", .run = UnboundedQueue, .given = contended},
      {.name = "Channel", .run = Channel},
      {.name = "ChannelContended", .run = Channel, .given = contended},
      {.name = "HashTable", .run = HashTable},
      {.name = "HashTableWithKeys", .run = HashTableWithKeys},
      {.name = "HashTableGrowing", .run = GrowingHashTable},
      {.name = "Ring", .run = Ring},
      {.name = "Circular", .run = Circular},
      {.name = "Readers", .run = Readers},
  };
}
