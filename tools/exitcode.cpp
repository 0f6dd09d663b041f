#include "exitcode.h"

#include <cerrno>
#include <system_error>

namespace bmtree::tools {

void throwSystemFailure(int number, const std::string& what) {
  const bool missing = number == ENOENT || number == ENOTDIR;
  const ExitCode code = missing ? exitMissing : number == EEXIST ? exitInTheWay : exitSystem;
  throw ProgramError(code, what + ": " + std::generic_category().message(number));
}

ExitCode exitCodeOf(StoreErrorCode code) {
  switch (code) {
    case StoreErrorCode::missingFile:
    case StoreErrorCode::noSuchTree: return exitMissing;
    case StoreErrorCode::foreignFile:
    case StoreErrorCode::newerFormat:
    case StoreErrorCode::damaged: return exitDamaged;
    case StoreErrorCode::readOnly:
    case StoreErrorCode::writerActive:
    case StoreErrorCode::alreadyOpen:
    case StoreErrorCode::fileExists:
    case StoreErrorCode::treeExists:
    case StoreErrorCode::tooManyReaders:
    case StoreErrorCode::conflict: return exitInTheWay;
    case StoreErrorCode::badName:
    case StoreErrorCode::badArgument:
    case StoreErrorCode::badFile: return exitBadInput;
    case StoreErrorCode::closed:
    case StoreErrorCode::full:
    case StoreErrorCode::io:
    case StoreErrorCode::outOfMemory: return exitSystem;
  }
  return exitSystem;
}

}  // namespace bmtree::tools
