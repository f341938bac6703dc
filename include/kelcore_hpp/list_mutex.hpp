/// @file
/// kel::locked_list<T *>: a list of pointers that threads share.
///
///     auto waiting = kel::locked_list<job *>::create().value_or_throw();
///     waiting.push_back(&j).or_throw();                     // any thread
///     if (job *next = waiting.pop_front()) ...              // any thread
///     waiting.for_each([](job &each) { each.look(); });     // under the lock
///
/// What the pointers refer to stays the caller's; the nodes are the list's. The lock
/// is taken without a time limit.
///
/// Where it differs from the C calls:
///  - Taking an item is one step: no two threads get the same one. KEL_ListGetHead
///    and KEL_ListDel are two, and the first of them takes no lock.
///  - Walking holds the lock.
///  - A list whose lock cannot be made is refused; KEL_ListCreate makes it unlocked.
///  - The list's end frees its nodes.
#ifndef KELCORE_HPP_LIST_MUTEX_HPP
#define KELCORE_HPP_LIST_MUTEX_HPP

#include <cstdint>

#include "../kelcore_list_mutex.h"
#include "owner.hpp"
#include "result.hpp"

namespace kel {

namespace detail {

inline void destroy_locked_list(KEL_LIST *list) {
  while (KEL_LIST_NODE *node = KEL_ListGetHead(list)) {
    KEL_ListDel(list, node);
    KEL_List_Node_delete(node);
  }
  KEL_ListDestroy(list);
}

/// Holds a list's own lock.
class list_guard {
 public:
  explicit list_guard(KEL_LIST *list) : lock_(list->lock) {
    KEL_MutexLock(lock_, KEL_WAIT_FOREVER);
  }
  ~list_guard() { KEL_MutexUnLock(lock_); }
  list_guard(const list_guard &) = delete;
  list_guard &operator=(const list_guard &) = delete;

 private:
  KEL_MUTEX *lock_;
};

/// What KEL_ListDel does, for those who hold the lock already.
inline void unlink_held(KEL_LIST *list, KEL_LIST_NODE *node) {
  (node->prev != nullptr ? node->prev->next : list->head) = node->next;
  (node->next != nullptr ? node->next->prev : list->tail) = node->prev;
  node->prev = node->next = nullptr;
  --list->count;
}

}  // namespace detail

template <class Pointer>
class locked_list;

/// @tparam T  what the pointers refer to.
template <class T>
class locked_list<T *> : public owner<KEL_LIST, &detail::destroy_locked_list> {
 public:
  using owner::owner;  // takes over the nodes, too

  /// An empty list. Fails when memory is short.
  static result<locked_list> create() {
    locked_list made(KEL_ListCreate());
    if (!made || made.native_handle()->lock == nullptr)
      return errc::out_of_memory;
    return made;
  }

  /// The number of items as of now; without the lock.
  uint32_t size() const { return KEL_ListGetNum(native_handle()); }
  bool empty() const { return size() == 0; }

  /// Links a new node with `data`. Fails when memory is short.
  [[nodiscard]] status push_back(T *data) { return link(data, KEL_ListAddTail); }
  [[nodiscard]] status push_front(T *data) { return link(data, KEL_ListAddHead); }

  /// Unlinks an item, frees its node and gives the item; null for an empty list.
  T *pop_front() {
    return taken([](const KEL_LIST *list) { return list->head; });
  }
  T *pop_back() {
    return taken([](const KEL_LIST *list) { return list->tail; });
  }

  /// Calls `look(item)` for each item from the first on. `look` does not call the list.
  template <class Look>
  void for_each(Look &&look) {
    const detail::list_guard held(native_handle());
    for (KEL_LIST_NODE *node = native_handle()->head; node != nullptr; node = node->next)
      look(*static_cast<T *>(node->data));
  }

  /// Unlinks every item for which `wanted(item)` is true; gives their number. `wanted`
  /// does not call the list.
  template <class Wanted>
  uint32_t remove_if(Wanted &&wanted) {
    KEL_LIST *list = native_handle();
    const detail::list_guard held(list);
    uint32_t removed = 0;
    for (KEL_LIST_NODE *node = list->head; node != nullptr;) {
      KEL_LIST_NODE *next = node->next;
      if (wanted(*static_cast<T *>(node->data))) {
        detail::unlink_held(list, node);
        KEL_List_Node_delete(node);
        ++removed;
      }
      node = next;
    }
    return removed;
  }

  /// Unlinks all items.
  void clear() {
    remove_if([](const T &) { return true; });
  }

 private:
  template <class Add>
  status link(T *data, Add add) {
    KEL_LIST_NODE *node = KEL_List_Node_new_data(data);
    if (node == nullptr)
      return errc::out_of_memory;
    node->prev = node->next = nullptr;  // the call does not set them
    const status linked(add(native_handle(), node));
    if (!linked)
      KEL_List_Node_delete(node);
    return linked;
  }

  template <class End>
  T *taken(End end) {
    KEL_LIST *list = native_handle();
    KEL_LIST_NODE *node = nullptr;
    {
      const detail::list_guard held(list);
      node = end(list);
      if (node == nullptr)
        return nullptr;
      detail::unlink_held(list, node);
    }
    T *data = static_cast<T *>(node->data);
    KEL_List_Node_delete(node);
    return data;
  }
};

}  // namespace kel

#endif
