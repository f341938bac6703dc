#include <kelcore_list.h>

#include "require.h"

static int used;

static void use(void *data) {
  REQUIRE(data == &used);
  ++used;
}

int main(void) {
  int *frame = &used;
  /* --- example --- */
  KEL_NLIST *list = KEL_NListCreate();
  KEL_NLIST_NODE *node = KEL_NList_Node_new_data(frame);
  if (list != NULL && node != NULL) {
    KEL_NListAddTail(list, node);
    for (KEL_NLIST_NODE *n = KEL_NListGetHead(list); n; n = KEL_NListGetNext(list, n))
      use(n->data);
    KEL_NListDel(list, node);
  }
  KEL_NList_Node_delete(node);
  KEL_NListDestroy(list);
  /* --- */
  REQUIRE(used == 1);
  return 0;
}
