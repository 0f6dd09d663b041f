// The fixture of the named tests on operations between trees, for one kind of tree under test.
#pragma once

#include <algorithm>

#include "algebra/treelayout.h"
#include "tree/pageaccess.h"

class AlgebraTest : public TreeTest {
 protected:
  // A tree of the kind under test, or of another, built by hand.
  template <class Shape>
  RepTreeRootSType& built(const Shape& shape) {
    return adopt(buildTree(host, kind(), shape));
  }
  template <class Shape>
  RepTreeRootSType& built(BmTreeKindEType otherKind, const Shape& shape) {
    return adopt(buildTree(host, otherKind, shape));
  }

  // The page of the n-th leaf of a tree.
  unsigned char* leafBytes(const RepTreeRootSType& root, size_t index) {
    return host.bytes(root, refsAtLevel(host, root, 0).at(index));
  }

  // Runs `action`, which meets one page that should be a leaf and is not, or one that is missing, reported at `line`.
  template <class Action>
  void expectLeafFault(int line, const RepTreeRootSType& root, Action action) {
    ::testing::internal::CaptureStderr();
    ::testing::internal::CaptureStdout();
    action();
    ::testing::internal::GetCapturedStdout();
    const std::string text = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find("bitmap line " + std::to_string(line) + " "), std::string::npos) << text;
    const std::vector<Report> reports = host.takeReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports.front().line, root.treeKind == BM_HEAP_TREE ? 970 : 920);
  }

  // Calls of this kind during `action`.
  template <class Action>
  uint64_t countDuring(EventKind event, Action action) {
    const uint64_t before = host.count(event);
    action();
    return host.count(event) - before;
  }

  void TearDown() override {
    EXPECT_EQ(host.pinsHeld(), 0);
    TreeTest::TearDown();
  }
};

// Pages that an operation made from here on and that nothing refers to.
class LeftOverPages {
 public:
  LeftOverPages(TestHost& host, BmTreeKindEType kind) : host_(host), kind_(kind), before_(host.livePages()) {
    host.clearEvents();
  }

  size_t count() const { return refs().size(); }

  void dispose() {
    for (const uint64_t ref : refs()) BmDisposePage(&host_, ref, kind_);
  }

 private:
  std::vector<uint64_t> refs() const {
    std::vector<uint64_t> made;
    for (const uint64_t id : host_.livePages()) {
      if (!std::binary_search(before_.begin(), before_.end(), id)) made.push_back(id);
    }
    for (const Event& event : host_.events()) {
      const bool ofTree = event.kind == EventKind::heapAlloc && kind_ == BM_HEAP_TREE;
      if (ofTree && (event.first == 777 || event.first == 4325)) made.push_back(event.page);
    }
    return made;
  }

  TestHost& host_;
  BmTreeKindEType kind_;
  std::vector<uint64_t> before_;
};
