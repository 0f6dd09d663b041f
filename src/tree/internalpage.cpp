#include "tree/internalpage.h"

#include <cstring>

#include "utl.h"

// Keys and children move together, so the two arrays cannot drift apart.
void BmIntPageRefCls::movePairs(unsigned fromSlot, unsigned toSlot, unsigned pairs) {
  uint64_t* child = children();
  std::memmove(keyArea->keys + toSlot, keyArea->keys + fromSlot, pairs * sizeof *child);
  std::memmove(child + toSlot, child + fromSlot, pairs * sizeof *child);
}

void BmIntPageRefCls::init_values(int level) {
  keyArea->firstOffset = 0;
  keyArea->count = 0;
  keyArea->level = static_cast<uint16_t>(level);
  keyArea->reserved38 = 0;
  keyArea->reserved40 = 0;
}

void BmIntPageRefCls::set_value(unsigned index, unsigned long child, unsigned long key, int tag, int) {
  set_raw_value(index, child, key | (static_cast<unsigned long>(tag) & BM_DENSE_TAG));
}

void BmIntPageRefCls::set_raw_value(unsigned index, unsigned long child, unsigned long rawKey) {
  const unsigned slot = keyArea->firstOffset + index;
  children()[slot] = child;
  keyArea->keys[slot] = rawKey;
}

void BmIntPageRefCls::resetFirstOffset() {
  if (keyArea->firstOffset == 0) return;
  movePairs(keyArea->firstOffset, 0, keyArea->count);
  keyArea->firstOffset = 0;
}

bool BmIntPageRefCls::insert_value(unsigned index, unsigned long child, unsigned long key, int tag) {
  if (!UTL_GUARANTEE(keyArea->count < BM_INT_CAPACITY, 199)) return false;
  if (keyArea->count + keyArea->firstOffset + 1 > BM_INT_CAPACITY) resetFirstOffset();
  const unsigned slot = keyArea->firstOffset + index;
  movePairs(slot, slot + 1, keyArea->count - index);
  set_value(index, child, key, tag, 0);
  ++keyArea->count;
  return true;
}

bool BmIntPageRefCls::insert_space_at_front(unsigned n) {
  if (!UTL_GUARANTEE(keyArea->count + n <= unsigned{BM_INT_CAPACITY}, 245)) return false;
  resetFirstOffset();
  movePairs(0, n, keyArea->count);
  keyArea->count = static_cast<uint16_t>(keyArea->count + n);
  return true;
}

void BmIntPageRefCls::remove_value(unsigned index) {
  if (index == 0) {
    if (keyArea->count >= 2) ++keyArea->firstOffset;
  } else {
    const unsigned slot = keyArea->firstOffset + index;
    movePairs(slot + 1, slot, keyArea->count - index - 1);
  }
  --keyArea->count;
}
