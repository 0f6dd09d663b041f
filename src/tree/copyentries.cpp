#include "tree/copyentries.h"

#include "tree/bitlist.h"
#include "tree/findleaf.h"
#include "tree/internalpage.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/splitlist.h"
#include "tree/writeaccess.h"

namespace {

constexpr int SIBLING_LIMIT = 1943;    // most entries of a sibling that has received some
constexpr int EASY_MOVE = 1224;        // largest move that goes through as it is
constexpr int CROWDED_SIBLING = 1632;  // most entries that a sibling may hold before a move that would overfill it

// The list at `path`, or null for a leaf of another kind; an unknown kind is reported.
RepBitListPageSType* listAt(PageCacheSType* pc, const RepTreeRootSType& root, const BmPathSType& path) {
  const unsigned long ref = path.levels[0].pageId;
  RepPageHdrSType* page = TreeAccess(pc, root).leaf(ref);
  if (page->pageKind == REP_BIT_LIST_PAGE) return asListPage(page);
  if (page->pageKind != REP_BM_LEAF_PAGE) ReportLeafFault(pc, ref, page, root.treeKind, __LINE__);
  return nullptr;
}

// The same list, writable.
RepBitListPageSType* writableListAt(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path) {
  RepPageHdrSType* page = locateForWrite(pc, root, 0, path);
  if (page == nullptr) return nullptr;
  if (page->pageKind == REP_BIT_LIST_PAGE) return asListPage(page);
  ReportLeafFault(pc, path->levels[0].pageId, page, root->treeKind, __LINE__);
  return nullptr;
}

// How many entries go left, at least `move`: a long move carries one span more, and is never shortened, so a move
// that does not fit is declined after all. 0 declines.
long leftMoveSize(const RepBitListContentsSType& source, long move, long have) {
  const bool fits = have + move <= SIBLING_LIMIT;
  if (fits && move <= EASY_MOVE) return move;
  if (!fits && have > CROWDED_SIBLING) return 0;
  const long extended = firstNotBelow(source.begin(), source.count, spanEnd(source.begin()[move]));
  return extended < source.count && have + extended <= SIBLING_LIMIT ? extended : 0;
}

// How many entries go right, at most `move`: a long move is shortened to half of the source or of the neighbour's
// room, and then falls back to the start of a span. 0 declines.
long rightMoveSize(const RepBitListContentsSType& source, long move, long have) {
  const bool fits = have + move <= SIBLING_LIMIT;
  if (fits && move <= EASY_MOVE) return move;
  if (!fits && have > CROWDED_SIBLING) return 0;
  const long want = fits ? source.count / 2 : (SIBLING_LIMIT - have) / 2;
  if (want <= 0) return move;
  const uint64_t* entries = source.begin();
  const long cut = firstNotBelow(entries, source.count - want + 1, spanBase(entries[source.count - want]));
  const long shortened = source.count - cut;
  return cut >= 1 && have + shortened <= SIBLING_LIMIT ? shortened : 0;
}

void appendEntries(RepBitListContentsSType* list, const uint64_t* entries, int move) {
  if (list->count == 0) return fillBitList(list, entries, move);
  if (list->firstOffset != 0) placeList(list, 0);
  HostAsmMemcpySmallWords(list->end(), entries, static_cast<unsigned long>(move));
  list->count += move;
}

void prependEntries(RepBitListContentsSType* list, const uint64_t* entries, int move) {
  if (list->count == 0) return fillBitList(list, entries, move);
  if (list->firstOffset != move) placeList(list, move);
  list->firstOffset = 0;
  HostAsmMemcpySmallWords(list->begin(), entries, static_cast<unsigned long>(move));
  list->count += move;
}

// Gives the list leaf at `path`, whose key was oldKey, the key newKey. The pages above it are writable by now.
void rekeyList(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long oldKey,
               unsigned long newKey) {
  RepPageHdrSType* page = locateForWrite(pc, root, 1, path);
  BmIntPageRefCls pageRef = BmIntPageRefCls::of(root->treeKind, page);
  const auto index = static_cast<unsigned>(path->levels[1].index);
  pageRef.set_value(index, path->levels[0].pageId, newKey, 0, 0);
  TreeAccess(pc, *root).markDirty(page);
  if (index == 0 && root->level > 1) firstBaseBitChanged(pc, root, oldKey, newKey, nullptr);
}

}  // namespace

int copyEntriesLeft(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long leafKey,
                    RepBitListContentsSType* source, unsigned long** cut) {
  if (leafKey < BM_LEAF_BITS) return 0;
  BmPathSType leftPath{};
  if (findLeafPageForBit(pc, root, leafKey - BM_LEAF_BITS, &leftPath) == 0) return 0;
  RepBitListPageSType* left = listAt(pc, *root, leftPath);
  if (left == nullptr) return 0;
  const long move = leftMoveSize(*source, *cut - source->begin(), left->contents.count);
  if (move == 0) return 0;
  left = writableListAt(pc, root, &leftPath);
  if (left == nullptr) return 0;
  *cut = source->begin() + move;
  appendEntries(&left->contents, source->begin(), static_cast<int>(move));
  setBlCount_SET_DIRTY(pc, root, left, left->contents.count);
  const unsigned long last = left->contents.end()[-1];
  if (last >= leafKey) rekeyList(pc, root, path, leafKey, spanEnd(last));
  return 1;
}

int copyEntriesRight(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long rightKey,
                     RepBitListContentsSType* source, unsigned long** cut, int makeNew) {
  long move = source->end() - *cut;
  BmPathSType rightPath{};
  if (makeNew != 0) {
    if (!UTL_GUARANTEE(move < BM_BIT_LIST_CAPACITY)) return 0;
    rightPath = *path;
    if (createRightSibling(pc, root, &rightPath, path->levels[0].firstBit, rightKey) == 0) return 0;
  } else {
    if (!UTL_GUARANTEE(findLeafPageForBit(pc, root, rightKey, &rightPath) != 0)) return 0;
    const RepBitListPageSType* right = listAt(pc, *root, rightPath);
    if (right == nullptr) return 0;
    move = rightMoveSize(*source, move, right->contents.count);
    if (move == 0) return 0;
  }
  RepBitListPageSType* right = writableListAt(pc, root, &rightPath);
  if (right == nullptr) return 0;
  *cut = source->end() - move;
  prependEntries(&right->contents, *cut, static_cast<int>(move));
  setBlCount_SET_DIRTY(pc, root, right, right->contents.count);
  const unsigned long first = *right->contents.begin();
  if (first < rightKey) rekeyList(pc, root, &rightPath, rightKey, spanBase(first));
  return 1;
}
