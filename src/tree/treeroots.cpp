#include "tree/treeroots.h"

#include "tree/faults.h"

RepTreeRootSType unpackDiskRoot(const DiskTreeRootSType* disk) {
  RepTreeRootSType local;
  local.level = disk->level;
  if (disk->treeKind < 0) {
    local.root = reinterpret_cast<uint64_t>(disk);
    local.treeKind = BM_INLINE_LIST_TREE;
  } else {
    local.root = pageIdOf(*disk);
    local.treeKind = disk->treeKind;
  }
  return local;
}

void writeBackDiskRoot(const RepTreeRootSType& local, DiskTreeRootSType* disk) {
  if (local.treeKind > 0) {
    *disk = DiskTreeRootSType(local.root, local.treeKind);
    disk->level = local.level;
  } else if (local.treeKind == BM_HEAP_TREE) {
    UTL_GUARANTEE(local.root == 0, 1506);
    UTL_GUARANTEE(local.level == 0, 1507);
    *disk = DiskTreeRootSType(0, BM_PAGE_TREE);
  } else if (local.root == 0) {
    disk->pageIdLow = 0;
    disk->pageIdHigh = 0;
    disk->level = 0;
  } else {
    UTL_GUARANTEE(local.root == reinterpret_cast<uint64_t>(disk), 1519);
  }
}

RepBitListContentsSType* inlineListContents(const RepTreeRootSType& root) {
  if (!UTL_GUARANTEE(root.treeKind == BM_INLINE_LIST_TREE, "reposdisk", REPOSDISK_LINE_TREE_KIND)) return nullptr;
  if (root.root == 0) return nullptr;
  char* memory = reinterpret_cast<char*>(root.root);
  return reinterpret_cast<RepBitListContentsSType*>(memory + *reinterpret_cast<const uint32_t*>(memory));
}
