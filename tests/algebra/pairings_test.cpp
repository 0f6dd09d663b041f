// Every operation between every two forms of tree: the four kinds with pages in every level and leaf form, and inline
// lists.
#include "algebra/copy.h"
#include "algebra/treelayout.h"

namespace {

struct Form {
  const char* name;
  Groups groups;  // one leaf of level 0 if it stands alone with key 0 and `level` is 0
  int level;
};

// Two sets of forms over some spans, with bits shared between any two of them.
const Form forms[] = {
    {"list root", {{listLeaf(0, {1, 63, 64, span(1) + 2, span(4), topBit}, 500)}}, 0},
    {"dense root", {{denseLeaf(0, {1, 64, 200, 130751})}}, 0},
    {"lists", {{listLeaf(0, {1, 3, span(1) + 2}), listLeaf(span(3), {span(4), span(4) + 9, topBit}, 77)}}, 1},
    {"dense leaves",
     {{denseLeaf(0, {1, 64, 65}), denseLeaf(span(1), {span(1) + 2, span(1) + 5}),
       denseLeaf(span(4), {span(4), span(4) + 9})}},
     1},
    {"mixed with gaps and empty leaves",
     {{denseLeaf(0, {}, 1), listLeaf(span(1), {span(1) + 2, span(2)}), denseLeaf(span(4), {span(4)}, 1),
       listLeaf(span(6), {}, 40)}},
     1},
    {"two levels",
     {{listLeaf(0, {63, 64}), denseLeaf(span(1), {span(1) + 2}, 1), denseLeaf(span(2), {}, 1)},
      {listLeaf(span(4), {span(4) + 9, span(5)}), denseLeaf(span(lastSpan), {topBit})}},
     2},
};

const Form& denseRootForm = forms[1];

BitSet bitsOfForm(const Form& form) {
  BitSet bits;
  for (const Leaves& leaves : form.groups) {
    for (const LeafSpec& leaf : leaves) bits.insert(leaf.bits.begin(), leaf.bits.end());
  }
  return bits;
}

constexpr BmTreeKindEType pageKinds[] = {BM_HEAP_TREE, BM_PAGE_TREE, BM_SHARED_PAGE_TREE, BM_CAREFUL_TREE};

class PairingsTest : public TreeFixture {
 protected:
  RepTreeRootSType make(BmTreeKindEType kind, const Form& form) {
    switch (form.level) {
      case 0: return buildTree(host, kind, form.groups.front().front());
      case 1: return buildTree(host, kind, form.groups.front());
      default: return buildTree(host, kind, form.groups);
    }
  }

  // One tree of a pair: of a kind with pages, or an inline list. Gives its pages back at the end.
  struct Side {
    PairingsTest& test;
    InlineTree inlined;
    RepTreeRootSType* root;
    BitSet bits;

    Side(PairingsTest& owner, BmTreeKindEType kind, const Form& form)
        : test(owner),
          inlined(asVector(bitsOfForm(form)), 9),
          root(kind < 0 ? inlined.root() : &owner.adopt(owner.make(kind, form))),
          bits(bitsOfForm(form)) {}
    ~Side() {
      if (root == inlined.root()) return;
      BmDisposeTree(&test.host, root);
      test.forget(*root);
    }
    Side(const Side&) = delete;
    Side& operator=(const Side&) = delete;
  };

  // A dense leaf as the root of a tree is read by the operations that walk leaves and by no other.
  enum class DenseRoots { never, asA, everywhere };

  template <class Check>
  void forAllPairs(DenseRoots denseRoots, Check check) {
    host.logEvents(false);
    for (const BmTreeKindEType kindA :
         {BM_INLINE_LIST_TREE, BM_HEAP_TREE, BM_PAGE_TREE, BM_SHARED_PAGE_TREE, BM_CAREFUL_TREE}) {
      for (const BmTreeKindEType kindB :
           {BM_INLINE_LIST_TREE, BM_HEAP_TREE, BM_PAGE_TREE, BM_SHARED_PAGE_TREE, BM_CAREFUL_TREE}) {
        for (const Form& formA : forms) {
          for (const Form& formB : forms) {
            if (denseRoots != DenseRoots::everywhere && &formB == &denseRootForm) continue;
            if (denseRoots == DenseRoots::never && &formA == &denseRootForm) continue;
            if (HasFailure()) return;
            SCOPED_TRACE(std::string(formA.name) + " of kind " + std::to_string(kindA) + ", " + formB.name +
                         " of kind " + std::to_string(kindB));
            Side a(*this, kindA, formA);
            Side b(*this, kindB, formB);
            TreeSnapshot unchanged(host, *a.root);
            check(a, b);
            unchanged.expectUnchanged();
            EXPECT_EQ(bitsOf(*a.root), asVector(a.bits));
            EXPECT_EQ(host.pinsHeld(), 0);
            host.expectReports({});
          }
        }
      }
    }
  }

  void expectTree(const RepTreeRootSType& root, const BitSet& bits) {
    if (root.treeKind < 0) {
      EXPECT_EQ(bitsOf(root), asVector(bits));
    } else {
      expectSound(root, bits);
    }
  }
};

TEST_F(PairingsTest, Union) {
  forAllPairs(DenseRoots::asA, [this](Side& a, Side& b) {
    EXPECT_EQ(BmSetBits_(&host, a.root, b.root), differenceOf(a.bits, b.bits).size());
    expectTree(*b.root, unionOf(a.bits, b.bits));
  });
}

TEST_F(PairingsTest, Removal) {
  forAllPairs(DenseRoots::never, [this](Side& a, Side& b) {
    EXPECT_EQ(BmClearBits_(&host, a.root, b.root), intersectionOf(a.bits, b.bits).size());
    expectTree(*b.root, differenceOf(b.bits, a.bits));
  });
}

TEST_F(PairingsTest, RemovalWithTheLargeTreeFirst) {
  forAllPairs(DenseRoots::never, [this](Side& a, Side& b) {
    EXPECT_EQ(BmClearBitsLargeFirst(&host, a.root, b.root), intersectionOf(a.bits, b.bits).size());
    expectTree(*b.root, differenceOf(b.bits, a.bits));
  });
}

TEST_F(PairingsTest, DifferenceAsAnArray) {
  forAllPairs(DenseRoots::everywhere, [this](Side& a, Side& b) {
    std::vector<uint64_t> bits(64);
    bits.resize(BmDifference_(&host, a.root, b.root, bits.size(), bits.data()));
    EXPECT_EQ(bits, asVector(differenceOf(a.bits, b.bits)));
  });
}

TEST_F(PairingsTest, DifferenceAsATreeOfEveryKind) {
  forAllPairs(DenseRoots::everywhere, [this](Side& a, Side& b) {
    for (const BmTreeKindEType kind : pageKinds) {
      RepTreeRootSType& result = newTree(kind);
      BmDiff(&host, a.root, b.root, &result);
      expectTree(result, differenceOf(a.bits, b.bits));
      BmDisposeTree(&host, &result);
    }
  });
}

TEST_F(PairingsTest, Intersection) {
  forAllPairs(DenseRoots::everywhere, [this](Side& a, Side& b) {
    RepTreeRootSType& result = newTree(BM_CAREFUL_TREE);
    InlineTree inlined;
    const BitSet shared = intersectionOf(a.bits, b.bits);
    EXPECT_EQ(BmIntersectSize_(&host, a.root, b.root, &result, BM_HIGHEST_BIT, 0), shared.size());
    EXPECT_EQ(BmIntersectSize_(&host, a.root, b.root, inlined.root(), BM_HIGHEST_BIT, 0), shared.size());
    expectTree(result, shared);
    expectTree(*inlined.root(), shared);
    BmDisposeTree(&host, &result);
  });
}

TEST_F(PairingsTest, CopyIntoEveryKind) {
  forAllPairs(DenseRoots::never, [this](Side& a, Side&) {
    for (const BmTreeKindEType kind : pageKinds) {
      RepTreeRootSType& result = newTree(kind);
      int entries;
      EXPECT_EQ(BmDoCopyTree(&host, a.root, &result, &entries), static_cast<long>(a.bits.size()));
      expectTree(result, a.bits);
      BmDisposeTree(&host, &result);
    }
  });
}

}  // namespace
