// Page images laid out byte by byte, without the library's structs, and trees built from them by hand.
//
// Images start out as garbage, so that nothing may depend on bytes that mean nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "support/testhost.h"

// ---------------------------------------------------------------------------------------------------------
// Raw fields, in native byte order

uint8_t rawU8(const void* page, size_t offset);
uint16_t rawU16(const void* page, size_t offset);
uint32_t rawU32(const void* page, size_t offset);
uint64_t rawU64(const void* page, size_t offset);
void putU8(void* page, size_t offset, uint8_t value);
void putU16(void* page, size_t offset, uint16_t value);
void putU32(void* page, size_t offset, uint32_t value);
void putU64(void* page, size_t offset, uint64_t value);

// Offsets of the fields of a page.
namespace at {
constexpr size_t pageKind = 0;
constexpr size_t pageState = 1;
constexpr size_t stampHigh = 4;
constexpr size_t pageId = 8;
constexpr size_t bytesUsed = 24;
constexpr size_t stampLow = 28;
constexpr size_t listCount = 32;        // int32
constexpr size_t listFirstOffset = 36;  // int32
constexpr size_t bitsSet = 32;          // int32
constexpr size_t keepWhenEmpty = 36;    // int32
constexpr size_t intFirstOffset = 32;   // uint16
constexpr size_t intCount = 34;         // uint16
constexpr size_t intLevel = 36;         // uint16
constexpr size_t entry(size_t slot) { return 40 + 8 * slot; }
constexpr size_t word(size_t index) { return 40 + 8 * index; }
constexpr size_t key(size_t slot) { return 48 + 8 * slot; }
constexpr size_t child(size_t slot) { return 8216 + 8 * slot; }
}  // namespace at

// The whole 64-bit stamp of a page.
uint64_t rawStamp(const void* page);
void putStamp(void* page, uint64_t stamp);

// ---------------------------------------------------------------------------------------------------------
// Images

// A list page; `bits` ascending.
PageBytes listImage(const std::vector<uint64_t>& bits, int firstOffset = 0);

// A dense leaf; `bits` in any order, each taken modulo the span.
PageBytes denseImage(const std::vector<uint64_t>& bits, int keepWhenEmpty = 0);

struct RawPair {
  uint64_t key;  // as stored, tag included
  uint64_t child;
};
PageBytes internalImage(int level, const std::vector<RawPair>& pairs, int firstOffset = 0);

// ---------------------------------------------------------------------------------------------------------
// Trees

struct LeafSpec {
  uint64_t key = 0;
  bool dense = false;
  std::vector<uint64_t> bits;
  int firstOffset = 0;    // of a list
  int keepWhenEmpty = 0;  // of a dense leaf
};
LeafSpec listLeaf(uint64_t key, std::vector<uint64_t> bits, int firstOffset = 0);
LeafSpec denseLeaf(uint64_t key, std::vector<uint64_t> bits, int keepWhenEmpty = 0);

struct BuildOptions {
  int allocTag = 777;
  int internalFirstOffset = 0;
  // Careful trees: pages made under the current stamp and entered in dirtyCarefulBm, instead of one stamp older.
  bool currentStamp = false;
};

// A tree of level 0, of level 1 with these leaves, of level 2 with these leaves below each level-1 page. Keys are
// taken as they are. The owner of the root disposes of it.
RepTreeRootSType buildTree(TestHost& host, BmTreeKindEType kind, const LeafSpec& leaf, const BuildOptions& = {});
RepTreeRootSType buildTree(TestHost& host, BmTreeKindEType kind, const std::vector<LeafSpec>& leaves,
                           const BuildOptions& = {});
RepTreeRootSType buildTree(TestHost& host, BmTreeKindEType kind, const std::vector<std::vector<LeafSpec>>& groups,
                           const BuildOptions& = {});

// Places one page for a tree of `kind`, stamped as told. Returns its reference.
uint64_t placePage(TestHost& host, BmTreeKindEType kind, PageBytes image, const BuildOptions& = {});

// The packed form of a root of kind 1 to 3, or of an empty one of kind 0, byte by byte.
DiskTreeRootSType diskRootOf(const RepTreeRootSType& root);

// A list inside another record: the disk root, a gap of garbage, and the contents.
class InlineTree {
 public:
  explicit InlineTree(const std::vector<uint64_t>& bits = {}, int firstOffset = 0, uint32_t offset = 24);

  RepTreeRootSType* root() { return &root_; }
  DiskTreeRootSType* diskRoot() { return reinterpret_cast<DiskTreeRootSType*>(memory_.data()); }
  unsigned char* memory() { return memory_.data(); }
  // The list's contents: count at 0, firstOffset at 4, entries from 8 on.
  unsigned char* contents() { return memory_.data() + offset_; }
  // As far as the entries have room.
  size_t bytes() const { return memory_.size(); }

 private:
  std::vector<unsigned char> memory_;
  uint32_t offset_;
  RepTreeRootSType root_;
};
