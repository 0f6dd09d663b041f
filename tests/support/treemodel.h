// The fixture for tests on trees: a test host, the trees of the test, and tiny verbs that compare a tree with a plain
// set. At tear-down every tree is disposed of, and no page, heap page, pin, buffer or report may be left.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/pageimages.h"
#include "support/testhost.h"
#include "support/treereader.h"

using BitSet = std::set<uint64_t>;

// The seed of a random test: BMTREE_SEED if set, otherwise a fresh one. Prints it.
uint64_t testSeed();

// A small generator with the same sequence everywhere.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next();
  // Below `limit`, which is not 0.
  uint64_t below(uint64_t limit) { return next() % limit; }
  // True once in `n` calls on average.
  bool oneIn(uint64_t n) { return below(n) == 0; }

 private:
  uint64_t state_;
};

// Everything the verifier has to say about a tree, one line per fault: "page P level L: sentence"
std::vector<std::string> faultsOf(TestHost& host, const RepTreeRootSType& root);

class TreeFixture : public ::testing::Test {
 protected:
  TestHost host;

  // An empty tree, and one built by hand; disposed of at tear-down. The reference stays valid.
  RepTreeRootSType& newTree(BmTreeKindEType kind, int allocTag = 777);
  RepTreeRootSType& adopt(const RepTreeRootSType& root);
  // The fixture forgets a tree whose pages the test has taken care of.
  void forget(const RepTreeRootSType& root);

  std::vector<uint64_t> bitsOf(const RepTreeRootSType& root);
  std::string shapeOf(const RepTreeRootSType& root);
  const unsigned char* bytesOf(const RepTreeRootSType& root, uint64_t ref) { return host.bytes(root, ref); }

  // The verifier finds no fault; and an independent reader finds exactly these bits.
  void expectSound(const RepTreeRootSType& root);
  void expectSound(const RepTreeRootSType& root, const BitSet& model);

  // Moves the careful stamp on as the owner of the trees would: checks what the old stamp leaves behind (the two
  // checks below), releases the obsolete pages, empties both sets and remembers every careful page.
  void moveStampOn();
  // Every careful page that lived when the stamp was moved on last is still there and has not changed.
  void expectOldPagesUnchanged();
  // dirtyCarefulBm holds the careful pages made under this stamp that still live, and obsoleteCarefulBm the older
  // ones that belong to no tree of this fixture any more.
  void expectCarefulSets();

  void TearDown() override;

 private:
  void emptyCarefulSets();

  std::deque<RepTreeRootSType> trees_;
  std::map<uint64_t, PageBytes> oldPages_;
};

// The same for each kind of tree that owns pages; newTree() makes a tree of the kind under test.
class TreeTest : public TreeFixture, public ::testing::WithParamInterface<BmTreeKindEType> {
 protected:
  using TreeFixture::newTree;
  RepTreeRootSType& newTree() { return TreeFixture::newTree(GetParam()); }
  BmTreeKindEType kind() const { return GetParam(); }
  bool isHeap() const { return GetParam() == BM_HEAP_TREE; }
  bool isCareful() const { return GetParam() == BM_CAREFUL_TREE; }
};

std::string treeKindName(const ::testing::TestParamInfo<BmTreeKindEType>& info);

// Runs the TEST_P tests of `Suite` for heap, page, shared-page and careful trees.
#define BMTREE_FOR_ALL_KINDS(Suite)                                                                             \
  INSTANTIATE_TEST_SUITE_P(Kinds, Suite,                                                                        \
                           ::testing::Values(BM_HEAP_TREE, BM_PAGE_TREE, BM_SHARED_PAGE_TREE, BM_CAREFUL_TREE), \
                           treeKindName)
