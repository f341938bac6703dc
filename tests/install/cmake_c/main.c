/* As plain_c/main.c, with the header's plain name. */
#include "kelcore.h"

#include <stdio.h>

int main(void) {
  int value = 1;
  KEL_NLIST *list = KEL_NListCreate();
  KEL_NLIST_NODE *node = KEL_NList_Node_new_data(&value);
  KEL_NListAddTail(list, node);
  const int *found = KEL_NListGetHead(list)->data;
  printf("hello %d\n", *found);
  KEL_NListDel(list, node);
  KEL_NList_Node_delete(node);
  KEL_NListDestroy(list);
  return 0;
}
