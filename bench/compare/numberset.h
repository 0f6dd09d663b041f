// One set of numbers in one competitor: what every adapter offers, so that one table of operations drives them all.
//
// Each adapter does what a careful user of its library would do. Arrays are handed over whole, and the loop over
// them is the adapter's, so that a call through this interface costs nothing beside the work. Numbers are below
// 2^40. What an adapter does not offer ends the program: the table of operations does not ask for it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

class NumberSet {
 public:
  NumberSet() = default;
  NumberSet(const NumberSet&) = delete;
  NumberSet& operator=(const NumberSet&) = delete;
  virtual ~NumberSet() = default;

  // --- filling an empty set ---

  // Adds ascending numbers. A durable set has made them durable when this returns.
  virtual void loadSorted(std::span<const uint64_t> numbers) = 0;
  // Adds numbers in any order, and may change the array. There is a spare slot before and behind it.
  virtual void loadUnsorted(std::span<uint64_t> numbers);
  // Once after a bulk load, where the set is only read from then on.
  virtual void finishLoading() {}
  // Adds `first` to `last`, inclusive.
  virtual void addRange(uint64_t first, uint64_t last);

  // --- numbers one by one ---

  virtual uint64_t countPresent(std::span<const uint64_t> probes) const = 0;
  // The same for a caller who has all probes at hand; one by one unless the competitor offers more.
  virtual uint64_t countPresentTogether(std::span<const uint64_t> probes) const { return countPresent(probes); }
  // Add, take out, one by one; return how many changed the set. A durable set commits once, at the end.
  virtual uint64_t insertEach(std::span<const uint64_t> numbers) = 0;
  virtual uint64_t eraseEach(std::span<const uint64_t> numbers) = 0;

  // --- questions ---

  virtual uint64_t size() const = 0;
  // Writes the set to `out`, which has room for it, ascending. Returns how many.
  virtual uint64_t toArray(uint64_t* out) const = 0;
  // Walks the set through `chunk`, a full chunk at a time, going on where the last one ended. Returns the sum of the
  // chunks' last numbers.
  virtual uint64_t walkInChunks(std::span<uint64_t> chunk) const;
  // Writes the lowest numbers that are not in the set to `out`, as many as it has room for.
  virtual void lowestFree(std::span<uint64_t> out) const;

  // --- two sets of the same competitor ---

  // Fill this set, which is empty.
  virtual void assignCopy(const NumberSet& source);
  virtual void assignUnion(const NumberSet& a, const NumberSet& b) = 0;
  virtual void assignIntersection(const NumberSet& a, const NumberSet& b);
  virtual void assignDifference(const NumberSet& a, const NumberSet& b);
  // Change this set in place.
  virtual void unite(const NumberSet& other);
  virtual void intersect(const NumberSet& other);
  virtual void subtract(const NumberSet& other);
  virtual uint64_t intersectionSize(const NumberSet& other) const = 0;
  virtual bool meets(const NumberSet& other) const;

  // --- files ---

  // Write to a new file, read into an empty set.
  virtual void writeFile(const std::string& path) const;
  virtual void readFile(const std::string& path);
  // Of a durable set, what it occupies in its files.
  virtual uint64_t bytesOnDisk() const;
};

struct Competitor {
  std::string name;
  std::string version;
  std::string use;  // how the adapter uses it, one sentence
  bool durable;
  std::function<std::unique_ptr<NumberSet>()> makeSet;
};

constexpr const char* ourName = "bmtree";

// Says what is wrong and ends the program.
[[noreturn]] void giveUp(const std::string& what);
