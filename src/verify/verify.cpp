// BmVerifyTree: a walk over all pages of a tree that trusts none of them.
//
// No page is held while another is located: what the walk needs of an internal page is copied first. A page that was
// reached before is reported and not entered again, so the walk ends on any content.
#include <cstring>
#include <unordered_set>

#include "bitmap.h"
#include "verify/pagecheck.h"

namespace {

constexpr unsigned long lowestPageId = 4;

class TreeWalk {
 public:
  TreeWalk(PageCacheSType* pc, const RepTreeRootSType& root, FaultSink& sink) : pc_(pc), root_(root), sink_(sink) {}

  void run();

 private:
  bool rootIsKnown(const PagePlace& top);
  void walkInline(const PagePlace& top);
  void walkLevel2(const PagePlace& place);
  void walkLevel1(const PagePlace& place, unsigned long floor, unsigned long limit);
  void checkLeaf(const PagePlace& place, uint64_t key, const LeafRange& range);
  void checkRootLeaf(const PagePlace& place);

  const RepPageHdrSType* enter(const PagePlace& place);
  bool copyInternal(const PagePlace& place, RepBmInternalPageSType* copy);
  bool checkChild(const PagePlace& parent, int slot, unsigned long ref);
  void checkStamp(const PagePlace& place, const RepPageHdrSType& page);
  void checkKey(const PagePlace& place, int slot, unsigned long key);

  PageCacheSType* pc_;
  const RepTreeRootSType& root_;
  FaultSink& sink_;
  std::unordered_set<unsigned long> reached_;
  uint64_t stampAt_[3] = {};    // of the page entered last at each level
  unsigned long ownedEnd_ = 0;  // one past what the last leaf key seen owns for certain; the next key is not below it
};

// ---------------------------------------------------------------------------------------------------------
// Pages

// The page at `place`, if there is one. What its head says is checked; its kind is not.
const RepPageHdrSType* TreeWalk::enter(const PagePlace& place) {
  reached_.insert(place.ref);
  const bool heap = root_.treeKind == BM_HEAP_TREE;
  if (heap && place.ref % alignof(RepPageHdrSType) != 0) {
    sink_.fault(place, "The address of a heap page is not aligned.");
    return nullptr;
  }
  if (!heap && place.ref < lowestPageId) {
    sink_.fault(place, "No page has the id %lu.", place.ref);
    return nullptr;
  }
  const RepPageHdrSType* page =
      heap ? reinterpret_cast<const RepPageHdrSType*>(place.ref) : PageLocate(pc_, place.ref, REP_ANY_PAGE, 0);
  if (page == nullptr) {
    sink_.fault(place, "The page cannot be located.");
    return nullptr;
  }
  checkHead(sink_, place, *page, root_.treeKind);
  if (root_.treeKind == BM_CAREFUL_TREE) checkStamp(place, *page);
  return page;
}

// A page of the current stamp has no older page above it, or an older state of the tree would have changed.
void TreeWalk::checkStamp(const PagePlace& place, const RepPageHdrSType& page) {
  const uint64_t stamp = carefulStampOf(page);
  const uint64_t above = place.level < root_.level ? stampAt_[place.level + 1] : stamp;
  stampAt_[place.level] = stamp;
  if (pc_->carefulStamp != nullptr && stamp > *pc_->carefulStamp) {
    sink_.fault(place, "The stamp of the page is %lu, newer than the current one, %lu.", stamp, *pc_->carefulStamp);
  } else if (stamp > above) {
    sink_.fault(place, "The stamp of the page is %lu, newer than %lu of the page above.", stamp, above);
  }
}

bool TreeWalk::copyInternal(const PagePlace& place, RepBmInternalPageSType* copy) {
  const RepPageHdrSType* page = enter(place);
  if (page == nullptr) return false;
  if (page->pageKind != REP_BM_INTERNAL_PAGE) {
    sink_.fault(place, "A page of kind %d stands where an internal page belongs.", page->pageKind);
    return false;
  }
  checkFullPage(sink_, place, *page);
  if (!checkSlots(sink_, place, asInternalPage(page)->keyArea)) return false;
  std::memcpy(copy, page, sizeof *copy);
  return true;
}

// Whether the reference in a live slot can be followed.
bool TreeWalk::checkChild(const PagePlace& parent, int slot, unsigned long ref) {
  if (ref == 0) {
    sink_.fault(parent, "The child in slot %d is 0.", slot);
    return false;
  }
  if (reached_.count(ref) == 0) return true;
  sink_.fault(parent, "The child in slot %d, page %lu, has been reached before.", slot, ref);
  return false;
}

// A key, its tag taken off, begins a span and lies above everything that the leaf before it owns.
void TreeWalk::checkKey(const PagePlace& place, int slot, unsigned long key) {
  if (key % BM_LEAF_BITS != 0 || key >= BM_END_BIT) {
    sink_.fault(place, "The key in slot %d, %lu, is not the base of a span.", slot, key);
  }
  if (key < ownedEnd_) {
    sink_.fault(place, "The key in slot %d, %lu, is not above what the leaf before it owns, up to %lu.", slot, key,
                ownedEnd_);
  }
}

// ---------------------------------------------------------------------------------------------------------
// Levels

void TreeWalk::walkLevel2(const PagePlace& place) {
  RepBmInternalPageSType page;
  if (!copyInternal(place, &page)) return;
  const BmInternalKeyType& area = page.keyArea;
  for (int slot = area.firstOffset; slot < area.firstOffset + area.count; ++slot) {
    if (keyIsDense(area.keys[slot])) sink_.fault(place, "The key in slot %d of a level-2 page has a tag.", slot);
    const unsigned long key = keyBit(area.keys[slot]);
    checkKey(place, slot, key);
    const bool last = slot + 1 == area.firstOffset + area.count;
    const unsigned long limit = last ? BM_END_BIT : keyBit(area.keys[slot + 1]);
    if (checkChild(place, slot, page.children[slot])) walkLevel1({page.children[slot], 1}, key, limit);
    if (ownedEnd_ <= key) ownedEnd_ = key + 1;
  }
}

// `floor` is the key of the page in its parent, which may stand below the first key; bits from `limit` on belong to
// the next page.
void TreeWalk::walkLevel1(const PagePlace& place, unsigned long floor, unsigned long limit) {
  RepBmInternalPageSType page;
  if (!copyInternal(place, &page)) return;
  const BmInternalKeyType& area = page.keyArea;
  const unsigned long first = keyBit(area.keys[area.firstOffset]);
  if (first < floor) sink_.fault(place, "The first key, %lu, is below the key of the page above, %lu.", first, floor);
  for (int slot = area.firstOffset; slot < area.firstOffset + area.count; ++slot) {
    const uint64_t key = area.keys[slot];
    checkKey(place, slot, keyBit(key));
    ownedEnd_ = keyBit(key) + (keyIsDense(key) ? BM_LEAF_BITS : 1);
    const bool last = slot + 1 == area.firstOffset + area.count;
    const LeafRange range{keyBit(key), last ? limit : keyBit(area.keys[slot + 1])};
    if (checkChild(place, slot, page.children[slot])) checkLeaf({page.children[slot], 0}, key, range);
  }
}

void TreeWalk::checkLeaf(const PagePlace& place, uint64_t key, const LeafRange& range) {
  const RepPageHdrSType* page = enter(place);
  if (page == nullptr) return;
  const bool dense = page->pageKind == REP_BM_LEAF_PAGE;
  if (!dense && page->pageKind != REP_BIT_LIST_PAGE) {
    sink_.fault(place, "A page of kind %d stands where a leaf belongs.", page->pageKind);
    return;
  }
  if (dense != keyIsDense(key)) {
    sink_.fault(place, "The leaf is a %s, and the tag of its key says the other.", dense ? "dense one" : "list");
  }
  if (dense) {
    checkDensePage(sink_, place, *asDensePage(page), keyBit(key));
  } else {
    checkListPage(sink_, place, *asListPage(page), range);
  }
}

// A tree of level 0 is one list: what writes to it knows no other form.
void TreeWalk::checkRootLeaf(const PagePlace& place) {
  const RepPageHdrSType* page = enter(place);
  if (page == nullptr) return;
  if (page->pageKind == REP_BIT_LIST_PAGE) {
    checkListPage(sink_, place, *asListPage(page), {0, BM_END_BIT});
  } else {
    sink_.fault(place, "A page of kind %d stands where the list of a level-0 tree belongs.", page->pageKind);
  }
}

// ---------------------------------------------------------------------------------------------------------
// Roots

// The list lies `offset` bytes behind the root, whose first four bytes hold the offset. Nothing says where the memory
// ends, so the list is trusted to be inside.
void TreeWalk::walkInline(const PagePlace& top) {
  if (root_.level != 0) sink_.fault(top, "An inline list has the level %d.", root_.level);
  if (root_.root == 0) return;
  uint32_t offset = 0;
  std::memcpy(&offset, reinterpret_cast<const void*>(root_.root), sizeof offset);
  if (offset < sizeof offset || (root_.root + offset) % alignof(RepBitListContentsSType) != 0) {
    sink_.fault(top, "An inline list cannot stand at the offset %u.", offset);
    return;
  }
  checkListContents(sink_, top, *reinterpret_cast<const RepBitListContentsSType*>(root_.root + offset),
                    {0, BM_END_BIT});
}

bool TreeWalk::rootIsKnown(const PagePlace& top) {
  if (root_.treeKind < BM_HEAP_TREE || root_.treeKind > BM_CAREFUL_TREE) {
    sink_.fault(top, "The tree is of the unknown kind %d.", root_.treeKind);
    return false;
  }
  if (root_.root == 0) {
    if (root_.level != 0) sink_.fault(top, "An empty tree has the level %d.", root_.level);
    return false;
  }
  if (root_.level <= 2) return true;
  sink_.fault(top, "The level of the root is %d, above 2.", root_.level);
  return false;
}

void TreeWalk::run() {
  const PagePlace top{root_.root, root_.level};
  if (root_.treeKind == BM_INLINE_LIST_TREE) return walkInline(top);
  if (!rootIsKnown(top)) return;
  switch (root_.level) {
    case 0: return checkRootLeaf(top);
    case 1: return walkLevel1(top, 0, BM_END_BIT);
    default: return walkLevel2(top);
  }
}

}  // namespace

unsigned long BmVerifyTree(PageCacheSType* pc, const RepTreeRootSType* root, BmVerifyReportFn report, void* context) {
  FaultSink sink(report, context);
  TreeWalk(pc, *root, sink).run();
  return sink.count();
}
