// What can be said about one page by itself, or with the range that its parent gives it. Nothing here locates a page
// or reads outside the one it was given.
#pragma once

#include "bitmap.h"

// A page of a tree: its reference and its level.
struct PagePlace {
  unsigned long ref;
  int level;
};

// Where the faults go: counts them and hands each sentence to the caller of the verifier.
class FaultSink {
 public:
  FaultSink(BmVerifyReportFn report, void* context) : report_(report), context_(context) {}

  // One fault of the page at `place`; `format` and what follows make the sentence, as for printf.
  [[gnu::format(printf, 3, 4)]] void fault(const PagePlace& place, const char* format, ...);

  unsigned long count() const { return count_; }

 private:
  BmVerifyReportFn report_;
  void* context_;
  unsigned long count_ = 0;
};

// The bits that a leaf owns: `first` up to, not including, `limit`.
struct LeafRange {
  unsigned long first;
  unsigned long limit;
};

// What the page cache and the module keep in the head of every page of a tree of this kind.
void checkHead(FaultSink& sink, const PagePlace& place, const RepPageHdrSType& page, int treeKind);

// bytesUsed of a page that is always used to its end.
void checkFullPage(FaultSink& sink, const PagePlace& place, const RepPageHdrSType& page);

// A list: its front and count inside the slots, its entries ascending and inside `range`.
void checkListContents(FaultSink& sink, const PagePlace& place, const RepBitListContentsSType& list,
                       const LeafRange& range);

// A list page: the same, and bytesUsed.
void checkListPage(FaultSink& sink, const PagePlace& place, const RepBitListPageSType& page, const LeafRange& range);

// A dense leaf whose span begins at `key`.
void checkDensePage(FaultSink& sink, const PagePlace& place, const RepBmLeafPageSType& page, unsigned long key);

// Whether the live slots of an internal page lie inside it, and there is one; its level field.
bool checkSlots(FaultSink& sink, const PagePlace& place, const BmInternalKeyType& area);
