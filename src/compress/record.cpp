// A tree into compressed records, one record at a time, and a record into a tree.
#include <algorithm>
#include <bit>
#include <cstring>

#include "bitmap.h"
#include "compress/denseimage.h"
#include "compress/items.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/path.h"
#include "tree/treeroots.h"

namespace {

constexpr int DENSE_FORM_BITS = 4087;  // a leaf with fewer goes by delta
constexpr int EXTRACTION_LEAF_LINE = 7855;
constexpr unsigned BATCH_ITEMS = 4000;

// ---------------------------------------------------------------------------------------------------------
// Extraction

enum class Step { goOn, recordFull, leafFault };

bool recordIsFull(const LogComprResourcePackerType& packer) { return !hasRoomForItem(packer.cursor, packer.limit); }

// Whether the record could hold the image of a dense leaf, now or, if it holds items, when it was fresh.
bool fitsDenseImage(const LogComprResourcePackerType& packer) {
  const uint16_t* start = packer.recHdr->bodyWords == 0 ? packer.cursor : packer.recHdr->body();
  return (packer.limit - start) * static_cast<long>(sizeof *start) >= DENSE_IMAGE_BYTES;
}

// Offers the entries of `list` from index *from on. Returns whether all of them were taken.
bool packEntries(const RepBitListContentsSType& list, int32_t* from, LogComprResourcePackerType* packer) {
  const auto left = static_cast<unsigned>(std::max(list.count - *from, 0));
  const unsigned taken = packer->addBits(list.begin() + *from, left);
  *from += static_cast<int32_t>(taken);
  return taken == left;
}

Step packListLeaf(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path,
                  const RepBitListContentsSType& list, LogComprResourcePackerType* packer) {
  if (path->levels[0].index < list.count) {
    if (!packEntries(list, &path->levels[0].index, packer)) return Step::recordFull;
    findNextLeaf(pc, root, path);
    return recordIsFull(*packer) ? Step::recordFull : Step::goOn;
  }
  findNextLeaf(pc, root, path);
  return Step::goOn;
}

// Packs bits of `words` from position *from on, each `firstBit` higher, while the record has room. Returns how many;
// *from is then one past the last one, or BM_LEAF_BITS if the record was not filled.
unsigned packDenseBits(const uint64_t* words, uint64_t firstBit, int32_t* from, LogComprResourcePackerType* packer) {
  uint16_t* to = packer->cursor;
  uint64_t last = packer->lastBit;
  unsigned taken = 0;
  uint64_t mask = ~uint64_t{0} << (*from & 63);
  bool room = true;
  for (int index = *from >> 6; room && index < BM_BIT_LIST_CAPACITY; ++index) {
    for (uint64_t word = words[index] & mask; room && word != 0; word &= word - 1) {
      const int position = index * 64 + HostAsmFFS8(word);
      to = packItem(to, firstBit + static_cast<uint64_t>(position), last);
      last = firstBit + static_cast<uint64_t>(position);
      ++taken;
      *from = position + 1;
      room = hasRoomForItem(to, packer->limit);
    }
    mask = ~uint64_t{0};
  }
  if (room) *from = BM_LEAF_BITS;
  packer->cursor = to;
  packer->lastBit = last;
  return taken;
}

// Fills the empty record with the image of `leaf`.
void packDenseImage(const RepBmLeafPageSType& leaf, uint64_t firstBit, LogComprResourcePackerType* packer) {
  packer->denseBody = 1;
  char* body = reinterpret_cast<char*>(packer->cursor);
  std::memcpy(body, &firstBit, sizeof firstBit);
  std::memcpy(body + sizeof firstBit, leaf.words, sizeof leaf.words);
  packer->recHdr->bodyWords = LOG_COMPR_DENSE_BODY;
  packer->recHdr->numBits = leaf.bitsSet;
  packer->recHdr->recSize = LOG_COMPR_DENSE_REC_SIZE;
}

// A leaf met at its start with many bits goes as an image, and such a record holds nothing else.
Step packWholeDenseLeaf(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path,
                        const RepBmLeafPageSType& leaf, LogComprResourcePackerType* packer) {
  if (packer->recHdr->bodyWords == 0) {
    packDenseImage(leaf, path->levels[0].firstBit, packer);
    path->levels[0].index = BM_LEAF_BITS;
    findNextLeaf(pc, root, path);
  }
  return Step::recordFull;
}

Step packDenseLeaf(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path,
                   const RepBmLeafPageSType& leaf, LogComprResourcePackerType* packer) {
  int32_t& index = path->levels[0].index;
  if (leaf.bitsSet < 1) index = BM_LEAF_BITS;
  if (index >= BM_LEAF_BITS) {
    findNextLeaf(pc, root, path);
    return Step::goOn;
  }
  if (index == 0 && leaf.bitsSet >= DENSE_FORM_BITS && fitsDenseImage(*packer)) {
    return packWholeDenseLeaf(pc, root, path, leaf, packer);
  }
  if (recordIsFull(*packer)) return Step::recordFull;
  updateRecordHead(packer, packDenseBits(leaf.words, path->levels[0].firstBit, &index, packer));
  if (index >= BM_LEAF_BITS) findNextLeaf(pc, root, path);
  return recordIsFull(*packer) ? Step::recordFull : Step::goOn;
}

// Packs what is left of the leaf at `path`, as far as it fits.
Step packLeaf(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path,
              LogComprResourcePackerType* packer) {
  const TreeAccess pages(pc, *root);
  RepPageHdrSType* page = pages.leaf(path->levels[0].pageId);
  const PinnedPage pin(pages, page);  // the step to the next leaf reaches other pages
  if (page->pageKind == REP_BIT_LIST_PAGE) {
    return packListLeaf(pc, root, path, asListPage(page)->contents, packer);
  }
  if (page->pageKind == REP_BM_LEAF_PAGE) return packDenseLeaf(pc, root, path, *asDensePage(page), packer);
  ReportLeafFault(pc, path->levels[0].pageId, page, root->treeKind, EXTRACTION_LEAF_LINE);
  return Step::leafFault;
}

// ---------------------------------------------------------------------------------------------------------
// Load

// Sets the bits of `image` in `words`. Returns how many were clear.
unsigned long orImage(uint64_t* words, const DenseImage& image) {
  unsigned long added = 0;
  for (int i = 0; i < BM_BIT_LIST_CAPACITY; ++i) {
    const uint64_t word = image.word(i);
    if (word == 0) continue;
    added += static_cast<unsigned>(std::popcount(word & ~words[i]));
    words[i] |= word;
  }
  return added;
}

// Whether a leaf can be made of the image and its count. Not told by the count: how many bits the words have.
bool isLeafImage(const DenseImage& image, int numBits) {
  return image.beginsAtSpan() && image.firstWordOutOfRange() == BM_BIT_LIST_CAPACITY && numBits > 0 &&
         numBits <= BM_LEAF_BITS;
}

unsigned long loadDenseImage(PageCacheSType* pc, RepTreeRootSType* root, const LogComprResourceIdRecHdrType* rec) {
  const DenseImage image(rec);
  if (!UTL_GUARANTEE(root->treeKind >= 0 && isLeafImage(image, rec->numBits))) return 0;
  RepPageHdrSType* page = locateOrCreateBmLeaf(pc, root, image.firstBit());
  if (page == nullptr) return 0;
  RepBmLeafPageSType* leaf = asDensePage(page);
  unsigned long added;
  if (leaf->bitsSet == 0) {
    std::memcpy(leaf->words, image.words(), sizeof leaf->words);
    leaf->bitsSet = rec->numBits;
    added = static_cast<unsigned long>(rec->numBits);
  } else {
    added = orImage(leaf->words, image);
    leaf->bitsSet += static_cast<int32_t>(added);
  }
  TreeAccess(pc, *root).markDirty(page);
  return added;
}

// Drops from the `count` values those of 2^40 and above, after a report, and those equal to the one before them.
// Returns how many are left; *descends tells whether one of them lies below the one before it.
unsigned dropUnusable(unsigned long* values, unsigned count, bool* descends) {
  unsigned kept = 0;
  *descends = false;
  for (unsigned i = 0; i < count; ++i) {
    const unsigned long value = values[i];
    if (!UTL_GUARANTEE(value < BM_END_BIT)) continue;
    if (kept > 0 && value <= values[kept - 1]) {
      if (value == values[kept - 1]) continue;
      *descends = true;
    }
    values[kept++] = value;
  }
  return kept;
}

unsigned long loadItems(PageCacheSType* pc, RepTreeRootSType* root, const LogComprResourceIdRecHdrType* rec) {
  LogComprResourceUnpackerType items(rec);
  unsigned long batch[BATCH_ITEMS + 2];  // between the low and the high sentinel
  batch[0] = 0;
  unsigned long added = 0;
  while (items.cursor < items.end) {
    bool descends;
    const unsigned count = dropUnusable(batch + 1, items.getBits(BATCH_ITEMS, batch + 1), &descends);
    unsigned long* end = batch + 1 + count;
    added += items.ascending != 0 && !descends ? BmSetBitsFromSortedArray_(pc, root, batch + 1, end)
                                               : BmSetBitsFromArray_(pc, root, batch, end);
  }
  return added;
}

}  // namespace

int BmFindSetBitsNonDestructive(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path,
                                LogComprResourcePackerType* packer) {
  if (root->root == 0) return 1;
  if (packer->recHdr->bodyWords < 0) return path->atEnd;  // an image takes nothing behind it
  if (root->treeKind < 0) {
    const RepBitListContentsSType* list = inlineListContents(*root);
    return list == nullptr || packEntries(*list, &path->levels[0].index, packer);
  }
  if (path->valid == 0) findLeftLeaf(pc, root, path);
  Step step = Step::goOn;
  while (path->atEnd == 0 && step == Step::goOn) step = packLeaf(pc, root, path, packer);
  return step == Step::leafFault ? 0 : path->atEnd;
}

unsigned long BmSetBitsFromLogRec(PageCacheSType* pc, RepTreeRootSType* root, LogComprResourceIdRecHdrType* rec) {
  if (rec->numBits == 0) return 0;
  return rec->bodyWords < 0 ? loadDenseImage(pc, root, rec) : loadItems(pc, root, rec);
}
