// Destructive extraction: the lowest bits leave the tree for an array. A leaf that has run dry goes at once, and the
// internal pages above with it, so a tree shrinks as it is read and ends as an empty root.
//
// A dense leaf is scanned from levels[0].index, which extraction never moves: the bits taken are cleared, and a later
// call simply finds them gone.
#include <algorithm>

#include "bitmap.h"
#include "tree/bitlist.h"
#include "tree/clearbit.h"
#include "tree/pageaccess.h"
#include "tree/path.h"
#include "tree/treeroots.h"
#include "tree/writeaccess.h"
#include "words/densescan.h"

namespace {

constexpr int LEAF_FAULT_LINE = 7509;
constexpr unsigned long CLEAR_CHUNK_BITS = 2000;

// Takes the first `n` entries out of `list` by moving its front.
void takeFront(RepBitListContentsSType* list, unsigned long n, uint64_t* out) {
  HostAsmMemcpySmallWords(out, list->begin(), n);
  list->count -= static_cast<int32_t>(n);
  list->firstOffset += static_cast<int32_t>(n);
}

unsigned long entriesOf(const RepBitListContentsSType& list) {
  return static_cast<unsigned long>(std::max(list.count, 0));
}

unsigned long takeFromInlineList(RepTreeRootSType* root, unsigned long maxBits, uint64_t* out) {
  RepBitListContentsSType* list = inlineListContents(*root);
  if (list == nullptr) return 0;
  const unsigned long n = std::min(maxBits, entriesOf(*list));
  takeFront(list, n, out);
  if (list->count < 1) {
    root->root = 0;
    root->level = 0;
  }
  return n;
}

enum class Step { goOn, stop, fault };

// One call of the extraction.
struct Extraction {
  PageCacheSType* pc;
  RepTreeRootSType* root;
  BmPathSType* path;
  unsigned long maxBits;
  uint64_t* out;
  unsigned long got;
  TreeAccess pages;

  Step step() const { return got >= maxBits ? Step::stop : Step::goOn; }

  Step takeFromList(RepBitListPageSType* page);
  Step takeFromDenseLeaf(RepBmLeafPageSType* page);
  Step takeFromLeaf();
};

// A list gives up a run with one copy. One that keeps entries ends the call: it had more than was asked for.
Step Extraction::takeFromList(RepBitListPageSType* page) {
  RepBitListContentsSType* list = &page->contents;
  const unsigned long held = entriesOf(*list);
  const unsigned long n = std::min(maxBits - got, held);
  if (n < held) {
    takeFront(list, n, out + got);
    setBlCount_SET_DIRTY(pc, root, page, list->count);
    got += n;
    return Step::stop;
  }
  HostAsmMemcpySmallWords(out + got, list->begin(), n);
  got += n;
  disposeLeaf(pc, root, path, REP_BIT_LIST_PAGE);
  return step();
}

Step Extraction::takeFromDenseLeaf(RepBmLeafPageSType* page) {
  if (page->bitsSet >= 1) {
    const int start = path->levels[0].index;
    if (start < 0 || start >= BM_LEAF_BITS) return Step::stop;  // not a position of an extraction
    const DenseStretch taken =
        takeSetBits(page->words, static_cast<unsigned>(start), path->levels[0].firstBit, maxBits - got, out + got);
    page->bitsSet -= static_cast<int32_t>(taken.count);
    got += taken.count;
    pages.markDirty(&page->hdr);
    // Scanned from its start to its end the leaf has no bit, whatever its counter says.
    const bool usedUp = page->bitsSet < 1 || (start == 0 && taken.next == BM_LEAF_BITS);
    if (!usedUp) return taken.count == 0 ? Step::stop : step();
  }
  disposeLeaf(pc, root, path, REP_BM_LEAF_PAGE);
  return step();
}

// Takes what is wanted of the leaf at the path.
Step Extraction::takeFromLeaf() {
  const unsigned long ref = path->levels[0].pageId;
  RepPageHdrSType* page = locateForWrite(pc, root, 0, path);
  if (page == nullptr) return Step::stop;
  if (page->pageKind == REP_BIT_LIST_PAGE) return takeFromList(asListPage(page));
  if (page->pageKind == REP_BM_LEAF_PAGE) return takeFromDenseLeaf(asDensePage(page));
  ReportLeafFault(pc, ref, page, root->treeKind, LEAF_FAULT_LINE);
  return Step::fault;
}

}  // namespace

unsigned long BmFindSetBits_(PageCacheSType* pc, unsigned long maxBits, RepTreeRootSType* root, BmPathSType* path,
                             unsigned long* out) {
  if (root->treeKind < 0) return takeFromInlineList(root, maxBits, out);
  if (maxBits == 0) return 0;
  Extraction run{pc, root, path, maxBits, out, 0, TreeAccess(pc, *root)};
  while (path->valid || findLeftLeaf(pc, root, path)) {
    const Step step = run.takeFromLeaf();
    if (step == Step::fault) return 0;
    if (step == Step::stop) return run.got;
  }
  if (root->root != 0) BmDisposeTree(pc, root);  // a tree without a leaf does not stay as an empty shell
  return run.got;
}

unsigned long BmFindSetBits_(PageCacheSType* pc, unsigned long maxBits, DiskTreeRootSType* root, BmPathSType* path,
                             unsigned long* out) {
  return BmFindSetBits_(pc, maxBits, DiskRootUpdate(root).root(), path, out);
}

unsigned long BmFindSetOops_(PageCacheSType* pc, unsigned long maxBits, RepTreeRootSType* root, BmPathSType* path,
                             unsigned long* out) {
  const unsigned long got = BmFindSetBits_(pc, maxBits, root, path, out);
  for (unsigned long i = 0; i < got; ++i) out[i] = oopOfBit(out[i]);
  return got;
}

// Ends only when all are removed, and never if the tree holds fewer: the caller must know. Meant.
unsigned long BmClearNumBits(PageCacheSType* pc, RepTreeRootSType* root, unsigned long numBits) {
  BmPathSType path{};
  unsigned long bits[CLEAR_CHUNK_BITS];
  unsigned long removed = 0;
  while (removed < numBits) {
    removed += BmFindSetBits_(pc, std::min(numBits - removed, CLEAR_CHUNK_BITS), root, &path, bits);
  }
  return removed;
}
