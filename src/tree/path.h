// The search of internal pages, the descent from a root to a leaf along it, and stepping from leaf to leaf.
#pragma once

#include "bitmap.h"
#include "tree/pageaccess.h"
#include "tree/search.h"

// Slot of the last live key whose masked value is not above `bit`, or -1 when there is none. Slots count from
// firstOffset.
template <uint64_t mask>
[[gnu::always_inline]] inline int lastKeyNotAbove(const BmInternalKeyType& area, unsigned long bit) {
  const uint64_t* keys = area.keys + area.firstOffset;
  return static_cast<int>(WordSearch<mask, true>(keys, area.count, bit).firstNotBefore()) - 1;
}

// Slot of a level-1 page, counted from firstOffset, of the key whose span holds `bit`, or -1 when that is yet to be
// searched for. Keys are ascending multiples of the span, so where each span up to the bit has a key, its number is
// the slot.
[[gnu::always_inline]] inline int slotOfSpan(const BmInternalKeyType& area, unsigned long bit) {
  const uint64_t* keys = area.keys + area.firstOffset;
  const uint64_t spansAhead = (bit - keyBit(keys[0])) / BM_LEAF_BITS;
  const bool isThere = spansAhead < area.count && bit - keyBit(keys[spansAhead]) < BM_LEAF_BITS;
  return isThere ? static_cast<int>(spansAhead) : -1;
}

// The slot of a level-2 page whose child owns `bit`, counted from slot 0 of the page; the complement of firstOffset
// when `bit` lies below all keys. Level-2 keys have no tag and are compared whole.
[[gnu::always_inline]] inline int searchLevel2(const BmInternalKeyType& area, unsigned long bit) {
  const int found = lastKeyNotAbove<~uint64_t{0}>(area, bit);
  return found < 0 ? ~int{area.firstOffset} : area.firstOffset + found;
}

// The same in a level-1 page, tags masked off; -2 - slot when `bit` lies past the dense leaf of that slot, in no
// leaf, and -1 in a page without slots.
[[gnu::always_inline]] inline int searchLevel1(const BmInternalKeyType& area, unsigned long bit) {
  if (area.count == 0) return -1;
  const int guessed = slotOfSpan(area, bit);
  if (guessed >= 0) return area.firstOffset + guessed;
  const int found = lastKeyNotAbove<~BM_DENSE_TAG>(area, bit);
  if (found < 0) return ~int{area.firstOffset};
  const int slot = area.firstOffset + found;
  const uint64_t key = area.keys[slot];
  return keyIsDense(key) && bit - keyBit(key) >= BM_LEAF_BITS ? -2 - slot : slot;
}

// A leaf found without a path, and what its level-1 page tells of it.
struct FoundLeaf {
  unsigned long ref;         // 0 when no leaf owns the bit
  uint64_t key = 0;          // with its tag; 0 for a root
  unsigned long endBit = 0;  // of a list the first bit that it does not own; 0 when that is not told
};

// The leaf that owns `bit` in a tree with a root page. `pages` gives internal pages; null ends the descent without a
// leaf.
template <class Access>
[[gnu::always_inline]] inline FoundLeaf leafFor(const Access& pages, const RepTreeRootSType& root, unsigned long bit);

// Records the search result `slot` in path->levels[level] and returns its index from firstOffset. A miss moves on to
// the next slot if path->allowNext is set, clearing `exact`; otherwise, and behind the last slot, -1 with nothing
// recorded. `bit` is not read.
inline int lookupStorePath(BmInternalKeyType* keyArea, int level, int slot, BmPathSType* path, unsigned long bit);

// Descends from the root page `ref` of `level` 1 or 2 and fills path->levels from there down to the leaf. Returns the
// leaf's reference, 0 on a miss. `valid`, `atEnd` and `depth` are not touched.
template <class Access>
unsigned long descendToLeaf(const Access& pages, unsigned long ref, int level, unsigned long bit, BmPathSType* path);

// The same for a tree in the page cache, and for a heap tree.
unsigned long lookupInterior(PageCacheSType* pc, unsigned long rootId, int level, unsigned long bit,
                             BmPathSType* path);
unsigned long lookupInterior(unsigned long rootPage, int level, unsigned long bit, BmPathSType* path);

// Sets `path` to the leftmost leaf. Returns 1, or 0 with atEnd set when the tree has none.
int findLeftLeaf(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path);

// Steps `path` to the next leaf. Returns 1, or 0 with atEnd set when there is none.
int findNextLeaf(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path);

// Records a level-0 leaf, which owns every bit, in levels[0] and levels[1].
void recordRootLeaf(BmPathSType* path, unsigned long ref);

// Records the leaf `ref` below levels[1] in levels[0]; `firstBit` is its key without the tag.
inline void recordLeaf(BmPathSType* path, unsigned long ref, unsigned long firstBit) {
  path->levels[0] = {ref, 0, firstBit, ~uint64_t{0}, 0};
}

// The first bit that the list leaf at `path` does not own: the next key of its level-1 page, at the end of that page
// the next level-2 key, and at the end of the tree BM_END_BIT.
inline unsigned long listLeafLimit(const RepTreeRootSType& root, const BmPathSType& path) {
  const auto next = static_cast<int64_t>(keyBit(path.levels[1].limitBit));
  if (next > 0) return static_cast<unsigned long>(next);
  const auto nextPage = static_cast<int64_t>(keyBit(path.levels[2].limitBit));
  return root.level == 2 && nextPage > 0 ? static_cast<unsigned long>(nextPage) : BM_END_BIT;
}

// ---------------------------------------------------------------------------------------------------------

template <class Access>
[[gnu::always_inline]] inline FoundLeaf leafFor(const Access& pages, const RepTreeRootSType& root,
                                                unsigned long bit) {
  unsigned long ref = root.root;
  if (root.level >= 2) {
    const RepBmInternalPageSType* top = pages.internal(ref);
    if (top == nullptr) return {0};
    const int slot = searchLevel2(top->keyArea, bit);
    if (slot < 0) return {0};
    ref = top->children[slot];
  }
  if (root.level == 0 || ref == 0) return {ref};
  const RepBmInternalPageSType* page = pages.internal(ref);
  if (page == nullptr) return {0};
  const BmInternalKeyType& area = page->keyArea;
  const int slot = searchLevel1(area, bit);
  if (slot < 0) return {0};
  const bool isLast = slot + 1 == area.firstOffset + area.count;
  return {page->children[slot], area.keys[slot], isLast ? 0 : keyBit(area.keys[slot + 1])};
}

inline int lookupStorePath(BmInternalKeyType* keyArea, int level, int slot, BmPathSType* path, unsigned long) {
  int index = slot < 0 ? slot + keyArea->firstOffset : slot - keyArea->firstOffset;
  if (index < 0) {
    if (path->allowNext == 0) return -1;
    index = ~index;
    if (index < keyArea->count) path->exact = 0;
  }
  if (index >= keyArea->count) return -1;
  const uint64_t* key = keyArea->keys + keyArea->firstOffset + index;
  BmPathLevelSType& at = path->levels[level];
  at.index = index;
  at.firstBit = keyBit(*key);
  at.limitBit = index + 1 < keyArea->count ? key[1] : level == 2 ? BM_END_BIT : ~uint64_t{0};
  at.numEntries = keyArea->count;
  return index;
}

template <class Access>
unsigned long descendToLeaf(const Access& pages, unsigned long ref, int level, unsigned long bit, BmPathSType* path) {
  if (level >= 2) {
    path->levels[2].pageId = ref;
    RepBmInternalPageSType* top = pages.internal(ref);
    const int index = lookupStorePath(&top->keyArea, 2, searchLevel2(top->keyArea, bit), path, bit);
    if (index < 0) return 0;
    ref = top->children[top->keyArea.firstOffset + index];
  }
  path->levels[1].pageId = ref;
  RepBmInternalPageSType* page = pages.internal(ref);
  const int index = lookupStorePath(&page->keyArea, 1, searchLevel1(page->keyArea, bit), path, bit);
  if (index < 0) return 0;
  const unsigned long leaf = page->children[page->keyArea.firstOffset + index];
  recordLeaf(path, leaf, path->levels[1].firstBit);
  return leaf;
}
