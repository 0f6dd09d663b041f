// A walk over the leaves of a tree from any number on, which copies the internal pages that it stands on.
#pragma once

#include <algorithm>

#include "context.h"
#include "utl.h"

namespace bmtree {

class LeafWalk {
 public:
  // The tree must not change during the walk.
  LeafWalk(StoreContext& context, const RepTreeRootSType& root) : context_(context), root_(root) {}

  // Moves to the leaf that owns `number`, or else to the next one above it. False if there is none.
  bool seek(uint64_t number);

  // Moves to the next leaf. False behind the last.
  bool next();

  // The leaf: its page id, and the numbers from first() to end() - 1 that it owns.
  uint64_t pageId() const { return pageId_; }
  uint64_t first() const { return first_; }
  uint64_t end() const { return end_; }

  // The page of the leaf; valid until the context locates another.
  const RepPageHdrSType& page() const { return *context_.locate(pageId_, REP_ANY_PAGE); }

  // Internal pages met so far, and their children.
  uint64_t internalPages() const { return internalPages_; }
  uint64_t internalEntries() const { return internalEntries_; }

 private:
  // A copy of an internal page and the slot that the walk is at.
  struct Level {
    RepBmInternalPageSType page;
    int slot = 0;

    int count() const { return page.keyArea.count; }
    uint64_t key(int i) const { return page.keyArea.keys[page.keyArea.firstOffset + i]; }
    uint64_t child() const { return page.children[page.keyArea.firstOffset + slot]; }
    void seek(uint64_t number);
  };

  void load(Level& level, uint64_t pageId);
  bool standOn(int level);
  bool stepUp();

  StoreContext& context_;
  const RepTreeRootSType root_;
  uint64_t pageId_ = 0;
  uint64_t first_ = 0;
  uint64_t end_ = 0;
  uint64_t internalPages_ = 0;
  uint64_t internalEntries_ = 0;
  Level levels_[2];  // of level 1 and level 2
};

// Numbers in a leaf page; 0 for a page of another kind.
uint64_t countOfLeaf(const RepPageHdrSType& page);

// Calls `take` with the numbers of a leaf whose first number is `first` in ascending order, those below `from` left
// out, until it returns false. False if it did.
template <class Take>
bool forEachNumberOfLeaf(const RepPageHdrSType& page, uint64_t first, uint64_t from, const Take& take) {
  if (page.pageKind == REP_BIT_LIST_PAGE) {
    const auto& list = asListPage(&page)->contents;
    for (const uint64_t* entry = std::lower_bound(list.begin(), list.end(), from); entry != list.end(); ++entry) {
      if (!take(*entry)) return false;
    }
  } else if (page.pageKind == REP_BM_LEAF_PAGE) {
    const uint64_t* words = asDensePage(&page)->words;
    const uint64_t start = from > first ? from - first : 0;
    for (uint64_t i = start / 64; i < BM_BIT_LIST_CAPACITY; ++i) {
      uint64_t word = i == start / 64 ? words[i] >> start % 64 << start % 64 : words[i];
      for (; word != 0; word &= word - 1) {
        if (!take(first + i * 64 + static_cast<uint64_t>(HostAsmFFS8(word)))) return false;
      }
    }
  }
  return true;
}

}  // namespace bmtree
