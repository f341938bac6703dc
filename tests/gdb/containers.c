/* One of each container with something in it; gdb stops in look_at_them(). */
#include <kelcore/kelcore.h>
#include <string.h>

static KEL_NLIST *list, *no_list;
static KEL_LIST *locked;
static KEL_QUEUE *bounded, *unbounded;
static KEL_HASHMAP *table;
static KEL_RING *ring;
static KEL_CIRCULAR *circular;
static KEL_VMEM *heap;
static KEL_BUF *pool;
/* Damaged, as a program may leave them. */
static KEL_NLIST torn;
static KEL_VMEM *overwritten;
static KEL_RING *wild = (KEL_RING *)0x10;

static void fill_lists(void) {
  list = KEL_NListCreate();
  locked = KEL_ListCreate();
  for (size_t i = 1; i <= 2; ++i) {
    KEL_NListAddTail(list, KEL_NList_Node_new_data((void *)(0x100 * i)));
    KEL_ListAddTail(locked, KEL_List_Node_new_data((void *)(0x1000 * i)));
  }
  bounded = KEL_QueueCreate("greetings", 8);
  unbounded = KEL_QueueCreate(NULL, 0);
  for (int32_t i = 1; i <= 3; ++i) {
    KEL_QueuePush(bounded, (void *)(size_t)(0x10 * i), i);
    KEL_QueuePush(unbounded, (void *)(size_t)(0x10 * i), -i);
  }
  KEL_QueuePop(bounded, NULL, 0);
  KEL_QueuePopTail(unbounded, NULL, 0);
}

static void fill_buffers(void) {
  uint32_t size = 0;
  char taken[6];
  ring = KELRing_Create(16);
  memcpy(KELRing_GetWBuf(ring, &size), "ring", 4);
  KELRing_FillWBuf(ring, 4);
  KELRing_DelRBuf(ring, 1);
  circular = KELCircular_Create(8);
  KELCircular_Push(circular, "abcdef", 6);
  KELCircular_Pop(circular, taken, 5);
  KELCircular_Push(circular, "ghij", 4);
  table = KEL_Hashmap_Create(16, 0);
  KEL_Hashmap_Hash(table, "one", 1);
}

static void fill_memory(void) {
  heap = KEL_VMemCreate(NULL, 1 << 18);
  (void)!KEL_VMalloc(heap, 100);
  KEL_BUF_PARAM param = {0};
  param.bufsize = 1000;
  param.minsize = 100;
  param.number = 4;
  param.index = 7;
  pool = KELBuf_Create(&param, NULL);
  KEL_BUF_DESC frame = {0};
  KELBuf_GetWBuf(pool, &frame);
  frame.size = 50;
  frame.time_stamp = 1234;
  KELBuf_FillWBuf(pool, &frame);
}

static void damage(void) {
  torn.count = 3;
  torn.head = list->head;
  overwritten = KEL_VMemCreate(NULL, 1 << 18);
  unsigned char *block = (unsigned char *)KEL_VMalloc(overwritten, 16);
  memset(block, 0xEE, 24);
}

static void look_at_them(void) {
  __asm__ volatile("" ::: "memory");
}

int main(void) {
  fill_lists();
  fill_buffers();
  fill_memory();
  damage();
  look_at_them();
  return no_list != NULL && wild != NULL;
}
