// A page store in memory that keeps to the letter of its interface and can be told to fail.
//
// A viewed page is a copy that is gone at the next view unless it is held, so that anyone who keeps a pointer for
// too long reads memory that was freed.
#pragma once

#include <map>
#include <mutex>
#include <set>

#include "pagestore.h"

namespace bmtree::test {

class MemoryPageStore final : public PageStore {
 public:
  using Page = std::shared_ptr<const std::vector<std::byte>>;

  // What a test sets, and what is shared with snapshots and the writer. Its owner outlives the store.
  struct State {
    std::mutex mutex;
    std::map<uint64_t, Page> pages;
    CatalogueImage catalogue{};
    bool hasWriter = false;
    bool putsUnderWay = false;  // pages were put and neither swapped in nor cancelled

    long putsUntilFailure = -1;  // pages that may be put before one fails; negative: all
    bool swapFails = false;
    std::set<uint64_t> unreadable;  // views of these pages fail
    StoreErrorCode failure = StoreErrorCode::full;
    uint64_t swaps = 0;
    uint64_t views = 0;
  };

  explicit MemoryPageStore(State& state) : state_(state) {}

  std::unique_ptr<PageSnapshot> snapshot() override;
  std::unique_ptr<PageWriter> beginWrite() override;
  PageStoreFigures figures() override { return {}; }

 private:
  State& state_;
};

}  // namespace bmtree::test
