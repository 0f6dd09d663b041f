#include "pagememory.h"

#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <new>

#include "reposdisk.h"
#include "utl.h"

namespace {

constexpr uint64_t reservedBytes = uint64_t{64} << 30;
constexpr uint64_t hugePageBytes = uint64_t{2} << 20;

struct FreePage {
  FreePage* next;
};

// The reserved range: pages below `fresh` have been handed out before, and those that came back are listed.
struct PageRange {
  char* begin = nullptr;
  char* end = nullptr;
  char* fresh = nullptr;
  FreePage* freePages = nullptr;
  uint64_t inUse = 0;
};

PageRange range;

[[noreturn]] void giveUp(const char* what) {
  std::fprintf(stderr, "out of memory: %s\n", what);
  std::abort();  // the module takes memory to be there
}

void reserve() {
  void* memory = mmap(nullptr, reservedBytes + hugePageBytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) giveUp("no address range for heap pages");
  const auto address = reinterpret_cast<uint64_t>(memory);
  range.begin = static_cast<char*>(memory) + (hugePageBytes - address % hugePageBytes) % hugePageBytes;
  range.end = range.begin + reservedBytes;
  range.fresh = range.begin;
  madvise(range.begin, reservedBytes, MADV_HUGEPAGE);  // without it the pages are merely slower
}

void* takePage() {
  ++range.inUse;
  if (FreePage* page = range.freePages; page != nullptr) {
    range.freePages = page->next;
    return page;
  }
  if (range.begin == nullptr) reserve();
  if (range.fresh == range.end) giveUp("all heap pages are in use");
  void* page = range.fresh;
  range.fresh += BM_PAGE_SIZE;
  return page;
}

void* takeBlock(unsigned long size) {
  void* block = std::malloc(size);
  if (block == nullptr) giveUp("no memory for a buffer");
  return block;
}

}  // namespace

uint64_t heapPagesInUse() { return range.inUse; }

void* UtlMallocF(unsigned long size, int, int) { return size == BM_PAGE_SIZE ? takePage() : takeBlock(size); }

void* UtlMalloc(unsigned long size, const char*) { return takeBlock(size); }

void UtlFree(void* memory) {
  const char* address = static_cast<const char*>(memory);
  if (address < range.begin || address >= range.end) {
    std::free(memory);
    return;
  }
  --range.inUse;
  range.freePages = new (memory) FreePage{range.freePages};
}
