// Walking two trees in step: tree A, whose bits are looked at, against tree B, which they are compared with. The walk
// decides which leaves meet; what becomes of them is the treatment's:
//
//   void takeLeaf(BmLeafStateSType* a)                       B has nothing in what is left of A's leaf
//   void takePair(BmLeafStateSType* a, BmLeafStateSType* b)  the two overlap; both are located and have bits left
//   bool done() const                                        ends the walk
//
// takePair sets A's atEnd if A's leaf is finished and B's if B's is, at least one of them unless the walk is done; of
// an unfinished list it leaves `cursor` and `curBit` on the first entry not yet dealt with. takeLeaf finds A's cursor
// as it is, located or not. Two dense leaves that meet have the same firstBit; of a list and any other leaf nothing
// is known but their ranges, so entries outside the other leaf must be allowed for. Page ids are never compared.
#pragma once

#include "algebra/leafpair.h"

// One tree of the walk: its stream, the cursor on the leaf in hand, and the page held for that cursor.
struct WalkedTree {
  BmLeavesSType leaves;
  BmLeafPinSType pin;
  BmLeafStateSType leaf;

  // `startBit` is 0 for a tree of level 0.
  WalkedTree(PageCacheSType* pc, const RepTreeRootSType* root, unsigned long startBit)
      : leaves(root, startBit), pin(pc), leaf(&pin) {}
  WalkedTree(const WalkedTree&) = delete;
  WalkedTree& operator=(const WalkedTree&) = delete;

  // Takes the next leaf in hand; false when there is none.
  bool nextLeaf() { return getNextLeaf(pin.cache, &leaves, &leaf) != 0; }
};

// Takes what is left of the leaf in hand of `a`, and every later leaf, whole.
template <class Treatment>
void takeRest(WalkedTree& a, Treatment& treatment) {
  do {
    if (!a.leaf.atEnd) treatment.takeLeaf(&a.leaf);
  } while (!treatment.done() && a.nextLeaf());
}

// Takes leaves of `b` until the one in hand reaches up to the bit in hand of `a`; false when `b` has no such leaf.
inline bool skipToOverlap(const WalkedTree& a, WalkedTree& b) {
  while (b.leaf.atEnd || b.leaf.endBit < a.leaf.curBit) {
    if (!b.nextLeaf()) return false;
  }
  return true;
}

// The walk. The caller has taken the first leaf of both trees in hand. A's leaves stay pinned while in hand, B's with
// `cacheB`; without, a leaf of B is located anew for every pair.
template <class Treatment>
void walkInStep(WalkedTree& a, WalkedTree& b, CacheLeafArgType cacheB, Treatment& treatment) {
  PageCacheSType* pc = a.pin.cache;
  while (!treatment.done()) {
    if (a.leaf.atEnd && !a.nextLeaf()) return;
    if (a.leaf.atEnd) continue;
    if (!skipToOverlap(a, b)) return takeRest(a, treatment);
    if (b.leaf.curBit > a.leaf.endBit) {
      treatment.takeLeaf(&a.leaf);
      a.leaf.atEnd = 1;
      continue;
    }
    locateLeaf(pc, &a.leaf, BM_LEAF_CACHE);
    locateLeaf(pc, &b.leaf, cacheB);
    clipDenseRange(&a.leaf);
    clipDenseRange(&b.leaf);
    if (!a.leaf.atEnd && !b.leaf.atEnd && leavesMeet(a.leaf, b.leaf)) treatment.takePair(&a.leaf, &b.leaf);
  }
}
