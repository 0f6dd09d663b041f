// The plain way to store ascending numbers in a list: a gap for each run of them that falls between two entries.
#pragma once

#include <algorithm>
#include <vector>

#include "tree/bitlist.h"

// A list of these entries, the first one in slot `front`.
inline RepBitListContentsSType listOf(const std::vector<uint64_t>& entries, int front) {
  RepBitListContentsSType list{};
  list.count = static_cast<int>(entries.size());
  list.firstOffset = front;
  std::copy(entries.begin(), entries.end(), list.begin());
  return list;
}

// Stores as many of the numbers as there is room for. Returns how many were new.
inline int storeRunByRun(RepBitListContentsSType* list, const std::vector<uint64_t>& numbers) {
  int newNumbers = 0;
  uint64_t* pos = list->begin();
  for (auto number = numbers.begin(); number != numbers.end();) {
    pos = std::lower_bound(pos, list->end(), *number);
    if (pos != list->end() && *pos == *number) {
      ++number;
      continue;
    }
    const auto runEnd = pos == list->end() ? numbers.end() : std::lower_bound(number, numbers.end(), *pos);
    const auto room = static_cast<ptrdiff_t>(BM_BIT_LIST_CAPACITY - list->count);
    const int take = static_cast<int>(std::min(runEnd - number, room));
    if (take == 0) return newNumbers;
    uint64_t* gap = openListGap(list, pos, take);
    std::copy(number, number + take, gap);
    list->count += take;
    newNumbers += take;
    pos = gap + take;
    number += take;
  }
  return newNumbers;
}
