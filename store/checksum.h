// The checksum of a stored page: XXH3 over the whole page except the eight bytes of the header that hold it.
#pragma once

#include <xxhash.h>

#include <cstring>

#include "reposdisk.h"

namespace bmtree {

inline uint64_t pageChecksum(const RepPageHdrSType& page) {
  constexpr size_t before = offsetof(RepPageHdrSType, reserved16);
  constexpr size_t behind = before + sizeof page.reserved16;
  const auto* bytes = reinterpret_cast<const char*>(&page);
  return XXH3_64bits_withSeed(bytes + behind, BM_PAGE_SIZE - behind, XXH3_64bits(bytes, before));
}

inline uint64_t storedChecksum(const RepPageHdrSType& page) {
  uint64_t sum = 0;
  static_assert(sizeof sum == sizeof page.reserved16);
  std::memcpy(&sum, page.reserved16, sizeof sum);
  return sum;
}

inline void setStoredChecksum(RepPageHdrSType& page) {
  const uint64_t sum = pageChecksum(page);
  std::memcpy(page.reserved16, &sum, sizeof sum);
}

}  // namespace bmtree
