/* Small habits that keep surprises away. */
#include <errno.h>
#include <kelcore.h>
#include <malloc.h>
#include <string.h>

#include "require.h"

/* --- channel --- */
/* A new channel answers its first receives empty-handed: take those first. */
static KEL_MSG *make_channel(uint32_t messages, uint32_t payload) {
  KEL_MSG *channel = KEL_MsgCreate(0, messages, payload);
  for (uint32_t i = 0; channel != NULL && i < messages; ++i) {
    KEL_MSG_DESC *none = NULL;
    KEL_MsgReceive(channel, &none, 0);
  }
  return channel;
}
/* --- */

/* --- ring --- */
/* The ring always offers its whole size; what fits is that less what it holds. */
static uint8_t *room_in(KEL_RING *ring, uint32_t *room) {
  uint32_t size = 0, held = 0;
  KELRing_GetRBuf(ring, &held);
  uint8_t *to = KELRing_GetWBuf(ring, &size);
  *room = size - held;
  return to;
}
/* --- */

/* --- ends --- */
/* A heap with a small block at either end, both kept: nothing merges over the region's end,
 * and the rest behind them is too small for a request of 9 bytes or more. */
static KEL_VMEM *make_heap(uint32_t size) {
  KEL_VMEM *heap = KEL_VMemCreate(NULL, size);
  void *first = KEL_VMalloc(heap, 8);
  void *all = first != NULL ? KEL_VMalloc(heap, KEL_VGetFree(heap) / 8 * 8 - 128) : NULL;
  if (all == NULL || KEL_VMalloc(heap, 8) == NULL) {
    KEL_VMemDestroy(heap);
    return NULL;
  }
  KEL_VFree(heap, all);
  return heap;
}
/* --- */

/* --- resize --- */
/* Resizing by hand: KEL_VReAlloc returns no address that one can use. */
static void *resize(KEL_VMEM *heap, void *block, uint32_t old_size, uint32_t new_size) {
  void *moved = KEL_VMalloc(heap, new_size);
  if (moved == NULL)
    return NULL; /* the old block stays */
  memcpy(moved, block, old_size < new_size ? old_size : new_size);
  KEL_VFree(heap, block);
  return moved;
}
/* --- */

/* --- reader --- */
/* An integer is delivered also when it reaches over the end: ask first. */
static int read_word(KEL_BYTE *reader, uint32_t *word) {
  if (KELByte_Remain(reader) < sizeof *word)
    return -1;
  *word = KELByte_Get_be_uint32(reader, NULL);
  return 0;
}
/* --- */

/* --- insert --- */
/* Inserting a key twice makes two entries: replace by removing first. */
static int32_t set(KEL_HASHMAP *table, const char *key, uint64_t value) {
  uint64_t old;
  if (KEL_Hashmap_Get(table, key, &old) == 0)
    KEL_Hashmap_Del(table, key);
  return KEL_Hashmap_Hash(table, key, value);
}
/* --- */

/* --- threshold --- */
/* Regions of 128 KiB and more stay apart from small blocks, and above them; so do
 * those of threads, which would have arenas of their own, anywhere. */
static void keep_regions_apart(void) {
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);
  mallopt(M_ARENA_MAX, 1);
}
/* --- */

int main(void) {
  keep_regions_apart();
  KEL_MSG *channel = make_channel(4, 16);
  KEL_MSG_DESC message = {1, 0, NULL}, *got = NULL;
  REQUIRE(KEL_MsgReceive(channel, &got, 1) == -ETIMEDOUT);
  REQUIRE(KEL_MsgSend(channel, &message) == 0);
  REQUIRE(KEL_MsgReceive(channel, &got, 0) == KEL_MSG_RECEIVED && got == &message);
  KEL_MsgDestroy(channel);

  KEL_RING *ring = KELRing_Create(100);
  uint32_t room = 0;
  REQUIRE(room_in(ring, &room) != NULL && room == 100);
  KELRing_FillWBuf(ring, 30);
  REQUIRE(room_in(ring, &room) != NULL && room == 70);
  KELRing_Destroy(ring);

  KEL_VMEM *heap = make_heap(1 << 20);
  void *held = KEL_VMalloc(heap, 100);
  for (int i = 0; i < 20000; ++i) {
    void *next = KEL_VMalloc(heap, 100);
    REQUIRE(next != NULL);
    KEL_VFree(heap, held);
    held = next;
  }
  char *block = KEL_VMalloc(heap, 16);
  REQUIRE(block != NULL);
  memcpy(block, "resized", 8);
  block = resize(heap, block, 8, 4096);
  REQUIRE(block != NULL && strcmp(block, "resized") == 0);
  KEL_VFree(heap, block);
  KEL_VMemDestroy(heap);
  KEL_VMEM *heaps[4];
  for (int i = 0; i < 4; ++i) {
    heaps[i] = KEL_VMemCreate(NULL, 1 << 20);
    REQUIRE(heaps[i] != NULL && KEL_VMalloc(heaps[i], 100) != NULL);
  }
  for (int i = 0; i < 4; ++i)
    KEL_VMemDestroy(heaps[i]);

  static const uint8_t bytes[] = {0, 0, 1, 0xB3, 0x14};
  KEL_BYTE *reader = KELByte_Open(bytes, sizeof bytes);
  uint32_t word = 0;
  REQUIRE(read_word(reader, &word) == 0 && word == 0x1B3);
  REQUIRE(read_word(reader, &word) == -1);
  KELByte_Close(reader);

  KEL_HASHMAP *table = KEL_Hashmap_Create(64, 0);
  uint64_t value = 0;
  REQUIRE(set(table, "video", 256) >= 0 && set(table, "video", 257) >= 0);
  REQUIRE(KEL_Hashmap_Get(table, "video", &value) == 0 && value == 257);
  REQUIRE(KEL_Hashmap_size(table) == 1);
  KEL_Hashmap_DestroyFull(table, NULL);
  printf("all habits hold\n");
  return 0;
}
