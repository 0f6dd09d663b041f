// The quicksort, written once for every element form: in place, without recursion and without a call per comparison.
// Parts of fewer than ten elements are left as they are, and one insertion pass over the whole array finishes them.
#include "bulk/sort.h"

#include <utility>

#include "words/widesort.h"

namespace {

constexpr long PARTITION_CUTOFF = 10;  // a part of fewer elements is not partitioned
constexpr int STACK_PAIRS = 32;        // the smaller part goes first, so this serves 2^32 times the cutoff

constexpr auto byValue = [](uint64_t value) { return value; };
constexpr auto byKey = [](const RepOtDeltaSType& record) { return record.key; };
constexpr auto byPageId = [](const RepOtDeltaSType& record) { return record.pageId; };

// Parts that wait for their turn, as first and last element.
template <class Element>
class PartStack {
 public:
  void push(Element* first, Element* last) {
    first_[depth_] = first;
    last_[depth_++] = last;
  }
  bool pop(Element** first, Element** last) {
    if (depth_ == 0) return false;
    *first = first_[--depth_];
    *last = last_[depth_];
    return true;
  }

 private:
  Element* first_[STACK_PAIRS];
  Element* last_[STACK_PAIRS];
  int depth_ = 0;
};

// Partitions lo to hi around the element in the middle and returns where that came to stand. Both scans stop on equal
// keys, so runs of equal keys are split evenly. The slot behind `hi` holds no smaller key.
template <class Element, class KeyOf>
Element* partition(Element* lo, Element* hi, KeyOf keyOf) {
  std::swap(lo[(hi - lo) / 2], *lo);
  const uint64_t pivot = keyOf(*lo);
  Element* i = lo;
  Element* j = hi + 1;
  for (;;) {
    do ++i;
    while (keyOf(*i) < pivot);
    do --j;
    while (keyOf(*j) > pivot);
    if (j <= i) break;
    std::swap(*i, *j);
  }
  std::swap(*lo, *j);
  return j;
}

template <class Element, class KeyOf>
void partitionAll(Element* lo, Element* hi, KeyOf keyOf) {
  PartStack<Element> waiting;
  for (;;) {
    Element* pivot = partition(lo, hi, keyOf);
    const long left = pivot - lo;
    const long right = hi - pivot;
    const bool leftIsSmaller = left <= right;
    const long smaller = leftIsSmaller ? left : right;
    const long larger = leftIsSmaller ? right : left;
    if (larger < PARTITION_CUTOFF) {
      if (!waiting.pop(&lo, &hi)) return;
      continue;
    }
    const bool takeLeft = leftIsSmaller == (smaller >= PARTITION_CUTOFF);
    if (smaller >= PARTITION_CUTOFF) {
      if (leftIsSmaller) {
        waiting.push(pivot + 1, hi);
      } else {
        waiting.push(lo, pivot - 1);
      }
    }
    if (takeLeft) {
      hi = pivot - 1;
    } else {
      lo = pivot + 1;
    }
  }
}

// The sentinel before `first` ends every walk.
template <class Element, class KeyOf>
void insertionPass(Element* first, Element* last, KeyOf keyOf) {
  for (Element* next = first + 1; next <= last; ++next) {
    const Element taken = *next;
    Element* hole = next;
    for (; keyOf(hole[-1]) > keyOf(taken); --hole) *hole = hole[-1];
    *hole = taken;
  }
}

// Sorts first to last, with sentinels on both sides.
template <class Element, class KeyOf>
void sortBetweenSentinels(Element* first, Element* last, KeyOf keyOf) {
  if (last - first + 1 >= PARTITION_CUTOFF) partitionAll(first, last, keyOf);
  insertionPass(first, last, keyOf);
}

// Sorts the words first to last, with sentinels on both sides.
void sortWords(uint64_t* first, uint64_t* last) {
  if (canSortWide()) {
    sortWide(first, last);
  } else {
    sortWordsPlain(first, last);
  }
}

}  // namespace

void sortWordsPlain(uint64_t* first, uint64_t* last) { sortBetweenSentinels(first, last, byValue); }

void BmQsort(unsigned long* first, unsigned long* end) { sortWords(first + 1, end - 2); }

void BmQsort(RepOtDeltaSType* first, RepOtDeltaSType* end) { sortBetweenSentinels(first + 1, end - 2, byKey); }

void BmQsortByPageId(RepOtDeltaSType* first, RepOtDeltaSType* end) {
  sortBetweenSentinels(first + 1, end - 2, byPageId);
}

unsigned long* sortAndStrip(unsigned long* first, unsigned long* end) {
  *end = BM_HIGHEST_BIT;
  sortWords(first + 1, end - 1);
  unsigned long* kept = first + 1;
  unsigned long* next = first + 2;
  for (; next != end && *next != *kept; ++next) kept = next;  // up to the first repeat nothing moves
  for (; next != end; ++next) {
    if (*next != *kept) *++kept = *next;
  }
  return kept + 1;
}

unsigned long* BmSortArrayRemoveDups_(unsigned long* first, unsigned long* end) {
  return end - first < 2 ? end : sortAndStrip(first, end);
}

unsigned long* BmSortRemoveDups_FromTaggedPageIds(unsigned long* first, unsigned long* end) {
  if (end - first < 2) return end;
  *end = BM_HIGHEST_BIT;
  sortWords(first + 1, end - 1);
  unsigned long* kept = first + 1;
  *kept >>= 1;
  for (const unsigned long* next = first + 2; next != end; ++next) {
    const unsigned long pageId = *next >> 1;
    if (pageId != *kept) *++kept = pageId;
  }
  return kept + 1;
}
