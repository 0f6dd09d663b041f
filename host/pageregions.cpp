#include "pageregions.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__)
#define HOST_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HOST_ADDRESS_SANITIZER
#endif
#endif
#ifdef HOST_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace {

constexpr uint64_t regionBytes = PageRegions::regionBytes;
constexpr uint64_t pageDistance = PageRegions::pageDistance;
constexpr uint32_t slotCount = regionBytes / pageDistance;
constexpr uint32_t noSlot = 0;  // that of the region's own page
constexpr uint32_t freedMark = PageRegions::accountLimit;

uint64_t addressOf(const void* memory) { return reinterpret_cast<uint64_t>(memory); }

// Free pages are out of bounds for the address sanitizer.
void forbid([[maybe_unused]] const void* memory, [[maybe_unused]] uint64_t bytes) {
#ifdef HOST_ADDRESS_SANITIZER
  __asan_poison_memory_region(memory, bytes);
#endif
}
void allow([[maybe_unused]] const void* memory, [[maybe_unused]] uint64_t bytes) {
#ifdef HOST_ADDRESS_SANITIZER
  __asan_unpoison_memory_region(memory, bytes);
#endif
}

// Address space of a region at a multiple of its size, or null.
char* reserveRegion() {
  void* memory =
      mmap(nullptr, 2 * regionBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  auto* begin = static_cast<char*>(memory);
  char* region = begin + (regionBytes - addressOf(begin) % regionBytes);
  munmap(begin, static_cast<uint64_t>(region - begin));
  if (const auto left = static_cast<uint64_t>(begin + regionBytes - region); left != 0) {
    munmap(region + regionBytes, left);
  }
  madvise(region, regionBytes, MADV_HUGEPAGE);  // without it the pages are merely slower
  return region;
}

}  // namespace

// Stands at the start of its memory.
struct PageRegions::Region : Links {
  uint32_t inUse;             // pages
  uint32_t fresh;             // the first slot that never was in use
  uint32_t freed;             // the slot that came back last
  uint32_t slots[slotCount];  // of a page in use its account; of a freed one freedMark and the slot freed before it
};

PageRegions::PageRegions() { static_assert(sizeof(Region) <= pageDistance); }

PageRegions::~PageRegions() {
  while (list_.behind != &list_) release(list_.behind);
}

void* PageRegions::take(uint32_t account) {
  auto* front = static_cast<Region*>(list_.behind);
  if (list_.behind != &list_ && front->freed != noSlot) return takeFreed(front, account);
  if ((newest_ == nullptr || newest_->fresh == slotCount) && !addRegion()) return nullptr;
  if (newest_->inUse == 0) --idle_;
  return handOut(newest_, newest_->fresh++, account);
}

uint32_t PageRegions::giveBack(void* page) {
  Region* region = regionOf(page);
  const auto slot = static_cast<uint32_t>(addressOf(page) % regionBytes / pageDistance);
  const uint32_t account = region->slots[slot];
  if ((account & freedMark) != 0) [[unlikely]] {
    std::fprintf(stderr, "heap page %p is given back but not in use\n", page);
    std::abort();
  }
  region->slots[slot] = freedMark | region->freed;
  region->freed = slot;
  forbid(page, BM_PAGE_SIZE);
  if (list_.behind != region) {
    unlink(region);
    link(region, &list_, list_.behind);
  }
  if (--region->inUse == 0) {
    ++idle_;
    releaseIdle();
  }
  return account;
}

void PageRegions::keepIdle(uint64_t bytes) {
  keptIdle_ = bytes / regionBytes;
  releaseIdle();
}

void PageRegions::unlink(Links* region) {
  region->before->behind = region->behind;
  region->behind->before = region->before;
}

void PageRegions::link(Links* region, Links* before, Links* behind) {
  *region = {before, behind};
  before->behind = region;
  behind->before = region;
}

PageRegions::Region* PageRegions::regionOf(void* page) {
  return reinterpret_cast<Region*>(static_cast<char*>(page) - addressOf(page) % regionBytes);
}

void* PageRegions::handOut(Region* region, uint32_t slot, uint32_t account) {
  ++region->inUse;
  region->slots[slot] = account;
  void* page = reinterpret_cast<char*>(region) + uint64_t{slot} * pageDistance;
  allow(page, BM_PAGE_SIZE);
  return page;
}

void* PageRegions::takeFreed(Region* region, uint32_t account) {
  const uint32_t slot = region->freed;
  region->freed = region->slots[slot] & ~freedMark;
  if (region->inUse == 0) --idle_;
  if (region->freed == noSlot) {
    unlink(region);
    link(region, list_.before, &list_);
  }
  return handOut(region, slot, account);
}

bool PageRegions::addRegion() {
  char* memory = reserveRegion();
  if (memory == nullptr) return false;
  forbid(memory + sizeof(Region), regionBytes - sizeof(Region));
  newest_ = reinterpret_cast<Region*>(memory);
  newest_->inUse = 0;
  newest_->fresh = noSlot + 1;
  newest_->freed = noSlot;
  newest_->slots[noSlot] = freedMark;
  link(newest_, list_.before, &list_);
  ++regions_;
  ++idle_;
  return true;
}

void PageRegions::release(Links* region) {
  if (region == newest_) newest_ = nullptr;
  unlink(region);
  allow(region, regionBytes);
  munmap(region, regionBytes);
  --regions_;
}

// From the back, where the regions are that were not used for long.
void PageRegions::releaseIdle() {
  const uint64_t kept = std::max(keptIdle_, (regions_ - idle_) / 4);
  for (Links* at = list_.before; idle_ > kept;) {
    auto* region = static_cast<Region*>(at);
    at = at->before;
    if (region->inUse != 0) continue;
    release(region);
    --idle_;
  }
}
