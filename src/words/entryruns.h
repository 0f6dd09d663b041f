// Two ascending runs of words, compared: what they share, and what one has beyond the other.
#pragma once

#include <cstdint>

// Words a.. and b.., each strictly ascending and plain numbers. The pointers move on as words are dealt with.
struct EntryRuns {
  const uint64_t* a;
  const uint64_t* aEnd;
  const uint64_t* b;
  const uint64_t* bEnd;

  bool bothLeft() const { return a != aEnd && b != bEnd; }
};

// Writes the words that both runs have to `out`, as long as both last. Returns one past the last written; up to one
// slot behind it is written over.
uint64_t* shareEntries(EntryRuns& runs, uint64_t* out);

// Moves both runs on to the first word that both have. False when there is none; what has been passed is then not
// told.
bool skipToShared(EntryRuns& runs);

// Writes the words of `a` that `b` has not to `out`, as long as both last and `out` has not reached `outEnd`. Returns
// one past the last written. `out` may be the place of `a` itself, or lie before it.
uint64_t* subtractEntries(EntryRuns& runs, uint64_t* out, uint64_t* outEnd);

// The three without wide vectors.
uint64_t* shareEntriesPlain(EntryRuns& runs, uint64_t* out);
bool skipToSharedPlain(EntryRuns& runs);
uint64_t* subtractEntriesPlain(EntryRuns& runs, uint64_t* out, uint64_t* outEnd);
