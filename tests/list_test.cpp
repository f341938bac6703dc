// Both lists against the same tests, through a table of their functions; what
// only the locked one does is in list_mutex_test.cpp.

#include "kelcore_list.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_list_mutex.h"
#include "kelcore_smem.h"
#include "trace_capture.h"

namespace {

struct PlainList {
  using List = KEL_NLIST;
  using Node = KEL_NLIST_NODE;
  static constexpr const char *kModule = "kelnlist";
  static constexpr const char *kSource = "kelcore_list";
  static constexpr const char *kPrefix = "KEL_NList";
  static constexpr auto Create = KEL_NListCreate;
  static constexpr auto Destroy = KEL_NListDestroy;
  static constexpr auto NodeNew = KEL_NList_Node_new;
  static constexpr auto NodeNewData = KEL_NList_Node_new_data;
  static constexpr auto NodeDelete = KEL_NList_Node_delete;
  static constexpr auto Head = KEL_NListGetHead;
  static constexpr auto Tail = KEL_NListGetTail;
  static constexpr auto Next = KEL_NListGetNext;
  static constexpr auto Prev = KEL_NListGetPrev;
  static constexpr auto Num = KEL_NListGetNum;
  static constexpr auto AddTail = KEL_NListAddTail;
  static constexpr auto AddHead = KEL_NListAddHead;
  static constexpr auto Del = KEL_NListDel;
  static constexpr auto Nth = KEL_NList_GetNthList;
  static constexpr auto Move = KEL_NListMove;
  static constexpr auto MoveToTail = KEL_NListMoveToTail;
};

struct LockedList {
  using List = KEL_LIST;
  using Node = KEL_LIST_NODE;
  static constexpr const char *kModule = "kellist";
  static constexpr const char *kSource = "kelcore_list_mutex";
  static constexpr const char *kPrefix = "KEL_List";
  static constexpr auto Create = KEL_ListCreate;
  static constexpr auto Destroy = KEL_ListDestroy;
  static constexpr auto NodeNew = KEL_List_Node_new;
  static constexpr auto NodeNewData = KEL_List_Node_new_data;
  static constexpr auto NodeDelete = KEL_List_Node_delete;
  static constexpr auto Head = KEL_ListGetHead;
  static constexpr auto Tail = KEL_ListGetTail;
  static constexpr auto Next = KEL_ListGetNext;
  static constexpr auto Prev = KEL_ListGetPrev;
  static constexpr auto Num = KEL_ListGetNum;
  static constexpr auto AddTail = KEL_ListAddTail;
  static constexpr auto AddHead = KEL_ListAddHead;
  static constexpr auto Del = KEL_ListDel;
  static constexpr auto Nth = KEL_List_GetNthList;
  static constexpr auto Move = KEL_ListMove;
  static constexpr auto MoveToTail = KEL_ListMoveToTail;
};

template <typename L>
class Lists : public testing::Test {
 protected:
  using List = typename L::List;
  using Node = typename L::Node;

  ~Lists() override { L::Destroy(list); }

  // The line that the function named by prefix and `name` traces.
  static TraceLine Line(const char *level, const std::string &name, const std::string &text) {
    return {level, L::kModule, L::kSource, L::kPrefix + name, text};
  }
  static TraceLine Error(const std::string &name, const std::string &text) {
    return Line("ERROR", name, text);
  }
  static TraceLine InvalidList(const std::string &name) {
    return Error(name, "invalid list handle\n");
  }
  // The splice traces under a name of its own.
  static TraceLine SpliceError(const std::string &text) {
    return {"ERROR", L::kModule, L::kSource, "__list_add", text};
  }
  static TraceLine NextPrevError(Node *prev, Node *was, Node *next) {
    return SpliceError(
        Format("list_add corruption. next->prev should be prev (%p), but was %p. (next=%p).\n",
               static_cast<void *>(prev), static_cast<void *>(was), static_cast<void *>(next)));
  }
  static TraceLine PrevNextError(Node *next, Node *was, Node *prev) {
    return SpliceError(
        Format("list_add corruption. prev->next should be next (%p), but was %p. (prev=%p).\n",
               static_cast<void *>(next), static_cast<void *>(was), static_cast<void *>(prev)));
  }

  void Fill(size_t count) {
    for (size_t i = 0; i < count; ++i)
      ASSERT_EQ(L::AddTail(list, &nodes[i]), 0);
  }
  // Sets the links to those of a list of the given nodes.
  void ExpectChain(const std::vector<int> &order) {
    std::vector<int> forward, backward;
    for (Node *n = list->head; n != nullptr && forward.size() < 10; n = n->next)
      forward.push_back(static_cast<int>(n - nodes));
    for (Node *n = list->tail; n != nullptr && backward.size() < 10; n = n->prev)
      backward.insert(backward.begin(), static_cast<int>(n - nodes));
    EXPECT_EQ(forward, order);
    EXPECT_EQ(backward, order);
    EXPECT_EQ(L::Num(list), order.size());
  }
  void ExpectUnlinked(const Node &node) {
    EXPECT_EQ(node.prev, nullptr);
    EXPECT_EQ(node.next, nullptr);
  }

  List *list = L::Create();
  Node nodes[6] = {};
  TraceCapture trace;
};

using BothLists = testing::Types<PlainList, LockedList>;
TYPED_TEST_SUITE(Lists, BothLists);

// ---- Create and destroy ----

TYPED_TEST(Lists, StartsEmpty) {
  EXPECT_EQ(this->list->head, nullptr);
  EXPECT_EQ(this->list->tail, nullptr);
  EXPECT_EQ(this->list->count, 0u);
}

TYPED_TEST(Lists, RecordsAreLaidOutInTheGivenOrder) {
  using Record = typename TypeParam::List;
  using Entry = typename TypeParam::Node;
  EXPECT_EQ(offsetof(Record, head), 0u);
  EXPECT_EQ(offsetof(Record, tail), 8u);
  EXPECT_EQ(offsetof(Record, count), 16u);
  EXPECT_EQ(sizeof(Entry), 24u);
  EXPECT_EQ(offsetof(Entry, prev), 0u);
  EXPECT_EQ(offsetof(Entry, next), 8u);
  EXPECT_EQ(offsetof(Entry, data), 16u);
}

TYPED_TEST(Lists, CreateWithoutMemoryReports24Bytes) {
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(TypeParam::Create(), nullptr);
  EXPECT_EQ(this->trace.Take(), (Lines{this->Error("Create", "list alloc failed size(24)\n")}));
}

TYPED_TEST(Lists, DestroyTracesAndLeavesLinkedNodes) {
  AllocHooks hooks;
  typename TypeParam::List *other = TypeParam::Create();
  TypeParam::AddTail(other, &this->nodes[0]);
  TypeParam::AddTail(other, &this->nodes[1]);
  this->trace.Take();
  const std::string expected = Format("list free (%x)\n", Low32(other));
  TypeParam::Destroy(other);
  EXPECT_EQ(this->trace.Take(), (Lines{this->Line("TRACE", "Destroy", expected)}));
  EXPECT_EQ(hooks.live(), 0);
  EXPECT_EQ(this->nodes[0].next, &this->nodes[1]);
}

// ---- Nodes ----

TYPED_TEST(Lists, NewNodesComeZeroedFromTheHeap) {
  AllocHooks hooks;
  auto *node = TypeParam::NodeNew();
  ASSERT_NE(node, nullptr);
  ASSERT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(hooks.adds[0].size, 24u);
  EXPECT_EQ(hooks.adds[0].file, TypeParam::kSource);
  EXPECT_EQ(hooks.adds[0].func, TypeParam::kPrefix + std::string("_Node_new"));
  this->ExpectUnlinked(*node);
  EXPECT_EQ(node->data, nullptr);
  EXPECT_EQ(TypeParam::NodeDelete(node), 0);
  EXPECT_EQ(hooks.live(), 0);
}

TYPED_TEST(Lists, NewNodesMayCarryData) {
  int data = 0;
  auto *node = TypeParam::NodeNewData(&data);
  ASSERT_NE(node, nullptr);
  this->ExpectUnlinked(*node);
  EXPECT_EQ(node->data, &data);
  EXPECT_EQ(TypeParam::NodeDelete(node), 0);
}

TYPED_TEST(Lists, NodeFailureReports24Bytes) {
  faults::malloc.Fail(nullptr, ENOMEM);
  int data = 0;
  EXPECT_EQ(TypeParam::NodeNew(), nullptr);
  EXPECT_EQ(TypeParam::NodeNewData(&data), nullptr);
  EXPECT_EQ(this->trace.Take(),
            (Lines{this->Error("_Node_new", "list node alloc failed size(24)\n"),
                   this->Error("_Node_new_data", "list node alloc failed size(24)\n")}));
}

TYPED_TEST(Lists, DeletingANullNodeFails) {
  EXPECT_EQ(TypeParam::NodeDelete(nullptr), -1);
  EXPECT_EQ(this->trace.Take(), (Lines{this->Error("_Node_delete", "Invalid node\n")}));
}

TYPED_TEST(Lists, NodesComeFromThePoolWhenItServes24Bytes) {
  KEL_SMalloc_Init();
  ASSERT_EQ(KEL_SMalloc_Register(24, nullptr), 0);
  {
    AllocHooks hooks;
    int data = 0;
    auto *node = TypeParam::NodeNew();
    auto *with_data = TypeParam::NodeNewData(&data);
    ASSERT_NE(node, nullptr);
    ASSERT_NE(with_data, nullptr);
    EXPECT_EQ(with_data->data, &data);
    EXPECT_EQ(hooks.adds.size(), 0u) << "the heap is not asked";
    EXPECT_EQ(TypeParam::NodeDelete(node), 0);
    EXPECT_EQ(TypeParam::NodeDelete(with_data), 0);
    EXPECT_EQ(hooks.removes.size(), 0u);
    EXPECT_EQ(TypeParam::NodeNew(), node) << "the pool got it back";
    TypeParam::NodeDelete(node);
  }
  KEL_SMalloc_UnRegister(24);
  KEL_SMalloc_Deinit();
}

// ---- Null handles ----

TYPED_TEST(Lists, EveryCallRefusesANullList) {
  typename TypeParam::Node *node = &this->nodes[0];
  EXPECT_EQ(TypeParam::Head(nullptr), nullptr);
  EXPECT_EQ(TypeParam::Tail(nullptr), nullptr);
  EXPECT_EQ(TypeParam::Next(nullptr, node), nullptr);
  EXPECT_EQ(TypeParam::Prev(nullptr, node), nullptr);
  EXPECT_EQ(TypeParam::Num(nullptr), 0u);
  EXPECT_EQ(TypeParam::AddTail(nullptr, node), -1);
  EXPECT_EQ(TypeParam::AddHead(nullptr, node), -1);
  EXPECT_EQ(TypeParam::Del(nullptr, node), -1);
  EXPECT_EQ(TypeParam::Nth(nullptr, 0), nullptr);
  EXPECT_EQ(TypeParam::Move(nullptr, node, node), -1);
  EXPECT_EQ(TypeParam::MoveToTail(nullptr, node), -1);
  Lines expected;
  for (const char *name : {"GetHead", "GetTail", "GetNext", "GetPrev", "GetNum", "AddTail",
                           "AddHead", "Del", "_GetNthList", "Move", "MoveToTail"})
    expected.push_back(this->InvalidList(name));
  EXPECT_EQ(this->trace.Take(), expected);
}

TYPED_TEST(Lists, NullNodesAreRefused) {
  this->Fill(2);
  EXPECT_EQ(TypeParam::AddTail(this->list, nullptr), -1);
  EXPECT_EQ(TypeParam::AddHead(this->list, nullptr), -1);
  EXPECT_EQ(TypeParam::Del(this->list, nullptr), -1);
  this->ExpectChain({0, 1});
}

// ---- Adding ----

TYPED_TEST(Lists, AddsAtTheTail) {
  this->Fill(3);
  this->ExpectChain({0, 1, 2});
  EXPECT_EQ(this->trace.Take(), Lines{});
}

TYPED_TEST(Lists, AddsAtTheHead) {
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(TypeParam::AddHead(this->list, &this->nodes[i]), 0);
  this->ExpectChain({2, 1, 0});
  EXPECT_EQ(this->trace.Take(), Lines{});
}

TYPED_TEST(Lists, TheFirstNodeKeepsItsOwnLinks) {
  for (auto add : {TypeParam::AddTail, TypeParam::AddHead}) {
    typename TypeParam::List empty = *this->list;
    this->nodes[0].prev = &this->nodes[4];
    EXPECT_EQ(add(&empty, &this->nodes[0]), 0);
    EXPECT_EQ(empty.head, &this->nodes[0]);
    EXPECT_EQ(empty.tail, &this->nodes[0]);
    EXPECT_EQ(empty.count, 1u);
    EXPECT_EQ(this->nodes[0].prev, &this->nodes[4]);
  }
}

TYPED_TEST(Lists, AStaleNextOfTheFirstNodeIsReportedAndStopsTheSecond) {
  this->nodes[0].next = &this->nodes[4];
  EXPECT_EQ(TypeParam::AddTail(this->list, &this->nodes[0]), 0);
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("AddTail")}));
  EXPECT_EQ(TypeParam::AddTail(this->list, &this->nodes[1]), -1);
  EXPECT_EQ(this->trace.Take(),
            (Lines{this->NextPrevError(&this->nodes[0], nullptr, &this->nodes[4]),
                   this->Error("AddTail", "__list_add failed.\n")}));
  EXPECT_EQ(TypeParam::Num(this->list), 1u);
  EXPECT_EQ(this->list->tail, &this->nodes[0]);
}

TYPED_TEST(Lists, NodesWithForeignLinksAreAcceptedByANonEmptyList) {
  this->Fill(1);
  this->nodes[1].prev = this->nodes[1].next = &this->nodes[5];
  EXPECT_EQ(TypeParam::AddTail(this->list, &this->nodes[1]), 0);
  this->nodes[2].prev = this->nodes[2].next = &this->nodes[5];
  EXPECT_EQ(TypeParam::AddHead(this->list, &this->nodes[2]), 0);
  this->ExpectChain({2, 0, 1});
}

TYPED_TEST(Lists, AStrayNodeBehindTheTailThatPointsBackIsSplicedAndReported) {
  this->Fill(2);
  this->nodes[1].next = &this->nodes[4];
  this->nodes[4].prev = &this->nodes[1];
  EXPECT_EQ(TypeParam::AddTail(this->list, &this->nodes[2]), 0);
  EXPECT_EQ(this->nodes[2].next, &this->nodes[4]);
  EXPECT_EQ(this->nodes[4].prev, &this->nodes[2]);
  EXPECT_EQ(this->list->tail, &this->nodes[2]);
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("AddTail")}));
}

TYPED_TEST(Lists, ABrokenHeadRefusesTheSplice) {
  this->Fill(2);
  this->nodes[0].prev = &this->nodes[4];  // whose next is not the head
  EXPECT_EQ(TypeParam::AddHead(this->list, &this->nodes[2]), -1);
  EXPECT_EQ(this->trace.Take(),
            (Lines{this->PrevNextError(&this->nodes[0], nullptr, &this->nodes[4]),
                   this->Error("AddHead", "__list_add failed.\n")}));
  EXPECT_EQ(this->list->head, &this->nodes[0]);
  EXPECT_EQ(TypeParam::Num(this->list), 2u);
}

TYPED_TEST(Lists, AddingAtTheTailReportsAHeadWithoutNext) {
  this->Fill(2);
  this->nodes[0].next = nullptr;
  EXPECT_EQ(TypeParam::AddTail(this->list, &this->nodes[2]), 0);
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("AddTail")}));
}

TYPED_TEST(Lists, AddingReportsAHalfEmptyList) {
  this->Fill(1);
  this->list->head = nullptr;
  EXPECT_EQ(TypeParam::AddTail(this->list, &this->nodes[1]), 0);
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("AddTail")}));
  this->list->head = &this->nodes[0];
  this->list->tail = nullptr;
  EXPECT_EQ(TypeParam::AddHead(this->list, &this->nodes[2]), 0);
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("AddHead")}));
}

TYPED_TEST(Lists, ACountWithoutNodesDoesNotMakeItLookAtNone) {
  this->list->count = 2;
  EXPECT_EQ(TypeParam::AddTail(this->list, &this->nodes[0]), 0);
  EXPECT_EQ(this->list->tail, &this->nodes[0]);
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("AddTail")}));
  this->list->tail = nullptr;
  EXPECT_EQ(TypeParam::AddHead(this->list, &this->nodes[1]), 0);
  EXPECT_EQ(this->list->head, &this->nodes[1]);
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("AddHead")}));
}

// ---- Walking ----

TYPED_TEST(Lists, CanBeWalkedBothWays) {
  this->Fill(3);
  EXPECT_EQ(TypeParam::Head(this->list), &this->nodes[0]);
  EXPECT_EQ(TypeParam::Tail(this->list), &this->nodes[2]);
  EXPECT_EQ(TypeParam::Next(this->list, &this->nodes[0]), &this->nodes[1]);
  EXPECT_EQ(TypeParam::Prev(this->list, &this->nodes[2]), &this->nodes[1]);
  EXPECT_EQ(TypeParam::Next(this->list, &this->nodes[2]), nullptr);
  EXPECT_EQ(TypeParam::Prev(this->list, &this->nodes[0]), nullptr);
  EXPECT_EQ(this->trace.Take(), Lines{});
}

TYPED_TEST(Lists, AHeadWithoutNextIsReportedAndReturned) {
  this->Fill(2);
  this->nodes[0].next = nullptr;
  EXPECT_EQ(TypeParam::Head(this->list), &this->nodes[0]);
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("GetHead")}));
}

TYPED_TEST(Lists, ASingleHeadNeedsNoNext) {
  this->Fill(1);
  EXPECT_EQ(TypeParam::Head(this->list), &this->nodes[0]);
  EXPECT_EQ(this->trace.Take(), Lines{});
}

// ---- Deleting ----

TYPED_TEST(Lists, DeletesInTheMiddleAtTheHeadAndAtTheTail) {
  this->Fill(5);
  EXPECT_EQ(TypeParam::Del(this->list, &this->nodes[2]), 0);
  this->ExpectChain({0, 1, 3, 4});
  this->ExpectUnlinked(this->nodes[2]);
  EXPECT_EQ(TypeParam::Del(this->list, &this->nodes[0]), 0);
  this->ExpectChain({1, 3, 4});
  this->ExpectUnlinked(this->nodes[0]);
  EXPECT_EQ(TypeParam::Del(this->list, &this->nodes[4]), 0);
  this->ExpectChain({1, 3});
  this->ExpectUnlinked(this->nodes[4]);
  EXPECT_EQ(this->trace.Take(), Lines{});
}

TYPED_TEST(Lists, DeletingTheOnlyNodeLeavesAnEmptyListWithoutTrace) {
  this->Fill(1);
  EXPECT_EQ(TypeParam::Del(this->list, &this->nodes[0]), 0);
  this->ExpectChain({});
  EXPECT_EQ(this->list->head, nullptr);
  EXPECT_EQ(this->list->tail, nullptr);
  EXPECT_EQ(this->trace.Take(), Lines{});
}

TYPED_TEST(Lists, DeletingAStrangerStillLowersTheCount) {
  this->Fill(2);
  EXPECT_EQ(TypeParam::Del(this->list, &this->nodes[4]), 0);
  EXPECT_EQ(TypeParam::Num(this->list), 1u);
  typename TypeParam::List empty = {};
  EXPECT_EQ(TypeParam::Del(&empty, &this->nodes[4]), 0);
  EXPECT_EQ(empty.count, 0xFFFFFFFFu);
}

TYPED_TEST(Lists, DeletingAHeadWithoutNextIsReportedTwice) {
  this->Fill(2);
  this->nodes[0].next = nullptr;
  EXPECT_EQ(TypeParam::Del(this->list, &this->nodes[0]), 0);
  // First for the link, then for the head that is gone while a tail is there.
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("Del"), this->InvalidList("Del")}));
  EXPECT_EQ(this->list->head, nullptr);
}

TYPED_TEST(Lists, DeletingATailWithoutPrevIsReportedTwice) {
  this->Fill(2);
  this->nodes[1].prev = nullptr;
  EXPECT_EQ(TypeParam::Del(this->list, &this->nodes[1]), 0);
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("Del"), this->InvalidList("Del")}));
  EXPECT_EQ(this->list->tail, nullptr);
}

// ---- By index ----

TYPED_TEST(Lists, FindsTheNthFromTheHead) {
  this->Fill(3);
  for (uint32_t i = 0; i < 3; ++i)
    EXPECT_EQ(TypeParam::Nth(this->list, i), &this->nodes[i]);
  EXPECT_EQ(this->trace.Take(), Lines{});
}

TYPED_TEST(Lists, AnIndexEqualToTheCountGivesNullSilently) {
  EXPECT_EQ(TypeParam::Nth(this->list, 0), nullptr);
  this->Fill(3);
  EXPECT_EQ(TypeParam::Nth(this->list, 3), nullptr);
  EXPECT_EQ(this->trace.Take(), Lines{});
}

TYPED_TEST(Lists, AGreaterIndexIsInvalid) {
  this->Fill(3);
  EXPECT_EQ(TypeParam::Nth(this->list, 4), nullptr);
  EXPECT_EQ(this->trace.Take(),
            (Lines{this->Error("_GetNthList", "invalid argument index(4)\n")}));
}

TYPED_TEST(Lists, AChainThatEndsEarlyIsACriticalError) {
  this->Fill(3);
  this->nodes[1].next = nullptr;
  EXPECT_EQ(TypeParam::Nth(this->list, 3), nullptr);
  EXPECT_EQ(this->trace.Take(),
            (Lines{this->Error("_GetNthList", "critical error. mismatch num of node\n")}));
  EXPECT_EQ(TypeParam::Nth(this->list, 2), nullptr) << "two steps were taken, to nothing";
  EXPECT_EQ(this->trace.Take(), Lines{});
}

TYPED_TEST(Lists, TheWalkStartsAtGetHeadWithItsOwnCheck) {
  this->Fill(2);
  this->nodes[0].next = nullptr;
  EXPECT_EQ(TypeParam::Nth(this->list, 0), &this->nodes[0]);
  EXPECT_EQ(this->trace.Take(), (Lines{this->InvalidList("GetHead")}));
}

// ---- Moving ----

TYPED_TEST(Lists, MovesBeforeAnyNode) {
  this->Fill(4);
  EXPECT_EQ(TypeParam::Move(this->list, &this->nodes[1], &this->nodes[2]), 0);
  this->ExpectChain({0, 2, 1, 3});
  EXPECT_EQ(this->trace.Take(), Lines{});
}

TYPED_TEST(Lists, MovesBeforeTheHead) {
  this->Fill(3);
  EXPECT_EQ(TypeParam::Move(this->list, &this->nodes[0], &this->nodes[2]), 0);
  this->ExpectChain({2, 0, 1});
}

TYPED_TEST(Lists, MovingTheHeadMakesItsSuccessorHeadFirst) {
  this->Fill(3);
  EXPECT_EQ(TypeParam::Move(this->list, &this->nodes[2], &this->nodes[0]), 0);
  this->ExpectChain({1, 0, 2});
  // Before its own successor, which is the head once it is gone.
  EXPECT_EQ(TypeParam::Move(this->list, &this->nodes[0], &this->nodes[1]), 0);
  this->ExpectChain({1, 0, 2});
}

TYPED_TEST(Lists, MoveNeedsBothNodes) {
  this->Fill(2);
  auto *node = &this->nodes[0];
  EXPECT_EQ(TypeParam::Move(this->list, nullptr, node), -1);
  EXPECT_EQ(TypeParam::Move(this->list, node, nullptr), -1);
  const unsigned shown = Low32(node);
  EXPECT_EQ(this->trace.Take(),
            (Lines{this->Error("Move", Format("invalid node dst(%x) src(%x)\n", 0u, shown)),
                   this->Error("Move", Format("invalid node dst(%x) src(%x)\n", shown, 0u))}));
  this->ExpectChain({0, 1});
}

TYPED_TEST(Lists, AMoveBeforeABrokenNodeFailsButCounts) {
  this->Fill(4);
  this->nodes[1].prev = &this->nodes[5];
  EXPECT_EQ(TypeParam::Move(this->list, &this->nodes[1], &this->nodes[3]), -1);
  EXPECT_EQ(this->trace.Take(),
            (Lines{this->PrevNextError(&this->nodes[1], nullptr, &this->nodes[5])}));
  EXPECT_EQ(TypeParam::Num(this->list), 4u) << "one less for the deletion, one more anyway";
}

TYPED_TEST(Lists, MovesToTheTail) {
  this->Fill(3);
  EXPECT_EQ(TypeParam::MoveToTail(this->list, &this->nodes[0]), 0);
  this->ExpectChain({1, 2, 0});
  EXPECT_EQ(TypeParam::MoveToTail(this->list, &this->nodes[2]), 0);
  this->ExpectChain({1, 0, 2});
  EXPECT_EQ(this->trace.Take(), Lines{});
}

TYPED_TEST(Lists, MovingTheTailToTheTailChangesNothing) {
  this->Fill(3);
  EXPECT_EQ(TypeParam::MoveToTail(this->list, &this->nodes[2]), 0);
  EXPECT_EQ(this->trace.Take(),
            (Lines{this->Line("DEBUG", "MoveToTail", "node is already tail\n")}));
  this->ExpectChain({0, 1, 2});
}

TYPED_TEST(Lists, AMoveToTheTailThatCannotDeleteReturns0) {
  this->Fill(2);
  EXPECT_EQ(TypeParam::MoveToTail(this->list, nullptr), 0);
  EXPECT_EQ(this->trace.Take(), (Lines{this->Error("MoveToTail", "list del error\n")}));
  this->ExpectChain({0, 1});
}

TYPED_TEST(Lists, AMoveBehindABrokenTailFailsButCountsAndMakesTheTail) {
  this->Fill(3);
  this->nodes[2].next = &this->nodes[5];
  EXPECT_EQ(TypeParam::MoveToTail(this->list, &this->nodes[0]), -1);
  EXPECT_EQ(this->trace.Take(),
            (Lines{this->NextPrevError(&this->nodes[2], nullptr, &this->nodes[5])}));
  EXPECT_EQ(TypeParam::Num(this->list), 3u);
  EXPECT_EQ(this->list->tail, &this->nodes[0]);
}

TYPED_TEST(Lists, AMoveInAListThatLostItsTailGoesOn) {
  this->Fill(2);
  this->list->tail = nullptr;
  EXPECT_EQ(TypeParam::MoveToTail(this->list, &this->nodes[1]), 0);
  EXPECT_EQ(this->list->tail, &this->nodes[1]);
}

// ---- Only the plain list ----

TEST(PlainListOnly, TakesOneZeroedRecordOf24Bytes) {
  AllocHooks hooks;
  std::string fresh;
  hooks.on_add = [&](void *block, uint32_t size) {
    fresh.assign(static_cast<char *>(block), size);
  };
  KEL_NLIST *list = KEL_NListCreate();
  ASSERT_EQ(hooks.adds.size(), 1u);
  EXPECT_EQ(fresh, std::string(24, '\0'));
  EXPECT_EQ(hooks.adds[0].file, "kelcore_list");
  EXPECT_EQ(hooks.adds[0].func, "KEL_NListCreate");
  KEL_NListDestroy(list);
}

TEST(PlainListOnly, DestroyingNullOnlyTraces) {
  TraceCapture trace;
  KEL_NListDestroy(nullptr);
  EXPECT_EQ(
      trace.Take(),
      (Lines{{"TRACE", "kelnlist", "kelcore_list", "KEL_NListDestroy", "list free (0)\n"}}));
}

TEST(PlainListOnly, AMissingHeadIsReported) {
  TraceCapture trace;
  KEL_NLIST list = {nullptr, nullptr, 2};
  EXPECT_EQ(KEL_NListGetHead(&list), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{{"ERROR", "kelnlist", "kelcore_list", "KEL_NListGetHead",
                                  "invalid list handle\n"}}));
}

TEST(PlainListOnly, NodesFromThePoolAreCleared) {
  KEL_SMalloc_Init();
  KEL_SMalloc_Register(24, nullptr);
  KEL_NLIST_NODE *node = KEL_NList_Node_new_data(&node);
  EXPECT_EQ(node->prev, nullptr);
  EXPECT_EQ(node->next, nullptr);
  KEL_NList_Node_delete(node);
  KEL_SMalloc_UnRegister(24);
  KEL_SMalloc_Deinit();
}

}  // namespace
