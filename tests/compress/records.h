// Compressed records for tests: buffers of an exact size, so that a sanitizer sees the first byte outside, and items
// written by hand.
#pragma once

#include <cstring>
#include <memory>
#include <vector>

#include "bitmap.h"
#include "support/pageimages.h"

// A record in a buffer of exactly `bytes` bytes, full of garbage at first.
class RecordBuffer {
 public:
  explicit RecordBuffer(size_t bytes) : bytes_(bytes), memory_(new unsigned char[bytes]) {
    std::memset(memory_.get(), 0xA5, bytes);
  }

  LogComprResourceIdRecHdrType* rec() { return reinterpret_cast<LogComprResourceIdRecHdrType*>(memory_.get()); }
  unsigned char* raw() { return memory_.get(); }
  size_t bytes() const { return bytes_; }
  LogComprResourcePackerType packer() { return {rec(), bytes_}; }

  // The fields by their offsets.
  int recSize() { return rawU16(raw(), 12); }
  int numBits() { return static_cast<int>(rawU32(raw(), 16)); }
  int bodyWords() { return static_cast<int16_t>(rawU16(raw(), 22)); }
  std::vector<uint16_t> words() {
    std::vector<uint16_t> words;
    for (int i = 0; i < bodyWords(); ++i) words.push_back(rawU16(raw(), 40 + 2 * static_cast<size_t>(i)));
    return words;
  }

 private:
  size_t bytes_;
  std::unique_ptr<unsigned char[]> memory_;
};

// A record of the delta form made of these words, in a buffer that ends with them.
inline RecordBuffer recordOfWords(const std::vector<uint16_t>& words, int numBits) {
  RecordBuffer record(40 + (words.size() * 2 + 7) / 8 * 8);
  putU16(record.raw(), 12, static_cast<uint16_t>(record.bytes()));
  putU32(record.raw(), 16, static_cast<uint32_t>(numBits));
  putU16(record.raw(), 22, static_cast<uint16_t>(words.size()));
  for (size_t i = 0; i < words.size(); ++i) putU16(record.raw(), 40 + 2 * i, words[i]);
  return record;
}

// A record of the dense form with these bits, each taken modulo the span.
inline RecordBuffer recordOfImage(uint64_t firstBit, const std::vector<uint64_t>& bits, int numBits) {
  RecordBuffer record(40 + 8 + 16344);
  std::memset(record.raw() + 40, 0, record.bytes() - 40);
  putU16(record.raw(), 12, 16392);
  putU32(record.raw(), 16, static_cast<uint32_t>(numBits));
  putU16(record.raw(), 22, 0xF804);
  putU64(record.raw(), 40, firstBit);
  for (const uint64_t bit : bits) {
    const size_t offset = 48 + bit % BM_LEAF_BITS / 64 * 8;
    putU64(record.raw(), offset, rawU64(record.raw(), offset) | uint64_t{1} << bit % BM_LEAF_BITS % 64);
  }
  return record;
}

// The words of one item of the absolute form.
inline std::vector<uint16_t> absoluteItem(uint64_t value) {
  return {static_cast<uint16_t>(value >> 32 << 2), static_cast<uint16_t>(value >> 16), static_cast<uint16_t>(value)};
}
