#include "memorypagestore.h"

#include <algorithm>
#include <cstring>

namespace bmtree::test {
namespace {

using Page = MemoryPageStore::Page;
using State = MemoryPageStore::State;

class Snapshot final : public PageSnapshot {
 public:
  explicit Snapshot(State& state) : state_(state) {
    const std::lock_guard lock(state.mutex);
    pages_ = state.pages;
    catalogue_ = state.catalogue;
  }

  const CatalogueImage& catalogue() const override { return catalogue_; }

  const std::byte* view(uint64_t id, StoreErrorCode& failure) noexcept override {
    ++state_.views;
    const auto held = held_.find(id);
    if (held != held_.end()) return held->second.copy.data();
    failure = state_.unreadable.contains(id) ? StoreErrorCode::io : StoreErrorCode::damaged;
    const auto found = pages_.find(id);
    if (found == pages_.end() || failure == StoreErrorCode::io) return nullptr;
    viewed_ = std::vector<std::byte>(*found->second);
    viewedId_ = id;
    return viewed_.data();
  }

  void hold(uint64_t id) noexcept override {
    if (!held_.contains(id)) {
      if (viewedId_ != id) std::abort();  // only the page that was viewed just before can be held
      held_[id].copy = std::move(viewed_);
      viewedId_ = 0;
    }
    ++held_[id].count;
  }

  void release(uint64_t id) noexcept override {
    const auto held = held_.find(id);
    if (held == held_.end()) std::abort();
    if (--held->second.count == 0) held_.erase(held);
  }

  uint64_t pageCount() const override { return pages_.size(); }

  void listPages(const std::function<void(std::span<const uint64_t>)>& visit) override {
    std::vector<uint64_t> ids;
    for (const auto& [id, page] : pages_) ids.push_back(id);
    if (!ids.empty()) visit(ids);
  }

 private:
  struct Held {
    std::vector<std::byte> copy;
    int count = 0;
  };

  State& state_;
  std::map<uint64_t, Page> pages_;
  CatalogueImage catalogue_;
  std::vector<std::byte> viewed_;
  uint64_t viewedId_ = 0;
  std::map<uint64_t, Held> held_;
};

class Writer final : public PageWriter {
 public:
  explicit Writer(State& state) : state_(state) {
    const std::lock_guard lock(state.mutex);
    if (state.hasWriter) throw StoreError(StoreErrorCode::writerActive, "the store has a writer already");
    state.hasWriter = true;
  }
  ~Writer() override {
    const std::lock_guard lock(state_.mutex);
    state_.hasWriter = false;
  }

  void dropPagesFrom(uint64_t firstId) override {
    const std::lock_guard lock(state_.mutex);
    state_.pages.erase(state_.pages.lower_bound(firstId), state_.pages.end());
  }

  void put(std::span<const PageImage> pages) override {
    const std::lock_guard lock(state_.mutex);
    state_.putsUnderWay = true;
    for (const PageImage& page : pages) {
      if (state_.putsUntilFailure == 0) throw StoreError(state_.failure, "putting a page failed");
      if (state_.putsUntilFailure > 0) --state_.putsUntilFailure;
      state_.pages[page.id] = std::make_shared<std::vector<std::byte>>(page.bytes, page.bytes + pageBytes);
    }
  }

  void cancelPuts() noexcept override { state_.putsUnderWay = false; }

  void swapCatalogue(uint64_t expected, const CatalogueImage& next, std::span<const uint64_t> obsolete) override {
    const std::lock_guard lock(state_.mutex);
    if (state_.swapFails) throw StoreError(state_.failure, "swapping the catalogue failed");
    if (state_.catalogue.version != expected) throw StoreError(StoreErrorCode::conflict, "the catalogue has changed");
    ++state_.swaps;
    state_.putsUnderWay = false;
    state_.catalogue = next;
    for (const uint64_t id : obsolete) state_.pages.erase(id);
  }

 private:
  State& state_;
};

}  // namespace

std::unique_ptr<PageSnapshot> MemoryPageStore::snapshot() { return std::make_unique<Snapshot>(state_); }
std::unique_ptr<PageWriter> MemoryPageStore::beginWrite() { return std::make_unique<Writer>(state_); }

}  // namespace bmtree::test
