#include "support/hostrecords.h"

namespace {

std::string escaped(const std::string& text) {
  std::string result;
  for (char c : text) {
    if (c == '\n') {
      result += "\\n";
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace

std::string Report::toString() const {
  const std::string place = file + ":" + std::to_string(line);
  const std::string page = "page " + std::to_string(pageId);
  const std::string otherKind = page + " is not of kind " + std::to_string(wantedKind);
  switch (kind) {
    case ReportKind::debugger:
      if (text == "UTL_GUARANTEE failed") return "guarantee " + place;
      return "debugger \"" + escaped(text) + "\" " + place;
    case ReportKind::headerFault: return "header fault: " + otherKind + ", " + place;
    case ReportKind::locateFault: return "locate fault: " + otherKind;
    case ReportKind::cacheFault: break;
  }
  return "cache fault: " + page + " \"" + escaped(text) + "\" " + place + (hasPage ? " with page" : "") +
         (hasState ? " with state" : "");
}

std::string Event::toString() const {
  const std::string id = std::to_string(page);
  const std::string a = std::to_string(first);
  const std::string b = std::to_string(second);
  switch (kind) {
    case EventKind::locate: return "locate " + id + " kind " + a + " mode " + b;
    case EventKind::newPage: return "new " + id + " kind " + a + " shared " + b;
    case EventKind::newPageRefused: return "new refused kind " + a + " shared " + b;
    case EventKind::dispose: return "dispose " + id;
    case EventKind::disposeRefused: return "dispose refused " + id;
    case EventKind::dirty: return "dirty " + id + " mode " + a;
    case EventKind::pin: return "pin " + id;
    case EventKind::unpin: return "unpin " + id;
    case EventKind::flush: return "flush " + id + " mode " + a;
    case EventKind::flushPage: return "flush page " + id;
    case EventKind::removeFromCache: return "remove " + id + " mode " + a;
    case EventKind::clearLocked: return "clear locked page";
    case EventKind::heapAlloc: return "heap alloc tag " + a;
    case EventKind::heapFree: return "heap free tag " + a;
    case EventKind::bufferAlloc: return "buffer alloc " + a;
    case EventKind::bufferFree: return "buffer free " + a;
    case EventKind::report: break;
  }
  return "report at line " + a;
}
