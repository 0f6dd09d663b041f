#include "numberset.h"

#include <cstdio>
#include <cstdlib>

void giveUp(const std::string& what) {
  std::fprintf(stderr, "bench_compare: %s\n", what.c_str());
  std::exit(1);
}

namespace {

[[noreturn]] void unsupported(const char* operation) {
  giveUp(std::string("an adapter was asked for what it does not offer: ") + operation);
}

}  // namespace

void NumberSet::loadUnsorted(std::span<uint64_t>) { unsupported("loadUnsorted"); }
void NumberSet::addRange(uint64_t, uint64_t) { unsupported("addRange"); }
uint64_t NumberSet::walkInChunks(std::span<uint64_t>) const { unsupported("walkInChunks"); }
void NumberSet::lowestFree(std::span<uint64_t>) const { unsupported("lowestFree"); }
void NumberSet::assignIntersection(const NumberSet&, const NumberSet&) { unsupported("assignIntersection"); }
void NumberSet::assignDifference(const NumberSet&, const NumberSet&) { unsupported("assignDifference"); }
void NumberSet::unite(const NumberSet&) { unsupported("unite"); }
void NumberSet::intersect(const NumberSet&) { unsupported("intersect"); }
void NumberSet::subtract(const NumberSet&) { unsupported("subtract"); }
bool NumberSet::meets(const NumberSet&) const { unsupported("meets"); }
void NumberSet::writeFile(const std::string&) const { unsupported("writeFile"); }
void NumberSet::readFile(const std::string&) { unsupported("readFile"); }
uint64_t NumberSet::bytesOnDisk() const { unsupported("bytesOnDisk"); }

void NumberSet::assignCopy(const NumberSet& source) {
  std::vector<uint64_t> numbers(source.size());
  source.toArray(numbers.data());
  loadSorted(numbers);
}
