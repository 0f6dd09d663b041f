// An independent reader of trees: walks the bytes of the pages by their offsets and uses nothing of the library's
// code. Fails the test where a page cannot be followed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/testhost.h"

struct TreePage {
  uint64_t ref;
  int level;
  uint64_t key;  // as stored in the parent, tag included; 0 at the root
};

// All pages of a tree, each before those below it, in key order. An empty tree and an inline list have none.
std::vector<TreePage> pagesOf(TestHost& host, const RepTreeRootSType& root);

// The leaves among them, and the pages of one level.
std::vector<uint64_t> refsAtLevel(TestHost& host, const RepTreeRootSType& root, int level);

// All bits of a tree of any kind, in the order of the leaves.
std::vector<uint64_t> bitsOf(TestHost& host, const RepTreeRootSType& root);

// The shape in one line. Keys are written in spans, lists as count@firstOffset, dense leaves as their population
// with + when they stay when empty:
//   "empty"   "list 3@255"   "[0 list 3@255, 2 dense 7, 3 dense 0+]"   "[0 [0 list 1@0, 4 dense 2], 9 [9 list 1@0]]"
std::string shapeOf(TestHost& host, const RepTreeRootSType& root);

// The same text without the fronts of lists, which depend on the arrays that bits come in.
std::string withoutFronts(const std::string& shape);
