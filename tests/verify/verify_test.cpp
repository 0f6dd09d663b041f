// The verifier: silent on sound trees, and each broken invariant, made by hand in a sound tree, is reported once, at
// the page where it is.
#include <algorithm>
#include <cstring>

#include "support/treemodel.h"

namespace {

constexpr uint64_t span = 130752;
constexpr uint64_t lastSpan = 0xFFFFFFFFFF / span * span;

class VerifyTest : public TreeTest {
 protected:
  // Changes a page as told, runs `check` on the tree, and changes it back.
  template <class Change, class Check>
  void withChange(uint64_t ref, Change change, Check check) {
    unsigned char* bytes = isHeap() ? reinterpret_cast<unsigned char*>(ref) : host.bytes(ref);
    PageBytes saved;
    std::memcpy(saved.data(), bytes, saved.size());
    change(bytes);
    check();
    std::memcpy(bytes, saved.data(), saved.size());
  }

  // The changed page brings up exactly one fault, at the page `faulty`, whose sentence holds `words`.
  template <class Change>
  void expectFault(const RepTreeRootSType& tree, uint64_t changed, Change change, uint64_t faulty, int level,
                   const std::string& words) {
    withChange(changed, change, [&] {
      const std::vector<std::string> faults = faultsOf(host, tree);
      ASSERT_EQ(faults.size(), 1u) << ::testing::PrintToString(faults);
      const std::string place = "page " + std::to_string(faulty) + " level " + std::to_string(level) + ": ";
      EXPECT_EQ(faults[0].substr(0, place.size()), place) << faults[0];
      EXPECT_NE(faults[0].find(words), std::string::npos) << faults[0];
    });
    expectSound(tree);
  }

  template <class Change>
  void expectFaultAt(const RepTreeRootSType& tree, uint64_t ref, int level, Change change, const std::string& words) {
    expectFault(tree, ref, change, ref, level, words);
  }

  // At least one fault, and one that says `words`.
  template <class Change>
  void expectFaultAmong(const RepTreeRootSType& tree, uint64_t changed, Change change, const std::string& words) {
    withChange(changed, change, [&] {
      const std::vector<std::string> faults = faultsOf(host, tree);
      const bool found = std::any_of(faults.begin(), faults.end(), [&](const std::string& fault) {
        return fault.find(words) != std::string::npos;
      });
      EXPECT_TRUE(found) << words << " is not in " << ::testing::PrintToString(faults);
    });
  }

  const RepTreeRootSType& list() { return adopt(buildTree(host, kind(), listLeaf(0, {5, 6, 9 * span}, 3))); }

  // Dense leaves at spans 0, 2 and 3, from slot 6 on.
  const RepTreeRootSType& denseLevel1() {
    return adopt(buildTree(
        host, kind(),
        std::vector<LeafSpec>{denseLeaf(0, {7}), denseLeaf(2 * span, {2 * span + 64}), denseLeaf(3 * span, {}, 1)},
        {.internalFirstOffset = 6}));
  }

  // Lists at spans 1 and 4, then a dense leaf at span 8.
  const RepTreeRootSType& mixedLevel1() {
    return adopt(buildTree(host, kind(),
                           std::vector<LeafSpec>{listLeaf(span, {span, 3 * span}), listLeaf(4 * span, {4 * span + 1}),
                                                 denseLeaf(8 * span, {8 * span, 8 * span + 1})}));
  }

  // Level-1 pages from spans 0, 6 and 20; the first ends with a list, the second with a dense leaf at span 8.
  const RepTreeRootSType& level2() {
    const std::vector<LeafSpec> first{denseLeaf(0, {1}), listLeaf(2 * span, {2 * span, 5 * span})};
    const std::vector<LeafSpec> second{listLeaf(6 * span, {7 * span}), denseLeaf(8 * span, {8 * span})};
    const std::vector<LeafSpec> third{listLeaf(20 * span, {0xFFFFFFFFFF})};
    return adopt(buildTree(host, kind(), std::vector<std::vector<LeafSpec>>{first, second, third}));
  }

  uint64_t leafOf(const RepTreeRootSType& tree, size_t index) { return refsAtLevel(host, tree, 0).at(index); }
  uint64_t level1Of(const RepTreeRootSType& tree, size_t index) { return refsAtLevel(host, tree, 1).at(index); }
};
BMTREE_FOR_ALL_KINDS(VerifyTest);

// ---------------------------------------------------------------------------------------------------------
// Sound trees

TEST_P(VerifyTest, SoundTreesAreSilent) {
  expectSound(newTree());
  expectSound(list());
  expectSound(denseLevel1());
  expectSound(mixedLevel1());
  expectSound(level2());
}

TEST_P(VerifyTest, AnEmptyListLeafIsSound) {
  expectSound(adopt(buildTree(host, kind(), std::vector<LeafSpec>{listLeaf(0, {})})));
}

TEST_P(VerifyTest, AListThatEndsInTheLastSlotIsSound) {
  std::vector<uint64_t> bits;
  for (uint64_t i = 0; i < 2000; ++i) bits.push_back(i * 7);
  expectSound(adopt(buildTree(host, kind(), listLeaf(0, bits, 43))));
}

TEST_P(VerifyTest, TheLastBitInTheTopmostDenseLeafIsSound) {
  expectSound(adopt(buildTree(host, kind(), std::vector<LeafSpec>{denseLeaf(lastSpan, {0xFFFFFFFFFF})})));
}

TEST_P(VerifyTest, AFullInternalPageIsSound) {
  std::vector<LeafSpec> leaves;
  for (uint64_t i = 0; i < 1021; ++i) leaves.push_back(listLeaf(i * span, {i * span + i}));
  expectSound(adopt(buildTree(host, kind(), leaves)));
}

TEST_P(VerifyTest, WithoutACallbackTheFaultsAreCounted) {
  const RepTreeRootSType& tree = list();
  withChange(
      tree.root, [](unsigned char* page) { putU64(page, at::entry(4), 5); },
      [&] { EXPECT_EQ(BmVerifyTree(&host, &tree, nullptr, nullptr), 1u); });
}

TEST_P(VerifyTest, ALevelTwoKeyMayStandBelowTheFirstKeyOfItsChild) {
  const RepTreeRootSType& tree = level2();
  for (const uint64_t key : {9 * span, 13 * span, 20 * span}) {
    withChange(
        tree.root, [&](unsigned char* page) { putU64(page, at::key(2), key); }, [&] { expectSound(tree); });
  }
}

// ---------------------------------------------------------------------------------------------------------
// Roots

TEST_P(VerifyTest, ARootOfAnUnknownKindIsReported) {
  for (const int unknown : {-1, -3, 4, 127}) {
    RepTreeRootSType root = list();
    root.treeKind = static_cast<int8_t>(unknown);
    const std::vector<std::string> faults = faultsOf(host, root);
    ASSERT_EQ(faults.size(), 1u);
    EXPECT_NE(faults[0].find("unknown kind " + std::to_string(unknown)), std::string::npos) << faults[0];
  }
}

TEST_P(VerifyTest, ARootAboveLevelTwoIsReported) {
  RepTreeRootSType root = level2();
  root.level = 3;
  const std::vector<std::string> faults = faultsOf(host, root);
  ASSERT_EQ(faults.size(), 1u);
  EXPECT_NE(faults[0].find("level of the root is 3"), std::string::npos) << faults[0];
}

TEST_P(VerifyTest, AnEmptyTreeWithALevelIsReported) {
  RepTreeRootSType root(0, kind());
  root.level = 1;
  EXPECT_EQ(faultsOf(host, root), std::vector<std::string>{"page 0 level 1: An empty tree has the level 1."});
}

TEST_P(VerifyTest, ARootPageOfAnotherLevelIsReported) {
  RepTreeRootSType root = mixedLevel1();
  root.level = 0;
  EXPECT_EQ(faultsOf(host, root).size(), 1u);
  root = list();
  root.level = 1;
  EXPECT_EQ(faultsOf(host, root).size(), 1u);
  root = mixedLevel1();
  root.level = 2;
  EXPECT_FALSE(faultsOf(host, root).empty());
  root = level2();
  root.level = 1;
  EXPECT_FALSE(faultsOf(host, root).empty());
}

TEST_P(VerifyTest, ADenseRootLeafIsReported) {
  const RepTreeRootSType& tree = adopt(buildTree(host, kind(), denseLeaf(0, {1})));
  EXPECT_EQ(faultsOf(host, tree).size(), 1u);
}

// ---------------------------------------------------------------------------------------------------------
// Heads

TEST_P(VerifyTest, APageIdThatIsNotTheReferenceIsReported) {
  const RepTreeRootSType& tree = level2();
  const auto change = [](unsigned char* page) { putU64(page, at::pageId, 12345); };
  expectFaultAt(tree, tree.root, 2, change, "says that its id is 12345");
  expectFaultAt(tree, level1Of(tree, 1), 1, change, "says that its id is 12345");
  expectFaultAt(tree, leafOf(tree, 2), 0, change, "says that its id is 12345");
}

TEST_P(VerifyTest, AHeapPageInAnotherStateIsReported) {
  if (!isHeap()) return;
  const RepTreeRootSType& tree = mixedLevel1();
  expectFaultAt(
      tree, tree.root, 1, [](unsigned char* page) { putU8(page, at::pageState, 0); }, "state");
  expectFaultAt(
      tree, leafOf(tree, 0), 0, [](unsigned char* page) { putU8(page, at::pageState, 4); }, "state");
  for (const size_t reserved : {2, 3, 16, 23, 26, 27}) {
    expectFaultAt(
        tree, leafOf(tree, 2), 0, [&](unsigned char* page) { putU8(page, reserved, 1); }, "Reserved bytes");
  }
}

TEST_P(VerifyTest, ACarefulPageNewerThanTheStampIsReported) {
  const RepTreeRootSType& tree = level2();
  const auto change = [&](unsigned char* page) { putStamp(page, *host.carefulStamp + 1); };
  if (!isCareful()) {
    withChange(tree.root, change, [&] { expectSound(tree); });
    return;
  }
  expectFaultAt(tree, tree.root, 2, change, "newer than the current one");
  expectFaultAt(tree, level1Of(tree, 0), 1, change, "newer than the current one");
  expectFaultAt(tree, leafOf(tree, 0), 0, change, "newer than the current one");
}

TEST_P(VerifyTest, ACarefulPageNewerThanThePageAboveIsReported) {
  if (!isCareful()) return;
  const RepTreeRootSType& tree = level2();
  const auto change = [&](unsigned char* page) { putStamp(page, *host.carefulStamp); };
  expectFaultAt(tree, leafOf(tree, 3), 0, change, "of the page above");
  expectFaultAt(tree, level1Of(tree, 2), 1, change, "of the page above");
  withChange(tree.root, change, [&] { expectSound(tree); });
}

TEST_P(VerifyTest, APageOfAnotherKindIsReported) {
  const RepTreeRootSType& tree = level2();
  const auto toKind = [](uint8_t pageKind) {
    return [pageKind](unsigned char* page) { putU8(page, at::pageKind, pageKind); };
  };
  expectFaultAt(tree, tree.root, 2, toKind(12), "where an internal page belongs");
  expectFaultAt(tree, level1Of(tree, 1), 1, toKind(8), "where an internal page belongs");
  expectFaultAt(tree, leafOf(tree, 1), 0, toKind(7), "where a leaf belongs");
  expectFaultAt(tree, leafOf(tree, 1), 0, toKind(4), "where a leaf belongs");
  const RepTreeRootSType& level0 = list();
  expectFaultAt(level0, level0.root, 0, toKind(4), "where the list of a level-0 tree belongs");
}

// ---------------------------------------------------------------------------------------------------------
// Lists

TEST_P(VerifyTest, AListOutsideItsSlotsIsReported) {
  const RepTreeRootSType& tree = list();
  const std::pair<uint32_t, uint32_t> bad[] = {
      {static_cast<uint32_t>(-1), 3}, {3, static_cast<uint32_t>(-1)}, {2041, 3},
      {0x7FFFFFFF, 0x7FFFFFFF},       {0x80000000, 0x80000000},       {0, 2044}};
  for (const auto& [count, firstOffset] : bad) {
    const auto change = [&, c = count, f = firstOffset](unsigned char* page) {
      putU32(page, at::listCount, c);
      putU32(page, at::listFirstOffset, f);
      putU16(page, at::bytesUsed, static_cast<uint16_t>((c + f) * 8 + 40));
    };
    expectFaultAmong(tree, tree.root, change, "does not fit");
  }
}

TEST_P(VerifyTest, AWrongNumberOfUsedBytesIsReported) {
  const RepTreeRootSType& level0 = list();
  const RepTreeRootSType& tree = level2();
  const auto more = [](unsigned char* page) { putU16(page, at::bytesUsed, rawU16(page, at::bytesUsed) + 8); };
  const auto less = [](unsigned char* page) { putU16(page, at::bytesUsed, rawU16(page, at::bytesUsed) - 8); };
  expectFaultAt(level0, level0.root, 0, more, "used bytes");
  expectFaultAt(level0, level0.root, 0, less, "used bytes");
  expectFaultAt(tree, leafOf(tree, 0), 0, less, "used bytes");
  expectFaultAt(tree, leafOf(tree, 1), 0, more, "used bytes");
  expectFaultAt(tree, level1Of(tree, 0), 1, less, "used bytes");
  expectFaultAt(tree, tree.root, 2, less, "used bytes");
}

TEST_P(VerifyTest, ListEntriesOutOfOrderAreReported) {
  const RepTreeRootSType& tree = list();
  expectFaultAt(
      tree, tree.root, 0, [](unsigned char* page) { putU64(page, at::entry(3), 7); }, "entry 0 is 7");
  expectFaultAt(
      tree, tree.root, 0, [](unsigned char* page) { putU64(page, at::entry(4), 5); }, "entry 0 is 5");
  expectFaultAt(
      tree, tree.root, 0, [](unsigned char* page) { putU64(page, at::entry(5), 6); }, "entry 1 is 6");
}

TEST_P(VerifyTest, AListEntryThatTheListDoesNotOwnIsReported) {
  const RepTreeRootSType& level0 = list();
  expectFaultAt(
      level0, level0.root, 0, [](unsigned char* page) { putU64(page, at::entry(5), BM_END_BIT); }, "owns 0");
  const RepTreeRootSType& level1 = mixedLevel1();
  const auto entry = [](size_t slot, uint64_t bit) {
    return [=](unsigned char* page) { putU64(page, at::entry(slot), bit); };
  };
  expectFaultAt(level1, leafOf(level1, 0), 0, entry(0, span - 1), "owns 130752 up to 523008");
  expectFaultAt(level1, leafOf(level1, 0), 0, entry(1, 4 * span), "owns 130752 up to 523008");
  const RepTreeRootSType& tree = level2();
  expectFaultAt(tree, leafOf(tree, 1), 0, entry(1, 6 * span), "owns 261504 up to 784512");
  expectFaultAt(tree, leafOf(tree, 4), 0, entry(0, BM_END_BIT), "owns");
}

TEST_P(VerifyTest, TheLevelTwoKeyEndsTheLastListOfThePageBefore) {
  const RepTreeRootSType& tree = level2();
  const auto lower = [](unsigned char* page) { putU64(page, at::key(1), 5 * span); };
  expectFault(tree, tree.root, lower, leafOf(tree, 1), 0, "owns 261504 up to 653760");
}

// ---------------------------------------------------------------------------------------------------------
// Dense leaves

TEST_P(VerifyTest, AWrongCountOfSetBitsIsReported) {
  const RepTreeRootSType& tree = denseLevel1();
  expectFaultAt(
      tree, leafOf(tree, 0), 0, [](unsigned char* page) { putU32(page, at::bitsSet, 0); }, "counts 0");
  expectFaultAt(
      tree, leafOf(tree, 2), 0, [](unsigned char* page) { putU64(page, at::word(2042), 1); }, "has 1");
}

TEST_P(VerifyTest, AMarkToKeepALeafThatIsNeitherZeroNorOneIsReported) {
  const RepTreeRootSType& tree = denseLevel1();
  expectFaultAt(
      tree, leafOf(tree, 2), 0, [](unsigned char* page) { putU32(page, at::keepWhenEmpty, 2); }, "mark");
}

TEST_P(VerifyTest, BitsBeyondTheLastBitOfAllAreReported) {
  const RepTreeRootSType& tree =
      adopt(buildTree(host, kind(), std::vector<LeafSpec>{denseLeaf(lastSpan, {0xFFFFFFFFFF})}));
  for (const size_t word : {250, 2042}) {
    const auto change = [&](unsigned char* page) {
      putU64(page, at::word(word), 1);
      putU32(page, at::bitsSet, 2);
    };
    expectFaultAt(tree, leafOf(tree, 0), 0, change, "Word " + std::to_string(word));
  }
}

// ---------------------------------------------------------------------------------------------------------
// Internal pages

TEST_P(VerifyTest, AnInternalPageWithoutSlotsIsReported) {
  const RepTreeRootSType& tree = level2();
  const auto change = [](unsigned char* page) { putU16(page, at::intCount, 0); };
  expectFaultAt(tree, tree.root, 2, change, "no slots");
  expectFaultAt(tree, level1Of(tree, 2), 1, change, "no slots");
}

TEST_P(VerifyTest, AnInternalPageOutsideItsSlotsIsReported) {
  const RepTreeRootSType& tree = denseLevel1();
  for (const uint16_t count : {1016, 1022, 0xFFFF}) {
    expectFaultAt(
        tree, tree.root, 1, [&](unsigned char* page) { putU16(page, at::intCount, count); }, "does not fit");
  }
  expectFaultAt(
      tree, tree.root, 1, [](unsigned char* page) { putU16(page, at::intFirstOffset, 0xFFFF); }, "does not fit");
}

TEST_P(VerifyTest, ALevelFieldThatIsNotThePagesLevelIsReported) {
  const RepTreeRootSType& tree = level2();
  expectFaultAt(
      tree, tree.root, 2, [](unsigned char* page) { putU16(page, at::intLevel, 1); }, "stands at level 2");
  expectFaultAt(
      tree, level1Of(tree, 0), 1, [](unsigned char* page) { putU16(page, at::intLevel, 2); }, "stands at level 1");
}

TEST_P(VerifyTest, AKeyThatIsNoSpanBaseIsReported) {
  const RepTreeRootSType& tree = denseLevel1();
  const auto key = [](uint64_t value) { return [=](unsigned char* page) { putU64(page, at::key(8), value | 1); }; };
  expectFaultAt(tree, tree.root, 1, key(3 * span + 2), "not the base of a span");
  const uint64_t beyond = lastSpan + span;
  ASSERT_GE(beyond, BM_END_BIT);
  expectFaultAt(tree, tree.root, 1, key(beyond), "not the base of a span");
  expectFaultAt(tree, tree.root, 1, key(~uint64_t{0}), "not the base of a span");
}

TEST_P(VerifyTest, KeysOutOfOrderAreReported) {
  const RepTreeRootSType& tree = denseLevel1();
  const auto key = [](size_t slot, uint64_t value) {
    return [=](unsigned char* page) { putU64(page, at::key(slot), value | 1); };
  };
  expectFaultAt(tree, tree.root, 1, key(7, 0), "slot 7, 0, is not above");
  expectFaultAt(tree, tree.root, 1, key(6, 2 * span), "slot 7, 261504, is not above");
  const RepTreeRootSType& lists = mixedLevel1();
  expectFaultAmong(
      lists, lists.root, [](unsigned char* page) { putU64(page, at::key(1), span); }, "slot 1, 130752, is not above");
}

TEST_P(VerifyTest, ATagThatContradictsTheLeafIsReported) {
  const RepTreeRootSType& tree = mixedLevel1();
  expectFault(
      tree, tree.root, [](unsigned char* page) { putU64(page, at::key(2), 8 * span); }, leafOf(tree, 2), 0,
      "is a dense one");
  expectFault(
      tree, tree.root, [](unsigned char* page) { putU64(page, at::key(1), 4 * span + 1); }, leafOf(tree, 1), 0,
      "is a list");
}

TEST_P(VerifyTest, ATaggedLevelTwoKeyIsReported) {
  const RepTreeRootSType& tree = level2();
  expectFaultAt(
      tree, tree.root, 2, [](unsigned char* page) { putU64(page, at::key(1), 6 * span + 1); }, "has a tag");
}

TEST_P(VerifyTest, ALevelTwoKeyAboveTheFirstKeyOfItsChildIsReported) {
  const RepTreeRootSType& tree = level2();
  expectFault(
      tree, tree.root, [](unsigned char* page) { putU64(page, at::key(2), 21 * span); }, level1Of(tree, 2), 1,
      "is below the key of the page above");
}

TEST_P(VerifyTest, ALevelTwoKeyThatReachesIntoThePageBeforeIsReported) {
  const RepTreeRootSType& tree = level2();
  const auto key = [](size_t slot, uint64_t value) {
    return [=](unsigned char* page) { putU64(page, at::key(slot), value); };
  };
  expectFaultAt(tree, tree.root, 2, key(2, 8 * span), "slot 2, 1046016, is not above");
  expectFaultAmong(tree, tree.root, key(1, 2 * span), "slot 1, 261504, is not above");
  expectFaultAmong(tree, tree.root, key(1, 0), "slot 1, 0, is not above");
}

TEST_P(VerifyTest, AFirstKeyThatIsNotAboveThePageBeforeIsReported) {
  const RepTreeRootSType& tree = level2();
  expectFaultAmong(
      tree, level1Of(tree, 2), [](unsigned char* page) { putU64(page, at::key(0), 8 * span); },
      "slot 0, 1046016, is not above");
}

// ---------------------------------------------------------------------------------------------------------
// References

TEST_P(VerifyTest, AChildOfZeroIsReportedAndNotFollowed) {
  const RepTreeRootSType& tree = level2();
  const auto change = [](unsigned char* page) { putU64(page, at::child(1), 0); };
  const uint64_t locates = host.count(EventKind::locate);
  expectFaultAt(tree, tree.root, 2, change, "child in slot 1 is 0");
  expectFaultAt(tree, level1Of(tree, 0), 1, change, "child in slot 1 is 0");
  EXPECT_EQ(host.count(EventKind::locate) > locates, !isHeap());
}

TEST_P(VerifyTest, APageThatIsReachedTwiceIsReported) {
  const RepTreeRootSType& tree = level2();
  const auto child = [](uint64_t ref) { return [=](unsigned char* page) { putU64(page, at::child(1), ref); }; };
  expectFaultAt(tree, level1Of(tree, 1), 1, child(leafOf(tree, 0)), "has been reached before");
  expectFaultAt(tree, level1Of(tree, 1), 1, child(leafOf(tree, 2)), "has been reached before");
  expectFaultAt(tree, tree.root, 2, child(level1Of(tree, 0)), "has been reached before");
  expectFaultAt(tree, tree.root, 2, child(tree.root), "has been reached before");
  expectFaultAt(tree, level1Of(tree, 1), 1, child(tree.root), "has been reached before");
}

TEST_P(VerifyTest, AReferenceToNoPageIsReported) {
  const RepTreeRootSType& tree = level2();
  const uint64_t level1 = level1Of(tree, 0);
  const auto child = [](uint64_t ref) { return [=](unsigned char* page) { putU64(page, at::child(0), ref); }; };
  if (isHeap()) {
    const uint64_t odd = leafOf(tree, 0) + 4;
    expectFault(tree, level1, child(odd), odd, 0, "not aligned");
    return;
  }
  expectFault(tree, level1, child(3), 3, 0, "No page has the id 3");
  host.tolerateUnknownPages(true);
  expectFault(tree, level1, child(1'000'000), 1'000'000, 0, "cannot be located");
}

// ---------------------------------------------------------------------------------------------------------
// Page access and hostile content

TEST_P(VerifyTest, ChangesNothingAndHoldsNoPageAcrossALocate) {
  host.moveUnpinnedPages(1);
  const RepTreeRootSType& tree = level2();
  std::map<uint64_t, PageBytes> before;
  for (const TreePage& page : pagesOf(host, tree)) {
    std::memcpy(before[page.ref].data(), host.bytes(tree, page.ref), BM_PAGE_SIZE);
  }
  host.clearEvents();
  EXPECT_EQ(BmVerifyTree(&host, &tree, nullptr, nullptr), 0u);
  for (const Event& event : host.events()) EXPECT_EQ(event.kind, EventKind::locate);
  EXPECT_EQ(host.events().size(), isHeap() ? 0 : before.size());
  for (const auto& [ref, bytes] : before) {
    EXPECT_EQ(std::memcmp(bytes.data(), host.bytes(tree, ref), BM_PAGE_SIZE), 0);
  }
}

// A heap tree's references must be readable, so there they stay, or are exchanged for another page of the tree.
// (Slots that are not in use hold odd garbage, which is no address.)
TEST_P(VerifyTest, SurvivesAnyPageContent) {
  Random random(testSeed());
  const RepTreeRootSType& tree = level2();
  host.tolerateUnknownPages(true);
  host.logEvents(false);
  std::vector<TreePage> pages = pagesOf(host, tree);
  std::map<uint64_t, PageBytes> sound;
  for (const TreePage& page : pages) {
    std::memcpy(sound[page.ref].data(), host.bytes(tree, page.ref), BM_PAGE_SIZE);
  }
  for (int round = 0; round < 2500; ++round) {
    const uint64_t changes = 1 + random.below(8);
    for (uint64_t i = 0; i < changes; ++i) {
      const TreePage& page = pages[random.below(pages.size())];
      unsigned char* bytes = host.bytes(tree, page.ref);
      if (page.level > 0 && random.oneIn(6)) {
        const uint64_t other = pages[random.below(pages.size())].ref;
        putU64(bytes, at::child(random.below(3)), isHeap() || random.oneIn(2) ? other : random.next());
      } else {
        const size_t range = random.oneIn(3) ? (page.level > 0 && isHeap() ? 8216 : BM_PAGE_SIZE) : 72;
        bytes[random.below(range)] = static_cast<unsigned char>(random.oneIn(2) ? random.next() : random.below(16));
      }
    }
    BmVerifyTree(&host, &tree, nullptr, nullptr);
    if (random.oneIn(4)) {
      for (const TreePage& page : pages) {
        std::memcpy(host.bytes(tree, page.ref), sound[page.ref].data(), BM_PAGE_SIZE);
      }
    }
  }
  for (const TreePage& page : pages) std::memcpy(host.bytes(tree, page.ref), sound[page.ref].data(), BM_PAGE_SIZE);
  expectSound(tree);
}

TEST_P(VerifyTest, SurvivesPagesThatAreAllGarbage) {
  Random random(testSeed());
  const RepTreeRootSType& tree = level2();
  host.tolerateUnknownPages(true);
  host.logEvents(false);
  for (int round = 0; round < 200; ++round) {
    for (const TreePage& page : pagesOf(host, tree)) {
      if (page.level > 0 && isHeap()) continue;
      const uint8_t pageKind = rawU8(host.bytes(tree, page.ref), at::pageKind);
      const auto scramble = [&](unsigned char* bytes) {
        for (size_t i = 0; i < BM_PAGE_SIZE; i += 8) putU64(bytes, i, random.next());
        putU8(bytes, at::pageKind, pageKind);
      };
      withChange(page.ref, scramble, [&] { EXPECT_GT(BmVerifyTree(&host, &tree, nullptr, nullptr), 0u); });
    }
  }
  expectSound(tree);
}

// ---------------------------------------------------------------------------------------------------------
// Inline lists

class VerifyInlineTest : public ::testing::Test {
 protected:
  TestHost host;

  void expectFault(InlineTree& tree, const std::string& words) {
    const std::vector<std::string> faults = faultsOf(host, *tree.root());
    ASSERT_EQ(faults.size(), 1u) << ::testing::PrintToString(faults);
    EXPECT_NE(faults[0].find(words), std::string::npos) << faults[0];
  }
};

TEST_F(VerifyInlineTest, SoundListsAreSilent) {
  EXPECT_EQ(faultsOf(host, *InlineTree({1, 2, 0xFFFFFFFFFF}, 5).root()), std::vector<std::string>{});
  EXPECT_EQ(faultsOf(host, *InlineTree({}, 0, 8).root()), std::vector<std::string>{});
  EXPECT_EQ(faultsOf(host, RepTreeRootSType(0, BM_INLINE_LIST_TREE)), std::vector<std::string>{});
}

TEST_F(VerifyInlineTest, ABrokenListIsReported) {
  InlineTree unordered({4, 4});
  expectFault(unordered, "entry 0 is 4");
  InlineTree beyond({4, BM_END_BIT});
  expectFault(beyond, "owns 0");
  InlineTree large({4});
  putU32(large.contents(), 4, 2043);
  expectFault(large, "does not fit");
}

TEST_F(VerifyInlineTest, ABrokenRootIsReported) {
  InlineTree offset({4});
  putU32(offset.memory(), 0, 0);
  expectFault(offset, "cannot stand at the offset 0");
  putU32(offset.memory(), 0, 25);
  expectFault(offset, "cannot stand at the offset 25");
  InlineTree level({4});
  level.root()->level = 1;
  expectFault(level, "has the level 1");
}

}  // namespace
