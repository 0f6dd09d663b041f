#include "support/testhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

thread_local TestHost* currentHost = nullptr;

constexpr unsigned char cacheByte = 0xC7;                                        // in bytes the cache owns
constexpr int cacheBytes[] = {1, 2, 3, 16, 17, 18, 19, 20, 21, 22, 23, 26, 27};  // of the header
constexpr uint64_t garbageStamp = 0xA5A5A5A5A5A5A5A5;

RepPageHdrSType* asPage(unsigned char* bytes) { return reinterpret_cast<RepPageHdrSType*>(bytes); }

}  // namespace

TestHost::TestHost() : PageCacheSType{}, previous_(currentHost) {
  owner = &ownerStorage_;
  shrPcState.hostState = this;
  currentHost = this;
  BmInitTreeRoots(this);
  initForUnitTest();
  carefulStamp = &stamp_;
}

TestHost::~TestHost() {
  for (const Report& left : reports_) ADD_FAILURE() << "unexpected report: " << left.toString();
  if (pinsHeld_ != 0) ADD_FAILURE() << pinsHeld_ << " pins are still held";
  for (const auto& [address, tag] : heap_) std::free(reinterpret_cast<void*>(address));
  for (const auto& [memory, record] : buffers_) std::free(memory);
  if (!tempDirectory_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(tempDirectory_, ignored);
  }
  currentHost = previous_;
}

TestHost* TestHost::current() { return currentHost; }

TestHost& TestHost::of(PageCacheSType* pc) { return *static_cast<TestHost*>(pc); }

// ---------------------------------------------------------------------------------------------------------
// Pages

std::vector<uint64_t> TestHost::livePages() const {
  std::vector<uint64_t> ids;
  ids.reserve(pages_.size());
  for (const auto& [id, record] : pages_) ids.push_back(id);
  std::sort(ids.begin(), ids.end());
  return ids;
}

unsigned char* TestHost::bytes(uint64_t id) {
  const auto found = pages_.find(id);
  if (found == pages_.end()) {
    ADD_FAILURE() << "page " << id << " is not in the cache";
    std::abort();
  }
  makeReadable(found->second, false);
  return found->second.bytes;
}

unsigned char* TestHost::bytes(const RepTreeRootSType& root, uint64_t ref) {
  return root.treeKind == BM_HEAP_TREE ? reinterpret_cast<unsigned char*>(ref) : bytes(ref);
}

bool TestHost::pageIsCareful(uint64_t id) { return carefulStampOf(*page(id)) != garbageStamp; }

uint64_t TestHost::addPage(unsigned char* block, uint64_t stampAtBirth) {
  const uint64_t id = nextId_++;
  pages_.emplace(id, PageRecord{block, stampAtBirth, 0, false, nullptr});
  idByAddress_.emplace(block, id);
  std::memcpy(block + 8, &id, sizeof id);
  fillCacheBytes(block);
  return id;
}

uint64_t TestHost::placeCachedPage(const PageBytes& image, uint64_t stampAtBirth) {
  unsigned char* block = arena_.take();
  std::memcpy(block, image.data(), image.size());
  const uint64_t id = addPage(block, stampAtBirth);
  if (watchDirty_) copyMarked(pages_.at(id));
  return id;
}

uint64_t TestHost::placeHeapPage(const PageBytes& image, int tag) {
  auto* block = static_cast<unsigned char*>(std::malloc(BM_PAGE_SIZE));
  const auto address = reinterpret_cast<uint64_t>(block);
  std::memcpy(block, image.data(), image.size());
  for (int at : cacheBytes) block[at] = 0;
  block[1] = 3;
  std::memcpy(block + 8, &address, sizeof address);
  heap_.emplace(address, tag);
  ++stats_.numHeapBmPages;
  return address;
}

void TestHost::releasePage(uint64_t id) {
  const auto found = pages_.find(id);
  if (found == pages_.end()) {
    ADD_FAILURE() << "page " << id << ", which is to be released, is not in the cache";
    return;
  }
  makeReadable(found->second, false);
  checkCacheBytes(id, found->second.bytes);
  if (found->second.pins != 0) ADD_FAILURE() << "page " << id << " is released while it is pinned";
  pinsHeld_ -= found->second.pins;
  idByAddress_.erase(found->second.bytes);
  arena_.retire(found->second.bytes);
  std::erase(recent_, id);
  pages_.erase(found);
}

void TestHost::fillCacheBytes(unsigned char* bytes) const {
  for (int at : cacheBytes) bytes[at] = cacheByte;
}

void TestHost::checkCacheBytes(uint64_t id, const unsigned char* bytes) const {
  for (int at : cacheBytes) {
    if (bytes[at] != cacheByte) ADD_FAILURE() << "byte " << at << " of page " << id << " belongs to the cache";
  }
}

// Finds the page for an operation that was handed its address.
uint64_t TestHost::idAt(const RepPageHdrSType* page, const char* operation) {
  const auto found = idByAddress_.find(page);
  if (found != idByAddress_.end() && !pages_.at(found->second).sealed) return found->second;
  const bool heapPage = heap_.count(reinterpret_cast<uint64_t>(page)) != 0;
  ADD_FAILURE() << operation << " of an address that is " << (heapPage ? "a heap page" : "no page of the cache now");
  return 0;
}

// Counts `id` as located last, and hides what has fallen out of the pages that may still be used.
void TestHost::noteUse(uint64_t id) {
  if (keepRecent_ == 0) return;
  std::erase(recent_, id);
  recent_.push_back(id);
  while (recent_.size() > keepRecent_) {
    const uint64_t oldest = recent_.front();
    recent_.erase(recent_.begin());
    PageRecord& record = pages_.at(oldest);
    if (record.pins != 0 || record.sealed) continue;
    arena_.seal(record.bytes);
    record.sealed = true;
  }
}

void TestHost::makeReadable(PageRecord& record, bool move) {
  if (!record.sealed) return;
  arena_.unseal(record.bytes);
  record.sealed = false;
  if (!move) return;
  unsigned char* block = arena_.take();
  std::memcpy(block, record.bytes, BM_PAGE_SIZE);
  const auto entry = idByAddress_.extract(record.bytes);
  idByAddress_.emplace(block, entry.mapped());
  arena_.retire(record.bytes);
  record.bytes = block;
}

RepPageHdrSType* TestHost::locate(uint64_t id, int kind, int mode) {
  log(EventKind::locate, id, kind, mode);
  if (mode != (kind == REP_ANY_PAGE ? 0 : -1)) ADD_FAILURE() << "locate with kind " << kind << " and mode " << mode;
  const auto found = pages_.find(id);
  if (found == pages_.end()) {
    if (id != 0 && !tolerateUnknown_) ADD_FAILURE() << "locate of page " << id << ", which is not in the cache";
    return nullptr;
  }
  makeReadable(found->second, true);
  noteUse(id);
  RepPageHdrSType* page = asPage(found->second.bytes);
  if (kind != REP_ANY_PAGE && page->pageKind != kind) {
    report(
        {.kind = ReportKind::locateFault, .text = {}, .file = {}, .pageId = id, .hasPage = true, .wantedKind = kind});
  }
  return page;
}

RepPageHdrSType* TestHost::locateNew(RepPageKindEType kind, int shared) {
  if (budget_ == 0) {
    log(EventKind::newPageRefused, 0, kind, shared);
    return nullptr;
  }
  if (budget_ > 0) --budget_;
  unsigned char* block = arena_.take();
  const uint64_t id = addPage(block, *carefulStamp);
  log(EventKind::newPage, id, kind, shared);
  RepPageHdrSType* page = asPage(block);
  page->pageKind = kind;
  if (kind != REP_BIT_LIST_PAGE) page->bytesUsed = BM_PAGE_SIZE;
  if (watchDirty_) copyMarked(pages_.at(id));
  noteUse(id);
  return page;
}

int TestHost::dispose(uint64_t id) {
  if (undisposable_.count(id) != 0) {
    log(EventKind::disposeRefused, id);
    return 0;
  }
  log(EventKind::dispose, id);
  const bool known = pageIsLive(id);
  releasePage(id);
  return known ? 1 : 0;
}

void TestHost::markDirty(RepPageHdrSType* page, int mode) {
  const uint64_t id = idAt(page, "dirty mark");
  log(EventKind::dirty, id, mode);
  if (mode != 3) ADD_FAILURE() << "dirty mark with mode " << mode;
  if (id == 0) return;
  PageRecord& record = pages_.at(id);
  checkCacheBytes(id, record.bytes);
  if (watchDirty_) copyMarked(record);
}

void TestHost::pin(RepPageHdrSType* page) {
  const uint64_t id = idAt(page, "pin");
  log(EventKind::pin, id);
  if (id == 0) return;
  ++pages_.at(id).pins;
  ++pinsHeld_;
}

void TestHost::unpin(RepPageHdrSType* page) {
  const uint64_t id = idAt(page, "unpin");
  log(EventKind::unpin, id);
  if (id == 0) return;
  if (pages_.at(id).pins == 0) {
    ADD_FAILURE() << "unpin of page " << id << ", which is not pinned";
    return;
  }
  --pages_.at(id).pins;
  --pinsHeld_;
  noteUse(id);
}

void TestHost::flush(uint64_t id, int mode) {
  log(EventKind::flush, id, mode);
  if (!pageIsLive(id) && !tolerateUnknown_) ADD_FAILURE() << "flush of page " << id << ", which is not in the cache";
}

void TestHost::flushPage(RepPageHdrSType* page) { log(EventKind::flushPage, idAt(page, "flush")); }

void TestHost::removeFromCache(uint64_t id, int mode) {
  log(EventKind::removeFromCache, id, mode);
  if (!pageIsLive(id) && !tolerateUnknown_)
    ADD_FAILURE() << "removal of page " << id << ", which is not in the cache";
}

void TestHost::watchDirtyMarks() {
  watchDirty_ = true;
  for (auto& [id, record] : pages_) {
    makeReadable(record, false);
    copyMarked(record);
  }
}

void TestHost::copyMarked(PageRecord& record) {
  if (record.lastMarked == nullptr) record.lastMarked = std::make_unique<PageBytes>();
  std::memcpy(record.lastMarked->data(), record.bytes, BM_PAGE_SIZE);
}

void TestHost::expectChangesMarked() {
  for (const uint64_t id : livePages()) {
    PageRecord& record = pages_.at(id);
    makeReadable(record, false);
    if (record.lastMarked == nullptr) continue;
    if (std::memcmp(record.lastMarked->data(), record.bytes, BM_PAGE_SIZE) != 0) {
      ADD_FAILURE() << "page " << id << " was changed without a dirty mark after the change";
    }
  }
}

// ---------------------------------------------------------------------------------------------------------
// Records

void TestHost::log(EventKind kind, uint64_t page, long first, long second) {
  ++counters_[static_cast<size_t>(kind)];
  if (logging_) events_.push_back({kind, page, static_cast<int>(first), static_cast<int>(second)});
}

std::vector<std::string> TestHost::takeEvents(std::initializer_list<EventKind> kinds) {
  std::vector<std::string> lines;
  for (const Event& event : events_) {
    const bool wanted = kinds.size() == 0 || std::find(kinds.begin(), kinds.end(), event.kind) != kinds.end();
    if (wanted) lines.push_back(event.toString());
  }
  events_.clear();
  return lines;
}

int TestHost::countLogged(EventKind kind, uint64_t page) const {
  return static_cast<int>(std::count_if(
      events_.begin(), events_.end(), [&](const Event& event) { return event.kind == kind && event.page == page; }));
}

void TestHost::report(Report report) {
  log(EventKind::report, report.pageId, report.line);
  reports_.push_back(report);
  if (onReport) onReport(report);
}

void TestHost::expectReports(const std::vector<std::string>& expected) {
  std::vector<std::string> actual;
  for (const Report& taken : takeReports()) actual.push_back(taken.toString());
  EXPECT_EQ(actual, expected);
}

// ---------------------------------------------------------------------------------------------------------
// Memory

void* TestHost::allocateHeapPage(unsigned long size, int tag, int flags) {
  if (flags != 0 || size != BM_PAGE_SIZE) ADD_FAILURE() << "heap page of " << size << " bytes, flags " << flags;
  void* memory = std::malloc(size);
  std::memset(memory, 0xA5, size);
  heap_.emplace(reinterpret_cast<uint64_t>(memory), tag);
  log(EventKind::heapAlloc, reinterpret_cast<uint64_t>(memory), tag);
  return memory;
}

void* TestHost::allocateBuffer(unsigned long size, const char* label) {
  void* memory = std::malloc(size);
  std::memset(memory, 0xA5, size);
  buffers_.emplace(memory, BufferRecord{label, size});
  bufferHistory_.push_back({label, size});
  log(EventKind::bufferAlloc, reinterpret_cast<uint64_t>(memory), static_cast<long>(size));
  return memory;
}

void TestHost::free(void* memory) {
  const auto address = reinterpret_cast<uint64_t>(memory);
  if (const auto page = heap_.find(address); page != heap_.end()) {
    log(EventKind::heapFree, address, page->second);
    heap_.erase(page);
  } else if (const auto buffer = buffers_.find(memory); buffer != buffers_.end()) {
    log(EventKind::bufferFree, address, static_cast<long>(buffer->second.bytes));
    buffers_.erase(buffer);
  } else {
    ADD_FAILURE() << "free of memory that is not in use";
    return;
  }
  std::free(memory);
}

void TestHost::expectNothingLeft() {
  EXPECT_EQ(livePages(), std::vector<uint64_t>{}) << "pages are left in the cache";
  EXPECT_EQ(heap_.size(), 0u) << "heap pages are left";
  EXPECT_EQ(stats_.numHeapBmPages, 0);
  EXPECT_EQ(buffers_.size(), 0u) << "working buffers are left";
  EXPECT_EQ(pinsHeld_, 0) << "pins are left";
  expectReports({});
}
