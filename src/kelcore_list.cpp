// Plain list: the shared algorithms without a lock.

#include "kelcore_list.h"

#include "internal/alloc.h"
#include "internal/plain_list.h"

KEL_TRACE_SOURCE("kelnlist", "kelcore_list")

static_assert(sizeof(KEL_NLIST) == 24);

using Algorithms = kel::PlainList;

KEL_NLIST *KEL_NListCreate(void) {
  KEL_NLIST *list = KEL_ALLOC(KEL_NLIST);
  if (list == nullptr)
    TRACE_ERROR("list alloc failed size(%d)\n", static_cast<int>(sizeof(KEL_NLIST)));
  return list;
}

void KEL_NListDestroy(KEL_NLIST *list) {
  TRACE_TRACE("list free (%x)\n", kel::low32(list));
  KEL_Free(list, 0);
}

KEL_NLIST_NODE *KEL_NList_Node_new(void) {
  KEL_NLIST_NODE *node = Algorithms::node_new(__func__, __LINE__);
  if (node != nullptr)
    *node = {};
  return node;
}

KEL_NLIST_NODE *KEL_NList_Node_new_data(void *data) {
  KEL_NLIST_NODE *node = Algorithms::node_new(__func__, __LINE__);
  if (node != nullptr)
    *node = {nullptr, nullptr, data};
  return node;
}

int32_t KEL_NList_Node_delete(KEL_NLIST_NODE *node) {
  return Algorithms::node_delete(node, __func__);
}

KEL_NLIST_NODE *KEL_NListGetHead(KEL_NLIST *list) {
  return Algorithms::head(list, __func__);
}
KEL_NLIST_NODE *KEL_NListGetTail(KEL_NLIST *list) {
  return Algorithms::tail(list, __func__);
}
KEL_NLIST_NODE *KEL_NListGetNext(KEL_NLIST *list, KEL_NLIST_NODE *node) {
  return Algorithms::next(list, node, __func__);
}
KEL_NLIST_NODE *KEL_NListGetPrev(KEL_NLIST *list, KEL_NLIST_NODE *node) {
  return Algorithms::prev(list, node, __func__);
}
uint32_t KEL_NListGetNum(KEL_NLIST *list) {
  return Algorithms::count(list, __func__);
}

int32_t KEL_NListAddTail(KEL_NLIST *list, KEL_NLIST_NODE *node) {
  return Algorithms::add_tail(list, node);
}
int32_t KEL_NListAddHead(KEL_NLIST *list, KEL_NLIST_NODE *node) {
  return Algorithms::add_head(list, node);
}
int32_t KEL_NListDel(KEL_NLIST *list, KEL_NLIST_NODE *node) {
  return Algorithms::del(list, node);
}
KEL_NLIST_NODE *KEL_NList_GetNthList(KEL_NLIST *list, uint32_t index) {
  return Algorithms::nth(list, index);
}
int32_t KEL_NListMove(KEL_NLIST *list, KEL_NLIST_NODE *dst, KEL_NLIST_NODE *src) {
  return Algorithms::move(list, dst, src);
}
int32_t KEL_NListMoveToTail(KEL_NLIST *list, KEL_NLIST_NODE *node) {
  return Algorithms::move_to_tail(list, node);
}
