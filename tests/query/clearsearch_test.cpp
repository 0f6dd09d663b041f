#include <gtest/gtest.h>

#include <algorithm>

#include "query/randomtree.h"

namespace {

using Bits = std::vector<uint64_t>;

class ClearSearchTest : public TreeTest {
 protected:
  BmFindClearPathSType at{};

  void start(uint64_t nextBit, uint64_t limitBit) {
    at = {};
    at.nextBit = nextBit;
    at.limitBit = limitBit;
  }
  Bits find(const RepTreeRootSType& root, unsigned long maxBits) {
    Bits out(maxBits + 1, 0xEEEE);
    const unsigned long got = BmFindClearBits_(&host, maxBits, &root, &at, out.data());
    EXPECT_LE(got, maxBits);
    EXPECT_EQ(out[maxBits], 0xEEEEu) << "written behind the end";
    out.resize(got);
    return out;
  }
};
BMTREE_FOR_ALL_KINDS(ClearSearchTest);

TEST_P(ClearSearchTest, AnEmptyTreeGivesTheWholeRange) {
  RepTreeRootSType& root = newTree();
  start(5, 9);
  EXPECT_EQ(find(root, 3), (Bits{5, 6, 7}));
  EXPECT_EQ(at.noMoreLeaves, 1);
  EXPECT_EQ(find(root, 3), (Bits{8, 9}));
  EXPECT_EQ(find(root, 3), Bits{});
  EXPECT_EQ(at.nextBit, 10u);
}

TEST_P(ClearSearchTest, MaxBitsOfZeroGivesNothingAndStays) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(span(1), {span(1)})}));
  start(5, topBit);
  EXPECT_EQ(find(root, 0), Bits{});
  EXPECT_EQ(at.nextBit, 5u);
}

TEST_P(ClearSearchTest, ARangeBeforeTheFirstLeafLocatesNoLeaf) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(span(2), {span(2)})}));
  const uint64_t leaf = refsAtLevel(host, root, 0)[0];
  start(span(2) - 3, span(2) - 2);
  host.clearEvents();
  EXPECT_EQ(find(root, 9), (Bits{span(2) - 3, span(2) - 2}));
  EXPECT_EQ(host.countLogged(EventKind::locate, leaf), 0);
}

TEST_P(ClearSearchTest, TheHolesOfAListAreFoundAndThenWhatFollowsIt) {
  RepTreeRootSType& root = adopt(
      buildTree(host, kind(), Leaves{listLeaf(0, {5, 6, 8}, 3), denseLeaf(span(1), runOfBits(span(1), span(2)))}));
  start(5, topBit);
  EXPECT_EQ(find(root, 3), (Bits{7, 9, 10}));
  start(span(1) - 2, topBit);
  EXPECT_EQ(find(root, 4), (Bits{span(1) - 2, span(1) - 1, span(2), span(2) + 1}));
}

TEST_P(ClearSearchTest, ACallerThatSetsNoMostIsBoundByTheLimit) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, runOfBits(3, 3000))}));
  start(0, span(1) + 4);
  Bits out(span(1) + 6 - 2997, 0xEEEE);
  EXPECT_EQ(BmFindClearBits_(&host, ~0UL, &root, &at, out.data()), out.size() - 1);
  EXPECT_EQ(out[3], 3000u);
  EXPECT_EQ(out[out.size() - 2], span(1) + 4);
  EXPECT_EQ(out.back(), 0xEEEEu);
}

TEST_P(ClearSearchTest, TheTailBehindALevelZeroListIsFound) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {5, 6, 8})));
  start(5, 11);
  EXPECT_EQ(find(root, 9), (Bits{7, 9, 10, 11}));
  EXPECT_EQ(at.path.atEnd, 1);
}

TEST_P(ClearSearchTest, TheSearchEndsAtAListEntryAboveTheLimitThoughClearBitsLieBelowIt) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {10, 1000})));
  start(11, 500);
  EXPECT_EQ(find(root, 9), Bits{});
  EXPECT_EQ(at.nextBit, 11u);
  EXPECT_EQ(find(root, 9), Bits{});  // and again at the same place
  EXPECT_EQ(at.nextBit, 11u);
}

TEST_P(ClearSearchTest, AStartBeyondADenseLeafIsPulledBackToItsEnd) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1}), denseLeaf(span(3), {span(3)})}));
  start(span(1) + 40, span(1) + 2);
  EXPECT_EQ(find(root, 9), (Bits{span(1), span(1) + 1, span(1) + 2}));
}

TEST_P(ClearSearchTest, AFullDenseLeafGivesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, runOfBits(0, span(1)))}));
  start(0, span(1) - 1);
  EXPECT_EQ(find(root, 9), Bits{});
  EXPECT_EQ(at.nextBit, span(1));
  start(7, span(1));
  EXPECT_EQ(find(root, 9), Bits{span(1)});
}

TEST_P(ClearSearchTest, ADenseLeafEndsTheSearchAtTheLimit) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {3, 4})}));
  start(2, 5);
  EXPECT_EQ(find(root, 9), (Bits{2, 5}));
  EXPECT_EQ(at.nextBit, 6u);
}

TEST_P(ClearSearchTest, AFullResultInAGapResumesAtTheNextCandidate) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(0, runOfBits(0, span(1))), listLeaf(span(2), {span(2)})}));
  start(0, topBit);
  EXPECT_EQ(find(root, 2), (Bits{span(1), span(1) + 1}));
  EXPECT_EQ(find(root, 2), (Bits{span(1) + 2, span(1) + 3}));
}

TEST_P(ClearSearchTest, TheTopOfTheNumberSpaceEndsTheSearchWhileLeavesRemain) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{listLeaf(0, {topBit}), denseLeaf(span(lastSpan + 1), {})}));
  start(topBit - 1, ~uint64_t{0});
  EXPECT_EQ(find(root, 1), Bits{topBit - 1});
  EXPECT_EQ(find(root, 9).front(), topBit + 1);  // the gap before the next leaf
  start(span(lastSpan + 1), ~uint64_t{0});
  EXPECT_EQ(find(root, 9), Bits{});
}

TEST_P(ClearSearchTest, AfterTheLastLeafOnlyTheLimitEndsTheSearch) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {topBit})));
  start(topBit, topBit + 2);
  EXPECT_EQ(find(root, 9), (Bits{topBit + 1, topBit + 2}));
  RepTreeRootSType& none = newTree();
  start(0, ~uint64_t{0});
  EXPECT_EQ(find(none, 3), (Bits{0, 1, 2}));
  start(~uint64_t{0} - 1, ~uint64_t{0});
  EXPECT_EQ(find(none, 3), (Bits{~uint64_t{0} - 1, ~uint64_t{0}}));
}

TEST_P(ClearSearchTest, ALeafOfAWrongKindIsReportedAndTheWalkGoesOn) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1}), denseLeaf(span(1), {span(1)})}));
  const uint64_t broken = refsAtLevel(host, root, 0)[0];
  putU8(host.bytes(root, broken), at::pageKind, 4);
  start(span(1) - 1, topBit);
  ::testing::internal::CaptureStderr();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(find(root, 2), (Bits{span(1) - 1, span(1) + 1}));
  ::testing::internal::GetCapturedStdout();
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("bitmap line 7029 "), std::string::npos);
  EXPECT_EQ(host.takeReports().size(), 1u);
  putU8(host.bytes(root, broken), at::pageKind, 8);
}

TEST_P(ClearSearchTest, ATreeIsNotChanged) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})}));
  start(0, topBit);
  host.clearEvents();
  find(root, 200);
  EXPECT_EQ(host.takeEvents({EventKind::dirty, EventKind::newPage, EventKind::pin}), std::vector<std::string>{});
}

// The search as it is told, one candidate at a time, over a flat picture of the leaves.
struct PlainLeaf {
  bool dense;
  uint64_t firstBit;
  BitSet bits;
};

Bits plainSearch(const std::vector<PlainLeaf>& leaves, uint64_t c, uint64_t limit, size_t most) {
  Bits out;
  const auto mayDeliver = [&] { return out.size() < most && c <= limit; };
  for (const PlainLeaf& leaf : leaves) {
    for (; c < leaf.firstBit; ++c) {
      if (!mayDeliver()) return out;
      out.push_back(c);
    }
    if (c > topBit) return out;
    if (leaf.dense) {
      for (; c < leaf.firstBit + 130752; ++c) {
        if (leaf.bits.count(c) != 0) continue;
        if (!mayDeliver()) return out;
        out.push_back(c);
      }
      c = leaf.firstBit + 130752;
    } else {
      for (auto entry = leaf.bits.lower_bound(c); entry != leaf.bits.end(); ++c) {
        if (*entry == c) {
          ++entry;
        } else if (out.size() == most || *entry > limit) {
          return out;
        } else {
          out.push_back(c);
        }
      }
    }
  }
  for (; mayDeliver(); ++c) out.push_back(c);
  return out;
}

std::vector<PlainLeaf> plainLeavesOf(TestHost& host, const RepTreeRootSType& root) {
  std::vector<PlainLeaf> leaves;
  for (const TreePage& page : pagesOf(host, root)) {
    if (page.level != 0) continue;
    RepTreeRootSType leaf(page.ref, static_cast<BmTreeKindEType>(root.treeKind));
    PlainLeaf plain{rawU8(host.bytes(root, page.ref), at::pageKind) == 8, page.key & ~uint64_t{1}, {}};
    for (const uint64_t bit : bitsOf(host, leaf)) plain.bits.insert(plain.dense ? plain.firstBit + bit : bit);
    leaves.push_back(plain);
  }
  return leaves;
}

TEST_P(ClearSearchTest, RandomChunksAgreeWithASearchOfOneCandidateAtATime) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 40; ++round) {
    BitSet model;
    RepTreeRootSType& root = adopt(randomTree(host, kind(), static_cast<int>(random.below(3)), random, &model));
    const std::vector<PlainLeaf> leaves = plainLeavesOf(host, root);
    for (int probe = 0; probe < 5; ++probe) {
      const uint64_t some = model.empty() ? 0 : *model.lower_bound(random.below(*model.rbegin() + 1));
      const uint64_t from = random.oneIn(3) ? random.below(span(9)) : some - std::min(some, random.below(50));
      const uint64_t limit = random.oneIn(3) ? topBit : from + random.below(random.oneIn(2) ? 400 : span(4));
      const size_t most = 1 + random.below(5000);
      const Bits expected = plainSearch(leaves, from, limit, most);
      Bits found;
      start(from, limit);
      host.moveUnpinnedPages(1);
      while (found.size() < most) {
        const Bits chunk = find(root, std::min<size_t>(most - found.size(), 1 + random.below(700)));
        if (chunk.empty()) break;
        found.insert(found.end(), chunk.begin(), chunk.end());
      }
      host.moveUnpinnedPages(0);
      ASSERT_EQ(found, expected) << "round " << round << " from " << from << " limit " << limit;
    }
  }
}

class InlineClearSearchTest : public TreeFixture {};

TEST_F(InlineClearSearchTest, AnInlineListIsReportedAndGivesNothing) {
  InlineTree tree({3});
  BmFindClearPathSType at{};
  at.limitBit = topBit;
  unsigned long out[2];
  EXPECT_EQ(BmFindClearBits_(&host, 2, tree.root(), &at, out), 0u);
  EXPECT_EQ(host.takeReports().size(), 1u);
}

}  // namespace
