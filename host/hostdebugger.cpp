#include "hostdebugger.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "hostlayer.h"

namespace {

struct Debugger {
  HostDebuggerAction action = HostDebuggerAction::goOn;
  HostDebuggerFn function = nullptr;
  void* context = nullptr;
  unsigned long reports = 0;
};

std::mutex debuggerMutex;
Debugger debugger;

// Counts a report and returns what is to be done about it.
Debugger noteReport() {
  const std::lock_guard lock(debuggerMutex);
  ++debugger.reports;
  return debugger;
}

}  // namespace

int HostCallDebuggerMsg_fl(const char* text, const char* file, int line) {
  const Debugger now = noteReport();
  std::fprintf(stderr, "%s, %s line %d\n", text, file != nullptr ? file : "?", line);
  std::fflush(stderr);
  if (now.action == HostDebuggerAction::stop) std::abort();
  if (now.action == HostDebuggerAction::callBack && now.function != nullptr) {
    return now.function(now.context, text, file, line);
  }
  return 0;
}

void HostSetDebugger(HostDebuggerAction action, HostDebuggerFn function, void* context) {
  const std::lock_guard lock(debuggerMutex);
  debugger.action = action;
  debugger.function = function;
  debugger.context = context;
}

unsigned long HostDebuggerReports() {
  const std::lock_guard lock(debuggerMutex);
  return debugger.reports;
}
