// The body of a record of the dense form: the first bit of a leaf, then the leaf's words. A record need not stand at
// a multiple of 8 bytes, so the words are read one by one.
#pragma once

#include <cstring>

#include "logdisk.h"

constexpr long DENSE_IMAGE_BYTES = 8 + BM_BIT_LIST_CAPACITY * 8;
static_assert(LOG_COMPR_DENSE_REC_SIZE == LOG_COMPR_HEAD_BYTES + DENSE_IMAGE_BYTES);

class DenseImage {
 public:
  explicit DenseImage(const LogComprResourceIdRecHdrType* record)
      : bytes_(reinterpret_cast<const char*>(record->body())) {}

  uint64_t firstBit() const { return wordAt(0); }
  uint64_t word(int index) const { return wordAt(1 + index); }
  const char* words() const { return bytes_ + sizeof(uint64_t); }

  // Whether the image is that of a span: it begins at a span base below 2^40.
  bool beginsAtSpan() const { return firstBit() < BM_END_BIT && firstBit() % BM_LEAF_BITS == 0; }

  // Index of the first word with a bit of 2^40 or above; BM_BIT_LIST_CAPACITY if there is none. For an image that
  // begins at a span.
  int firstWordOutOfRange() const {
    const uint64_t wordsInRange = (BM_END_BIT - firstBit()) / 64;  // the end of the space is a multiple of 64
    for (uint64_t i = wordsInRange; i < BM_BIT_LIST_CAPACITY; ++i) {
      if (word(static_cast<int>(i)) != 0) return static_cast<int>(i);
    }
    return BM_BIT_LIST_CAPACITY;
  }

 private:
  uint64_t wordAt(int index) const {
    uint64_t value;
    std::memcpy(&value, bytes_ + index * static_cast<long>(sizeof value), sizeof value);
    return value;
  }

  const char* bytes_;
};
