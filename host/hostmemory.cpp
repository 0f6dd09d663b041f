#include "hostmemory.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <tuple>
#include <unordered_map>

#include "pageregions.h"
#include "utl.h"

namespace {

// An account is the index of a HostMemoryUse.
struct Books {
  std::mutex mutex;
  std::vector<HostMemoryUse> accounts;  // never shorter: pages and blocks carry their account
  std::unordered_map<int, uint32_t> tags;
  std::unordered_map<std::string, uint32_t> labels;
  uint32_t lastTag = 0;  // the account of a tag that was asked for last
  PageRegions pages;
};

// Never destroyed, as memory may be freed while the process ends.
Books& books() {
  static Books* const theBooks = new Books;
  return *theBooks;
}

uint32_t openAccount(bool isTag, int tag, const std::string& label) {
  books().accounts.push_back({isTag, tag, label, 0, 0});
  return static_cast<uint32_t>(books().accounts.size() - 1);
}

uint32_t findTag(int tag) {
  const auto [place, isNew] = books().tags.try_emplace(tag);
  if (isNew) place->second = openAccount(true, tag, "");
  return place->second;
}

// The account of a tag. A tree takes its pages in a row, so most often it is the one that was asked for before.
uint32_t accountOf(int tag) {
  Books& all = books();
  const bool isLast =
      all.lastTag < all.accounts.size() && all.accounts[all.lastTag].isTag && all.accounts[all.lastTag].tag == tag;
  if (!isLast) all.lastTag = findTag(tag);
  return all.lastTag;
}

uint32_t accountOf(const char* label) {
  const auto [place, isNew] = books().labels.try_emplace(label);
  if (isNew) place->second = openAccount(false, 0, label);
  return place->second;
}

void enter(uint32_t account, uint64_t bytes) {
  HostMemoryUse& use = books().accounts[account];
  ++use.blocks;
  use.bytes += bytes;
}

void strike(uint32_t account, uint64_t bytes) {
  HostMemoryUse& use = books().accounts[account];
  --use.blocks;
  use.bytes -= bytes;
}

[[noreturn]] void giveUp(unsigned long size, const char* label, int tag) {
  std::fprintf(stderr, "out of memory: %lu bytes for %s, tag %d\n", size, label, tag);
  std::abort();  // the module takes memory to be there
}

// ---------------------------------------------------------------------------------------------------------
// Pages

void* takePage(int tag) {
  const std::lock_guard lock(books().mutex);
  const uint32_t account = accountOf(tag);
  void* page = books().pages.take(account);
  if (page == nullptr) giveUp(BM_PAGE_SIZE, "a page", tag);
  enter(account, BM_PAGE_SIZE);
  return page;
}

void freePage(void* page) {
  const std::lock_guard lock(books().mutex);
  strike(books().pages.giveBack(page), BM_PAGE_SIZE);
}

// ---------------------------------------------------------------------------------------------------------
// Blocks

// Stands before every block. Heads are at multiples of 32 and blocks 16 bytes behind one, so no block has the address
// of a page.
struct alignas(16) BlockHead {
  uint64_t bytes;
  uint32_t account;
};
constexpr uint64_t headAlignment = 32;
static_assert(sizeof(BlockHead) == 16 && PageRegions::pageDistance % headAlignment == 0);

bool isPage(const void* memory) { return reinterpret_cast<uint64_t>(memory) % headAlignment == 0; }

// Null when the system has no memory.
BlockHead* newBlock(unsigned long size) {
  void* memory = nullptr;
  if (size > ~0UL - sizeof(BlockHead)) return nullptr;
  if (posix_memalign(&memory, headAlignment, sizeof(BlockHead) + size) != 0) return nullptr;
  return static_cast<BlockHead*>(memory);
}

void* takeBlock(unsigned long size, const char* label, int tag) {
  BlockHead* head = newBlock(size);
  if (head == nullptr) giveUp(size, label, tag);
  const std::lock_guard lock(books().mutex);
  const uint32_t account = label[0] == '\0' ? accountOf(tag) : accountOf(label);
  *head = {size, account};
  enter(account, size);
  return head + 1;
}

void freeBlock(void* block) {
  BlockHead* head = static_cast<BlockHead*>(block) - 1;
  {
    const std::lock_guard lock(books().mutex);
    strike(head->account, head->bytes);
  }
  std::free(head);
}

}  // namespace

void* UtlMallocF(unsigned long size, int tag, int) {
  return size == BM_PAGE_SIZE ? takePage(tag) : takeBlock(size, "", tag);
}

void* UtlMalloc(unsigned long size, const char* label) { return takeBlock(size, label, 0); }

void UtlFree(void* memory) {
  if (memory == nullptr) return;
  if (isPage(memory)) {
    freePage(memory);
  } else {
    freeBlock(memory);
  }
}

void HostKeepIdleMemory(uint64_t bytes) {
  const std::lock_guard lock(books().mutex);
  books().pages.keepIdle(bytes);
}

std::vector<HostMemoryUse> HostMemoryInUse() {
  std::vector<HostMemoryUse> inUse;
  {
    const std::lock_guard lock(books().mutex);
    std::copy_if(books().accounts.begin(), books().accounts.end(), std::back_inserter(inUse),
                 [](const HostMemoryUse& use) { return use.blocks != 0; });
  }
  std::sort(inUse.begin(), inUse.end(), [](const HostMemoryUse& a, const HostMemoryUse& b) {
    return std::tie(b.isTag, a.tag, a.label) < std::tie(a.isTag, b.tag, b.label);
  });
  return inUse;
}

int HostPrintMemoryInUse(std::FILE* out) {
  int lines = 0;
  for (const HostMemoryUse& use : HostMemoryInUse()) {
    const std::string name = use.isTag ? "tag " + std::to_string(use.tag) : use.label;
    std::fprintf(out, "%s: %lu block%s, %lu bytes\n", name.c_str(), use.blocks, use.blocks == 1 ? "" : "s",
                 use.bytes);
    ++lines;
  }
  std::fflush(out);
  return lines;
}
