// Stores of keys and values, and the two ways to keep a set of numbers in one.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "numberset.h"

// One store in files of its own, which are removed with it. Keys are ordered numbers. A failure ends the program.
class KeyValueStore {
 public:
  using Value = std::span<const char>;

  KeyValueStore() = default;
  KeyValueStore(const KeyValueStore&) = delete;
  KeyValueStore& operator=(const KeyValueStore&) = delete;
  virtual ~KeyValueStore() = default;

  // Fills an empty store with ascending keys; endLoad makes them durable.
  virtual void beginLoad() = 0;
  virtual void append(uint64_t key, Value value) = 0;
  virtual void endLoad() = 0;

  // A transaction; commit makes it durable. put replaces, insert does not; insert and erase return whether they
  // changed anything.
  virtual void begin() = 0;
  virtual void put(uint64_t key, Value value) = 0;
  virtual bool insert(uint64_t key) = 0;
  virtual bool erase(uint64_t key) = 0;
  virtual void commit() = 0;

  // Inside a transaction or not. The value is valid until the next call.
  virtual std::optional<Value> get(uint64_t key) = 0;
  virtual uint64_t entries() = 0;
  // All entries in ascending order.
  virtual void scan(const std::function<void(uint64_t key, Value value)>& visit) = 0;
  virtual uint64_t bytesOnDisk() = 0;
};

using MakeStore = std::function<std::unique_ptr<KeyValueStore>()>;

// A key for each number, without a value.
std::unique_ptr<NumberSet> makeKeySet(const MakeStore& makeStore);

// A bitmap for each range of 65,536 numbers that is not empty, cut to the words between its first and last number.
std::unique_ptr<NumberSet> makeBlobSet(const MakeStore& makeStore);

// A name below `directory` that no store has had yet.
std::string newStoreName(const std::string& directory);

// Size of a file, or of all files in a folder.
uint64_t bytesBelow(const std::string& path);
