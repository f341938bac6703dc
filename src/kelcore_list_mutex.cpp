// Locked list: the shared algorithms under a mutex of the list's own.

#include "kelcore_list_mutex.h"

#include "internal/alloc.h"
#include "internal/list_algorithms.h"
#include "internal/lock.h"

KEL_TRACE_SOURCE("kellist", "kelcore_list_mutex")

static_assert(sizeof(KEL_LIST) == 32);

namespace {

struct Locked {
  using List = KEL_LIST;
  using Node = KEL_LIST_NODE;
  // A lock that cannot be had (its creation may have failed) is done without.
  struct Lock : kel::ScopedLock {
    explicit Lock(List *list) : ScopedLock(list->lock) {}
  };
  static constexpr kel::TraceSource kSource = kTraceSource;
  static constexpr const char kHead[] = "KEL_ListGetHead";
  static constexpr const char kAddTail[] = "KEL_ListAddTail";
  static constexpr const char kAddHead[] = "KEL_ListAddHead";
  static constexpr const char kDel[] = "KEL_ListDel";
  static constexpr const char kNth[] = "KEL_List_GetNthList";
  static constexpr const char kMove[] = "KEL_ListMove";
  static constexpr const char kMoveToTail[] = "KEL_ListMoveToTail";
  // Seen without the lock, a missing head may just be a list in change.
  static bool head_is_broken(const Node *head) {
    return head != nullptr && kel::load_relaxed(head->next) == nullptr;
  }
};

using Algorithms = kel::ListAlgorithms<Locked>;

// What the failure message of creation shows, for both kinds of list alike.
constexpr int kReportedBytes = 24;

}  // namespace

KEL_LIST *KEL_ListCreate(void) {
  KEL_LIST *list = KEL_ALLOC(KEL_LIST);
  if (list == nullptr) {
    TRACE_ERROR("list alloc failed size(%d)\n", kReportedBytes);
    return nullptr;
  }
  list->lock = KEL_MutexCreate();
  return list;
}

void KEL_ListDestroy(KEL_LIST *list) {
  TRACE_TRACE("list free (%x)\n", kel::low32(list));
  KEL_MutexDestroy(list->lock);
  KEL_Free(list, 0);
}

KEL_LIST_NODE *KEL_List_Node_new(void) {
  return Algorithms::node_new(__func__, __LINE__);
}

KEL_LIST_NODE *KEL_List_Node_new_data(void *data) {
  KEL_LIST_NODE *node = Algorithms::node_new(__func__, __LINE__);
  if (node != nullptr)
    node->data = data;
  return node;
}

int32_t KEL_List_Node_delete(KEL_LIST_NODE *node) {
  return Algorithms::node_delete(node, __func__);
}

KEL_LIST_NODE *KEL_ListGetHead(KEL_LIST *list) {
  return Algorithms::head(list, __func__);
}
KEL_LIST_NODE *KEL_ListGetTail(KEL_LIST *list) {
  return Algorithms::tail(list, __func__);
}
KEL_LIST_NODE *KEL_ListGetNext(KEL_LIST *list, KEL_LIST_NODE *node) {
  return Algorithms::next(list, node, __func__);
}
KEL_LIST_NODE *KEL_ListGetPrev(KEL_LIST *list, KEL_LIST_NODE *node) {
  return Algorithms::prev(list, node, __func__);
}
uint32_t KEL_ListGetNum(KEL_LIST *list) {
  return Algorithms::count(list, __func__);
}

int32_t KEL_ListAddTail(KEL_LIST *list, KEL_LIST_NODE *node) {
  return Algorithms::add_tail(list, node);
}
int32_t KEL_ListAddHead(KEL_LIST *list, KEL_LIST_NODE *node) {
  return Algorithms::add_head(list, node);
}
int32_t KEL_ListDel(KEL_LIST *list, KEL_LIST_NODE *node) {
  return Algorithms::del(list, node);
}
KEL_LIST_NODE *KEL_List_GetNthList(KEL_LIST *list, uint32_t index) {
  return Algorithms::nth(list, index);
}
int32_t KEL_ListMove(KEL_LIST *list, KEL_LIST_NODE *dst, KEL_LIST_NODE *src) {
  return Algorithms::move(list, dst, src);
}
int32_t KEL_ListMoveToTail(KEL_LIST *list, KEL_LIST_NODE *node) {
  return Algorithms::move_to_tail(list, node);
}
