// Long random runs on every kind of tree beside a plain model: ascending, descending, clustered until leaves go
// dense, one bit per span until the tree reaches level 2, uniform over all bits, and all of it mixed, with clears
// down to the empty tree, bulk sets and short times without pages. Between steps the verifier looks at the tree, and
// the careful stamp moves on, which checks the pages of older stamps and the two id sets.
//
// BMTREE_RANDOM_OPS sets the number of operations of each run; from a million on a run prints how far it is.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <unordered_map>

#include "tree/writetest.h"

namespace {

constexpr uint64_t defaultOperations = 12000;

uint64_t operationsPerRun() {
  const char* given = std::getenv("BMTREE_RANDOM_OPS");
  return given != nullptr ? std::strtoull(given, nullptr, 0) : defaultOperations;
}

// A set of bits by words, cheap enough for runs of many millions.
class WordModel {
 public:
  size_t size() const { return size_; }

  bool holds(uint64_t bit) const {
    const auto found = words_.find(bit / 64);
    return found != words_.end() && (found->second >> bit % 64 & 1) != 0;
  }

  // Whether the bit was there before.
  bool insert(uint64_t bit) {
    uint64_t& word = words_[bit / 64];
    const uint64_t mask = uint64_t{1} << bit % 64;
    const bool was = (word & mask) != 0;
    word |= mask;
    size_ += was ? 0 : 1;
    return was;
  }

  bool erase(uint64_t bit) {
    const auto found = words_.find(bit / 64);
    const uint64_t mask = uint64_t{1} << bit % 64;
    if (found == words_.end() || (found->second & mask) == 0) return false;
    found->second &= ~mask;
    if (found->second == 0) words_.erase(found);
    --size_;
    return true;
  }

  std::vector<uint64_t> sorted() const {
    std::vector<uint64_t> bits;
    bits.reserve(size_);
    for (const auto& [index, word] : words_) {
      for (uint64_t bit = 0; bit < 64; ++bit) {
        if ((word >> bit & 1) != 0) bits.push_back(index * 64 + bit);
      }
    }
    std::sort(bits.begin(), bits.end());
    return bits;
  }

 private:
  std::unordered_map<uint64_t, uint64_t> words_;
  size_t size_ = 0;
};

enum class Pattern { ascending, descending, clustered, onePerSpan, uniform };
constexpr int patterns = 5;

// An endless supply of bits of one pattern.
class BitSource {
 public:
  // `spans` bounds the spans of onePerSpan.
  BitSource(Pattern pattern, uint64_t spans, Random& random)
      : pattern_(pattern), spans_(spans), random_(random), cursor_(random.below(topBit)) {
    for (uint64_t& centre : centres_) centre = random.below(topBit - clusterBits);
  }

  uint64_t next() {
    switch (pattern_) {
      case Pattern::ascending: return cursor_ = (cursor_ + stride()) % (topBit + 1);
      case Pattern::descending: return cursor_ = (cursor_ - stride()) % (topBit + 1);
      case Pattern::clustered: return nextInCluster();
      case Pattern::onePerSpan: return nextSpan();
      case Pattern::uniform: break;
    }
    return random_.below(topBit + 1);
  }

 private:
  static constexpr uint64_t clusterBits = 9000;

  uint64_t stride() {
    if (random_.oneIn(500)) largestStride_ = uint64_t{1} << random_.below(22);
    return 1 + random_.below(largestStride_);
  }

  uint64_t nextInCluster() {
    uint64_t& centre = centres_[random_.below(std::size(centres_))];
    if (random_.oneIn(20000)) centre = random_.below(topBit - clusterBits);
    return centre + random_.below(clusterBits);
  }

  // Always the same bit of a span; mostly the span behind the last one.
  uint64_t nextSpan() {
    span_ = random_.oneIn(4) ? random_.below(spans_) : (span_ + 1 + random_.below(3)) % spans_;
    return span(span_) + span_ * 7919 % span(1);
  }

  Pattern pattern_;
  uint64_t spans_;
  Random& random_;
  uint64_t cursor_;
  uint64_t largestStride_ = 200;
  uint64_t centres_[4] = {};
  uint64_t span_ = 0;
};

struct RunOptions {
  std::vector<Pattern> patterns;
  size_t limit;               // bits in the tree at which it is drained
  uint64_t spans = lastSpan;  // for onePerSpan
  uint64_t slowness = 1;      // a run of slow operations has so many times fewer of them
};

class RandomTreeTest : public WriteTest {
 protected:
  void SetUp() override {
    host.logEvents(false);
    random_ = Random(testSeed());
  }

  // Runs on `tree`, which holds the bits of `model`.
  void run(RepTreeRootSType& tree, const RunOptions& options) {
    const uint64_t operations = operationsPerRun() / options.slowness;
    const uint64_t checkEvery = std::max<uint64_t>(1000, operations / 100);
    std::vector<BitSource> sources;
    for (const Pattern pattern : options.patterns) sources.emplace_back(pattern, options.spans, random_);
    size_t current = 0;
    for (uint64_t i = 1; i <= operations && !HasFailure(); ++i) {
      if (random_.oneIn(3000)) current = random_.below(sources.size());
      step(tree, sources[current]);
      highestLevel = std::max<int>(highestLevel, tree.level);
      if (model_.size() >= options.limit) draining_ = true;
      if (i % checkEvery == 0) check(tree);
      if (random_.oneIn(checkEvery)) moveStamp(tree);
      if (operations >= 1000000 && i % (operations / 10) == 0) progress(tree, i);
    }
    drain(tree);
  }

  RepTreeRootSType& treeOf(const Leaves& leaves) {
    RepTreeRootSType& tree = adoptTree(leaves);
    for (const LeafSpec& leaf : leaves) {
      for (const uint64_t bit : leaf.bits) note(bit);
    }
    return tree;
  }

 private:
  void step(RepTreeRootSType& tree, BitSource& source) {
    limitPages();
    if (draining_ || random_.oneIn(8)) {
      clearOne(tree, draining_ || random_.oneIn(2) ? takeMember() : source.next());
      if (members_.empty()) endOfDrain(tree);
    } else if (random_.oneIn(1000)) {
      setMany(tree, source);
    } else {
      setOne(tree, source.next());
    }
  }

  // Now and then there are only a few pages for a while.
  void limitPages() {
    if (isHeap()) return;
    if (scarceFor_ > 0 && --scarceFor_ == 0) host.setPageBudget(-1);
    if (scarceFor_ > 0 || !random_.oneIn(1500)) return;
    scarceFor_ = 1 + random_.below(40);
    host.setPageBudget(static_cast<long>(random_.below(6)));
  }

  void setOne(RepTreeRootSType& tree, uint64_t bit) {
    const uint64_t refused = host.count(EventKind::newPageRefused);
    const bool was = BmSetBit(&host, &tree, bit) == 1;
    const bool scarce = host.count(EventKind::newPageRefused) > refused;
    ASSERT_TRUE(was == model_.holds(bit) || (!was && scarce)) << "set " << bit;  // 0 also says that there is no page
    if (was) return;
    if (scarce) {
      ASSERT_TRUE(BmTestBit(&host, &tree, bit) == 1 || !model_.holds(bit)) << "lost " << bit;
    }
    if (!scarce || BmTestBit(&host, &tree, bit) == 1) note(bit);
    takeScarcityReports();
  }

  void clearOne(RepTreeRootSType& tree, uint64_t bit) {
    const uint64_t refused = host.count(EventKind::newPageRefused);
    const bool cleared = BmClearBit(&host, &tree, bit) == 1;
    if (!cleared && model_.holds(bit) && host.count(EventKind::newPageRefused) > refused) {
      ASSERT_EQ(BmTestBit(&host, &tree, bit), 1);
      members_.push_back(bit);
      return;
    }
    ASSERT_EQ(cleared, model_.erase(bit)) << "clear " << bit;
  }

  // What a bulk set without pages leaves out is the end of the array.
  void setMany(RepTreeRootSType& tree, BitSource& source) {
    std::vector<uint64_t> bits(1 + random_.below(3000));
    for (uint64_t& bit : bits) bit = source.next();
    std::sort(bits.begin(), bits.end());
    bits.erase(std::unique(bits.begin(), bits.end()), bits.end());
    const uint64_t refused = host.count(EventKind::newPageRefused);
    const unsigned long result = BmSetBitsFromSortedArray_(&host, &tree, bits.data(), bits.data() + bits.size());
    const bool complete = host.count(EventKind::newPageRefused) == refused;
    unsigned long added = 0;
    bool reached = true;
    for (const uint64_t bit : bits) {
      const bool was = model_.holds(bit);
      const bool is = complete || BmTestBit(&host, &tree, bit) == 1;
      if (!is) reached = false;
      if (was) continue;
      ASSERT_TRUE(!is || reached) << "bit " << bit << " is set and one before it is not";
      if (is) note(bit);
      added += is ? 1 : 0;
    }
    ASSERT_TRUE(result == added || (!complete && result == 1)) << result << " instead of " << added;
    takeScarcityReports();
  }

  // A split that has no page for a sibling reports it.
  void takeScarcityReports() {
    if (host.reports().empty()) return;
    EXPECT_FALSE(isHeap());
    for (const Report& report : host.takeReports()) EXPECT_EQ(report.toString().substr(0, 17), "guarantee bitmap:");
  }

  void note(uint64_t bit) {
    if (!model_.insert(bit)) members_.push_back(bit);
  }

  // Some bit that was set; it may have been cleared since.
  uint64_t takeMember() {
    if (members_.empty()) return 0;
    std::swap(members_[random_.below(members_.size())], members_.back());
    const uint64_t bit = members_.back();
    members_.pop_back();
    return bit;
  }

  void endOfDrain(RepTreeRootSType& tree) {
    draining_ = false;
    EXPECT_EQ(model_.size(), 0u);
    expectEmpty(tree);
  }

  void expectEmpty(const RepTreeRootSType& tree) {
    if (tree.denseLeaves == 0) {
      EXPECT_EQ(shapeOf(tree), "empty");
    }
    EXPECT_EQ(bitsOf(tree), std::vector<uint64_t>{});
  }

  void check(const RepTreeRootSType& tree) {
    expectSound(tree);
    sawDense = sawDense || shapeOf(tree).find("dense") != std::string::npos;
    if (model_.size() < 30000 || random_.oneIn(10)) {
      EXPECT_TRUE(bitsOf(tree) == model_.sorted());
    }
  }

  void moveStamp(const RepTreeRootSType& tree) {
    host.setPageBudget(-1);
    scarceFor_ = 0;
    moveStampOn();
    expectSound(tree);
  }

  void progress(const RepTreeRootSType& tree, uint64_t done) {
    std::cout << treeKindName({GetParam(), 0}) << ": " << done << " operations, " << model_.size() << " bits, level "
              << int{tree.level} << ", " << host.livePages().size() + host.heapPages() << " pages" << std::endl;
  }

  void drain(RepTreeRootSType& tree) {
    host.setPageBudget(-1);
    scarceFor_ = 0;
    check(tree);
    EXPECT_TRUE(bitsOf(tree) == model_.sorted());
    const size_t all = members_.size();
    while (!members_.empty() && !HasFailure()) {
      clearOne(tree, takeMember());
      if (members_.size() == all / 2) check(tree);
    }
    expectEmpty(tree);
  }

  Random random_{0};
  WordModel model_;
  std::vector<uint64_t> members_;
  bool draining_ = false;
  uint64_t scarceFor_ = 0;

 protected:
  int highestLevel = 0;
  bool sawDense = false;
};
BMTREE_FOR_ALL_KINDS(RandomTreeTest);

TEST_P(RandomTreeTest, AscendingBitsAgreeWithTheModel) { run(newTree(), {{Pattern::ascending}, 400000}); }

TEST_P(RandomTreeTest, DescendingBitsAgreeWithTheModel) { run(newTree(), {{Pattern::descending}, 400000}); }

TEST_P(RandomTreeTest, ClusteredBitsAgreeWithTheModel) {
  run(newTree(), {{Pattern::clustered}, 20000});
  EXPECT_TRUE(sawDense);
}

TEST_P(RandomTreeTest, BitsOverTheWholeSpaceAgreeWithTheModel) { run(newTree(), {{Pattern::uniform}, 300000}); }

TEST_P(RandomTreeTest, MixedPatternsAgreeWithTheModel) {
  std::vector<Pattern> all;
  for (int i = 0; i < patterns; ++i) all.push_back(static_cast<Pattern>(i));
  run(newTree(), {all, 5000});
}

// A page that is not pinned moves as soon as another one is located.
TEST_P(RandomTreeTest, PagesThatMoveAgreeWithTheModel) {
  if (isHeap()) GTEST_SKIP() << "heap pages do not move";
  host.moveUnpinnedPages(1);
  Leaves leaves;
  for (uint64_t i = 0; i < 1021; ++i) leaves.push_back(denseLeaf(span(8000 * i), {span(8000 * i) + i}));
  RepTreeRootSType& tree = treeOf(leaves);
  run(tree, {{Pattern::uniform, Pattern::clustered, Pattern::ascending}, 5000, lastSpan, 4});
  EXPECT_EQ(highestLevel, 2);
}

// One leaf per span in a tree of dense leaves: it soon has more than a level-1 page holds.
TEST_P(RandomTreeTest, OneBitPerSpanInDenseLeavesAgreesWithTheModelUpToLevel2) {
  RepTreeRootSType& tree = treeOf({denseLeaf(0, {}, 1)});
  tree.denseLeaves = 1;
  run(tree, {{Pattern::onePerSpan}, 1250, 1300});
  EXPECT_EQ(highestLevel, 2);
}

// Starts with a level-1 page that is nearly full of dense leaves, with gaps in which every bit needs a new list.
TEST_P(RandomTreeTest, BitsInGapsBetweenDenseLeavesAgreeWithTheModelUpToLevel2) {
  Leaves leaves;
  for (uint64_t i = 0; i < 1000; ++i) leaves.push_back(denseLeaf(span(8000 * i), {span(8000 * i) + i}));
  run(treeOf(leaves), {{Pattern::onePerSpan, Pattern::uniform, Pattern::ascending}, 20000});
  EXPECT_EQ(highestLevel, 2);
}

}  // namespace
