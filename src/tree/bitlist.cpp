#include "tree/bitlist.h"

#include <cstring>

#include "tree/pageaccess.h"

namespace {

void moveEntries(const uint64_t* from, uint64_t* to, long entries) {
  std::memmove(to, from, static_cast<size_t>(entries) * sizeof *to);
}

// Places the list anew with its front at `front`, and a hole of `take` slots between the entries below `pos` and the
// others. Returns the hole.
uint64_t* placeWithHole(RepBitListContentsSType* list, uint64_t* pos, int take, int front) {
  return replaceEntries(list, pos, 0, take, front);
}

}  // namespace

unsigned long* BinSearchForModify_noTag(const unsigned long* entries, long count, unsigned long bit) {
  return const_cast<unsigned long*>(entries + firstNotBelow(entries, count, bit));
}

unsigned long* BinSearchForModify(const unsigned long* entries, int count, unsigned long bit) {
  const long index = firstNotBelow(entries, count, bit);
  const bool hit = index < count && entries[index] == bit;
  return reinterpret_cast<unsigned long*>(reinterpret_cast<unsigned long>(entries + index) | (hit ? 1 : 0));
}

void fillBitList(RepBitListContentsSType* list, const uint64_t* entries, int count) {
  list->count = count;
  list->firstOffset = frontGap(count);
  HostAsmMemcpySmallWords(list->begin(), entries, static_cast<unsigned long>(count));
}

void placeList(RepBitListContentsSType* list, int front) {
  moveEntries(list->begin(), list->entries + front, list->count);
  list->firstOffset = front;
}

void ADD_BIT_TO_BITLIST(RepBitListContentsSType* list, uint64_t* slot, unsigned long bit) {
  const int first = list->firstOffset;
  const int newCount = list->count + 1;
  const long left = slot - list->begin();
  const long right = list->count - left;
  uint64_t* hole = slot;
  if (newCount + first > BM_BIT_LIST_CAPACITY) {
    hole = placeWithHole(list, slot, 1, frontGap(newCount));
  } else if (left >= right) {
    moveEntries(slot, slot + 1, right);
  } else if (first > 0) {
    moveEntries(list->begin(), list->begin() - 1, left);
    list->firstOffset = first - 1;
    hole = slot - 1;
  } else {
    hole = placeWithHole(list, slot, 1, frontGap(newCount));
  }
  *hole = bit;
  list->count = newCount;
}

uint64_t* openListGap(RepBitListContentsSType* list, uint64_t* pos, int take) {
  const int first = list->firstOffset;
  const int newCount = list->count + take;
  const long before = pos - list->begin();
  const long after = list->count - before;
  const int want = frontGap(newCount);
  if (newCount + first > BM_BIT_LIST_CAPACITY) return placeWithHole(list, pos, take, want);
  if (before >= after) {
    moveEntries(pos, pos + take, after);
    return pos;
  }
  if (take <= first) {
    moveEntries(list->begin(), list->begin() - take, before);
    list->firstOffset = first - take;
    return pos - take;
  }
  return placeWithHole(list, pos, take, want);
}

uint64_t* replaceEntries(RepBitListContentsSType* list, uint64_t* pos, long replaced, long written, int front) {
  uint64_t* oldFirst = list->begin();
  const uint64_t* rest = pos + replaced;
  const long below = pos - oldFirst;
  const long above = list->end() - rest;
  uint64_t* newFirst = list->entries + front;
  uint64_t* hole = newFirst + below;
  uint64_t* newRest = hole + written;
  if (newFirst < oldFirst) moveEntries(oldFirst, newFirst, below);
  if (newRest != rest) moveEntries(rest, newRest, above);
  if (newFirst > oldFirst) moveEntries(oldFirst, newFirst, below);
  list->firstOffset = front;
  return hole;
}

void DELETE_BIT_FROM_BITLIST(RepBitListContentsSType* list, unsigned long* slot) {
  const long left = slot - list->begin();
  const long right = list->count - left;
  if (left < right) {
    moveEntries(list->begin(), list->begin() + 1, left);
    ++list->firstOffset;
  } else {
    moveEntries(slot + 1, slot, right - 1);
  }
  --list->count;
}

void setBlCount_SET_DIRTY(PageCacheSType* pc, RepTreeRootSType* root, RepBitListPageSType* page, int newCount) {
  page->contents.count = newCount;
  page->hdr.bytesUsed = listBytesUsed(newCount, page->contents.firstOffset);
  TreeAccess(pc, *root).markDirty(&page->hdr);
}
