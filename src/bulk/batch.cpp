#include <cassert>

#include "bitmap.h"
#include "bulk/sort.h"

static_assert(offsetof(BmBufferType, slots) == offsetof(BmBufferType, lowSentinel) + sizeof(uint64_t),
              "the slot below the first waiting bit is the low sentinel");

BmBufferType::~BmBufferType() { assert(next == slots); }

void BmBufferType::flushImpl() {
  const long waiting = next - slots;
  if (setMode && waiting <= 1) {
    if (waiting == 1 && BmSetBit(cache, root, slots[0]) == 0) ++netChange;
  } else {
    uint64_t* const first = next - waiting;
    uint64_t* const end = waiting >= 1 ? sortAndStrip(first - 1, next) : next;
    if (setMode) {
      netChange += static_cast<int64_t>(BmSetBitsFromSortedArray_(cache, root, first, end));
    } else {
      netChange -= static_cast<int64_t>(BmClearBitsFromSortedArray_(cache, root, first, end));
    }
  }
  next = slots;
}
