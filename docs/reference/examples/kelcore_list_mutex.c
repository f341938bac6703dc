#include <kelcore_list_mutex.h>

#include "require.h"

int main(void) {
  int record = 0, *frame = &record;
  /* --- example --- */
  KEL_LIST *list = KEL_ListCreate();
  KEL_LIST_NODE *node = KEL_List_Node_new_data(frame);
  if (list != NULL && node != NULL) {
    KEL_ListAddTail(list, node); /* any thread */
    KEL_ListDel(list, node);     /* any other one */
  }
  KEL_List_Node_delete(node);
  if (list != NULL)
    KEL_ListDestroy(list);
  /* --- */
  return 0;
}
