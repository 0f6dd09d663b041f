// Page and root formats of the bitmap module, byte for byte, with their small accessors.
//
// A tree holds a set of bits (numbers below 2^40) in pages of 16,384 bytes, all integers in the machine's
// native byte order. These layouts are persistent: pages of page, shared-page and careful trees live in the
// store's files, and heap pages carry the same bytes in private memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

static_assert(sizeof(unsigned long) == 8 && sizeof(void*) == 8, "bits, page ids and addresses are 64-bit words");

// ---------------------------------------------------------------------------------------------------------
// Bits, spans and capacities

constexpr int BM_PAGE_SIZE = 16384;                       // bytes in a page of any kind
constexpr int BM_BIT_LIST_CAPACITY = 2043;                // entries of a bit list, words of a dense leaf
constexpr int BM_LEAF_BITS = 130752;                      // bits of a span: 2043 words of 64
constexpr int BM_INT_CAPACITY = 1021;                     // key and child pairs of an internal page
constexpr unsigned long BM_END_BIT = 0x10000000000UL;     // one past the last bit
constexpr unsigned long BM_HIGHEST_BIT = BM_END_BIT - 1;  // the last bit
constexpr int BM_LIST_HEAD_BYTES = 40;                    // bytes of a bit-list page before its entries

// First bit of the span that holds `bit`. Every key of an internal page is a span base.
constexpr unsigned long spanBase(unsigned long bit) { return bit / BM_LEAF_BITS * BM_LEAF_BITS; }

// First bit after the span that holds `bit`.
constexpr unsigned long spanEnd(unsigned long bit) { return spanBase(bit) + BM_LEAF_BITS; }

// An Oop carries a bit in its upper 56 bits and has bit 0 set; the other low bits are dropped on the way in.
constexpr unsigned long bitOfOop(unsigned long oop) { return oop >> 8; }
constexpr unsigned long oopOfBit(unsigned long bit) { return bit << 8 | 1; }

// ---------------------------------------------------------------------------------------------------------
// Pages

enum RepPageKindEType : uint8_t {
  REP_ANY_PAGE = 0,   // asks PageLocate for a page of any kind; never stored
  REP_DATA_PAGE = 4,  // a data page of the store, never a page of a tree
  REP_BM_INTERNAL_PAGE = 7,
  REP_BM_LEAF_PAGE = 8,  // dense leaf
  REP_BIT_LIST_PAGE = 12,
};

// Head of every page. The reserved bytes belong to the page cache and are zero in a heap page.
struct RepPageHdrSType {
  uint8_t pageKind;   // a RepPageKindEType
  uint8_t pageState;  // 3 in a heap page, otherwise the page cache's
  uint8_t reserved2[2];
  uint32_t carefulStampHigh;  // the stamp is one 64-bit value in two halves that are not adjacent
  uint64_t pageId;            // in a heap page its own address
  uint8_t reserved16[8];
  int16_t bytesUsed;  // significant bytes from byte 0: 32 to 16384
  uint8_t reserved26[2];
  uint32_t carefulStampLow;
};
static_assert(sizeof(RepPageHdrSType) == 32);
static_assert(offsetof(RepPageHdrSType, pageKind) == 0 && offsetof(RepPageHdrSType, pageState) == 1);
static_assert(offsetof(RepPageHdrSType, carefulStampHigh) == 4 && offsetof(RepPageHdrSType, pageId) == 8);
static_assert(offsetof(RepPageHdrSType, bytesUsed) == 24 && offsetof(RepPageHdrSType, carefulStampLow) == 28);

inline uint64_t carefulStampOf(const RepPageHdrSType& page) {
  return uint64_t{page.carefulStampHigh} << 32 | page.carefulStampLow;
}

inline void setCarefulStamp(RepPageHdrSType& page, uint64_t stamp) {
  page.carefulStampHigh = static_cast<uint32_t>(stamp >> 32);
  page.carefulStampLow = static_cast<uint32_t>(stamp);
}

// A sorted list of bits with a movable front: entries[firstOffset] to entries[firstOffset + count - 1] are
// live and strictly ascending; the slots before them are a free gap, the other slots mean nothing.
struct RepBitListContentsSType {
  int32_t count;
  int32_t firstOffset;
  uint64_t entries[BM_BIT_LIST_CAPACITY];

  uint64_t* begin() { return entries + firstOffset; }
  uint64_t* end() { return begin() + count; }
  const uint64_t* begin() const { return entries + firstOffset; }
  const uint64_t* end() const { return begin() + count; }
};
static_assert(sizeof(RepBitListContentsSType) == 16352 && offsetof(RepBitListContentsSType, count) == 0);
static_assert(offsetof(RepBitListContentsSType, firstOffset) == 4 && offsetof(RepBitListContentsSType, entries) == 8);

// A list leaf: owns every bit from its key up to the next key of the tree.
struct RepBitListPageSType {
  RepPageHdrSType hdr;  // bytesUsed is (count + firstOffset) * 8 + 40
  RepBitListContentsSType contents;
};
static_assert(sizeof(RepBitListPageSType) == BM_PAGE_SIZE && offsetof(RepBitListPageSType, contents) == 32);

// A dense leaf: one bit for each of the 130,752 bits of the span that begins at its key.
struct RepBmLeafPageSType {
  RepPageHdrSType hdr;    // bytesUsed is 16384
  int32_t bitsSet;        // population of `words`
  int32_t keepWhenEmpty;  // 1: stays in the tree when bitsSet reaches 0
  uint64_t words[BM_BIT_LIST_CAPACITY];
};
static_assert(sizeof(RepBmLeafPageSType) == BM_PAGE_SIZE && offsetof(RepBmLeafPageSType, bitsSet) == 32);
static_assert(offsetof(RepBmLeafPageSType, keepWhenEmpty) == 36 && offsetof(RepBmLeafPageSType, words) == 40);

// Index of the word of a dense leaf that holds `bit`, and the mask of `bit` in it. A span is a multiple of
// 64, so the low six bits of the bit itself select the mask.
constexpr unsigned long denseWordIndex(unsigned long bit) { return bit % BM_LEAF_BITS >> 6; }
constexpr uint64_t denseWordMask(unsigned long bit) { return uint64_t{1} << (bit & 63); }

// Keys of an internal page. Live slots are firstOffset to firstOffset + count - 1, ascending. In a level-1
// page bit 0 of a key is a tag: 1 above a dense leaf, 0 above a list. Level-2 keys have no tag.
struct BmInternalKeyType {
  uint16_t firstOffset;
  uint16_t count;
  uint16_t level;  // written at creation, never read
  uint16_t reserved38;
  uint64_t reserved40;
  uint64_t keys[BM_INT_CAPACITY];
};
static_assert(sizeof(BmInternalKeyType) == 8184 && offsetof(BmInternalKeyType, firstOffset) == 0);
static_assert(offsetof(BmInternalKeyType, count) == 2);
static_assert(offsetof(BmInternalKeyType, level) == 4 && offsetof(BmInternalKeyType, reserved38) == 6);
static_assert(offsetof(BmInternalKeyType, reserved40) == 8 && offsetof(BmInternalKeyType, keys) == 16);

// An internal page: the key in slot i belongs to the child in slot i, a page id or, in a heap tree, an address.
struct RepBmInternalPageSType {
  RepPageHdrSType hdr;  // bytesUsed is 16384
  BmInternalKeyType keyArea;
  uint64_t children[BM_INT_CAPACITY];
};
static_assert(sizeof(RepBmInternalPageSType) == BM_PAGE_SIZE && offsetof(RepBmInternalPageSType, keyArea) == 32);
static_assert(offsetof(RepBmInternalPageSType, children) == 8216);

constexpr uint64_t BM_DENSE_TAG = 1;
constexpr uint64_t keyBit(uint64_t key) { return key & ~BM_DENSE_TAG; }
constexpr bool keyIsDense(uint64_t key) { return (key & BM_DENSE_TAG) != 0; }

inline RepBitListPageSType* asListPage(RepPageHdrSType* page) { return reinterpret_cast<RepBitListPageSType*>(page); }
inline RepBmLeafPageSType* asDensePage(RepPageHdrSType* page) { return reinterpret_cast<RepBmLeafPageSType*>(page); }
inline RepBmInternalPageSType* asInternalPage(RepPageHdrSType* page) {
  return reinterpret_cast<RepBmInternalPageSType*>(page);
}
inline const RepBitListPageSType* asListPage(const RepPageHdrSType* page) {
  return reinterpret_cast<const RepBitListPageSType*>(page);
}
inline const RepBmLeafPageSType* asDensePage(const RepPageHdrSType* page) {
  return reinterpret_cast<const RepBmLeafPageSType*>(page);
}
inline const RepBmInternalPageSType* asInternalPage(const RepPageHdrSType* page) {
  return reinterpret_cast<const RepBmInternalPageSType*>(page);
}

// bytesUsed of a list page whose `contents` are given.
constexpr int16_t listBytesUsed(int count, int firstOffset) {
  return static_cast<int16_t>((count + firstOffset) * 8 + BM_LIST_HEAD_BYTES);
}

// ---------------------------------------------------------------------------------------------------------
// Roots

enum BmTreeKindEType : int8_t {
  BM_HEAP_TREE = 0,          // pages in private memory, reached by address
  BM_PAGE_TREE = 1,          // pages of the page cache, reached by id
  BM_SHARED_PAGE_TREE = 2,   // the same, shared
  BM_CAREFUL_TREE = 3,       // the same, and a page of an older stamp is shadowed before it is written
  BM_INLINE_LIST_TREE = -2,  // no page: one list inside another record
};

// A tree in memory; copied by value. An empty tree has `root` 0 and keeps its other fields, so that the first
// write knows how to make a page.
struct RepTreeRootSType {
  uint64_t root = 0;      // page id; heap: page address; inline list: address of the word that holds its offset
  int32_t allocTag = -1;  // tag of this tree's heap pages
  int8_t treeKind = BM_HEAP_TREE;  // a BmTreeKindEType
  uint8_t level = 0;               // of the root page: 0 a leaf, 1 a page of leaves, 2 a page of level-1 pages
  uint8_t denseLeaves = 0;         // 1: new leaves are dense ones that stay when empty
  uint8_t reserved = 0;

  constexpr RepTreeRootSType() = default;

  // An empty tree, or one whose root page is `root`, of the given kind: allocTag -1, level 0.
  constexpr RepTreeRootSType(unsigned long rootRef, BmTreeKindEType kind) : root(rootRef), treeKind(kind) {}
};
static_assert(sizeof(RepTreeRootSType) == 16 && std::is_trivially_copyable_v<RepTreeRootSType>);
static_assert(offsetof(RepTreeRootSType, allocTag) == 8 && offsetof(RepTreeRootSType, treeKind) == 12);
static_assert(offsetof(RepTreeRootSType, level) == 13 && offsetof(RepTreeRootSType, denseLeaves) == 14);
static_assert(offsetof(RepTreeRootSType, root) == 0 && offsetof(RepTreeRootSType, reserved) == 15);

// A tree in an on-disk record. The 40-bit page id is split around the two small fields. With a negative kind
// pageIdLow is the byte offset of a list's contents from this root's own address.
struct DiskTreeRootSType {
  uint32_t pageIdLow = 0;
  uint8_t level = 0;
  int8_t treeKind = BM_PAGE_TREE;
  uint8_t pageIdHigh = 0;
  uint8_t reserved = 0;

  constexpr DiskTreeRootSType() = default;

  // A tree of level 0 whose root page is `pageId` (below 2^40; 0: empty).
  constexpr DiskTreeRootSType(unsigned long pageId, int kind)
      : pageIdLow(static_cast<uint32_t>(pageId)),
        treeKind(static_cast<int8_t>(kind)),
        pageIdHigh(static_cast<uint8_t>(pageId >> 32)) {}
};
static_assert(sizeof(DiskTreeRootSType) == 8 && std::is_trivially_copyable_v<DiskTreeRootSType>);
static_assert(offsetof(DiskTreeRootSType, pageIdLow) == 0);
static_assert(offsetof(DiskTreeRootSType, level) == 4 && offsetof(DiskTreeRootSType, treeKind) == 5);
static_assert(offsetof(DiskTreeRootSType, pageIdHigh) == 6 && offsetof(DiskTreeRootSType, reserved) == 7);

constexpr unsigned long pageIdOf(const DiskTreeRootSType& root) {
  return static_cast<unsigned long>(root.pageIdHigh) << 32 | root.pageIdLow;
}

// A record of two words that the store sorts by either one.
struct RepOtDeltaSType {
  uint64_t key;
  uint64_t pageId;
};
static_assert(sizeof(RepOtDeltaSType) == 16);
