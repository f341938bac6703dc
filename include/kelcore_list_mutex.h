/* Locked list: the list of kelcore_list.h with a mutex of its own.
 *
 *     KEL_LIST *list = KEL_ListCreate();
 *     KEL_LIST_NODE *node = KEL_List_Node_new_data(frame);
 *     if (list != NULL && node != NULL) {
 *       KEL_ListAddTail(list, node); // any thread
 *       KEL_ListDel(list, node);     // any other one
 *     }
 *     KEL_List_Node_delete(node);
 *     if (list != NULL)
 *       KEL_ListDestroy(list);
 *
 * Each operation that changes the list is atomic by itself; a sequence of them
 * is not, and KEL_ListMove and KEL_ListMoveToTail are two steps between which
 * other threads may run. The Get calls take no lock: a caller that walks the
 * list while others change it brings its own serialisation. Locks are taken
 * without a time limit. Traces under "kellist".
 *
 * Threads: any may change a list; those that only look at it are not kept apart
 * from them.
 * Blocking: what changes the list, and KEL_List_GetNthList, wait for its lock.
 * Null: a null list or node is refused with the result that is told, unless it
 * must not be null. */
#ifndef KELCORE_LIST_MUTEX_H
#define KELCORE_LIST_MUTEX_H

#include "kelcore_mutex.h"
#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* A node, in one list at most. */
typedef struct KEL_LIST_NODE {
  struct KEL_LIST_NODE *prev; /* null at the head and while not linked */
  struct KEL_LIST_NODE *next; /* null at the tail and while not linked */
  void *data;                 /* the caller's; never looked into */
} KEL_LIST_NODE;

/* A list; its fields are written by the calls only. */
typedef struct KEL_LIST {
  KEL_LIST_NODE *head; /* null when empty */
  KEL_LIST_NODE *tail; /* null when empty */
  uint32_t count;      /* linked nodes */
  KEL_MUTEX *lock;     /* its own; null when it could not be made */
} KEL_LIST;

/* An empty list, owned by the caller until KEL_ListDestroy; null when memory
 * is short. Should only its lock fail, the list works unlocked. */
KEL_API KEL_NODISCARD KEL_LIST *KEL_ListCreate(void);

/* Releases the lock and the list record; nodes still linked are left as they
 * are. The list must not be null, and no other thread may be using it. */
KEL_API void KEL_ListDestroy(KEL_LIST *list);

/* A node, or one with `data` set, owned by the caller until KEL_List_Node_delete;
 * null when memory is short. The links are not set by these calls: a node that a
 * registered 24-byte pool class recycles is zeroed by the pool. Freed by the same
 * test (see KEL_NList_Node_new). */
KEL_API KEL_NODISCARD KEL_LIST_NODE *KEL_List_Node_new(void);
KEL_API KEL_NODISCARD KEL_LIST_NODE *KEL_List_Node_new_data(void *data);

/* Frees an unlinked node. Returns 0; -1 for null. */
KEL_API int32_t KEL_List_Node_delete(KEL_LIST_NODE *node);

/* The first node, unlocked; null when the list is empty or null. */
KEL_API KEL_LIST_NODE *KEL_ListGetHead(KEL_LIST *list);

/* The last node, unlocked; null when the list is empty or null. */
KEL_API KEL_LIST_NODE *KEL_ListGetTail(KEL_LIST *list);

/* The node after `node` (must not be null), unlocked; null at the tail or for a
 * null list. */
KEL_API KEL_LIST_NODE *KEL_ListGetNext(KEL_LIST *list, KEL_LIST_NODE *node);

/* The node before `node` (must not be null), unlocked; null at the head or for a
 * null list. */
KEL_API KEL_LIST_NODE *KEL_ListGetPrev(KEL_LIST *list, KEL_LIST_NODE *node);

/* The number of linked nodes, unlocked; 0 for null. */
KEL_API uint32_t KEL_ListGetNum(KEL_LIST *list);

/* Links an unlinked node at the tail or the head, as the plain list does. Returns
 * 0; -1 for a null argument or broken links (the list stays unchanged). */
KEL_API int32_t KEL_ListAddTail(KEL_LIST *list, KEL_LIST_NODE *node);
KEL_API int32_t KEL_ListAddHead(KEL_LIST *list, KEL_LIST_NODE *node);

/* Unlinks a node of this list, without freeing it. Returns 0; -1 for a null
 * argument. */
KEL_API int32_t KEL_ListDel(KEL_LIST *list, KEL_LIST_NODE *node);

/* The node at `index` (0 is the head), walking under the lock. Null as for
 * KEL_NList_GetNthList. */
KEL_API KEL_LIST_NODE *KEL_List_GetNthList(KEL_LIST *list, uint32_t index);

/* Moves `src` to stand immediately before `dst`, in two separately locked steps
 * (unlink, link). Returns 0; -1 for a null argument or broken links. */
KEL_API int32_t KEL_ListMove(KEL_LIST *list, KEL_LIST_NODE *dst, KEL_LIST_NODE *src);

/* Moves `node` to the tail, in two separately locked steps. Returns 0, also when it
 * is there already and for a null node (which is traced); -1 for a null list or broken
 * links. */
KEL_API int32_t KEL_ListMoveToTail(KEL_LIST *list, KEL_LIST_NODE *node);

KEL_END_DECLS

#endif
