// Both lists, the plain one and the locked one, as a sequence of operations
// against a deque of the nodes that should be linked.

#include <kelcore_list.h>
#include <kelcore_list_mutex.h>

#include <algorithm>
#include <deque>

#include "fuzz.h"

namespace {

struct Plain {
  using List = KEL_NLIST;
  using Node = KEL_NLIST_NODE;
  static constexpr auto kCreate = KEL_NListCreate;
  static constexpr auto kDestroy = KEL_NListDestroy;
  static constexpr auto kNodeNew = KEL_NList_Node_new_data;
  static constexpr auto kNodeDelete = KEL_NList_Node_delete;
  static constexpr auto kHead = KEL_NListGetHead;
  static constexpr auto kTail = KEL_NListGetTail;
  static constexpr auto kNext = KEL_NListGetNext;
  static constexpr auto kPrev = KEL_NListGetPrev;
  static constexpr auto kCount = KEL_NListGetNum;
  static constexpr auto kAddTail = KEL_NListAddTail;
  static constexpr auto kAddHead = KEL_NListAddHead;
  static constexpr auto kDel = KEL_NListDel;
  static constexpr auto kNth = KEL_NList_GetNthList;
  static constexpr auto kMove = KEL_NListMove;
  static constexpr auto kMoveToTail = KEL_NListMoveToTail;
};

struct Locked {
  using List = KEL_LIST;
  using Node = KEL_LIST_NODE;
  static constexpr auto kCreate = KEL_ListCreate;
  static constexpr auto kDestroy = KEL_ListDestroy;
  static constexpr auto kNodeNew = KEL_List_Node_new_data;
  static constexpr auto kNodeDelete = KEL_List_Node_delete;
  static constexpr auto kHead = KEL_ListGetHead;
  static constexpr auto kTail = KEL_ListGetTail;
  static constexpr auto kNext = KEL_ListGetNext;
  static constexpr auto kPrev = KEL_ListGetPrev;
  static constexpr auto kCount = KEL_ListGetNum;
  static constexpr auto kAddTail = KEL_ListAddTail;
  static constexpr auto kAddHead = KEL_ListAddHead;
  static constexpr auto kDel = KEL_ListDel;
  static constexpr auto kNth = KEL_List_GetNthList;
  static constexpr auto kMove = KEL_ListMove;
  static constexpr auto kMoveToTail = KEL_ListMoveToTail;
};

template <typename Door>
class Run {
 public:
  using Node = typename Door::Node;

  explicit Run(FuzzedDataProvider &input) : input_(input), list_(Door::kCreate()) {
    FUZZ_CHECK(list_ != nullptr);
  }
  ~Run() {
    while (!model_.empty())
      Drop(0);
    Check();
    Door::kDestroy(list_);
  }

  void Step() {
    switch (input_.ConsumeIntegralInRange<int>(0, 6)) {
      case 0:
      case 1:
        Add(Door::kAddTail, false);
        break;
      case 2:
        Add(Door::kAddHead, true);
        break;
      case 3:
        Nth();
        break;
      case 4:
        if (!model_.empty())
          Drop(Any());
        break;
      case 5:
        Move();
        break;
      default:
        MoveToTail();
        break;
    }
    Check();
  }

 private:
  size_t Any() { return input_.ConsumeIntegralInRange<size_t>(0, model_.size() - 1); }

  Node *TakeOut(size_t at) {
    Node *node = model_[at];
    model_.erase(model_.begin() + static_cast<ptrdiff_t>(at));
    return node;
  }

  void Add(int32_t (*add)(typename Door::List *, Node *), bool in_front) {
    void *data = reinterpret_cast<void *>(uintptr_t{input_.ConsumeIntegral<uint16_t>()});
    Node *node = Door::kNodeNew(data);
    FUZZ_CHECK(node != nullptr && node->data == data);
    // The locked list's constructor leaves the links to its callers.
    node->prev = node->next = nullptr;
    FUZZ_EQUAL(add(list_, node), 0);
    model_.insert(in_front ? model_.begin() : model_.end(), node);
  }

  void Nth() {
    const auto index = input_.ConsumeIntegral<uint8_t>();
    FUZZ_CHECK(Door::kNth(list_, index) == (index < model_.size() ? model_[index] : nullptr));
  }

  void Drop(size_t at) {
    Node *node = TakeOut(at);
    FUZZ_EQUAL(Door::kDel(list_, node), 0);
    FUZZ_CHECK(node->prev == nullptr && node->next == nullptr);
    FUZZ_EQUAL(Door::kNodeDelete(node), 0);
  }

  void Move() {
    if (model_.size() < 2)
      return;
    Node *to = model_[Any()];
    const size_t from = Any();
    if (to == model_[from])
      return;
    Node *node = TakeOut(from);
    FUZZ_EQUAL(Door::kMove(list_, to, node), 0);
    model_.insert(std::find(model_.begin(), model_.end(), to), node);
  }

  void MoveToTail() {
    if (model_.empty())
      return;
    Node *node = TakeOut(Any());
    FUZZ_EQUAL(Door::kMoveToTail(list_, node), 0);
    model_.push_back(node);
  }

  void Check() {
    FUZZ_EQUAL(Door::kCount(list_), model_.size());
    FUZZ_CHECK(Door::kHead(list_) == (model_.empty() ? nullptr : model_.front()));
    FUZZ_CHECK(Door::kTail(list_) == (model_.empty() ? nullptr : model_.back()));
    Node *before = nullptr;
    for (Node *node : model_) {
      FUZZ_CHECK(Door::kPrev(list_, node) == before);
      FUZZ_CHECK(before == nullptr || Door::kNext(list_, before) == node);
      before = node;
    }
    FUZZ_CHECK(before == nullptr || Door::kNext(list_, before) == nullptr);
  }

  FuzzedDataProvider &input_;
  typename Door::List *list_;
  std::deque<Node *> model_;
};

template <typename Door>
void RunAll(FuzzedDataProvider &input) {
  Run<Door> run(input);
  // Each step looks at the whole list.
  for (int steps = 0; steps < 200 && input.remaining_bytes() > 0; ++steps)
    run.Step();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  if (input.ConsumeBool())
    RunAll<Plain>(input);
  else
    RunAll<Locked>(input);
  return 0;
}
