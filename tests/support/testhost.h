// The test host: a page cache, heap and host layer in one object that defines everything the module imports and
// watches that it is used as agreed.
//
// Page ids count up from 4 and are never reused. New pages hold garbage but for what a page cache promises. The
// header bytes that belong to the cache are filled with a pattern and must keep it. Released pages are unreadable.
// What the module does wrong (a dirty mark on a heap page, an unpin without a pin, a page located under the wrong
// mode, ...) fails the running test. Reports fail it too unless the test takes them.
//
// One host is current at a time, the one constructed last: imports without a context argument go to it.
#pragma once

#include <array>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bitmap.h"
#include "support/hostrecords.h"
#include "support/pagearena.h"

using PageBytes = std::array<unsigned char, BM_PAGE_SIZE>;

// The faults that the host's file operations are told to have. `failRead` 1 fails the next read, 2 the one after
// it; 0 fails none. The counters run down.
struct FileFaults {
  int failRead = 0;
  int failWrite = 0;
  int failOpen = 0;
  int code = 5;               // error code of the failure
  long bytesBeforeFault = 0;  // bytes that a failing read or write still moves
};

struct BufferRecord {
  std::string label;
  unsigned long bytes;
};

class TestHost : public PageCacheSType {
 public:
  // The stamp that careful trees start with; two steps below 2^32, so that tests cross into the high half.
  static constexpr uint64_t firstStamp = 0xFFFFFFFE;

  // Runs the module's set-up: roots, and careful tracking on this object with `firstStamp`.
  TestHost();
  // Fails the test if reports were not taken or pages are still pinned.
  ~TestHost();
  TestHost(const TestHost&) = delete;
  TestHost& operator=(const TestHost&) = delete;

  static TestHost* current();
  static TestHost& of(PageCacheSType* pc);

  // ---- Pages of the cache

  // The next `pages` calls for a new page succeed, those after it get none. -1: no limit.
  void setPageBudget(long pages) { budget_ = pages; }
  // Ids that the cache refuses to release, though they may be unknown.
  void refuseDisposal(uint64_t id) { undisposable_.insert(id); }
  // With `tolerate`, locating or flushing an unknown id is no failure; a locate gives null.
  void tolerateUnknownPages(bool tolerate) { tolerateUnknown_ = tolerate; }
  // From now on a page that is not pinned and not among the last `keep` located or new ones is unreadable, and
  // the next locate finds it at another address. 0 switches this off.
  void moveUnpinnedPages(size_t keep) { keepRecent_ = keep; }
  // Pins that wait for their unpin.
  long pinsHeld() const { return pinsHeld_; }

  bool pageIsLive(uint64_t id) const { return pages_.count(id) != 0; }
  std::vector<uint64_t> livePages() const;  // ascending
  uint64_t nextPageId() const { return nextId_; }
  // The stamp that was current when the page was made.
  uint64_t stampAtBirth(uint64_t id) const { return pages_.at(id).stampAtBirth; }
  // The bytes of a page of the cache; of a page of any tree.
  unsigned char* bytes(uint64_t id);
  unsigned char* bytes(const RepTreeRootSType& root, uint64_t ref);
  RepPageHdrSType* page(uint64_t id) { return reinterpret_cast<RepPageHdrSType*>(bytes(id)); }
  // Whether the page carries a careful stamp (a page of another kind of tree carries garbage there).
  bool pageIsCareful(uint64_t id);

  // Puts a page with these bytes into the cache, or on the module's heap under `tag`, as if the module had made
  // it, and sets its pageId and the bytes of its owner. Returns the reference. No event, no budget.
  uint64_t placeCachedPage(const PageBytes& image) { return placeCachedPage(image, *carefulStamp); }
  uint64_t placeCachedPage(const PageBytes& image, uint64_t stampAtBirth);
  uint64_t placeHeapPage(const PageBytes& image, int tag);
  // Releases a page of the cache for the owner of the pages (no event).
  void releasePage(uint64_t id);

  // Copies every page of the cache now and at each dirty mark; the check fails if a page then differs from its
  // copy, that is, was changed without a mark after the change.
  void watchDirtyMarks();
  void expectChangesMarked();

  // ---- Records

  // Switches the event log; counters run on. Long random tests switch it off.
  void logEvents(bool on) { logging_ = on; }
  bool logsEvents() const { return logging_; }
  const std::vector<Event>& events() const { return events_; }
  void clearEvents() { events_.clear(); }
  // The logged events of these kinds (none given: all), as text in order. Clears the log.
  std::vector<std::string> takeEvents(std::initializer_list<EventKind> kinds = {});
  // Calls of this kind since the host was made, or logged for this page.
  uint64_t count(EventKind kind) const { return counters_[static_cast<size_t>(kind)]; }
  int countLogged(EventKind kind, uint64_t page) const;

  const std::vector<Report>& reports() const { return reports_; }
  std::vector<Report> takeReports() { return std::exchange(reports_, {}); }
  // Takes the reports and expects exactly these, in this order (see Report::toString).
  void expectReports(const std::vector<std::string>& expected);
  // Called at each report, after it was recorded.
  std::function<void(const Report&)> onReport;

  // ---- Memory

  size_t heapPages() const { return heap_.size(); }
  int numHeapBmPages() const { return stats_.numHeapBmPages; }
  int heapTag(uint64_t address) const { return heap_.at(address); }
  const std::vector<BufferRecord>& bufferHistory() const { return bufferHistory_; }
  size_t buffersOutstanding() const { return buffers_.size(); }

  // Expects that no page, heap page, buffer, pin or report is left.
  void expectNothingLeft();

  // ---- Files

  FileFaults fileFaults;
  // A directory of this host's own, with a trailing slash; removed with all files in it at the end. A name handed to
  // HostExpandFileName that begins with "$TMP/" is expanded to a file there.
  const std::string& tempDirectory();
  std::string tempFileName();
  const std::vector<int>& removeLogCalls() const { return removeLogCalls_; }
  const std::vector<std::string>& openedFiles() const { return openedFiles_; }

  // ---- The imports, as members

  RepPageHdrSType* locate(uint64_t id, int kind, int mode);
  RepPageHdrSType* locateNew(RepPageKindEType kind, int shared);
  int dispose(uint64_t id);
  void markDirty(RepPageHdrSType* page, int mode);
  void pin(RepPageHdrSType* page);
  void unpin(RepPageHdrSType* page);
  void flush(uint64_t id, int mode);
  void flushPage(RepPageHdrSType* page);
  void removeFromCache(uint64_t id, int mode);
  void log(EventKind kind, uint64_t page = 0, long first = 0, long second = 0);
  void report(Report report);
  void* allocateHeapPage(unsigned long size, int tag, int flags);
  void* allocateBuffer(unsigned long size, const char* label);
  void free(void* memory);
  int open(const char* name, int flags, int mode);
  int readFile(int fd, char* buffer, long bytes, int* err);
  int writeFile(int fd, char* buffer, long bytes, int* err);
  void recordRemoveLog(int remove) { removeLogCalls_.push_back(remove); }

 private:
  struct PageRecord {
    unsigned char* bytes;
    uint64_t stampAtBirth;
    int pins;
    bool sealed;
    std::unique_ptr<PageBytes> lastMarked;
  };

  uint64_t addPage(unsigned char* block, uint64_t stampAtBirth);
  static void copyMarked(PageRecord& record);
  uint64_t idAt(const RepPageHdrSType* page, const char* operation);
  void fillCacheBytes(unsigned char* bytes) const;
  void checkCacheBytes(uint64_t id, const unsigned char* bytes) const;
  void noteUse(uint64_t id);
  void makeReadable(PageRecord& record, bool move);

  OwnerStatsSType stats_{};
  OwnerSType ownerStorage_{&stats_};
  uint64_t stamp_ = firstStamp;
  TestHost* previous_;

  PageArena arena_;
  std::unordered_map<uint64_t, PageRecord> pages_;
  std::unordered_map<const void*, uint64_t> idByAddress_;
  uint64_t nextId_ = 4;
  long budget_ = -1;
  std::set<uint64_t> undisposable_;
  bool tolerateUnknown_ = false;
  size_t keepRecent_ = 0;
  std::vector<uint64_t> recent_;  // latest last
  long pinsHeld_ = 0;
  bool watchDirty_ = false;

  bool logging_ = true;
  std::vector<Event> events_;
  std::array<uint64_t, eventKinds> counters_{};
  std::vector<Report> reports_;

  std::unordered_map<uint64_t, int> heap_;  // tag by address
  std::unordered_map<void*, BufferRecord> buffers_;
  std::vector<BufferRecord> bufferHistory_;

  std::string tempDirectory_;
  int tempFiles_ = 0;
  std::vector<int> removeLogCalls_;
  std::vector<std::string> openedFiles_;
};
