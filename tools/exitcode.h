// How the program ends. docs/BMTREE.md lists the codes for its users.
#pragma once

#include <stdexcept>
#include <string>

#include "store_error.h"

namespace bmtree::tools {

enum ExitCode : int {
  exitDone = 0,      // done; the answer is yes
  exitNo = 1,        // the answer is no: a number is not there, a check found faults
  exitUsage = 2,     // the command line makes no sense
  exitBadInput = 3,  // input was refused; nothing was changed
  exitMissing = 4,   // a store, a tree or a file is not there
  exitInTheWay = 5,  // something is there already, or somebody else is at work
  exitDamaged = 6,   // the store is damaged, of a newer format, or no store
  exitSystem = 7,    // the machine failed: input or output, room, memory
};

// A failure of a command: what to tell the user and how to end.
class ProgramError : public std::runtime_error {
 public:
  ProgramError(ExitCode exitCode, const std::string& message) : std::runtime_error(message), exitCode_(exitCode) {}

  ExitCode exitCode() const noexcept { return exitCode_; }

 private:
  ExitCode exitCode_;
};

// Throws a ProgramError for the system error `number`: "`what`: No such file or directory", with the code that fits.
[[noreturn]] void throwSystemFailure(int number, const std::string& what);

// The code with which the program ends after a failure of the store.
ExitCode exitCodeOf(StoreErrorCode code);

}  // namespace bmtree::tools
