#include "bminvalidroots.h"

#include "bitmap.h"
#include "utl.h"

namespace BmInvalidRoots {

int flag = 1;

namespace {

struct Storage {
  RepTreeRootSType heap, page, shared, careful;
  DiskTreeRootSType diskPage, diskShared, diskCareful, diskOt;
};
constinit Storage storage;

// An accessor may run before static construction has come to this file, so every way in builds on first use.
void buildOnce() {
  if (flag == 2) return;
  flag = 2;
  storage.heap = {0, BM_HEAP_TREE};
  storage.page = {0, BM_PAGE_TREE};
  storage.shared = {0, BM_SHARED_PAGE_TREE};
  storage.careful = {0, BM_CAREFUL_TREE};
  storage.diskPage = {0, BM_PAGE_TREE};
  storage.diskShared = {0, BM_SHARED_PAGE_TREE};
  storage.diskCareful = {0, BM_CAREFUL_TREE};
  storage.diskOt = {0, BM_PAGE_TREE};
}

[[maybe_unused]] const struct StaticBuilder {
  StaticBuilder() { buildOnce(); }
} staticBuilder;

}  // namespace

constinit const RepTreeRootSType& BmInvalidHeapTreeRoot = storage.heap;
constinit const RepTreeRootSType& BmInvalidPageTreeRoot = storage.page;
constinit const RepTreeRootSType& BmInvalidSharedPageTreeRoot = storage.shared;
constinit const RepTreeRootSType& BmInvalidCarefulTreeRoot = storage.careful;
constinit const DiskTreeRootSType& DiskInvalidPageTreeRoot = storage.diskPage;
constinit const DiskTreeRootSType& DiskInvalidSharedPageTreeRoot = storage.diskShared;
constinit const DiskTreeRootSType& DiskInvalidCarefulTreeRoot = storage.diskCareful;
constinit const DiskTreeRootSType& DiskInvalidOtTreeRoot = storage.diskOt;

}  // namespace BmInvalidRoots

const RepTreeRootSType* BmInvalidHeapTreeRoot() {
  BmInvalidRoots::buildOnce();
  return &BmInvalidRoots::BmInvalidHeapTreeRoot;
}

const DiskTreeRootSType* BmInvalidOtTreeRoot() {
  BmInvalidRoots::buildOnce();
  return &BmInvalidRoots::DiskInvalidOtTreeRoot;
}

void BmCheckTreeRoots() {
  BmInvalidRoots::buildOnce();
  UTL_GUARANTEE(pageIdOf(BmInvalidRoots::DiskInvalidOtTreeRoot) == 0, "bminvalidroots", 112);
}

void BmInitHeapTree(RepTreeRootSType* root, int tag, const char*) {
  *root = *BmInvalidHeapTreeRoot();
  root->allocTag = tag;
}

void BmInitTreeRoots(PageCacheSType* pc) {
  BmInvalidRoots::buildOnce();
  pc->invalidHeapTreeRoot = BmInvalidRoots::BmInvalidHeapTreeRoot;
  pc->invalidPageTreeRoot = &BmInvalidRoots::BmInvalidPageTreeRoot;
  pc->invalidSharedPageTreeRoot = &BmInvalidRoots::BmInvalidSharedPageTreeRoot;
  pc->invalidCarefulTreeRoot = &BmInvalidRoots::BmInvalidCarefulTreeRoot;
  pc->diskInvalidPageTreeRoot = &BmInvalidRoots::DiskInvalidPageTreeRoot;
  pc->diskInvalidSharedPageTreeRoot = &BmInvalidRoots::DiskInvalidSharedPageTreeRoot;
  pc->diskInvalidCarefulTreeRoot = &BmInvalidRoots::DiskInvalidCarefulTreeRoot;
  pc->diskInvalidOtTreeRoot = &BmInvalidRoots::DiskInvalidOtTreeRoot;
  pc->carefulStamp = nullptr;
  pc->reservedCarefulSlot = nullptr;
  pc->dirtyCarefulBm = nullptr;
  pc->unitTestStamp = 0;
  pc->carefulActive = 0;
  pc->obsoleteCarefulBm = BmInvalidRoots::BmInvalidHeapTreeRoot;
  pc->unitTestDirtyCarefulBm = BmInvalidRoots::BmInvalidHeapTreeRoot;
  pc->bitCountTable = BitCountTable;
}
