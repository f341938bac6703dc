// Allocation wrappers, pool allocator, region heap, media pool.

#include <errno.h>
#include <kelcore.h>
#include <stdlib.h>

#include <vector>

#include "operations.h"
#include "recorder.h"

namespace {

void Blocks() {
  void *plain = CALL(KEL_Malloc, 10, 0, 0, "sweep", 1, "Blocks");
  void *aligned = CALL(KEL_Malloc, 64, 32, 0, "sweep", 1, "Blocks");
  void *many = CALL(KEL_Calloc, 3, 10, 0, "sweep", 1, "Blocks");
  void *outside = CALL(KEL_NonCacheMalloc, 10);
  if (plain != nullptr)
    if (void *larger = CALL(KEL_ReAlloc, plain, 1000); larger != nullptr)
      plain = larger;
  for (void *block : {plain, aligned, many})
    CALL(KEL_Free, block, 0);
  CALL(KEL_NonCacheFree, outside);
}

// ---- Pool allocator ----

constexpr uint32_t kBlock = 64;

std::vector<void *> &PoolBlocks() {
  static std::vector<void *> blocks;
  return blocks;
}
// As one step: a chunk has 4096 blocks.
int32_t TakeBlocks(int32_t most) {
  int32_t taken = 0;
  for (; taken < most; ++taken) {
    void *block = KEL_SMalloc(kBlock);
    if (block == nullptr)
      break;
    const Outside outside;
    PoolBlocks().push_back(block);
  }
  return taken;
}
int32_t FreeBlocks() {
  int32_t result = 0;
  for (void *block : PoolBlocks())
    result |= KEL_SFree(block, kBlock);
  return result;
}

void UsePool(int32_t blocks) {
  if (CALL(KEL_SMalloc_Init) != 0)
    return;
  CALL(KEL_SMalloc_Register, kBlock, "sweep");
  Step("KEL_SMalloc", TakeBlocks, blocks);
  uint32_t reserved = 0, used = 0, left = 0;
  CALL(KEL_SMemStatus, &reserved, &used, &left);
  CALL(KEL_SMalloc_Lock);
  CALL(KEL_SMalloc_UnLock);
  // The next of a full chunk grows the pool.
  Step("KEL_SMalloc", TakeBlocks, 2);
  Step("KEL_SFree", FreeBlocks);
  PoolBlocks().clear();
  Step("KEL_SMalloc", TakeBlocks, 1);
  PoolBlocks().clear();
  CALL(KEL_SMemIsReg, kBlock);
  CALL(KEL_SMalloc_UnRegister, kBlock);
  CALL(KEL_SMalloc_Deinit);
}
void Pool() {
  UsePool(1);
}
void FullPool() {
  UsePool(4096);
}
void ForgottenPool() {
  if (CALL(KEL_SMalloc_Init) != 0)
    return;
  CALL(KEL_SMalloc_Register, kBlock, "sweep");
  CALL(KEL_SMalloc_Deinit);
  if (CALL(KEL_SMalloc_Init) == 0)
    CALL(KEL_SMalloc_Deinit);
}
// List nodes and queue entries from the pool.
void PooledRecords() {
  if (CALL(KEL_SMalloc_Init) != 0)
    return;
  for (const uint32_t size : {24u, 32u})
    CALL(KEL_SMalloc_Register, size, "sweep");
  if (KEL_NLIST_NODE *node = CALL(KEL_NList_Node_new); node != nullptr)
    CALL(KEL_NList_Node_delete, node);
  if (KEL_LIST_NODE *node = CALL(KEL_List_Node_new); node != nullptr)
    CALL(KEL_List_Node_delete, node);
  if (KEL_QUEUE *queue = CALL(KEL_QueueCreate, "sweep", 0); queue != nullptr) {
    CALL(KEL_QueuePush, queue, &queue, 1);
    CALL(KEL_QueueDestroy, queue);
  }
  for (const uint32_t size : {24u, 32u})
    CALL(KEL_SMalloc_UnRegister, size);
  CALL(KEL_SMalloc_Deinit);
}

// ---- Region heap ----

void UseHeap(void *region, uint32_t size) {
  KEL_VMEM *heap = CALL(KEL_VMemCreate, region, size);
  if (heap == nullptr)
    return;
  void *block = CALL(KEL_VMalloc, heap, 100);
  if (block != nullptr)
    CALL(KEL_VFree, heap, block);
  block = CALL(KEL_VMalloc, heap, 100);
  if (block != nullptr)
    CALL(KEL_VReAlloc, heap, block, 2000);
  CALL(KEL_VMemReset, heap);
  CALL(KEL_VMemDestroy, heap);
}
void RegionHeap() {
  UseHeap(nullptr, 256 * 1024);
}

// ---- Media pool ----

KEL_BUF_PARAM Parameters() {
  KEL_BUF_PARAM parameters = {};
  parameters.bufsize = 4096;
  parameters.minsize = 256;
  parameters.number = 4;
  return parameters;
}
void UseMediaPool(const KEL_BUF_PARAM &parameters) {
  KEL_BUF *pool = CALL(KELBuf_Create, &parameters, nullptr);
  if (pool == nullptr)
    return;
  KEL_BUF *reader = CALL(KELBuf_Create, &parameters, pool);
  KEL_BUF_DESC frame = {};
  CALL(KELBuf_LockEnter, pool);
  if (CALL(KELBuf_GetWBuf, pool, &frame) == 0) {
    frame.size = 100;
    CALL(KELBuf_FillWBuf, pool, &frame);
  }
  CALL(KELBuf_LockLeave, pool);
  KEL_BUF_STATUS status = {};
  CALL(KELBuf_BufStatus, pool, &status);
  const void *first = frame.data;
  CALL(KELBuf_FindRBuf, pool, first, &frame);
  for (KEL_BUF *user : {reader, pool}) {
    if (user == nullptr)
      continue;
    CALL(KELBuf_GetRBuf, user, &frame);
    CALL(KELBuf_DelRBuf, user, &frame);
    CALL(KELBuf_Destroy, user);
  }
}
void MediaPool() {
  UseMediaPool(Parameters());
}

void *AllocateArea(uint32_t size) {
  return malloc(size);
}
void FreeArea(void *area) {
  free(area);
}
void MediaPoolOutside() {
  KEL_BUF_PARAM parameters = Parameters();
  parameters.alloc = AllocateArea;
  parameters.free = FreeArea;
  UseMediaPool(parameters);
}

}  // namespace

std::vector<Operation> MemoryOperations() {
  const std::vector<Given> contended = {{"pthread_mutex_trylock", EBUSY}};
  return {
      {.name = "Blocks", .run = Blocks},
      {.name = "Pool", .run = Pool},
      {.name = "PoolContended", .run = Pool, .given = contended},
      {.name = "PoolFull", .run = FullPool},
      {.name = "PoolForgotten", .run = ForgottenPool},
      {.name = "PoolOfRecords", .run = PooledRecords},
      {.name = "RegionHeap", .run = RegionHeap},
      {.name = "RegionHeapContended", .run = RegionHeap, .given = contended},
      {.name = "MediaPool", .run = MediaPool},
      {.name = "MediaPoolContended", .run = MediaPool, .given = contended},
      {.name = "MediaPoolOutside", .run = MediaPoolOutside},
  };
}
