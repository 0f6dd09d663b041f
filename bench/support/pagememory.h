// Memory of heap trees for the benchmarks: defines UtlMallocF, UtlMalloc and UtlFree.
//
// Pages come from one address range that is advised for 2 MiB pages. A page that is given back is the next to be
// handed out, so memory that was touched once is used again and nothing returns to the system. One thread.
#pragma once

#include <cstdint>

// Heap pages now in use.
uint64_t heapPagesInUse();
