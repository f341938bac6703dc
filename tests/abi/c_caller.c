/* Calls each module once from C through the shared library. */
#include <stdio.h>
#include <string.h>

#include "kelcore.h"

#define CHECK(condition)                                                        \
  do {                                                                          \
    if (!(condition)) {                                                         \
      fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
      return 1;                                                                 \
    }                                                                           \
  } while (0)

static void *entry(void *arg) {
  return arg;
}

static int runtime(void) {
  CHECK(KEL_SystemInit(NULL) == 0);
  CHECK(strcmp(KEL_GetErrorStr(KEL_ERR_NO_BUFFER), "No buffer") == 0);
  CHECK(KEL_GetEnv("KELCORE_NO_SUCH_VARIABLE") == NULL);
  CHECK(KEL_GetSystemTick() <= KEL_GetSystemTickUS());
  KEL_Trace("none", KEL_LEVEL_ERROR, "c_caller", 1, "main", "%s\n", "not printed");
  void *block = KEL_Malloc(8, 0, 0, "c_caller", 1, "main");
  CHECK(block != NULL);
  KEL_MemTrace(block, 8);
  CHECK(KEL_Memcleanup(block, 8) == 0);
  KEL_NonCacheFlush(block, 8);
  CHECK(KEL_NonCacheGetPhys(block) == 0);
  /* Empty hooks: they count nothing and keep nothing. */
  KEL_MemTblAdd(block, 8, 0, "c_caller", 1, "main");
  KEL_MemTblUpdate(block, block, 8);
  KEL_MemTblRemove(block, 0);
  KEL_Free(block, 0);
  return 0;
}

static int threads(void) {
  KEL_MUTEX *mutex = KEL_MutexCreate();
  CHECK(KEL_MutexLock(mutex, 0) == 0 && KEL_MutexUnLock(mutex) == 0);
  CHECK(KEL_MutexDestroy(mutex) == 0);
  KEL_SEMA *sema = KEL_SemaCreate(NULL, 1);
  CHECK(KEL_SemaGet(sema, KEL_WAIT_FOREVER) == 0 && KEL_SemaDestroy(sema) == 0);
  KEL_SEMA *event = KEL_EventCreate(NULL);
  CHECK(KEL_EventSend(event) == 0 && KEL_EventWait(event, 0) == 0);
  CHECK(KEL_EventDestroy(event) == 0);
  int value = 0;
  void *result = NULL;
  KEL_THREAD *thread = KEL_ThreadCreate("caller", 0, 0, entry, &value);
  CHECK(KEL_ThreadDelete(thread, &result) == 0 && result == &value);
  return 0;
}

static int containers(void) {
  int value = 0;
  KEL_NLIST *plain = KEL_NListCreate();
  KEL_NLIST_NODE *node = KEL_NList_Node_new_data(&value);
  CHECK(KEL_NListAddTail(plain, node) == 0 && KEL_NListGetHead(plain)->data == &value);
  CHECK(KEL_NListDel(plain, node) == 0 && KEL_NList_Node_delete(node) == 0);
  KEL_NListDestroy(plain);
  KEL_LIST *locked = KEL_ListCreate();
  CHECK(KEL_ListGetNum(locked) == 0);
  KEL_ListDestroy(locked);
  KEL_QUEUE *queue = KEL_QueueCreate("calls", 2);
  CHECK(KEL_QueuePush(queue, &value, 1) == 0 && KEL_QueuePop(queue, NULL, 0) == &value);
  KEL_QueueDestroy(queue);
  KEL_MSG *channel = KEL_MsgCreate(0, 1, 1);
  KEL_MSG_DESC message = {1, 0, NULL}, *got = NULL;
  CHECK(KEL_MsgSend(channel, &message) == 0);
  CHECK(KEL_MsgReceive(channel, &got, 0) == KEL_MSG_RECEIVED && got == &message);
  KEL_MsgDestroy(channel);
  CHECK(KEL_SMalloc_Init() == 0 && KEL_SMemIsReg(8) == 0 && KEL_SMalloc_Deinit() == 0);
  return 0;
}

static int parsing(void) {
  const unsigned char bytes[8] = {0xA5, 0xFF};
  uint32_t end = 0;
  KEL_BYTE *reader = KELByte_Open(bytes, 2);
  CHECK(KELByte_Get_be_uint16(reader, &end) == 0xA5FF && end == 0);
  KELByte_Close(reader);
  KEL_BIT *cursor = KELBitOpen(bytes, 2);
  CHECK(KELBitGetBit(cursor, 3) == 5);
  KELBitClose(cursor);
  CHECK(KEL_FileExist("/", 0) == 0);
  return 0;
}

static int32_t job(void *arg) {
  return *(int *)arg;
}

static void tick(void *arg) {
  (void)arg;
}

static int timers_and_pools(void) {
  int value = 7;
  int32_t result = 0;
  KEL_TIMER *timer = KEL_TimerCreate(1000000, tick, NULL);
  CHECK(KEL_TimerStart(timer, 0, 1, NULL, NULL) == 0 && KEL_TimerDestroy(timer) == 0);
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("caller", 0, 0, 1);
  int32_t worker = KEL_ThreadPool_Run(pool, job, &value);
  CHECK(KEL_ThreadPool_Stop(pool, worker, &result) == 0 && result == 7);
  KEL_ThreadPool_Delete(pool);
  return 0;
}

static int processes(void) {
  CHECK(KEL_IPCSend(NULL, NULL, 0, 0) == -22 && KEL_IPCGetMsg(NULL, NULL) == NULL);
  CHECK(KEL_IPC_MsgGetMaxSize(NULL) == 0);
  KEL_IPC_MsgClose(NULL);
  KEL_ShmFree(NULL);
  return 0;
}

static int memory(void) {
  KEL_VMEM *heap = KEL_VMemCreate(NULL, 1 << 20);
  void *block = KEL_VMalloc(heap, 100);
  CHECK(block != NULL && KEL_VFree(heap, block) == 0);
  KEL_VMemDestroy(heap);
  KEL_BUF_PARAM param = {0};
  KEL_BUF_DESC frame = {0};
  param.bufsize = 1000;
  param.minsize = 100;
  param.number = 4;
  KEL_BUF *frames = KELBuf_Create(&param, NULL);
  CHECK(KELBuf_GetWBuf(frames, &frame) == 0 && frame.room == 100);
  KELBuf_Destroy(frames);
  return 0;
}

static int buffers(void) {
  uint64_t value = 0;
  uint32_t size = 0;
  CHECK(KEL_Hash_crc32("123456789", 9) == 0xCBF43926u);
  KEL_HASHMAP *table = KEL_Hashmap_Create(16, 0);
  CHECK(KEL_Hashmap_Hash(table, "key", 5) >= 0);
  CHECK(KEL_Hashmap_Get(table, "key", &value) == 0 && value == 5);
  KEL_Hashmap_DestroyFull(table, NULL);
  KEL_RING *ring = KELRing_Create(16);
  CHECK(KELRing_GetWBuf(ring, &size) != NULL && size == 16);
  CHECK(KELRing_Destroy(ring) == 0);
  KEL_CIRCULAR *circular = KELCircular_Create(16);
  CHECK(circular != NULL);
  KELCircular_Destroy(circular);
  char text[8];
  CHECK(strcmp(KEL_strtrim("a[text]b", "[", "]", text, sizeof text), "text") == 0);
  return 0;
}

int main(void) {
  return runtime() || threads() || containers() || parsing() || timers_and_pools() ||
         processes() || memory() || buffers();
}
