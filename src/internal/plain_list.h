// The algorithms of the plain list, for modules whose hot paths keep their
// bookkeeping in one: the exported functions without the call.
#pragma once

#include "internal/list_algorithms.h"
#include "kelcore_list.h"

namespace kel {

struct PlainPolicy {
  using List = KEL_NLIST;
  using Node = KEL_NLIST_NODE;
  struct Lock {
    explicit Lock(List *) {}
  };
  static constexpr TraceSource kSource{"kelnlist", "kelcore_list"};
  static constexpr const char kHead[] = "KEL_NListGetHead";
  static constexpr const char kAddTail[] = "KEL_NListAddTail";
  static constexpr const char kAddHead[] = "KEL_NListAddHead";
  static constexpr const char kDel[] = "KEL_NListDel";
  static constexpr const char kNth[] = "KEL_NList_GetNthList";
  static constexpr const char kMove[] = "KEL_NListMove";
  static constexpr const char kMoveToTail[] = "KEL_NListMoveToTail";
  static bool head_is_broken(const Node *head) {
    return head == nullptr || head->next == nullptr;
  }
};

using PlainList = ListAlgorithms<PlainPolicy>;

}  // namespace kel
