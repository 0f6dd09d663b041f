// The leaf stream: the leaves of one tree in ascending order, without recursion and without an internal page being
// held. It has two layers: a snapshot of the references in internal pages, a batch of leaves at a time, and a cursor
// over one leaf. It only reads, and is used on trees that do not change while it runs. Everything lives on the
// caller's stack and nothing is allocated.
//
// The order on a cursor is getNextLeaf, then locateLeaf if the leaf's contents are needed, then any number of
// advanceToBit.
#pragma once

#include "bitmap.h"

// A child of an internal page: its page id or, in a heap tree, its address, and its key.
struct BmChildRefSType {
  uint64_t pageRef;
  uint64_t key;
};

// The snapshot. A walk with a startBit begins at the leaf that covers it or follows it; in a level-2 tree at the
// first leaf of the level-1 page that covers it, so leaves wholly below startBit may come.
struct BmLeavesSType {
  int32_t started = 0;    // 1 once the first refill has run
  int32_t leafCount = 0;  // valid entries of leafRefs; 0 once the stream has ended
  int32_t nextLeaf = 0;   // index in leafRefs of the next leaf to hand out
  const RepTreeRootSType* root;
  int32_t nextLevel1 = 1;   // index in level1Refs of the next level-1 page to read
  int32_t level1Count = 0;  // valid entries of level1Refs
  uint64_t startBit;        // where the walk starts; 0 is the first leaf. 0 for a tree of level 0

  // The children of a level-2 root, each at the index of its slot, keys without tag. Those before the start are not
  // written.
  BmChildRefSType level1Refs[BM_INT_CAPACITY];

  // The leaves in hand, keys with their tags. A pageRef of 0 is the inline list.
  BmChildRefSType leafRefs[BM_INT_CAPACITY];

  explicit BmLeavesSType(const RepTreeRootSType* tree, unsigned long start = 0) : root(tree), startBit(start) {}
};
static_assert(sizeof(BmLeavesSType) < 32768, "two snapshots fit in 64 KiB of stack");

// The page held for one cursor; released at the latest when this object ends. `cache` is the context.
struct BmLeafPinSType {
  RepPageHdrSType* page = nullptr;  // null when nothing is held
  PageCacheSType* cache;

  explicit BmLeafPinSType(PageCacheSType* pc) : cache(pc) {}
  ~BmLeafPinSType() { release(); }
  BmLeafPinSType(const BmLeafPinSType&) = delete;
  BmLeafPinSType& operator=(const BmLeafPinSType&) = delete;

  void release() {
    if (page != nullptr) PageUnpin(cache, page);
    page = nullptr;
  }
};

// The cursor over one leaf. Each has a pin of its own.
struct BmLeafStateSType {
  uint64_t pageRef = 0;  // the leaf's page id or address; 0 for the inline list
  int32_t treeKind = 0;
  int32_t treeLevel = 0;
  uint64_t firstBit = 0;                        // first bit that the leaf covers: its key without the tag
  uint64_t endBit = 0;                          // last bit that the leaf covers
  int32_t pageKind = 0;                         // valid once located
  uint64_t curBit = 0;                          // in a list the entry under `cursor`; before location firstBit
  int32_t atEnd = 0;                            // 1: nothing of this leaf is left for the walk
  int32_t located = 0;                          // 1: the fields below are valid and stay so
  RepBitListContentsSType* contents = nullptr;  // the list, of a list leaf
  uint64_t* cursor = nullptr;                   // its next entry
  uint64_t* entriesEnd = nullptr;               // one past its last entry
  RepBmLeafPageSType* denseLeaf = nullptr;      // the page, of a dense leaf
  BmLeafPinSType* pin;                          // where the page held for this cursor is recorded

  explicit BmLeafStateSType(BmLeafPinSType* leafPin) : pin(leafPin) {}
};

enum CacheLeafArgType { BM_LEAF_NO_CACHE = 0, BM_LEAF_CACHE = 1 };

// Refills leafRefs with the next batch. Returns the number of entries in it; 0, as often as asked, when the stream
// has ended. A caller that needs only references may loop over leafRefs and call this again.
int getLeaves(PageCacheSType* pc, BmLeavesSType* leaves);

// Fills `leaf` for the next leaf, refilling when need be; nothing is read of the leaf itself. Returns 1, or 0 with
// `leaf` unchanged when the stream has ended. The pin is not touched.
int getNextLeaf(PageCacheSType* pc, BmLeavesSType* leaves, BmLeafStateSType* leaf);

// Last bit covered by leafRefs[index]: a list leaf covers the gap up to the next leaf, and the last one everything.
unsigned long endBitForLeaf_(const BmLeavesSType* leaves, int index);

// Brings the leaf's page in and fills the fields that depend on it; a list starts at its first entry. With
// BM_LEAF_CACHE the page is pinned, in place of the one pinned before, and a further call does nothing. With
// BM_LEAF_NO_CACHE the page may go at the next page access, and a further call starts the list anew. A leaf without
// entries, or one of a wrong kind, which is reported, is at its end.
void locateLeaf(PageCacheSType* pc, BmLeafStateSType* leaf, CacheLeafArgType cache);

// Moves the cursor of a located list leaf forward to the first entry at or above `bit`. Without one atEnd is set, and
// curBit stands on the last entry.
void advanceToBit(BmLeafStateSType* leaf, unsigned long bit);
