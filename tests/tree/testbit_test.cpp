// The bit test, for every form of root.
#include <cstring>

#include "bitmap.h"
#include "query/randomtree.h"

namespace {

using Lines = std::vector<std::string>;

class TestBitTest : public TreeTest {
 protected:
  // The three entry points, where the root has a disk form; they must agree.
  int test(const RepTreeRootSType& tree, uint64_t bit) {
    const int answer = BmTestBit(&host, &tree, bit);
    EXPECT_EQ(bmTestOop(&host, &tree, bit << 8 | 1), answer);
    if (!isHeap()) {
      const DiskTreeRootSType disk = diskRootOf(tree);
      const DiskTreeRootSType before = disk;
      EXPECT_EQ(BmTestBit(&host, &disk, bit), answer);
      EXPECT_EQ(std::memcmp(&disk, &before, sizeof disk), 0);
    }
    return answer;
  }
  void expectBits(const RepTreeRootSType& tree, const std::vector<uint64_t>& set,
                  const std::vector<uint64_t>& clear) {
    for (const uint64_t bit : set) EXPECT_EQ(test(tree, bit), 1) << bit;
    for (const uint64_t bit : clear) EXPECT_EQ(test(tree, bit), 0) << bit;
  }
  std::string at(uint64_t page, bool leaf) {
    return "locate " + std::to_string(page) + (leaf ? " kind 0 mode 0" : " kind 7 mode -1");
  }
};
BMTREE_FOR_ALL_KINDS(TestBitTest);

TEST_P(TestBitTest, AnEmptyTreeHoldsNothing) { expectBits(newTree(), {}, {0, 5, topBit}); }

TEST_P(TestBitTest, ALevel0ListAnswers) {
  expectBits(adopt(buildTree(host, kind(), listLeaf(0, {3, span(5), topBit}))), {3, span(5), topBit},
             {0, 2, 4, span(5) + 1, topBit - 1});
}

TEST_P(TestBitTest, ALevel0ListWithoutEntriesHoldsNothing) {
  expectBits(adopt(buildTree(host, kind(), listLeaf(0, {}, 9))), {}, {0, 5, topBit});
}

TEST_P(TestBitTest, ALevel0DenseLeafAnswersByTheBitsPlaceInItsSpan) {
  expectBits(adopt(buildTree(host, kind(), denseLeaf(0, {0, 64, 130751}))), {0, 64, 130751, span(3) + 64},
             {1, 63, 65, 130750, span(3) + 1});
}

TEST_P(TestBitTest, AListWithAWideFrontGapFindsItsFirstAndLastEntry) {
  for (const int firstOffset : {0, 1, 255, 2039}) {
    expectBits(adopt(buildTree(host, kind(), listLeaf(0, {10, 20, 30, 40}, firstOffset))), {10, 20, 30, 40},
               {0, 9, 11, 35, 41, 0xA5A5A5A5A5});
  }
}

TEST_P(TestBitTest, ALevel1TreeAnswersFromTheLeafOfTheBit) {
  const auto& tree =
      adopt(buildTree(host, kind(),
                      {listLeaf(span(2), {span(2), span(3) + 7}), denseLeaf(span(4), {span(4), span(5) - 1}),
                       listLeaf(span(6), {span(8)}), denseLeaf(span(9), {span(9) + 5})},
                      {.internalFirstOffset = 1017}));
  expectBits(tree, {span(2), span(3) + 7, span(4), span(5) - 1, span(8), span(9) + 5},
             {0, span(2) - 1, span(2) + 1, span(3), span(4) + 1, span(6), span(9), topBit});
}

TEST_P(TestBitTest, ABitPastADenseLeafAndBeforeTheNextKeyIsInNoLeaf) {
  // the bits would be found in the leaf's words if the range were not checked
  const auto& tree =
      adopt(buildTree(host, kind(), {denseLeaf(span(1), {span(1), span(2) - 1}), listLeaf(span(4), {})}));
  expectBits(tree, {span(1), span(2) - 1}, {span(2), span(3) - 1, span(3)});
}

TEST_P(TestBitTest, ABitPastTheLastDenseLeafIsInNoLeaf) {
  const auto& tree =
      adopt(buildTree(host, kind(), std::vector<LeafSpec>{denseLeaf(span(1), {span(1), span(2) - 1})}));
  expectBits(tree, {span(1), span(2) - 1}, {0, span(2), span(3) - 1, span(900), 0xFFFFFFFFFF});
}

TEST_P(TestBitTest, ABitBelowTheFirstKeyIsInNoLeaf) {
  const auto& tree = adopt(buildTree(host, kind(), std::vector<LeafSpec>{listLeaf(span(3), {span(3)})}));
  expectBits(tree, {span(3)}, {0, span(3) - 1});
  const std::vector<std::vector<LeafSpec>> groups{{denseLeaf(span(3), {span(3), span(4) - 1})}};
  expectBits(adopt(buildTree(host, kind(), groups)), {span(3)}, {0, span(3) - 1, span(2)});
}

TEST_P(TestBitTest, ABitEqualToAKeyIsAnsweredByThatKeysLeaf) {
  const auto& tree = adopt(buildTree(host, kind(),
                                     {{listLeaf(0, {0}), denseLeaf(span(1), {span(1)}), listLeaf(span(2), {span(2)})},
                                      {denseLeaf(span(3), {span(3)}), listLeaf(span(4), {})}}));
  expectBits(tree, {0, span(1), span(2), span(3)}, {span(4)});
}

TEST_P(TestBitTest, ALevel2TreeAnswersFromTheLeafOfTheBit) {
  const auto& tree = adopt(buildTree(host, kind(),
                                     {{listLeaf(span(1), {span(1), span(2)}), denseLeaf(span(3), {span(3) + 1})},
                                      {denseLeaf(span(7), {span(8) - 1}), listLeaf(span(8), {span(8), topBit})}},
                                     {.internalFirstOffset = 2}));
  expectBits(tree, {span(1), span(2), span(3) + 1, span(8) - 1, span(8), topBit},
             {0, span(1) + 1, span(4) + 1, span(6), span(7), span(9), topBit - 1});
}

TEST_P(TestBitTest, AChildOfZeroAnswersZero) {
  const std::vector<std::vector<LeafSpec>> groups{{listLeaf(0, {5})}};
  const auto& tree = adopt(buildTree(host, kind(), groups));
  unsigned char* top = host.bytes(tree, tree.root);
  const uint64_t child = rawU64(top, at::child(0));
  putU64(top, at::child(0), 0);
  expectBits(tree, {}, {5});
  putU64(top, at::child(0), child);
  unsigned char* page = host.bytes(tree, child);
  const uint64_t leaf = rawU64(page, at::child(0));
  putU64(page, at::child(0), 0);
  expectBits(tree, {}, {5});
  putU64(page, at::child(0), leaf);
}

TEST_P(TestBitTest, InternalPagesWithoutSlotsHoldNothing) {
  const std::vector<std::vector<LeafSpec>> noLeaf{{}}, noPage{};
  for (const auto* groups : {&noLeaf, &noPage}) {
    expectBits(adopt(buildTree(host, kind(), *groups, {.internalFirstOffset = 5})), {}, {0, 5, topBit});
  }
}

TEST_P(TestBitTest, ATestLocatesAtMostThreePagesAndDoesNothingElse) {
  const auto& level0 = adopt(buildTree(host, kind(), listLeaf(0, {5})));
  const auto& level1 = adopt(buildTree(host, kind(), std::vector<LeafSpec>{listLeaf(0, {5})}));
  const std::vector<std::vector<LeafSpec>> groups{{listLeaf(0, {5})}};
  const auto& level2 = adopt(buildTree(host, kind(), groups));
  for (const RepTreeRootSType* tree : {&level0, &level1, &level2}) {
    Lines expected;
    for (const TreePage& page : pagesOf(host, *tree)) expected.push_back(at(page.ref, page.level == 0));
    if (isHeap()) expected.clear();
    for (const uint64_t bit : {5, 6}) {
      host.clearEvents();
      BmTestBit(&host, tree, bit);
      EXPECT_EQ(host.takeEvents(), expected);
    }
  }
}

TEST_P(TestBitTest, AMissAboveTheLeafLocatesNoLeaf) {
  const auto& tree = adopt(buildTree(host, kind(), std::vector<LeafSpec>{denseLeaf(span(1), {})}));
  for (const uint64_t bit : {uint64_t{0}, span(2)}) {
    host.clearEvents();
    EXPECT_EQ(BmTestBit(&host, &tree, bit), 0);
    EXPECT_EQ(host.takeEvents(), isHeap() ? Lines{} : Lines{at(tree.root, false)});
  }
}

TEST_P(TestBitTest, ALeafOfAnotherKindIsReportedAndAnswersZero) {
  const auto& level0 = adopt(buildTree(host, kind(), listLeaf(0, {5})));
  const auto& level1 = adopt(buildTree(host, kind(), std::vector<LeafSpec>{denseLeaf(0, {5})}));
  for (const RepTreeRootSType* tree : {&level0, &level1}) {
    const uint64_t leaf = refsAtLevel(host, *tree, 0)[0];
    unsigned char* page = host.bytes(*tree, leaf);
    const uint8_t pageKind = rawU8(page, at::pageKind);
    for (const uint8_t wrong : {0, 4, 7, 9, 255}) {
      putU8(page, at::pageKind, wrong);
      testing::internal::CaptureStdout();
      testing::internal::CaptureStderr();
      EXPECT_EQ(BmTestBit(&host, tree, 5), 0);
      EXPECT_EQ(testing::internal::GetCapturedStdout(), isHeap() ? "Bitmap page fault in C heap bitmap" : "");
      const std::string err = testing::internal::GetCapturedStderr();
      EXPECT_NE(err.find(" page " + std::to_string(leaf) + " treeKind " + std::to_string(kind()) +
                         ", bitmap line 10327 \n"),
                std::string::npos)
          << err;
      EXPECT_NE(err.find(" pageKind " + std::to_string(wrong) + " \n"), std::string::npos) << err;
      host.expectReports(
          {isHeap() ? "guarantee bitmap:970"
                    : "cache fault: page " + std::to_string(leaf) + " \"Bitmap page fault\" bitmap:920 with page"});
      testing::internal::CaptureStdout();
      testing::internal::CaptureStderr();
      EXPECT_EQ(bmTestOop(&host, tree, 5 << 8 | 1), 0);
      testing::internal::GetCapturedStdout();
      EXPECT_NE(testing::internal::GetCapturedStderr().find("bitmap line 10327 \n"), std::string::npos);
      EXPECT_EQ(host.takeReports().size(), 1u);
    }
    putU8(page, at::pageKind, pageKind);
  }
}

TEST_P(TestBitTest, ACarefulTreeIsTestedAsItStandsWithoutAShadow) {
  const auto& tree = adopt(buildTree(host, kind(), std::vector<LeafSpec>{listLeaf(0, {5})}));
  moveStampOn();
  const RepTreeRootSType before = tree;
  EXPECT_EQ(BmTestBit(&host, &tree, 5), 1);
  EXPECT_EQ(tree.root, before.root);
  EXPECT_EQ(host.takeEvents({EventKind::newPage, EventKind::pin, EventKind::dirty, EventKind::heapAlloc}), Lines{});
}

TEST_P(TestBitTest, RandomTreesOfEveryLevelAgreeWithAPlainSet) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 24; ++round) {
    BitSet bits;
    const auto& tree = adopt(randomTree(host, kind(), round % 3, random, &bits));
    for (const uint64_t bit : bits) {
      ASSERT_EQ(BmTestBit(&host, &tree, bit), 1) << bit;
      ASSERT_EQ(BmTestBit(&host, &tree, bit + 1), bits.count(bit + 1) != 0) << bit + 1;
    }
    for (int i = 0; i < 1000; ++i) {
      const uint64_t bit = random.below(i % 2 == 0 ? BM_END_BIT : span(40));
      ASSERT_EQ(test(tree, bit), bits.count(bit) != 0) << bit;
    }
  }
}

// ---------------------------------------------------------------------------------------------------------
// Many bits at once

class TestBitsTest : public TreeTest {
 protected:
  // The answers, one per bit; the words behind them must be left alone.
  std::vector<int> test(const RepTreeRootSType& tree, const std::vector<uint64_t>& bits) {
    std::vector<uint64_t> words((bits.size() + 63) / 64 + 1, 0xA5A5A5A5A5A5A5A5);
    BmTestBits(&host, &tree, bits.data(), bits.size(), words.data());
    EXPECT_EQ(words.back(), 0xA5A5A5A5A5A5A5A5u);
    std::vector<int> answers;
    for (size_t i = 0; i < 64 * (words.size() - 1); ++i) answers.push_back(words[i / 64] >> (i % 64) & 1);
    for (size_t i = bits.size(); i < answers.size(); ++i) EXPECT_EQ(answers[i], 0) << "an unused bit";
    answers.resize(bits.size());
    return answers;
  }
};
BMTREE_FOR_ALL_KINDS(TestBitsTest);

TEST_P(TestBitsTest, AnEmptyTreeHoldsNoneOfTheBits) {
  EXPECT_EQ(test(newTree(), {0, 5, topBit}), (std::vector<int>{0, 0, 0}));
}

TEST_P(TestBitsTest, NoBitsGiveNoAnswers) {
  EXPECT_EQ(test(adopt(buildTree(host, kind(), listLeaf(0, {5}))), {}), std::vector<int>{});
}

TEST_P(TestBitsTest, EveryNumberOfBitsIsAnsweredInTheOrderGiven) {
  const auto& tree =
      adopt(buildTree(host, kind(), {listLeaf(0, {3, 7}), denseLeaf(span(2), {span(2), span(3) - 1})}));
  const std::vector<uint64_t> cycle{span(3) - 1, 3, 4, span(2), span(5), 7, 0};
  const std::vector<int> expectedCycle{1, 1, 0, 1, 0, 1, 0};
  std::vector<uint64_t> bits;
  std::vector<int> expected;
  for (size_t count = 0; count <= 150; ++count) {
    EXPECT_EQ(test(tree, bits), expected) << count << " bits";
    bits.push_back(cycle[count % 7]);
    expected.push_back(expectedCycle[count % 7]);
  }
}

TEST_P(TestBitsTest, EveryBitInALeafOfAnotherKindIsReportedAndAnswersZero) {
  const auto& tree = adopt(buildTree(host, kind(), {listLeaf(0, {5}), listLeaf(span(2), {span(2)})}));
  unsigned char* page = host.bytes(tree, refsAtLevel(host, tree, 0)[0]);
  putU8(page, at::pageKind, 9);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(test(tree, {5, span(2), 6}), (std::vector<int>{0, 1, 0}));
  testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(host.takeReports().size(), 2u);
  putU8(page, at::pageKind, 12);
}

TEST_P(TestBitsTest, RandomTreesAgreeWithTheTestOfOneBit) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 12; ++round) {
    BitSet set;
    const auto& tree = adopt(randomTree(host, kind(), round % 3, random, &set));
    std::vector<uint64_t> bits(set.begin(), set.end());
    for (int i = 0; i < 500; ++i) bits.push_back(random.below(i % 2 == 0 ? BM_END_BIT : span(40)));
    for (size_t i = bits.size(); i > 1; --i) std::swap(bits[i - 1], bits[random.below(i)]);
    std::vector<int> expected;
    for (const uint64_t bit : bits) expected.push_back(set.count(bit) != 0 ? 1 : 0);
    ASSERT_EQ(test(tree, bits), expected);
  }
}

// ---------------------------------------------------------------------------------------------------------
// Oops

class TestOopTest : public TreeTest {};
BMTREE_FOR_ALL_KINDS(TestOopTest);

TEST_P(TestOopTest, AnEvenOopIsPrintedAboutOnceAndAnswersZeroWhateverTheTreeHolds) {
  const auto& tree = adopt(buildTree(host, kind(), listLeaf(0, {0, 1, 5})));
  for (const uint64_t oop : {uint64_t{0}, uint64_t{5} << 8, (uint64_t{5} << 8) | 2, (uint64_t{1} << 8) | 0xFE}) {
    host.clearEvents();
    testing::internal::CaptureStdout();
    EXPECT_EQ(bmTestOop(&host, &tree, oop), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "bmTestOop: argument not a pom oop\n");
    EXPECT_EQ(host.takeEvents(), Lines{}) << "the tree is not looked at";
  }
}

TEST_P(TestOopTest, Bits1To7OfAnOopAreIgnored) {
  const auto& tree = adopt(buildTree(host, kind(), listLeaf(0, {5, topBit})));
  for (uint64_t low = 1; low < 256; low += 2) {
    EXPECT_EQ(bmTestOop(&host, &tree, (uint64_t{5} << 8) | low), 1);
    EXPECT_EQ(bmTestOop(&host, &tree, (topBit << 8) | low), 1);
    EXPECT_EQ(bmTestOop(&host, &tree, (uint64_t{6} << 8) | low), 0);
  }
}

// ---------------------------------------------------------------------------------------------------------
// Inline lists

class TestInlineBitTest : public TreeFixture {
 protected:
  void expectBits(InlineTree& tree, const std::vector<uint64_t>& set, const std::vector<uint64_t>& clear) {
    for (const uint64_t bit : set) EXPECT_EQ(test(tree, bit), 1) << bit;
    for (const uint64_t bit : clear) EXPECT_EQ(test(tree, bit), 0) << bit;
    EXPECT_EQ(host.takeEvents(), Lines{});
  }

 private:
  int test(InlineTree& tree, uint64_t bit) {
    const int answer = BmTestBit(&host, tree.root(), bit);
    EXPECT_EQ(BmTestBit(&host, tree.diskRoot(), bit), answer);
    EXPECT_EQ(bmTestOop(&host, tree.root(), bit << 8 | 1), answer);
    return answer;
  }
};

TEST_F(TestInlineBitTest, AnInlineListAnswersFromItsLiveEntries) {
  for (const int firstOffset : {0, 7, 2040}) {
    InlineTree tree({3, 900, topBit}, firstOffset);
    expectBits(tree, {3, 900, topBit}, {0, 4, 901, topBit - 1, 0xA5A5A5A5A5});
  }
}

TEST_F(TestInlineBitTest, AnInlineListWithoutEntriesHoldsNothing) {
  InlineTree tree;
  expectBits(tree, {}, {0, 5, topBit});
}

TEST_F(TestInlineBitTest, AnInlineListWithANegativeCountHoldsNothing) {
  InlineTree tree({5});
  putU32(tree.contents(), 0, static_cast<uint32_t>(-1));
  expectBits(tree, {}, {0, 5});
}

TEST_F(TestInlineBitTest, AFullInlineListAnswersForEveryEntry) {
  std::vector<uint64_t> bits;
  for (uint64_t i = 0; i < 2043; ++i) bits.push_back(2 * i + 1);
  InlineTree tree(bits);
  expectBits(tree, bits, {0, 2, 4086});
}

TEST_F(TestInlineBitTest, AnEmptyRootOfInlineKindHoldsNothing) {
  const RepTreeRootSType root(0, BM_INLINE_LIST_TREE);
  EXPECT_EQ(BmTestBit(&host, &root, 0), 0);
  EXPECT_EQ(bmTestOop(&host, &root, 1), 0);
}

TEST_F(TestInlineBitTest, AnotherNegativeKindIsReportedAndHoldsNothing) {
  InlineTree tree({5});
  tree.root()->treeKind = -1;
  EXPECT_EQ(BmTestBit(&host, tree.root(), 5), 0);
  host.expectReports({"guarantee reposdisk:1196"});
  EXPECT_EQ(bmTestOop(&host, tree.root(), 5 << 8 | 1), 0);
  host.expectReports({"guarantee reposdisk:1196"});
}

TEST_F(TestInlineBitTest, AnEmptyRootOfAnotherNegativeKindIsNotReported) {
  RepTreeRootSType root(0, BM_INLINE_LIST_TREE);
  root.treeKind = -3;
  EXPECT_EQ(BmTestBit(&host, &root, 5), 0);
  EXPECT_EQ(bmTestOop(&host, &root, 5 << 8 | 1), 0);
  host.expectReports({});
}

TEST_F(TestInlineBitTest, AnyNegativeDiskKindIsTheInlineList) {
  InlineTree tree({5});
  tree.diskRoot()->treeKind = -7;
  EXPECT_EQ(BmTestBit(&host, tree.diskRoot(), 5), 1);
  EXPECT_EQ(BmTestBit(&host, tree.diskRoot(), 6), 0);
}

TEST_F(TestInlineBitTest, ManyBitsOfAnInlineListAreAnsweredInOrder) {
  InlineTree tree({3, 900, topBit}, 4);
  const uint64_t bits[] = {topBit, 4, 3, 0, 900};
  uint64_t answers = ~uint64_t{0};
  BmTestBits(&host, tree.root(), bits, 5, &answers);
  EXPECT_EQ(answers, 0b10101u);
}

// ---------------------------------------------------------------------------------------------------------
// Disk roots

TEST_F(TestInlineBitTest, AnEmptyDiskRootOfKindZeroHoldsNothing) {
  const DiskTreeRootSType root(0, BM_HEAP_TREE);
  EXPECT_EQ(BmTestBit(&host, &root, 0), 0);
}

}  // namespace
