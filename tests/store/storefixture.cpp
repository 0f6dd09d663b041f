#include "storefixture.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <numeric>

#include "hostmemory.h"

namespace bmtree::test {
namespace {

constexpr uint64_t span = 130752;

// Stores that are closed have given back every heap page and buffer, in all tests together.
class MemoryGivenBack : public ::testing::Environment {
  void TearDown() override { EXPECT_EQ(HostPrintMemoryInUse(stdout), 0); }
};
[[maybe_unused]] const auto* const memoryGivenBack = ::testing::AddGlobalTestEnvironment(new MemoryGivenBack);

void applyTo(Numbers& numbers, const std::vector<uint64_t>& changed, bool set) {
  for (const uint64_t number : changed) {
    if (set) {
      numbers.insert(number);
    } else {
      numbers.erase(number);
    }
  }
}

Numbers combine(const Numbers& a, const Numbers& b, int operation) {
  Numbers out;
  const auto into = std::inserter(out, out.end());
  switch (operation) {
    case 0: std::set_union(a.begin(), a.end(), b.begin(), b.end(), into); break;
    case 1: std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), into); break;
    case 2: std::set_difference(a.begin(), a.end(), b.begin(), b.end(), into); break;
    default: std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(), into); break;
  }
  return out;
}

void assign(Tree& target, const Tree& a, const Tree& b, int operation) {
  switch (operation) {
    case 0: target.assignUnion(a, b); break;
    case 1: target.assignIntersection(a, b); break;
    case 2: target.assignDifference(a, b); break;
    default: target.assignSymmetricDifference(a, b); break;
  }
}

// In memory where there is room, so that the tests do not wait for a disk.
std::filesystem::path placeForStores() {
  constexpr uint64_t enough = uint64_t{2} << 30;
  std::error_code failed;
  const auto shared = std::filesystem::space("/dev/shm", failed);
  return !failed && shared.available > enough ? "/dev/shm" : std::filesystem::temp_directory_path();
}

}  // namespace

uint64_t testSeed() {
  const char* given = std::getenv("BMTREE_SEED");
  const uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device{}();
  std::cout << "BMTREE_SEED=" << seed << std::endl;
  return seed;
}

std::vector<uint64_t> numbersOf(const Tree& tree, size_t chunk) {
  std::vector<uint64_t> all;
  std::vector<uint64_t> some(chunk);
  Cursor cursor = tree.numbers();
  while (const size_t count = cursor.next(some)) all.insert(all.end(), some.begin(), some.begin() + count);
  return all;
}

void expectSound(const Store& store) {
  const VerifyReport report = store.verify();
  for (const Finding& finding : report.findings) ADD_FAILURE() << finding.tree << ": " << finding.message;
  EXPECT_TRUE(report.sound());
}

std::string RandomChanges::randomName() { return "tree " + std::to_string(below(6)); }

// Some clustered, so that dense leaves form, and some anywhere.
std::vector<uint64_t> RandomChanges::randomNumbers(size_t count) {
  const bool clustered = below(3) != 0;
  const uint64_t base = clustered ? below(4) * span * 3 : 0;
  const uint64_t width = clustered ? span / (1 + below(8)) : numberEnd;
  std::vector<uint64_t> numbers(count);
  for (uint64_t& number : numbers) number = base + below(width);
  return numbers;
}

void RandomChanges::step(Writer& writer, Model& model) {
  const std::string name = randomName();
  switch (below(8)) {
    case 0: changeNames(writer, model, name); break;
    case 1: changeByOther(writer, model, name); break;
    default: changeNumbers(writer, model, name); break;
  }
}

void RandomChanges::changeNumbers(Writer& writer, Model& model, const std::string& name) {
  Tree tree = writer.treeOrNew(name);
  Numbers& numbers = model[name];
  const size_t before = numbers.size();
  const bool set = below(3) != 0;
  if (below(4) == 0) {
    const uint64_t first = below(span * 9);
    const uint64_t last = first + below(6000);
    std::vector<uint64_t> range(last - first + 1);
    std::iota(range.begin(), range.end(), first);
    const uint64_t changed = set ? tree.setRange(first, last) : tree.clearRange(first, last);
    applyTo(numbers, range, set);
    EXPECT_EQ(changed, std::max(before, numbers.size()) - std::min(before, numbers.size()));
    return;
  }
  const auto some = randomNumbers(1 + below(below(4) == 0 ? 6000 : 40));
  const uint64_t changed = set ? tree.set(some) : tree.clear(some);
  applyTo(numbers, some, set);
  EXPECT_EQ(changed, std::max(before, numbers.size()) - std::min(before, numbers.size()));
}

void RandomChanges::changeByOther(Writer& writer, Model& model, const std::string& name) {
  const std::string nameA = randomName();
  const std::string nameB = randomName();
  Tree target = writer.treeOrNew(name);
  const Tree a = writer.treeOrNew(nameA);
  const Tree b = writer.treeOrNew(nameB);
  const int operation = static_cast<int>(below(4));
  assign(target, a, b, operation);
  const Numbers result = combine(model[nameA], model[nameB], operation);
  model[name] = result;
}

void RandomChanges::changeNames(Writer& writer, Model& model, const std::string& name) {
  const std::string other = randomName();
  if (!model.contains(name)) {
    writer.create(name);
    model[name];
  } else if (model.contains(other)) {
    writer.remove(name);
    model.erase(name);
  } else if (below(2) == 0) {
    writer.rename(name, other);
    model[other] = std::move(model[name]);
    model.erase(name);
  } else {
    writer.copy(name, other);
    model[other] = model[name];
  }
}

StoreTest::StoreTest() {
  std::string name = (placeForStores() / "bmtree-store-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) std::abort();
  directory_ = name;
}

StoreTest::~StoreTest() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

}  // namespace bmtree::test
