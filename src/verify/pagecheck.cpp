#include "verify/pagecheck.h"

#include <algorithm>
#include <bit>
#include <cstdarg>
#include <cstdio>

void FaultSink::fault(const PagePlace& place, const char* format, ...) {
  ++count_;
  if (report_ == nullptr) return;
  char sentence[240];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(sentence, sizeof sentence, format, arguments);
  va_end(arguments);
  report_(context_, place.ref, place.level, sentence);
}

namespace {

bool isZero(const uint8_t* bytes, size_t count) {
  return std::all_of(bytes, bytes + count, [](uint8_t byte) { return byte == 0; });
}

void checkHeapHead(FaultSink& sink, const PagePlace& place, const RepPageHdrSType& page) {
  if (page.pageState != 3) sink.fault(place, "The state of a heap page is %d instead of 3.", page.pageState);
  const bool clean = isZero(page.reserved2, sizeof page.reserved2) &&
                     isZero(page.reserved16, sizeof page.reserved16) &&
                     isZero(page.reserved26, sizeof page.reserved26);
  if (!clean) sink.fault(place, "Reserved bytes in the head of a heap page are not zero.");
}

bool listFitsItsSlots(FaultSink& sink, const PagePlace& place, const RepBitListContentsSType& list) {
  if (list.count >= 0 && list.firstOffset >= 0 && list.firstOffset <= BM_BIT_LIST_CAPACITY &&
      list.count <= BM_BIT_LIST_CAPACITY - list.firstOffset) {
    return true;
  }
  sink.fault(place, "A list of %d entries from slot %d on does not fit into %d slots.", list.count, list.firstOffset,
             BM_BIT_LIST_CAPACITY);
  return false;
}

void checkOrder(FaultSink& sink, const PagePlace& place, const RepBitListContentsSType& list) {
  const uint64_t* low = std::adjacent_find(list.begin(), list.end(), [](uint64_t a, uint64_t b) { return a >= b; });
  if (low == list.end()) return;
  sink.fault(place, "List entry %ld is %lu and the one after it %lu.", low - list.begin(), low[0], low[1]);
}

}  // namespace

void checkHead(FaultSink& sink, const PagePlace& place, const RepPageHdrSType& page, int treeKind) {
  if (page.pageId != place.ref) {
    sink.fault(place, "The page says that its id is %lu, and its parent or root refers to it as %lu.", page.pageId,
               place.ref);
  }
  if (treeKind == BM_HEAP_TREE) checkHeapHead(sink, place, page);
}

void checkFullPage(FaultSink& sink, const PagePlace& place, const RepPageHdrSType& page) {
  if (page.bytesUsed == BM_PAGE_SIZE) return;
  sink.fault(place, "The used bytes of the page are %d instead of %d.", page.bytesUsed, BM_PAGE_SIZE);
}

void checkListContents(FaultSink& sink, const PagePlace& place, const RepBitListContentsSType& list,
                       const LeafRange& range) {
  if (!listFitsItsSlots(sink, place, list)) return;
  checkOrder(sink, place, list);
  const uint64_t* outside = std::find_if(list.begin(), list.end(),
                                         [&](uint64_t entry) { return entry < range.first || entry >= range.limit; });
  if (outside == list.end()) return;
  sink.fault(place, "List entry %ld is %lu, and the list owns %lu up to %lu.", outside - list.begin(), *outside,
             range.first, range.limit);
}

void checkListPage(FaultSink& sink, const PagePlace& place, const RepBitListPageSType& page, const LeafRange& range) {
  const long bytes = (long{page.contents.count} + page.contents.firstOffset) * 8 + BM_LIST_HEAD_BYTES;
  if (page.hdr.bytesUsed != bytes) {
    sink.fault(place, "The used bytes of a list of %d entries from slot %d on are %d instead of %ld.",
               page.contents.count, page.contents.firstOffset, page.hdr.bytesUsed, bytes);
  }
  checkListContents(sink, place, page.contents, range);
}

void checkDensePage(FaultSink& sink, const PagePlace& place, const RepBmLeafPageSType& page, unsigned long key) {
  checkFullPage(sink, place, page.hdr);
  if (page.keepWhenEmpty != 0 && page.keepWhenEmpty != 1) {
    sink.fault(place, "The mark of a leaf that stays when empty is %d instead of 0 or 1.", page.keepWhenEmpty);
  }
  long population = 0;
  for (const uint64_t word : page.words) population += std::popcount(word);
  if (population != page.bitsSet) {
    sink.fault(place, "The leaf counts %d set bits and has %ld.", page.bitsSet, population);
  }
  const unsigned long bitsInSpace = key < BM_END_BIT ? BM_END_BIT - key : 0;
  if (bitsInSpace >= BM_LEAF_BITS) return;
  static_assert(BM_END_BIT % BM_LEAF_BITS % 64 == 0, "the end of the space does not cut through a word");
  const uint64_t* end = page.words + BM_BIT_LIST_CAPACITY;
  const uint64_t* beyond = std::find_if(page.words + bitsInSpace / 64, end, [](uint64_t word) { return word != 0; });
  if (beyond == end) return;
  sink.fault(place, "Word %ld of the topmost dense leaf has bits beyond the last bit of all.", beyond - page.words);
}

bool checkSlots(FaultSink& sink, const PagePlace& place, const BmInternalKeyType& area) {
  if (area.level != place.level) {
    sink.fault(place, "An internal page says that it is of level %d and stands at level %d.", area.level,
               place.level);
  }
  if (area.count == 0) {
    sink.fault(place, "An internal page has no slots.");
    return false;
  }
  if (area.firstOffset + area.count <= BM_INT_CAPACITY) return true;
  sink.fault(place, "An internal page of %d slots from slot %d on does not fit into %d slots.", area.count,
             area.firstOffset, BM_INT_CAPACITY);
  return false;
}
