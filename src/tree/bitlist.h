// Operations on a sorted list with a movable front. The list keeps a free gap ahead of its first entry, spends it
// on inserts near the front and grows it again by rule. They work on bare contents, so they serve a list page and
// an inline list alike, and none can fail: slots and counts are trusted.
#pragma once

#include "bitmap.h"
#include "tree/search.h"

// Index of the first of `count` ascending entries that is not below `bit`; `count` if there is none.
[[gnu::always_inline]] inline long firstNotBelow(const uint64_t* entries, long count, unsigned long bit) {
  return WordSearch<~uint64_t{0}, false>(entries, count, bit).firstNotBefore();
}

// The slot where `bit` stands or belongs; `entries` is the first live slot. Bit 0 of the pointer is set when the
// bit is present.
unsigned long* BinSearchForModify(const unsigned long* entries, int count, unsigned long bit);

// The same slot, never tagged.
unsigned long* BinSearchForModify_noTag(const unsigned long* entries, long count, unsigned long bit);

// What BinSearchForModify found, told apart.
inline bool slotIsHit(const unsigned long* slot) { return (reinterpret_cast<unsigned long>(slot) & 1) != 0; }
inline unsigned long* slotAddress(unsigned long* slot) {
  return reinterpret_cast<unsigned long*>(reinterpret_cast<unsigned long>(slot) & ~1UL);
}

// Free slots to keep ahead of a list of `count` entries: many for a list that can still grow a lot, none for one
// that is nearly full, and a fixed number for a small one.
constexpr int frontGap(int count) {
  if (count > 1843) return 0;
  if (count > 255) return (BM_BIT_LIST_CAPACITY - count) / 3;
  return 255;
}

// Writes `count` entries into a list as its whole contents, behind the front gap for that count.
void fillBitList(RepBitListContentsSType* list, const uint64_t* entries, int count);

// Slides the live entries so that the first one stands in slot `front`; firstOffset + count stays within the list.
void placeList(RepBitListContentsSType* list, int front);

// Inserts `bit`, known to be absent, at the untagged `slot` from BinSearchForModify. The shorter side moves when
// the gap or the tail allows. `count` is below 2043.
void ADD_BIT_TO_BITLIST(RepBitListContentsSType* list, uint64_t* slot, unsigned long bit);

// Removes the live entry at `slot`, moving the shorter side; deleting the first entry only moves the front.
void DELETE_BIT_FROM_BITLIST(RepBitListContentsSType* list, unsigned long* slot);

// Opens a gap of `take` slots before `pos`, moving what is cheapest and keeping the front gap in being. Returns the
// first slot of the gap; `count` is the caller's to raise. count + take is at most 2043.
uint64_t* openListGap(RepBitListContentsSType* list, uint64_t* pos, int take);

// Makes room for `written` entries in place of the `replaced` ones, not more, that begin at `pos`, and moves the
// front to `front`. Returns the first slot of that room, whose contents mean nothing; `count` is the caller's to set.
uint64_t* replaceEntries(RepBitListContentsSType* list, uint64_t* pos, long replaced, long written, int front);

// Sets `count`, recomputes bytesUsed and marks the page dirty.
void setBlCount_SET_DIRTY(PageCacheSType* pc, RepTreeRootSType* root, RepBitListPageSType* page, int newCount);
