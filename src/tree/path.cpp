#include "tree/path.h"

namespace {

// Records slot `index` of the page `ref` at `level` and names its child in the level below. Returns false for a page
// without that slot.
bool enterSlot(const TreeAccess& pages, int level, int index, BmPathSType* path) {
  BmPathLevelSType& at = path->levels[level];
  const RepBmInternalPageSType* page = pages.internal(at.pageId);
  const BmInternalKeyType& area = page->keyArea;
  if (index >= area.count) return false;
  const uint64_t* key = area.keys + area.firstOffset + index;
  at.numEntries = area.count;
  at.index = index;
  at.firstBit = keyBit(*key);
  at.limitBit = index + 1 < area.count ? key[1] : level == 2 ? BM_END_BIT : ~uint64_t{0};
  path->levels[level - 1].pageId = page->children[area.firstOffset + index];
  return true;
}

int endOfLeaves(BmPathSType* path) {
  path->atEnd = 1;
  return 0;
}

}  // namespace

unsigned long lookupInterior(PageCacheSType* pc, unsigned long rootId, int level, unsigned long bit,
                             BmPathSType* path) {
  return descendToLeaf(CachedAccess{pc}, rootId, level, bit, path);
}

unsigned long lookupInterior(unsigned long rootPage, int level, unsigned long bit, BmPathSType* path) {
  return descendToLeaf(HeapAccess{}, rootPage, level, bit, path);
}

void recordRootLeaf(BmPathSType* path, unsigned long ref) {
  path->levels[1].pageId = 0;
  path->levels[1].firstBit = 0;
  path->levels[1].limitBit = BM_END_BIT;
  path->levels[0].pageId = ref;
  path->levels[0].firstBit = 0;
  path->levels[0].limitBit = BM_END_BIT;
}

int findLeftLeaf(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path) {
  if (root->root == 0) return endOfLeaves(path);
  path->atEnd = 0;
  for (BmPathLevelSType& level : path->levels) level = {};
  path->levels[root->level].pageId = root->root;
  const TreeAccess pages(pc, *root);
  for (int level = root->level; level >= 1; --level) {
    if (!enterSlot(pages, level, 0, path)) return endOfLeaves(path);
  }
  path->levels[0].firstBit = path->levels[1].firstBit;
  path->levels[0].limitBit = ~uint64_t{0};
  path->valid = 1;
  path->depth = root->level;
  return 1;
}

int findNextLeaf(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path) {
  if (root->level == 0) return endOfLeaves(path);
  int level = 1;
  if (path->levels[1].index + 1 >= path->levels[1].numEntries) {
    path->levels[1].index = -1;
    level = 2;
    if (path->levels[2].index + 1 >= path->levels[2].numEntries) {
      path->levels[2].index = -1;
      return endOfLeaves(path);
    }
  }
  const TreeAccess pages(pc, *root);
  for (; level >= 1; --level) {
    if (!enterSlot(pages, level, path->levels[level].index + 1, path)) return endOfLeaves(path);
  }
  path->levels[0].index = 0;
  path->levels[0].firstBit = path->levels[1].firstBit;
  path->levels[0].limitBit = ~uint64_t{0};
  return 1;
}
