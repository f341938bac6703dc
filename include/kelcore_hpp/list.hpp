/// @file
/// kel::list<T *>: a doubly linked list of pointers, for one thread or under a lock of
/// the caller's.
///
///     auto frames = kel::list<frame *>::create().value_or_throw();
///     frames.push_back(&f).or_throw();
///     for (frame &each : frames) use(each);
///
/// What the pointers refer to stays the caller's; the nodes are the list's. Nothing
/// blocks. Everything but nth() takes constant time.
///
/// Where it differs from the C calls: the list's end frees its nodes, which
/// KEL_NListDestroy leaves as they are.
#ifndef KELCORE_HPP_LIST_HPP
#define KELCORE_HPP_LIST_HPP

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "../kelcore_list.h"
#include "owner.hpp"
#include "result.hpp"

namespace kel {

namespace detail {

inline void delete_nodes(KEL_NLIST *list) {
  while (KEL_NLIST_NODE *node = KEL_NListGetHead(list)) {
    KEL_NListDel(list, node);
    KEL_NList_Node_delete(node);
  }
}

inline void destroy_list(KEL_NLIST *list) {
  delete_nodes(list);
  KEL_NListDestroy(list);
}

}  // namespace detail

template <class Pointer>
class list;

/// @tparam T  what the pointers refer to.
template <class T>
class list<T *> : public owner<KEL_NLIST, &detail::destroy_list> {
 public:
  using owner::owner;  // takes over the nodes, too

  /// Visits the items; stays valid while its own item stays in the list.
  class iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = T *;
    using reference = T &;

    constexpr iterator() noexcept = default;
    constexpr explicit iterator(KEL_NLIST_NODE *node) noexcept : node_(node) {}
    T &operator*() const noexcept { return *static_cast<T *>(node_->data); }
    T *operator->() const noexcept { return static_cast<T *>(node_->data); }
    iterator &operator++() noexcept {
      node_ = node_->next;
      return *this;
    }
    iterator operator++(int) noexcept {
      const iterator before = *this;
      node_ = node_->next;
      return before;
    }
    friend constexpr bool operator==(iterator a, iterator b) noexcept {
      return a.node_ == b.node_;
    }
    friend constexpr bool operator!=(iterator a, iterator b) noexcept {
      return a.node_ != b.node_;
    }
    /// The node; null at the end.
    constexpr KEL_NLIST_NODE *node() const noexcept { return node_; }

   private:
    KEL_NLIST_NODE *node_ = nullptr;
  };

  /// An empty list. Fails when memory is short.
  static result<list> create() { return detail::owned<list>(KEL_NListCreate()); }

  /// From the first node to the last.
  iterator begin() const { return iterator(KEL_NListGetHead(native_handle())); }
  iterator end() const noexcept { return iterator(); }

  /// The number of items, which the list knows.
  uint32_t size() const { return KEL_NListGetNum(native_handle()); }
  bool empty() const { return size() == 0; }

  /// The first or the last item; null for an empty list.
  T *front() const { return item(KEL_NListGetHead(native_handle())); }
  T *back() const { return item(KEL_NListGetTail(native_handle())); }

  /// Links a new node with `data`. Fails when memory is short.
  [[nodiscard]] status push_back(T *data) { return link(data, KEL_NListAddTail); }
  [[nodiscard]] status push_front(T *data) { return link(data, KEL_NListAddHead); }

  /// Unlinks an item, frees its node and gives the item; null for an empty list.
  T *pop_front() { return unlink(KEL_NListGetHead(native_handle())); }
  T *pop_back() { return unlink(KEL_NListGetTail(native_handle())); }

  /// Unlinks the item at `place`, which is in this list; gives the place behind it.
  iterator erase(iterator place) {
    const iterator next(place.node()->next);
    unlink(place.node());
    return next;
  }

  /// Moves `what` to stand before `place`; both are in this list.
  status move_before(iterator place, iterator what) {
    if (place == what)
      return {};
    return status(KEL_NListMove(native_handle(), place.node(), what.node()));
  }
  status move_to_back(iterator what) {
    return status(KEL_NListMoveToTail(native_handle(), what.node()));
  }

  /// The place of the item with that number; end() when there are not so many. Walks.
  iterator nth(uint32_t index) const {
    return index < size() ? iterator(KEL_NList_GetNthList(native_handle(), index)) : end();
  }

  /// Unlinks all items and frees their nodes.
  void clear() { detail::delete_nodes(native_handle()); }

 private:
  static T *item(const KEL_NLIST_NODE *node) {
    return node != nullptr ? static_cast<T *>(node->data) : nullptr;
  }

  template <class Add>
  status link(T *data, Add add) {
    KEL_NLIST_NODE *node = KEL_NList_Node_new_data(data);
    if (node == nullptr)
      return errc::out_of_memory;
    const status linked(add(native_handle(), node));
    if (!linked)
      KEL_NList_Node_delete(node);
    return linked;
  }

  T *unlink(KEL_NLIST_NODE *node) {
    if (node == nullptr)
      return nullptr;
    T *data = item(node);
    KEL_NListDel(native_handle(), node);
    KEL_NList_Node_delete(node);
    return data;
  }
};

}  // namespace kel

#endif
