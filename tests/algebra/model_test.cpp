// Random pairs of trees of all kinds and shapes through all operations between trees, against plain sets. Pages that
// are not pinned move whenever another page is touched.
#include <algorithm>
#include <iterator>

#include "algebra/copy.h"
#include "algebra/treelayout.h"

namespace {

constexpr BmTreeKindEType pageKinds[] = {BM_HEAP_TREE, BM_PAGE_TREE, BM_SHARED_PAGE_TREE, BM_CAREFUL_TREE};

class AlgebraModelTest : public TreeFixture {
 protected:
  Random random{testSeed()};

  BmTreeKindEType anyKind() { return pageKinds[random.below(4)]; }

  // A tree of these bits, of any kind and of any level that can hold them.
  RepTreeRootSType& anyTree(const BitSet& bits) {
    const int lowest = bits.empty() || bits.size() > 2043 ? 1 : 0;
    const int level = lowest + static_cast<int>(random.below(static_cast<uint64_t>(3 - lowest)));
    return adopt(layOutTree(host, anyKind(), level, bits, random));
  }

  BitSet anyBits() { return randomBitSet(random, random.oneIn(3) ? 3000 : 1 + random.below(800)); }

  // A source and what an operation makes of a related destination: `operate` gets both trees and both sets.
  template <class Operation>
  void runPairs(int pairs, Operation operate) {
    host.logEvents(false);
    for (int i = 0; i < pairs && !HasFailure(); ++i) {
      const BitSet bitsA = anyBits();
      const BitSet bitsB = relatedBitSet(random, bitsA, 1 + random.below(500));
      RepTreeRootSType& a = anyTree(bitsA);
      RepTreeRootSType& b = anyTree(bitsB.empty() ? bitsA : bitsB);
      if (random.oneIn(2)) moveStampOn();
      SCOPED_TRACE("pair " + std::to_string(i) + ": " + shapeOf(a) + " and " + shapeOf(b));
      host.moveUnpinnedPages(2);
      operate(a, bitsA, b, bitsB.empty() ? bitsA : bitsB);
      host.moveUnpinnedPages(0);
      EXPECT_EQ(host.pinsHeld(), 0);
      host.expectReports({});
      dispose(a);
      dispose(b);
    }
  }

  // A minus B, in pages of random size, each resumed one above the last bit of the one before.
  std::vector<uint64_t> pagedDifference(const RepTreeRootSType& a, const RepTreeRootSType& b) {
    std::vector<uint64_t> all;
    const uint64_t biggest = random.oneIn(3) ? 4000 : 300;
    unsigned long limit = 1 + random.below(biggest);
    unsigned long start = 0;
    for (;;) {
      std::vector<uint64_t> page(limit + 1, 0xDEAD);
      const unsigned long count = BmDifferenceStartingAt_(&host, &a, &b, limit, page.data(), start);
      EXPECT_LE(count, limit);
      EXPECT_EQ(page[limit], 0xDEADu);
      page.resize(count);
      const auto fromStart = std::lower_bound(page.begin(), page.end(), start);
      EXPECT_TRUE(a.level == 2 || fromStart == page.begin()) << "bits below the start";
      all.insert(all.end(), fromStart, page.end());
      const bool onlyBitsBelow = fromStart == page.end() && count > 0;
      if (!onlyBitsBelow && count == limit) start = page.back() + 1;
      if (count < limit) {
        start = pageBehindGap(a, b, start);
        if (start == 0) return all;
      }
      limit = onlyBitsBelow ? 2 * limit : 1 + random.below(biggest);
    }
  }

  // When B has no leaf from `start` on, A is searched for it, and a start past the last dense leaf of a level-1 page
  // misses. The key of the next such page; 0 when that is not the case.
  uint64_t pageBehindGap(const RepTreeRootSType& a, const RepTreeRootSType& b, uint64_t start) {
    if (a.level != 2 || b.level != 1) return 0;
    const uint64_t lastKeyOfB = pagesOf(host, b).back().key;
    if ((lastKeyOfB & 1) == 0 || span(start / 130752) < (lastKeyOfB & ~1UL) + 130752) return 0;
    uint64_t lastKey = 0;
    for (const TreePage& page : pagesOf(host, a)) {
      if (page.level == 1 && page.key > start && (lastKey & 1) != 0 && start >= (lastKey & ~1UL) + 130752) {
        return page.key;
      }
      if (page.level == 0 && page.key <= start) lastKey = page.key;
    }
    return 0;
  }

  void dispose(RepTreeRootSType& tree) {
    BmDisposeTree(&host, &tree);
    forget(tree);
  }

  RepTreeRootSType& emptyTree() { return newTree(anyKind()); }
};

TEST_F(AlgebraModelTest, CopiesHoldTheBitsOfTheirSource) {
  runPairs(300, [this](RepTreeRootSType& a, const BitSet& bitsA, RepTreeRootSType&, const BitSet&) {
    TreeSnapshot source(host, a);
    RepTreeRootSType& copy = emptyTree();
    int entries;
    EXPECT_EQ(BmDoCopyTree(&host, &a, &copy, &entries), static_cast<long>(bitsA.size()));
    source.expectUnchanged();
    expectSound(copy, bitsA);
    dispose(copy);
  });
}

TEST_F(AlgebraModelTest, UnionsCountWhatIsNew) {
  runPairs(400, [this](RepTreeRootSType& a, const BitSet& bitsA, RepTreeRootSType& b, const BitSet& bitsB) {
    TreeSnapshot source(host, a);
    EXPECT_EQ(BmSetBits_(&host, &a, &b), differenceOf(bitsA, bitsB).size());
    source.expectUnchanged();
    expectSound(b, unionOf(bitsA, bitsB));
  });
}

TEST_F(AlgebraModelTest, RemovalsCountWhatWent) {
  runPairs(400, [this](RepTreeRootSType& a, const BitSet& bitsA, RepTreeRootSType& b, const BitSet& bitsB) {
    TreeSnapshot source(host, a);
    const unsigned long cleared =
        random.oneIn(2) ? BmClearBits_(&host, &a, &b) : BmClearBitsLargeFirst(&host, &a, &b);
    EXPECT_EQ(cleared, intersectionOf(bitsA, bitsB).size());
    source.expectUnchanged();
    expectSound(b, differenceOf(bitsB, bitsA));
  });
}

TEST_F(AlgebraModelTest, RemovingATreeFromItsOwnCopyLeavesNothing) {
  runPairs(60, [this](RepTreeRootSType& a, const BitSet& bitsA, RepTreeRootSType&, const BitSet&) {
    RepTreeRootSType& copy = emptyTree();
    BmCopyTree(&host, &a, &copy);
    EXPECT_EQ(BmClearBits_(&host, &a, &copy), bitsA.size());
    EXPECT_EQ(copy.root, 0u);
  });
}

TEST_F(AlgebraModelTest, DifferencesComeOutInPagesOfAnySize) {
  runPairs(400, [this](RepTreeRootSType& a, const BitSet& bitsA, RepTreeRootSType& b, const BitSet& bitsB) {
    TreeSnapshot sourceA(host, a);
    TreeSnapshot sourceB(host, b);
    EXPECT_EQ(pagedDifference(a, b), asVector(differenceOf(bitsA, bitsB)));
    sourceA.expectUnchanged();
    sourceB.expectUnchanged();
  });
}

TEST_F(AlgebraModelTest, DifferenceTreesHoldWhatIsLeft) {
  runPairs(400, [this](RepTreeRootSType& a, const BitSet& bitsA, RepTreeRootSType& b, const BitSet& bitsB) {
    TreeSnapshot sourceA(host, a);
    TreeSnapshot sourceB(host, b);
    RepTreeRootSType& result = emptyTree();
    BmDiff(&host, &a, &b, &result);
    sourceA.expectUnchanged();
    sourceB.expectUnchanged();
    expectSound(result, differenceOf(bitsA, bitsB));
    dispose(result);
  });
}

TEST_F(AlgebraModelTest, IntersectionsHoldWhatIsSharedUpToTheLimit) {
  runPairs(400, [this](RepTreeRootSType& a, const BitSet& bitsA, RepTreeRootSType& b, const BitSet& bitsB) {
    const BitSet shared = intersectionOf(bitsA, bitsB);
    const BitSet already = random.oneIn(2) ? BitSet{} : thinned(random, shared, shared.size() / 3);
    const size_t fresh = shared.size() - already.size();
    TreeSnapshot sourceA(host, a);
    TreeSnapshot sourceB(host, b);
    const unsigned long limits[] = {0, 1, 1 + random.below(fresh + 1), fresh, fresh + 1, BM_HIGHEST_BIT, ~0UL};
    for (const unsigned long limit : limits) {
      RepTreeRootSType& result = already.empty() ? emptyTree() : anyTree(already);
      const unsigned long count = BmIntersectSize_(&host, &a, &b, &result, limit, static_cast<int>(random.below(2)));
      const BitSet found = asSet(bitsOf(result));
      expectSound(result, found);
      EXPECT_EQ(found.size(), already.size() + count);
      EXPECT_EQ(differenceOf(found, shared), BitSet{});
      EXPECT_GE(count, std::min<size_t>(std::max(limit, 1UL), fresh));
      dispose(result);
    }
    sourceA.expectUnchanged();
    sourceB.expectUnchanged();
  });
}

TEST_F(AlgebraModelTest, TruncationKeepsTheLowestBits) {
  runPairs(200, [this](RepTreeRootSType& a, const BitSet& bitsA, RepTreeRootSType&, const BitSet&) {
    const size_t keep = random.below(bitsA.size() + 2);
    const size_t left = std::min(keep, bitsA.size());
    EXPECT_EQ(BmTruncate(&host, &a, keep), bitsA.size() - left);
    BitSet lowest = bitsA;
    lowest.erase(std::next(lowest.begin(), static_cast<long>(left)), lowest.end());
    expectSound(a, lowest);
  });
}

TEST_F(AlgebraModelTest, RangesAreSetInclusively) {
  runPairs(60, [this](RepTreeRootSType& a, const BitSet& bitsA, RepTreeRootSType&, const BitSet&) {
    const unsigned long first = random.below(span(6));
    const unsigned long length = random.oneIn(2) ? random.below(5000) : random.below(span(4));
    const unsigned long last = first + length;
    const bool dropsLast = length >= 2 * 130752 && last % 130752 == 0;
    BitSet expected = bitsA;
    for (unsigned long bit = first; bit <= last - dropsLast; ++bit) expected.insert(bit);
    EXPECT_EQ(BmSetBitRange_(&host, &a, first, last), expected.size() - bitsA.size());
    expectSound(a, expected);
  });
}

}  // namespace
