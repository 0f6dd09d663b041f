// Memory of the bitmap module with its use kept in books: heap pages by the tag of their tree, working buffers by
// their label. Any thread may take and free memory. A process without memory ends with a message.
//
// Pages are at multiples of their size, in memory that is advised for 2 MiB pages and used again and again
// (pageregions.h); a page holds what it held before. Buffers come from malloc, at multiples of 16.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// What is allocated under one tag, or under one label.
struct HostMemoryUse {
  bool isTag;         // a tag of UtlMallocF; otherwise a label of UtlMalloc
  int tag;            // 0 for a label
  std::string label;  // empty for a tag
  uint64_t blocks;
  uint64_t bytes;  // as asked for
};

// Keeps up to `bytes` bytes of page memory for later when no page of theirs is in use, 64 MiB unless this is called
// and a quarter of what is in use in any case; what exceeds both returns to the system, in pieces of 32 MiB. ~0 keeps
// all.
void HostKeepIdleMemory(uint64_t bytes);

// Everything that is allocated now: the tags in ascending order, then the labels in alphabetical order.
std::vector<HostMemoryUse> HostMemoryInUse();

// Prints one line for each of them, "tag 4433: 2 blocks, 32768 bytes" or "label: 1 block, 8 bytes", to `out`. Returns
// how many lines.
int HostPrintMemoryInUse(std::FILE* out);
