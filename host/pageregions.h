// Pages of 16 KiB for heap trees, out of regions of 32 MiB that are advised for 2 MiB pages.
//
// A region is address space that is aligned to its own size, so that the address of a page leads to its region. It is
// reserved when all others are full, and the system backs it with memory, 2 MiB at a time, as its pages are handed
// out for the first time. Its first page is its own and tells for every other one whose it is; nothing is kept in the
// pages themselves.
//
// Pages stand a cache line further apart than their size. At a distance of 16 KiB the heads of all pages, which
// nearly every operation reads, would compete for a handful of places in the caches.
//
// The page that came back last is the next to be handed out, and a page that was in use before comes before one that
// was not. A region without a page in use is idle. It returns to the system when more lies idle than is to be kept
// and more than a quarter of the regions in use; one page in use holds its whole region.
#pragma once

#include <cstdint>

#include "reposdisk.h"

// The caller keeps threads apart.
class PageRegions {
 public:
  static constexpr uint64_t regionBytes = uint64_t{32} << 20;
  static constexpr uint64_t pageDistance = BM_PAGE_SIZE + 64;
  static constexpr uint64_t pagesPerRegion = regionBytes / pageDistance - 1;
  static constexpr uint32_t accountLimit = uint32_t{1} << 31;

  PageRegions();
  // Returns everything to the system, pages in use as well.
  ~PageRegions();
  PageRegions(const PageRegions&) = delete;
  PageRegions& operator=(const PageRegions&) = delete;

  // A page at a multiple of 64, with bytes of any value, to be given back. `account`, below accountLimit, is kept
  // for it. Null when the system has no memory.
  void* take(uint32_t account);

  // Takes a page back and returns its account. Ends the program if `page` is not in use.
  uint32_t giveBack(void* page);

  // How much idle memory is kept at least, in bytes, rounded down to whole regions; 64 MiB at first.
  void keepIdle(uint64_t bytes);

  // Address space of all regions, in bytes.
  uint64_t reservedBytes() const { return regions_ * regionBytes; }

 private:
  struct Links {
    Links* before;
    Links* behind;
  };
  struct Region;

  static void unlink(Links* region);
  static void link(Links* region, Links* before, Links* behind);
  static Region* regionOf(void* page);
  static void* handOut(Region* region, uint32_t slot, uint32_t account);
  void* takeFreed(Region* region, uint32_t account);
  bool addRegion();
  void release(Links* region);
  void releaseIdle();

  Links list_{&list_, &list_};  // a ring of all regions, those with freed pages first, the last used at the front
  Region* newest_ = nullptr;    // the only one that may have pages that never were in use
  uint64_t regions_ = 0;
  uint64_t idle_ = 0;
  uint64_t keptIdle_ = 2;
};
