#include "catalogue.h"

#include <xxhash.h>

#include <array>
#include <cstring>

namespace bmtree {
namespace {

constexpr std::array<char, 8> mark = {'b', 'm', 't', 'r', 'e', 'e', '-', 's'};
constexpr uint32_t byteOrderMark = 0x01020304;
constexpr size_t sumBytes = sizeof(uint64_t);

void appendBytes(std::vector<std::byte>& bytes, const void* from, size_t count) {
  const size_t before = bytes.size();
  bytes.resize(before + count);
  std::memcpy(bytes.data() + before, from, count);
}

template <class Value>
void append(std::vector<std::byte>& bytes, const Value& value) {
  appendBytes(bytes, &value, sizeof value);
}

[[noreturn]] void throwDamaged(const char* what) {
  throw StoreError(StoreErrorCode::damaged, std::string("the catalogue of the store is damaged: ") + what);
}

// Takes values off the front of a span.
class Decoder {
 public:
  explicit Decoder(std::span<const std::byte> bytes) : rest_(bytes) {}

  std::span<const std::byte> take(size_t count) {
    if (count > rest_.size()) throwDamaged("it ends too early");
    const auto taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }

  template <class Value>
  Value take() {
    Value value;
    std::memcpy(&value, take(sizeof value).data(), sizeof value);
    return value;
  }

  bool atEnd() const { return rest_.empty(); }

 private:
  std::span<const std::byte> rest_;
};

DiskTreeRootSType packed(const RepTreeRootSType& root) {
  DiskTreeRootSType disk(root.root, root.treeKind);
  disk.level = root.level;
  return disk;
}

RepTreeRootSType unpacked(const DiskTreeRootSType& disk, uint64_t nextPageId) {
  const uint64_t id = pageIdOf(disk);
  const bool sound = disk.treeKind == BM_CAREFUL_TREE && disk.level <= 2 && id < nextPageId &&
                     (id >= firstPageId || (id == 0 && disk.level == 0));
  if (!sound) throwDamaged("a root is not one");
  RepTreeRootSType root(id, BM_CAREFUL_TREE);
  root.level = disk.level;
  return root;
}

// The checksum stands behind everything else; a later version may have put it elsewhere, so it comes last.
void checkSum(std::span<const std::byte> bytes) {
  const auto body = bytes.first(bytes.size() - sumBytes);
  uint64_t sum = 0;
  std::memcpy(&sum, body.data() + body.size(), sizeof sum);
  if (sum != XXH3_64bits(body.data(), body.size())) throwDamaged("its checksum is wrong");
}

void checkHead(std::span<const std::byte> bytes) {
  constexpr size_t headBytes = sizeof mark + 2 * sizeof(uint32_t);
  if (bytes.size() < headBytes + sumBytes || std::memcmp(bytes.data(), mark.data(), sizeof mark) != 0) {
    throw StoreError(StoreErrorCode::foreignFile, "not a store: it has no catalogue");
  }
  Decoder head(bytes.subspan(sizeof mark));
  const auto version = head.take<uint32_t>();
  const auto order = head.take<uint32_t>();
  if (order != byteOrderMark) {
    throw StoreError(StoreErrorCode::foreignFile, "the store was written on a machine of the other byte order");
  }
  if (version > storeFormatVersion) {
    throw StoreError(StoreErrorCode::newerFormat, "the store has format version " + std::to_string(version) +
                                                      "; this program knows versions up to " +
                                                      std::to_string(storeFormatVersion));
  }
}

}  // namespace

std::vector<std::byte> encodeCatalogue(const Catalogue& catalogue) {
  std::vector<std::byte> bytes;
  append(bytes, mark);
  append(bytes, uint32_t{storeFormatVersion});
  append(bytes, byteOrderMark);
  append(bytes, catalogue.stamp);
  append(bytes, catalogue.nextPageId);
  append(bytes, uint64_t{catalogue.trees.size()});
  for (const auto& [name, root] : catalogue.trees) {
    append(bytes, static_cast<uint16_t>(name.size()));
    appendBytes(bytes, name.data(), name.size());
    append(bytes, packed(root));
  }
  append(bytes, uint64_t{XXH3_64bits(bytes.data(), bytes.size())});
  return bytes;
}

Catalogue decodeCatalogue(std::span<const std::byte> bytes) {
  checkHead(bytes);
  checkSum(bytes);
  Decoder decoder(bytes.first(bytes.size() - sumBytes));
  decoder.take(sizeof mark + 2 * sizeof(uint32_t));
  Catalogue catalogue;
  catalogue.stamp = decoder.take<uint64_t>();
  catalogue.nextPageId = decoder.take<uint64_t>();
  const auto treeCount = decoder.take<uint64_t>();
  for (uint64_t i = 0; i < treeCount; ++i) {
    const auto text = decoder.take(decoder.take<uint16_t>());
    std::string name(reinterpret_cast<const char*>(text.data()), text.size());
    const auto root = unpacked(decoder.take<DiskTreeRootSType>(), catalogue.nextPageId);
    if (!catalogue.trees.emplace(std::move(name), root).second) throwDamaged("a name occurs twice");
  }
  if (!decoder.atEnd()) throwDamaged("something follows the last tree");
  return catalogue;
}

}  // namespace bmtree
