#include "support/treemodel.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>

namespace {

// Keeps what the fixture itself does out of the event log.
class QuietLog {
 public:
  explicit QuietLog(TestHost& host) : host_(host), wasOn_(host.logsEvents()) { host.logEvents(false); }
  ~QuietLog() { host_.logEvents(wasOn_); }
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;

 private:
  TestHost& host_;
  bool wasOn_;
};

BitSet asSet(const std::vector<uint64_t>& bits) { return {bits.begin(), bits.end()}; }

void appendFault(void* context, unsigned long pageRef, int level, const char* sentence) {
  static_cast<std::vector<std::string>*>(context)->push_back("page " + std::to_string(pageRef) + " level " +
                                                             std::to_string(level) + ": " + sentence);
}

// The first bit in which the two differ, for a message that can be read.
std::string firstDifference(const std::vector<uint64_t>& bits, const BitSet& model) {
  const auto [bit, wanted] = std::mismatch(bits.begin(), bits.end(), model.begin(), model.end());
  std::string text = std::to_string(bits.size()) + " bits, " + std::to_string(model.size()) + " expected; at " +
                     std::to_string(bit - bits.begin()) + " ";
  text += bit == bits.end() ? "the end" : std::to_string(*bit);
  return text + " instead of " + (wanted == model.end() ? "the end" : std::to_string(*wanted));
}

}  // namespace

uint64_t testSeed() {
  const char* given = std::getenv("BMTREE_SEED");
  const uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device{}();
  std::cout << "seed: BMTREE_SEED=" << seed << std::endl;
  return seed;
}

uint64_t Random::next() {
  state_ += 0x9E3779B97F4A7C15;
  uint64_t value = state_;
  value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9;
  value = (value ^ value >> 27) * 0x94D049BB133111EB;
  return value ^ value >> 31;
}

std::vector<std::string> faultsOf(TestHost& host, const RepTreeRootSType& root) {
  const QuietLog quiet(host);
  std::vector<std::string> faults;
  const unsigned long count = BmVerifyTree(&host, &root, appendFault, &faults);
  EXPECT_EQ(count, faults.size());
  return faults;
}

std::string treeKindName(const ::testing::TestParamInfo<BmTreeKindEType>& info) {
  switch (info.param) {
    case BM_HEAP_TREE: return "Heap";
    case BM_PAGE_TREE: return "Page";
    case BM_SHARED_PAGE_TREE: return "SharedPage";
    case BM_CAREFUL_TREE: return "Careful";
    case BM_INLINE_LIST_TREE: break;
  }
  return "InlineList";
}

// ---------------------------------------------------------------------------------------------------------
// Trees

RepTreeRootSType& TreeFixture::newTree(BmTreeKindEType kind, int allocTag) {
  RepTreeRootSType root(0, kind);
  root.allocTag = allocTag;
  return adopt(root);
}

RepTreeRootSType& TreeFixture::adopt(const RepTreeRootSType& root) { return trees_.emplace_back(root); }

void TreeFixture::forget(const RepTreeRootSType& root) {
  for (RepTreeRootSType& tree : trees_) {
    if (&tree == &root) tree = RepTreeRootSType(0, BM_HEAP_TREE);
  }
}

std::vector<uint64_t> TreeFixture::bitsOf(const RepTreeRootSType& root) { return ::bitsOf(host, root); }

std::string TreeFixture::shapeOf(const RepTreeRootSType& root) { return ::shapeOf(host, root); }

void TreeFixture::expectSound(const RepTreeRootSType& root) {
  EXPECT_EQ(faultsOf(host, root), std::vector<std::string>{});
}

void TreeFixture::expectSound(const RepTreeRootSType& root, const BitSet& model) {
  expectSound(root);
  const std::vector<uint64_t> bits = bitsOf(root);
  const bool same = std::equal(bits.begin(), bits.end(), model.begin(), model.end());
  EXPECT_TRUE(same) << firstDifference(bits, model);
}

// ---------------------------------------------------------------------------------------------------------
// Careful trees

void TreeFixture::expectCarefulSets() {
  BitSet inTrees;
  for (const RepTreeRootSType& tree : trees_) {
    if (tree.treeKind != BM_CAREFUL_TREE) continue;
    for (const TreePage& page : pagesOf(host, tree)) inTrees.insert(page.ref);
  }
  BitSet dirty;
  BitSet obsolete;
  for (const uint64_t id : host.livePages()) {
    if (!host.pageIsCareful(id)) continue;
    if (host.stampAtBirth(id) == *host.carefulStamp) {
      dirty.insert(id);
    } else if (inTrees.count(id) == 0) {
      obsolete.insert(id);
    }
  }
  EXPECT_EQ(asSet(bitsOf(*host.dirtyCarefulBm)), dirty) << "dirtyCarefulBm";
  EXPECT_EQ(asSet(bitsOf(host.obsoleteCarefulBm)), obsolete) << "obsoleteCarefulBm";
}

void TreeFixture::expectOldPagesUnchanged() {
  for (const auto& [id, copy] : oldPages_) {
    if (!host.pageIsLive(id)) {
      ADD_FAILURE() << "page " << id << " of an older stamp was released";
    } else if (std::memcmp(host.bytes(id), copy.data(), copy.size()) != 0) {
      ADD_FAILURE() << "page " << id << " of an older stamp was changed";
    }
  }
}

void TreeFixture::emptyCarefulSets() {
  for (const uint64_t id : bitsOf(host.obsoleteCarefulBm)) host.releasePage(id);
  BmDisposeTree(&host, &host.obsoleteCarefulBm);
  BmDisposeTree(&host, host.dirtyCarefulBm);
}

void TreeFixture::moveStampOn() {
  const QuietLog quiet(host);
  expectCarefulSets();
  expectOldPagesUnchanged();
  emptyCarefulSets();
  ++*host.carefulStamp;
  oldPages_.clear();
  for (const uint64_t id : host.livePages()) {
    if (!host.pageIsCareful(id)) continue;
    std::memcpy(oldPages_[id].data(), host.bytes(id), BM_PAGE_SIZE);
  }
}

void TreeFixture::TearDown() {
  const QuietLog quiet(host);
  host.setPageBudget(-1);
  expectOldPagesUnchanged();
  for (RepTreeRootSType& tree : trees_) {
    BmDisposeTree(&host, &tree);
    EXPECT_TRUE(tree.root == 0 || tree.treeKind < 0) << "a tree that was disposed of is not empty";
  }
  expectCarefulSets();
  emptyCarefulSets();
  host.expectNothingLeft();
}
