#include "tree/splitnode.h"

#include <algorithm>
#include <cstring>

#include "tree/internalpage.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/writeaccess.h"

namespace {

constexpr int CUT_PAIRS = 511;  // pairs that a cut moves to the new page
constexpr int INSERT_LINE = 199;

enum class Receiver { left, right, newPage };

// What moves where: `pairs` pairs from slot `from` of the full page, its lowest or its highest ones.
struct NodeSplit {
  Receiver to;
  int from;
  int pairs;
  unsigned long siblingRef;  // of the left or right receiver
};

// Pairs that go to a left sibling with `room` free slots when slot `pos` is wanted: the lowest ones, up to that slot.
int leftMove(int pos, int room) { return pos > room ? room : std::min(pos, room - 1); }

// Pairs that go to a right sibling: the highest ones, at most half of what would fit, so that neither page stays
// full.
int rightMove(int pos, int room) {
  constexpr int lastSlot = BM_INT_CAPACITY - 1;
  if (pos >= lastSlot) return room >= 2 ? 1 : 0;
  const int fit = std::min(lastSlot - pos, room);
  return fit > 2 ? fit / 2 : fit;
}

// Chooses the receiver. Prefers pages that exist, the left one first.
NodeSplit planSplit(PageCacheSType* pc, const RepTreeRootSType& root, const BmPathSType& path,
                    const RepPageHdrSType& parent) {
  const TreeAccess pages(pc, root);
  const int pos = path.levels[1].index;
  const int parentIndex = path.levels[2].index;
  const RepBmInternalPageSType* parentPage = asInternalPage(&parent);
  const uint64_t* ownSlot = parentPage->children + parentPage->keyArea.firstOffset + parentIndex;
  const unsigned long leftRef = parentIndex >= 1 ? ownSlot[-1] : 0;
  const unsigned long rightRef = parentIndex < parentPage->keyArea.count - 1 ? ownSlot[1] : 0;
  const auto roomOf = [&](unsigned long ref) { return BM_INT_CAPACITY - pages.checkedInternal(ref)->keyArea.count; };

  if (const int room = leftRef != 0 ? roomOf(leftRef) : 0; room >= 1 && leftMove(pos, room) >= 1) {
    return {Receiver::left, 0, leftMove(pos, room), leftRef};
  }
  if (const int room = rightRef != 0 ? roomOf(rightRef) : 0; room >= 1 && rightMove(pos, room) >= 1) {
    const int pairs = rightMove(pos, room);
    return {Receiver::right, BM_INT_CAPACITY - pairs, pairs, rightRef};
  }
  return {Receiver::newPage, BM_INT_CAPACITY - CUT_PAIRS, CUT_PAIRS, 0};
}

// The tree's growth from level 1 to level 2, until it is certain.
class NewTop {
 public:
  NewTop(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path) : pc_(pc), root_(root), path_(path) {}

  // Puts a level-2 page above the full root page, with that page as its only child.
  bool grow() {
    const TreeAccess pages(pc_, *root_);
    const BmInternalKeyType& area = pages.checkedInternal(path_->levels[1].pageId)->keyArea;
    const unsigned long firstKey = keyBit(area.keys[area.firstOffset]);
    RepPageHdrSType* top = newBmInternalPage(pc_, root_, 2);
    if (top == nullptr) return false;
    BmIntPageRefCls topRef = BmIntPageRefCls::of(root_->treeKind, top);
    topRef.keyArea->count = 1;
    topRef.set_value(0, path_->levels[1].pageId, firstKey, 0, 0);
    pages.markDirty(top);
    path_->levels[2] = {pages.refOf(top), 1, firstKey, BM_END_BIT, 0};
    path_->depth = 2;
    root_->level = 2;
    root_->root = path_->levels[2].pageId;
    grown_ = true;
    return true;
  }

  // Takes the growth back, if there was any. The page below may have been shadowed since.
  void undo() {
    if (!grown_) return;
    TreeAccess(pc_, *root_).dispose(root_->root);
    root_->root = path_->levels[1].pageId;
    root_->level = 1;
    path_->depth = 1;
  }

 private:
  PageCacheSType* pc_;
  RepTreeRootSType* root_;
  BmPathSType* path_;
  bool grown_ = false;
};

// The page that receives, writable.
RepPageHdrSType* openReceiver(PageCacheSType* pc, RepTreeRootSType* root, const BmPathSType& path,
                              const NodeSplit& split) {
  if (split.to == Receiver::newPage) return newBmInternalPage(pc, root, 1);
  BmPathSType siblingPath{};
  siblingPath.depth = 2;
  siblingPath.levels[2].pageId = root->root;
  siblingPath.levels[2].index = path.levels[2].index + (split.to == Receiver::left ? -1 : 1);
  siblingPath.levels[1].pageId = split.siblingRef;
  return locateForWrite(pc, root, 1, &siblingPath);
}

// Pairs on their way from one page to another.
struct PairsInTransit {
  uint64_t keys[BM_INT_CAPACITY];
  uint64_t children[BM_INT_CAPACITY];
};

// Takes the pairs of the plan out of the full page. No pair moves: the lowest ones are skipped by the front.
void takeOut(RepPageHdrSType* page, const NodeSplit& split, PairsInTransit* pairs) {
  RepBmInternalPageSType* full = asInternalPage(page);
  const size_t bytes = static_cast<size_t>(split.pairs) * sizeof(uint64_t);
  std::memcpy(pairs->keys, full->keyArea.keys + split.from, bytes);
  std::memcpy(pairs->children, full->children + split.from, bytes);
  if (split.from == 0) full->keyArea.firstOffset = static_cast<uint16_t>(split.pairs);
  full->keyArea.count = static_cast<uint16_t>(BM_INT_CAPACITY - split.pairs);
}

// Puts them in the receiver: behind what a left sibling holds, before what a right sibling holds.
void putIn(BmIntPageRefCls receiver, const NodeSplit& split, const PairsInTransit& pairs) {
  const auto n = static_cast<unsigned>(split.pairs);
  unsigned at = 0;
  if (split.to == Receiver::right) {
    receiver.insert_space_at_front(n);
  } else {
    receiver.resetFirstOffset();
    at = receiver.keyArea->count;
    receiver.keyArea->count = static_cast<uint16_t>(at + n);
  }
  for (unsigned i = 0; i < n; ++i) receiver.set_raw_value(at + i, pairs.children[i], pairs.keys[i]);
}

// Enters the new page behind the full one in the level-2 page, which has room.
void linkNewPage(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long newRef,
                 unsigned long newKey) {
  RepPageHdrSType* parent = locateForWrite(pc, root, 2, path);
  BmIntPageRefCls parentRef = BmIntPageRefCls::of(root->treeKind, parent);
  parentRef.insert_value(static_cast<unsigned>(path->levels[2].index) + 1, newRef, newKey, 0);
  TreeAccess(pc, *root).markDirty(parent);
}

unsigned long firstKeyOf(const RepPageHdrSType* page) {
  const BmInternalKeyType& area = asInternalPage(page)->keyArea;
  return keyBit(area.keys[area.firstOffset]);
}

// Moves the pairs of the plan from `full` to `receiver`, both writable, and mends the level-2 keys. Nothing fails any
// more.
void movePairs(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, const NodeSplit& split,
               RepPageHdrSType* full, RepPageHdrSType* receiver) {
  const TreeAccess pages(pc, *root);
  const RepPageHdrSType* rekeyed = split.to == Receiver::left ? full : receiver;
  const unsigned long oldFirst = split.to == Receiver::newPage ? 0 : firstKeyOf(rekeyed);
  PairsInTransit pairs;
  takeOut(full, split, &pairs);
  pages.markDirty(full);
  putIn(BmIntPageRefCls::of(root->treeKind, receiver), split, pairs);
  pages.markDirty(receiver);
  const unsigned long newFirst = firstKeyOf(rekeyed);
  if (split.to == Receiver::newPage) {
    linkNewPage(pc, root, path, pages.refOf(receiver), newFirst);
  } else {
    firstBaseBitChanged(pc, root, oldFirst, newFirst, nullptr);
  }
}

// The split below a level-2 page. Parent, full page and receiver become writable, in this order, before any changes.
bool splitBelowParent(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path) {
  const TreeAccess pages(pc, *root);
  const RepPageHdrSType* parent = locateForWrite(pc, root, 2, path);
  if (parent == nullptr) return false;
  const bool parentFull = asInternalPage(parent)->keyArea.count >= BM_INT_CAPACITY;
  const NodeSplit split = planSplit(pc, *root, *path, *parent);
  if (split.to == Receiver::newPage && parentFull) return UTL_GUARANTEE(false, INSERT_LINE);
  RepPageHdrSType* full = locateForWrite(pc, root, 1, path);
  if (full == nullptr) return false;
  const PinnedPage pinnedFull(pages, full);
  RepPageHdrSType* receiver = openReceiver(pc, root, *path, split);
  if (receiver == nullptr) return false;
  movePairs(pc, root, path, split, full, receiver);
  return true;
}

}  // namespace

int splitLevel1Node(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path) {
  NewTop newTop(pc, root, path);
  if (root->level < 2 && !newTop.grow()) return 0;
  if (splitBelowParent(pc, root, path)) return 1;
  newTop.undo();
  return 0;
}
