#include "algebra/intersection.h"

#include <algorithm>
#include <utility>

#include "algebra/leafpair.h"
#include "algebra/spanmerge.h"
#include "algebra/stepwalk.h"
#include "hostlayer.h"
#include "tree/bitlist.h"
#include "tree/treeroots.h"
#include "words/densewords.h"
#include "words/entryruns.h"

namespace {

// Bits of two dense leaves that are gathered before they are handed over, the limit being tested each time. A word
// adds up to 64, so the limit can be overshot by 319.
constexpr long FLUSH_BITS = 256;

// The most that bulk sets can raise the count by is `bits`: whether the limit cannot be met by them.
bool staysBelowLimit(const IntersectResultStateSType& state, long bits) {
  return state.limit > state.count && static_cast<uint64_t>(bits) < state.limit - state.count;
}

void handOver(PageCacheSType* pc, IntersectResultStateSType* state, const uint64_t* bits, const uint64_t* end) {
  state->count += BmSetBitsFromSortedArray_(pc, state->resultTree, bits, end);
}

// ---------------------------------------------------------------------------------------------------------
// Dense against dense

// Hands the bits of the shared words over a few words at a time, until the limit is met.
void flushWords(PageCacheSType* pc, IntersectResultStateSType* state, const uint64_t* words, unsigned long base) {
  uint64_t bits[FLUSH_BITS + 64];
  uint64_t* next = bits;
  for (int i = 0; i < BM_SPAN_WORDS; ++i) {
    for (uint64_t word = words[i]; word != 0; word &= word - 1) {
      *next++ = base + static_cast<unsigned long>(i) * 64 + static_cast<unsigned long>(HostAsmFFS8(word));
    }
    if (next - bits < FLUSH_BITS) continue;
    handOver(pc, state, bits, next);
    next = bits;
    if (state->count >= state->limit) {
      state->done = 1;
      return;
    }
  }
  handOver(pc, state, bits, next);
  state->done = state->count >= state->limit;
}

void intersectDenseDense(PageCacheSType* pc, BmLeafStateSType* a, BmLeafStateSType* b,
                         IntersectResultStateSType* state) {
  uint64_t words[BM_SPAN_WORDS];
  a->atEnd = 1;
  b->atEnd = 1;
  const int shared = andWords(words, a->denseLeaf->words, b->denseLeaf->words);
  if (!staysBelowLimit(*state, shared)) return flushWords(pc, state, words, a->firstBit);
  if (shared > 0) state->count += addSpan(pc, state->resultTree, a->firstBit, words, shared);
}

// ---------------------------------------------------------------------------------------------------------
// List against list

// Writes the words of a short run `a` that a long run `b` has to `out`: it jumps to each of them. Returns one past
// the last.
uint64_t* shareBySearching(EntryRuns& runs, uint64_t* out) {
  for (; runs.a != runs.aEnd; ++runs.a) {
    runs.b += firstNotBelow(runs.b, runs.bEnd - runs.b, *runs.a);
    if (runs.b == runs.bEnd) break;
    if (*runs.b == *runs.a) *out++ = *runs.b++;
  }
  return out;
}

// How many times longer the probe must be for searching it to pay.
constexpr long SEARCH_FACTOR = 32;

uint64_t* shareWithProbe(EntryRuns runs, uint64_t* out) {
  const bool search = runs.bEnd - runs.b > SEARCH_FACTOR * (runs.aEnd - runs.a);
  return search ? shareBySearching(runs, out) : shareEntries(runs, out);
}

// Brings the cursor that lags up to the other one; false when that ends a leaf.
bool align(BmLeafStateSType* a, BmLeafStateSType* b) {
  if (a->curBit < b->curBit) advanceToBit(a, b->curBit);
  if (!a->atEnd && b->curBit < a->curBit) advanceToBit(b, a->curBit);
  return !a->atEnd && !b->atEnd;
}

// The limit is tested against the count from before this pair, so it can be overshot by what the pair shares; a later
// pair of lists then adds the one bit at which it notices.
void intersectListList(PageCacheSType* pc, BmLeafStateSType* first, BmLeafStateSType* second,
                       IntersectResultStateSType* state) {
  if (!align(first, second)) return;
  BmLeafStateSType* driver = first;
  BmLeafStateSType* probe = second;
  if (second->entriesEnd - second->cursor < first->entriesEnd - first->cursor) std::swap(driver, probe);
  const uint64_t* driverEnd =
      driver->cursor + firstNotBelow(driver->cursor, driver->entriesEnd - driver->cursor, probe->endBit + 1);
  uint64_t shared[BM_BIT_LIST_CAPACITY + 1];
  const uint64_t* sharedEnd = shareWithProbe({driver->cursor, driverEnd, probe->cursor, probe->entriesEnd}, shared);
  if (state->count >= state->limit && sharedEnd != shared) {
    sharedEnd = shared + 1;
    state->done = 1;
  }
  handOver(pc, state, shared, sharedEnd);
  if (driverEnd != driver->entriesEnd) {
    probe->atEnd = 1;
  } else {
    advanceToBit(probe, driverEnd[-1] + 1);
  }
  standAt(driver, driverEnd);
}

// ---------------------------------------------------------------------------------------------------------
// Dense against list

// Sets the shared entries one by one and stops at the limit. Returns the first entry not looked at.
const uint64_t* setUpToLimit(PageCacheSType* pc, IntersectResultStateSType* state, const RepBmLeafPageSType& leaf,
                             unsigned long base, const uint64_t* entry, const uint64_t* entriesEnd) {
  while (entry != entriesEnd && !state->done) {
    const unsigned long bit = *entry++;
    const unsigned long position = bit - base;
    if ((leaf.words[position >> 6] >> (position & 63) & 1) != 0 && BmSetBit(pc, state->resultTree, bit) == 0) {
      ++state->count;
    }
    state->done = state->count >= state->limit;
  }
  return entry;
}

// Writes the entries that are set in the leaf to `out`; returns one past the last. One slot behind those can be
// written over.
uint64_t* gatherSetEntries(const RepBmLeafPageSType& leaf, unsigned long base, const uint64_t* entry,
                           const uint64_t* entriesEnd, uint64_t* out) {
  for (; entry != entriesEnd; ++entry) {
    const unsigned long position = *entry - base;
    *out = *entry;
    out += leaf.words[position >> 6] >> (position & 63) & 1;
  }
  return out;
}

// The treatment of one pair.
void intersectPair(PageCacheSType* pc, BmLeafStateSType* a, BmLeafStateSType* b, IntersectResultStateSType* state) {
  switch (pairOf(*a, *b)) {
    case LeafPair::listList: return intersectListList(pc, a, b, state);
    case LeafPair::listDense: return intersectBmBitList(pc, b, a, state);
    case LeafPair::denseList: return intersectBmBitList(pc, a, b, state);
    case LeafPair::denseDense: return intersectDenseDense(pc, a, b, state);
  }
}

void intersectStreams(PageCacheSType* pc, WalkedTree& first, WalkedTree& second, IntersectResultStateSType* state) {
  while (findMatchingLeafIntersect(pc, &first.leaves, &first.leaf, &second.leaves, &second.leaf)) {
    for (BmLeafStateSType* leaf : {&first.leaf, &second.leaf}) {
      locateLeaf(pc, leaf, BM_LEAF_CACHE);
      clipDenseRange(leaf);
    }
    const bool bothLeft = !first.leaf.atEnd && !second.leaf.atEnd;
    if (bothLeft && leavesMeet(first.leaf, second.leaf)) intersectPair(pc, &first.leaf, &second.leaf, state);
    if (state->done) return;
    if (first.leaf.atEnd && !first.nextLeaf()) return;
    if (second.leaf.atEnd && !second.nextLeaf()) return;
  }
}

}  // namespace

int findMatchingLeafIntersect(PageCacheSType* pc, BmLeavesSType* firstLeaves, BmLeafStateSType* firstLeaf,
                              BmLeavesSType* secondLeaves, BmLeafStateSType* secondLeaf) {
  for (;;) {
    if (secondLeaf->curBit > firstLeaf->endBit) {
      if (getNextLeaf(pc, firstLeaves, firstLeaf) == 0) return 0;
    } else if (secondLeaf->endBit >= firstLeaf->curBit) {
      return 1;
    } else if (getNextLeaf(pc, secondLeaves, secondLeaf) == 0) {
      return 0;
    }
  }
}

void intersectBmBitList(PageCacheSType* pc, BmLeafStateSType* dense, BmLeafStateSType* list,
                        IntersectResultStateSType* state) {
  const unsigned long base = dense->firstBit;
  if (list->curBit < base) {
    advanceToBit(list, base);
    if (list->atEnd) return;
  }
  dense->atEnd = 1;
  if (list->curBit > dense->endBit) return;
  const long inSpan = firstNotBelow(list->cursor, list->entriesEnd - list->cursor, dense->endBit + 1);
  const uint64_t* spanEntriesEnd = list->cursor + inSpan;
  const uint64_t* stoppedAt = spanEntriesEnd;
  if (staysBelowLimit(*state, inSpan)) {
    uint64_t shared[BM_BIT_LIST_CAPACITY + 1];
    handOver(pc, state, shared, gatherSetEntries(*dense->denseLeaf, base, list->cursor, spanEntriesEnd, shared));
  } else {
    stoppedAt = setUpToLimit(pc, state, *dense->denseLeaf, base, list->cursor, spanEntriesEnd);
  }
  standAt(list, stoppedAt);
}

unsigned long BmIntersectSize_(PageCacheSType* pc, const RepTreeRootSType* a, const RepTreeRootSType* b,
                               RepTreeRootSType* resultTree, unsigned long limit, int) {
  if (a->root == 0 || b->root == 0) return 0;
  WalkedTree walkedA(pc, a, 0);
  WalkedTree walkedB(pc, b, 0);
  const int leavesOfA = getLeaves(pc, &walkedA.leaves);
  const int leavesOfB = getLeaves(pc, &walkedB.leaves);
  WalkedTree& first = leavesOfA < leavesOfB ? walkedA : walkedB;  // on a tie the second tree
  WalkedTree& second = leavesOfA < leavesOfB ? walkedB : walkedA;
  if (!first.nextLeaf() || !second.nextLeaf()) return 0;
  IntersectResultStateSType state{resultTree, std::max(limit, 1UL), 0, 0};
  intersectStreams(pc, first, second, &state);
  return state.count;
}

unsigned long BmIntersectSize_(PageCacheSType* pc, const DiskTreeRootSType* a, const RepTreeRootSType* b,
                               RepTreeRootSType* resultTree, unsigned long limit) {
  return BmIntersectSize_(pc, DiskRootView(a).root(), b, resultTree, limit, 0);
}

unsigned long BmIntersectSize_(PageCacheSType* pc, const RepTreeRootSType* a, const DiskTreeRootSType* b,
                               RepTreeRootSType* resultTree, unsigned long limit) {
  return BmIntersectSize_(pc, a, DiskRootView(b).root(), resultTree, limit, 0);
}

unsigned long BmIntersectSize_(PageCacheSType* pc, const DiskTreeRootSType* a, const DiskTreeRootSType* b,
                               RepTreeRootSType* resultTree, unsigned long limit) {
  return BmIntersectSize_(pc, DiskRootView(a).root(), DiskRootView(b).root(), resultTree, limit, 0);
}
