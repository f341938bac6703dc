/* The plain list, whose nodes the caller owns, and the locked one, which any
 * threads may share. */
#include <kelcore_list.h>
#include <kelcore_list_mutex.h>

#include "require.h"

struct channel {
  KEL_NLIST_NODE node; /* a list through the records needs no memory of its own */
  const char *name;
};

static void print(KEL_NLIST *list) {
  for (KEL_NLIST_NODE *node = KEL_NListGetHead(list); node != NULL;
       node = KEL_NListGetNext(list, node))
    printf("%s ", ((struct channel *)node->data)->name);
  printf("(%u)\n", (unsigned)KEL_NListGetNum(list));
}

int main(void) {
  struct channel channels[] = {{{0}, "news"}, {{0}, "sport"}, {{0}, "film"}};
  KEL_NLIST *list = KEL_NListCreate();
  REQUIRE(list != NULL);
  for (int i = 0; i < 3; ++i) {
    channels[i].node.data = &channels[i];
    REQUIRE(KEL_NListAddTail(list, &channels[i].node) == 0);
  }
  print(list);
  REQUIRE(KEL_NListMoveToTail(list, &channels[0].node) == 0);
  print(list);
  REQUIRE(KEL_NListDel(list, &channels[2].node) == 0);
  print(list);
  KEL_NListDel(list, &channels[0].node);
  KEL_NListDel(list, &channels[1].node);
  KEL_NListDestroy(list);

  /* The same under a lock of its own, here with a node from the library. */
  KEL_LIST *shared = KEL_ListCreate();
  REQUIRE(shared != NULL);
  KEL_LIST_NODE *node = KEL_List_Node_new_data(&channels[1]);
  REQUIRE(node != NULL && KEL_ListAddHead(shared, node) == 0);
  printf("shared: %u\n", (unsigned)KEL_ListGetNum(shared));
  REQUIRE(KEL_ListDel(shared, node) == 0);
  KEL_List_Node_delete(node);
  KEL_ListDestroy(shared);
  return 0;
}
