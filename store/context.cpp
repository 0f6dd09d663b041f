#include "context.h"

#include <cassert>
#include <cstring>
#include <new>
#include <utility>

#include "checksum.h"

namespace bmtree {
namespace {

constexpr int dirtyIdsTag = 7101;
constexpr int obsoleteIdsTag = 7102;
constexpr int verifiedIdsTag = 7103;
constexpr size_t keptFailures = 100;

bool countsFit(const RepPageHdrSType& page) {
  if (page.pageKind == REP_BIT_LIST_PAGE) {
    const auto& list = asListPage(&page)->contents;
    return list.count >= 0 && list.firstOffset >= 0 && list.count <= BM_BIT_LIST_CAPACITY &&
           list.firstOffset <= BM_BIT_LIST_CAPACITY - list.count;
  }
  if (page.pageKind == REP_BM_INTERNAL_PAGE) {
    const auto& keys = asInternalPage(&page)->keyArea;
    return keys.count > 0 && keys.firstOffset + keys.count <= BM_INT_CAPACITY;
  }
  return page.pageKind == REP_BM_LEAF_PAGE;
}

}  // namespace

const char* faultOfStoredPage(const RepPageHdrSType& page, uint64_t id) noexcept {
  if (pageChecksum(page) != storedChecksum(page)) return "its checksum is wrong";
  if (page.pageId != id) return "it is another page";
  if (page.bytesUsed < 32 || page.bytesUsed > BM_PAGE_SIZE || !countsFit(page)) return "its counts are impossible";
  return nullptr;
}

StoreContext::StoreContext(PageSnapshot& snapshot, uint64_t firstPrivateId, uint64_t stamp, PrivatePages pages)
    : PageCacheSType{},
      snapshot_(snapshot),
      firstPrivateId_(firstPrivateId),
      stamp_(stamp),
      pages_(std::move(pages)) {
  owner = &owner_;
  BmInitTreeRoots(this);
  BmInitHeapTree(&dirtyIds_, dirtyIdsTag, "dirtyIds");
  BmInitHeapTree(&obsoleteCarefulBm, obsoleteIdsTag, "obsoleteIds");
  BmInitHeapTree(&verifiedIds_, verifiedIdsTag, "verifiedIds");
  carefulStamp = &stamp_;
  dirtyCarefulBm = &dirtyIds_;
  carefulActive = 1;
  shrPcState.hostState = this;
}

StoreContext::~StoreContext() {
  BmDisposeTree(this, &dirtyIds_);
  BmDisposeTree(this, &obsoleteCarefulBm);
  BmDisposeTree(this, &verifiedIds_);
}

RepPageHdrSType* StoreContext::locate(uint64_t id, int kind) noexcept {
  if (id == 0) return nullptr;
  RepPageHdrSType* page = nullptr;
  if (id < firstPrivateId_) {
    page = locateStored(id);
  } else {
    try {
      PageFrame* frame = pages_.locate(id);
      if (frame != nullptr) {
        page = frame->page();
      } else {
        fail(StoreErrorCode::damaged, "a page is named that was never made", id);
      }
    } catch (...) {
      recordException(id);
    }
  }
  if (page == nullptr) return substitute(id, kind);
  if (kind != REP_ANY_PAGE && page->pageKind != kind) {
    fail(StoreErrorCode::damaged, "it is of kind " + std::to_string(page->pageKind), id);
    return substitute(id, kind);
  }
  return page;
}

RepPageHdrSType* StoreContext::locateStored(uint64_t id) noexcept {
  StoreErrorCode failure = StoreErrorCode::damaged;
  const std::byte* bytes = snapshot_.view(id, failure);
  if (bytes == nullptr) {
    fail(failure, failure == StoreErrorCode::damaged ? "it is missing" : "it cannot be read", id);
    return nullptr;
  }
  const auto* page = reinterpret_cast<const RepPageHdrSType*>(bytes);
  uint64_t& recent = recentlyVerified_[id % recentlyVerified_.size()];
  if (recent != id) [[unlikely]] {
    if (!checkStored(*page, id)) return nullptr;
    recent = id;
  }
  return const_cast<RepPageHdrSType*>(page);  // the module never writes a page of an older stamp
}

bool StoreContext::checkStored(const RepPageHdrSType& page, uint64_t id) noexcept {
  if (BmTestBit(this, &verifiedIds_, id) != 0) return true;
  if (const char* fault = faultOfStoredPage(page, id)) {
    fail(StoreErrorCode::damaged, fault, id);
    return false;
  }
  BmSetBit(this, &verifiedIds_, id);
  return true;
}

// An empty leaf, or an internal page whose only child is the page that could not be had: every walk that meets
// it stays on sound pages and ends.
RepPageHdrSType* StoreContext::substitute(uint64_t id, int kind) noexcept {
  const bool internal = kind == REP_BM_INTERNAL_PAGE;
  RepPageHdrSType* page = internal ? emptyInternal_->page() : emptyLeaf_->page();
  std::memset(page, 0, pageBytes);
  page->pageKind = internal ? REP_BM_INTERNAL_PAGE : REP_BIT_LIST_PAGE;
  page->pageId = id;
  page->bytesUsed = internal ? int16_t{BM_PAGE_SIZE} : int16_t{BM_LIST_HEAD_BYTES};
  if (internal) {
    asInternalPage(page)->keyArea.count = 1;
    asInternalPage(page)->children[0] = id;
  }
  return page;
}

bool StoreContext::isSubstitute(const RepPageHdrSType* page) const {
  return page == emptyLeaf_->page() || page == emptyInternal_->page();
}

RepPageHdrSType* StoreContext::makePage(RepPageKindEType kind) noexcept {
  try {
    PageFrame* frame = pages_.create();
    RepPageHdrSType* page = frame->page();
    page->pageKind = kind;
    page->pageId = frame->id;
    page->bytesUsed = kind == REP_BIT_LIST_PAGE ? int16_t{BM_LIST_HEAD_BYTES} : int16_t{BM_PAGE_SIZE};
    return page;
  } catch (...) {
    recordException(0);
    return nullptr;
  }
}

bool StoreContext::disposePage(uint64_t id) noexcept {
  if (id >= firstPrivateId_ && pages_.dispose(id)) return true;
  fail(StoreErrorCode::damaged, "it cannot be given back: it is not a page of this writer", id);
  return false;
}

void StoreContext::markChanged(RepPageHdrSType* page) noexcept {
  if (isSubstitute(page)) return;
  if (page->pageId < firstPrivateId_) {
    fail(StoreErrorCode::damaged, "it was to be changed in place", page->pageId);
    return;
  }
  PageFrame::of(page)->changed = true;
}

void StoreContext::pin(RepPageHdrSType* page) noexcept {
  if (isSubstitute(page)) return;
  if (page->pageId < firstPrivateId_) {
    snapshot_.hold(page->pageId);
  } else {
    ++PageFrame::of(page)->pins;
  }
}

void StoreContext::unpin(RepPageHdrSType* page) noexcept {
  if (isSubstitute(page)) return;
  if (page->pageId < firstPrivateId_) {
    snapshot_.release(page->pageId);
  } else {
    PageFrame* frame = PageFrame::of(page);
    if (frame->pins > 0) --frame->pins;
  }
}

void StoreContext::fail(StoreErrorCode code, const std::string& message, uint64_t pageId) noexcept {
  ++failureCount_;
  if (code == StoreErrorCode::damaged) ++damageCount_;
  if (failures_.size() >= keptFailures) return;
  try {
    failures_.emplace_back(code, pageId == 0 ? message : "page " + std::to_string(pageId) + ": " + message, pageId);
  } catch (const std::bad_alloc&) {
    assert(failureCount_ > 0);  // counted, and thrown as outOfMemory
  }
}

// Called in a handler: turns what is being handled into a failure.
void StoreContext::recordException(uint64_t id) noexcept {
  try {
    throw;
  } catch (const StoreError& error) {
    fail(error.code(), error.what(), id);
  } catch (const std::bad_alloc&) {
    fail(StoreErrorCode::outOfMemory, "out of memory", id);
  } catch (const std::exception& error) {
    fail(StoreErrorCode::io, error.what(), id);
  }
}

void StoreContext::throwFailure() {
  if (!failed()) return;
  const auto failures = takeFailures();
  if (failures.empty()) throw StoreError(StoreErrorCode::outOfMemory, "out of memory");
  throw failures.front();
}

void StoreContext::forgiveDamage() noexcept {
  if (damageCount_ == failureCount_) takeFailures();
}

std::vector<StoreError> StoreContext::takeFailures() noexcept {
  failureCount_ = 0;
  damageCount_ = 0;
  return std::exchange(failures_, {});
}

}  // namespace bmtree
