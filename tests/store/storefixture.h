// What the tests of the store share: a directory that goes away, seeds, and a model of the trees.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "store.h"

namespace bmtree::test {

// True in a build with the address or thread sanitizer, which needs more memory and time.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
constexpr bool sanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool sanitized = false;
#endif

// The seed of a random test: BMTREE_SEED if that is set, else one from the system. Printed.
uint64_t testSeed();

using Numbers = std::set<uint64_t>;
using Model = std::map<std::string, Numbers>;

// All numbers of a tree, read in chunks.
std::vector<uint64_t> numbersOf(const Tree& tree, size_t chunk = 1000);

inline std::vector<uint64_t> listOf(const Numbers& numbers) { return {numbers.begin(), numbers.end()}; }

// Requires the trees of a reader or writer to be those of the model.
template <class ReaderOrWriter>
void expectEqual(ReaderOrWriter& session, const Model& model) {
  std::vector<std::string> names;
  for (const auto& [name, numbers] : model) names.push_back(name);
  EXPECT_EQ(session.names(), names);
  for (const auto& [name, numbers] : model) {
    if (!session.contains(name)) continue;
    const Tree tree = session.tree(name);
    EXPECT_EQ(tree.count(), numbers.size()) << name;
    EXPECT_TRUE(numbersOf(tree) == listOf(numbers)) << name;
  }
}

// Requires a verification to find nothing.
void expectSound(const Store& store);

// Runs `statement` and requires a StoreError of that code.
template <class Statement>
void expectError(StoreErrorCode code, const Statement& statement, int line = __builtin_LINE()) {
  try {
    statement();
    ADD_FAILURE() << "line " << line << ": nothing was thrown";
  } catch (const StoreError& error) {
    EXPECT_EQ(static_cast<int>(error.code()), static_cast<int>(code)) << "line " << line << ": " << error.what();
  }
}

// A random change of a random tree, made in the model and in the writer alike.
class RandomChanges {
 public:
  explicit RandomChanges(uint64_t seed) : random_(seed) {}

  void step(Writer& writer, Model& model);
  uint64_t below(uint64_t limit) { return random_() % limit; }

 private:
  std::string randomName();
  std::vector<uint64_t> randomNumbers(size_t count);
  void changeNumbers(Writer& writer, Model& model, const std::string& name);
  void changeByOther(Writer& writer, Model& model, const std::string& name);
  void changeNames(Writer& writer, Model& model, const std::string& name);

  std::mt19937_64 random_;
};

class StoreTest : public testing::Test {
 protected:
  StoreTest();
  ~StoreTest() override;

  Store make(StoreOptions options = {}) {
    options.mode = OpenMode::create;
    options.syncCommits = false;
    return Store::open(path(), options);
  }
  Store reopen(OpenMode mode = OpenMode::readWrite) {
    return Store::open(path(), {.mode = mode, .syncCommits = false});
  }

  std::filesystem::path path(const std::string& name = "store") const { return directory_ / name; }

 private:
  std::filesystem::path directory_;
};

}  // namespace bmtree::test
