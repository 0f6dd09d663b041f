#include "tree/writeaccess.h"

#include <cstring>

#include "tree/pageaccess.h"

namespace {

bool isCurrent(PageCacheSType* pc, const RepPageHdrSType& page) { return carefulStampOf(page) == *pc->carefulStamp; }

// Copies the body of `from` to its new shadow. What lies behind bytesUsed means nothing and is not copied.
void copyBody(const RepPageHdrSType& from, RepPageHdrSType* to) {
  constexpr int headBytes = sizeof(RepPageHdrSType);
  std::memcpy(reinterpret_cast<char*>(to) + headBytes, reinterpret_cast<const char*>(&from) + headBytes,
              static_cast<size_t>(significantBodyBytes(from)));
  to->bytesUsed = from.bytesUsed;
}

// The shadows made by one call, so that all of them can be taken back.
class ShadowedChain {
 public:
  void add(int level, unsigned long oldId, unsigned long newId) { made_[count_++] = {level, oldId, newId}; }

  void takeBack(PageCacheSType* pc, BmPathSType* path) {
    while (count_ > 0) {
      const Shadow& shadow = made_[--count_];
      BmDisposePage(pc, shadow.newId, BM_CAREFUL_TREE);
      BmClearBit(pc, &pc->obsoleteCarefulBm, shadow.oldId);
      path->levels[shadow.level].pageId = shadow.oldId;
    }
  }

 private:
  struct Shadow {
    int level;
    unsigned long oldId, newId;
  };
  Shadow made_[3];
  int count_ = 0;
};

// Puts the shadow `childId` of the page at path->levels[level] in its parent's slot, shadowing the parent if it is
// old, and so on up to a page of the current stamp or to the root. Only making a copy can fail, and a copy that was
// made is named by nothing but another copy, so taking the copies back undoes everything.
bool propagateShadow(PageCacheSType* pc, RepTreeRootSType* root, int level, BmPathSType* path, uint64_t tag,
                     ShadowedChain* chain, unsigned long childId) {
  for (int i = level;;) {
    path->levels[i].pageId = childId;
    if (root->level <= i) {
      root->root = childId;
      return true;
    }
    ++i;
    const unsigned long parentRef = path->levels[i].pageId;
    RepPageHdrSType* parent = shadowCarefulBmPage(pc, PageLocate(pc, parentRef, REP_BM_INTERNAL_PAGE, -1), root);
    if (parent == nullptr) return false;
    RepBmInternalPageSType* page = asInternalPage(parent);
    const int slot = page->keyArea.firstOffset + path->levels[i].index;
    page->children[slot] = childId;
    page->keyArea.keys[slot] = keyBit(page->keyArea.keys[slot]) | tag;
    ShrSetDirtyNoCheck(&pc->shrPcState, parent, 3);
    tag = 0;
    if (parent->pageId == parentRef) return true;
    childId = parent->pageId;
    chain->add(i, parentRef, childId);
  }
}

RepPageHdrSType* shadowForWrite(PageCacheSType* pc, RepTreeRootSType* root, int level, BmPathSType* path,
                                RepPageHdrSType* page) {
  const unsigned long ref = path->levels[level].pageId;
  const uint64_t tag = level == 0 && page->pageKind == REP_BM_LEAF_PAGE ? BM_DENSE_TAG : 0;
  RepPageHdrSType* shadow = shadowCarefulBmPage(pc, page, root);
  if (shadow == nullptr) return nullptr;
  ShadowedChain chain;
  chain.add(level, ref, shadow->pageId);
  if (!propagateShadow(pc, root, level, path, tag, &chain, shadow->pageId)) {
    chain.takeBack(pc, path);
    return nullptr;
  }
  return PageLocate(pc, path->levels[level].pageId, REP_ANY_PAGE, 0);
}

}  // namespace

RepPageHdrSType* shadowCarefulBmPage(PageCacheSType* pc, RepPageHdrSType* page, RepTreeRootSType* root) {
  if (isCurrent(pc, *page)) return page;
  const unsigned long oldId = page->pageId;
  const auto kind = static_cast<RepPageKindEType>(page->pageKind);
  unsigned long newId;
  {
    const PinnedPage pinned(TreeAccess(pc, *root), page);
    RepPageHdrSType* shadow = BmLocateNewPage(pc, kind, root);
    if (shadow == nullptr) return nullptr;
    requireLegalBytesUsed(*page, 2164);
    copyBody(*page, shadow);
    ShrSetDirtyNoCheck(&pc->shrPcState, shadow, 3);
    newId = shadow->pageId;
  }
  UTL_GUARANTEE(pc->carefulActive != 0, 2173);
  if (BmSetBit(pc, &pc->obsoleteCarefulBm, oldId) == 1) reportCarefulFault(pc, oldId, "illegal shadow");
  return PageLocate(pc, newId, kind, -1);
}

RepPageHdrSType* locateForWrite(PageCacheSType* pc, RepTreeRootSType* root, int level, BmPathSType* path) {
  const TreeAccess pages(pc, *root);
  const unsigned long ref = path->levels[level].pageId;
  RepPageHdrSType* page = level == 0 ? pages.leaf(ref) : &pages.checkedInternal(ref)->hdr;
  if (page == nullptr || root->treeKind != BM_CAREFUL_TREE || isCurrent(pc, *page)) return page;
  return shadowForWrite(pc, root, level, path, page);
}
