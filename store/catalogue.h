// The catalogue: what a commit says about the store as a whole, and its encoding.
#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "pagestore.h"
#include "reposdisk.h"

namespace bmtree {

constexpr unsigned storeFormatVersion = 1;

struct Catalogue {
  uint64_t stamp = 1;                 // of the commit; pages of the next one carry the next stamp
  uint64_t nextPageId = firstPageId;  // pages of this id and above belong to no commit
  std::map<std::string, RepTreeRootSType, std::less<>> trees;
};

// The bytes: mark, format version, byte-order mark, stamp, next page id, number of trees; for each tree in order
// of names two bytes for the length of the name, the name and the packed root; a checksum of all that.
std::vector<std::byte> encodeCatalogue(const Catalogue& catalogue);

// Throws foreignFile if the bytes are no catalogue, newerFormat if they are one of a later version, damaged if
// they are not what was written.
Catalogue decodeCatalogue(std::span<const std::byte> bytes);

}  // namespace bmtree
