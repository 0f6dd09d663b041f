// The pages that one reader or writer made for itself: changed pages of its trees and pages of temporary trees.
//
// As many as the memory limit allows stay in memory; the others stand in an unlinked file, each in the slot of its
// id, so that nothing needs to be remembered of a spilled page but one bit. A page that is pinned, or among the
// last `protectedLocates` that were located, is never spilled.
#pragma once

#include <array>
#include <memory>
#include <unordered_map>
#include <vector>

#include "pagestore.h"
#include "reposdisk.h"
#include "spillfile.h"

namespace bmtree {

// A page in memory.
struct PageFrame {
  uint64_t id = 0;       // 0: the frame is free
  uint64_t lastUse = 0;  // number of the locate that touched it last
  uint32_t pins = 0;
  bool changed = false;  // since it was last written to the spill file
  bool referenced = false;
  alignas(64) std::byte bytes[pageBytes];

  RepPageHdrSType* page() { return reinterpret_cast<RepPageHdrSType*>(bytes); }

  // The frame that `page` stands in; it must stand in one.
  static PageFrame* of(RepPageHdrSType* page) {
    return reinterpret_cast<PageFrame*>(reinterpret_cast<std::byte*>(page) - offsetof(PageFrame, bytes));
  }
};

class PrivatePages {
 public:
  static constexpr uint64_t protectedLocates = 256;
  static constexpr uint64_t leastMemory = uint64_t{16} << 20;

  // Ids are given from `firstId` on.
  PrivatePages(uint64_t firstId, uint64_t memoryLimit, SpillFile spill);

  // The id that the next page gets.
  uint64_t nextId() const { return nextId_; }

  // Bytes of the frames now in being.
  uint64_t memoryUsed() const { return frames_.size() * sizeof(PageFrame); }

  // A new page, all zero, with the next id. Throws `full`, `io` or std::bad_alloc.
  PageFrame* create();

  // The page `id`, or null if there is none; throws as create() does. It stays at its address while it is pinned
  // or protected.
  PageFrame* locate(uint64_t id) {
    PageFrame* frame = recent_[id % recent_.size()];
    if (frame == nullptr || frame->id != id) [[unlikely]] {
      frame = locateByMap(id);
      if (frame == nullptr) return nullptr;
      recent_[id % recent_.size()] = frame;
    }
    touch(*frame);
    return frame;
  }

  // Ends the page. False if there is no such page.
  bool dispose(uint64_t id) noexcept;

  // The bytes of page `id` without moving any page: those in memory, or a copy in `scratch`, which has room for
  // one page. Throws `damaged` if there is no such page.
  std::byte* peek(uint64_t id, std::byte* scratch);

 private:
  uint64_t slotOf(uint64_t id) const { return id - firstId_; }
  void touch(PageFrame& frame) {
    frame.lastUse = ++locates_;
    frame.referenced = true;
  }
  bool isSpilled(uint64_t id) const;
  void setSpilled(uint64_t id, bool spilled);
  PageFrame* locateByMap(uint64_t id);
  void makeResident(uint64_t id, PageFrame* frame);
  PageFrame* takeFrame();
  PageFrame* newFrame();
  PageFrame* evictable();
  void evict(PageFrame& frame);
  void release(PageFrame& frame) noexcept;

  const uint64_t firstId_;
  const size_t frameLimit_;
  SpillFile spill_;
  uint64_t nextId_;
  uint64_t locates_ = 0;
  size_t hand_ = 0;  // where the search for a page to spill goes on
  std::vector<std::unique_ptr<PageFrame>> frames_;
  std::vector<PageFrame*> free_;
  std::unordered_map<uint64_t, PageFrame*> resident_;
  std::vector<uint64_t> spilled_;  // one bit per slot
  std::array<PageFrame*, 1024> recent_{};
};

}  // namespace bmtree
