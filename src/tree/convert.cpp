#include "tree/convert.h"

#include <algorithm>
#include <cstring>

#include "bulk/bulkset.h"
#include "tree/clearbit.h"
#include "tree/findleaf.h"
#include "tree/internalpage.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/writeaccess.h"

namespace {

// The root leaf of a level-0 tree, writable and named by the root; an empty one is made for an empty tree.
bool makeRootLeafWritable(PageCacheSType* pc, RepTreeRootSType* root) {
  const TreeAccess pages(pc, *root);
  RepPageHdrSType* page = root->root == 0 ? basicNewBitListPage(pc, root) : pages.list(root->root);
  if (page == nullptr) return false;
  if (!pages.cached() && page->pageKind != REP_BIT_LIST_PAGE) {  // a page cache reports it as it locates the page
    ReportLeafFault(pc, root->root, page, root->treeKind, __LINE__);
  }
  if (root->treeKind == BM_CAREFUL_TREE) page = shadowCarefulBmPage(pc, page, root);
  if (page == nullptr) return false;
  root->root = pages.refOf(page);
  return true;
}

// A run of entries that lie outside the span of a converted leaf.
struct EntryRun {
  const uint64_t* first;
  const uint64_t* end;
};

struct OutsideEntries {
  EntryRun low, high;
};

// Sets the entries of `list` that lie in the span of `leaf` at `base`, and returns the others.
OutsideEntries fillFromList(RepBmLeafPageSType* leaf, unsigned long base, RepBitListContentsSType* list) {
  const unsigned long last = std::min(base + BM_LEAF_BITS - 1, BM_HIGHEST_BIT);
  uint64_t* lowEnd = list->begin();
  uint64_t* entry = list->begin();
  int bitsSet = 0;
  for (; entry != list->end() && *entry <= last; ++entry) {
    if (*entry < base) {
      *lowEnd++ = *entry;
    } else {
      leaf->words[(*entry - base) >> 6] |= denseWordMask(*entry - base);
      ++bitsSet;
    }
  }
  leaf->bitsSet = bitsSet;
  return {{list->begin(), lowEnd}, {entry, list->end()}};
}

void becomeEmptyDenseLeaf(RepPageHdrSType* page) {
  page->pageKind = REP_BM_LEAF_PAGE;
  page->bytesUsed = BM_PAGE_SIZE;
  constexpr size_t headBytes = sizeof *page;
  std::memset(reinterpret_cast<char*>(page) + headBytes, 0, BM_PAGE_SIZE - headBytes);
}

// Gives the leaf at `path` the key `newKey` with `tag`. Returns its old key.
unsigned long rekeyLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long newKey,
                        int tag) {
  RepPageHdrSType* page = locateForWrite(pc, root, 1, path);
  BmIntPageRefCls pageRef = BmIntPageRefCls::of(root->treeKind, page);
  const auto index = static_cast<unsigned>(path->levels[1].index);
  const unsigned long oldKey = keyBit(pageRef.key(index));
  pageRef.set_value(index, path->levels[0].pageId, newKey, tag, 0);
  TreeAccess(pc, *root).markDirty(page);
  if (index == 0 && root->level > 1) firstBaseBitChanged(pc, root, oldKey, newKey, nullptr);
  return oldKey;
}

bool putBack(PageCacheSType* pc, RepTreeRootSType* root, const EntryRun& run) {
  return setSortedBits(pc, root, run.first, run.end).end == BulkSetEnd::complete;
}

// Makes the dense leaf at `base` the list that it was, with its old key. Every page that this needs is writable: the
// conversion has made it so.
void undoConversion(PageCacheSType* pc, RepTreeRootSType* root, unsigned long base, unsigned long oldKey,
                    const OutsideEntries& outside, const RepBitListPageSType& saved) {
  takeBackBits(pc, root, outside.low.first, outside.low.end);
  takeBackBits(pc, root, outside.high.first, outside.high.end);
  BmPathSType path{};
  if (!UTL_GUARANTEE(findLeafPageForBit(pc, root, base, &path) != 0)) return;
  RepPageHdrSType* page = locateForWrite(pc, root, 0, &path);
  page->pageKind = REP_BIT_LIST_PAGE;
  page->bytesUsed = saved.hdr.bytesUsed;
  std::memcpy(&asListPage(page)->contents, &saved.contents, static_cast<size_t>(significantBodyBytes(saved.hdr)));
  TreeAccess(pc, *root).markDirty(page);
  rekeyLeaf(pc, root, &path, oldKey, 0);
}

}  // namespace

int convertBitListToBmTree(PageCacheSType* pc, RepTreeRootSType* root) {
  if (!makeRootLeafWritable(pc, root)) return 0;
  RepPageHdrSType* page = newBmInternalPage(pc, root, 1);
  if (page == nullptr) return 0;
  const TreeAccess pages(pc, *root);
  BmIntPageRefCls pageRef = BmIntPageRefCls::of(root->treeKind, page);
  pageRef.keyArea->count = 1;
  pageRef.set_value(0, root->root, 0, 0, 0);
  pages.markDirty(page);
  root->root = pages.refOf(page);
  root->level = 1;
  return 1;
}

int convertBitListLeafToBmLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long base,
                               unsigned long) {
  RepPageHdrSType* page = locateForWrite(pc, root, 0, path);
  if (page == nullptr) return 0;
  requireLegalBytesUsed(*page);
  RepBitListPageSType saved;  // entries outside the span are put back from here
  std::memcpy(&saved, page, sizeof(RepPageHdrSType) + static_cast<size_t>(significantBodyBytes(*page)));
  becomeEmptyDenseLeaf(page);
  const OutsideEntries outside = fillFromList(asDensePage(page), base, &saved.contents);
  TreeAccess(pc, *root).markDirty(page);
  const unsigned long oldKey = rekeyLeaf(pc, root, path, base, 1);
  if (putBack(pc, root, outside.low) && putBack(pc, root, outside.high)) return 1;
  undoConversion(pc, root, base, oldKey, outside, saved);
  return 0;
}
