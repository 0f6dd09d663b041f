// The editor of an internal page: every structural change of one passes through it. Indexes count from
// firstOffset. Nothing is marked dirty here.
#pragma once

#include "reposdisk.h"

// One located page. Exactly one of the two page members is set.
struct BmIntPageRefCls {
  RepPageHdrSType* cachedPage;  // the page of a cached tree, or null
  RepPageHdrSType* heapPage;    // the page of a heap tree, or null
  BmInternalKeyType* keyArea;

  // An editor of `page`, a page of a tree of `treeKind`.
  static BmIntPageRefCls of(int treeKind, RepPageHdrSType* page) {
    const bool heap = treeKind == BM_HEAP_TREE;
    return {heap ? nullptr : page, heap ? page : nullptr, &asInternalPage(page)->keyArea};
  }

  uint64_t* children() const { return asInternalPage(cachedPage != nullptr ? cachedPage : heapPage)->children; }
  uint64_t child(unsigned index) const { return children()[keyArea->firstOffset + index]; }
  uint64_t key(unsigned index) const { return keyArea->keys[keyArea->firstOffset + index]; }

  // Empties the page and sets its level.
  void init_values(int level);

  // Stores a pair, with `tag` in bit 0 of the key. `reserved` has no effect.
  void set_value(unsigned index, unsigned long child, unsigned long key, int tag, int reserved);

  // Stores a pair with the key as it is.
  void set_raw_value(unsigned index, unsigned long child, unsigned long rawKey);

  // Slides the live slots down to slot 0.
  void resetFirstOffset();

  // Inserts a pair before `index`. A full page is reported and refused: false, and nothing changes.
  bool insert_value(unsigned index, unsigned long child, unsigned long key, int tag);

  // Makes `n` live slots at the front, which the caller fills before anyone reads them. Refuses as above.
  bool insert_space_at_front(unsigned n);

  // Removes a pair. The first of several only moves the front; the page must not be empty.
  void remove_value(unsigned index);

 private:
  void movePairs(unsigned fromSlot, unsigned toSlot, unsigned pairs);
};
