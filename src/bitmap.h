// The bitmap module: very large sets of bits (numbers below 2^40), kept as shallow trees of 16 KiB pages.
//
// Every operation takes the context first and one or more roots; two-tree operations take the source first and
// the destination or result last, and change no source. A root belongs to its caller, its pages to the tree. A
// write may change the root, so the caller keeps what it passed in. Trees are safe as far as the page cache
// makes them safe: a read is sound while nobody changes that tree. Nothing here locks, throws or keeps state.
//
// Out of pages is no error of its own: the operation stores what it can, and what the tree held stays. Broken
// pages are reported through the host (see utl.h, pagecache.h), count as empty and are left as they are.
//
// The forms on a DiskTreeRootSType work as the forms on a RepTreeRootSType do, on an unpacked copy of the root;
// forms that change the tree write the root back unless it says otherwise here.
//
// An unsorted array stands in slots first[1] to end[-1]: slot 0 is not data but holds a value not above any
// element (0 will do), and the slot at `end` is written by the operation. No element is above 0xFFFFFFFFFF.
#pragma once

#include "logdisk.h"
#include "pagecache.h"
#include "reposdisk.h"

// ---------------------------------------------------------------------------------------------------------
// Roots and set-up

// Number of set bits in each byte value.
extern const unsigned char BitCountTable[256];

// Fills the members of `pc` that stand between `owner` and `shrPcState`. Run once per context, before anything
// else.
void BmInitTreeRoots(PageCacheSType* pc);

// Builds the invalid roots if that has not been done and requires them to be sound.
void BmCheckTreeRoots();

// Makes `root` an empty heap tree whose pages are allocated under `tag`. `name` is ignored.
void BmInitHeapTree(RepTreeRootSType* root, int tag, const char* name);

// The constant empty heap tree, and the constant empty page tree of the object table.
const RepTreeRootSType* BmInvalidHeapTreeRoot();
const DiskTreeRootSType* BmInvalidOtTreeRoot();

// Checks `bytesUsed` of a page before the store copies the page's body; a wrong one is reported.
void BmPageCopyCheckBytesUsed(RepPageHdrSType* page);

// ---------------------------------------------------------------------------------------------------------
// The position of a walk

struct BmPathLevelSType {
  uint64_t pageId;     // the page at this level: an id, or in a heap tree an address
  int64_t numEntries;  // `count` of that page; 0 at level 0
  uint64_t firstBit;   // key of the chosen slot without its tag; at level 0 the same as at level 1
  uint64_t limitBit;   // key of the next slot as stored, tag included; behind the last slot BM_END_BIT at
                       // level 2 and all ones below
  int32_t index;       // the chosen slot, counted from firstOffset; -1 before the first; at level 0 the
                       // position inside the leaf
};

// The way from a root to one leaf. Owns nothing and pins nothing, and is out of date after any change of the
// tree's shape. A caller starts a walk with BmPathSType path{}.
struct BmPathSType {
  uint8_t valid;      // 1: names a leaf
  uint8_t atEnd;      // 1: no further leaf
  uint8_t exact;      // 1: the leaf is the one whose range holds `bit`; 0: the search moved on to the next leaf
  uint8_t allowNext;  // 1: a search that misses moves on to the next leaf
  int32_t depth;      // level of the root when the search was made
  uint64_t bit;       // the bit searched for
  BmPathLevelSType levels[3];  // 0 is the leaf
};
static_assert(sizeof(BmPathLevelSType) == 40 && offsetof(BmPathLevelSType, pageId) == 0);
static_assert(offsetof(BmPathLevelSType, numEntries) == 8 && offsetof(BmPathLevelSType, firstBit) == 16);
static_assert(offsetof(BmPathLevelSType, limitBit) == 24 && offsetof(BmPathLevelSType, index) == 32);
static_assert(sizeof(BmPathSType) == 136 && offsetof(BmPathSType, valid) == 0 && offsetof(BmPathSType, atEnd) == 1);
static_assert(offsetof(BmPathSType, exact) == 2 && offsetof(BmPathSType, allowNext) == 3);
static_assert(offsetof(BmPathSType, depth) == 4 && offsetof(BmPathSType, bit) == 8);
static_assert(offsetof(BmPathSType, levels) == 16);

// ---------------------------------------------------------------------------------------------------------
// Single bits

// 1 if `bit` (below 2^40) is set, else 0. Changes nothing, allocates nothing; on a heap tree calls nothing.
int BmTestBit(PageCacheSType* pc, const RepTreeRootSType* root, unsigned long bit);
int BmTestBit(PageCacheSType* pc, const DiskTreeRootSType* root, unsigned long bit);

// Tests `count` bits in any order. Bit i % 64 of answers[i / 64] is the answer for bits[i]; the array holds
// (count + 63) / 64 words, the unused bits of the last one are 0. In a heap tree the cache misses of the probes
// overlap, so many cost less than one by one.
void BmTestBits(PageCacheSType* pc, const RepTreeRootSType* root, const unsigned long* bits, unsigned long count,
                uint64_t* answers);

// The same as BmTestBit for the bit of an Oop. An Oop whose bit 0 is clear is reported on standard output and gives
// 0.
int bmTestOop(PageCacheSType* pc, const RepTreeRootSType* root, unsigned long oop);

// Sets `bit`. Returns 1 if it was set already; 0 if it was not, or if no page was to be had: it is then not set.
int BmSetBit(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit);

// Sets every bit of `first` to `last`, inclusive (first not above last, both below 2^40), and returns how many
// were clear before. A run of more than 261,504 bits whose `last` is a multiple of 130,752 leaves that last bit
// clear. Out of pages: the bits set so far stay set and are counted.
unsigned long BmSetBitRange_(PageCacheSType* pc, RepTreeRootSType* root, unsigned long first, unsigned long last);
unsigned long BmSetBitRange_(PageCacheSType* pc, DiskTreeRootSType* root, unsigned long first, unsigned long last);

// Clears `bit`. Returns 1 if it was set, else 0. A leaf that empties is given back, unless it is a dense leaf
// that stays when empty.
int BmClearBit(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit);

// ---------------------------------------------------------------------------------------------------------
// Arrays of bits

// Sets the strictly ascending bits first[0] to end[-1]. Returns how many were clear before. Out of pages: the
// bits before that point stay set; the result is their count, or 1 if it was a full list that could not split.
unsigned long BmSetBitsFromSortedArray_(PageCacheSType* pc, RepTreeRootSType* root, const unsigned long* first,
                                        const unsigned long* end);

// The same for an unsorted array of bits, of Oops (bit = element >> 8), of tagged page ids (bit = element >> 1).
// Repeats count once. The array is left in an unspecified order.
unsigned long BmSetBitsFromArray_(PageCacheSType* pc, RepTreeRootSType* root, unsigned long* first,
                                  unsigned long* end);
unsigned long BmSetOopsFromArray_(PageCacheSType* pc, RepTreeRootSType* root, unsigned long* first,
                                  unsigned long* end);
unsigned long BmSetBitsFromTaggedPageIds(PageCacheSType* pc, RepTreeRootSType* root, unsigned long* first,
                                         unsigned long* end);

// Clears the ascending bits first[0] to end[-1]. Returns how many were set. Emptied leaves are given back.
unsigned long BmClearBitsFromSortedArray_(PageCacheSType* pc, RepTreeRootSType* root, const unsigned long* first,
                                          const unsigned long* end);

// The same for an unsorted array.
unsigned long BmClearBitsFromArray_(PageCacheSType* pc, RepTreeRootSType* root, unsigned long* first,
                                    unsigned long* end);

// Sorts an unsorted array and drops repeats. Returns one past the last element kept, from first[1] on. The form
// for tagged page ids (below 2^39) compares and keeps element >> 1.
unsigned long* BmSortArrayRemoveDups_(unsigned long* first, unsigned long* end);
unsigned long* BmSortRemoveDups_FromTaggedPageIds(unsigned long* first, unsigned long* end);

// Sort first[1] to end[-2] ascending, in place and not stably; `first` holds a low sentinel (not above any
// element) and end[-1] a high one (not below any). Records go by `key`, or by `pageId`.
void BmQsort(unsigned long* first, unsigned long* end);
void BmQsort(RepOtDeltaSType* first, RepOtDeltaSType* end);
void BmQsortByPageId(RepOtDeltaSType* first, RepOtDeltaSType* end);

// Bits that wait to be set in, or cleared from, one tree, applied together. One caller at a time.
struct BmBufferType {
  static constexpr int capacity = 4000;

  PageCacheSType* cache;
  RepTreeRootSType* root;  // the tree; owned by the caller
  uint64_t reserved = 0;
  int32_t setMode;         // nonzero: the waiting bits are to be set; 0: to be cleared
  int64_t netChange = 0;   // bits really set, less bits really cleared
  uint64_t* next = slots;  // next free slot
  uint64_t lowSentinel = 0;
  uint64_t slots[capacity + 1];  // waiting bits in arrival order, and room for a high sentinel

  BmBufferType(PageCacheSType* pc, RepTreeRootSType* tree, bool set) : cache(pc), root(tree), setMode(set) {}
  BmBufferType(const BmBufferType&) = delete;
  BmBufferType& operator=(const BmBufferType&) = delete;

  // Bits that still wait are lost: flush first. A debug build asserts that none wait.
  ~BmBufferType();

  // Adds a bit (below 2^40), and flushes when the buffer is full.
  void add(unsigned long bit) {
    *next++ = bit;
    if (next == slots + capacity) flushImpl();
  }

  // Applies the waiting bits to the tree, updates netChange and empties the buffer.
  void flushImpl();
};

// ---------------------------------------------------------------------------------------------------------
// Trees against each other

// Makes `destination` a tree with the bits of `source` in new pages. The destination's treeKind and allocTag
// say where; its earlier root is overwritten, so it must be empty. Kept empty leaves are left out.
void BmCopyTree(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination);
void BmCopyTree(PageCacheSType* pc, const DiskTreeRootSType* source, RepTreeRootSType* destination);
void BmCopyTree(PageCacheSType* pc, const RepTreeRootSType* source, DiskTreeRootSType* destination);

// Sets in `destination` every bit of `source`. Returns how many were clear before; into an empty destination
// the number of bits copied, or all ones if the copy failed.
unsigned long BmSetBits_(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination);
unsigned long BmSetBits_(PageCacheSType* pc, const DiskTreeRootSType* source, RepTreeRootSType* destination);
unsigned long BmSetBits_(PageCacheSType* pc, const DiskTreeRootSType* source, DiskTreeRootSType* destination);
unsigned long BmSetBits_(PageCacheSType* pc, const RepTreeRootSType* source, DiskTreeRootSType* destination);

// Clears in `destination` every bit of `source`. Returns how many were set.
unsigned long BmClearBits_(PageCacheSType* pc, RepTreeRootSType* source, RepTreeRootSType* destination);
unsigned long BmClearBits_(PageCacheSType* pc, DiskTreeRootSType* source, RepTreeRootSType* destination);
unsigned long BmClearBits_(PageCacheSType* pc, DiskTreeRootSType* source, DiskTreeRootSType* destination);
unsigned long BmClearBits_(PageCacheSType* pc, RepTreeRootSType* source, DiskTreeRootSType* destination);

// The same by way of the intersection when `source` is the taller tree: for a source that is large against the
// destination.
unsigned long BmClearBitsLargeFirst(PageCacheSType* pc, RepTreeRootSType* source, RepTreeRootSType* destination);
unsigned long BmClearBitsLargeFirst(PageCacheSType* pc, DiskTreeRootSType* source, RepTreeRootSType* destination);
unsigned long BmClearBitsLargeFirst(PageCacheSType* pc, DiskTreeRootSType* source, DiskTreeRootSType* destination);

// Writes up to `limit` bits of `a` that are not in `b`, ascending, from startBit (or the lowest) on, to `bits`.
// Returns how many; a result of `limit` says that there may be more from one above the last bit on. When a
// resume into a tree of level 2 meets a dense leaf below startBit, bits below startBit can come out.
unsigned long BmDifferenceStartingAt_(PageCacheSType* pc, const RepTreeRootSType* a, const RepTreeRootSType* b,
                                      unsigned long limit, unsigned long* bits, unsigned long startBit);
unsigned long BmDifference_(PageCacheSType* pc, const RepTreeRootSType* a, const RepTreeRootSType* b,
                            unsigned long limit, unsigned long* bits);
unsigned long BmDifference_(PageCacheSType* pc, const RepTreeRootSType* a, const DiskTreeRootSType* b,
                            unsigned long limit, unsigned long* bits);

// Makes `result`, which must be empty, hold the bits of `a` that are not in `b`.
void BmDiff(PageCacheSType* pc, const RepTreeRootSType* a, const RepTreeRootSType* b, RepTreeRootSType* result);
void BmDiff(PageCacheSType* pc, const DiskTreeRootSType* a, const DiskTreeRootSType* b, RepTreeRootSType* result);

// Sets in `resultTree` the bits that `a` and `b` share, until `limit` (0 counts as 1) have been newly set, and
// returns how many were. The limit can be overshot: by up to 319 bits between dense leaves, by up to a leaf's
// worth between lists. `ignored` has no effect.
unsigned long BmIntersectSize_(PageCacheSType* pc, const RepTreeRootSType* a, const RepTreeRootSType* b,
                               RepTreeRootSType* resultTree, unsigned long limit, int ignored);
unsigned long BmIntersectSize_(PageCacheSType* pc, const DiskTreeRootSType* a, const RepTreeRootSType* b,
                               RepTreeRootSType* resultTree, unsigned long limit);
unsigned long BmIntersectSize_(PageCacheSType* pc, const RepTreeRootSType* a, const DiskTreeRootSType* b,
                               RepTreeRootSType* resultTree, unsigned long limit);
unsigned long BmIntersectSize_(PageCacheSType* pc, const DiskTreeRootSType* a, const DiskTreeRootSType* b,
                               RepTreeRootSType* resultTree, unsigned long limit);

// Sets, or clears, in `destination` one bit for the id of each page that `source` is made of. Heap trees and
// inline lists have none.
void BmAdd(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination);
void BmAdd(PageCacheSType* pc, const DiskTreeRootSType* source, RepTreeRootSType* destination);
void BmRemove(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination);
void BmRemove(PageCacheSType* pc, const DiskTreeRootSType* source, RepTreeRootSType* destination);

// The same as BmAdd, after a heap tree `source` has been turned into a page tree.
void BmConvertToPagesAndAdd(PageCacheSType* pc, RepTreeRootSType* source, RepTreeRootSType* destination);

// ---------------------------------------------------------------------------------------------------------
// Queries

// Number of set bits; the limited form stops counting at `max`. Reads one counter per leaf.
unsigned long BmFindNumBitsSet_(PageCacheSType* pc, const RepTreeRootSType* root);
unsigned long BmFindNumBitsSet_(PageCacheSType* pc, const DiskTreeRootSType* root);
unsigned long BmFindNumBitsSetMax_(PageCacheSType* pc, const RepTreeRootSType* root, unsigned long max);

// An estimate that touches no leaf: the leaves of the first level-1 page, each counted as full; exact at level 0.
unsigned long BmFindApproxNumBitsSet_(PageCacheSType* pc, const RepTreeRootSType* root);
unsigned long BmFindApproxNumBitsSet_(PageCacheSType* pc, const DiskTreeRootSType* root);

// The highest set bit; 0 if there is none.
unsigned long BmFindHighWaterMark_(PageCacheSType* pc, const RepTreeRootSType* root);
unsigned long BmFindHighWaterMark_(PageCacheSType* pc, const DiskTreeRootSType* root);

// Number of leaves of a level-1 tree; -1 for a tree of another level.
int BmLevel1NumLeaves(PageCacheSType* pc, RepTreeRootSType* root);

// Number of pages that the tree occupies.
unsigned long BmCountPagesInTree(PageCacheSType* pc, RepTreeRootSType* root);

// 1 if no bit is set, else 0. The disk form takes a root with pageIdLow 0 for empty.
int BmIsEmpty(PageCacheSType* pc, RepTreeRootSType* root);
int BmIsEmpty(PageCacheSType* pc, DiskTreeRootSType* root);

// ---------------------------------------------------------------------------------------------------------
// Extraction. A walk: BmPathSType path{}, then calls with that path until the result is 0. Each result is the
// number of entries stored in `out`, which has room for `maxBits`.

// Takes the lowest bits out of the tree. The tree ends empty; nothing else may change it during the walk.
unsigned long BmFindSetBits_(PageCacheSType* pc, unsigned long maxBits, RepTreeRootSType* root, BmPathSType* path,
                             unsigned long* out);
unsigned long BmFindSetBits_(PageCacheSType* pc, unsigned long maxBits, DiskTreeRootSType* root, BmPathSType* path,
                             unsigned long* out);

// The same, delivering Oops.
unsigned long BmFindSetOops_(PageCacheSType* pc, unsigned long maxBits, RepTreeRootSType* root, BmPathSType* path,
                             unsigned long* out);

// Removes the `numBits` lowest bits; the tree must hold that many, or the operation does not end. Returns
// `numBits`.
unsigned long BmClearNumBits(PageCacheSType* pc, RepTreeRootSType* root, unsigned long numBits);

// Keeps the `numBits` lowest bits. Returns how many were removed.
unsigned long BmTruncate(PageCacheSType* pc, RepTreeRootSType* root, unsigned long numBits);

// Copies bits out in ascending order and leaves the tree as it is.
unsigned long BmFindSetBitsNonDestructive_(PageCacheSType* pc, long maxBits, const RepTreeRootSType* root,
                                           BmPathSType* path, unsigned long* out);
unsigned long BmFindSetBitsNonDestructive_(PageCacheSType* pc, long maxBits, const DiskTreeRootSType* root,
                                           BmPathSType* path, unsigned long* out);

// The same, from the first set bit at or above `startBit` on; later calls go on from the path. On an inline list
// startBit has no effect, and at level 2 a startBit past the last dense leaf of a level-1 page gives 0.
unsigned long BmFindSetBitsNonDestructiveStartingAt_(PageCacheSType* pc, unsigned long startBit, long maxBits,
                                                     const RepTreeRootSType* root, BmPathSType* path,
                                                     unsigned long* out);

// The same as BmFindSetBitsNonDestructive_, delivering Oops; the count is narrowed to 32 bits.
unsigned long BmFindSetOopsNonDestructive_(PageCacheSType* pc, unsigned long maxBits, RepTreeRootSType* root,
                                           BmPathSType* path, unsigned long* out);

// Sets in `dest` each bit of `src` from firstBit to lastBit, inclusive. Returns how many `src` has there.
unsigned long BmFindSetBitsNonDestructiveInRange_(PageCacheSType* pc, const RepTreeRootSType* src,
                                                  RepTreeRootSType* dest, unsigned long firstBit,
                                                  unsigned long lastBit);

// The position of a search for clear bits: set nextBit and limitBit and zero the rest.
struct BmFindClearPathSType {
  uint64_t nextBit;      // next candidate
  uint64_t limitBit;     // last bit of the range
  int32_t noMoreLeaves;  // 1: all that is left is clear
  BmPathSType path;
};

// Stores up to `maxBits` clear bits from nextBit to limitBit in `out`, ascending, and returns how many. Call again
// with the same position for more. A search that reaches a list entry above limitBit ends there, and one that
// starts beyond a dense leaf is pulled back to that leaf's end. Not for inline lists.
unsigned long BmFindClearBits_(PageCacheSType* pc, unsigned long maxBits, const RepTreeRootSType* root,
                               BmFindClearPathSType* clearPath, unsigned long* out);

// ---------------------------------------------------------------------------------------------------------
// Lifetime

// Gives all pages of `tree` back and leaves it empty. An inline list is left as it is.
void BmDisposeTree(PageCacheSType* pc, RepTreeRootSType* tree);
void BmDisposeTree(PageCacheSType* pc, DiskTreeRootSType* tree);

// Releases every page whose id is a bit of `tree`, a tree of kind 1 or 2; `tree` ends empty.
void BmDisposePages(PageCacheSType* pc, RepTreeRootSType* tree);

// The same for a heap tree of page ids; stops when the page cache refuses a page.
void BmDisposePagesHeapTree(PageCacheSType* pc, RepTreeRootSType* tree);

// Flushes every page of `tree`, children first, with `mode`; a heap tree is turned into a page tree first, and
// stays a heap tree if no pages are to be had.
void BmFlushTree_(PageCacheSType* pc, RepTreeRootSType* tree, PageRemoveEType mode);
void BmFlushTree_(PageCacheSType* pc, DiskTreeRootSType* tree, PageRemoveEType mode);

// Flushes every page whose id is a bit of `tree`. Returns how many.
unsigned long BmFlushTreeContents_(PageCacheSType* pc, const RepTreeRootSType* tree);
unsigned long BmFlushTreeContents_(PageCacheSType* pc, const DiskTreeRootSType* tree);

// Takes every page of `tree`, children first, out of the private cache.
void BmRemoveFromPrivateCache(PageCacheSType* pc, RepTreeRootSType* tree, int mode);

// Takes every page whose id is a bit of `tree` out of the private cache and, with keepTreePages 0, the tree's own
// pages too. baseBit is 0 at the root.
void BmRemoveShadowPagesFromCache(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long baseBit,
                                  int keepTreePages);

// Gives `tree` a dense leaf that stays when empty for every span from bit 0 to that of `bit` (of `oop` >> 8), so
// that those bits can later be set and cleared without a change of shape.
void BmGrowToHighWaterBit(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long bit);
void BmGrowToHighWaterOop(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long oop);

// ---------------------------------------------------------------------------------------------------------
// Bitmap files: a 16-byte header (mark 0x03020100, item size, item count), then the bits ascending, in the byte
// order of the machine that wrote it. All return 1, or 0 after a message on standard error; `err`, which may be
// null, then holds the system's error code where there is one.

// Adds the bits of a file of either item size and byte order to `root`. A failed read leaves the bits of the
// chunks before it. The order of the items is trusted: see BmCheckFile. The disk form writes no root back.
int BmReadFromFile(PageCacheSType* pc, char* fileName, RepTreeRootSType* root, int* err);
int BmReadFromFile(PageCacheSType* pc, char* fileName, DiskTreeRootSType* root, int* err);

// Write a new file and empty the tree on the way. An existing file is an error unless deleteExisting is nonzero.
// The 6x format has 4-byte items and drops the upper bits of larger ones. The disk form writes no root back. A
// failed write leaves a partial file, and the bits written until then are gone from the tree.
int BmWriteToFile(PageCacheSType* pc, char* fileName, RepTreeRootSType* root, int* err);
int BmWriteToFile(PageCacheSType* pc, char* fileName, RepTreeRootSType* root, int deleteExisting, int* err);
int BmWriteToFile(PageCacheSType* pc, char* fileName, DiskTreeRootSType* root, int* err);
int BmWriteToFileIn6xFormat(PageCacheSType* pc, char* fileName, RepTreeRootSType* root, int* err);

// The same, leaving the tree as it is.
int BmWriteToFileNonDestructive(PageCacheSType* pc, char* fileName, const RepTreeRootSType* root, int* err);
int BmWriteToFileNonDestructive(PageCacheSType* pc, char* fileName, const RepTreeRootSType* root, int deleteExisting,
                                int* err);
int BmWriteToFileNonDestructive(PageCacheSType* pc, char* fileName, const DiskTreeRootSType* root, int* err);

// Writes random trees of 0, 10 and 2000 bits to a temporary file, reads them back and requires equality.
void BmTestBitmapToFileCode(PageCacheSType* pc);

// ---------------------------------------------------------------------------------------------------------
// Compressed records

// Packs bits of `root` from where `path` stands (BmPathSType path{} at first) into the packer's record. Nonzero
// when nothing remains; 0 when the record is full and a call with a fresh one is needed.
int BmFindSetBitsNonDestructive(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path,
                                LogComprResourcePackerType* packer);

// Sets the bits of one record in `root`. Returns how many were clear before.
unsigned long BmSetBitsFromLogRec(PageCacheSType* pc, RepTreeRootSType* root, LogComprResourceIdRecHdrType* rec);

// ---------------------------------------------------------------------------------------------------------
// Checks for untrusted or suspect input. They change nothing and survive any content.

// Receives one broken invariant: the page it was found in, that page's level, and a plain sentence. `sentence`
// is valid during the call.
using BmVerifyReportFn = void (*)(void* context, unsigned long pageRef, int level, const char* sentence);

// Walks the whole tree and reports every broken invariant of its pages to `report` (may be null), handing it
// `context`. Returns the number of faults. Never reads outside a page and never follows a reference of 0; in a
// heap tree the other references must be readable pages.
unsigned long BmVerifyTree(PageCacheSType* pc, const RepTreeRootSType* root, BmVerifyReportFn report, void* context);

// What a check of a file or record found first.
enum BmCheckFaultEType : int32_t {
  BM_CHECK_SOUND = 0,
  BM_CHECK_UNREADABLE = 1,  // the file is missing, cannot be opened, or ends or fails before its size
  BM_CHECK_HEADER = 2,      // a field of the header or head has no legal value
  BM_CHECK_SIZE = 3,        // header and length do not go together
  BM_CHECK_ORDER = 4,       // an item of a file is not above the one before it
  BM_CHECK_RANGE = 5,       // an item is 2^40 or above
  BM_CHECK_TAG = 6,         // an item of a record has an illegal tag
  BM_CHECK_CUT_OFF = 7,     // an item of a record goes on behind the record's end
  BM_CHECK_COUNT = 8,       // the head of a record does not say how many bits follow
  BM_CHECK_ALIGNMENT = 9,   // a record's address, or the first bit of its dense image, is no legal multiple
};

struct BmCheckResultSType {
  BmCheckFaultEType fault;
  int32_t sysError;      // the system's error code with BM_CHECK_UNREADABLE where there is one, otherwise 0
  uint64_t byteOffset;   // where the fault begins, from the start of file or record; sound: bytes looked at
  uint64_t itemIndex;    // items looked at before the fault (dense image: index of the word); sound: all items
  const char* sentence;  // what is wrong; a literal
};

// Reads a bitmap file to its end and says in *result what is wrong with it first. Needs no more than 32 KiB of stack,
// whatever the file's size. Returns 1 if the file is sound: BmReadFromFile then sets exactly its items. Else 0.
int BmCheckFile(const char* fileName, BmCheckResultSType* result);

// The same for a compressed record in a buffer of `bytes` bytes, which is not read behind them. Returns 1 if the
// record is sound: BmSetBitsFromLogRec then stays within the buffer and sets exactly its items, which need not
// ascend.
int BmCheckLogRec(const void* record, unsigned long bytes, BmCheckResultSType* result);
