#include "hostmemory.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "utl.h"

namespace {

struct Account {
  uint64_t blocks = 0;
  uint64_t bytes = 0;
};

// The label is empty in the accounts of tags, which come first.
using AccountKey = std::pair<std::string, int>;

struct Books {
  std::mutex mutex;
  std::map<AccountKey, Account> accounts;  // never erased from: blocks point at their account
};

// Never destroyed, as memory may be freed while the process ends.
Books& books() {
  static Books* const theBooks = new Books;
  return *theBooks;
}

// Stands before every block.
struct alignas(16) BlockHead {
  Account* account;
  uint64_t bytes;
};

void* takeBlock(unsigned long size, AccountKey key) {
  auto* head =
      static_cast<BlockHead*>(size > ~0UL - sizeof(BlockHead) ? nullptr : std::malloc(sizeof(BlockHead) + size));
  if (head == nullptr) {
    std::fprintf(stderr, "out of memory: %lu bytes for %s, tag %d\n", size, key.first.c_str(), key.second);
    std::abort();  // the module takes memory to be there
  }
  const std::lock_guard lock(books().mutex);
  Account& account = books().accounts[std::move(key)];
  ++account.blocks;
  account.bytes += size;
  *head = {&account, size};
  return head + 1;
}

}  // namespace

void* UtlMallocF(unsigned long size, int tag, int) { return takeBlock(size, {"", tag}); }

void* UtlMalloc(unsigned long size, const char* label) { return takeBlock(size, {label, 0}); }

void UtlFree(void* memory) {
  if (memory == nullptr) return;
  BlockHead* head = static_cast<BlockHead*>(memory) - 1;
  {
    const std::lock_guard lock(books().mutex);
    --head->account->blocks;
    head->account->bytes -= head->bytes;
  }
  std::free(head);
}

std::vector<HostMemoryUse> HostMemoryInUse() {
  std::vector<HostMemoryUse> use;
  const std::lock_guard lock(books().mutex);
  for (const auto& [key, account] : books().accounts) {
    if (account.blocks == 0) continue;
    use.push_back({key.first.empty(), key.second, key.first, account.blocks, account.bytes});
  }
  return use;
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
