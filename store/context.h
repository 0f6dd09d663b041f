// The context of one reader or writer, and behind it the page cache that the module works through: pages of the
// snapshot, read where they stand and checked when first met, and private pages in memory or spilled.
//
// A page that cannot be had, or is not what it must be, is recorded as a failure, and an empty page is given in
// its stead that the module can walk safely: whoever called the module throws afterwards.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "bitmap.h"
#include "privatepages.h"

namespace bmtree {

class StoreContext : public PageCacheSType {
 public:
  // Pages below `firstPrivateId` are those of `snapshot`, which outlives this. Careful trees are written under
  // `stamp`, which is above the stamps of all stored pages.
  StoreContext(PageSnapshot& snapshot, uint64_t firstPrivateId, uint64_t stamp, PrivatePages pages);
  StoreContext(const StoreContext&) = delete;
  StoreContext& operator=(const StoreContext&) = delete;
  ~StoreContext();

  // The page `id`, of kind `kind` unless that is REP_ANY_PAGE; null for id 0. Valid until the next locate, or
  // while it is pinned. Pages of the snapshot must not be written.
  RepPageHdrSType* locate(uint64_t id, int kind) noexcept;

  // A new page, or null after a recorded failure.
  RepPageHdrSType* makePage(RepPageKindEType kind) noexcept;
  bool disposePage(uint64_t id) noexcept;
  void markChanged(RepPageHdrSType* page) noexcept;
  void pin(RepPageHdrSType* page) noexcept;
  void unpin(RepPageHdrSType* page) noexcept;

  // Records a failure. Only the first hundred are kept.
  void fail(StoreErrorCode code, const std::string& message, uint64_t pageId = 0) noexcept;
  bool failed() const { return failureCount_ > 0; }
  // Ends with the first failure thrown, if there was one, and none recorded.
  void throwFailure();
  // Forgets the recorded failures if all of them are `damaged`.
  void forgiveDamage() noexcept;
  // The recorded failures, which are forgotten.
  std::vector<StoreError> takeFailures() noexcept;

  PrivatePages& privatePages() { return pages_; }
  uint64_t stamp() const { return stamp_; }
  uint64_t firstPrivateId() const { return firstPrivateId_; }
  // Ids of the careful pages that were made, and of stored ones that were given up.
  const RepTreeRootSType& newPageIds() const { return dirtyIds_; }
  const RepTreeRootSType& obsoletePageIds() const { return obsoleteCarefulBm; }

 private:
  RepPageHdrSType* locateStored(uint64_t id) noexcept;
  bool checkStored(const RepPageHdrSType& page, uint64_t id) noexcept;
  RepPageHdrSType* substitute(uint64_t id, int kind) noexcept;
  bool isSubstitute(const RepPageHdrSType* page) const;
  void recordException(uint64_t id) noexcept;

  PageSnapshot& snapshot_;
  const uint64_t firstPrivateId_;
  uint64_t stamp_;
  PrivatePages pages_;
  OwnerStatsSType ownerStats_{};
  OwnerSType owner_{&ownerStats_};
  RepTreeRootSType dirtyIds_;
  RepTreeRootSType verifiedIds_;                   // stored pages whose checksum was right, a heap tree
  std::array<uint64_t, 4096> recentlyVerified_{};  // the same for a few, by id modulo size
  std::unique_ptr<PageFrame> emptyLeaf_ = std::make_unique<PageFrame>();
  std::unique_ptr<PageFrame> emptyInternal_ = std::make_unique<PageFrame>();
  std::vector<StoreError> failures_;
  uint64_t failureCount_ = 0;
  uint64_t damageCount_ = 0;  // of these, the `damaged` ones
};

// Why `page` cannot be stored page `id` as the store wrote it, or null if it can: checksum, id, kind, and counts
// that stay inside the page.
const char* faultOfStoredPage(const RepPageHdrSType& page, uint64_t id) noexcept;

}  // namespace bmtree
