// The host of the benchmarks: page cache and reports with as little work of their own as possible. Pages live in a
// table by id, pins and dirty marks do nothing, and a report stops the program: a benchmark has no faults. The memory
// of heap trees is that of real programs, except that all of it is kept.
#pragma once

#include <memory>
#include <vector>

#include "bitmap.h"

class BenchHost : public PageCacheSType {
 public:
  // Runs the module's set-up, careful tracking included.
  BenchHost();
  ~BenchHost();
  BenchHost(const BenchHost&) = delete;
  BenchHost& operator=(const BenchHost&) = delete;

  RepPageHdrSType* locate(unsigned long pageId) { return pages_[pageId]; }
  RepPageHdrSType* makePage(RepPageKindEType kind);
  void releasePage(unsigned long pageId);

 private:
  OwnerStatsSType stats_{};
  OwnerSType ownerStorage_{&stats_};
  std::vector<RepPageHdrSType*> pages_;  // by id
  std::vector<unsigned long> freeIds_;
};

// A tree of one benchmark; gives its pages back at the end.
class BenchTree {
 public:
  BenchTree(BenchHost& host, BmTreeKindEType kind) : host_(host), root_(0, kind) {}
  ~BenchTree() { clear(); }
  BenchTree(const BenchTree&) = delete;
  BenchTree& operator=(const BenchTree&) = delete;

  RepTreeRootSType* root() { return &root_; }
  void set(const std::vector<unsigned long>& bits) {
    BmSetBitsFromSortedArray_(&host_, &root_, bits.data(), bits.data() + bits.size());
  }
  void clear() { BmDisposeTree(&host_, &root_); }

 private:
  BenchHost& host_;
  RepTreeRootSType root_;
};
