// What happens when the bitmap module reports a broken invariant. The program chooses; at first a report is printed
// and the module goes on.
#pragma once

enum class HostDebuggerAction {
  goOn,      // print the report and go on
  stop,      // print the report and abort
  callBack,  // print the report and ask the program
};

// Gets a report; what it returns is handed to the module, which does not use it. It may end the process, but it must
// not throw: the module's code is in the middle of an operation. Runs on the reporting thread.
using HostDebuggerFn = int (*)(void* context, const char* text, const char* file, int line);

// Sets what happens from now on; `function` and `context` are for callBack. Any thread may report while this runs.
void HostSetDebugger(HostDebuggerAction action, HostDebuggerFn function = nullptr, void* context = nullptr);

// Reports since the program began.
unsigned long HostDebuggerReports();
