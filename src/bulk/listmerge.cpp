#include "bulk/listmerge.h"

#include "hostlayer.h"
#include "tree/bitlist.h"

namespace {

// A merge of entries and numbers. `newBelow[i]` is how many of the numbers are new and lie below entry i, as far as
// entries have been passed.
struct Merge {
  uint64_t merged[BM_BIT_LIST_CAPACITY];
  int newBelow[BM_BIT_LIST_CAPACITY + 1];
  long passed = 0;   // entries
  long written = 0;  // words of `merged`

  int newNumbers() const { return static_cast<int>(written - passed); }
};

// Merges until the numbers run out. Every step writes, and moves on what is to be moved on, so that nothing is
// guessed.
void mergeInStep(const uint64_t* entries, long entryCount, const uint64_t* numbers, long count, Merge* merge) {
  long i = 0;
  long j = 0;
  long k = 0;
  while (i != entryCount && j != count) {
    const uint64_t entry = entries[i];
    const uint64_t number = numbers[j];
    merge->newBelow[i] = static_cast<int>(k - i);
    merge->merged[k++] = number < entry ? number : entry;
    i += entry <= number;
    j += number <= entry;
  }
  merge->passed = i;
  for (; j != count; ++j) merge->merged[k++] = numbers[j];
  merge->written = k;
  merge->newBelow[i] = merge->newNumbers();
}

// The front of `list` after the new numbers have been stored run by run; `before` entries lie below those that the
// merge began with.
int frontAfter(const RepBitListContentsSType& list, long before, const Merge& merge) {
  int front = list.firstOffset;
  int stored = 0;
  for (long i = 0; i <= merge.passed; ++i) {
    const int take = merge.newBelow[i] - stored;
    const int newCount = list.count + stored + take;
    const long below = before + i + stored;
    const long above = list.count - before - i;
    const bool tailHasRoom = newCount + front <= BM_BIT_LIST_CAPACITY;
    const bool frontMoves = take != 0 && !(tailHasRoom && below >= above);
    const int moved = tailHasRoom && take <= front ? front - take : frontGap(newCount);
    front = frontMoves ? moved : front;
    stored += take;
  }
  return front;
}

}  // namespace

long ascendingRun(const uint64_t* numbers, long count) {
  long ascending = 1;
  while (ascending < count && numbers[ascending - 1] < numbers[ascending]) ++ascending;
  return ascending;
}

int mergeIntoList(RepBitListContentsSType* list, uint64_t* pos, const uint64_t* numbers, long count,
                  uint64_t** posEnd) {
  Merge merge;
  const long before = pos - list->begin();
  mergeInStep(pos, list->count - before, numbers, count, &merge);
  const int front = frontAfter(*list, before, merge);
  uint64_t* hole = replaceEntries(list, pos, merge.passed, merge.written, front);
  HostAsmMemcpySmallWords(hole, merge.merged, static_cast<unsigned long>(merge.written));
  list->count += merge.newNumbers();
  *posEnd = hole + merge.written;
  return merge.newNumbers();
}
