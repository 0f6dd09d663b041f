// Ascending numbers that fall between the entries of a list in many places, merged into it in one pass.
#pragma once

#include "bitmap.h"

// Length of the strictly ascending run that `count` numbers, at least 1, begin with.
long ascendingRun(const uint64_t* numbers, long count);

// Stores `count` strictly ascending numbers in `list`. None belongs before `pos`, the list has room for them all, and
// those that it holds already are skipped. The front gap comes out as if every run of numbers between two entries had
// been stored with openListGap. Returns how many were new; *posEnd is the slot behind the last of the numbers. The
// list's count is raised; bytesUsed is the caller's to set.
int mergeIntoList(RepBitListContentsSType* list, uint64_t* pos, const uint64_t* numbers, long count,
                  uint64_t** posEnd);
