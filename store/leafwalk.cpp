#include "leafwalk.h"

#include <cstring>

namespace bmtree {

// The last slot whose key is not above `number`, or the first.
void LeafWalk::Level::seek(uint64_t number) {
  const uint64_t* keys = page.keyArea.keys + page.keyArea.firstOffset;
  const uint64_t* above = std::upper_bound(keys, keys + count(), number | BM_DENSE_TAG);
  slot = std::max<int>(static_cast<int>(above - keys) - 1, 0);
}

void LeafWalk::load(Level& level, uint64_t pageId) {
  std::memcpy(&level.page, context_.locate(pageId, REP_BM_INTERNAL_PAGE), sizeof level.page);
  level.slot = 0;
  ++internalPages_;
  internalEntries_ += static_cast<uint64_t>(level.count());
}

bool LeafWalk::seek(uint64_t number) {
  if (root_.root == 0) return false;
  if (root_.level == 0) return standOn(0);
  for (int i = root_.level; i > 0; --i) {
    Level& level = levels_[i - 1];
    load(level, i == root_.level ? root_.root : levels_[i].child());
    if (level.count() == 0) return false;
    level.seek(number);
  }
  standOn(1);
  return end_ > number || next();
}

bool LeafWalk::next() {
  if (root_.level == 0) return false;
  if (++levels_[0].slot < levels_[0].count()) return standOn(1);
  return stepUp();
}

bool LeafWalk::stepUp() {
  if (root_.level < 2 || ++levels_[1].slot >= levels_[1].count()) return false;
  load(levels_[0], levels_[1].child());
  return levels_[0].count() > 0 && standOn(1);
}

// Takes the leaf at the current slot of the level-1 page, or the root of a tree of level 0.
bool LeafWalk::standOn(int level) {
  if (level == 0) {
    pageId_ = root_.root;
    first_ = 0;
    end_ = BM_END_BIT;
    return true;
  }
  const Level& lower = levels_[0];
  const uint64_t key = lower.key(lower.slot);
  pageId_ = lower.child();
  first_ = keyBit(key);
  if (keyIsDense(key)) {
    end_ = std::min(first_ + BM_LEAF_BITS, BM_END_BIT);
  } else if (lower.slot + 1 < lower.count()) {
    end_ = keyBit(lower.key(lower.slot + 1));
  } else {
    const Level& upper = levels_[1];
    const bool followed = root_.level == 2 && upper.slot + 1 < upper.count();
    end_ = followed ? keyBit(upper.key(upper.slot + 1)) : BM_END_BIT;
  }
  return true;
}

uint64_t countOfLeaf(const RepPageHdrSType& page) {
  if (page.pageKind == REP_BIT_LIST_PAGE) return static_cast<uint64_t>(asListPage(&page)->contents.count);
  if (page.pageKind == REP_BM_LEAF_PAGE) return static_cast<uint64_t>(asDensePage(&page)->bitsSet);
  return 0;
}

}  // namespace bmtree
