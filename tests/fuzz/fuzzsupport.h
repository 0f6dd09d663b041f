// What the fuzz targets share: heap trees on the host of real programs, without a page cache.
#pragma once

#include "bitmap.h"

// A context for heap trees.
class FuzzContext : public PageCacheSType {
 public:
  FuzzContext() : PageCacheSType{} {
    owner = &ownerStorage_;
    BmInitTreeRoots(this);
  }

 private:
  OwnerStatsSType stats_{};
  OwnerSType ownerStorage_{&stats_};
};

// A heap tree, given back at the end.
class FuzzTree {
 public:
  explicit FuzzTree(FuzzContext& context) : context_(context), root_(context.invalidHeapTreeRoot) {}
  ~FuzzTree() { BmDisposeTree(&context_, &root_); }
  FuzzTree(const FuzzTree&) = delete;
  FuzzTree& operator=(const FuzzTree&) = delete;

  RepTreeRootSType* root() { return &root_; }
  unsigned long bits() { return BmFindNumBitsSet_(&context_, &root_); }
  bool isSound() { return BmVerifyTree(&context_, &root_, nullptr, nullptr) == 0; }

  // Takes every bit out of the tree without changing it. Returns how many there were.
  unsigned long walk();

  // Gives the empty tree a dense leaf, several lists and the highest bit.
  void populate();

 private:
  FuzzContext& context_;
  RepTreeRootSType root_;
};

// Stops the run with the failed condition unless it holds.
#define FUZZ_REQUIRE(condition) ((condition) ? static_cast<void>(0) : fuzzFailure(#condition, __FILE__, __LINE__))
[[noreturn]] void fuzzFailure(const char* condition, const char* file, int line);
