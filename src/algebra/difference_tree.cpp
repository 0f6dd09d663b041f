// The difference as a tree. What a pair of leaves leaves over goes into the result in one call.
#include <cstring>

#include "algebra/copy.h"
#include "algebra/difference.h"
#include "algebra/leafpair.h"
#include "algebra/spanmerge.h"
#include "algebra/stepwalk.h"
#include "tree/bitlist.h"
#include "tree/treeroots.h"
#include "utl.h"
#include "words/densewords.h"

namespace {

constexpr int DENSE_LIST_LINE = 5980;
constexpr int LEAF_KIND_LINE = 6545;

// The treatment of the walk.
struct TreeDifference {
  PageCacheSType* pc;
  RepTreeRootSType* result;

  bool done() const { return false; }
  void takeLeaf(BmLeafStateSType* a) { addLeafToTree(pc, a, result); }
  void takePair(BmLeafStateSType* a, BmLeafStateSType* b) {
    switch (pairOf(*a, *b)) {
      case LeafPair::listList: return takeList(differenceListList, a, b);
      case LeafPair::listDense: return takeList(differenceListDense, a, b);
      case LeafPair::denseList: return takeDenseList(a, b);
      case LeafPair::denseDense: return takeDenseDense(a, b);
    }
  }

 private:
  using ListDifference = void (*)(BmLeafStateSType*, BmLeafStateSType*, DifferenceResultStateSType*);

  void takeList(ListDifference difference, BmLeafStateSType* a, BmLeafStateSType* b) {
    uint64_t entries[BM_BIT_LIST_CAPACITY];
    DifferenceResultStateSType state{0, entries, entries + BM_BIT_LIST_CAPACITY, 0, 0};
    difference(a, b, &state);
    BmSetBitsFromSortedArray_(pc, result, entries, state.nextOut);
  }

  void takeDenseList(BmLeafStateSType* a, BmLeafStateSType* b) {
    UTL_GUARANTEE(a->located != 0, DENSE_LIST_LINE);
    const RepBmLeafPageSType& leaf = *a->denseLeaf;
    const unsigned long base = a->firstBit;
    advanceToBit(b, base);
    a->atEnd = 1;
    if (leaf.bitsSet < 1) return;
    uint64_t words[BM_SPAN_WORDS];
    std::memcpy(words, leaf.words, sizeof words);
    const int left = leaf.bitsSet - clearEntries(words, base, b);
    if (left > 0) addSpan(pc, result, base, words, left);
  }

  void takeDenseDense(BmLeafStateSType* a, BmLeafStateSType* b) {
    uint64_t words[BM_SPAN_WORDS];
    a->atEnd = 1;
    b->atEnd = 1;
    const int left = andNotWords(words, a->denseLeaf->words, b->denseLeaf->words);
    if (left > 0) addSpan(pc, result, a->firstBit, words, left);
  }
};

void copyInto(PageCacheSType* pc, const RepTreeRootSType* a, RepTreeRootSType* result) {
  int entryCount;
  BmDoCopyTree(pc, a, result, &entryCount);
}

}  // namespace

void addLeafToTree(PageCacheSType* pc, BmLeafStateSType* leaf, RepTreeRootSType* result) {
  locateLeaf(pc, leaf, BM_LEAF_CACHE);
  if (leaf->pageKind == REP_BIT_LIST_PAGE) {
    if (!leaf->atEnd) BmSetBitsFromSortedArray_(pc, result, leaf->cursor, leaf->entriesEnd);
  } else if (UTL_GUARANTEE(leaf->pageKind == REP_BM_LEAF_PAGE, LEAF_KIND_LINE) && leaf->denseLeaf->bitsSet >= 1) {
    addSpan(pc, result, leaf->firstBit, leaf->denseLeaf->words, leaf->denseLeaf->bitsSet);
  }
  leaf->atEnd = 1;
}

void BmDiff(PageCacheSType* pc, const RepTreeRootSType* a, const RepTreeRootSType* b, RepTreeRootSType* result) {
  if (b->root == 0) return copyInto(pc, a, result);
  if (a->root == 0) return;
  WalkedTree walkedA(pc, a, 0);
  if (!walkedA.nextLeaf()) return;
  WalkedTree walkedB(pc, b, 0);
  if (!walkedB.nextLeaf()) return copyInto(pc, a, result);
  TreeDifference difference{pc, result};
  walkInStep(walkedA, walkedB, BM_LEAF_CACHE, difference);
}

void BmDiff(PageCacheSType* pc, const DiskTreeRootSType* a, const DiskTreeRootSType* b, RepTreeRootSType* result) {
  BmDiff(pc, DiskRootView(a).root(), DiskRootView(b).root(), result);
}
