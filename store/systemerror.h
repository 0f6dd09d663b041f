// From the system's error codes to StoreError.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>

#include "store_error.h"

namespace bmtree {

inline StoreErrorCode codeOfSystemError(int error) {
  switch (error) {
    case ENOENT: return StoreErrorCode::missingFile;
    case EACCES:
    case EPERM:
    case EROFS: return StoreErrorCode::readOnly;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return StoreErrorCode::full;
    case ENOMEM: return StoreErrorCode::outOfMemory;
    default: return StoreErrorCode::io;
  }
}

// Throws what the system's error code `error` means; `what` says what was being done.
[[noreturn]] inline void throwSystemError(int error, const std::string& what) {
  throw StoreError(codeOfSystemError(error), what + ": " + std::generic_category().message(error));
}

}  // namespace bmtree
