// Utilities of the surrounding process: memory, guarantees, and a word scan.
#pragma once

#include <bit>
#include <cstdint>

#include "hostlayer.h"

// Memory of a heap page under the tree's tag; `flags` is 0. Taken to succeed. Freed with UtlFree. The host
// defines the three.
void* UtlMallocF(unsigned long size, int tag, int flags);
// Memory of a working buffer; `label` is a literal that names its use. Taken to succeed.
void* UtlMalloc(unsigned long size, const char* label);
void UtlFree(void* memory);

// Tells the log machinery whether its file is to be removed at exit; 0 keeps it. The host defines it.
void UtlRemoveLogOnExit(int remove);

// Reports a broken invariant to the host and goes on: the caller must stand a return. `file` and `line` are
// part of the report and stay the same from release to release. Returns the condition.
inline bool UTL_GUARANTEE(bool condition, const char* file, int line) {
  if (!condition) [[unlikely]] {
    HostCallDebuggerMsg_fl("UTL_GUARANTEE failed", file, line);
  }
  return condition;
}

// The same for a place in the bitmap subsystem whose line carries no promise.
inline bool UTL_GUARANTEE(bool condition, int line = __builtin_LINE()) {
  return UTL_GUARANTEE(condition, "bitmap", line);
}

// Index of the first clear bit of `words` at or above `start`; a value of `limit` or above when there is none
// below `limit`. Reads no word at or behind the one that holds bit `limit` unless that bit shares its word.
inline unsigned UtlFindFirstBitClear(const uint64_t* words, unsigned start, unsigned limit) {
  if (start >= limit) return limit;
  const unsigned lastWord = (limit - 1) >> 6;
  unsigned word = start >> 6;
  uint64_t clear = ~words[word] >> (start & 63) << (start & 63);
  while (clear == 0) {
    if (word == lastWord) return limit;
    clear = ~words[++word];
  }
  return (word << 6) + static_cast<unsigned>(std::countr_zero(clear));
}
