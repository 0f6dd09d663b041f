#include "support/treereader.h"

#include <gtest/gtest.h>

#include <bit>
#include <regex>

#include "support/pageimages.h"

namespace {

struct Pairs {
  size_t first = 0;
  size_t count = 0;
};

Pairs pairsOf(const unsigned char* page, uint64_t ref) {
  const Pairs pairs{rawU16(page, at::intFirstOffset), rawU16(page, at::intCount)};
  if (rawU8(page, at::pageKind) == 7 && pairs.first + pairs.count <= 1021) return pairs;
  ADD_FAILURE() << "page " << ref << " cannot be read as an internal page";
  return {};
}

void collectPages(TestHost& host, const RepTreeRootSType& root, TreePage page, std::vector<TreePage>* pages) {
  pages->push_back(page);
  if (page.level == 0) return;
  const Pairs pairs = pairsOf(host.bytes(root, page.ref), page.ref);
  for (size_t slot = pairs.first; slot < pairs.first + pairs.count; ++slot) {
    const unsigned char* bytes = host.bytes(root, page.ref);
    collectPages(host, root, {rawU64(bytes, at::child(slot)), page.level - 1, rawU64(bytes, at::key(slot))}, pages);
  }
}

// `contents` is count, firstOffset and entries.
void appendList(const unsigned char* contents, std::vector<uint64_t>* bits) {
  const auto count = static_cast<int32_t>(rawU32(contents, 0));
  const auto firstOffset = static_cast<int32_t>(rawU32(contents, 4));
  if (count < 0 || firstOffset < 0 || count > 2043 || firstOffset > 2043 - count) {
    ADD_FAILURE() << "a list with " << count << " entries from slot " << firstOffset << " on";
    return;
  }
  for (int32_t i = 0; i < count; ++i) {
    bits->push_back(rawU64(contents, 8 + 8 * static_cast<size_t>(firstOffset + i)));
  }
}

void appendDense(const unsigned char* page, uint64_t base, std::vector<uint64_t>* bits) {
  for (size_t index = 0; index < 2043; ++index) {
    for (uint64_t word = rawU64(page, at::word(index)); word != 0; word &= word - 1) {
      bits->push_back(base + index * 64 + static_cast<uint64_t>(std::countr_zero(word)));
    }
  }
}

void appendLeaf(const unsigned char* bytes, const TreePage& leaf, std::vector<uint64_t>* bits) {
  switch (rawU8(bytes, at::pageKind)) {
    case 12: appendList(bytes + 32, bits); break;
    case 8: appendDense(bytes, leaf.key & ~uint64_t{1}, bits); break;
    default: ADD_FAILURE() << "page " << leaf.ref << " is no leaf";
  }
}

std::string shapeOfLeaf(const unsigned char* page) {
  if (rawU8(page, at::pageKind) == 12) {
    return "list " + std::to_string(rawU32(page, at::listCount)) + "@" +
           std::to_string(rawU32(page, at::listFirstOffset));
  }
  return "dense " + std::to_string(rawU32(page, at::bitsSet)) + (rawU32(page, at::keepWhenEmpty) != 0 ? "+" : "");
}

std::string shapeBelow(TestHost& host, const RepTreeRootSType& root, uint64_t ref, int level) {
  if (level == 0) return shapeOfLeaf(host.bytes(root, ref));
  const Pairs pairs = pairsOf(host.bytes(root, ref), ref);
  std::string shape = "[";
  for (size_t slot = pairs.first; slot < pairs.first + pairs.count; ++slot) {
    const unsigned char* bytes = host.bytes(root, ref);
    const uint64_t key = rawU64(bytes, at::key(slot));
    const uint64_t child = rawU64(bytes, at::child(slot));
    if (slot != pairs.first) shape += ", ";
    shape += std::to_string(key / 130752) + " " + shapeBelow(host, root, child, level - 1);
  }
  return shape + "]";
}

bool hasPages(const RepTreeRootSType& root) { return root.root != 0 && root.treeKind >= 0; }

}  // namespace

std::vector<TreePage> pagesOf(TestHost& host, const RepTreeRootSType& root) {
  std::vector<TreePage> pages;
  if (hasPages(root)) collectPages(host, root, {root.root, root.level, 0}, &pages);
  return pages;
}

std::vector<uint64_t> refsAtLevel(TestHost& host, const RepTreeRootSType& root, int level) {
  std::vector<uint64_t> refs;
  for (const TreePage& page : pagesOf(host, root)) {
    if (page.level == level) refs.push_back(page.ref);
  }
  return refs;
}

std::vector<uint64_t> bitsOf(TestHost& host, const RepTreeRootSType& root) {
  std::vector<uint64_t> bits;
  if (root.root != 0 && root.treeKind < 0) {
    const auto* memory = reinterpret_cast<const unsigned char*>(root.root);
    appendList(memory + rawU32(memory, 0), &bits);
  }
  for (const TreePage& page : pagesOf(host, root)) {
    if (page.level == 0) appendLeaf(host.bytes(root, page.ref), page, &bits);
  }
  return bits;
}

std::string shapeOf(TestHost& host, const RepTreeRootSType& root) {
  return hasPages(root) ? shapeBelow(host, root, root.root, root.level) : "empty";
}

std::string withoutFronts(const std::string& shape) { return std::regex_replace(shape, std::regex("@[0-9]+"), ""); }
