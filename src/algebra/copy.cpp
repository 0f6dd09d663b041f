#include "algebra/copy.h"

#include <cstring>

#include "tree/bitlist.h"
#include "tree/pageaccess.h"
#include "tree/treeroots.h"

namespace {

constexpr int COPY_FAULT_LINE = 4148;
constexpr int COPY_BYTES_LINE = 4168;
constexpr int LEVEL_1_SOURCE_TAG = 4297;
constexpr int LEVEL_1_DESTINATION_TAG = 4325;

void copyList(const RepBitListContentsSType& source, RepBitListPageSType* copy) {
  fillBitList(&copy->contents, source.begin(), source.count);
  copy->hdr.bytesUsed = listBytesUsed(source.count, copy->contents.firstOffset);
}

void copyDense(const RepBmLeafPageSType& source, RepBmLeafPageSType* copy) {
  constexpr size_t headBytes = sizeof(RepPageHdrSType);
  requireLegalBytesUsed(source.hdr, COPY_BYTES_LINE);
  std::memcpy(reinterpret_cast<char*>(copy) + headBytes, reinterpret_cast<const char*>(&source) + headBytes,
              static_cast<size_t>(significantBodyBytes(source.hdr)));
  copy->hdr.bytesUsed = source.hdr.bytesUsed;
  copy->keepWhenEmpty = 0;
}

// Marks a page of the copy changed and, in a shared tree, sends it out. Returns its reference.
unsigned long publish(const TreeAccess& pages, const RepTreeRootSType& destination, RepPageHdrSType* page) {
  const unsigned long ref = pages.refOf(page);
  pages.markDirty(page);
  if (destination.treeKind == BM_SHARED_PAGE_TREE) PageFlushRemotePagePtr(pages.pc(), page);
  return ref;
}

// Copies the page `source`, a leaf of `kind`. Returns the reference of the copy, or 0 when no page is to be had.
unsigned long copyLeafPage(const TreeAccess& from, RepPageHdrSType* source, RepPageKindEType kind,
                           RepTreeRootSType* destination) {
  const PinnedPage pinned(from, source);
  RepPageHdrSType* page = BmLocateNewPage(from.pc(), kind, destination);
  if (page == nullptr) return 0;
  if (kind == REP_BIT_LIST_PAGE) {
    copyList(asListPage(source)->contents, asListPage(page));
  } else {
    copyDense(*asDensePage(source), asDensePage(page));
  }
  return publish(TreeAccess(from.pc(), *destination), *destination, page);
}

long copyInlineList(PageCacheSType* pc, const RepTreeRootSType& source, RepTreeRootSType* destination,
                    int* entryCount) {
  const RepBitListContentsSType* list = inlineListContents(source);
  if (list == nullptr || list->count < 1) {
    destination->root = 0;
    return 0;
  }
  if (destination->treeKind < 0) return -1;
  RepPageHdrSType* page = BmLocateNewPage(pc, REP_BIT_LIST_PAGE, destination);
  if (page == nullptr) return -1;
  copyList(*list, asListPage(page));
  destination->root = publish(TreeAccess(pc, *destination), *destination, page);
  *entryCount = 1;
  return list->count;
}

// Copies a tree of level 0. Unlike the same leaf inside a larger tree, a root that is an empty kept leaf is not left
// out but fails.
long copyRootLeaf(PageCacheSType* pc, const RepTreeRootSType& source, RepTreeRootSType* destination,
                  int* entryCount) {
  destination->level = 0;
  if (source.root == 0) {
    destination->root = 0;
    return 0;
  }
  if (source.treeKind < 0) return copyInlineList(pc, source, destination, entryCount);
  if (destination->treeKind < 0) return -1;
  RepPageKindEType kind;
  long bits = 0;
  destination->root =
      copyLeaf(pc, source.root, 0, static_cast<BmTreeKindEType>(source.treeKind), destination, &kind, &bits);
  if (destination->root == 0) return -1;
  *entryCount = 1;
  return bits;
}

// What became of one child of an internal page.
enum class ChildCopy { made, leftOut, failed };

struct CopiedChild {
  ChildCopy outcome;
  unsigned long ref;  // of the copy, if one was made
  uint64_t tag;       // of its key
};

CopiedChild copyChildLeaf(PageCacheSType* pc, const RepTreeRootSType& source, unsigned long child,
                          RepTreeRootSType* destination, long* bits) {
  RepPageKindEType kind = REP_ANY_PAGE;
  const unsigned long ref =
      copyLeaf(pc, child, 1, static_cast<BmTreeKindEType>(source.treeKind), destination, &kind, bits);
  if (ref != 0) return {ChildCopy::made, ref, kind == REP_BM_LEAF_PAGE ? BM_DENSE_TAG : 0};
  return {kind == BM_COPY_SKIPPED ? ChildCopy::leftOut : ChildCopy::failed, 0, 0};
}

CopiedChild copyChildTree(PageCacheSType* pc, const RepTreeRootSType& source, unsigned long child,
                          const RepTreeRootSType& destination, long* bits) {
  RepTreeRootSType from(child, static_cast<BmTreeKindEType>(source.treeKind));
  from.allocTag = LEVEL_1_SOURCE_TAG;
  from.level = 1;
  RepTreeRootSType to(0, static_cast<BmTreeKindEType>(destination.treeKind));
  to.allocTag = LEVEL_1_DESTINATION_TAG;
  int entries;
  const long copied = BmDoCopyTree(pc, &from, &to, &entries);
  if (copied < 0) return {ChildCopy::failed, 0, 0};
  *bits += copied;
  return {entries != 0 ? ChildCopy::made : ChildCopy::leftOut, to.root, 0};
}

// Copies the children of the internal page `page` of `source` into the empty page `copy`. Returns the number of bits,
// or -1.
long copyChildren(PageCacheSType* pc, const RepTreeRootSType& source, const RepBmInternalPageSType& page,
                  RepTreeRootSType* destination, RepBmInternalPageSType* copy) {
  long bits = 0;
  for (int i = 0; i < page.keyArea.count; ++i) {
    const int slot = page.keyArea.firstOffset + i;
    const CopiedChild child = source.level == 1 ? copyChildLeaf(pc, source, page.children[slot], destination, &bits)
                                                : copyChildTree(pc, source, page.children[slot], *destination, &bits);
    if (child.outcome == ChildCopy::failed) return -1;
    if (child.outcome == ChildCopy::leftOut) continue;
    const int to = copy->keyArea.firstOffset + copy->keyArea.count++;
    copy->children[to] = child.ref;
    copy->keyArea.keys[to] = keyBit(page.keyArea.keys[slot]) | child.tag;
  }
  return bits;
}

// Copies the root page of `source` and all below it, without naming the copy in `destination`. Returns the number of
// bits, or -1.
long copyRootPage(PageCacheSType* pc, const RepTreeRootSType& source, RepTreeRootSType* destination,
                  unsigned long* copyRef, int* entryCount) {
  const TreeAccess from(pc, source);
  const TreeAccess to(pc, *destination);
  RepBmInternalPageSType* page = from.checkedInternal(source.root);
  if (page->hdr.pageKind != REP_BM_INTERNAL_PAGE) return -1;
  const PinnedPage pinned(from, &page->hdr);
  RepPageHdrSType* newPage = newBmInternalPage(pc, destination, source.level);
  if (newPage == nullptr) return -1;
  const PinnedPage newPinned(to, newPage);
  const long bits = copyChildren(pc, source, *page, destination, asInternalPage(newPage));
  if (bits < 0) return -1;
  *copyRef = to.refOf(newPage);
  *entryCount = asInternalPage(newPage)->keyArea.count;
  to.markDirty(newPage);
  if (destination->treeKind == BM_SHARED_PAGE_TREE && *entryCount > 0) PageFlushRemotePagePtr(pc, newPage);
  return bits;
}

}  // namespace

unsigned long copyLeaf(PageCacheSType* pc, unsigned long pageRef, int, BmTreeKindEType sourceKind,
                       RepTreeRootSType* destination, RepPageKindEType* pageKindOut, long* bitCount) {
  const TreeAccess from(pc, sourceKind);
  RepPageHdrSType* page = from.leaf(pageRef);
  const auto kind = static_cast<RepPageKindEType>(page->pageKind);
  *pageKindOut = kind;
  if (kind != REP_BIT_LIST_PAGE && kind != REP_BM_LEAF_PAGE) {
    ReportLeafFault(pc, pageRef, page, sourceKind, COPY_FAULT_LINE);
    return 0;
  }
  *bitCount += kind == REP_BIT_LIST_PAGE ? asListPage(page)->contents.count : asDensePage(page)->bitsSet;
  if (kind == REP_BM_LEAF_PAGE && asDensePage(page)->bitsSet == 0 && asDensePage(page)->keepWhenEmpty != 0) {
    *pageKindOut = BM_COPY_SKIPPED;
    return 0;
  }
  return copyLeafPage(from, page, kind, destination);
}

long BmDoCopyTree(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination,
                  int* entryCount) {
  *entryCount = 0;
  if (source->level == 0) return copyRootLeaf(pc, *source, destination, entryCount);
  if (source->root == 0 || source->level > 2 || destination->treeKind < 0) return -1;
  unsigned long copyRef;
  int entries;
  const long bits = copyRootPage(pc, *source, destination, &copyRef, &entries);
  if (bits < 0) return -1;
  if (entries == 0) BmDisposePage(pc, copyRef, static_cast<BmTreeKindEType>(destination->treeKind));
  destination->root = entries == 0 ? 0 : copyRef;
  destination->level = entries == 0 ? 0 : source->level;
  *entryCount = entries;
  return bits;
}

void BmCopyTree(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination) {
  int entryCount;
  BmDoCopyTree(pc, source, destination, &entryCount);
}

void BmCopyTree(PageCacheSType* pc, const DiskTreeRootSType* source, RepTreeRootSType* destination) {
  BmCopyTree(pc, DiskRootView(source).root(), destination);
}

void BmCopyTree(PageCacheSType* pc, const RepTreeRootSType* source, DiskTreeRootSType* destination) {
  BmCopyTree(pc, source, DiskRootUpdate(destination).root());
}
