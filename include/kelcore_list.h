/* Plain list: a doubly linked list of nodes that the caller owns, no lock.
 *
 *     KEL_NLIST *list = KEL_NListCreate();
 *     KEL_NLIST_NODE *node = KEL_NList_Node_new_data(frame);
 *     if (list != NULL && node != NULL) {
 *       KEL_NListAddTail(list, node);
 *       for (KEL_NLIST_NODE *n = KEL_NListGetHead(list); n; n = KEL_NListGetNext(list, n))
 *         use(n->data);
 *       KEL_NListDel(list, node);
 *     }
 *     KEL_NList_Node_delete(node);
 *     KEL_NListDestroy(list);
 *
 * The list links and unlinks nodes; it never allocates, frees or looks into
 * one. Operations check the links that they are about to change and trace
 * corruption ("kelnlist", ERROR) instead of repairing it. All but
 * KEL_NList_GetNthList take constant time. Threads that share a list
 * bring their own lock, or use kelcore_list_mutex.h.
 *
 * Threads: none but the one that has the list, or its lock.
 * Blocking: never, but for the pool allocator's lock when it holds the nodes.
 * Null: a null list or node is refused with the result that is told, unless it
 * must not be null. */
#ifndef KELCORE_LIST_H
#define KELCORE_LIST_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* A node, in one list at most. */
typedef struct KEL_NLIST_NODE {
  struct KEL_NLIST_NODE *prev; /* null at the head and while not linked */
  struct KEL_NLIST_NODE *next; /* null at the tail and while not linked */
  void *data;                  /* the caller's; never looked into */
} KEL_NLIST_NODE;

/* A list; its fields are read by all, written by the calls only. */
typedef struct KEL_NLIST {
  KEL_NLIST_NODE *head; /* null when empty */
  KEL_NLIST_NODE *tail; /* null when empty */
  uint32_t count;       /* linked nodes */
} KEL_NLIST;

/* An empty list, owned by the caller until KEL_NListDestroy; null when memory
 * is short. */
KEL_API KEL_NODISCARD KEL_NLIST *KEL_NListCreate(void);

/* Releases the list record. Nodes still linked are left as they are: unlink
 * and free them first. Null is ignored. */
KEL_API void KEL_NListDestroy(KEL_NLIST *list);

/* A zeroed node, or one with `data` set, owned by the caller until
 * KEL_NList_Node_delete; null when memory is short. Nodes come from the pool
 * allocator's 24-byte class when that is registered (see kelcore_smem.h), else
 * from the heap. The same test decides how a node is freed: do not register or
 * unregister that class while nodes live. */
KEL_API KEL_NODISCARD KEL_NLIST_NODE *KEL_NList_Node_new(void);
KEL_API KEL_NODISCARD KEL_NLIST_NODE *KEL_NList_Node_new_data(void *data);

/* Frees an unlinked node. Returns 0; -1 for null. */
KEL_API int32_t KEL_NList_Node_delete(KEL_NLIST_NODE *node);

/* The first node, null when the list is empty or null. */
KEL_API KEL_NLIST_NODE *KEL_NListGetHead(KEL_NLIST *list);

/* The last node, null when the list is empty or null. */
KEL_API KEL_NLIST_NODE *KEL_NListGetTail(KEL_NLIST *list);

/* The node after `node` (must not be null), null at the tail or for a null list. */
KEL_API KEL_NLIST_NODE *KEL_NListGetNext(KEL_NLIST *list, KEL_NLIST_NODE *node);

/* The node before `node` (must not be null), null at the head or for a null list. */
KEL_API KEL_NLIST_NODE *KEL_NListGetPrev(KEL_NLIST *list, KEL_NLIST_NODE *node);

/* The number of linked nodes; 0 for null. */
KEL_API uint32_t KEL_NListGetNum(KEL_NLIST *list);

/* Links an unlinked node at the tail or the head. Returns 0; -1 for a null
 * list or when the neighbouring links are broken (the list stays unchanged).
 * A node added to an empty list keeps its own prev and next: they must be
 * null, as the constructors and KEL_NListDel leave them. */
KEL_API int32_t KEL_NListAddTail(KEL_NLIST *list, KEL_NLIST_NODE *node);
KEL_API int32_t KEL_NListAddHead(KEL_NLIST *list, KEL_NLIST_NODE *node);

/* Unlinks a node and clears its links; does not free it. The caller knows that
 * the node is in this list: it is not checked, and the count falls in any
 * case. Returns 0; -1 for a null list. */
KEL_API int32_t KEL_NListDel(KEL_NLIST *list, KEL_NLIST_NODE *node);

/* The node at `index` (0 is the head). Null for an index equal to the count,
 * silently, for a greater one with an ERROR trace. Walks from the head. */
KEL_API KEL_NLIST_NODE *KEL_NList_GetNthList(KEL_NLIST *list, uint32_t index);

/* Moves `src` to stand immediately before `dst`; the two must differ.
 * Returns 0; -1 for a null argument or broken links. */
KEL_API int32_t KEL_NListMove(KEL_NLIST *list, KEL_NLIST_NODE *dst, KEL_NLIST_NODE *src);

/* Moves `node` to the tail. Returns 0, also when it is there already and for a null
 * node (which is traced); -1 for a null list or broken links. */
KEL_API int32_t KEL_NListMoveToTail(KEL_NLIST *list, KEL_NLIST_NODE *node);

KEL_END_DECLS

#endif
