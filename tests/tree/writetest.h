// What the tests of the write side share: lists of bits in one line, paths, and trees built by hand, looked at page
// by page.
#pragma once

#include "query/randomtree.h"
#include "tree/findleaf.h"

// `count` bits from `first` on, `step` apart.
inline std::vector<uint64_t> steps(uint64_t first, size_t count, uint64_t step = 1) {
  std::vector<uint64_t> bits(count);
  for (size_t i = 0; i < count; ++i) bits[i] = first + i * step;
  return bits;
}

inline std::vector<uint64_t> operator+(std::vector<uint64_t> bits, const std::vector<uint64_t>& more) {
  bits.insert(bits.end(), more.begin(), more.end());
  return bits;
}

class WriteTest : public TreeTest {
 protected:
  RepTreeRootSType& adoptTree(const LeafSpec& leaf, const BuildOptions& options = {}) {
    return adopt(buildTree(host, kind(), leaf, options));
  }
  RepTreeRootSType& adoptTree(const Leaves& leaves, const BuildOptions& options = {}) {
    return adopt(buildTree(host, kind(), leaves, options));
  }
  RepTreeRootSType& adoptTree(const Groups& groups, const BuildOptions& options = {}) {
    return adopt(buildTree(host, kind(), groups, options));
  }

  // The path to the leaf that owns `bit`.
  BmPathSType pathTo(const RepTreeRootSType& tree, uint64_t bit) {
    BmPathSType path{};
    EXPECT_EQ(findLeafPageForBit(&host, &tree, bit, &path), 1);
    host.clearEvents();
    return path;
  }

  int set(RepTreeRootSType& tree, uint64_t bit) { return BmSetBit(&host, &tree, bit); }
  int clear(RepTreeRootSType& tree, uint64_t bit) { return BmClearBit(&host, &tree, bit); }

  // The leaf at this place in the order of leaves, the level-1 page at this place.
  uint64_t leafRef(const RepTreeRootSType& tree, size_t index) { return refsAtLevel(host, tree, 0).at(index); }
  uint64_t nodeRef(const RepTreeRootSType& tree, size_t index) { return refsAtLevel(host, tree, 1).at(index); }

  // Live keys of the internal page `ref`, as stored; how many; and its firstOffset.
  std::vector<uint64_t> keysOf(const RepTreeRootSType& tree, uint64_t ref) {
    const unsigned char* page = bytesOf(tree, ref);
    std::vector<uint64_t> keys;
    for (size_t i = 0; i < rawU16(page, at::intCount); ++i) {
      keys.push_back(rawU64(page, at::key(rawU16(page, at::intFirstOffset) + i)));
    }
    return keys;
  }
  size_t pairsOf(const RepTreeRootSType& tree, uint64_t ref) { return rawU16(bytesOf(tree, ref), at::intCount); }
  size_t frontOf(const RepTreeRootSType& tree, uint64_t ref) {
    return rawU16(bytesOf(tree, ref), at::intFirstOffset);
  }

  // How often a page was marked dirty since the log was cleared; heap pages never are.
  int marks(uint64_t ref) { return host.countLogged(EventKind::dirty, ref); }
  int cached(int marksOfACachedPage) const { return isHeap() ? 0 : marksOfACachedPage; }

  // The tree has this shape, is sound and holds these bits.
  void expectTree(const RepTreeRootSType& tree, const std::string& shape, const std::vector<uint64_t>& bits) {
    EXPECT_EQ(shapeOf(tree), shape);
    expectSound(tree, {bits.begin(), bits.end()});
  }

  // What ReportLeafFault reports for `page`, of a tree of this kind.
  std::string leafFault(uint64_t page, bool withPage = true) const {
    if (isHeap()) return "guarantee bitmap:970";
    return "cache fault: page " + std::to_string(page) + " \"Bitmap page fault\" bitmap:920" +
           (withPage ? " with page" : "");
  }
};
