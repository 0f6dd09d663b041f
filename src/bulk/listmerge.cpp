#include "bulk/listmerge.h"

#include "hostlayer.h"
#include "tree/bitlist.h"

namespace {

// One half of a merge: where it stands, as indexes of the entries, the numbers and the merged words, and where it
// ends.
struct MergeHalf {
  long entry, entriesEnd;
  long number, numbersEnd;
  long out;

  bool bothLeft() const { return entry != entriesEnd && number != numbersEnd; }
};

// The merge of the entries of a list, from some entry on, with numbers. Two halves of it go at once, since a
// step has to wait for what the one before it has chosen. The lower half takes everything below the entry in the
// middle.
class Merge {
 public:
  // `entryCount` entries do not lie above the last number.
  Merge(const uint64_t* entries, long entryCount, const uint64_t* numbers, long count)
      : entries_(entries), numbers_(numbers), middle_(entryCount / 2) {
    const long below = entryCount == 0 ? 0 : firstNotBelow(numbers, count, entries[middle_]);
    upperOut_ = middle_ + below;
    MergeHalf lower{0, middle_, 0, below, 0};
    MergeHalf upper{middle_, entryCount, below, count, upperOut_};
    while (lower.bothLeft() && upper.bothLeft()) {
      step(lower);
      step(upper);
    }
    while (lower.bothLeft()) step(lower);
    while (upper.bothLeft()) step(upper);
    finish(lower);
    while (lower.entry != lower.entriesEnd) passEntry(lower);
    finish(upper);
    lowerEnd_ = lower.out;
    upperEnd_ = upper.out;
    passed_ = upper.entry;
    newBelow_[passed_] = upper.out - upper.entry;
    const long skipped = upperOut_ - lowerEnd_;
    for (long i = middle_; skipped != 0 && i <= passed_; ++i) newBelow_[i] -= skipped;
  }

  // Entries that are part of the result.
  long passed() const { return passed_; }
  long written() const { return lowerEnd_ + upperEnd_ - upperOut_; }
  int newNumbers() const { return static_cast<int>(written() - passed_); }

  // How many new numbers lie below entry `index`, at most the one behind those passed.
  int newBelow(long index) const { return static_cast<int>(newBelow_[index]); }

  void copyTo(uint64_t* target) const {
    HostAsmMemcpySmallWords(target, merged_, static_cast<unsigned long>(lowerEnd_));
    HostAsmMemcpySmallWords(target + lowerEnd_, merged_ + upperOut_,
                            static_cast<unsigned long>(upperEnd_ - upperOut_));
  }

 private:
  // Every step writes, and moves on what is to be moved on, so that nothing is guessed.
  void step(MergeHalf& half) {
    const uint64_t entry = entries_[half.entry];
    const uint64_t number = numbers_[half.number];
    newBelow_[half.entry] = half.out - half.entry;
    merged_[half.out++] = number < entry ? number : entry;
    half.entry += entry <= number;
    half.number += number <= entry;
  }

  void passEntry(MergeHalf& half) {
    newBelow_[half.entry] = half.out - half.entry;
    merged_[half.out++] = entries_[half.entry++];
  }

  // The numbers that lie above all entries of the half.
  void finish(MergeHalf& half) {
    while (half.number != half.numbersEnd) merged_[half.out++] = numbers_[half.number++];
  }

  const uint64_t* entries_;
  const uint64_t* numbers_;
  long middle_;
  long upperOut_;  // where the upper half begins to write; numbers that are there already leave a gap before it
  long lowerEnd_, upperEnd_;
  long passed_;
  uint64_t merged_[BM_BIT_LIST_CAPACITY];
  long newBelow_[BM_BIT_LIST_CAPACITY + 1];
};

// The front of `list` after the new numbers have been stored run by run; `before` entries lie below those that the
// merge began with. From some run on it is the tail that moves, which leaves the front unless there is no room.
int frontAfter(const RepBitListContentsSType& list, long before, const Merge& merge) {
  const int mostCount = list.count + merge.newNumbers();
  int front = list.firstOffset;
  int stored = 0;
  long i = 0;
  for (; i <= merge.passed() && before + i + stored < list.count - before - i; ++i) {
    const int take = merge.newBelow(i) - stored;
    stored += take;
    if (take <= front && list.count + stored + front <= BM_BIT_LIST_CAPACITY) {
      front -= take;
    } else if (take > 0) {
      front = frontGap(list.count + stored);
    }
  }
  for (; i <= merge.passed() && mostCount + front > BM_BIT_LIST_CAPACITY; ++i) {
    const int take = merge.newBelow(i) - stored;
    stored += take;
    if (take > 0 && list.count + stored + front > BM_BIT_LIST_CAPACITY) front = frontGap(list.count + stored);
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
  const long before = pos - list->begin();
  const Merge merge(pos, firstNotBelow(pos, list->count - before, numbers[count - 1] + 1), numbers, count);
  const int front = frontAfter(*list, before, merge);
  uint64_t* hole = replaceEntries(list, pos, merge.passed(), merge.written(), front);
  merge.copyTo(hole);
  list->count += merge.newNumbers();
  *posEnd = hole + merge.written();
  return merge.newNumbers();
}
