// What the operations of Tree answer.
#include <algorithm>
#include <array>
#include <numeric>

#include "storefixture.h"

namespace bmtree::test {
namespace {

constexpr uint64_t span = 130752;
constexpr uint64_t top = numberEnd - 1;

class TreeTest : public StoreTest {
 protected:
  TreeTest() : store_(make()), writer_(store_.beginWrite()), tree_(writer_.create("tree")) {}

  static std::vector<uint64_t> run(uint64_t first, uint64_t last) {
    std::vector<uint64_t> numbers(last - first + 1);
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
  }

  // A tree of level 2 whose first level-1 pages end in dense leaves, with gaps between them.
  void fillTwoLevels() {
    for (uint64_t i = 0; i < 3000; i += 2) tree_.setRange(i * span + 10, i * span + 4009);
    ASSERT_EQ(tree_.stats().level, 2);
  }

  Store store_;
  Writer writer_;
  Tree tree_;
};

TEST_F(TreeTest, ANumberThatIsSetIsThereAndChangesAreTold) {
  EXPECT_TRUE(tree_.set(7));
  EXPECT_FALSE(tree_.set(7));
  EXPECT_TRUE(tree_.test(7));
  EXPECT_FALSE(tree_.test(8));
  EXPECT_TRUE(tree_.clear(7));
  EXPECT_FALSE(tree_.clear(7));
  EXPECT_TRUE(tree_.empty());
}

TEST_F(TreeTest, UnsortedNumbersWithRepeatsCountOnce) {
  EXPECT_EQ(tree_.set(std::vector<uint64_t>{9, 3, top, 3, 0, 9}), 4u);
  EXPECT_EQ(numbersOf(tree_), (std::vector<uint64_t>{0, 3, 9, top}));
  EXPECT_EQ(tree_.clear(std::vector<uint64_t>{9, 9, 4, 0}), 2u);
  EXPECT_EQ(numbersOf(tree_), (std::vector<uint64_t>{3, top}));
  EXPECT_EQ(tree_.set(std::span<const uint64_t>()), 0u);
}

TEST_F(TreeTest, ANumberThatIsTooLargeIsRefusedBeforeAnythingIsSet) {
  expectError(StoreErrorCode::badArgument, [&] { tree_.set(std::vector<uint64_t>{1, 2, numberEnd}); });
  expectError(StoreErrorCode::badArgument, [&] { tree_.set(numberEnd); });
  expectError(StoreErrorCode::badArgument, [&] { tree_.setRange(5, numberEnd); });
  expectError(StoreErrorCode::badArgument, [&] { tree_.setRange(6, 5); });
  EXPECT_TRUE(tree_.empty());
  writer_.commit();
}

TEST_F(TreeTest, ARangeIncludesBothEndsWhereverTheyLie) {
  const std::array<std::array<uint64_t, 2>, 8> ranges = {{{0, 0},
                                                          {5, 2 * span},
                                                          {span - 1, 4 * span},
                                                          {0, 3 * span - 1},
                                                          {7 * span, 11 * span},
                                                          {3, 600 * span + 5},
                                                          {top - 3 * span, top},
                                                          {top, top}}};
  for (const auto& [first, last] : ranges) {
    Tree tree = writer_.temporary();
    EXPECT_EQ(tree.setRange(first, last), last - first + 1) << first << " to " << last;
    EXPECT_EQ(tree.count(), last - first + 1) << first << " to " << last;
    EXPECT_EQ(tree.first(), first);
    EXPECT_EQ(tree.last(), last);
    EXPECT_EQ(tree.setRange(first, last), 0u);
    EXPECT_EQ(tree.clearRange(first, last), last - first + 1) << first << " to " << last;
    EXPECT_TRUE(tree.empty());
  }
}

TEST_F(TreeTest, ClearingARangeLeavesItsNeighbours) {
  tree_.setRange(100, 5 * span);
  EXPECT_EQ(tree_.clearRange(101, 5 * span - 1), 5 * span - 101);
  EXPECT_EQ(numbersOf(tree_), (std::vector<uint64_t>{100, 5 * span}));
  EXPECT_EQ(tree_.clearRange(0, top), 2u);
}

TEST_F(TreeTest, TruncatingKeepsTheLowest) {
  tree_.set(std::vector<uint64_t>{5, 6, 7, top});
  EXPECT_EQ(tree_.truncate(4), 0u);
  EXPECT_EQ(tree_.truncate(2), 2u);
  EXPECT_EQ(numbersOf(tree_), (std::vector<uint64_t>{5, 6}));
  EXPECT_EQ(tree_.truncate(0), 2u);
  EXPECT_TRUE(tree_.empty());
}

TEST_F(TreeTest, FreeNumbersAreThoseBetweenTheNumbersUpToTheLimit) {
  std::array<uint64_t, 8> out{};
  tree_.set(std::vector<uint64_t>{10, 1000});
  EXPECT_EQ(tree_.freeNumbers(10, 14, out), 4u);
  EXPECT_EQ(out[0], 11u);
  EXPECT_EQ(out[3], 14u);
  EXPECT_EQ(tree_.freeNumbers(999, 1002, out), 3u);
  EXPECT_EQ(out[1], 1001u);
  EXPECT_EQ(tree_.freeNumbers(top - 1, top, out), 2u);
  EXPECT_EQ(tree_.freeNumbers(1000, 1000, out), 0u);
}

TEST_F(TreeTest, FreeNumbersSkipFullLeavesAndNeverLieBelowTheStart) {
  std::array<uint64_t, 4> out{};
  tree_.setRange(0, 3 * span - 1);
  tree_.setRange(5 * span, 8 * span - 1);
  EXPECT_EQ(tree_.freeNumbers(17, top, out), 4u);
  EXPECT_EQ(out[0], 3 * span);
  EXPECT_EQ(tree_.freeNumbers(4 * span + 3, top, out), 4u);
  EXPECT_EQ(out[0], 4 * span + 3);
  EXPECT_EQ(tree_.freeNumbers(5 * span - 2, top, out), 4u);
  EXPECT_EQ(out, (std::array<uint64_t, 4>{5 * span - 2, 5 * span - 1, 8 * span, 8 * span + 1}));
}

TEST_F(TreeTest, SelectFindsTheNumberOfARankInListsAndDenseLeaves) {
  tree_.set(std::vector<uint64_t>{1, 5});
  tree_.setRange(10 * span, 12 * span - 1);
  EXPECT_EQ(tree_.select(0), 1u);
  EXPECT_EQ(tree_.select(1), 5u);
  EXPECT_EQ(tree_.select(2), 10 * span);
  EXPECT_EQ(tree_.select(2 * span + 1), 12 * span - 1);
  EXPECT_EQ(tree_.select(2 * span + 2), std::nullopt);
}

TEST_F(TreeTest, ReadingOnFromAnyNumberFindsTheNextOneAlsoAcrossLevelOnePages) {
  fillTwoLevels();
  for (uint64_t i = 0; i < 2999; ++i) {
    const uint64_t base = i * span;
    EXPECT_EQ(tree_.atOrAfter(base), i % 2 == 0 ? base + 10 : base + span + 10);
    if (i % 2 == 0 && i < 2998) {
      EXPECT_EQ(tree_.atOrAfter(base + span - 10), base + 2 * span + 10);
    }
  }
  EXPECT_EQ(tree_.atOrAfter(2999 * span), std::nullopt);
}

TEST_F(TreeTest, CountsOfRangesAddUp) {
  fillTwoLevels();
  EXPECT_EQ(tree_.count(), 1500u * 4000);
  EXPECT_EQ(tree_.countRange(0, top), 1500u * 4000);
  EXPECT_EQ(tree_.countRange(12, span), 3998u);
  EXPECT_EQ(tree_.countRange(span, 2 * span), 0u);
  EXPECT_EQ(tree_.countRange(2 * span + 20, 4 * span + 19), 4000u);
}

TEST_F(TreeTest, StatsCountThePagesOfEachKind) {
  EXPECT_EQ(tree_.stats().pages(), 0u);
  fillTwoLevels();
  const TreeStats stats = tree_.stats();
  EXPECT_EQ(stats.count, tree_.count());
  EXPECT_EQ(stats.first, 10u);
  EXPECT_EQ(stats.last, 2998 * span + 4009);
  EXPECT_EQ(stats.internalEntries, stats.listPages + stats.densePages + stats.internalPages - 1);
  EXPECT_NEAR(stats.denseFill(), 4000.0 / span, 0.001);
  uint64_t leaves = 0;
  uint64_t end = 0;
  tree_.forEachLeaf([&](const LeafInfo& leaf) {
    EXPECT_GE(leaf.firstNumber, end);
    end = leaf.endNumber;
    ++leaves;
  });
  EXPECT_EQ(leaves, stats.listPages + stats.densePages);
}

TEST_F(TreeTest, ACursorGoesOnAfterAChangeAndAfterASeek) {
  tree_.setRange(0, 99);
  Cursor cursor = tree_.numbers(5);
  std::array<uint64_t, 10> out{};
  EXPECT_EQ(cursor.next(out), 10u);
  EXPECT_EQ(out[9], 14u);
  tree_.clearRange(10, 19);
  EXPECT_EQ(cursor.next(out), 10u);
  EXPECT_EQ(out[0], 20u);
  cursor.seek(95);
  EXPECT_EQ(cursor.next(out), 5u);
  EXPECT_EQ(cursor.next(out), 0u);
}

TEST_F(TreeTest, TheResultOfTwoTreesMayBeOneOfThem) {
  Tree other = writer_.create("other");
  tree_.setRange(0, 99);
  other.setRange(50, 149);
  Tree both = writer_.temporary();
  both.assignUnion(tree_, other);
  EXPECT_EQ(numbersOf(both), run(0, 149));
  both.assignIntersection(both, other);
  EXPECT_EQ(numbersOf(both), run(50, 149));
  EXPECT_EQ(both.intersect(tree_), 50u);
  EXPECT_EQ(both.intersectionCount(tree_), 50u);
  both.assignSymmetricDifference(tree_, both);
  EXPECT_EQ(numbersOf(both), run(0, 49));
  EXPECT_EQ(tree_.subtract(both), 50u);
  EXPECT_FALSE(tree_.equals(other));
  EXPECT_EQ(other.subtract(other), 100u);
  EXPECT_EQ(tree_.unite(tree_), 0u);
  other.assign(tree_);
  EXPECT_TRUE(tree_.equals(other));
  both.assignDifference(tree_, tree_);
  EXPECT_TRUE(both.empty());
}

TEST_F(TreeTest, TreesOfDifferentWritersAndReadersDoNotMeet) {
  writer_.commit();
  Writer writer = store_.beginWrite();
  Reader reader = store_.beginRead();
  Tree mine = writer.tree("tree");
  const Tree theirs = reader.tree("tree");
  expectError(StoreErrorCode::badArgument, [&] { mine.unite(theirs); });
}

TEST_F(TreeTest, AnExportedFileIsImportedAgainInBothWidths) {
  tree_.setRange(3, 200000);
  tree_.set(std::vector<uint64_t>{0xFFFFFFFF});
  Tree back = writer_.temporary();
  for (const FileWidth width : {FileWidth::four, FileWidth::eight}) {
    tree_.exportFile(path("file$HOME~"), width, true);
    back.clearAll();
    EXPECT_EQ(back.importFile(path("file$HOME~")), tree_.count());
    EXPECT_TRUE(back.equals(tree_));
  }
  EXPECT_EQ(back.importFile(path("file$HOME~")), 0u);
  expectError(StoreErrorCode::fileExists, [&] { tree_.exportFile(path("file$HOME~")); });
  tree_.set(uint64_t{1} << 32);
  expectError(StoreErrorCode::badArgument, [&] { tree_.exportFile(path("other"), FileWidth::four); });
  EXPECT_FALSE(std::filesystem::exists(path("other")));
  expectError(StoreErrorCode::missingFile, [&] { tree_.importFile(path("none")); });
}

TEST_F(TreeTest, AFileThatIsNoBitmapFileLoadsNothing) {
  {
    std::FILE* file = std::fopen(path("bad").c_str(), "wb");
    std::fputs("this is not a bitmap file at all", file);
    std::fclose(file);
  }
  expectError(StoreErrorCode::badFile, [&] { tree_.importFile(path("bad")); });
  EXPECT_TRUE(tree_.empty());
}

TEST_F(TreeTest, PackedRecordsHoldTheWholeTree) {
  tree_.setRange(span, 3 * span);
  for (uint64_t i = 0; i < 100000; ++i) tree_.set(10 * span + i * 1000);
  Tree back = writer_.temporary();
  uint64_t added = 0;
  std::vector<std::byte> last;
  tree_.packRecords([&](std::span<const std::byte> record) {
    added += back.addRecord(record);
    last.assign(record.begin(), record.end());
  });
  EXPECT_EQ(added, tree_.count());
  EXPECT_TRUE(back.equals(tree_));
  expectError(StoreErrorCode::badFile, [&] { back.addRecord(std::span(last).first(last.size() / 2)); });
  expectError(StoreErrorCode::badFile, [&] { back.addRecord({}); });
}

TEST_F(TreeTest, NamesAreCheckedAndHandlesFollowThem) {
  expectError(StoreErrorCode::treeExists, [&] { writer_.create("tree"); });
  expectError(StoreErrorCode::noSuchTree, [&] { writer_.tree("none"); });
  for (const auto& bad : {std::string(), std::string("a\nb"), std::string(256, 'x')}) {
    expectError(StoreErrorCode::badName, [&] { writer_.create(bad); });
  }
  writer_.rename("tree", "renamed");
  tree_.set(1);
  EXPECT_EQ(tree_.name(), "renamed");
  Tree copy = writer_.copy("renamed", "copy");
  tree_.set(2);
  EXPECT_EQ(numbersOf(copy), (std::vector<uint64_t>{1}));
  writer_.remove("copy");
  expectError(StoreErrorCode::closed, [&] { copy.test(1); });
  EXPECT_EQ(writer_.names(), (std::vector<std::string>{"renamed"}));
  writer_.commit();
  expectError(StoreErrorCode::closed, [&] { tree_.test(1); });
  expectError(StoreErrorCode::closed, [&] { writer_.names(); });
}

TEST_F(TreeTest, AReaderChangesOnlyItsTemporaryTrees) {
  tree_.setRange(1, 10);
  writer_.commit();
  Reader reader = store_.beginRead();
  Tree stored = reader.tree("tree");
  expectError(StoreErrorCode::readOnly, [&] { stored.set(11); });
  Tree mine = reader.temporary();
  mine.assign(stored);
  mine.set(11);
  EXPECT_EQ(mine.count(), 11u);
  EXPECT_EQ(stored.count(), 10u);
}

TEST_F(TreeTest, TemporaryTreesAreNotStored) {
  Tree temporary = writer_.temporary();
  temporary.setRange(0, 10 * span);
  tree_.set(1);
  writer_.commit();
  expectSound(store_);
  EXPECT_EQ(store_.beginRead().names(), (std::vector<std::string>{"tree"}));
}

}  // namespace
}  // namespace bmtree::test
