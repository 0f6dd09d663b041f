// The context that stands first in nearly every operation, and the page operations that the surrounding store
// provides. The host defines every operation declared here; it may derive its own context from PageCacheSType.
#pragma once

#include "reposdisk.h"
#include "shrpc.h"

struct OwnerStatsSType {
  int32_t numHeapBmPages;  // heap pages of the module now in being
};

struct OwnerSType {
  OwnerStatsSType* ownerStats;
};

// Filled by BmInitTreeRoots, except `owner`, which the host sets. Careful trees can be used once the host has
// pointed `carefulStamp` and `dirtyCarefulBm` at live objects and set `carefulActive`.
struct PageCacheSType {
  OwnerSType* owner;
  const unsigned char* bitCountTable;  // BitCountTable, for the owner of the page cache
  RepTreeRootSType invalidHeapTreeRoot;
  const RepTreeRootSType* invalidPageTreeRoot;
  const RepTreeRootSType* invalidSharedPageTreeRoot;
  const RepTreeRootSType* invalidCarefulTreeRoot;
  const DiskTreeRootSType* diskInvalidPageTreeRoot;
  const DiskTreeRootSType* diskInvalidSharedPageTreeRoot;
  const DiskTreeRootSType* diskInvalidCarefulTreeRoot;
  const DiskTreeRootSType* diskInvalidOtTreeRoot;
  uint64_t* carefulStamp;                   // the current stamp
  void* reservedCarefulSlot;                // zeroed at set-up, otherwise untouched
  RepTreeRootSType* dirtyCarefulBm;         // ids of the careful pages made under the current stamp
  uint64_t unitTestStamp;                   // storage for initForUnitTest
  RepTreeRootSType obsoleteCarefulBm;       // ids of older careful pages that were displaced or disposed
  RepTreeRootSType unitTestDirtyCarefulBm;  // storage for initForUnitTest
  int32_t carefulActive;                    // nonzero while careful tracking is on
  ShrPcStateSType shrPcState;

  // Sets up careful tracking on members of this object alone: stamp 1, both sets empty heap trees (tags 1887
  // for the obsolete ids, 1889 for the dirty ones). BmInitTreeRoots must have run. Defined by the module.
  void initForUnitTest();
};

// How a flushed page leaves the cache. The page cache gives the values a meaning; the module hands them on
// and itself uses only 0.
enum PageRemoveEType : int {};

// The page `pageId` in memory. `kind` is the RepPageKindEType it must have, or REP_ANY_PAGE; `mode` is -1 with
// a kind and 0 with REP_ANY_PAGE, or -1 just after a shadow. Returns null for id 0. The result stays valid
// until the next page operation, or while the page is pinned.
RepPageHdrSType* PageLocate(PageCacheSType* pc, unsigned long pageId, int kind, int mode);

// A new page of `kind` with pageKind and pageId set, and bytesUsed 16384 unless it is a bit list; null when
// none is to be had. `shared` is 1 for shared-page and careful trees.
RepPageHdrSType* PageLocateNewIn(PageCacheSType* pc, RepPageKindEType kind, int shared);

// Releases a page. Returns 0 if the page cache refuses.
int RepDisposeTempPage_(PageCacheSType* pc, unsigned long pageId);

// Between a pin and its unpin the page stays in memory at its address.
void PagePin(PageCacheSType* pc, RepPageHdrSType* page);
void PageUnpin(PageCacheSType* pc, RepPageHdrSType* page);

// Reports a page that is not of the required `kind`. Control may come back.
void PageReportHeaderFault(PageCacheSType* pc, RepPageKindEType kind, RepPageHdrSType* page, const char* file,
                           int line);

// Reports a page, known or not (`page` may be null), that breaks an invariant. Control may come back.
void PageReportCacheFault(PageCacheSType* pc, unsigned long pageId, const char* text, RepPageHdrSType* page,
                          const char* file, int line, ShrPcStateSType* state);

// Sends a page out of the cache to where its store keeps it.
void PageFlushRemotePage_(PageCacheSType* pc, unsigned long pageId, PageRemoveEType mode);
void PageFlushRemotePagePtr(PageCacheSType* pc, RepPageHdrSType* page);

// Takes a page out of this process's own cache.
void PageRemoveFromPrivateCache(PageCacheSType* pc, unsigned long pageId, int mode);
