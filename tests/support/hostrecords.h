// What the test host writes down about the calls that it gets: reports of faults, and a log of page and memory
// events.
#pragma once

#include <cstdint>
#include <string>

enum class ReportKind : uint8_t {
  debugger,     // HostCallDebuggerMsg_fl
  headerFault,  // PageReportHeaderFault
  cacheFault,   // PageReportCacheFault
  locateFault,  // PageLocate found a page of another kind than it was asked for
};

struct Report {
  ReportKind kind = ReportKind::debugger;
  std::string text;
  std::string file;  // "null" for a null pointer
  int line = 0;
  uint64_t pageId = 0;    // header fault: the page's own id; otherwise as handed over
  bool hasPage = false;   // cache fault: the page was not null
  bool hasState = false;  // cache fault: the last argument was not null
  int wantedKind = 0;     // header and locate fault

  // One of, with newlines in the text written as \n:
  //   guarantee bitmap:1904
  //   debugger "text" file:line
  //   header fault: page 5 is not of kind 7, null:0
  //   cache fault: page 5 "text" bitmap:920            then " with page" and " with state" if they were not null
  //   locate fault: page 5 is not of kind 7
  std::string toString() const;
};

enum class EventKind : uint8_t {
  locate,           // page id; first: kind, second: mode
  newPage,          // page id; first: kind, second: shared
  newPageRefused,   // page 0; first: kind, second: shared
  dispose,          // page id
  disposeRefused,   // page id
  dirty,            // page id; first: mode
  pin,              // page id
  unpin,            // page id
  flush,            // page id; first: mode (PageFlushRemotePage_)
  flushPage,        // page id (PageFlushRemotePagePtr)
  removeFromCache,  // page id; first: mode (PageRemoveFromPrivateCache)
  clearLocked,      // (ShrPcClearLockedPage)
  heapAlloc,        // address; first: tag
  heapFree,         // address; first: tag
  bufferAlloc,      // address; first: bytes
  bufferFree,       // address; first: bytes
  report,           // page of the report; first: line
};
constexpr int eventKinds = 17;

struct Event {
  EventKind kind = EventKind::locate;
  uint64_t page = 0;
  int first = 0;
  int second = 0;

  friend bool operator==(const Event&, const Event&) = default;

  // "locate 5 kind 7 mode -1", "new 6 kind 12 shared 1", "dirty 6 mode 3", "dispose 5", "heap alloc tag 17", ...;
  // addresses are left out.
  std::string toString() const;
};
