#include "operations.h"

#include <fcntl.h>
#include <kelcore.h>
#include <mqueue.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;

const std::string &SystemName() {
  static const std::string name = "/kelcore_sweep_" + std::to_string(getpid());
  return name;
}
const std::string &SemaName() {
  static const std::string name = SystemName() + "_turn";
  return name;
}
const fs::path &Directory() {
  static const fs::path directory = fs::temp_directory_path() / SystemName().substr(1);
  return directory;
}
std::string PathOf(const char *name) {
  return (Directory() / name).string();
}
void Write(const std::string &path, const char *text) {
  // By the system alone: the streams' calls are those that fail.
  const int file = open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
  if (file >= 0) {
    (void)!write(file, text, strlen(text));
    close(file);
  }
}

// ---- Synchronisation and threads ----

bool Mutex() {
  KEL_MUTEX *mutex = KEL_MutexCreate();
  if (mutex == nullptr)
    return false;
  bool good = KEL_MutexLock(mutex, 10) == 0;
  if (good)
    good = KEL_MutexUnLock(mutex) == 0;
  if (good && (good = KEL_MutexLock(mutex, KEL_WAIT_FOREVER) == 0))
    good = KEL_MutexUnLock(mutex) == 0;
  return KEL_MutexDestroy(mutex) == 0 && good;
}

bool UseSemaphore(KEL_SEMA *sema) {
  if (sema == nullptr)
    return false;
  int32_t count = 0;
  bool good = KEL_SemaGet(sema, 10) == 0;
  good = KEL_SemaGet(sema, 0) == 0 && good;
  good = KEL_SemaPut(sema) == 0 && good;
  good = KEL_SemaStatus(sema, &count) == 0 && good;
  good = KEL_SemaReset(sema) == 0 && good;
  return KEL_SemaDestroy(sema) == 0 && good;
}
bool Semaphore() {
  return UseSemaphore(KEL_SemaCreate(nullptr, 2));
}
bool NamedSemaphore() {
  return UseSemaphore(KEL_SemaCreate(SystemName().c_str(), 2));
}
bool CustomSemaphore() {
  return UseSemaphore(KEL_SemaCreate_Custom(SystemName().c_str(), 2, 1));
}

bool Event() {
  KEL_SEMA *event = KEL_EventCreate(nullptr);
  if (event == nullptr)
    return false;
  bool good = KEL_EventSend(event) == 0 && KEL_EventWait(event, 10) == 0;
  return KEL_EventDestroy(event) == 0 && good;
}

void *ThreadEntry(void *arg) {
  return arg;
}
bool Thread() {
  int value = 0;
  void *result = nullptr;
  KEL_THREAD *thread = KEL_ThreadCreate("sweep", 10, 256 * 1024, ThreadEntry, &value);
  if (thread == nullptr)
    return false;
  return KEL_ThreadDelete(thread, &result) == 0 && result == &value;
}
bool Sleep() {
  return KEL_ThreadSleep(1) == 0 && KEL_ThreadUSleep(1) == 0;
}

bool Timer() {
  KEL_TIMER *timer = KEL_TimerCreate(
      3'600'000'000, [](void *) {}, nullptr);
  if (timer == nullptr)
    return false;
  bool good = KEL_TimerStart(timer, 0, 1, nullptr, nullptr) == 0;
  good = KEL_TimerStop(timer) == 0 && good;
  return KEL_TimerDestroy(timer) == 0 && good;
}

int32_t Job(void *) {
  return 7;
}
bool ThreadPool() {
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("sweep", 0, 0, 2);
  if (pool == nullptr)
    return false;
  int32_t result = 0;
  const int32_t number = KEL_ThreadPool_Run(pool, Job, nullptr);
  const bool good = KEL_ThreadPool_Stop(pool, number, &result) == 0 && result == 7;
  KEL_ThreadPool_Delete(pool);
  return good;
}

// ---- Containers ----

bool PlainList() {
  KEL_NLIST *list = KEL_NListCreate();
  if (list == nullptr)
    return false;
  bool good = true;
  for (int i = 0; i < 3; ++i) {
    KEL_NLIST_NODE *node = KEL_NList_Node_new_data(list);
    good = node != nullptr && good;
    if (node != nullptr)
      KEL_NListAddTail(list, node);
  }
  while (KEL_NLIST_NODE *node = KEL_NListGetHead(list)) {
    KEL_NListDel(list, node);
    KEL_NList_Node_delete(node);
  }
  KEL_NListDestroy(list);
  return good;
}

bool LockedList() {
  KEL_LIST *list = KEL_ListCreate();
  if (list == nullptr)
    return false;
  bool good = true;
  for (int i = 0; i < 3; ++i) {
    KEL_LIST_NODE *node = KEL_List_Node_new_data(list);
    good = node != nullptr && good;
    if (node != nullptr)
      KEL_ListAddTail(list, node);
  }
  while (KEL_LIST_NODE *node = KEL_ListGetHead(list)) {
    KEL_ListDel(list, node);
    KEL_List_Node_delete(node);
  }
  KEL_ListDestroy(list);
  return good;
}

bool UseQueue(KEL_QUEUE *queue) {
  if (queue == nullptr)
    return false;
  int item = 0, pushed = 0, popped = 0;
  for (int i = 0; i < 4; ++i)
    pushed += KEL_QueuePush(queue, &item, i) == 0;
  for (int i = 0; i < 4; ++i)
    popped += KEL_QueuePop(queue, nullptr, 0) == &item;
  KEL_QueuePopRelease(queue);
  KEL_QueueDestroy(queue);
  return pushed == 4 && popped == 4;
}
bool BoundedQueue() {
  return UseQueue(KEL_QueueCreate("sweep", 4));
}
bool UnboundedQueue() {
  return UseQueue(KEL_QueueCreate("sweep", 0));
}

bool Channel() {
  KEL_MSG *channel = KEL_MsgCreate(0, 2, 16);
  if (channel == nullptr)
    return false;
  KEL_MSG_DESC message = {};
  int sent = 0, received = 0;
  for (int i = 0; i < 2; ++i)
    sent += KEL_MsgSend(channel, &message) == 0;
  for (int i = 0; i < 4; ++i) {
    KEL_MSG_DESC *got = nullptr;
    if (KEL_MsgReceive(channel, &got, 0) >= 0)
      received += got == &message;
  }
  KEL_MsgDestroy(channel);
  return sent == 2 && received == 2;
}

bool HashTable() {
  KEL_HASHMAP *table = KEL_Hashmap_Create(16, 0);
  if (table == nullptr)
    return false;
  uint64_t value = 0;
  bool good = KEL_Hashmap_Hash(table, "key", 5) >= 0;
  good = KEL_Hashmap_Get(table, "key", &value) == 0 && value == 5 && good;
  KEL_Hashmap_DestroyFull(table, nullptr);
  return good;
}

bool GrowingHashTable() {
  KEL_HASHMAP *table = KEL_Hashmap_Create(4, 1);
  if (table == nullptr)
    return false;
  bool good = true;
  for (const char *key : {"one", "two", "three", "four", "five"}) {
    uint64_t value = 0;
    good = KEL_Hashmap_Hash(table, key, 5) >= 0 && good;
    good = KEL_Hashmap_Get(table, key, &value) == 0 && good;
  }
  KEL_Hashmap_DestroyFull(table, nullptr);
  return good;
}

bool Ring() {
  KEL_RING *ring = KELRing_Create(100);
  return ring != nullptr && KELRing_Destroy(ring) == 0;
}
bool Circular() {
  KEL_CIRCULAR *buffer = KELCircular_Create(100);
  return buffer != nullptr && KELCircular_Destroy(buffer) == 0;
}
bool Readers() {
  char data[16] = {};
  KEL_BYTE *byte = KELByte_Open(data, 8);
  KEL_BIT *bit = KELBitOpen(data, 8);
  const bool good = byte != nullptr && bit != nullptr;
  KELByte_Close(byte);
  KELBitClose(bit);
  return good;
}

// ---- Memory ----

bool PoolAllocator() {
  if (KEL_SMalloc_Init() != 0)
    return false;
  bool good = KEL_SMalloc_Register(64, "sweep") == 0;
  // One chunk, and a block of the next.
  constexpr int kBlocks = 4097;
  static void *blocks[kBlocks];
  int made = 0;
  while (good && made < kBlocks && (blocks[made] = KEL_SMalloc(64)) != nullptr)
    ++made;
  good = good && made == kBlocks;
  while (made > 0)
    KEL_SFree(blocks[--made], 64);
  KEL_SMalloc_UnRegister(64);
  KEL_SMalloc_Deinit();
  return good;
}

bool RegionHeap() {
  KEL_VMEM *heap = KEL_VMemCreate(nullptr, 256 * 1024);
  if (heap == nullptr)
    return false;
  void *block = KEL_VMalloc(heap, 100);
  const bool good = block != nullptr && KEL_VFree(heap, block) == 0;
  KEL_VMemDestroy(heap);
  return good;
}

bool MediaPool() {
  KEL_BUF_PARAM parameters = {};
  parameters.bufsize = 4096;
  parameters.minsize = 256;
  parameters.number = 4;
  KEL_BUF *pool = KELBuf_Create(&parameters, nullptr);
  if (pool == nullptr)
    return false;
  KEL_BUF *reader = KELBuf_Create(&parameters, pool);
  KEL_BUF_DESC frame = {};
  bool good = KELBuf_LockEnter(pool) == 0 && KELBuf_GetWBuf(pool, &frame) == 0;
  frame.size = 100;
  good = good && KELBuf_FillWBuf(pool, &frame) == 0;
  KELBuf_LockLeave(pool);
  if (reader != nullptr) {
    good = KELBuf_GetRBuf(reader, &frame) == 0 && KELBuf_DelRBuf(reader, &frame) == 0 && good;
    KELBuf_Destroy(reader);
  }
  KELBuf_Destroy(pool);
  return good && reader != nullptr;
}

bool Blocks() {
  void *plain = KEL_Malloc(10, 0, 0, "sweep", 1, "Blocks");
  void *aligned = KEL_Malloc(64, 32, 0, "sweep", 1, "Blocks");
  void *many = KEL_Calloc(3, 10, 0, "sweep", 1, "Blocks");
  void *larger = KEL_ReAlloc(plain, 1000);
  void *outside = KEL_NonCacheMalloc(10);
  const bool good = plain && aligned && many && larger && outside;
  KEL_Free(larger != nullptr ? larger : plain, 0);
  KEL_Free(aligned, 0);
  KEL_Free(many, 0);
  KEL_NonCacheFree(outside);
  return good;
}

// ---- Between processes ----

bool UseIpc(KEL_IPC *ipc, bool custom) {
  if (ipc == nullptr)
    return false;
  struct {
    KEL_IPC_MSG_HEADER header;
    char text[16];
  } message = {};
  message.header.length = 4;
  uint32_t size = 0;
  void *buffer = KEL_IPCGetMsg(ipc, &size);
  bool good = true;
  for (const uint32_t timeout : {0u, 10u}) {
    good = (custom ? KEL_IPCSend_CustomMsg(ipc, &message, 20, timeout)
                   : KEL_IPCSend(ipc, &message, 0, timeout)) == 0 &&
           good;
    // With a time-out whatever happened: there may be nothing to receive.
    good = KEL_IPCReceive(ipc, buffer, 10) == 0 && good;
  }
  KEL_IPCClose(ipc);
  free(buffer);
  return good;
}
// What a failed receive left would fill the queue.
const char *EmptyQueue() {
  mq_unlink(SystemName().c_str());
  return SystemName().c_str();
}
bool Ipc() {
  return UseIpc(KEL_IPCOpen(EmptyQueue(), 4, 64, 0), false);
}
bool CustomIpc() {
  return UseIpc(KEL_IPCOpen_CustomMsg(EmptyQueue(), 4, 64, 0, SemaName().c_str(), 1), true);
}
bool SimpleIpc() {
  KEL_IPC_MSG *queue = KEL_IPC_MsgOpen(EmptyQueue(), 4, 64, 1);
  if (queue == nullptr)
    return false;
  char buffer[64] = {};
  bool good = KEL_IPC_MsgSend(queue, "text", 4) >= 0;
  good = KEL_IPC_MsgRecv(queue, buffer, sizeof buffer, 10) == 4 && good;
  KEL_IPC_MsgClose(queue);
  return good;
}

bool SharedMemory() {
  uint8_t created = 0;
  void *data = KEL_ShmMalloc(SystemName().c_str(), 100, &created, "sweep", 1, "SharedMemory");
  if (data == nullptr)
    return false;
  memset(data, 1, 100);
  KEL_ShmFree(data);
  return true;
}

// ---- Files, libraries, tracing ----

bool File() {
  const std::string path = PathOf("file");
  FILE *file = KEL_FileOpen(path.c_str(), KEL_FILE_MODE_CREATE | KEL_FILE_MODE_RDWR);
  if (file == nullptr)
    return false;
  char buffer[16] = {};
  bool good = KEL_FileWrite(file, "one\ntwo\n", 8) == 8;
  good = KEL_FileTextWrite(file, "three\n") >= 0 && good;
  good = KEL_FileSync(file) == 0 && good;
  good = KEL_FileSize(file) == 14 && good;
  good = KEL_FileTell(file) == 14 && good;
  good = KEL_FileSeek(file, 0, 0) == 0 && good;
  good = KEL_FileReadLine(file, buffer, sizeof buffer) != nullptr && good;
  good = KEL_FileReadChar(file) == 't' && good;
  good = KEL_FileRead(file, buffer, 3) == 3 && good;
  good = KEL_FileTruncate(file, 4) == 0 && good;
  KEL_FileClose(file);
  KEL_FILE_ATTR attributes = {};
  good = KEL_Truncate(path.c_str(), 2) == 0 && good;
  good = KEL_GetFileAttr(path.c_str(), &attributes) == 0 && good;
  return KEL_FileExist(path.c_str(), 0) == 0 && good;
}

bool KeptFile() {
  const std::string path = PathOf("kept");
  Write(path, "text");
  FILE *file = KEL_FileOpen(path.c_str(),
                            KEL_FILE_MODE_CREATE | KEL_FILE_MODE_RDWR | KEL_FILE_MODE_READ);
  KEL_FileClose(file);
  return file != nullptr;
}

bool Directories() {
  const std::string made = PathOf("made");
  rmdir(made.c_str());
  bool good = KEL_MakeDir(made.c_str()) == 0;
  good = KEL_GetDiskSize(Directory().c_str()) > 0 && good;
  good = KEL_GetFreeDiskSpace(Directory().c_str()) > 0 && good;
  KEL_DIR *directory = KEL_FileOpenDir(Directory().c_str());
  if (directory == nullptr)
    return false;
  good = KEL_FileReadDir(directory) != nullptr && good;
  KEL_FileResetDir(directory);
  good = KEL_FileReadDir(directory) != nullptr && good;
  return KEL_FileCloseDir(directory) == 0 && good;
}

bool FileEditing() {
  const std::string path = PathOf("edited"), work = PathOf("work");
  bool good = KEL_FEdit_Put(path.c_str(), "line") == 0;
  good = KEL_FEdit_TrunkUp(path.c_str(), work.c_str()) == 0 && good;
  KEL_FEdit_Del(path.c_str(), work.c_str(), "line");
  return good;
}

bool Library() {
  void *library = KEL_LibraryLoad(PLUGIN_PATH);
  if (library == nullptr)
    return false;
  const bool good = KEL_LibraryGetFunc(library, "plugin_answer") != nullptr;
  return KEL_LibraryUnLoad(library) == 0 && good;
}

bool Tracing() {
  const bool good = KEL_TraceInit(PathOf("trace").c_str()) == 0;
  KEL_Trace("sweep", KEL_LEVEL_ERROR, "operations", 1, "Tracing", "text\n");
  KEL_TraceDeinit();
  return good;
}

bool System() {
  return KEL_SystemInit(nullptr) == 0 && KEL_GetSystemTick() > 0 && KEL_GetEpochTime() > 0 &&
         KEL_SystemUnInit(nullptr) == 0;
}

}  // namespace

const std::vector<Operation> &Operations() {
  static const std::vector<Operation> operations = {
      {.name = "Mutex", .run = Mutex, .silent = true},
      {.name = "Semaphore", .run = Semaphore},
      {.name = "NamedSemaphore", .run = NamedSemaphore, .keeps = {"KEL_SemaCreate"}},
      {.name = "CustomSemaphore", .run = CustomSemaphore, .keeps = {"KEL_SemaCreate_Custom"}},
      {.name = "Event", .run = Event},
      {.name = "Thread", .run = Thread},
      {.name = "Sleep", .run = Sleep},
      {.name = "Timer", .run = Timer},
      {.name = "ThreadPool", .run = ThreadPool, .spared = {"sem_post", "sem_wait"}},
      {.name = "PlainList", .run = PlainList},
      {.name = "LockedList", .run = LockedList},
      {.name = "BoundedQueue", .run = BoundedQueue},
      {.name = "UnboundedQueue", .run = UnboundedQueue},
      {.name = "Channel", .run = Channel},
      // Not announced when they go.
      {.name = "HashTable", .run = HashTable, .keeps = {"KEL_Hashmap_Create"}},
      {.name = "GrowingHashTable",
       .run = GrowingHashTable,
       .keeps = {"KEL_Hashmap_Create", "kelhashmap_resize"}},
      {.name = "Ring", .run = Ring},
      {.name = "Circular", .run = Circular},
      {.name = "Readers", .run = Readers, .silent = true},
      {.name = "PoolAllocator", .run = PoolAllocator},
      // The region, which may be the caller's.
      {.name = "RegionHeap", .run = RegionHeap, .silent = true, .keeps = {"KEL_VMemCreate"}},
      {.name = "MediaPool", .run = MediaPool},
      {.name = "Blocks", .run = Blocks, .silent = true},
      {.name = "Ipc", .run = Ipc, .keeps = {"KEL_SemaCreate", "KEL_IPCOpen"}},
      {.name = "CustomIpc",
       .run = CustomIpc,
       .keeps = {"KEL_SemaCreate_Custom", "KEL_IPCOpen_CustomMsg"}},
      {.name = "SimpleIpc", .run = SimpleIpc, .silent = true, .keeps = {"KEL_IPC_MsgOpen"}},
      {.name = "SharedMemory", .run = SharedMemory},
      {.name = "File", .run = File},
      {.name = "KeptFile", .run = KeptFile},
      {.name = "Directories", .run = Directories},
      {.name = "FileEditing", .run = FileEditing},
      {.name = "Library", .run = Library},
      {.name = "Tracing", .run = Tracing, .silent = true},
      {.name = "System", .run = System},
  };
  fs::create_directories(Directory());
  return operations;
}

void RemoveLeftovers() {
  mq_unlink(SystemName().c_str());
  sem_unlink(SystemName().c_str());
  sem_unlink(SemaName().c_str());
  std::error_code ignored;
  fs::remove_all(Directory(), ignored);
}
