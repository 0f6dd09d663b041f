#include <algorithm>
#include <cstring>

#include "algebra/difference.h"
#include "algebra/leafpair.h"
#include "algebra/stepwalk.h"
#include "tree/bitlist.h"
#include "tree/treeroots.h"
#include "utl.h"
#include "words/densescan.h"
#include "words/densewords.h"
#include "words/entryruns.h"

namespace {

constexpr int DENSE_LIST_LINE = 5895;
constexpr int LEAF_KIND_LINE = 6502;

// ---------------------------------------------------------------------------------------------------------
// The array

unsigned long roomIn(const DifferenceResultStateSType& state) {
  return static_cast<unsigned long>(state.outEnd - state.nextOut);
}

// Counts what has been written up to `out`.
void advanceOut(DifferenceResultStateSType* state, const uint64_t* out) {
  state->bitsWritten += static_cast<uint64_t>(out - state->nextOut);
  state->nextOut += out - state->nextOut;
  state->full = state->nextOut == state->outEnd;
}

// Writes as many of `count` entries as fit; returns how many.
long writeEntries(DifferenceResultStateSType* state, const uint64_t* entries, long count) {
  count = std::min(count, static_cast<long>(roomIn(*state)));
  HostAsmMemcpySmallWords(state->nextOut, entries, static_cast<unsigned long>(count));
  advanceOut(state, state->nextOut + count);
  return count;
}

// Writes the bits of a leaf's words from position `start` on (at most BM_LEAF_BITS), as many as fit.
void writeWords(DifferenceResultStateSType* state, const uint64_t* words, unsigned long base, unsigned long start) {
  const DenseStretch found =
      collectSetBits(words, static_cast<unsigned>(start), base, roomIn(*state), state->nextOut);
  advanceOut(state, state->nextOut + found.count);
}

// Moves a list up to startBit; false when it has nothing there.
bool moveToStart(BmLeafStateSType* list, unsigned long startBit) {
  if (startBit > list->curBit) advanceToBit(list, startBit);
  return !list->atEnd;
}

// ---------------------------------------------------------------------------------------------------------
// Entries against entries, in plain words

// For a long B: it jumps to each entry of A.
uint64_t* subtractSearchingB(EntryRuns& runs, uint64_t* out, const uint64_t* outEnd) {
  while (runs.bothLeft() && out != outEnd) {
    runs.b += firstNotBelow(runs.b, runs.bEnd - runs.b, *runs.a);
    if (runs.b == runs.bEnd) break;
    if (*runs.b != *runs.a) *out++ = *runs.a;
    ++runs.a;
  }
  return out;
}

// For a long A: it is copied in stretches between the entries of B.
uint64_t* subtractSearchingA(EntryRuns& runs, uint64_t* out, const uint64_t* outEnd) {
  while (runs.bothLeft() && out != outEnd) {
    const long below = firstNotBelow(runs.a, runs.aEnd - runs.a, *runs.b);
    const long taken = std::min(below, outEnd - out);
    HostAsmMemcpySmallWords(out, runs.a, static_cast<unsigned long>(taken));
    out += taken;
    runs.a += taken;
    if (taken < below || runs.a == runs.aEnd) break;
    if (*runs.a == *runs.b) ++runs.a;
    ++runs.b;
  }
  return out;
}

// How many times longer one run must be for searching it to pay.
constexpr long SEARCH_FACTOR = 32;

// Writes the entries of A that are not in B, as long as both last and `out` has not reached `outEnd`.
uint64_t* subtract(EntryRuns& runs, uint64_t* out, uint64_t* outEnd) {
  const long ofA = runs.aEnd - runs.a;
  const long ofB = runs.bEnd - runs.b;
  if (ofB > SEARCH_FACTOR * ofA) return subtractSearchingB(runs, out, outEnd);
  if (ofA > SEARCH_FACTOR * ofB) return subtractSearchingA(runs, out, outEnd);
  return subtractEntries(runs, out, outEnd);
}

// Writes the entries at `entries` that are clear in a leaf, up to the one at `entriesEnd`. Returns the first not
// dealt with.
const uint64_t* writeClearEntries(DifferenceResultStateSType* state, const uint64_t* words, unsigned long base,
                                  const uint64_t* entries, const uint64_t* entriesEnd) {
  uint64_t* out = state->nextOut;
  while (entries != entriesEnd && out != state->outEnd) {
    const uint64_t position = *entries - base;
    *out = *entries++;
    out += ~(words[position >> 6] >> (position & 63)) & 1;
  }
  advanceOut(state, out);
  return entries;
}

// ---------------------------------------------------------------------------------------------------------
// The pairs with a dense A

void differenceDenseList(BmLeafStateSType* a, BmLeafStateSType* b, DifferenceResultStateSType* state) {
  UTL_GUARANTEE(a->located != 0, DENSE_LIST_LINE);
  const unsigned long start = std::max(a->firstBit, state->startBit);
  advanceToBit(b, start);
  a->atEnd = 1;
  if (a->denseLeaf->bitsSet < 1) return;
  uint64_t words[BM_SPAN_WORDS];
  std::memcpy(words, a->denseLeaf->words, sizeof words);
  clearEntries(words, a->firstBit, b);
  writeWords(state, words, a->firstBit, start % BM_LEAF_BITS);
}

void differenceDenseDense(BmLeafStateSType* a, BmLeafStateSType* b, DifferenceResultStateSType* state) {
  uint64_t words[BM_SPAN_WORDS];
  a->atEnd = 1;
  b->atEnd = 1;
  if (andNotWords(words, a->denseLeaf->words, b->denseLeaf->words) == 0) return;
  const unsigned long start = state->startBit > a->firstBit ? state->startBit - a->firstBit : 0;
  writeWords(state, words, a->firstBit, std::min<unsigned long>(start, BM_LEAF_BITS));
}

// The treatment of the walk.
struct ArrayDifference {
  PageCacheSType* pc;
  DifferenceResultStateSType state;

  bool done() const { return state.full != 0; }
  void takeLeaf(BmLeafStateSType* a) { addLeafToResult(pc, a, &state); }
  void takePair(BmLeafStateSType* a, BmLeafStateSType* b) {
    switch (pairOf(*a, *b)) {
      case LeafPair::listList: return differenceListList(a, b, &state);
      case LeafPair::listDense: return differenceListDense(a, b, &state);
      case LeafPair::denseList: return differenceDenseList(a, b, &state);
      case LeafPair::denseDense: return differenceDenseDense(a, b, &state);
    }
  }
};

// B has nothing from startBit on: the bits of A from there.
unsigned long extractFrom(PageCacheSType* pc, const RepTreeRootSType* a, unsigned long limit, uint64_t* bits,
                          unsigned long startBit) {
  BmPathSType path{};
  return BmFindSetBitsNonDestructiveStartingAt_(pc, startBit, static_cast<long>(limit), a, &path, bits);
}

}  // namespace

int clearEntries(uint64_t* words, unsigned long base, BmLeafStateSType* list) {
  const uint64_t* entry = list->cursor;
  int cleared = 0;
  for (; entry != list->entriesEnd && *entry - base < BM_LEAF_BITS; ++entry) {
    uint64_t& word = words[(*entry - base) >> 6];
    cleared += static_cast<int>(word >> (*entry & 63) & 1);
    word &= ~denseWordMask(*entry);
  }
  standAt(list, entry);
  return cleared;
}

void differenceListList(BmLeafStateSType* a, BmLeafStateSType* b, DifferenceResultStateSType* state) {
  if (!moveToStart(a, state->startBit)) return;
  const uint64_t* entry = a->cursor;
  entry += writeEntries(state, entry, firstNotBelow(entry, a->entriesEnd - entry, *b->cursor));
  EntryRuns runs{entry, a->entriesEnd, b->cursor, b->entriesEnd};
  if (runs.bothLeft()) runs.b += firstNotBelow(runs.b, runs.bEnd - runs.b, *runs.a);
  advanceOut(state, subtract(runs, state->nextOut, state->outEnd));
  entry = runs.a;
  if (runs.b == runs.bEnd && !state->full) {
    entry += writeEntries(state, entry, firstNotBelow(entry, a->entriesEnd - entry, b->endBit + 1));
  }
  standAt(a, entry);
  standAt(b, runs.b);
}

void differenceListDense(BmLeafStateSType* a, BmLeafStateSType* b, DifferenceResultStateSType* state) {
  b->atEnd = 1;
  if (!moveToStart(a, state->startBit)) return;
  const unsigned long base = b->firstBit;
  const uint64_t* entry = a->cursor;
  entry += writeEntries(state, entry, firstNotBelow(entry, a->entriesEnd - entry, base));
  const long inSpan = firstNotBelow(entry, a->entriesEnd - entry, base + BM_LEAF_BITS);
  if (!state->full) entry = writeClearEntries(state, b->denseLeaf->words, base, entry, entry + inSpan);
  standAt(a, entry);
}

void addLeafToResult(PageCacheSType* pc, BmLeafStateSType* leaf, DifferenceResultStateSType* state) {
  locateLeaf(pc, leaf, BM_LEAF_NO_CACHE);
  if (leaf->pageKind == REP_BIT_LIST_PAGE) {
    if (!leaf->atEnd && moveToStart(leaf, state->startBit)) {
      writeEntries(state, leaf->cursor, leaf->entriesEnd - leaf->cursor);
      leaf->cursor = leaf->entriesEnd;  // also when not all fitted: the array is full then, and the walk over
    }
  } else if (UTL_GUARANTEE(leaf->pageKind == REP_BM_LEAF_PAGE, LEAF_KIND_LINE) && leaf->denseLeaf->bitsSet >= 1) {
    const unsigned long start = state->startBit > leaf->firstBit ? state->startBit % BM_LEAF_BITS : 0;
    writeWords(state, leaf->denseLeaf->words, leaf->firstBit, start);
  }
  leaf->atEnd = 1;
}

unsigned long BmDifferenceStartingAt_(PageCacheSType* pc, const RepTreeRootSType* a, const RepTreeRootSType* b,
                                      unsigned long limit, unsigned long* bits, unsigned long startBit) {
  limit = std::min(limit, BM_END_BIT);  // there are no more bits than that
  if (limit == 0) return 0;
  if (b->root == 0) return extractFrom(pc, a, limit, bits, startBit);
  if (a->root == 0) return 0;
  const unsigned long start = spanBase(startBit);
  WalkedTree walkedA(pc, a, a->level == 0 ? 0 : start);
  if (!walkedA.nextLeaf()) return 0;
  WalkedTree walkedB(pc, b, b->level == 0 ? 0 : start);
  if (!walkedB.nextLeaf()) return extractFrom(pc, a, limit, bits, startBit);
  ArrayDifference difference{pc, {startBit, bits, bits + limit, 0, 0}};
  walkInStep(walkedA, walkedB, BM_LEAF_NO_CACHE, difference);
  return difference.state.bitsWritten;
}

unsigned long BmDifference_(PageCacheSType* pc, const RepTreeRootSType* a, const RepTreeRootSType* b,
                            unsigned long limit, unsigned long* bits) {
  return BmDifferenceStartingAt_(pc, a, b, limit, bits, 0);
}

unsigned long BmDifference_(PageCacheSType* pc, const RepTreeRootSType* a, const DiskTreeRootSType* b,
                            unsigned long limit, unsigned long* bits) {
  return BmDifference_(pc, a, DiskRootView(b).root(), limit, bits);
}
