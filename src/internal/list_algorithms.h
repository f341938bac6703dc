// The algorithms that the plain and the locked list share, as a template over a
// policy:
//
//     struct Policy {
//       using List = ..., Node = ...;
//       class Lock { explicit Lock(List *); };          // holds it for a scope
//       static constexpr TraceSource kSource = ...;     // who traces
//       static constexpr const char kAddTail[] = ...;   // exported names
//     };
//
// Links and heads are written with relaxed stores: the locked list lets readers
// look without its lock. Corruption is traced and left as it is; where a broken
// list has no node to look at, the step that would look does nothing.
#pragma once

#include <stdint.h>

#include "internal/pooled_record.h"
#include "internal/relaxed.h"
#include "internal/trace.h"
#include "kelcore_mem.h"

#define LIST_ERROR(func, ...) TRACE_FROM(P::kSource, func, KEL_LEVEL_ERROR, __VA_ARGS__)

namespace kel {

template <typename P>
class ListAlgorithms {
 public:
  using List = typename P::List;
  using Node = typename P::Node;
  using Lock = typename P::Lock;

  static constexpr uint32_t kNodeBytes = 24;
  static_assert(sizeof(Node) == kNodeBytes);

  static bool valid(const List *list, const char *func) {
    if (list != nullptr)
      return true;
    report(func);
    return false;
  }

  static Node *node_new(const char *func, int32_t line) {
    void *node = pooled_record_new(kNodeBytes, P::kSource, line, func);
    if (node == nullptr)
      LIST_ERROR(func, "list node alloc failed size(%d)\n", static_cast<int>(kNodeBytes));
    return static_cast<Node *>(node);
  }

  static int32_t node_delete(Node *node, const char *func) {
    if (node == nullptr) {
      LIST_ERROR(func, "Invalid node\n");
      return -1;
    }
    return pooled_record_delete(node, kNodeBytes);
  }

  static Node *head(const List *list, const char *func) {
    if (!valid(list, func))
      return nullptr;
    Node *first = load_relaxed(list->head);
    if (load_relaxed(list->count) > 1 && P::head_is_broken(first))
      report(func);
    return first;
  }

  static Node *tail(const List *list, const char *func) {
    return valid(list, func) ? load_relaxed(list->tail) : nullptr;
  }

  static Node *next(const List *list, const Node *node, const char *func) {
    return valid(list, func) ? load_relaxed(node->next) : nullptr;
  }

  static Node *prev(const List *list, const Node *node, const char *func) {
    return valid(list, func) ? load_relaxed(node->prev) : nullptr;
  }

  static uint32_t count(const List *list, const char *func) {
    return valid(list, func) ? load_relaxed(list->count) : 0;
  }

  static int32_t add_tail(List *list, Node *node) {
    if (!valid(list, P::kAddTail) || node == nullptr)
      return -1;
    const Lock lock(list);
    if (list->count != 0) {
      Node *last = list->tail;
      if (splice(last, last != nullptr ? last->next : nullptr, node) != 0) {
        LIST_ERROR(P::kAddTail, "__list_add failed.\n");
        return -1;
      }
      store_relaxed(list->tail, node);
    } else {
      link_first(list, node);
    }
    store_relaxed(list->count, list->count + 1);

    if (list->count > 1 && list->head != nullptr && list->head->next == nullptr)
      report(P::kAddTail);
    report_half_empty(list, P::kAddTail);
    if (list->tail->next != nullptr)
      report(P::kAddTail);
    return 0;
  }

  static int32_t add_head(List *list, Node *node) {
    if (!valid(list, P::kAddHead) || node == nullptr)
      return -1;
    const Lock lock(list);
    if (list->count != 0) {
      Node *first = list->head;
      if (splice(first != nullptr ? first->prev : nullptr, first, node) != 0) {
        LIST_ERROR(P::kAddHead, "__list_add failed.\n");
        return -1;
      }
      store_relaxed(list->head, node);
    } else {
      link_first(list, node);
    }
    store_relaxed(list->count, list->count + 1);
    report_half_empty(list, P::kAddHead);
    return 0;
  }

  // Membership is the caller's business, so the count falls in any case.
  static int32_t del(List *list, Node *node) {
    if (!valid(list, P::kDel) || node == nullptr)
      return -1;
    const Lock lock(list);
    if (node == list->head) {
      if (list->count >= 2 && node->next == nullptr)
        report(P::kDel);
      store_relaxed(list->head, node->next);
    }
    if (node == list->tail) {
      if (list->count >= 2 && node->prev == nullptr)
        report(P::kDel);
      store_relaxed(list->tail, node->prev);
    }
    report_half_empty(list, P::kDel);

    if (node->next != nullptr)
      store_relaxed(node->next->prev, node->prev);
    if (node->prev != nullptr)
      store_relaxed(node->prev->next, node->next);
    store_relaxed(node->prev, nullptr);
    store_relaxed(node->next, nullptr);
    store_relaxed(list->count, list->count - 1);
    return 0;
  }

  // An index equal to the count walks off the end and finds null: callers use
  // it to ask for "none".
  static Node *nth(List *list, uint32_t index) {
    if (!valid(list, P::kNth))
      return nullptr;
    const Lock lock(list);
    if (list->count < index) {
      LIST_ERROR(P::kNth, "invalid argument index(%d)\n", static_cast<int32_t>(index));
      return nullptr;
    }
    Node *node = head(list, P::kHead);
    uint32_t steps = 0;
    for (; steps < index && node != nullptr; ++steps)
      node = node->next;
    if (steps < index)
      LIST_ERROR(P::kNth, "critical error. mismatch num of node\n");
    return node;
  }

  // A move before any node cannot make a new tail, so the tail is left alone.
  static int32_t move(List *list, Node *dst, Node *src) {
    if (!valid(list, P::kMove))
      return -1;
    if (dst == nullptr || src == nullptr) {
      LIST_ERROR(P::kMove, "invalid node dst(%x) src(%x)\n", low32(dst), low32(src));
      return -1;
    }
    del(list, src);
    const Lock lock(list);
    const int32_t result = splice(dst->prev, dst, src);
    store_relaxed(list->count, list->count + 1);
    if (dst == list->head)
      store_relaxed(list->head, src);
    return result;
  }

  static int32_t move_to_tail(List *list, Node *node) {
    if (!valid(list, P::kMoveToTail))
      return -1;
    Node *last = load_relaxed(list->tail);
    if (node == last) {
      TRACE_FROM(P::kSource, P::kMoveToTail, KEL_LEVEL_DEBUG, "node is already tail\n");
      return 0;
    }
    if (del(list, node) != 0) {
      // The caller is not told: there is nothing it could do about it.
      LIST_ERROR(P::kMoveToTail, "list del error\n");
      return 0;
    }
    const Lock lock(list);
    const int32_t result = splice(last, last != nullptr ? last->next : nullptr, node);
    store_relaxed(list->count, list->count + 1);
    store_relaxed(list->tail, node);
    return result;
  }

 private:
  static void report(const char *func) { LIST_ERROR(func, "invalid list handle\n"); }

  static void report_half_empty(const List *list, const char *func) {
    if ((list->head == nullptr) != (list->tail == nullptr))
      report(func);
  }

  // The node keeps its own links: from a constructor or after a deletion they
  // are null.
  static void link_first(List *list, Node *node) {
    store_relaxed(list->head, node);
    store_relaxed(list->tail, node);
  }

  // Links `fresh` between two nodes, either of which may be null, if they are
  // neighbours.
  static int32_t splice(Node *prev, Node *next, Node *fresh) {
    if (next != nullptr && next->prev != prev) {
      LIST_ERROR(
          "__list_add",
          "list_add corruption. next->prev should be prev (%p), but was %p. (next=%p).\n",
          static_cast<void *>(prev), static_cast<void *>(next->prev),
          static_cast<void *>(next));
      return -1;
    }
    if (prev != nullptr && prev->next != next) {
      LIST_ERROR(
          "__list_add",
          "list_add corruption. prev->next should be next (%p), but was %p. (prev=%p).\n",
          static_cast<void *>(next), static_cast<void *>(prev->next),
          static_cast<void *>(prev));
      return -1;
    }
    store_relaxed(fresh->prev, prev);
    store_relaxed(fresh->next, next);
    if (next != nullptr)
      store_relaxed(next->prev, fresh);
    if (prev != nullptr)
      store_relaxed(prev->next, fresh);
    return 0;
  }
};

}  // namespace kel
