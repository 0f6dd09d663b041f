#include "tree/splitlist.h"

#include <algorithm>

#include "tree/bitlist.h"
#include "tree/clearbit.h"
#include "tree/convert.h"
#include "tree/copyentries.h"
#include "tree/findleaf.h"
#include "tree/internalpage.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/path.h"
#include "tree/splitnode.h"
#include "tree/writeaccess.h"

#include "bulk/bulkset.h"

namespace {

enum class SplitAction { retry, noPage, leafInFront, goDense, leafBehind, moveEntries };

// What is known of the full leaf and the bit before anything changes.
struct SplitPlan {
  BmPathSType path{};     // to the leaf
  unsigned long leafKey;  // its key
  unsigned long lowBase;  // base of the span of its first entry
  unsigned long highEnd;  // end of the span of its last entry
  unsigned long nextKey;  // the next key of the tree, or BM_END_BIT
  bool nextIsList;        // the leaf there may be a list
};

// What lies to the right. At the end of a level-1 page the level-2 key is all there is to know; its child may turn
// out to be dense.
void findRightNeighbour(const RepTreeRootSType& root, SplitPlan* plan) {
  auto raw = static_cast<int64_t>(plan->path.levels[1].limitBit);
  if (raw <= 0 && root.level == 2) raw = static_cast<int64_t>(plan->path.levels[2].limitBit);
  plan->nextKey = raw > 0 ? keyBit(static_cast<uint64_t>(raw)) : BM_END_BIT;
  plan->nextIsList = raw > 0 && !keyIsDense(static_cast<uint64_t>(raw));
}

// A caller that had no reason to split, unless the tree has just been lifted from level 0, where it could not know.
SplitAction needless(bool justConverted, const char* text) {
  if (!justConverted) {
    printDiagnostic(text);
    UTL_GUARANTEE(false);
  }
  return SplitAction::retry;
}

SplitAction chooseByRange(const SplitPlan& plan, unsigned long bit) {
  if (bit < plan.lowBase && plan.leafKey < plan.lowBase) return SplitAction::leafInFront;
  if (bit < plan.highEnd) {
    const bool oneSpan = plan.highEnd - plan.lowBase == BM_LEAF_BITS;
    return bit >= plan.lowBase && oneSpan ? SplitAction::goDense : SplitAction::moveEntries;
  }
  return plan.highEnd < plan.nextKey ? SplitAction::leafBehind : SplitAction::moveEntries;
}

// Finds the full leaf and chooses; changes nothing but the level of a level-0 tree.
SplitAction planSplit(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit, SplitPlan* plan) {
  const bool justConverted = root->level == 0;
  if (justConverted && convertBitListToBmTree(pc, root) == 0) return SplitAction::noPage;
  if (findLeafPageForBit(pc, root, bit, &plan->path) == 0) {
    return needless(justConverted, "leaf not found for bit in splitBitList\n");
  }
  findRightNeighbour(*root, plan);
  const RepBitListContentsSType& list =
      asListPage(TreeAccess(pc, *root).checkedList(plan->path.levels[0].pageId))->contents;
  if (list.count < BM_BIT_LIST_CAPACITY) return needless(justConverted, "premature split of bitlist\n");
  plan->leafKey = plan->path.levels[0].firstBit;
  plan->lowBase = spanBase(*list.begin());
  plan->highEnd = spanEnd(list.end()[-1]);
  return chooseByRange(*plan, bit);
}

// The leaf owns empty spans at its bottom and the bit is in one of them: a new leaf takes them over under the old
// key, and the full leaf, whose key rises to its first span, moves up one slot.
int addLeafInFront(PageCacheSType* pc, RepTreeRootSType* root, SplitPlan* plan) {
  BmPathSType& path = plan->path;
  RepPageHdrSType* page = locateForWrite(pc, root, 1, &path);
  if (page == nullptr) return 0;
  BmIntPageRefCls pageRef = BmIntPageRefCls::of(root->treeKind, page);
  const auto index = static_cast<unsigned>(path.levels[1].index);
  const bool pageFull = pageRef.keyArea->count >= BM_INT_CAPACITY;
  pageRef.set_value(index, pageRef.child(index), plan->lowBase, 0, 0);
  TreeAccess(pc, *root).markDirty(page);
  if (index == 0 && root->level > 1) firstBaseBitChanged(pc, root, plan->leafKey, plan->lowBase, &path);
  if (pageFull) {
    if (splitLevel1Node(pc, root, &path) == 0) return 0;
    path = {};
    if (!UTL_GUARANTEE(findLeafPageForBit(pc, root, plan->lowBase, &path) != 0)) return 0;
  }
  path.levels[1].firstBit = plan->leafKey;
  path.levels[1].limitBit = plan->lowBase;
  return newLeafPage(pc, root, &path) != 0;
}

// The two span boundaries next to the bit where the list can be cut, and the slots of their first entries.
struct CutChoice {
  unsigned long boundary;
  long slot;
  bool upperPartMoves;
};

// A cut is the better the fewer entries it moves, and worst when it moves nothing.
long cutScore(long slot, long count) {
  const long score = std::max(slot, count - slot);
  return score == count ? 0 : score;
}

CutChoice chooseCut(const RepBitListContentsSType& list, unsigned long bit) {
  const unsigned long cutLow = spanBase(bit);
  const unsigned long cutHigh = cutLow + BM_LEAF_BITS;
  const long lowSlot = firstNotBelow(list.begin(), list.count, cutLow);
  const long highSlot = firstNotBelow(list.begin(), list.count, cutHigh);
  if (cutScore(highSlot, list.count) < cutScore(lowSlot, list.count)) return {cutLow, lowSlot, true};
  return {cutHigh, highSlot, false};
}

// In a tree whose new leaves are dense, the right sibling takes only its own span; each entry from `cut` up goes to
// the dense leaf of its span, which the bulk path finds or makes. They leave the source when all of them have
// arrived.
int moveToDenseLeaves(PageCacheSType* pc, RepTreeRootSType* root, const BmPathSType& path, unsigned long boundary,
                      const uint64_t* cut, const uint64_t* end) {
  uint64_t moved[BM_BIT_LIST_CAPACITY];
  const uint64_t* movedEnd = std::copy(cut, end, moved);
  BmPathSType siblingPath = path;
  if (createRightSibling(pc, root, &siblingPath, path.levels[0].firstBit, boundary) == 0) return 0;
  if (setSortedBits(pc, root, moved, movedEnd).end == BulkSetEnd::complete) return 1;
  takeBackBits(pc, root, moved, movedEnd);
  disposeEmptyDenseLeaf(pc, root, boundary);
  return 0;
}

// Moves one end of the list, up to a span boundary next to the bit, to a neighbour or a new right sibling.
int moveEntriesAcross(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit, SplitPlan* plan) {
  const unsigned long cutLow = spanBase(bit);
  const bool aboveLow = UTL_GUARANTEE(cutLow + BM_LEAF_BITS > plan->lowBase);
  const bool belowHigh = UTL_GUARANTEE(plan->highEnd > cutLow);
  if (!aboveLow || !belowHigh) return 0;
  BmPathSType& path = plan->path;
  RepPageHdrSType* page = locateForWrite(pc, root, 0, &path);
  if (page == nullptr) return 0;
  const PinnedPage pinned(TreeAccess(pc, *root), page);
  RepBitListPageSType* leaf = asListPage(page);
  RepBitListContentsSType& list = leaf->contents;
  const CutChoice choice = chooseCut(list, bit);
  if (!UTL_GUARANTEE(choice.slot > 0 && choice.slot < list.count)) return 0;
  uint64_t* cut = list.begin() + choice.slot;

  if (choice.upperPartMoves) {
    if (plan->nextIsList && copyEntriesRight(pc, root, &path, plan->nextKey, &list, &cut, 0) != 0) {
      setBlCount_SET_DIRTY(pc, root, leaf, static_cast<int>(cut - list.begin()));
      return 1;
    }
  } else if (copyEntriesLeft(pc, root, &path, plan->leafKey, &list, &cut) != 0) {
    const int moved = static_cast<int>(cut - list.begin());
    list.firstOffset += moved;
    setBlCount_SET_DIRTY(pc, root, leaf, list.count - moved);
    return 1;
  }
  const int made = root->denseLeaves != 0 ? moveToDenseLeaves(pc, root, path, choice.boundary, cut, list.end())
                                          : copyEntriesRight(pc, root, &path, choice.boundary, &list, &cut, 1);
  if (!UTL_GUARANTEE(made != 0)) return 0;
  setBlCount_SET_DIRTY(pc, root, leaf, static_cast<int>(cut - list.begin()));
  return 1;
}

}  // namespace

int splitBitList(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit, int) {
  SplitPlan plan;
  switch (planSplit(pc, root, bit, &plan)) {
    case SplitAction::retry: return 1;
    case SplitAction::noPage: return 0;
    case SplitAction::leafInFront: return addLeafInFront(pc, root, &plan);
    case SplitAction::goDense: return convertBitListLeafToBmLeaf(pc, root, &plan.path, plan.lowBase, 0);
    case SplitAction::leafBehind: return createRightSibling(pc, root, &plan.path, plan.leafKey, plan.highEnd);
    case SplitAction::moveEntries: return moveEntriesAcross(pc, root, bit, &plan);
  }
  return 0;
}

int createRightSibling(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long leafKey,
                       unsigned long siblingKey) {
  const TreeAccess pages(pc, *root);
  const RepPageHdrSType* page = locateForWrite(pc, root, 1, path);
  if (page == nullptr) return 0;
  if (asInternalPage(page)->keyArea.count >= BM_INT_CAPACITY) {
    if (splitLevel1Node(pc, root, path) == 0) return 0;
    path->valid = path->atEnd = path->exact = path->allowNext = 0;
    path->levels[0].index = 0;
    if (!UTL_GUARANTEE(findLeafPageForBit(pc, root, leafKey, path) != 0)) return 0;
  }
  ++path->levels[1].index;
  path->levels[1].firstBit = siblingKey;
  if (!UTL_GUARANTEE(path->levels[1].index < BM_INT_CAPACITY)) return 0;
  const unsigned long sibling = newLeafPage(pc, root, path);
  recordLeaf(path, sibling, siblingKey);
  return sibling != 0;
}
