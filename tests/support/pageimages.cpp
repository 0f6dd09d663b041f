#include "support/pageimages.h"

#include <cstring>

namespace {

template <class Value>
Value raw(const void* page, size_t offset) {
  Value value;
  std::memcpy(&value, static_cast<const unsigned char*>(page) + offset, sizeof value);
  return value;
}

template <class Value>
void put(void* page, size_t offset, Value value) {
  std::memcpy(static_cast<unsigned char*>(page) + offset, &value, sizeof value);
}

PageBytes garbageImage(uint8_t pageKind, int bytesUsed) {
  PageBytes image;
  image.fill(0xA5);
  putU8(image.data(), at::pageKind, pageKind);
  putU16(image.data(), at::bytesUsed, static_cast<uint16_t>(bytesUsed));
  return image;
}

}  // namespace

uint8_t rawU8(const void* page, size_t offset) { return raw<uint8_t>(page, offset); }
uint16_t rawU16(const void* page, size_t offset) { return raw<uint16_t>(page, offset); }
uint32_t rawU32(const void* page, size_t offset) { return raw<uint32_t>(page, offset); }
uint64_t rawU64(const void* page, size_t offset) { return raw<uint64_t>(page, offset); }
void putU8(void* page, size_t offset, uint8_t value) { put(page, offset, value); }
void putU16(void* page, size_t offset, uint16_t value) { put(page, offset, value); }
void putU32(void* page, size_t offset, uint32_t value) { put(page, offset, value); }
void putU64(void* page, size_t offset, uint64_t value) { put(page, offset, value); }

uint64_t rawStamp(const void* page) {
  return static_cast<uint64_t>(rawU32(page, at::stampHigh)) << 32 | rawU32(page, at::stampLow);
}

void putStamp(void* page, uint64_t stamp) {
  putU32(page, at::stampHigh, static_cast<uint32_t>(stamp >> 32));
  putU32(page, at::stampLow, static_cast<uint32_t>(stamp));
}

// ---------------------------------------------------------------------------------------------------------
// Images

PageBytes listImage(const std::vector<uint64_t>& bits, int firstOffset) {
  PageBytes image = garbageImage(12, 40 + 8 * (static_cast<int>(bits.size()) + firstOffset));
  putU32(image.data(), at::listCount, static_cast<uint32_t>(bits.size()));
  putU32(image.data(), at::listFirstOffset, static_cast<uint32_t>(firstOffset));
  size_t slot = static_cast<size_t>(firstOffset);
  for (const uint64_t bit : bits) putU64(image.data(), at::entry(slot++), bit);
  return image;
}

PageBytes denseImage(const std::vector<uint64_t>& bits, int keepWhenEmpty) {
  PageBytes image = garbageImage(8, 16384);
  std::memset(image.data() + 40, 0, image.size() - 40);
  uint32_t bitsSet = 0;
  for (const uint64_t bit : bits) {
    const uint64_t position = bit % 130752;
    uint64_t word = rawU64(image.data(), at::word(position / 64));
    const uint64_t mask = uint64_t{1} << (position % 64);
    bitsSet += (word & mask) == 0 ? 1 : 0;
    putU64(image.data(), at::word(position / 64), word | mask);
  }
  putU32(image.data(), at::bitsSet, bitsSet);
  putU32(image.data(), at::keepWhenEmpty, static_cast<uint32_t>(keepWhenEmpty));
  return image;
}

PageBytes internalImage(int level, const std::vector<RawPair>& pairs, int firstOffset) {
  PageBytes image = garbageImage(7, 16384);
  putU16(image.data(), at::intFirstOffset, static_cast<uint16_t>(firstOffset));
  putU16(image.data(), at::intCount, static_cast<uint16_t>(pairs.size()));
  putU16(image.data(), at::intLevel, static_cast<uint16_t>(level));
  putU16(image.data(), 38, 0);
  putU64(image.data(), 40, 0);
  size_t slot = static_cast<size_t>(firstOffset);
  for (const RawPair& pair : pairs) {
    putU64(image.data(), at::key(slot), pair.key);
    putU64(image.data(), at::child(slot++), pair.child);
  }
  return image;
}

// ---------------------------------------------------------------------------------------------------------
// Trees

LeafSpec listLeaf(uint64_t key, std::vector<uint64_t> bits, int firstOffset) {
  return {key, false, std::move(bits), firstOffset, 0};
}

LeafSpec denseLeaf(uint64_t key, std::vector<uint64_t> bits, int keepWhenEmpty) {
  return {key, true, std::move(bits), 0, keepWhenEmpty};
}

uint64_t placePage(TestHost& host, BmTreeKindEType kind, PageBytes image, const BuildOptions& options) {
  if (kind == BM_HEAP_TREE) {
    putStamp(image.data(), 0);
    return host.placeHeapPage(image, options.allocTag);
  }
  if (kind != BM_CAREFUL_TREE) return host.placeCachedPage(image);
  const uint64_t stamp = *host.carefulStamp - (options.currentStamp ? 0 : 1);
  putStamp(image.data(), stamp);
  const uint64_t id = host.placeCachedPage(image, stamp);
  if (options.currentStamp) BmSetBit(&host, host.dirtyCarefulBm, id);
  return id;
}

namespace {

uint64_t placeLeaf(TestHost& host, BmTreeKindEType kind, const LeafSpec& leaf, const BuildOptions& options) {
  const PageBytes image =
      leaf.dense ? denseImage(leaf.bits, leaf.keepWhenEmpty) : listImage(leaf.bits, leaf.firstOffset);
  return placePage(host, kind, image, options);
}

uint64_t placeLevel1(TestHost& host, BmTreeKindEType kind, const std::vector<LeafSpec>& leaves,
                     const BuildOptions& options) {
  std::vector<RawPair> pairs;
  for (const LeafSpec& leaf : leaves) {
    pairs.push_back({leaf.key | (leaf.dense ? 1u : 0u), placeLeaf(host, kind, leaf, options)});
  }
  return placePage(host, kind, internalImage(1, pairs, options.internalFirstOffset), options);
}

RepTreeRootSType rootOf(uint64_t ref, BmTreeKindEType kind, int level, const BuildOptions& options) {
  RepTreeRootSType root(ref, kind);
  root.allocTag = options.allocTag;
  root.level = static_cast<uint8_t>(level);
  return root;
}

}  // namespace

RepTreeRootSType buildTree(TestHost& host, BmTreeKindEType kind, const LeafSpec& leaf, const BuildOptions& options) {
  return rootOf(placeLeaf(host, kind, leaf, options), kind, 0, options);
}

RepTreeRootSType buildTree(TestHost& host, BmTreeKindEType kind, const std::vector<LeafSpec>& leaves,
                           const BuildOptions& options) {
  return rootOf(placeLevel1(host, kind, leaves, options), kind, 1, options);
}

RepTreeRootSType buildTree(TestHost& host, BmTreeKindEType kind, const std::vector<std::vector<LeafSpec>>& groups,
                           const BuildOptions& options) {
  std::vector<RawPair> pairs;
  for (const std::vector<LeafSpec>& leaves : groups) {
    const uint64_t key = leaves.empty() ? 0 : leaves.front().key;
    pairs.push_back({key, placeLevel1(host, kind, leaves, options)});
  }
  const PageBytes image = internalImage(2, pairs, options.internalFirstOffset);
  return rootOf(placePage(host, kind, image, options), kind, 2, options);
}

DiskTreeRootSType diskRootOf(const RepTreeRootSType& root) {
  DiskTreeRootSType disk;
  putU32(&disk, 0, static_cast<uint32_t>(root.root));
  putU8(&disk, 4, root.level);
  putU8(&disk, 5, static_cast<uint8_t>(root.treeKind));
  putU8(&disk, 6, static_cast<uint8_t>(root.root >> 32));
  putU8(&disk, 7, 0);
  return disk;
}

InlineTree::InlineTree(const std::vector<uint64_t>& bits, int firstOffset, uint32_t offset)
    : memory_(offset + 8 + 8 * size_t{BM_BIT_LIST_CAPACITY}, 0xA5), offset_(offset) {
  putU32(memory(), 0, offset);
  putU8(memory(), 4, 0);
  putU8(memory(), 5, static_cast<uint8_t>(-2));
  putU8(memory(), 6, 0);
  putU8(memory(), 7, 0);
  putU32(contents(), 0, static_cast<uint32_t>(bits.size()));
  putU32(contents(), 4, static_cast<uint32_t>(firstOffset));
  size_t slot = static_cast<size_t>(firstOffset);
  for (const uint64_t bit : bits) putU64(contents(), 8 + 8 * slot++, bit);
  root_ = RepTreeRootSType(reinterpret_cast<uint64_t>(memory()), BM_INLINE_LIST_TREE);
}
